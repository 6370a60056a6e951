#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include "zu_thread_unix.h"

namespace {

void Pause() {
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// Polls cond for up to ten seconds.
template <typename Cond>
bool Eventually(Cond cond) {
  for (int i = 0; i < 10000; ++i) {
    if (cond()) return true;
    Pause();
  }
  return cond();
}

// Runs until released; counts its runs and records its scheduling priority.
class GateThread : public CKAThread {
 public:
  void Run() override {
    m_priorityBefore = CurrentPriority();
    m_entered = true;
    while (!m_release) Pause();
    m_priorityAfter = CurrentPriority();
    ++m_runs;
  }
  static int CurrentPriority() {
    int policy = 0;
    sched_param param;
    pthread_getschedparam(pthread_self(), &policy, &param);
    return param.sched_priority;
  }

  std::atomic<bool> m_entered{false};
  std::atomic<bool> m_release{false};
  std::atomic<int> m_runs{0};
  std::atomic<int> m_priorityBefore{-1};
  std::atomic<int> m_priorityAfter{-1};
};

class QuickThread : public CKAThread {
 public:
  void Run() override { ++m_runs; }
  std::atomic<int> m_runs{0};
};

}  // namespace

TEST(CKAThread, RunningMarkFollowsTheBody) {
  GateThread thread;
  EXPECT_FALSE(thread.IsRunning());
  ASSERT_TRUE(thread.Start(nullptr));
  EXPECT_TRUE(thread.IsRunning());
  ASSERT_TRUE(Eventually([&] { return thread.m_entered.load(); }));
  EXPECT_TRUE(thread.IsRunning());
  thread.m_release = true;
  EXPECT_TRUE(Eventually([&] { return !thread.IsRunning(); }));
  EXPECT_EQ(1, thread.m_runs);
}

TEST(CKAThread, BodyThatReturnsAtOnceClearsMarkWithoutJoin) {
  QuickThread thread;
  for (int round = 1; round <= 3; ++round) {  // Start again after the thread has ended
    ASSERT_TRUE(thread.Start(nullptr));
    EXPECT_TRUE(Eventually([&] { return !thread.IsRunning(); }));
    EXPECT_EQ(round, thread.m_runs);
  }
}

TEST(CKAThread, NullParameterKeepsThePreviousOne) {
  QuickThread thread;
  EXPECT_EQ(nullptr, thread.GetParam());
  int value = 7;
  ASSERT_TRUE(thread.Start(&value));
  ASSERT_TRUE(Eventually([&] { return !thread.IsRunning(); }));
  ASSERT_TRUE(thread.Start(nullptr));
  ASSERT_TRUE(Eventually([&] { return !thread.IsRunning(); }));
  EXPECT_EQ(&value, thread.GetParam());
}

TEST(CKAThread, SetPriorityUnderTimeSharingKeepsPriority) {
  GateThread thread;
  EXPECT_FALSE(thread.SetPriority());  // no thread yet
  ASSERT_TRUE(thread.Start(nullptr));
  ASSERT_TRUE(Eventually([&] { return thread.m_entered.load(); }));
  // The default policy's maximum is 0: current + 1 is not below it, so nothing changes.
  EXPECT_TRUE(thread.SetPriority());
  thread.m_release = true;
  ASSERT_TRUE(Eventually([&] { return !thread.IsRunning(); }));
  EXPECT_EQ(thread.m_priorityBefore, thread.m_priorityAfter);
}

TEST(CKAThread, ExitWithoutThreadReportsNoSuchThread) {
  QuickThread thread;
  EXPECT_EQ(ESRCH, thread.Exit());
}

namespace {

class EndlessThread : public CKAThread {
 public:
  void Run() override {
    m_entered = true;
    for (;;) {
      pthread_testcancel();
      Pause();
    }
  }
  std::atomic<bool> m_entered{false};
};

}  // namespace

TEST(CKAThread, ExitCancelsAndLeavesTheMarkSet) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer misreads a stack unwound by thread cancellation";
#endif
  static EndlessThread thread;  // outlives the cancelled thread's unwinding
  ASSERT_TRUE(thread.Start(nullptr));
  ASSERT_TRUE(Eventually([&] { return thread.m_entered.load(); }));
  EXPECT_EQ(0, thread.Exit());
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_TRUE(thread.IsRunning());  // Run() never returned
}
