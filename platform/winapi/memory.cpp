// The process heap. Its calls leave the last error alone, as Windows documents it.
#include <windows.h>

#include "platform/winapi/refusal.h"

using platform::Call;
using platform::EnterCall;
using platform::EnterSureCall;
using platform::Refuse;
using platform::TheMachine;

namespace {

// The heap's handle is the address of this.
char processHeap;

}  // namespace

HANDLE WINAPI GetProcessHeap() {
  return &processHeap;
}

LPVOID WINAPI HeapAlloc(HANDLE hHeap, DWORD dwFlags, SIZE_T dwBytes) {
  if (EnterCall(Call::HeapAlloc) != 0) {
    return nullptr;
  }
  if (hHeap != &processHeap || (dwFlags & ~DWORD{HEAP_ZERO_MEMORY}) != 0) {
    Refuse(Call::HeapAlloc, "another heap or flag is");
    return nullptr;
  }
  return TheMachine().heap.Allocate(dwBytes, (dwFlags & HEAP_ZERO_MEMORY) != 0);
}

BOOL WINAPI HeapFree(HANDLE hHeap, DWORD dwFlags, LPVOID lpMem) {
  EnterSureCall(Call::HeapFree);
  if (hHeap != &processHeap || dwFlags != 0) {
    Refuse(Call::HeapFree, "another heap or a flag is");
    return FALSE;
  }
  return TheMachine().heap.Free(lpMem) ? TRUE : FALSE;
}
