#include "zu_mutex_unix.h"

#include "test_util.h"

TEST(CKAMutex, SerialisesThreadsThatAlsoLockRecursively) {
  CKAMutex mutex;
  long counter = 0;  // plain on purpose: ThreadSanitizer checks that the mutex guards it
  zutest::RunThreads(4, [&](int) {
    for (int i = 0; i < 10000; ++i) {
      mutex.Lock();
      counter += mutex.TryLock() ? 1 : 1000000;  // the holder may lock again
      mutex.Unlock(), mutex.Unlock();            // one per hold
    }
  });
  EXPECT_EQ(40000, counter);
}
