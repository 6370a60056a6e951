#include "zu_mutex_unix.h"

#include <gtest/gtest.h>

#include <thread>

#include "test_util.h"

namespace {

// Whether another thread can take the mutex at this moment (it releases it again at once).
bool FreeForOtherThread(CKAMutex& mutex) {
  bool got = false;
  std::thread([&] {
    got = mutex.TryLock();
    if (got) mutex.Unlock();
  }).join();
  return got;
}

}  // namespace

TEST(CKAMutex, IsRecursiveAndNeedsOneUnlockPerLock) {
  CKAMutex mutex;
  mutex.Lock();
  EXPECT_TRUE(mutex.TryLock());  // the holder may lock again
  mutex.Lock();
  EXPECT_FALSE(FreeForOtherThread(mutex));
  mutex.Unlock();
  mutex.Unlock();
  EXPECT_FALSE(FreeForOtherThread(mutex));  // one hold left
  mutex.Unlock();
  EXPECT_TRUE(FreeForOtherThread(mutex));
}

TEST(CKAMutex, SerialisesIncrementsFromSeveralThreads) {
  CKAMutex mutex;
  long counter = 0;  // plain on purpose: ThreadSanitizer checks that the mutex guards it
  zutest::RunThreads(4, [&](int) {
    for (int i = 0; i < 10000; ++i) {
      mutex.Lock();
      ++counter;
      mutex.Unlock();
    }
  });
  EXPECT_EQ(40000, counter);
}
