// How the calls count what they hand out, and what they do when there is no room for it.

#include <cfgmgr32.h>
#include <devpkey.h>
#include <psapi.h>

#include <algorithm>

#include "platform/machine/text.h"
#include "simulator/hid_side.h"
#include "tests/support/service_test.h"

namespace {

class BuffersTest : public ServiceTest {
 protected:
  void ClearBuffer() { std::fill(std::begin(buffer), std::end(buffer), u'!'); }

  // Holds these characters and nothing behind them.
  void ExpectBuffer(std::u16string text, const std::string& what = "") const {
    text.resize(std::size(buffer), u'!');
    EXPECT_TRUE(std::equal(text.begin(), text.end(), buffer)) << what;
  }

  WCHAR buffer[300];
};

TEST_F(BuffersTest, RegistryStringsComeWholeAndTerminated) {
  machine.registry.SetString(u"Key", u"Text", u"abc");
  machine.registry.SetValue(u"Key", u"Open", REG_SZ, {'a', 0, 'b', 0});
  machine.registry.SetValue(u"Key", u"Odd", REG_SZ, {'a', 0, 'b'});
  machine.registry.SetValue(u"Key", u"Empty", REG_SZ, {});
  machine.registry.SetValue(u"Key", u"Binary", REG_BINARY, {1, 2});
  const struct {
    LPCWSTR name;
    DWORD room;
    LSTATUS status;
    DWORD bytes;
    std::u16string text;
  } rows[] = {
      {u"Text", 8, ERROR_SUCCESS, 8, u"abc"},         {u"Text", 7, ERROR_MORE_DATA, 8, u""},
      {u"Open", 6, ERROR_SUCCESS, 6, u"ab"},          {u"Open", 4, ERROR_MORE_DATA, 6, u""},
      {u"Odd", 6, ERROR_SUCCESS, 6, u"ab"},           {u"Empty", 2, ERROR_SUCCESS, 2, u""},
      {u"Binary", 9, ERROR_UNSUPPORTED_TYPE, 9, u""}, {u"None", 9, ERROR_FILE_NOT_FOUND, 9, u""}};
  for (const auto& row : rows) {
    const std::string what = platform::Utf8FromWide(row.name) + std::to_string(row.room);
    ClearBuffer();
    SetLastError(ERROR_CRC);
    DWORD bytes = row.room;
    EXPECT_EQ(
        RegGetValueW(HKEY_LOCAL_MACHINE, u"KEY", row.name, RRF_RT_REG_SZ, nullptr, buffer, &bytes),
        row.status)
        << what;
    EXPECT_EQ(bytes, row.bytes) << what;
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CRC}) << what;
    ExpectBuffer(row.status == ERROR_SUCCESS ? row.text + u'\0' : u"", what);
  }
}

TEST_F(BuffersTest, InterfaceListsCountCharactersAndPropertiesBytes) {
  constexpr CONFIGRET success = CR_SUCCESS;
  constexpr CONFIGRET small = CR_BUFFER_SMALL;
  GUID guid = simulator::KeyboardInterfaceGuid;
  ULONG chars = 0;
  EXPECT_EQ(CM_Get_Device_Interface_List_SizeW(&chars, &guid, nullptr, 0), success);
  EXPECT_EQ(chars, 1u) << "an empty list is a NUL";
  PlugIn();
  const std::u16string path = machine.devices.ListInterfaces(guid, true).at(0);
  EXPECT_EQ(CM_Get_Device_Interface_List_SizeW(&chars, &guid, nullptr, 0), success);
  EXPECT_EQ(chars, path.size() + 2);
  for (const bool fits : {false, true}) {
    ClearBuffer();
    EXPECT_EQ(CM_Get_Device_Interface_ListW(&guid, nullptr, buffer, chars - (fits ? 0 : 1), 0),
              fits ? success : small);
    ExpectBuffer(fits ? path + u'\0' + u'\0' : u"");
  }

  const auto getId = [&](ULONG room, ULONG& bytes) {
    DEVPROPTYPE type = 0;
    bytes = room;
    return CM_Get_Device_Interface_PropertyW(path.c_str(), &DEVPKEY_Device_InstanceId, &type,
                                             reinterpret_cast<PBYTE>(buffer), &bytes, 0);
  };
  ULONG needed = 0;
  ULONG bytes = 0;
  EXPECT_EQ(getId(0, needed), small);
  EXPECT_EQ(getId(needed - 1, bytes), small);
  EXPECT_EQ(bytes, needed);
  EXPECT_EQ(getId(needed, bytes), success);
  EXPECT_EQ(bytes, 2 * (std::u16string(buffer).size() + 1));
}

TEST_F(BuffersTest, SearchesListWhatMatchesSortedByName) {
  for (const char* const path :
       {"C:\\T\\b.dfu", "C:\\T\\a.txt", "C:\\T\\A.dfu", "C:\\T\\x.dfu\\y"}) {
    ASSERT_TRUE(machine.drive.WriteFile(path, "12345", 5));
  }
  const struct {
    const char* pattern;
    Texts names;
    DWORD error;  // at the end of the search
  } rows[] = {
      {"C:\\T\\*.dfu", {"A.dfu 5", "b.dfu 5", "x.dfu folder"}, ERROR_NO_MORE_FILES},
      {"c:/t//*F*u", {"A.dfu 5", "b.dfu 5", "x.dfu folder"}, ERROR_NO_MORE_FILES},
      {"C:\\T\\a*", {"A.dfu 5", "a.txt 5"}, ERROR_NO_MORE_FILES},
      {"C:\\T\\B.dfu", {"b.dfu 5"}, ERROR_NO_MORE_FILES},
      {"C:\\T\\b.df", {}, ERROR_FILE_NOT_FOUND},
      {"C:\\T\\", {}, ERROR_FILE_NOT_FOUND},
      {"C:\\None\\*.dfu", {}, ERROR_PATH_NOT_FOUND},
      {"C:\\T\\b.dfu\\*.dfu", {}, ERROR_DIRECTORY},
      {"D:\\T\\*.dfu", {}, ERROR_PATH_NOT_FOUND},
      {"", {}, ERROR_PATH_NOT_FOUND},
  };
  for (const auto& row : rows) {
    Texts names;
    WIN32_FIND_DATAA found;
    const HANDLE search = FindFirstFileA(row.pattern, &found);
    for (bool more = search != INVALID_HANDLE_VALUE; more; more = FindNextFileA(search, &found)) {
      const bool isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      names.push_back(std::string(found.cFileName) + " " +
                      (isFolder ? "folder" : std::to_string(found.nFileSizeLow)));
    }
    EXPECT_EQ(GetLastError(), row.error) << row.pattern;
    EXPECT_EQ(names, row.names) << row.pattern;
    EXPECT_TRUE(search == INVALID_HANDLE_VALUE || FindClose(search));
  }
}

TEST_F(BuffersTest, ModuleNamesAreCutToTheRoomAndThenHaveNoEnd) {
  const HANDLE process = OpenProcess(PROCESS_ALL_ACCESS, FALSE, 812);
  const std::u16string name = u"services.exe";
  for (const DWORD room : {0u, 5u, 12u, 13u, 300u}) {
    ClearBuffer();
    const DWORD chars = std::min(room, 12u);
    EXPECT_EQ(K32GetModuleBaseNameW(process, nullptr, buffer, room), chars);
    ExpectBuffer(name.substr(0, chars) + (room > 12 ? std::u16string(1, u'\0') : u""));
  }
  CloseHandle(process);
}

}  // namespace
