#include "tests/windows/wine_keyboard.h"

#include <cstdio>
#include <cstring>

#include "simulator/dfu_descriptors.h"
#include "simulator/dfuse_file.h"
#include "simulator/keyboard_image.h"
#include "tests/windows/run_log.h"

namespace wine {

using platform::Bytes;
using platform::UsbReply;
using platform::UsbResult;
using simulator::KeyboardVersion;
using simulator::NorFlash;

namespace {

constexpr KeyboardVersion OldVersion = {1, 0, 2, 1};

class Locked {
 public:
  explicit Locked(CRITICAL_SECTION& section) : section_(section) {
    EnterCriticalSection(&section_);
  }
  ~Locked() { LeaveCriticalSection(&section_); }
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;

 private:
  CRITICAL_SECTION& section_;
};

std::wstring CollectionPath(std::size_t index) {
  return L"C:\\keyboard\\collection" + std::wstring(1, static_cast<wchar_t>(L'0' + index));
}

void RunThread(LPTHREAD_START_ROUTINE routine, void* keyboard) {
  CloseHandle(CreateThread(nullptr, 0, routine, keyboard, 0, nullptr));
}

void MakeFile(const std::wstring& path) {
  CloseHandle(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                          FILE_ATTRIBUTE_NORMAL, nullptr));
}

std::string TextOf(const KeyboardVersion& version) {
  std::string text;
  for (const u8 digit : {version.major, version.minor, version.modelId, version.hwRev}) {
    text += text.empty() ? "" : ".";
    text += static_cast<char>('0' + digit);
  }
  return text;
}

// The package that lies beside the log, read by a reader of the simulator's own.
std::optional<simulator::DfuSeFile> ReadPackage() {
  std::FILE* const stream = std::fopen((std::string(RunFolder) + "package.dfu").c_str(), "rb");
  if (stream == nullptr) {
    return std::nullopt;
  }
  std::vector<u8> bytes;
  u8 piece[4096];
  for (std::size_t got; (got = std::fread(piece, 1, sizeof(piece), stream)) != 0;) {
    bytes.insert(bytes.end(), piece, piece + got);
  }
  std::fclose(stream);
  std::string reason;
  return simulator::ReadDfuSe(bytes, reason);
}

}  // namespace

std::wstring NameOf(HANDLE file) {
  WCHAR path[MAX_PATH] = {};
  const DWORD chars = GetFinalPathNameByHandleW(file, path, MAX_PATH, 0);
  if (chars == 0 || chars >= MAX_PATH) {
    return {};
  }
  return std::wcsrchr(path, L'\\') + 1;
}

Keyboard::Keyboard()
    : flash_(options_.flash), flashBefore_(flash_), bootloader_(flash_, options_.bootloader) {
  InitializeCriticalSection(&lock_);
  for (std::size_t i = 0; i < options_.collections.size(); ++i) {
    MakeFile(CollectionPath(i));
  }
  MakeFile(DfuPath);
  Program(OldVersion);
  RunThread(ReplugThread, this);
}

void Keyboard::Program(const KeyboardVersion& version) {
  flash_.EraseAll();
  for (const auto& element : BuildKeyboardImage(version, options_.firmware)) {
    flash_.Program(element.address, element.data);
  }
  flashBefore_ = flash_;
  running_ = version;
}

std::vector<std::wstring> Keyboard::Paths(const GUID& classGuid) {
  const Locked lock(lock_);
  std::vector<std::wstring> paths;
  if (mode_ == Mode::Normal && IsEqualGUID(classGuid, HidInterface)) {
    for (std::size_t i = 0; i < options_.collections.size(); ++i) {
      paths.push_back(CollectionPath(i));
    }
  } else if (mode_ == Mode::Dfu && IsEqualGUID(classGuid, DfuInterface)) {
    paths.push_back(DfuPath);
  }
  return paths;
}

const simulator::HidCollectionOptions* Keyboard::Collection(HANDLE file) {
  const std::wstring name = NameOf(file);
  const Locked lock(lock_);
  const std::size_t index = name.empty() ? options_.collections.size() : name.back() - L'0';
  return mode_ == Mode::Normal && index < options_.collections.size() ? &options_.collections[index]
                                                                      : nullptr;
}

std::optional<std::wstring> Keyboard::ProductString() {
  const Locked lock(lock_);
  if (mode_ != Mode::Normal || !running_.has_value()) {
    return std::nullopt;
  }
  const std::string digits = TextOf(*running_);
  Log("keyboard tells its version " + digits);
  return L"Keyboard v" + std::wstring(digits.begin(), digits.end());
}

bool Keyboard::TakeReport(HANDLE file, const u8* report, std::size_t bytes) {
  const simulator::HidCollectionOptions* const collection = Collection(file);
  if (collection == nullptr || collection->usagePage != 1 || collection->usage != 0 || bytes < 64 ||
      report[0] != 0x17 || report[1] != 0x01) {
    return false;
  }
  Log("keyboard takes the report");
  const Locked lock(lock_);
  next_ = Mode::Dfu;
  RunThread(RestartThread, this);
  return true;
}

// ---- Restarting ----

DWORD WINAPI Keyboard::RestartThread(void* keyboard) {
  static_cast<Keyboard*>(keyboard)->Restart();
  return 0;
}

void Keyboard::Restart() {
  Sleep(options_.detachDelayMs);
  EnterCriticalSection(&lock_);
  const Mode left = mode_;
  mode_ = Mode::Absent;
  if (left == Mode::Dfu) {
    ComparePackage();
  }
  LeaveCriticalSection(&lock_);
  Announce(left, CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL);

  Sleep(options_.restartMs);
  EnterCriticalSection(&lock_);
  bootloader_.Reset();
  running_ = FindKeyboardImage(flash_, options_.imageAddress);
  const Mode now = running_.has_value() ? next_ : Mode::Dfu;
  mode_ = now;
  Log(now == Mode::Dfu ? "keyboard is in DFU mode" : "keyboard runs firmware " + TextOf(*running_));
  LeaveCriticalSection(&lock_);
  Announce(now, CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL);
}

// Attaches the keyboard anew, with its old firmware, when the run asks for it by a file.
DWORD WINAPI Keyboard::ReplugThread(void* pointer) {
  Keyboard& keyboard = *static_cast<Keyboard*>(pointer);
  const std::string asked = std::string(RunFolder) + "replug";
  for (;;) {
    Sleep(100);
    if (!DeleteFileA(asked.c_str())) {
      continue;
    }
    Log("keyboard is attached anew");
    EnterCriticalSection(&keyboard.lock_);
    keyboard.mode_ = Mode::Normal;
    keyboard.Program(OldVersion);
    LeaveCriticalSection(&keyboard.lock_);
    keyboard.Announce(Mode::Normal, CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL);
  }
}

// The flash is to hold what the package has, and beside it what it held before: sectors that the
// package does not touch as they were, the others erased.
void Keyboard::ComparePackage() {
  const auto package = ReadPackage();
  const simulator::DfuSeTarget* const target =
      package.has_value() ? TargetForUpdate(*package) : nullptr;
  if (target == nullptr) {
    Log("FAULT: package.dfu cannot be read");
    return;
  }
  NorFlash expected = flashBefore_;
  for (const simulator::FlashSector& sector : flash_.sectors()) {
    for (const auto& element : target->elements) {
      if (element.address < sector.address + sector.sizeBytes &&
          sector.address < element.address + element.data.size()) {
        expected.Erase(sector);
      }
    }
  }
  for (const auto& element : target->elements) {
    expected.Program(element.address, element.data);
  }
  const std::size_t count = flash_.bytes().size();
  std::size_t at = 0;
  while (at < count && flash_.bytes()[at] == expected.bytes()[at]) {
    ++at;
  }
  Log(at == count ? "flash is as the package wants it, all " + std::to_string(count) + " bytes"
                  : "FAULT: flash differs at offset " + std::to_string(at));
}

// ---- Notifications ----

void Keyboard::Register(const CM_NOTIFY_FILTER& filter, PCM_NOTIFY_CALLBACK callback) {
  const Locked lock(lock_);
  const bool isDfu = IsEqualGUID(filter.u.DeviceInterface.ClassGuid, DfuInterface);
  const bool isKeyboard = IsEqualGUID(filter.u.DeviceInterface.ClassGuid, KeyboardInterface);
  (isDfu ? dfuCallback_ : keyboardCallback_) = callback;
  Log(isDfu        ? "service registers for DFU devices"
      : isKeyboard ? "service registers for keyboards"
                   : "FAULT: service registers for something else");
}

void Keyboard::Announce(Mode mode, CM_NOTIFY_ACTION action) {
  EnterCriticalSection(&lock_);
  const PCM_NOTIFY_CALLBACK callback = mode == Mode::Dfu ? dfuCallback_ : keyboardCallback_;
  LeaveCriticalSection(&lock_);
  if (callback == nullptr) {
    return;
  }
  const std::wstring path = mode == Mode::Dfu ? DfuPath : CollectionPath(0);
  std::vector<u8> record(sizeof(CM_NOTIFY_EVENT_DATA) + path.size() * sizeof(WCHAR));
  auto* const data = reinterpret_cast<CM_NOTIFY_EVENT_DATA*>(record.data());
  data->FilterType = CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE;
  data->u.DeviceInterface.ClassGuid = mode == Mode::Dfu ? DfuInterface : KeyboardInterface;
  std::memcpy(data->u.DeviceInterface.SymbolicLink, path.c_str(),
              (path.size() + 1) * sizeof(WCHAR));
  callback(nullptr, nullptr, action, data, static_cast<DWORD>(record.size()));
}

// ---- DFU mode ----

UsbReply Keyboard::Answer(const WINUSB_SETUP_PACKET& setup, const Bytes& data) {
  if (mode_ != Mode::Dfu) {
    return {UsbResult::Absent, {}, 0};
  }
  if (simulator::IsClassRequest(setup)) {
    LogDownload(setup, data);
    return bootloader_.Request(setup, data, GetTickCount64());
  }
  switch (setup.Request) {
    case simulator::GetDescriptorRequest:
      return AnswerDescriptor(options_, setup);
    case simulator::SetInterfaceRequest:
      return {setup.Value == 0 ? UsbResult::Done : UsbResult::Stalled, {}, 0};
    default:
      return {UsbResult::Stalled, {}, 0};
  }
}

void Keyboard::LogDownload(const WINUSB_SETUP_PACKET& setup, const Bytes& data) {
  if (setup.Request != simulator::DfuDnload) {
    return;
  }
  if (data.empty()) {
    Log("device is told to leave");
  } else if (simulator::IsCommand(setup, data)) {
    Log((data[0] == simulator::EraseCommand ? "device erases " : "device goes to ") +
        Hex(simulator::AddressIn(data)));
  } else {
    Log("device takes block " + std::to_string(setup.Value) + ", " + std::to_string(data.size()) +
        " bytes");
  }
}

bool Keyboard::Transfer(const WINUSB_SETUP_PACKET& setup, Bytes& data) {
  UsbReply reply;
  {
    const Locked lock(lock_);
    reply = Answer(setup, data);
    if (bootloader_.TakeLeave()) {
      next_ = Mode::Normal;
      RunThread(RestartThread, this);
    }
  }
  Sleep(reply.delayMs);
  if (reply.result != UsbResult::Done) {
    SetLastError(reply.result == UsbResult::Absent ? ERROR_BAD_COMMAND : ERROR_GEN_FAILURE);
    return false;
  }
  if (simulator::IsToHost(setup)) {
    data = reply.data;
  }
  return true;
}

// It lives as long as the process: its threads still run when that ends.
Keyboard& TheKeyboard() {
  static Keyboard* const keyboard = new Keyboard;
  return *keyboard;
}

}  // namespace wine
