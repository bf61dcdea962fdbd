#include "platform/machine/call_gate.h"

#include <cfgmgr32.h>
#include <windows.h>

#include <algorithm>

namespace platform {

const char* NameOf(Call call) {
  static constexpr const char* Names[] = {
#define PLATFORM_CALL_TEXT(name) #name,
      PLATFORM_CALLS(PLATFORM_CALL_TEXT)
#undef PLATFORM_CALL_TEXT
          "none"};
  return Names[static_cast<std::size_t>(call)];
}

// Only what a caller can meet in practice stands here. A call without a row carries on whatever a
// sweep orders: Windows gives it no way to fail, or the service none to notice. More rows mean more
// places for a sweep to break.
const std::vector<std::uint32_t>& DocumentedErrors(Call call) {
  using Errors = std::vector<std::uint32_t>;
  static const Errors None;
  static const std::map<Call, Errors> Table = {
      {Call::StartServiceCtrlDispatcherW, {ERROR_FAILED_SERVICE_CONTROLLER_CONNECT}},
      {Call::RegisterServiceCtrlHandlerExW, {ERROR_NOT_ENOUGH_MEMORY}},
      {Call::SetServiceStatus, {ERROR_INVALID_DATA}},
      {Call::CM_Register_Notification, {CR_OUT_OF_MEMORY, CR_FAILURE}},
      {Call::CM_Get_Device_Interface_List_SizeW, {CR_FAILURE, CR_OUT_OF_MEMORY}},
      {Call::CM_Get_Device_Interface_ListW, {CR_BUFFER_SMALL, CR_FAILURE}},
      {Call::CM_Get_Device_Interface_PropertyW, {CR_NO_SUCH_VALUE, CR_BUFFER_SMALL, CR_FAILURE}},
      {Call::CM_Locate_DevNodeW, {CR_NO_SUCH_DEVNODE}},
      {Call::CM_Get_DevNode_Registry_PropertyW, {CR_NO_SUCH_VALUE, CR_BUFFER_SMALL}},
      {Call::HidD_GetAttributes, {ERROR_GEN_FAILURE, ERROR_DEVICE_NOT_CONNECTED}},
      {Call::HidD_GetPreparsedData, {ERROR_GEN_FAILURE, ERROR_DEVICE_NOT_CONNECTED}},
      {Call::HidP_GetCaps, {ERROR_INVALID_DATA}},
      {Call::HidD_GetProductString, {ERROR_GEN_FAILURE, ERROR_DEVICE_NOT_CONNECTED}},
      {Call::HidD_SetOutputReport, {ERROR_GEN_FAILURE, ERROR_DEVICE_NOT_CONNECTED}},
      {Call::WinUsb_Initialize, {ERROR_NOT_ENOUGH_MEMORY, ERROR_BAD_DEVICE}},
      {Call::WinUsb_GetDescriptor, {ERROR_GEN_FAILURE, ERROR_SEM_TIMEOUT}},
      {Call::WinUsb_QueryInterfaceSettings, {ERROR_NO_MORE_ITEMS}},
      {Call::WinUsb_SetCurrentAlternateSetting, {ERROR_GEN_FAILURE}},
      {Call::WinUsb_ControlTransfer, {ERROR_GEN_FAILURE, ERROR_SEM_TIMEOUT, ERROR_BAD_COMMAND}},
      {Call::CreateFileW, {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_FILE_NOT_FOUND}},
      {Call::FindFirstFileA, {ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED}},
      {Call::FindNextFileA, {ERROR_NO_MORE_FILES}},
      {Call::OpenBinaryFile, {ERROR_ACCESS_DENIED}},
      {Call::ReadBinaryFile, {ERROR_CRC, ERROR_IO_DEVICE}},
      {Call::RegOpenKeyExW, {ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND}},
      {Call::RegQueryInfoKeyW, {ERROR_ACCESS_DENIED}},
      {Call::RegEnumKeyExW, {ERROR_MORE_DATA, ERROR_NO_MORE_ITEMS}},
      {Call::RegGetValueW, {ERROR_FILE_NOT_FOUND, ERROR_MORE_DATA}},
      {Call::K32EnumProcesses, {ERROR_INVALID_HANDLE}},
      {Call::K32EnumProcessModules, {ERROR_PARTIAL_COPY, ERROR_ACCESS_DENIED}},
      {Call::K32GetModuleBaseNameW, {ERROR_INVALID_HANDLE}},
      {Call::OpenProcess, {ERROR_ACCESS_DENIED, ERROR_INVALID_PARAMETER}},
      {Call::ProcessIdToSessionId, {ERROR_INVALID_PARAMETER}},
      {Call::OpenProcessToken, {ERROR_ACCESS_DENIED}},
      {Call::LookupPrivilegeValueW, {ERROR_NO_SUCH_PRIVILEGE}},
      {Call::AdjustTokenPrivileges, {ERROR_ACCESS_DENIED}},
      {Call::DuplicateTokenEx, {ERROR_ACCESS_DENIED}},
      {Call::CreateEnvironmentBlock, {ERROR_NOT_ENOUGH_MEMORY}},
      {Call::CreateProcessAsUserW, {ERROR_FILE_NOT_FOUND, ERROR_PRIVILEGE_NOT_HELD}},
      {Call::GetSystemPowerStatus, {ERROR_GEN_FAILURE}},
      {Call::CreateThread, {ERROR_NOT_ENOUGH_MEMORY}},
      {Call::SetThreadPriority, {ERROR_ACCESS_DENIED}},
      {Call::GetExitCodeThread, {ERROR_ACCESS_DENIED}},
      {Call::CreateEventW, {ERROR_NOT_ENOUGH_MEMORY}},
      {Call::CreateMutexW, {ERROR_NOT_ENOUGH_MEMORY}},
      {Call::HeapAlloc, {ERROR_NOT_ENOUGH_MEMORY}},
      {Call::MultiByteToWideChar, {ERROR_INSUFFICIENT_BUFFER}},
      {Call::WideCharToMultiByte, {ERROR_INSUFFICIENT_BUFFER}},
  };
  const auto found = Table.find(call);
  return found == Table.end() ? None : found->second;
}

void CallGate::Finish(FinishedCall call) {
  call.threadId = Scheduler::Current()->id();
  finished_.Tell(call);
}

// The lock is let go before anything that may block or act: an action may come back through this
// gate, and a thread that is held up must not hold up others.
std::uint32_t CallGate::Enter(Call call) {
  scheduler_.Checkpoint();

  std::vector<std::function<void()>> actions;
  std::uint64_t number = 0;
  std::uint64_t heldMs = 0;
  std::uint32_t error = 0;
  {
    const std::scoped_lock lock(lock_);
    ++counts_[static_cast<std::size_t>(call)];
    number = ++total_;
    for (auto [at, end] = actions_.equal_range(number); at != end; ++at) {
      actions.push_back(at->second);
    }
    if (const auto hold = holds_.find(number); hold != holds_.end()) {
      heldMs = hold->second;
    }
    error = ErrorFor(call);
  }

  const auto note = [&](CallTrouble::Kind kind, std::uint64_t forMs = 0) {
    const std::uint64_t nowMs = scheduler_.NowMs();
    troubles.Add({kind, call, number, Scheduler::Current()->id(), nowMs, nowMs + forMs});
  };
  if (heldMs != 0) {
    note(CallTrouble::Kind::Held, heldMs);
    scheduler_.SleepMs(heldMs);
  }
  for (const std::function<void()>& action : actions) {
    note(CallTrouble::Kind::Acted);
    action();
  }
  if (error != 0) {
    note(CallTrouble::Kind::Failed);
  }
  Tell(call);
  return error;
}

// An order for the call itself comes before one for a number of the run.
std::uint32_t CallGate::ErrorFor(Call call) {
  const std::uint64_t occurrence = counts_[static_cast<std::size_t>(call)];
  for (auto [at, end] = orders_.equal_range(call); at != end; ++at) {
    const Order& order = at->second;
    if (occurrence == order.occurrence || (order.fromThenOn && occurrence > order.occurrence)) {
      return order.error;
    }
  }
  if (failNumber_ == 0 || total_ < failNumber_ || (total_ > failNumber_ && !failFromThenOn_)) {
    return 0;
  }
  const std::vector<std::uint32_t>& errors = DocumentedErrors(call);
  return errors.empty() ? 0 : errors[failErrorIndex_ % errors.size()];
}

// Counted from now on, so that a test need not know how often the service has called already.
void CallGate::FailCall(Call call, std::uint32_t occurrence, std::uint32_t error, bool fromThenOn) {
  const std::scoped_lock lock(lock_);
  orders_.emplace(call,
                  Order{counts_[static_cast<std::size_t>(call)] + occurrence, error, fromThenOn});
}

void CallGate::FailNumber(std::uint64_t number, std::uint32_t errorIndex, bool fromThenOn) {
  const std::scoped_lock lock(lock_);
  failNumber_ = number;
  failErrorIndex_ = errorIndex;
  failFromThenOn_ = fromThenOn;
}

void CallGate::HoldNumber(std::uint64_t number, std::uint64_t milliseconds) {
  const std::scoped_lock lock(lock_);
  holds_[number] = milliseconds;
}

void CallGate::AtNumber(std::uint64_t number, std::function<void()> action) {
  const std::scoped_lock lock(lock_);
  actions_.emplace(number, std::move(action));
}

void CallGate::ClearFailures() {
  const std::scoped_lock lock(lock_);
  orders_.clear();
  failNumber_ = 0;
  holds_.clear();
}

std::uint64_t CallGate::total() const {
  const std::scoped_lock lock(lock_);
  return total_;
}

std::uint64_t CallGate::CountOf(Call call) const {
  const std::scoped_lock lock(lock_);
  return counts_[static_cast<std::size_t>(call)];
}

std::uint64_t CallGate::FailedOf(std::optional<Call> call) const {
  const std::vector<CallTrouble> all = troubles.All();
  return static_cast<std::uint64_t>(
      std::count_if(all.begin(), all.end(), [call](const CallTrouble& trouble) {
        return trouble.kind == CallTrouble::Kind::Failed &&
               trouble.call == call.value_or(trouble.call);
      }));
}

}  // namespace platform
