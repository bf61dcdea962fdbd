#include "tests/dfuengine/scripted_device.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <sstream>

#include "common/status.h"
#include "platform/machine/machine.h"
#include "platform/machine/text.h"

using platform::Bytes;
using platform::UsbReply;
using platform::UsbResult;

namespace {

template <class... Arguments>
std::string Format(const char* format, Arguments... arguments) {
  char text[64];
  std::snprintf(text, sizeof(text), format, arguments...);
  return text;
}

std::string NameOfPhase(u32 phase) {
  static const std::map<u32, std::string> names = {
      {PhaseOpening, "Opening"},     {PhaseDnload, "Dnload"},   {PhaseGetStatus, "Status"},
      {PhaseClearStatus, "Clear"},   {PhaseGetState, "State"},  {PhaseAbort, "Abort"},
      {PhaseSelecting, "Selecting"}, {PhaseLeaving, "Leaving"}, {PhaseLeft, "Left"}};
  const auto found = names.find(phase);
  return found != names.end() ? found->second : Format("%08X", phase);
}

std::string NameOfDownload(const WINUSB_SETUP_PACKET& setup, const Bytes& data) {
  if (setup.Value == 0 && data.empty()) {
    return "LEAVE";
  }
  if (setup.Value != 0 || data.size() != CommandBlockBytes) {
    return Format("BLOCK%u:%u", setup.Value, setup.Length);
  }
  const u32 address = data[1] | data[2] << 8 | data[3] << 16 | static_cast<u32>(data[4]) << 24;
  const char* const name = data[0] == 0x41 ? "ERASE" : data[0] == 0x21 ? "POINTER" : "COMMAND";
  return Format("%s@%08X", name, address);
}

// wValue and wLength of a request that is no download, where they are not as they must be.
std::string NameOfSetup(const char* name, const WINUSB_SETUP_PACKET& setup, u16 length) {
  return setup.Value == 0 && setup.Length == length
             ? name
             : Format("%s(%u,%u)", name, setup.Value, setup.Length);
}

// Empty for the requests that are left to the keyboard.
std::string NameOfRequest(const WINUSB_SETUP_PACKET& setup, const Bytes& data) {
  if (setup.Index != 0) {
    return Format("INTERFACE%u", setup.Index);
  }
  switch (setup.RequestType << 8 | setup.Request) {
    case 0x010B:
      return Format("SELECT=%u", setup.Value);
    case 0x2101:
      return NameOfDownload(setup, data);
    case 0xA103:
      return NameOfSetup("GETSTATUS", setup, 6);
    case 0x2104:
      return NameOfSetup("CLRSTATUS", setup, 0);
    case 0xA105:
      return NameOfSetup("GETSTATE", setup, 1);
    case 0x2106:
      return NameOfSetup("ABORT", setup, 0);
    default:
      return {};
  }
}

Bytes AnswerIn(const std::string& word) {
  unsigned first = 0;
  unsigned state = 0;
  unsigned pollMs = 0;
  if (std::sscanf(word.c_str(), "GETSTATUS=%u,%u,%u", &first, &state, &pollMs) >= 2) {
    return {static_cast<u8>(first),        static_cast<u8>(pollMs), static_cast<u8>(pollMs >> 8),
            static_cast<u8>(pollMs >> 16), static_cast<u8>(state),  0};
  }
  return std::sscanf(word.c_str(), "GETSTAT%*[^=]=%u", &first) == 1 ? Bytes{static_cast<u8>(first)}
                                                                    : Bytes{};
}

}  // namespace

std::string StatusWord(u32 status) {
  return Format("%04X", status & 0xFFFF);
}

ScriptedDevice::ScriptedDevice(platform::Machine& machine, simulator::VirtualKeyboard& keyboard)
    : keyboard_(keyboard) {
  watching_ = {machine.gate.Observe([this](platform::Call call) { NoteCall(call); }),
               machine.processes.launches.Observe([this](const platform::LaunchedProcess& launch) {
                 Note(platform::Utf8FromWide(launch.commandLine));
               })};
  keyboard.Intercept(
      [this](const WINUSB_SETUP_PACKET& setup, const Bytes& data) { return Answer(setup, data); });
}

ScriptedDevice::~ScriptedDevice() {
  keyboard_.Intercept(nullptr);
}

void ScriptedDevice::Play(const std::string& script) {
  playing_ = true;
  script_ = script;
  std::istringstream stream(script);
  words_.assign(std::istream_iterator<std::string>(stream), {});
  nextWord_ = 0;
  log_.clear();
  lastNoted_.clear();
}

void ScriptedDevice::ExpectPlayed(const std::string& what) const {
  EXPECT_EQ(log_, script_) << what;
}

void ScriptedDevice::Note(const std::string& word) {
  log_ += (log_.empty() ? "" : " ") + word;
  lastNoted_ = word;
}

void ScriptedDevice::NotePublication(const OperationContext& published) {
  const std::string failure =
      published.status == StatusSuccess ? "" : ":" + StatusWord(published.status);
  const std::string word = "[" + NameOfPhase(published.phase) + failure + "]";
  if (script_.find('[') != std::string::npos && lastNoted_ != word) {
    Note(word);
  }
}

void ScriptedDevice::NoteCall(platform::Call call) {
  if (call == platform::Call::WinUsb_Initialize) {
    Note("OPEN");
  } else if (call == platform::Call::WinUsb_Free) {
    Note("FREE");
  } else if (call == platform::Call::CloseHandle && lastNoted_ == "FREE") {
    // Handles of other kinds are closed, too; the device's file is closed right after its
    // interface.
    Note("CLOSE");
  }
}

std::optional<UsbReply> ScriptedDevice::Answer(const WINUSB_SETUP_PACKET& setup,
                                               const Bytes& data) {
  const std::string request = NameOfRequest(setup, data);
  if (!playing_ || request.empty()) {
    return std::nullopt;
  }
  for (std::size_t at = nextWord_; at < words_.size(); ++at) {
    const std::string& word = words_[at];
    if (word == request || word == request + "!" || word.starts_with(request + "=")) {
      nextWord_ = at + 1;
      Note(word);
      return UsbReply{word.ends_with('!') ? UsbResult::Stalled : UsbResult::Done, AnswerIn(word)};
    }
  }
  Note(request);
  return UsbReply{UsbResult::Stalled, {}};
}
