#include "dfuengine/update_session.h"

#include <windows.h>

#include <atomic>
#include <cstring>

#include "common/debug_output.h"
#include "common/mutex_guard.h"
#include "common/status.h"
#include "common/update_lock.h"
#include "dfudevice/dfu_device_list.h"
#include "dfudevice/interface_listing.h"
#include "dfudevice/memory_map.h"
#include "dfuengine/device_removals.h"
#include "dfuengine/operation_registry.h"
#include "dfufile/image_cuts.h"
#include "dfufile/image_registry.h"
#include "notifier/notifier_launch.h"
#include "notifier/notifier_message.h"

namespace {

// An arrival that found a healthy operation: remembered while that is at work, due once it has
// failed. Written under the update lock; the tick takes a due one without it.
enum class ArrivalMark : u32 { None, Remembered, Due };

constinit std::atomic<ArrivalMark> arrivalMark{ArrivalMark::None};

// The erase list of a launch that failed: it stays registered and no operation answers for it. The
// next preparation releases it. Guarded by the update lock.
DfuImage* leftoverEraseList = nullptr;

bool ChangeMark(ArrivalMark from, ArrivalMark to) {
  return arrivalMark.compare_exchange_strong(from, to);
}

// How the current operation stands.
enum class Stand {
  Working,
  Abandoned,   // its thread is gone and will never finish it
  Erased,      // done, and the next one is to be launched
  Downloaded,  // likewise
  Leaving,     // the request to leave is out, the word to the user is to come
  Left,        // done, the last one of the session
  Failed,      // it says so itself, or is gone because its launch failed
};

// Ends the session of an operation that was finished, with its last context.
void EndSessionOf(OperationContext& record) {
  if (record.operationCode == OperationDownload) {
    upgradeImage = nullptr;
  }
  DiscardImage(&record.image);
  currentOperationId = 0;
}

// Also for an operation whose launch failed: there is none to finish then, and upgradeImage stays
// for the next preparation to release.
void EndFailedSession() {
  WriteDebugText(TEXT("error:: when updating fw\n"));
  if (disconnectNotified == 0) {
    LaunchNotifier(NotifierMessage::Disconnect);
    disconnectNotified = 1;
  }
  OperationContext record{};
  FinishOperation(&record);
  EndSessionOf(record);
  ChangeMark(ArrivalMark::Remembered, ArrivalMark::Due);
}

Stand JudgeEnded(const OperationContext& record) {
  if (LeavesDfuMode(record.operationCode)) {
    return Stand::Left;
  }
  return record.operationCode == OperationErase ? Stand::Erased : Stand::Downloaded;
}

Stand JudgeRecord(const OperationContext& record, bool running) {
  if (record.status != StatusSuccess) {
    return Stand::Failed;
  }
  if (record.percent == PercentDone) {
    return JudgeEnded(record);
  }
  if (LeavesDfuMode(record.operationCode) &&
      (record.phase == PhaseLeaving || record.phase == PhaseLeft)) {
    return Stand::Leaving;
  }
  return running ? Stand::Working : Stand::Abandoned;
}

Stand JudgeOperation() {
  OperationThread* operation = FindOperation(currentOperationId);
  if (operation == nullptr) {
    return Stand::Failed;
  }
  // Before the context: a thread that ends in between has published its last word by then.
  const bool running = operation->IsRunning();
  OperationContext record{};
  operation->GetContext(record);
  return JudgeRecord(record, running);
}

bool IsThrough(Stand stand) {
  return stand == Stand::Leaving || stand == Stand::Left;
}

bool IsHealthy(Stand stand) {
  return stand == Stand::Working || stand == Stand::Erased || stand == Stand::Downloaded;
}

// After a leave that was finished, with its last context. One that was stopped between its request
// and its word has not told the user yet.
void ConcludeLeft(OperationContext& record) {
  if (record.percent != PercentDone) {
    LaunchNotifier(NotifierMessage::Complete);
  }
  WriteDebugText(TEXT("\nSuccessfully left DFU mode!\n"));
  DiscardImage(&record.image);
  currentOperationId = 0;
  ChangeMark(ArrivalMark::Remembered, ArrivalMark::None);
}

void EndLeftSession() {
  disconnectNotified = 0;
  OperationContext record{};
  FinishOperation(&record);
  ConcludeLeft(record);
}

// Ends an operation that had neither failed nor was through. The user is told unless the update
// goes on, which shows after the preparation only.
void InterruptSession(InterruptedUpdate& interrupted) {
  OperationContext record{};
  FinishOperation(&record);
  if (IsThrough(JudgeRecord(record, false))) {
    // Its request went out while it was being stopped.
    ConcludeLeft(record);
    return;
  }
  EndSessionOf(record);
  interrupted.any = true;
  std::memcpy(interrupted.devicePath, record.devicePath, sizeof(interrupted.devicePath));
}

void EndSession(Stand stand, InterruptedUpdate& interrupted) {
  if (stand == Stand::Failed) {
    EndFailedSession();
  } else if (IsThrough(stand)) {
    EndLeftSession();
  } else {
    InterruptSession(interrupted);
  }
  // What was told belonged to the update that ended; the new one may tell again.
  disconnectNotified = 0;
}

// Whether an operation runs on the device of that path.
bool IsResumedOn(const char* devicePath) {
  OperationThread* operation = FindOperation(currentOperationId);
  if (operation == nullptr) {
    return false;
  }
  OperationContext record{};
  operation->GetContext(record);
  return std::strcmp(record.devicePath, devicePath) == 0;
}

// For this launch and the next one: after a failure currentOperationId names an operation that is
// gone, and the next tick ends the session as failed. upgradeImage then stays for the next
// preparation to release.
void StartDownload() {
  OperationContext record{};
  FinishOperation(&record);
  WriteDebugText(TEXT("\nErase successful!!!\n"));
  DiscardImage(&record.image);

  record.operationCode = OperationDownload;
  record.image = upgradeImage;
  LaunchOperation(record, currentOperationId, StatusSuccess, OperationDownload);
}

// The leave operation looks up an element of its image, so it gets one: blank memory, as the device
// maps it.
void StartLeave() {
  OperationContext record{};
  FinishOperation(&record);
  WriteDebugText(TEXT("\nUpgrade successful!!!\n"));
  upgradeImage = nullptr;
  DiscardImage(&record.image);

  record.guidA = OperationGuidA;
  record.guidB = LeaveOperationGuidB;
  record.operationCode = OperationLeave;
  if (RefreshDfuDevices() == 0) {
    return;
  }
  const MemoryMap* map = memoryMapTable.maps;
  BlankImageFromMemoryMap(&record.image, map);
  FitImageToMemoryMap(record.image, map, OperationLeave);
  if (LaunchOperation(record, currentOperationId, StatusSuccess, OperationLeave) != StatusSuccess) {
    // Nobody else knows this image.
    DiscardImage(&record.image);
  }
}

}  // namespace

void LaunchErase(DfuImage* eraseList) {
  OperationContext record{};
  // The device that the maps are of, wherever the list of devices has it by now.
  CopyDevicePath(record, memoryMapTable.devicePath);
  record.guidA = OperationGuidA;
  record.operationCode = OperationErase;
  record.image = eraseList;
  if (LaunchOperation(record, currentOperationId, StatusSuccess, OperationErase) != StatusSuccess) {
    leftoverEraseList = eraseList;
  }
}

void ReleaseLeftoverImages() {
  DiscardImage(&leftoverEraseList);
}

void SessionStep() {
  // An idle tick does not wait for a preparation that holds the lock.
  if (currentOperationId == 0) {
    return;
  }
  const MutexGuard lock(updateLock.Get());
  if (!lock.held() || currentOperationId == 0) {
    return;
  }
  switch (JudgeOperation()) {
    case Stand::Erased:
      StartDownload();
      return;
    case Stand::Downloaded:
      StartLeave();
      return;
    case Stand::Left:
      EndLeftSession();
      return;
    case Stand::Failed:
      EndFailedSession();
      return;
    case Stand::Working:
    case Stand::Leaving:
    case Stand::Abandoned:
      return;
  }
}

bool ClearWayForUpdate(InterruptedUpdate& interrupted) {
  // Taken before anything else: a removal from here on counts against what is decided now.
  const u32 removalsTold = DfuRemovalsTold();
  if (currentOperationId != 0) {
    const Stand stand = JudgeOperation();
    if (IsHealthy(stand) && !DfuRemovalStands(removalsTold)) {
      arrivalMark = ArrivalMark::Remembered;
      return false;
    }
    EndSession(stand, interrupted);
  }
  ForgetDfuRemovals(removalsTold);
  arrivalMark = ArrivalMark::None;
  return true;
}

void TellUnlessResumed(const InterruptedUpdate& interrupted, bool disconnectTold) {
  if (!interrupted.any || IsResumedOn(interrupted.devicePath)) {
    return;
  }
  WriteDebugText(TEXT("error:: when updating fw\n"));
  if (!disconnectTold) {
    LaunchNotifier(NotifierMessage::Disconnect);
  }
  // An update of another device that has begun meanwhile has words of its own.
  disconnectNotified = currentOperationId == 0 ? 1 : 0;
}

bool TakeRememberedArrival() {
  if (arrivalMark != ArrivalMark::Due) {
    return false;
  }
  // A list of its own: the maps and the list of the last refresh stay as they are.
  DfuDeviceList list;
  DisplayName displayName;
  if (!ListDfuInterfaces(list, displayName)) {
    return false;
  }
  return ChangeMark(ArrivalMark::Due, ArrivalMark::None) && list.count != 0;
}
