#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "zu_automutex.h"

// Counts this thread's calls of pthread_mutex_trylock, which CKAMutex::TryLock makes once per
// attempt; the test program's definition takes precedence over the C library's.
namespace {
thread_local int t_trylockCalls = 0;
}  // namespace

extern "C" int pthread_mutex_trylock(pthread_mutex_t* mutex) {
  using TryLockFn = int (*)(pthread_mutex_t*);
  static const TryLockFn next =
      reinterpret_cast<TryLockFn>(dlsym(RTLD_NEXT, "pthread_mutex_trylock"));
  ++t_trylockCalls;
  return next(mutex);
}

namespace {

// Holds a mutex on its own thread from construction until Release() or destruction.
class OtherHolder {
 public:
  explicit OtherHolder(CKAMutex* mutex)
      : m_thread([this, mutex] {
          mutex->Lock();
          m_held = true;
          while (!m_release) std::this_thread::sleep_for(std::chrono::milliseconds(1));
          mutex->Unlock();
        }) {
    while (!m_held) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ~OtherHolder() {
    Release();
    m_thread.join();
  }
  void Release() { m_release = true; }

 private:
  std::atomic<bool> m_held{false};
  std::atomic<bool> m_release{false};
  std::thread m_thread;
};

bool FreeForOtherThread(CKAMutex* mutex) {
  bool got = false;
  std::thread other([&] {
    CKAAutoMutex guard(mutex, false);
    got = guard.TryLock(0);
  });
  other.join();
  return got;
}

}  // namespace

TEST(CKAAutoMutex, LocksAtOnceAndReleasesInDestructor) {
  CKAMutex mutex;
  {
    CKAAutoMutex guard(&mutex, true);
    EXPECT_FALSE(FreeForOtherThread(&mutex));
  }
  EXPECT_TRUE(FreeForOtherThread(&mutex));
}

TEST(CKAAutoMutex, NestedGuardLeavesOuterHoldInPlace) {
  CKAMutex mutex;
  CKAAutoMutex outer(&mutex, true);
  {
    CKAAutoMutex inner(&mutex, true);  // recursive: succeeds at once
  }
  EXPECT_FALSE(FreeForOtherThread(&mutex));
}

TEST(CKAAutoMutex, TryLockAttemptsFollowTenMillisecondSteps) {
  struct Case {
    int timeout;
    int attempts;
  };
  // 25 counts down 25, 15, 5, -5: the fourth attempt is the last.
  const Case cases[] = {{0, 1}, {1, 2}, {9, 2}, {10, 2}, {11, 3}, {25, 4}, {100, 11}};
  CKAMutex mutex;
  OtherHolder holder(&mutex);
  for (const Case& c : cases) {
    CKAAutoMutex guard(&mutex, false);
    t_trylockCalls = 0;
    EXPECT_FALSE(guard.TryLock(c.timeout)) << c.timeout;
    EXPECT_EQ(c.attempts, t_trylockCalls) << c.timeout;
  }
}

TEST(CKAAutoMutex, FailedGuardDoesNotUnlock) {
  CKAMutex mutex;
  OtherHolder holder(&mutex);
  {
    CKAAutoMutex guard(&mutex, false);
    EXPECT_FALSE(guard.TryLock(0));
  }
  EXPECT_FALSE(FreeForOtherThread(&mutex));  // still held by the other thread
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

TEST(CKAAutoMutex, NegativeTimeoutWaitsUntilFree) {
  CKAMutex mutex;
  OtherHolder holder(&mutex);
  std::thread releaser([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    holder.Release();
  });
  CKAAutoMutex guard(&mutex, false);
  EXPECT_TRUE(guard.TryLock(-1));
  releaser.join();
}

TEST(CKAAutoMutex, TryLockSucceedsWhenReleasedDuringPolling) {
  CKAMutex mutex;
  OtherHolder holder(&mutex);
  std::thread releaser([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    holder.Release();
  });
  CKAAutoMutex guard(&mutex, false);
  EXPECT_TRUE(guard.TryLock(5000));
  releaser.join();
}

TEST(CKAAutoMutex, NullMutexNeverHolds) {
  CKAAutoMutex locked(nullptr, true);
  CKAAutoMutex guard(nullptr, false);
  EXPECT_FALSE(guard.TryLock(0));
  EXPECT_FALSE(guard.TryLock(-1));
}
