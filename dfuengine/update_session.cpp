#include "dfuengine/update_session.h"

#include <windows.h>

#include <atomic>

#include "common/debug_output.h"
#include "common/status.h"
#include "common/update_lock.h"
#include "dfudevice/dfu_device_list.h"
#include "dfudevice/memory_map.h"
#include "dfuengine/operation_registry.h"
#include "dfufile/image_cuts.h"
#include "dfufile/image_registry.h"
#include "notifier/notifier_launch.h"
#include "notifier/notifier_message.h"

namespace {

// What the notifications have told about the DFU device while a session had it. A removal puts an
// end to a remembered arrival, hence one value for both.
enum class DeviceMark : u32 { None, Removed, ArrivalRemembered, ArrivalDue };

// Written without a lock by the removal notification, and by the threads that hold the update lock.
constinit std::atomic<DeviceMark> deviceMark{DeviceMark::None};

// Changes the mark only if it still is what it is taken for: a removal in between stays.
bool ChangeMark(DeviceMark from, DeviceMark to) {
  return deviceMark.compare_exchange_strong(from, to);
}

// How the current operation stands.
enum class Stand {
  Working,    // at work, or done and waiting for the next tick
  Abandoned,  // its thread is gone and will never finish it
  Failed,     // it says so itself, or is gone because its launch failed
  Left,       // it was the last one of the session and has done its work
};

void ReleaseRecordImage(OperationContext& record) {
  ReleaseImage(&record.image);
  record.image = nullptr;
}

// Ends the current operation, if it is still there, and with it the session.
void EndOperation() {
  OperationContext record{};
  if (FinishOperation(&record) == StatusSuccess) {
    if (record.operationCode == OperationDownload) {
      upgradeImage = nullptr;
    }
    ReleaseRecordImage(record);
  }
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
  EndOperation();
  ChangeMark(DeviceMark::ArrivalRemembered, DeviceMark::ArrivalDue);
}

void EndLeftSession() {
  disconnectNotified = 0;
  OperationContext record{};
  FinishOperation(&record);
  WriteDebugText(TEXT("\nSuccessfully left DFU mode!\n"));
  ReleaseRecordImage(record);
  currentOperationId = 0;
  ChangeMark(DeviceMark::ArrivalRemembered, DeviceMark::None);
}

// The launch's result is not looked at: after a failure currentOperationId names an operation that
// is gone, and the next tick ends the session as failed.
void StartDownload() {
  OperationContext record{};
  FinishOperation(&record);
  WriteDebugText(TEXT("\nErase successful!!!\n"));
  ReleaseRecordImage(record);

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
  ReleaseRecordImage(record);

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
    ReleaseRecordImage(record);
  }
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

  if (record.status != StatusSuccess) {
    return Stand::Failed;
  }
  if (record.percent != PercentDone) {
    return running ? Stand::Working : Stand::Abandoned;
  }
  return record.operationCode <= OperationLeave ? Stand::Left : Stand::Working;
}

}  // namespace

void SessionStep() {
  // An idle tick does not wait for a decision that holds the lock.
  if (currentOperationId == 0) {
    return;
  }
  const UpdateLock lock;
  if (!lock.held() || currentOperationId == 0) {
    return;
  }
  OperationThread* operation = FindOperation(currentOperationId);
  if (operation == nullptr) {
    EndFailedSession();
    return;
  }
  OperationContext record{};
  operation->GetContext(record);
  if (record.status != StatusSuccess) {
    EndFailedSession();
    return;
  }
  if (record.percent != PercentDone) {
    return;
  }
  switch (record.operationCode) {
    case OperationErase:
      StartDownload();
      return;
    case OperationDownload:
      StartLeave();
      return;
    default:
      EndLeftSession();
      return;
  }
}

void NoteDfuRemoval() {
  deviceMark.store(DeviceMark::Removed);
}

bool ClearWayForUpdate() {
  // Taken before anything else: a removal from here on counts against what is decided now.
  const bool removed = deviceMark.exchange(DeviceMark::None) == DeviceMark::Removed;
  if (currentOperationId == 0) {
    return true;
  }
  const Stand stand = JudgeOperation();
  if (stand == Stand::Working && !removed) {
    ChangeMark(DeviceMark::None, DeviceMark::ArrivalRemembered);
    return false;
  }

  if (stand == Stand::Failed) {
    EndFailedSession();
  } else if (stand == Stand::Left) {
    EndLeftSession();
  } else {
    EndOperation();
  }
  // What was told belonged to the update that ended; the new one may tell again.
  disconnectNotified = 0;
  return true;
}

bool TakeRememberedArrival() {
  return ChangeMark(DeviceMark::ArrivalDue, DeviceMark::None);
}
