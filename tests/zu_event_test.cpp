#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>
#include <vector>

#include "zu_event.h"

// Counts this thread's calls of pthread_mutex_trylock: every uncontended queue operation makes
// exactly one, so the count is the number of polls. The test program's definition takes
// precedence over the C library's.
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

using Clock = std::chrono::steady_clock;

long MillisSince(Clock::time_point start) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

std::vector<int> Drain(CKAEventSend& queue) {
  std::vector<int> events;
  for (int e = queue.GetEvent(); e != -1; e = queue.GetEvent()) events.push_back(e);
  return events;
}

}  // namespace

TEST(CKAEventSend, DeliversInOrderAndOverwritesOldestWhenFull) {
  struct Case {
    int sent;
    std::vector<int> read;
  };
  const Case cases[] = {
      {0, {}},
      {3, {0, 1, 2}},
      {10, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}},
      {12, {2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
      {25, {15, 16, 17, 18, 19, 20, 21, 22, 23, 24}},
  };
  for (const Case& c : cases) {
    CKAEventSend queue;
    for (int e = 0; e < c.sent; ++e) EXPECT_TRUE(queue.SendEvent(e));
    EXPECT_EQ(c.read, Drain(queue)) << c.sent;
  }
}

TEST(CKAEventSend, RingWrapsAcrossReadsAndWrites) {
  CKAEventSend queue;
  for (int e = 0; e < 7; ++e) queue.SendEvent(e);
  for (int e = 0; e < 5; ++e) EXPECT_EQ(e, queue.GetEvent());
  for (int e = 7; e < 13; ++e) queue.SendEvent(e);
  EXPECT_EQ((std::vector<int>{5, 6, 7, 8, 9, 10, 11, 12}), Drain(queue));
  for (int e = 13; e < 25; ++e) queue.SendEvent(e);  // overwrite after wrapping
  EXPECT_EQ((std::vector<int>{15, 16, 17, 18, 19, 20, 21, 22, 23, 24}), Drain(queue));
}

TEST(CKAEventSend, ClearEmptiesTheQueue) {
  CKAEventSend queue;
  for (int e = 0; e < 12; ++e) queue.SendEvent(e);
  queue.Clear();
  EXPECT_EQ(-1, queue.GetEvent());
  queue.SendEvent(42);
  EXPECT_EQ(42, queue.GetEvent());
}

TEST(CKAEventSend, KeepsEachProducersOrderUnderConcurrency) {
  constexpr int kProducers = 4;
  constexpr int kPerProducer = 2000;
  CKAEventSend queue;
  std::atomic<int> running{kProducers};
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < kPerProducer; ++i) EXPECT_TRUE(queue.SendEvent(p * kPerProducer + i));
      --running;
    });
  }
  std::vector<int> last(kProducers, -1);
  int received = 0;
  CKAEventWait waiter(&queue);
  while (running > 0 || received == 0) {
    const int e = waiter.WaitEvents(20);
    if (e == 255) continue;
    ASSERT_GE(e, 0);
    ASSERT_LT(e, kProducers * kPerProducer);
    EXPECT_GT(e % kPerProducer, last[e / kPerProducer]) << e;  // older events may be lost only
    last[e / kPerProducer] = e % kPerProducer;
    ++received;
  }
  for (std::thread& t : producers) t.join();
  for (int e : Drain(queue)) {
    EXPECT_GT(e % kPerProducer, last[e / kPerProducer]) << e;
    last[e / kPerProducer] = e % kPerProducer;
  }
  EXPECT_GT(received, 0);
}

TEST(CKAEventSend, EventsFromSeveralProducersAllArriveWhenTheyFit) {
  CKAEventSend queue;
  std::vector<std::thread> producers;
  for (int p = 0; p < 5; ++p) {
    producers.emplace_back([&queue, p] {
      queue.SendEvent(p * 10);
      queue.SendEvent(p * 10 + 1);
    });
  }
  for (std::thread& t : producers) t.join();
  const std::vector<int> events = Drain(queue);
  EXPECT_EQ((std::set<int>{0, 1, 10, 11, 20, 21, 30, 31, 40, 41}),
            std::set<int>(events.begin(), events.end()));
  EXPECT_EQ(10u, events.size());
}

TEST(CKAEventWait, ZeroTimeoutLooksOnce) {
  CKAEventSend queue;
  CKAEventWait waiter(&queue);
  const Clock::time_point start = Clock::now();
  t_trylockCalls = 0;
  EXPECT_EQ(255, waiter.WaitEvents(0));
  EXPECT_EQ(1, t_trylockCalls);
  EXPECT_LT(MillisSince(start), 1000);
  queue.SendEvent(7);
  EXPECT_EQ(7, waiter.WaitEvents(0));
}

TEST(CKAEventWait, TimeoutEndsAfterCountedPolls) {
  struct Case {
    unsigned int timeout;
    int polls;
  };
  // 35 ms: polls at 10, 20, 30, 40 steps; the fourth step reaches the limit.
  const Case cases[] = {{1, 1}, {10, 1}, {11, 2}, {35, 4}, {100, 10}};
  CKAEventSend queue;
  CKAEventWait waiter(&queue);
  for (const Case& c : cases) {
    const Clock::time_point start = Clock::now();
    t_trylockCalls = 0;
    EXPECT_EQ(255, waiter.WaitEvents(c.timeout)) << c.timeout;
    const long waited = MillisSince(start);
    EXPECT_LE(t_trylockCalls, c.polls) << c.timeout;  // the wall clock may end it earlier
    EXPECT_GE(t_trylockCalls, 1) << c.timeout;
    EXPECT_GE(waited, 10L * t_trylockCalls) << c.timeout;  // one 10 ms sleep per poll
    // Fewer polls only when slow sleeps let the wall clock reach the limit first.
    if (t_trylockCalls < c.polls) {
      EXPECT_GE(waited + 1, static_cast<long>(c.timeout)) << c.timeout;
    }
    EXPECT_LT(waited, 5000) << c.timeout;
  }
}

TEST(CKAEventWait, ReturnsEventSentByAnotherThread) {
  CKAEventSend queue;
  CKAEventWait waiter;
  EXPECT_TRUE(waiter.Init(&queue));
  std::thread sender([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    queue.SendEvent(3);
  });
  EXPECT_EQ(3, waiter.WaitEvents(10000));
  sender.join();
}

TEST(CKAEventWait, QueuedTwoFiftyFiveLooksLikeTimeout) {
  CKAEventSend queue;
  queue.SendEvent(255);
  EXPECT_EQ(255, CKAEventWait(&queue).WaitEvents(1000));
  EXPECT_EQ(-1, queue.GetEvent());  // it was taken from the queue
}

TEST(CKAEventWait, WithoutQueueTimesOutAtOnce) {
  CKAEventWait waiter;
  EXPECT_EQ(255, waiter.WaitEvents(100000));
  CKAEventWait nullWaiter(nullptr);
  EXPECT_EQ(255, nullWaiter.WaitEvents(0));
}
