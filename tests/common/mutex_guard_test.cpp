#include "common/mutex_guard.h"

#include "common/handles.h"
#include "common/process_mutex.h"
#include "tests/support/tablet_test.h"

namespace {

class MutexGuardTest : public TabletTest {
 protected:
  // Runs the work on a thread of its own, to its end.
  static void OnAnotherThread(std::function<void()> work) {
    const auto entry = [](LPVOID parameter) -> DWORD {
      (*static_cast<std::function<void()>*>(parameter))();
      return 0;
    };
    const KernelHandle thread(CreateThread(nullptr, 0, entry, &work, 0, nullptr));
    WaitForSingleObject(thread.get(), INFINITE);
  }

  // Whether another thread could take the mutex now.
  bool IsFree() const {
    bool taken = false;
    OnAnotherThread([&] {
      taken = WaitForSingleObject(mutex.get(), 0) == WAIT_OBJECT_0;
      if (taken) {
        ReleaseMutex(mutex.get());
      }
    });
    return taken;
  }

  const KernelHandle mutex{CreateMutexW(nullptr, FALSE, nullptr)};
};

TEST_F(MutexGuardTest, HoldsToTheEndOfEachScope) {
  {
    MutexGuard outer(mutex.get());
    {
      const MutexGuard inner(mutex.get());
      EXPECT_TRUE(inner.held());
    }
    EXPECT_FALSE(IsFree());
    outer.Release();
    EXPECT_FALSE(outer.held());
    EXPECT_TRUE(IsFree());
  }
  EXPECT_TRUE(IsFree());
}

TEST_F(MutexGuardTest, HoldsWhatItsOwnerLeftBehind) {
  ExpectFault("the mutex's owner ended without releasing it");
  OnAnotherThread([this] { WaitForSingleObject(mutex.get(), INFINITE); });
  {
    const MutexGuard guard(mutex.get());
    EXPECT_TRUE(guard.held());
    EXPECT_FALSE(IsFree());
  }
  EXPECT_TRUE(IsFree());
}

// Another thread is the first to make it.
TEST_F(MutexGuardTest, AProcessHasOneMutexHoweverManyAskForIt) {
  static constinit ProcessMutex shared;
  HANDLE others = nullptr;
  bool asked = false;
  const platform::Observation calls = machine.gate.Observe([&](platform::Call call) {
    if (call == platform::Call::CreateMutexW && !std::exchange(asked, true)) {
      OnAnotherThread([&] { others = shared.Get(); });
    }
  });
  const u64 before = machine.handles.OpenCount(platform::HandleKind::Mutex);
  EXPECT_EQ(shared.Get(), others);
  EXPECT_EQ(machine.handles.OpenCount(platform::HandleKind::Mutex), before + 1);
  CloseHandle(others);
}

// The layer finds a release of what is not held.
TEST_F(MutexGuardTest, GivesBackOnlyWhatItGot) {
  MutexGuard none(nullptr);
  EXPECT_FALSE(none.held());
  for (const u32 failedWaits : {1u, 2u}) {
    for (u32 wait = 1; wait <= failedWaits; ++wait) {
      FailCall(platform::Call::WaitForSingleObject, ERROR_INVALID_HANDLE, wait);
    }
    const MutexGuard guard(mutex.get());
    EXPECT_EQ(guard.held(), failedWaits == 1);
  }
  none.Release();
}

}  // namespace
