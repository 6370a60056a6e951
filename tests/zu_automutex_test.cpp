#include "zu_automutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#define ZUTEST_COUNT_TRYLOCK  // CKAMutex::TryLock makes one pthread_mutex_trylock per attempt
#include "test_util.h"

using zutest::t_trylockCalls;

namespace {

// Holds a mutex on its own thread from construction until Release() (or destruction), which
// happens after releaseAfterMs milliseconds when that is not negative.
class OtherHolder {
 public:
  explicit OtherHolder(CKAMutex* mutex, int releaseAfterMs = -1)
      : m_thread([this, mutex, releaseAfterMs] {
          mutex->Lock();
          m_held = true;
          if (releaseAfterMs >= 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(releaseAfterMs));
            m_release = true;
          }
          while (!m_release) std::this_thread::sleep_for(std::chrono::milliseconds(1));
          mutex->Unlock();
        }) {
    while (!m_held) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ~OtherHolder() {
    m_release = true;
    m_thread.join();
  }

 private:
  std::atomic<bool> m_held{false};
  std::atomic<bool> m_release{false};
  std::thread m_thread;
};

bool FreeForOtherThread(CKAMutex* mutex) {
  bool got = false;
  std::thread([&] { got = CKAAutoMutex(mutex, false).TryLock(0); }).join();
  return got;
}

}  // namespace

TEST(CKAAutoMutex, HoldsFromConstructionUntilDestructionAndNestsRecursively) {
  CKAMutex mutex;
  {
    CKAAutoMutex outer(&mutex, true);
    EXPECT_FALSE(FreeForOtherThread(&mutex));
    { CKAAutoMutex inner(&mutex, true); }      // recursive: succeeds at once
    EXPECT_FALSE(FreeForOtherThread(&mutex));  // the outer hold is still in place
  }
  EXPECT_TRUE(FreeForOtherThread(&mutex));
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

TEST(CKAAutoMutex, SecondTryLockOnHoldingGuardDoesNotLockAgain) {
  CKAMutex mutex;
  {
    CKAAutoMutex guard(&mutex, false);
    ASSERT_TRUE(guard.TryLock(0));
    t_trylockCalls = 0;
    EXPECT_TRUE(guard.TryLock(0));
    EXPECT_EQ(0, t_trylockCalls);
  }
  EXPECT_TRUE(FreeForOtherThread(&mutex));  // one hold, one release
}

TEST(CKAAutoMutex, GetsMutexReleasedWhileWaitingOrPolling) {
  for (int timeout : {-1, 5000}) {  // negative: waits without limit
    CKAMutex mutex;
    OtherHolder holder(&mutex, 50);
    CKAAutoMutex guard(&mutex, false);
    EXPECT_TRUE(guard.TryLock(timeout)) << timeout;
  }
}

TEST(CKAAutoMutex, NullMutexNeverHolds) {
  CKAAutoMutex locked(nullptr, true);
  CKAAutoMutex guard(nullptr, false);
  EXPECT_FALSE(guard.TryLock(0));
  EXPECT_FALSE(guard.TryLock(-1));
}
