#include "platform/machine/call_gate.h"

#include <cfgmgr32.h>
#include <windows.h>

namespace platform {

const char* NameOf(Call call) {
  static constexpr const char* Names[] = {
#define PLATFORM_CALL_TEXT(name) #name,
      PLATFORM_CALLS(PLATFORM_CALL_TEXT)
#undef PLATFORM_CALL_TEXT
          "none"};
  return Names[static_cast<std::size_t>(call)];
}

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

std::uint32_t CallGate::Enter(Call call) {
  scheduler_.Checkpoint();

  std::vector<std::function<void()>> actions;
  std::function<void(Call)> observer;
  std::uint32_t error = 0;
  {
    const std::scoped_lock lock(lock_);
    ++counts_[static_cast<std::size_t>(call)];
    ++total_;
    for (auto [at, end] = actions_.equal_range(total_); at != end; ++at) {
      actions.push_back(at->second);
    }
    observer = observer_;
    error = ErrorFor(call);
    if (error != 0) {
      ++failed_;
      ++failedCounts_[static_cast<std::size_t>(call)];
    }
  }

  for (const std::function<void()>& action : actions) {
    action();
  }
  if (observer) {
    observer(call);
  }
  return error;
}

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

void CallGate::AtNumber(std::uint64_t number, std::function<void()> action) {
  const std::scoped_lock lock(lock_);
  actions_.emplace(number, std::move(action));
}

void CallGate::ClearFailures() {
  const std::scoped_lock lock(lock_);
  orders_.clear();
  failNumber_ = 0;
}

void CallGate::Observe(std::function<void(Call)> observer) {
  const std::scoped_lock lock(lock_);
  observer_ = std::move(observer);
}

std::uint64_t CallGate::total() const {
  const std::scoped_lock lock(lock_);
  return total_;
}

std::uint64_t CallGate::CountOf(Call call) const {
  const std::scoped_lock lock(lock_);
  return counts_[static_cast<std::size_t>(call)];
}

std::uint64_t CallGate::failed() const {
  const std::scoped_lock lock(lock_);
  return failed_;
}

std::uint64_t CallGate::FailedOf(Call call) const {
  const std::scoped_lock lock(lock_);
  return failedCounts_[static_cast<std::size_t>(call)];
}

}  // namespace platform
