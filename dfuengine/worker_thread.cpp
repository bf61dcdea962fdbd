#include "dfuengine/worker_thread.h"

namespace {

// Between two looks at a thread that is being stopped: long enough to give the processor to a
// thread of the lowest priority, short against any request that it may be in.
constexpr DWORD StopPollMs = 1;

constexpr DWORD ResumeFailed = static_cast<DWORD>(-1);

}  // namespace

WorkerThread::WorkerThread() : stopEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

WorkerThread::~WorkerThread() {
  if (threadHandle != nullptr) {
    CloseHandle(threadHandle);
  }
  if (stopEvent != nullptr) {
    CloseHandle(stopEvent);
  }
}

i32 WorkerThread::Start() {
  if (threadHandle != nullptr) {
    return 0;
  }
  // Here and not on the thread itself: a Stop that comes before its first wait would be forgotten.
  ResetEvent(stopEvent);

  threadHandle = CreateThread(nullptr, 0, ThreadEntry, this, CREATE_SUSPENDED, nullptr);
  if (threadHandle == nullptr) {
    return 0;
  }
  SetThreadPriority(threadHandle, THREAD_PRIORITY_LOWEST);
  suspended = ResumeThread(threadHandle) == ResumeFailed;
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
  HANDLE waitHandles[ExtraWaitHandleLimit] = {stopEvent};
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
  return WaitForSingleObject(stopEvent, 0) == WAIT_OBJECT_0;
}

i32 WorkerThread::Stop(DWORD* exitCode) {
  if (threadHandle == nullptr) {
    return 0;
  }
  // Until the thread has really ended, whatever a failing call says: the object goes away next.
  SetEvent(stopEvent);
  while (WaitForSingleObject(threadHandle, 0) != WAIT_OBJECT_0) {
    if (suspended) {
      suspended = ResumeThread(threadHandle) == ResumeFailed;
    }
    Sleep(StopPollMs);
    SetEvent(stopEvent);
  }

  if (exitCode != nullptr) {
    GetExitCodeThread(threadHandle, exitCode);
  }
  CloseHandle(threadHandle);
  threadHandle = nullptr;
  return 1;
}

bool WorkerThread::IsRunning() const {
  return threadHandle != nullptr && !suspended &&
         WaitForSingleObject(threadHandle, 0) != WAIT_OBJECT_0;
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
