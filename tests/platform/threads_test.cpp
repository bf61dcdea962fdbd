// Threads, events, mutexes and waits as the service meets them.

#include <algorithm>

#include "common/handles.h"
#include "tests/support/service_test.h"

namespace {

DWORD WINAPI ReturnAfter50Ms(LPVOID exitCode) {
  Sleep(50);
  return *static_cast<DWORD*>(exitCode);
}

DWORD WINAPI ExitAfter50Ms(LPVOID exitCode) {
  ExitThread(ReturnAfter50Ms(exitCode));
}

class ThreadsTest : public ServiceTest {
 protected:
  // A thread that waits for the object and notes its name. A mutex it holds for so long.
  Thread StartWaiter(const char* name, const KernelHandle& object, u64 holdMs = 0) {
    const Thread thread = OnThread([this, name, handle = object.get(), holdMs] {
      EXPECT_EQ(WaitForSingleObject(handle, INFINITE), WAIT_OBJECT_0);
      Note(name);
      if (holdMs != 0) {
        PassTime(holdMs);
        EXPECT_TRUE(ReleaseMutex(handle));
      }
    });
    PassTime(1);
    return thread;
  }

  void Note(const char* name) {
    const std::scoped_lock lock(lock_);
    names_ += name;
  }

  // The names noted since the last look.
  std::string Names() {
    const std::scoped_lock lock(lock_);
    return std::exchange(names_, {});
  }

 private:
  std::mutex lock_;
  std::string names_;
};

TEST_F(ThreadsTest, ExitCodeIsThereWhenTheThreadHasEnded) {
  for (const LPTHREAD_START_ROUTINE routine : {ReturnAfter50Ms, ExitAfter50Ms}) {
    const u64 start = nowMs();
    DWORD exitCode = 7;
    const KernelHandle thread(CreateThread(nullptr, 0, routine, &exitCode, 0, nullptr));
    DWORD code = 0;
    EXPECT_EQ(WaitForSingleObject(thread.get(), 49), DWORD{WAIT_TIMEOUT});
    EXPECT_EQ(nowMs(), start + 49);
    EXPECT_TRUE(GetExitCodeThread(thread.get(), &code));
    EXPECT_EQ(code, 259u);
    for (int i = 0; i < 2; ++i) {  // an ended thread stays signalled
      EXPECT_EQ(WaitForSingleObject(thread.get(), INFINITE), WAIT_OBJECT_0);
      EXPECT_EQ(nowMs(), start + 50);
    }
    EXPECT_TRUE(GetExitCodeThread(thread.get(), &code));
    EXPECT_EQ(code, 7u);
  }
}

// What a waiter was let go for it has, whatever becomes of the event before it runs.
TEST_F(ThreadsTest, EventsLetWaitersGoAtOnce) {
  const struct {
    BOOL manualReset;
    int sets;
    bool resets;
    std::string letGo;
    bool staysSet;
  } rows[] = {{FALSE, 1, false, "a", false},
              {FALSE, 2, true, "ab", false},
              {FALSE, 4, false, "abc", true},
              {TRUE, 1, false, "abc", true},
              {TRUE, 1, true, "abc", false}};
  for (const auto& row : rows) {
    const KernelHandle event(CreateEventW(nullptr, row.manualReset, FALSE, nullptr));
    const Thread waiters[] = {StartWaiter("a", event), StartWaiter("b", event),
                              StartWaiter("c", event)};
    for (int i = 0; i < row.sets; ++i) {
      EXPECT_TRUE(SetEvent(event.get()));
    }
    EXPECT_TRUE(!row.resets || ResetEvent(event.get()));
    PassTime(10);
    std::string letGo = Names();
    std::sort(letGo.begin(), letGo.end());
    EXPECT_EQ(letGo, row.letGo);
    EXPECT_EQ(WaitForSingleObject(event.get(), 0) == WAIT_OBJECT_0, row.staysSet) << row.letGo;
    for (const Thread& waiter : waiters) {
      SetEvent(event.get());
      WaitFor(waiter);
    }
    Names();
  }
}

TEST_F(ThreadsTest, AWaitForSeveralTakesTheFirstThatIsSignalledAndNoOther) {
  const KernelHandle events[] = {KernelHandle(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
                                 KernelHandle(CreateEventW(nullptr, FALSE, TRUE, nullptr)),
                                 KernelHandle(CreateEventW(nullptr, FALSE, TRUE, nullptr))};
  const HANDLE handles[65] = {events[0].get(), events[1].get(), events[2].get()};
  const u64 start = nowMs();
  EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 20), WAIT_OBJECT_0 + 1);
  EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 20), WAIT_OBJECT_0 + 2);
  EXPECT_EQ(nowMs(), start);
  EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 20), DWORD{WAIT_TIMEOUT});
  EXPECT_EQ(nowMs(), start + 20);
  for (const DWORD count : {0, 65}) {
    EXPECT_EQ(WaitForMultipleObjects(count, handles, FALSE, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  }
}

TEST_F(ThreadsTest, AMutexIsHandedOnInTheOrderOfWaiting) {
  const KernelHandle mutex(CreateMutexW(nullptr, FALSE, nullptr));
  EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), WAIT_OBJECT_0);
  const Thread waiters[] = {StartWaiter("a", mutex, 10), StartWaiter("b", mutex, 10)};
  const u64 start = nowMs();
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  PassTime(5);
  EXPECT_EQ(Names(), "") << "taken twice, released once";
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), DWORD{WAIT_TIMEOUT}) << "it is the waiter's";
  EXPECT_EQ(WaitForSingleObject(mutex.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(Names(), "ab");
  EXPECT_EQ(nowMs(), start + 25);

  // Neither a thread that never owned it nor one that does no more may release it.
  WaitFor(OnThread([&] {
    EXPECT_FALSE(ReleaseMutex(mutex.get()));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_OWNER});
  }));
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  EXPECT_FALSE(ReleaseMutex(mutex.get()));
  EXPECT_EQ(machine.faults.Expect("ReleaseMutex: by a thread that does not own the mutex"), 2u);
}

TEST_F(ThreadsTest, WhoeverTakesAnAbandonedMutexIsToldAndOwnsIt) {
  const KernelHandle event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  const KernelHandle mutex(CreateMutexW(nullptr, FALSE, nullptr));
  const HANDLE handles[] = {event.get(), mutex.get()};
  WaitFor(OnThread([&] {
    WaitForSingleObject(mutex.get(), INFINITE);
    WaitForSingleObject(mutex.get(), INFINITE);
    ExitThread(0);
  }));
  EXPECT_EQ(WaitForMultipleObjects(2, handles, FALSE, INFINITE), WAIT_ABANDONED_0 + 1);
  EXPECT_EQ(machine.faults.Expect("the mutex's owner ended without releasing it"), 1u);
  WaitFor(OnThread([&] { EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), DWORD{WAIT_TIMEOUT}); }));
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  WaitFor(StartWaiter("a", mutex, 1));
}

}  // namespace
