#include <windows.h>

#include "service/service_main.h"

// The control manager starts the process and wants the dispatcher called at once; everything else
// happens in ServiceMain. Started from a console, the dispatcher refuses and so does the process.
int main() {
  SERVICE_TABLE_ENTRYW dispatchTable[] = {{serviceName, ServiceMain}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(dispatchTable) ? 0 : -1;
}
