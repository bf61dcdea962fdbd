#include "dfuengine/worker_thread.h"

namespace {

// Between two looks at a thread that is being stopped: long enough to give the processor to a
// thread of the lowest priority, short against any request that it may be in.
constexpr DWORD StopPollMs = 1;

constexpr DWORD ResumeFailed = static_cast<DWORD>(-1);

}  // namespace

WorkerThread::WorkerThread() : stopEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

i32 WorkerThread::Start() {
  if (threadHandle.valid()) {
    return 0;
  }
  // Here and not on the thread itself: a Stop that comes before its first wait would be forgotten.
  ResetEvent(stopEvent.get());

  threadHandle.Reset(CreateThread(nullptr, 0, ThreadEntry, this, CREATE_SUSPENDED, nullptr));
  if (!threadHandle.valid()) {
    return 0;
  }
  SetThreadPriority(threadHandle.get(), THREAD_PRIORITY_LOWEST);
  suspended = ResumeThread(threadHandle.get()) == ResumeFailed;
  return suspended ? 0 : 1;
}

DWORD WINAPI WorkerThread::ThreadEntry(LPVOID parameter) {
  static_cast<WorkerThread*>(parameter)->ThreadProc();
  return 0;
}

// ExitThread runs no destructors: this frame and ThreadEntry's hold nothing that needs one.
void WorkerThread::ThreadProc() {
  ExitThread(RunSteps());
}

DWORD WorkerThread::RunSteps() {
  HANDLE waitHandles[ExtraWaitHandleLimit] = {stopEvent.get()};
  const u32 extraCount = ExtraWaitHandleCount(&waitHandles[1]);
  if (extraCount >= ExtraWaitHandleLimit) {
    return ExitTooManyHandles;
  }
  for (u32 index = 1; index <= extraCount; ++index) {
    ResetEvent(waitHandles[index]);
  }

  for (;;) {
    const DWORD outcome = WaitForMultipleObjects(extraCount + 1, waitHandles, FALSE, StepTimeout());
    const DWORD signalled = outcome - WAIT_OBJECT_0;
    if (signalled == 0) {
      return ExitStopped;
    }
    if (signalled <= extraCount) {
      if (OnExtraWaitHandle(signalled - 1) == 0) {
        return ExitStopped;
      }
      continue;
    }
    // A wait that fails counts as a time-out, but must not make the thread deaf.
    if (outcome == WAIT_FAILED && StopSignalled()) {
      return ExitStopped;
    }
    if (Step() == 0) {
      return ExitStepsDone;
    }
  }
}

bool WorkerThread::StopSignalled() const {
  return WaitForSingleObject(stopEvent.get(), 0) == WAIT_OBJECT_0;
}

i32 WorkerThread::Stop(DWORD* exitCode) {
  if (!threadHandle.valid()) {
    return 0;
  }
  // Until the thread has really ended, whatever a failing call says: the object goes away next.
  SetEvent(stopEvent.get());
  while (WaitForSingleObject(threadHandle.get(), 0) != WAIT_OBJECT_0) {
    if (suspended) {
      suspended = ResumeThread(threadHandle.get()) == ResumeFailed;
    }
    Sleep(StopPollMs);
    SetEvent(stopEvent.get());
  }

  if (exitCode != nullptr) {
    GetExitCodeThread(threadHandle.get(), exitCode);
  }
  threadHandle.Close();
  return 1;
}

bool WorkerThread::IsRunning() const {
  return threadHandle.valid() && !suspended &&
         WaitForSingleObject(threadHandle.get(), 0) != WAIT_OBJECT_0;
}

u32 WorkerThread::ExtraWaitHandleCount(HANDLE*) {
  return 0;
}

i32 WorkerThread::OnExtraWaitHandle(u32) {
  return 1;
}

u32 WorkerThread::StepTimeout() {
  return 0;
}
