// The keyboard of a run under Wine, in both of its modes. The service's device calls come to it
// through the three libraries that stand beside vantrel.exe.
//
// A device is an ordinary file here, since CreateFileW is Wine's own: opening and closing it opens
// and closes the device. The keyboard restarts by the clock of the machine, on a thread of its own.
// Its lock guards all of it and is not held while the service is called back.
#pragma once

#include <windows.h>

#include <cfgmgr32.h>

#include <optional>
#include <string>
#include <vector>

#include "simulator/dfu_bootloader.h"
#include "simulator/keyboard_options.h"

namespace wine {

inline constexpr GUID HidInterface = {
    0x4D1E55B2, 0xF16F, 0x11CF, {0x88, 0xCB, 0x00, 0x11, 0x11, 0x00, 0x00, 0x30}};
inline constexpr GUID KeyboardInterface = {
    0x884B96C3, 0x56EF, 0x11D1, {0xBC, 0x8C, 0x00, 0xA0, 0xC9, 0x14, 0x05, 0xDD}};
inline constexpr GUID DfuInterface = {
    0x5CBC7CBE, 0xC056, 0x45BD, {0xB4, 0x22, 0x00, 0x49, 0xD9, 0x4D, 0x11, 0xE9}};

// Where the device files are, the name of the one in DFU mode, and what Windows calls that device.
inline constexpr WCHAR DfuPath[] = L"C:\\keyboard\\dfu";
inline constexpr WCHAR DfuInstanceId[] = L"USB\\VID_1209&PID_0002\\1";

class Keyboard {
 public:
  // With older firmware, attached in normal mode.
  Keyboard();

  // The paths of the class that are there now.
  std::vector<std::wstring> Paths(const GUID& classGuid);

  // The HID collection behind an open file; null when it is none or has left.
  const simulator::HidCollectionOptions* Collection(HANDLE file);

  // The product string of the firmware that runs; empty when the keyboard is not in normal mode.
  std::optional<std::wstring> ProductString();
  bool TakeReport(HANDLE file, const u8* report, std::size_t bytes);

  // One control transfer. False when the device refuses it or has left.
  bool Transfer(const WINUSB_SETUP_PACKET& setup, platform::Bytes& data);

  // Keeps the service's callback for arrivals and removals of the class.
  void Register(const CM_NOTIFY_FILTER& filter, PCM_NOTIFY_CALLBACK callback);

 private:
  enum class Mode { Absent, Normal, Dfu };

  static DWORD WINAPI RestartThread(void* keyboard);
  static DWORD WINAPI ReplugThread(void* keyboard);
  void Restart();
  void Program(const simulator::KeyboardVersion& version);
  void ComparePackage();
  void Announce(Mode mode, CM_NOTIFY_ACTION action);
  platform::UsbReply Answer(const WINUSB_SETUP_PACKET& setup, const platform::Bytes& data);
  void LogDownload(const WINUSB_SETUP_PACKET& setup, const platform::Bytes& data);

  CRITICAL_SECTION lock_;
  const simulator::KeyboardOptions options_;
  simulator::NorFlash flash_;
  simulator::NorFlash flashBefore_;
  simulator::DfuBootloader bootloader_;
  Mode mode_ = Mode::Normal;
  Mode next_ = Mode::Normal;  // after the restart under way
  std::optional<simulator::KeyboardVersion> running_;
  PCM_NOTIFY_CALLBACK keyboardCallback_ = nullptr;
  PCM_NOTIFY_CALLBACK dfuCallback_ = nullptr;
};

// The one keyboard of the process.
Keyboard& TheKeyboard();

// The name of the device file behind a handle; empty when it is none.
std::wstring NameOf(HANDLE file);

}  // namespace wine
