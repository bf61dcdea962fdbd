// The life of the process as a Windows service: the service entry with its start-up sequence, the
// control handler, and the status record that the two share.
//
// The control manager calls in: ServiceMain on the service entry's thread, ServiceCtrlHandler on
// the process's main thread, inside the dispatcher.
#pragma once

#include <windows.h>

// The name under which the service is installed. The dispatch table wants it writable; nobody
// writes it.
extern WCHAR serviceName[8];

// What the control manager is told. Only dwCurrentState ever changes; the service entry and the
// control handler write and send it one after the other.
extern SERVICE_STATUS serviceStatus;

// The registration of the control handler, used by every report. Written once by ServiceMain,
// before the first report and so before the control manager sends a control that makes one.
extern SERVICE_STATUS_HANDLE statusHandle;

// The service entry; both arguments are ignored. Registers the control handler, reports start
// pending, starts up with delays of 10000, 5000 and 15000 ms, reports running
// and returns within 1000 ms after a stop. A stop during start-up ends the sequence after the step
// that is under way, and running is then not reported. When the handler cannot be registered it
// returns at once and reports nothing.
void WINAPI ServiceMain(DWORD argumentCount, LPWSTR* arguments);

// The HandlerEx routine. Stop, pause and continue are each reported as pending and then as done,
// whatever the state was; every other control is left alone. Always NO_ERROR. Never waits for the
// update lock.
DWORD WINAPI ServiceCtrlHandler(DWORD dwControl, DWORD dwEventType, LPVOID lpEventData,
                                LPVOID lpContext);
