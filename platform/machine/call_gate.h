// The one door of the layer: every platform call enters here first.
//
// It counts the calls, lets a test or a sweep make one of them fail, hold up the thread that makes
// it, or do something at the k-th call (pull the keyboard, end the process), and is the place where
// a serial run may hand over to another thread. Faults are ordered by call and occurrence, or by
// the number of the call in the run.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/records.h"
#include "platform/machine/scheduler.h"

namespace platform {

// Every call of the layer that can fail or block. Those that neither fail nor block are left out,
// such as GetLastError and GetTickCount64: nothing could happen at them.
#define PLATFORM_CALLS(X)               \
  X(StartServiceCtrlDispatcherW)        \
  X(RegisterServiceCtrlHandlerExW)      \
  X(SetServiceStatus)                   \
  X(CM_Register_Notification)           \
  X(CM_Get_Device_Interface_List_SizeW) \
  X(CM_Get_Device_Interface_ListW)      \
  X(CM_Get_Device_Interface_PropertyW)  \
  X(CM_Locate_DevNodeW)                 \
  X(CM_Get_DevNode_Registry_PropertyW)  \
  X(HidD_GetAttributes)                 \
  X(HidD_GetPreparsedData)              \
  X(HidD_FreePreparsedData)             \
  X(HidP_GetCaps)                       \
  X(HidD_GetProductString)              \
  X(HidD_SetOutputReport)               \
  X(WinUsb_Initialize)                  \
  X(WinUsb_Free)                        \
  X(WinUsb_GetDescriptor)               \
  X(WinUsb_QueryInterfaceSettings)      \
  X(WinUsb_SetCurrentAlternateSetting)  \
  X(WinUsb_ControlTransfer)             \
  X(CreateFileW)                        \
  X(CloseHandle)                        \
  X(FindFirstFileA)                     \
  X(FindNextFileA)                      \
  X(FindClose)                          \
  X(OpenBinaryFile)                     \
  X(ReadBinaryFile)                     \
  X(RegOpenKeyExW)                      \
  X(RegQueryInfoKeyW)                   \
  X(RegEnumKeyExW)                      \
  X(RegGetValueW)                       \
  X(RegCloseKey)                        \
  X(K32EnumProcesses)                   \
  X(K32EnumProcessModules)              \
  X(K32GetModuleBaseNameW)              \
  X(OpenProcess)                        \
  X(ProcessIdToSessionId)               \
  X(OpenProcessToken)                   \
  X(LookupPrivilegeValueW)              \
  X(AdjustTokenPrivileges)              \
  X(DuplicateTokenEx)                   \
  X(CreateEnvironmentBlock)             \
  X(DestroyEnvironmentBlock)            \
  X(CreateProcessAsUserW)               \
  X(GetSystemPowerStatus)               \
  X(CreateThread)                       \
  X(ResumeThread)                       \
  X(SetThreadPriority)                  \
  X(ExitThread)                         \
  X(GetExitCodeThread)                  \
  X(CreateEventW)                       \
  X(SetEvent)                           \
  X(ResetEvent)                         \
  X(WaitForSingleObject)                \
  X(WaitForMultipleObjects)             \
  X(CreateMutexW)                       \
  X(ReleaseMutex)                       \
  X(Sleep)                              \
  X(HeapAlloc)                          \
  X(HeapFree)                           \
  X(MultiByteToWideChar)                \
  X(WideCharToMultiByte)                \
  X(OutputDebugStringW)

enum class Call : std::uint8_t {
#define PLATFORM_CALL_NAME(name) name,
  PLATFORM_CALLS(PLATFORM_CALL_NAME)
#undef PLATFORM_CALL_NAME
      Count
};

inline constexpr std::size_t CallCount = static_cast<std::size_t>(Call::Count);

// As Windows spells it, for faults and traces.
const char* NameOf(Call call);

// The errors that Windows documents for a call's failure, in the numbers that the call itself gives
// (last-error codes, CONFIGRET or registry results). Empty for a call that has no way to fail. The
// likeliest comes first: sweeps take them by their index.
const std::vector<std::uint32_t>& DocumentedErrors(Call call);

// A call to which happened what was ordered for it. A sweep learns from these whether its order was
// met: an order for a call that never comes changes nothing, and the run proves nothing.
struct CallTrouble {
  enum class Kind {
    Failed,  // it fails
    Held,    // its thread stands still from timeMs until untilMs before it goes on
    Acted,   // an action is run in front of it, which may end the process
  };
  Kind kind;
  Call call;
  std::uint64_t number;  // of the call in the run
  std::uint32_t threadId;
  std::uint64_t timeMs;
  std::uint64_t untilMs;
};

// A call that has returned, for whoever traces the calls.
struct FinishedCall {
  // As Windows spells it; the text lives as long as the program.
  const char* name;
  std::string arguments;
  std::uint32_t error;  // in the call's own numbers; 0: it did what it was asked for
  std::uint32_t threadId = 0;
};

// Observers are told of every call as it enters. An observer runs on the calling thread, before the
// call does anything. Any thread.
class CallGate : public Observers<Call> {
 public:
  explicit CallGate(Scheduler& scheduler) : scheduler_(scheduler) {}

  // Enters a call: 0 to go on, else the error that the call is to fail with. Called first thing by
  // every call of the layer with none of the layer's locks held; may hand over to other threads. A
  // thread of an ended process does not come back from it.
  std::uint32_t Enter(Call call);

  // The occurrence-th use of a call from now (1 is the next one) fails with the error; with
  // fromThenOn all later ones do, too.
  void FailCall(Call call, std::uint32_t occurrence, std::uint32_t error, bool fromThenOn = false);

  // The same by the number that the call has in the whole run (1 is the first). The error is the
  // call's documented one with that index, modulo their number; a call that cannot fail goes on.
  void FailNumber(std::uint64_t number, std::uint32_t errorIndex, bool fromThenOn = false);

  // The thread that makes the call with that number stands still for that time before it goes on,
  // and before an action for that number is run. Several orders stand side by side.
  void HoldNumber(std::uint64_t number, std::uint64_t milliseconds);

  // Runs the action in front of the call with that number, on the calling thread. Numbers count the
  // calls of all threads together, so they name the same call in every run that is not parallel.
  // Several actions may stand for one number; they run in the order in which they were ordered.
  void AtNumber(std::uint64_t number, std::function<void()> action);

  // Forgets all failures and holds that were not met or last for ever.
  void ClearFailures();

  // Calls that have entered so far: in all, and of one kind.
  std::uint64_t total() const;
  std::uint64_t CountOf(Call call) const;

  // Calls are traced from the first observer on.
  [[nodiscard]] Observation ObserveFinished(Observers<FinishedCall>::Observer observer) {
    isTraced_ = true;
    return finished_.Observe(std::move(observer));
  }
  bool isTraced() const { return isTraced_; }

  // For a call, on its thread, just before it returns. Fills in the thread's id.
  void Finish(FinishedCall call);

  // Each is added before it happens: an action that ends the process is on record all the same.
  RecordLog<CallTrouble> troubles;

  // How many calls of the kind were made to fail, by default of all kinds.
  std::uint64_t FailedOf(std::optional<Call> call = std::nullopt) const;

 private:
  // A failure ordered for one call. occurrence counts its uses from the start of the run, whenever
  // the order was given.
  struct Order {
    std::uint64_t occurrence;
    std::uint32_t error;
    bool fromThenOn;
  };

  // What the call that has just been counted is to fail with; 0 for nothing. With the lock held.
  std::uint32_t ErrorFor(Call call);

  Scheduler& scheduler_;
  std::atomic<bool> isTraced_ = false;
  Observers<FinishedCall> finished_;
  mutable std::mutex lock_;  // guards the rest
  std::array<std::uint64_t, CallCount> counts_{};
  std::uint64_t total_ = 0;
  std::multimap<Call, Order> orders_;
  std::uint64_t failNumber_ = 0;
  std::uint32_t failErrorIndex_ = 0;
  bool failFromThenOn_ = false;
  std::map<std::uint64_t, std::uint64_t> holds_;
  std::multimap<std::uint64_t, std::function<void()>> actions_;
};

}  // namespace platform
