#include "zu_automutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#define ZUTEST_COUNT_TRYLOCK  // CKAMutex::TryLock makes one pthread_mutex_trylock per attempt
#include "test_util.h"

using zutest::t_trylockCalls;

namespace {

void SleepMs(int ms) {
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

// Holds the mutex on another thread from construction until destruction, or for releaseAfterMs.
struct OtherHolder {
  explicit OtherHolder(CKAMutex* mutex, int releaseAfterMs = -1)
      : thread([=] {
          mutex->Lock();
          held = true;
          for (int ms = 0; !release && ms != releaseAfterMs; ++ms) SleepMs(1);
          mutex->Unlock();
        }) {
    while (!held) SleepMs(1);
  }
  ~OtherHolder() {
    release = true;
    thread.join();
  }
  std::atomic<bool> held{false}, release{false};
  std::thread thread;
};

bool FreeForOtherThread(CKAMutex* mutex) {
  bool got = false;
  std::thread([&] { got = CKAAutoMutex(mutex, false).TryLock(0); }).join();
  return got;
}

}  // namespace

TEST(CKAAutoMutex, HoldsUntilDestructionNestsRecursivelyAndLocksOnce) {
  CKAMutex mutex;
  {
    CKAAutoMutex outer(&mutex, true);
    { CKAAutoMutex inner(&mutex, true); }      // recursive: succeeds at once
    EXPECT_FALSE(FreeForOtherThread(&mutex));  // the outer hold is still in place
  }
  EXPECT_TRUE(FreeForOtherThread(&mutex));
  {
    CKAAutoMutex guard(&mutex, false);
    ASSERT_TRUE(guard.TryLock(0));
    t_trylockCalls = 0;
    EXPECT_TRUE(guard.TryLock(0));  // already held: no second lock
    EXPECT_EQ(0, t_trylockCalls);
  }
  EXPECT_TRUE(FreeForOtherThread(&mutex));  // one hold, one release
}

TEST(CKAAutoMutex, TryLockAttemptsFollowTenMillisecondSteps) {
  // 25 counts down 25, 15, 5, -5: the fourth attempt is the last.
  const struct {
    int timeout, attempts;
  } cases[] = {{0, 1}, {1, 2}, {9, 2}, {10, 2}, {11, 3}, {25, 4}, {100, 11}};
  CKAMutex mutex;
  OtherHolder holder(&mutex);
  for (const auto& c : cases) {
    {
      CKAAutoMutex guard(&mutex, false);
      t_trylockCalls = 0;
      EXPECT_FALSE(guard.TryLock(c.timeout)) << c.timeout;
      EXPECT_EQ(c.attempts, t_trylockCalls) << c.timeout;
    }  // a guard whose TryLock failed unlocks nothing
    EXPECT_FALSE(FreeForOtherThread(&mutex)) << c.timeout;
  }
}

TEST(CKAAutoMutex, GetsMutexReleasedWhileWaitingOrPolling) {
  for (int timeout : {-1, 5000}) {  // negative: waits without limit
    CKAMutex mutex;
    OtherHolder holder(&mutex, 50);
    EXPECT_TRUE(CKAAutoMutex(&mutex, false).TryLock(timeout)) << timeout;
  }
  CKAAutoMutex locked(nullptr, true), guard(nullptr, false);  // a null mutex is never held
  EXPECT_FALSE(guard.TryLock(0));
  EXPECT_FALSE(guard.TryLock(-1));
}
