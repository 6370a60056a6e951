#include "zu_event.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>
#include <vector>

// Every uncontended queue operation makes exactly one pthread_mutex_trylock: the count is the
// number of polls.
#define ZUTEST_COUNT_TRYLOCK
#include "test_util.h"

using zutest::Clock;
using zutest::MillisSince;
using zutest::t_trylockCalls;

namespace {

std::vector<int> Drain(CKAEventSend& queue) {
  std::vector<int> events;
  for (int e = queue.GetEvent(); e != -1; e = queue.GetEvent()) events.push_back(e);
  return events;
}

std::vector<int> Range(int from, int to) {
  std::vector<int> v;
  for (int e = from; e < to; ++e) v.push_back(e);
  return v;
}

}  // namespace

TEST(CKAEventSend, DeliversInOrderWrapsAndOverwritesOldestWhenFull) {
  CKAEventSend queue;
  EXPECT_EQ(-1, queue.GetEvent());
  for (int e = 0; e < 12; ++e) EXPECT_TRUE(queue.SendEvent(e));
  EXPECT_EQ(Range(2, 12), Drain(queue));  // 0 and 1 were overwritten
  for (int e = 12; e < 19; ++e) queue.SendEvent(e);
  for (int e = 12; e < 17; ++e) EXPECT_EQ(e, queue.GetEvent());
  for (int e = 19; e < 25; ++e) queue.SendEvent(e);  // wraps around the ring's end
  EXPECT_EQ(Range(17, 25), Drain(queue));
  for (int e = 25; e < 37; ++e) queue.SendEvent(e);  // overwrite after wrapping
  EXPECT_EQ(Range(27, 37), Drain(queue));
  for (int e = 0; e < 5; ++e) queue.SendEvent(e);
  queue.Clear();
  EXPECT_EQ(-1, queue.GetEvent());
  queue.SendEvent(42);
  EXPECT_EQ(42, queue.GetEvent());
}

TEST(CKAEventSend, SeveralProducersKeepTheirOrderAndAllArriveWhenTheyFit) {
  CKAEventSend fits;
  zutest::RunThreads(5, [&](int p) {
    fits.SendEvent(p * 10);
    fits.SendEvent(p * 10 + 1);
  });
  const std::vector<int> all = Drain(fits);
  EXPECT_EQ((std::multiset<int>{0, 1, 10, 11, 20, 21, 30, 31, 40, 41}),
            std::multiset<int>(all.begin(), all.end()));

  constexpr int kProducers = 4, kEach = 2000;
  CKAEventSend queue;
  std::atomic<int> running{kProducers};
  std::thread producers([&] {
    zutest::RunThreads(kProducers, [&](int p) {
      for (int i = 0; i < kEach; ++i) EXPECT_TRUE(queue.SendEvent(p * kEach + i));
      --running;
    });
  });
  std::vector<int> last(kProducers, -1);
  int received = 0;
  auto take = [&](int e) {  // older events may be lost, never reordered
    ASSERT_TRUE(e >= 0 && e < kProducers * kEach) << e;
    EXPECT_GT(e % kEach, last[e / kEach]) << e;
    last[e / kEach] = e % kEach;
  };
  CKAEventWait waiter(&queue);
  while (running > 0 || received == 0) {
    const int e = waiter.WaitEvents(20);
    if (e != 255) take(e), ++received;
  }
  producers.join();
  for (int e : Drain(queue)) take(e);
}

TEST(CKAEventWait, ZeroTimeoutLooksOnceAndReturnsQueuedEvent) {
  CKAEventSend queue;
  CKAEventWait waiter;
  EXPECT_TRUE(waiter.Init(&queue));
  const Clock::time_point start = Clock::now();
  t_trylockCalls = 0;
  EXPECT_EQ(255, waiter.WaitEvents(0));
  EXPECT_EQ(1, t_trylockCalls);
  EXPECT_LT(MillisSince(start), 1000);
  queue.SendEvent(7);
  EXPECT_EQ(7, waiter.WaitEvents(0));
}

TEST(CKAEventWait, TimeoutEndsAfterCountedPollsOrTheClock) {
  // 35 ms: polls at 10, 20, 30, 40 steps; the fourth step reaches the limit.
  const struct {
    unsigned int timeout;
    int polls;
  } cases[] = {{1, 1}, {10, 1}, {11, 2}, {35, 4}, {100, 10}};
  CKAEventSend queue;
  CKAEventWait waiter(&queue);
  for (const auto& c : cases) {
    const Clock::time_point start = Clock::now();
    t_trylockCalls = 0;
    EXPECT_EQ(255, waiter.WaitEvents(c.timeout)) << c.timeout;
    const long waited = MillisSince(start);
    EXPECT_TRUE(t_trylockCalls >= 1 && t_trylockCalls <= c.polls) << c.timeout;
    EXPECT_GE(waited, 10L * t_trylockCalls) << c.timeout;  // one 10 ms sleep per poll
    // Fewer polls only when slow sleeps let the wall clock reach the limit first.
    if (t_trylockCalls < c.polls) {
      EXPECT_GE(waited + 1, static_cast<long>(c.timeout)) << c.timeout;
    }
    EXPECT_LT(waited, 5000) << c.timeout;
  }
}

TEST(CKAEventWait, QueuedTwoFiftyFiveLooksLikeTimeoutAndNoQueueTimesOutAtOnce) {
  CKAEventSend queue;
  queue.SendEvent(255);
  EXPECT_EQ(255, CKAEventWait(&queue).WaitEvents(1000));
  EXPECT_EQ(-1, queue.GetEvent());  // it was taken from the queue
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(255, CKAEventWait().WaitEvents(100000));
  EXPECT_EQ(255, CKAEventWait(nullptr).WaitEvents(0));
  EXPECT_LT(MillisSince(start), 1000);
}
