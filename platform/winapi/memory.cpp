// The process heap.
//
// A HeapAlloc that fails sets no last error, as Windows documents it: null is all that a caller
// learns.
#include <windows.h>

#include "platform/winapi/platform_call.h"

using platform::Call;
using platform::PlatformCall;
using platform::SureCall;
using platform::TheMachine;

namespace {

// The heap's handle is the address of this. It is none of the handle table's: nobody closes it.
char processHeap;

}  // namespace

HANDLE WINAPI GetProcessHeap() {
  return &processHeap;
}

LPVOID WINAPI HeapAlloc(HANDLE hHeap, DWORD dwFlags, SIZE_T dwBytes) {
  const PlatformCall call(Call::HeapAlloc);
  call.Note(hHeap, dwFlags, dwBytes);
  if (call.fails()) {
    return nullptr;
  }
  if (hHeap != &processHeap || (dwFlags & ~DWORD{HEAP_ZERO_MEMORY}) != 0) {
    call.NoteRefusal("another heap or flag is");
    return nullptr;
  }
  return TheMachine().heap.Allocate(dwBytes, (dwFlags & HEAP_ZERO_MEMORY) != 0);
}

// Nobody has a reason to free null, so here it is a fault.
BOOL WINAPI HeapFree(HANDLE hHeap, DWORD dwFlags, LPVOID lpMem) {
  const SureCall call(Call::HeapFree);
  call.Note(hHeap, dwFlags, lpMem);
  if (hHeap != &processHeap || dwFlags != 0) {
    return call.Refuse("another heap or a flag is");
  }
  return TheMachine().heap.Free(lpMem) ? TRUE : FALSE;
}
