#include "zu_event.h"

#define ZUTEST_COUNT_TRYLOCK  // one pthread_mutex_trylock per uncontended look at the queue
#include "test_util.h"

TEST(CKAEvent, RacingSendersFitTheNewestTenStayInOrderAndWaitsPollEveryTenMilliseconds) {
  CKAEventSend queue;
  CKAEventWait waiter(&queue);
  std::vector<int> got;
  const auto take = [&](int n) {
    while (n-- > 0) got.push_back(waiter.WaitEvents(0));
  };
  zutest::RunThreads(10, [&](int) { queue.SendEvent(7); });  // all fit
  take(10);
  for (int e = 10; e < 22; ++e) queue.SendEvent(e);  // 10 and 11 are overwritten
  take(5);
  for (int e = 22; e < 30; ++e) queue.SendEvent(e);  // round the ring's end, overwriting 17-19
  take(11);
  queue.SendEvent(30), queue.Clear(), queue.SendEvent(255);  // looks like a time-out
  take(1), got.push_back(queue.GetEvent());                  // -1: the 255 was taken
  EXPECT_EQ((std::vector<int>{7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  12, 13,  14,  15,
                              16, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 255, 255, -1}),
            got);
  zutest::t_trylockCalls = 0;
  const zutest::Clock::time_point start = zutest::Clock::now();
  EXPECT_EQ(255, waiter.WaitEvents(35));
  EXPECT_TRUE(zutest::t_trylockCalls <= 4 && zutest::MillisSince(start) >= 34);  // 10 ms apart
}
