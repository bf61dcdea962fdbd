#include "service/device_events.h"

#include "common/debug_output.h"
#include "dfuengine/device_removals.h"
#include "keyboard/keyboard_departure.h"
#include "service/update_decision.h"

DWORD CALLBACK OnKeyboardInterfaceEvent(HCMNOTIFICATION, PVOID, CM_NOTIFY_ACTION action,
                                        PCM_NOTIFY_EVENT_DATA, DWORD) {
  switch (action) {
    case CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL:
      WriteDebugText(TEXT("Keyboard attached\n"));
      EvaluateUpdate(0);
      break;
    case CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL:
      NoteKeyboardLeft();
      WriteDebugText(TEXT("Keyboard detached\n"));
      break;
    default:
      // Spelled as it always was: whoever reads these lines searches for it.
      WriteDebugText(TEXT("Keyboard Defalut \n"));
      break;
  }
  return ERROR_SUCCESS;
}

DWORD CALLBACK OnDfuInterfaceEvent(HCMNOTIFICATION, PVOID, CM_NOTIFY_ACTION action,
                                   PCM_NOTIFY_EVENT_DATA, DWORD) {
  switch (action) {
    case CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL:
      NoteKeyboardLeft();
      WriteDebugText(TEXT("Keyboard DFU attached\n"));
      PrepareDfuUpdate();
      break;
    case CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL:
      NoteDfuRemoval();
      WriteDebugText(TEXT("Keyboard DFU detached\n"));
      break;
    default:
      WriteDebugText(TEXT("Keyboard Defalut \n"));
      break;
  }
  return ERROR_SUCCESS;
}
