// Threads, events, mutexes and waits. All blocking ends in Scheduler::WaitUntil.
#include <windows.h>

#include <string>
#include <vector>

#include "platform/machine/machine.h"
#include "platform/machine/thread_objects.h"

using platform::Call;
using platform::EnterCall;
using platform::EnterSureCall;
using platform::EventObject;
using platform::HandleKind;
using platform::KernelObject;
using platform::MutexObject;
using platform::NoDeadline;
using platform::Scheduler;
using platform::SimThread;
using platform::TheMachine;
using platform::ThreadObject;
using platform::ThreadOwner;

namespace {

std::uint64_t DeadlineAfter(DWORD milliseconds) {
  return milliseconds == INFINITE ? NoDeadline : TheMachine().scheduler.NowMs() + milliseconds;
}

std::nullptr_t RefuseNull(const char* what) {
  TheMachine().faults.Add(what);
  SetLastError(ERROR_NOT_SUPPORTED);
  return nullptr;
}

std::shared_ptr<ThreadObject> GetThread(HANDLE handle, const char* call) {
  auto thread = TheMachine().handles.Get<ThreadObject>(handle, HandleKind::Thread, call);
  if (thread == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
  }
  return thread;
}

BOOL ChangeEvent(HANDLE handle, void (EventObject::*change)(), const char* call) {
  const auto event = TheMachine().handles.Get<EventObject>(handle, HandleKind::Event, call);
  if (event == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  TheMachine().scheduler.Update([&] { ((*event).*change)(); });
  return TRUE;
}

// Waits for the first of the objects that the calling thread can take. An abandoned mutex is the
// service's own mistake, however well it is told of it.
DWORD WaitForAny(const HANDLE* handles, DWORD count, DWORD milliseconds, const char* call) {
  std::vector<std::shared_ptr<KernelObject>> objects;
  for (DWORD i = 0; i < count; ++i) {
    objects.push_back(TheMachine().handles.GetWaitable(handles[i], call));
    if (objects.back() == nullptr) {
      SetLastError(ERROR_INVALID_HANDLE);
      return WAIT_FAILED;
    }
  }

  SimThread& self = *Scheduler::Current();
  DWORD taken = WAIT_TIMEOUT;
  TheMachine().scheduler.WaitUntil(
      [&] {
        for (DWORD i = 0; i < count; ++i) {
          if (objects[i]->TryTake(self)) {
            taken = (objects[i]->wasAbandoned() ? WAIT_ABANDONED_0 : WAIT_OBJECT_0) + i;
            return true;
          }
        }
        return false;
      },
      DeadlineAfter(milliseconds));
  if (taken != WAIT_TIMEOUT && taken >= WAIT_ABANDONED_0) {
    TheMachine().faults.Add(std::string(call) + ": the mutex's owner ended without releasing it");
  }
  return taken;
}

}  // namespace

HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES lpThreadAttributes, SIZE_T dwStackSize,
                           LPTHREAD_START_ROUTINE lpStartAddress, LPVOID lpParameter,
                           DWORD dwCreationFlags, LPDWORD lpThreadId) {
  if (const DWORD error = EnterCall(Call::CreateThread)) {
    SetLastError(error);
    return nullptr;
  }
  if (lpThreadAttributes != nullptr || dwStackSize != 0 ||
      (dwCreationFlags & ~DWORD{CREATE_SUSPENDED}) != 0) {
    return RefuseNull("CreateThread: attributes, stack size or flags that are not modelled");
  }
  auto object = std::make_shared<ThreadObject>();
  object->thread = TheMachine().scheduler.Spawn(
      "service thread", ThreadOwner::Service, (dwCreationFlags & CREATE_SUSPENDED) != 0,
      [=]() -> std::uint32_t { return lpStartAddress(lpParameter); });
  if (lpThreadId != nullptr) {
    *lpThreadId = object->thread->id();
  }
  return TheMachine().handles.Open(HandleKind::Thread, object);
}

DWORD WINAPI ResumeThread(HANDLE hThread) {
  if (const DWORD error = EnterCall(Call::ResumeThread)) {
    SetLastError(error);
    return ~DWORD{0};
  }
  const auto thread = GetThread(hThread, "ResumeThread");
  if (thread == nullptr) {
    return ~DWORD{0};
  }
  return TheMachine().scheduler.Resume(*thread->thread) ? 1 : 0;
}

BOOL WINAPI SetThreadPriority(HANDLE hThread, int nPriority) {
  if (const DWORD error = EnterCall(Call::SetThreadPriority)) {
    SetLastError(error);
    return FALSE;
  }
  const auto thread = GetThread(hThread, "SetThreadPriority");
  if (thread == nullptr) {
    return FALSE;
  }
  TheMachine().scheduler.Update([&] { thread->thread->priority = nPriority; });
  return TRUE;
}

void WINAPI ExitThread(DWORD dwExitCode) {
  EnterSureCall(Call::ExitThread);
  TheMachine().scheduler.ExitCurrentThread(dwExitCode);
}

BOOL WINAPI GetExitCodeThread(HANDLE hThread, LPDWORD lpExitCode) {
  if (const DWORD error = EnterCall(Call::GetExitCodeThread)) {
    SetLastError(error);
    return FALSE;
  }
  const auto thread = GetThread(hThread, "GetExitCodeThread");
  if (thread == nullptr) {
    return FALSE;
  }
  TheMachine().scheduler.Update(
      [&] { *lpExitCode = thread->thread->hasEnded() ? thread->thread->exitCode : STILL_ACTIVE; });
  return TRUE;
}

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset,
                           BOOL bInitialState, LPCWSTR lpName) {
  if (const DWORD error = EnterCall(Call::CreateEventW)) {
    SetLastError(error);
    return nullptr;
  }
  if (lpEventAttributes != nullptr || lpName != nullptr) {
    return RefuseNull("CreateEventW: attributes and names are not modelled");
  }
  return TheMachine().handles.Open(
      HandleKind::Event, std::make_shared<EventObject>(bManualReset != 0, bInitialState != 0));
}

BOOL WINAPI SetEvent(HANDLE hEvent) {
  EnterSureCall(Call::SetEvent);
  return ChangeEvent(hEvent, &EventObject::Set, "SetEvent");
}

BOOL WINAPI ResetEvent(HANDLE hEvent) {
  EnterSureCall(Call::ResetEvent);
  return ChangeEvent(hEvent, &EventObject::Reset, "ResetEvent");
}

HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES lpMutexAttributes, BOOL bInitialOwner,
                           LPCWSTR lpName) {
  if (const DWORD error = EnterCall(Call::CreateMutexW)) {
    SetLastError(error);
    return nullptr;
  }
  if (lpMutexAttributes != nullptr || lpName != nullptr || bInitialOwner) {
    return RefuseNull("CreateMutexW: attributes, names and initial owners are not modelled");
  }
  return TheMachine().handles.Open(HandleKind::Mutex, std::make_shared<MutexObject>());
}

BOOL WINAPI ReleaseMutex(HANDLE hMutex) {
  EnterSureCall(Call::ReleaseMutex);
  const auto mutex =
      TheMachine().handles.Get<MutexObject>(hMutex, HandleKind::Mutex, "ReleaseMutex");
  if (mutex == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  bool released = false;
  TheMachine().scheduler.Update([&] { released = mutex->Release(*Scheduler::Current()); });
  if (!released) {
    TheMachine().faults.Add("ReleaseMutex: by a thread that does not own the mutex");
    SetLastError(ERROR_NOT_OWNER);
    return FALSE;
  }
  return TRUE;
}

DWORD WINAPI WaitForMultipleObjects(DWORD nCount, const HANDLE* lpHandles, BOOL bWaitAll,
                                    DWORD dwMilliseconds) {
  if (const DWORD error = EnterCall(Call::WaitForMultipleObjects)) {
    SetLastError(error);
    return WAIT_FAILED;
  }
  if (bWaitAll) {
    TheMachine().faults.Add("WaitForMultipleObjects: waiting for all is not modelled");
    SetLastError(ERROR_NOT_SUPPORTED);
    return WAIT_FAILED;
  }
  if (nCount == 0 || nCount > MAXIMUM_WAIT_OBJECTS) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  return WaitForAny(lpHandles, nCount, dwMilliseconds, "WaitForMultipleObjects");
}

DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
  if (const DWORD error = EnterCall(Call::WaitForSingleObject)) {
    SetLastError(error);
    return WAIT_FAILED;
  }
  return WaitForAny(&hHandle, 1, dwMilliseconds, "WaitForSingleObject");
}

void WINAPI Sleep(DWORD dwMilliseconds) {
  EnterSureCall(Call::Sleep);
  TheMachine().scheduler.SleepMs(dwMilliseconds == INFINITE ? NoDeadline : dwMilliseconds);
}
