// Mutexes as the service's threads meet them.

#include "common/handles.h"
#include "tests/support/service_test.h"

namespace {

using ThreadsTest = ServiceTest;

TEST_F(ThreadsTest, AMutexIsHandedOnInTheOrderOfWaiting) {
  const KernelHandle mutex(CreateMutexW(nullptr, FALSE, nullptr));
  std::string names;  // written by whoever owns the mutex
  const auto startWaiter = [&](char name) {
    OnThread([&, name] {
      EXPECT_EQ(WaitForSingleObject(mutex.get(), INFINITE), WAIT_OBJECT_0);
      names += name;
      PassTime(10);
      EXPECT_TRUE(ReleaseMutex(mutex.get()));
    });
    PassTime(1);
  };
  EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), WAIT_OBJECT_0);
  startWaiter('a');
  startWaiter('b');
  const u64 start = nowMs();
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  PassTime(5);
  EXPECT_EQ(names, "") << "taken twice, released once";
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), DWORD{WAIT_TIMEOUT}) << "it is the waiter's";
  EXPECT_EQ(WaitForSingleObject(mutex.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(names, "ab");
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

}  // namespace
