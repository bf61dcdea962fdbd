// A thread that runs one step after the other until a step ends it or it is told to stop.
//
// The object outlives its thread. Start, Stop, IsRunning and the destructor belong to whoever owns
// the object, one thread at a time (operations: under the update lock). ThreadProc, Step,
// StepTimeout and the hooks run on the thread itself.
#pragma once

#include <windows.h>

#include "common/handles.h"
#include "common/types.h"

// The hooks may add fewer wait handles than this.
inline constexpr u32 ExtraWaitHandleLimit = 10;

// Exit codes of the thread.
inline constexpr DWORD ExitTooManyHandles = 0;
inline constexpr DWORD ExitStopped = 1;
inline constexpr DWORD ExitStepsDone = 2;

class WorkerThread {
 public:
  WorkerThread();
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;

  // The thread must not run any more.
  virtual ~WorkerThread() = default;

  // Starts the thread at the lowest priority. 1 when it was started; 0 when there is one already or
  // the thread cannot be created or resumed.
  virtual i32 Start();

  // The thread's procedure: waits for StepTimeout, runs Step, and so on. Never returns; the thread
  // ends with one of the exit codes above.
  virtual void ThreadProc();

  // Tells the thread to stop after its current step and waits until it has ended; a thread that has
  // ended by itself is only tidied up. 1 when there was a thread, and then its exit code goes to
  // exitCode (unless that is null); 0 when there was none, exitCode is then left alone.
  virtual i32 Stop(DWORD* exitCode);

  // One piece of the work. 0 ends the thread; otherwise it waits for StepTimeout and comes back.
  virtual i32 Step() = 0;

  // How many further handles the thread shall wait for; fills them into the first of the
  // ExtraWaitHandleLimit - 1 places given. The handles stay the subclass's.
  virtual u32 ExtraWaitHandleCount(HANDLE* handles);

  // A further handle was signalled; the index counts them from 0. 0 ends the thread.
  virtual i32 OnExtraWaitHandle(u32 index);

  // Milliseconds to wait before the next step.
  virtual u32 StepTimeout();

  // Whether a thread was started and has not ended yet. False from the moment on when the thread
  // changes nothing any more.
  bool IsRunning() const;

 protected:
  // The thread, running or ended, or none. Set by Start and closed by Stop.
  KernelHandle threadHandle;

  // Manual-reset event that ends the thread. Not valid when it could not be made; the object is
  // then not to be started.
  KernelHandle stopEvent;

 private:
  static DWORD WINAPI ThreadEntry(LPVOID parameter);
  DWORD RunSteps();
  bool StopSignalled() const;

  // Set while a thread that was created suspended could not be resumed.
  bool suspended = false;
};
