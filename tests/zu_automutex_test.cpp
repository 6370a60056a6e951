#include "zu_automutex.h"

#define ZUTEST_COUNT_TRYLOCK  // CKAMutex::TryLock makes one pthread_mutex_trylock per attempt
#include "test_util.h"

TEST(CKAAutoMutex, HoldsOnceUntilDestructionAndCountsAttemptsInTenMillisecondSteps) {
  CKAMutex mutex;
  bool got = false;
  std::thread waiter;
  {
    CKAAutoMutex outer(&mutex, true);
    { CKAAutoMutex inner(&mutex, true); }  // recursive, and released again at once
    EXPECT_TRUE(outer.TryLock(0));         // held already: must not lock a second time
    std::thread([&] {  // 25 counts down 25, 15, 5, -5: four attempts, or -1 for a success
      EXPECT_EQ(4, CKAAutoMutex(&mutex, false).TryLock(25) ? -1 : zutest::t_trylockCalls);
    })
        .join();
    waiter = std::thread([&] { got = CKAAutoMutex(&mutex, false).TryLock(5000); });
  }  // the only hold goes, while the waiter polls or before
  waiter.join();
  EXPECT_TRUE(got && !CKAAutoMutex(nullptr, true).TryLock(-1));  // a null mutex is never held
}
