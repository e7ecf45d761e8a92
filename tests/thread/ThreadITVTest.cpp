#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>
#include <chrono>

#include "ThreadTestSupport.h"
#include "thread/ThreadITV.h"

namespace {

// A signal sent before the waiter waits is lost, so one signal would not do.
void SignalUntilWoken(TEventITV& ev, const std::atomic<bool>& woke) {
  while (!woke.load()) {
    ev.SetEvent();
    sched_yield();
  }
}

TEST(TCriticalSectionITV, HeldTwiceBlocksOthersUntilBothSales) {
  TCriticalSectionITV cs;
  cs.Entra();
  EXPECT_TRUE(cs.TryEntra());
  std::atomic<bool> entered{false};
  Gate trying;
  FnThread other([&] {
    trying.Open();
    cs.Entra();
    entered = true;
    cs.Sale();
  });
  ASSERT_TRUE(other.Start());
  trying.Wait();
  cs.Sale();
  EXPECT_FALSE(FreeForOtherThreads(cs.Mutex()));
  EXPECT_FALSE(entered.load());
  cs.Sale();
  other.WaitFor();
  EXPECT_TRUE(entered.load());
  EXPECT_TRUE(FreeForOtherThreads(cs.Mutex()));
}

TEST(TCriticalSectionITVEntra, GuardUnlocksOnceAndForgetsAfterSale) {
  TCriticalSectionITV cs;
  {
    TCriticalSectionITVEntra guard(cs, false);
    EXPECT_TRUE(FreeForOtherThreads(cs.Mutex()));
    EXPECT_TRUE(guard.TryEntra());
    EXPECT_FALSE(FreeForOtherThreads(cs.Mutex()));
  }
  EXPECT_TRUE(FreeForOtherThreads(cs.Mutex()));

  // Held once by the caller and once by the guard; after Sale the guard
  // neither locks again nor unlocks on destruction.
  cs.Entra();
  {
    TCriticalSectionITVEntra guard(cs, true);
    guard.Sale();
    guard.Entra();
  }
  EXPECT_FALSE(FreeForOtherThreads(cs.Mutex()));
  cs.Sale();
  EXPECT_TRUE(FreeForOtherThreads(cs.Mutex()));
}

TEST(TEventITV, SignalWithoutWaiterIsForgottenAndTheTimeOutIgnored) {
  TEventITV ev;
  ev.SetEvent();
  ev.ResetEvent();
  std::atomic<bool> woke{false};
  Gate woken;
  int result = -1;
  FnThread waiter([&] {
    result = ev.WaitForSingleObject(100);
    woke = true;
    woken.Open();
  });
  ASSERT_TRUE(waiter.Start());
  // A correct event keeps the waiter blocked however long this lasts; one
  // that remembers the signal or honours the time-out lets it through.
  EXPECT_FALSE(woken.WaitFor(std::chrono::milliseconds(250)));
  SignalUntilWoken(ev, woke);
  waiter.WaitFor();
  EXPECT_EQ(result, 0);
}

TEST(TThreadITV, StartRunsExecuteOnceAndTheDestructorJoins) {
  Gate release;
  std::atomic<bool> done{false};
  {
    FnThread t([&] {
      release.Wait();
      done = true;
    });
    ASSERT_TRUE(t.Start());
    EXPECT_FALSE(t.Start());
    release.Open();
  }
  EXPECT_TRUE(done.load());
}

// Joins only in the base destructor, as a plain user of the class would.
class CountingThread : public TThreadITV {
 public:
  void Execute() override { ++n; }
  void Finally() override { n += 100; }
  std::atomic<int> n{0};
};

TEST(TThreadITV, EntryCallsExecuteButNotFinallyAtAnyPriority) {
  for (auto p : {TThreadITV::tpNormal, TThreadITV::tpIdle, TThreadITV::tpHighest}) {
    CountingThread t;
    t.SetPriority(p);
    ASSERT_TRUE(t.Start());
    ASSERT_TRUE(t.WaitFor());
    EXPECT_FALSE(t.WaitFor());
    EXPECT_EQ(t.n.load(), 1);
  }
}

TEST(TThreadITV, KillOnlyTestsThatTheThreadExists) {
  Gate running, release;
  std::atomic<bool> finished{false};
  FnThread t([&] {
    running.Open();
    release.Wait();
    finished = true;
  });
  EXPECT_FALSE(t.Kill());  // never started
  ASSERT_TRUE(t.Start());
  running.Wait();
  EXPECT_TRUE(t.Kill());
  release.Open();
  // Ended or not, a thread not yet joined exists.
  EXPECT_TRUE(t.Kill());
  t.WaitFor();
  EXPECT_TRUE(finished.load());
  EXPECT_FALSE(t.Kill());
}

TEST(TThreadITV, MainThreadIsTheLoadingThread) {
  EXPECT_TRUE(TThreadITV::InMainThreadNow());
  bool in_main = true, after_set = false;
  FnThread t([&] {
    in_main = TThreadITV::InMainThreadNow();
    TThreadITV::SetThisAsMainThread();
    after_set = TThreadITV::InMainThreadNow();
  });
  ASSERT_TRUE(t.Start());
  t.WaitFor();
  EXPECT_FALSE(in_main);
  EXPECT_TRUE(after_set);
  EXPECT_FALSE(TThreadITV::InMainThreadNow());
  TThreadITV::SetThisAsMainThread();
  EXPECT_TRUE(TThreadITV::InMainThreadNow());
  Sleep(-1000);  // returns at once
}

}  // namespace
