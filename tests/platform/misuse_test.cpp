// What the layer polices: handles and memory that are used wrongly, and requests that it does not
// model.

#include <psapi.h>
#include <winusb.h>

#include <cstdio>

#include "simulator/dfu_descriptors.h"
#include "tests/support/service_test.h"

namespace {

class MisuseTest : public ServiceTest {
 protected:
  static HANDLE NewEvent() { return CreateEventW(nullptr, TRUE, FALSE, nullptr); }

  // The call fails with the last error, and finds this fault and no other; none when empty.
  void ExpectMisuse(const std::function<bool()>& call, DWORD error, const std::string& fault) {
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(call()) << fault;
    EXPECT_EQ(GetLastError(), error) << fault;
    const Texts faults = machine.faults.All();
    EXPECT_EQ(faults.size(), fault.empty() ? 0u : 1u) << fault;
    for (const std::string& found : faults) {
      EXPECT_NE(found.find(fault), std::string::npos) << found << ", not " << fault;
      machine.faults.Expect(found);
    }
  }
};

TEST_F(MisuseTest, HandlesAreOpenedOnceClosedOnceAndOfOneKind) {
  const HANDLE event = NewEvent();
  const HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
  HKEY key = nullptr;
  EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"", 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY, &key), 0);
  ASSERT_TRUE(machine.drive.WriteFile("C:\\file.dfu", "", 0));
  WIN32_FIND_DATAA found;
  const HANDLE search = FindFirstFileA("C:\\*.dfu", &found);
  const HANDLE closed = NewEvent();
  EXPECT_TRUE(CloseHandle(closed));

  const struct {
    const char* call;
    HANDLE handle;
    const char* fault;
    std::function<BOOL(HANDLE)> run;
  } rows[] = {
      {"CloseHandle", closed, "is closed (event)", CloseHandle},
      {"SetEvent", closed, "is closed (event)", SetEvent},
      {"CloseHandle", &key, "was never opened", CloseHandle},
      {"CloseHandle", key, "is a registry key handle", CloseHandle},
      {"CloseHandle", search, "is a search handle", CloseHandle},
      {"ResetEvent", mutex, "is a mutex handle", ResetEvent},
      {"ReleaseMutex", event, "is a event handle", ReleaseMutex},
      {"FindClose", event, "is a event handle", FindClose},
      {"WaitForSingleObject", search, "cannot be waited for",
       [](HANDLE handle) { return WaitForSingleObject(handle, 0) != WAIT_FAILED; }},
  };
  for (const auto& row : rows) {
    char fault[100];
    std::snprintf(fault, sizeof(fault), "%s: handle %p %s", row.call, row.handle, row.fault);
    ExpectMisuse([&] { return row.run(row.handle); }, ERROR_INVALID_HANDLE, fault);
  }
  // What Windows itself uses for "no handle" is no fault.
  ExpectMisuse([] { return CloseHandle(nullptr); }, ERROR_INVALID_HANDLE, "");
  ExpectMisuse([] { return FindClose(INVALID_HANDLE_VALUE); }, ERROR_INVALID_HANDLE, "");

  // None of this has harmed what is open.
  EXPECT_TRUE(SetEvent(event) && CloseHandle(mutex) && FindClose(search) && CloseHandle(event));
  EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
  ExpectMisuse([&] { return RegCloseKey(key) != ERROR_INVALID_HANDLE; }, ERROR_SUCCESS,
               "is closed (registry key)");
  EXPECT_EQ(machine.handles.OpenHandles().size(), 0u);
}

TEST_F(MisuseTest, WinUsbIsFreedBeforeItsFileIsClosed) {
  simulator::KeyboardOptions options;
  options.alternateSettings.push_back({1, {}});
  PlugInInDfuMode(options);
  const std::u16string path =
      machine.devices.ListInterfaces(simulator::DfuModeInterfaceGuid, true).at(0);
  const auto open = [&] {
    return CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
  };
  const HANDLE file = open();
  WINUSB_INTERFACE_HANDLE winUsb = nullptr;
  ASSERT_TRUE(WinUsb_Initialize(file, &winUsb));
  ULONG got = 0;
  const auto askStatus = [&](USHORT length, PULONG count) {
    u8 buffer[6];
    return WinUsb_ControlTransfer(winUsb, {0xA1, 3, 0, 0, length}, buffer, 6, count, nullptr);
  };
  EXPECT_TRUE(WinUsb_SetCurrentAlternateSetting(winUsb, 1));
  EXPECT_TRUE(askStatus(6, &got));
  ExpectMisuse([&] { return askStatus(7, &got); }, ERROR_INVALID_PARAMETER,
               "goes beyond the buffer");
  ExpectMisuse([&] { return askStatus(6, nullptr); }, ERROR_INVALID_PARAMETER, "LengthTransferred");
  EXPECT_TRUE(WinUsb_ControlTransfer(winUsb, {0x21, 6, 0, 0, 0}, nullptr, 0, nullptr, nullptr));
  ExpectMisuse([&] { return open() != INVALID_HANDLE_VALUE; }, ERROR_ACCESS_DENIED, "");

  LookFromHere();
  ExpectMisuse([&] { return !CloseHandle(file); }, ERROR_SUCCESS, "closed before WinUsb_Free");
  ExpectMisuse([&] { return askStatus(6, &got); }, ERROR_INVALID_HANDLE,
               "the device file is closed");
  EXPECT_TRUE(WinUsb_Free(winUsb));
  ExpectMisuse([&] { return WinUsb_Free(winUsb); }, ERROR_INVALID_HANDLE, "is closed (WinUSB)");
  EXPECT_EQ(Wire(), Texts{}) << "nothing goes through a closed file";
}

TEST_F(MisuseTest, RefusesWhatIsNotModelled) {
  const HANDLE event = NewEvent();
  WIN32_FIND_DATAA found;
  HKEY key = nullptr;
  const HANDLE process = OpenProcess(PROCESS_ALL_ACCESS, FALSE, 812);
  HMODULE module = nullptr;
  DWORD bytes = 0;
  const auto open = [](LPCWSTR path, DWORD how, DWORD flags) {
    return CreateFileW(path, 0, 0, nullptr, how, flags, nullptr) != INVALID_HANDLE_VALUE;
  };
  const auto find = [&](LPCSTR what) {
    return FindFirstFileA(what, &found) != INVALID_HANDLE_VALUE;
  };

  const std::pair<Call, std::function<bool()>> rows[] = {
      {Call::CreateEventW, [] { return CreateEventW(nullptr, FALSE, FALSE, u"name"); }},
      {Call::CreateMutexW, [] { return CreateMutexW(nullptr, TRUE, nullptr); }},
      {Call::CreateThread, [] { return CreateThread(nullptr, 9, nullptr, nullptr, 0, nullptr); }},
      {Call::WaitForMultipleObjects,
       [&] { return WaitForMultipleObjects(1, &event, TRUE, 0) != WAIT_FAILED; }},
      {Call::CreateFileW, [=] { return open(u"C:\\file", OPEN_EXISTING, 0); }},
      {Call::CreateFileW, [=] { return open(u"\\\\?\\x", OPEN_EXISTING, 1); }},
      {Call::FindFirstFileA, [=] { return find("C:\\*.*"); }},
      {Call::RegOpenKeyExW,
       [&] { return RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"", 0, 512, &key) != ERROR_NOT_SUPPORTED; }},
      {Call::HeapAlloc, [] { return HeapAlloc(GetProcessHeap(), 1, 1); }},
      {Call::MultiByteToWideChar, [] { return MultiByteToWideChar(65001, 0, "a", 1, nullptr, 0); }},
      {Call::OpenProcess, [] { return OpenProcess(GENERIC_READ, FALSE, 812); }},
      {Call::K32EnumProcessModules,
       [&] { return K32EnumProcessModules(process, &module, sizeof(module) - 1, &bytes); }},
  };
  for (const auto& [call, run] : rows) {
    ExpectMisuse(run, ERROR_NOT_SUPPORTED, platform::NameOf(call));
  }
  EXPECT_TRUE(CloseHandle(event) && CloseHandle(process));
  EXPECT_EQ(machine.handles.OpenHandles().size(), 0u);
}

// One write is one line, whatever it ends with; and who looks at the last error only then finds
// another.
TEST_F(MisuseTest, DebugOutputKeepsEachWriteAndSpoilsTheLastError) {
  SetLastError(ERROR_CRC);
  OutputDebugStringW(u"a\nb");
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  OutputDebugStringW(u"");
  OutputDebugStringW(u"\u20AC\n");
  OutputDebugStringW(nullptr);
  ExpectFault("OutputDebugStringW: null");
  EXPECT_EQ(Lines(), (Texts{"a\nb", "", "\u20AC\n"}));
}

}  // namespace
