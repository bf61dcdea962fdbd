// Threads, events, mutexes and waits. All blocking ends in Scheduler::WaitUntil.
#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/machine/thread_objects.h"
#include "platform/winapi/platform_call.h"

using platform::Call;
using platform::EventObject;
using platform::KernelObject;
using platform::LastErrorCall;
using platform::MutexObject;
using platform::NoDeadline;
using platform::Scheduler;
using platform::SimThread;
using platform::SureCall;
using platform::TheMachine;
using platform::ThreadObject;
using platform::ThreadOwner;

namespace {

// Waits as the scheduler does, and tells of it when time could pass. INFINITE is the largest DWORD:
// taken for milliseconds it would end after 49 days.
void WaitFor(const std::function<bool()>& tryTake, DWORD milliseconds) {
  platform::Machine& machine = TheMachine();
  const std::uint64_t start = machine.scheduler.NowMs();
  const bool endless = milliseconds == INFINITE;
  machine.scheduler.WaitUntil(tryTake, endless ? NoDeadline : start + milliseconds);
  if (milliseconds != 0 && !endless) {
    machine.waits.Tell(
        {Scheduler::Current()->id(), milliseconds, start, machine.scheduler.NowMs()});
  }
}

// Under the scheduler's lock, which lets go whoever the event lets go.
BOOL ChangeEvent(HANDLE handle, void (EventObject::*change)(), const SureCall& call) {
  const auto event = call.Get<EventObject>(handle);
  if (event == nullptr) {
    return call.Fail(ERROR_INVALID_HANDLE);
  }
  TheMachine().scheduler.Update([&] { ((*event).*change)(); });
  return TRUE;
}

// Waits for the first of the objects that the calling thread can take, and takes no other. With
// several to take it is the one with the lowest index, as on Windows. An abandoned mutex is the
// service's own mistake, however well it is told of it: what the mutex guards may be half changed.
DWORD WaitForAny(const HANDLE* handles, DWORD count, DWORD milliseconds,
                 const LastErrorCall<DWORD>& call) {
  std::vector<std::shared_ptr<KernelObject>> objects;
  for (DWORD i = 0; i < count; ++i) {
    objects.push_back(TheMachine().handles.GetWaitable(handles[i], call.name()));
    if (objects.back() == nullptr) {
      return call.Fail(ERROR_INVALID_HANDLE);
    }
  }

  SimThread& self = *Scheduler::Current();
  DWORD taken = WAIT_TIMEOUT;
  WaitFor(
      [&] {
        for (DWORD i = 0; i < count; ++i) {
          if (objects[i]->TryTake(self)) {
            taken = (objects[i]->wasAbandoned() ? WAIT_ABANDONED_0 : WAIT_OBJECT_0) + i;
            return true;
          }
        }
        return false;
      },
      milliseconds);
  if (taken != WAIT_TIMEOUT && taken >= WAIT_ABANDONED_0) {
    call.AddFault("the mutex's owner ended without releasing it");
  }
  return taken;
}

}  // namespace

// The thread's id is written before the thread can look for it.
HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES lpThreadAttributes, SIZE_T dwStackSize,
                           LPTHREAD_START_ROUTINE lpStartAddress, LPVOID lpParameter,
                           DWORD dwCreationFlags, LPDWORD lpThreadId) {
  const LastErrorCall<HANDLE> call(Call::CreateThread);
  call.Note(lpThreadAttributes, dwStackSize, lpStartAddress, lpParameter, dwCreationFlags,
            lpThreadId);
  if (call.fails()) {
    return call.Fail();
  }
  if (lpThreadAttributes != nullptr || dwStackSize != 0 ||
      (dwCreationFlags & ~DWORD{CREATE_SUSPENDED}) != 0) {
    return call.Refuse("an attribute, a stack size or this flag is");
  }
  auto object = std::make_shared<ThreadObject>();
  object->thread = TheMachine().scheduler.Spawn(
      "service thread", ThreadOwner::Service, (dwCreationFlags & CREATE_SUSPENDED) != 0,
      [=]() -> std::uint32_t { return lpStartAddress(lpParameter); });
  if (lpThreadId != nullptr) {
    *lpThreadId = object->thread->id();
  }
  return TheMachine().handles.Open(object);
}

// Returns how often the thread was suspended before: here never more than once.
DWORD WINAPI ResumeThread(HANDLE hThread) {
  const LastErrorCall<DWORD> call(Call::ResumeThread, ~DWORD{0});
  call.Note(hThread);
  if (call.fails()) {
    return call.Fail();
  }
  const auto object = call.Get<ThreadObject>(hThread);
  if (object == nullptr) {
    return call.Fail(ERROR_INVALID_HANDLE);
  }
  return TheMachine().scheduler.Resume(*object->thread) ? 1 : 0;
}

// Kept for tests to look at. The scheduler does not go by it: a thread that is always outrun would
// hide races rather than show them.
BOOL WINAPI SetThreadPriority(HANDLE hThread, int nPriority) {
  const LastErrorCall<BOOL> call(Call::SetThreadPriority);
  call.Note(hThread, nPriority);
  if (call.fails()) {
    return call.Fail();
  }
  const auto object = call.Get<ThreadObject>(hThread);
  if (object == nullptr) {
    return call.Fail(ERROR_INVALID_HANDLE);
  }
  TheMachine().scheduler.Update([&] { object->thread->priority = nPriority; });
  return TRUE;
}

// The mutexes of the thread are abandoned. Whoever takes one of them next is told so.
void WINAPI ExitThread(DWORD dwExitCode) {
  const SureCall call(Call::ExitThread);
  call.Note(dwExitCode);
  TheMachine().scheduler.ExitCurrentThread(dwExitCode);
}

// A thread that ends with 259 looks as if it ran: Windows uses that number for "still active".
BOOL WINAPI GetExitCodeThread(HANDLE hThread, LPDWORD lpExitCode) {
  const LastErrorCall<BOOL> call(Call::GetExitCodeThread);
  call.Note(hThread, lpExitCode);
  if (call.fails()) {
    return call.Fail();
  }
  const auto object = call.Get<ThreadObject>(hThread);
  if (object == nullptr) {
    return call.Fail(ERROR_INVALID_HANDLE);
  }
  const SimThread& thread = *object->thread;
  TheMachine().scheduler.Update(
      [&] { *lpExitCode = thread.hasEnded() ? thread.exitCode : STILL_ACTIVE; });
  return TRUE;
}

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset,
                           BOOL bInitialState, LPCWSTR lpName) {
  const LastErrorCall<HANDLE> call(Call::CreateEventW);
  call.Note(lpEventAttributes, bManualReset, bInitialState, lpName);
  if (call.fails()) {
    return call.Fail();
  }
  if (lpEventAttributes != nullptr || lpName != nullptr) {
    return call.Refuse("an attribute or a name is");
  }
  return TheMachine().handles.Open(
      std::make_shared<EventObject>(bManualReset != 0, bInitialState != 0));
}

BOOL WINAPI SetEvent(HANDLE hEvent) {
  return ChangeEvent(hEvent, &EventObject::Set, SureCall(Call::SetEvent));
}

BOOL WINAPI ResetEvent(HANDLE hEvent) {
  return ChangeEvent(hEvent, &EventObject::Reset, SureCall(Call::ResetEvent));
}

HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES lpMutexAttributes, BOOL bInitialOwner,
                           LPCWSTR lpName) {
  const LastErrorCall<HANDLE> call(Call::CreateMutexW);
  call.Note(lpMutexAttributes, bInitialOwner, lpName);
  if (call.fails()) {
    return call.Fail();
  }
  if (lpMutexAttributes != nullptr || lpName != nullptr || bInitialOwner) {
    return call.Refuse("an attribute, a name or an initial owner is");
  }
  return TheMachine().handles.Open(std::make_shared<MutexObject>());
}

// Only the thread that took it may release it, unlike an event, which anybody may set.
BOOL WINAPI ReleaseMutex(HANDLE hMutex) {
  const SureCall call(Call::ReleaseMutex);
  call.Note(hMutex);
  const auto mutex = call.Get<MutexObject>(hMutex);
  if (mutex == nullptr) {
    return call.Fail(ERROR_INVALID_HANDLE);
  }
  bool released = false;
  TheMachine().scheduler.Update([&] { released = mutex->Release(*Scheduler::Current()); });
  if (!released) {
    call.AddFault("by a thread that does not own the mutex");
    return call.Fail(ERROR_NOT_OWNER);
  }
  return TRUE;
}

// Windows waits for 64 objects at the most.
DWORD WINAPI WaitForMultipleObjects(DWORD nCount, const HANDLE* lpHandles, BOOL bWaitAll,
                                    DWORD dwMilliseconds) {
  const LastErrorCall<DWORD> call(Call::WaitForMultipleObjects, WAIT_FAILED);
  call.Note(nCount, lpHandles, bWaitAll, dwMilliseconds);
  if (call.fails()) {
    return call.Fail();
  }
  if (bWaitAll) {
    return call.Refuse("waiting for all is");
  }
  if (nCount == 0 || nCount > MAXIMUM_WAIT_OBJECTS) {
    return call.Fail(ERROR_INVALID_PARAMETER);
  }
  return WaitForAny(lpHandles, nCount, dwMilliseconds, call);
}

DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
  const LastErrorCall<DWORD> call(Call::WaitForSingleObject, WAIT_FAILED);
  call.Note(hHandle, dwMilliseconds);
  return call.fails() ? call.Fail() : WaitForAny(&hHandle, 1, dwMilliseconds, call);
}

// Sleep(0) gives way to the others that can run.
void WINAPI Sleep(DWORD dwMilliseconds) {
  const SureCall call(Call::Sleep);
  call.Note(dwMilliseconds);
  if (dwMilliseconds == 0) {
    TheMachine().scheduler.Yield();
    return;
  }
  WaitFor([] { return false; }, dwMilliseconds);
}

// The machine was switched on when virtual time began.
ULONGLONG WINAPI GetTickCount64() {
  return TheMachine().scheduler.NowMs();
}
