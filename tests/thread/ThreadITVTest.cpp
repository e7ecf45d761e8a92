#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "ThreadTestSupport.h"
#include "thread/ThreadITV.h"

namespace {

// Signals the event until the waiter reports that it woke: a signal sent
// before the waiter waits is lost, so one signal would not do.
void SignalUntilWoken(TEventITV& ev, const std::atomic<bool>& woke) {
  while (!woke.load()) {
    ev.SetEvent();
    sched_yield();
  }
}

TEST(TCriticalSectionITV, HeldTwiceBlocksOthersUntilBothSales) {
  TCriticalSectionITV cs;
  cs.Entra();
  cs.Entra();
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
  EXPECT_FALSE(FreeForOtherThreads(cs.Mutex()));
  cs.Sale();
  EXPECT_FALSE(FreeForOtherThreads(cs.Mutex()));
  EXPECT_FALSE(entered.load());
  cs.Sale();
  other.WaitFor();
  EXPECT_TRUE(entered.load());
  EXPECT_TRUE(FreeForOtherThreads(cs.Mutex()));
}

TEST(TCriticalSectionITV, TryEntraWaitsAndEnters) {
  TCriticalSectionITV cs;
  EXPECT_TRUE(cs.TryEntra());
  EXPECT_TRUE(cs.TryEntra());
  EXPECT_FALSE(FreeForOtherThreads(cs.Mutex()));
  cs.Sale();
  cs.Sale();
  EXPECT_TRUE(FreeForOtherThreads(cs.Mutex()));

  TCriticalSectionITV2 holder;
  TCriticalSectionITV2* base = &holder;
  base->cs.Entra();
  EXPECT_FALSE(FreeForOtherThreads(holder.cs.Mutex()));
  base->cs.Sale();
}

TEST(TCriticalSectionITVEntra, GuardUnlocksOnceAndForgetsAfterSale) {
  TCriticalSectionITV cs;
  {
    TCriticalSectionITVEntra guard(cs, true);
    EXPECT_FALSE(FreeForOtherThreads(cs.Mutex()));
  }
  EXPECT_TRUE(FreeForOtherThreads(cs.Mutex()));

  // The caller holds the lock once and the guard once more; after Sale the
  // guard neither unlocks again on destruction nor locks again on Entra.
  cs.Entra();
  {
    TCriticalSectionITVEntra guard(cs, true);
    guard.Sale();
    EXPECT_FALSE(FreeForOtherThreads(cs.Mutex()));
    guard.Entra();
    EXPECT_TRUE(guard.TryEntra());
  }
  EXPECT_FALSE(FreeForOtherThreads(cs.Mutex()));
  cs.Sale();
  EXPECT_TRUE(FreeForOtherThreads(cs.Mutex()));
}

TEST(TCriticalSectionITVEntra, GuardMadeUnlockedEntersLater) {
  TCriticalSectionITV cs;
  {
    TCriticalSectionITVEntra guard(cs, false);
    EXPECT_TRUE(FreeForOtherThreads(cs.Mutex()));
    guard.Entra();
    EXPECT_FALSE(FreeForOtherThreads(cs.Mutex()));
  }
  EXPECT_TRUE(FreeForOtherThreads(cs.Mutex()));
}

TEST(TEventITV, SetEventWakesAWaiter) {
  TEventITV ev;
  std::atomic<bool> woke{false};
  int result = -1;
  FnThread waiter([&] {
    result = ev.WaitForSingleObject(5000);
    woke = true;
  });
  ASSERT_TRUE(waiter.Start());
  SignalUntilWoken(ev, woke);
  waiter.WaitFor();
  EXPECT_EQ(result, 0);
}

TEST(TEventITV, SignalWithoutWaiterIsForgottenAndTheTimeOutIgnored) {
  TEventITV ev;
  ev.SetEvent();
  ev.ResetEvent();
  std::mutex m;
  std::condition_variable cv;
  bool woke = false;
  std::atomic<bool> woke_flag{false};
  FnThread waiter([&] {
    ev.WaitForSingleObject(100);
    std::lock_guard<std::mutex> l(m);
    woke = true;
    woke_flag = true;
    cv.notify_all();
  });
  ASSERT_TRUE(waiter.Start());
  {
    // A correct event keeps the waiter blocked however long this lasts; a
    // wrong one (remembering the signal, or honouring the time-out) lets it
    // through well within it.
    std::unique_lock<std::mutex> l(m);
    EXPECT_FALSE(cv.wait_for(l, std::chrono::milliseconds(250), [&] { return woke; }));
  }
  SignalUntilWoken(ev, woke_flag);
  waiter.WaitFor();
}

TEST(TThreadITV, StartRunsExecuteAndTheDestructorJoins) {
  Gate release;
  std::atomic<bool> done{false};
  {
    FnThread t([&] {
      release.Wait();
      done = true;
    });
    EXPECT_EQ(t.hilo, pthread_t());
    EXPECT_EQ(t.prioridad, TThreadITV::tpNormal);
    ASSERT_TRUE(t.Start());
    EXPECT_FALSE(t.Start());  // one thread per object
    release.Open();
  }
  EXPECT_TRUE(done.load());
}

// Joins only in the base destructor, as a plain user of the class would.
class CountingThread : public TThreadITV {
 public:
  explicit CountingThread(std::atomic<int>* n) : n_(n) {}
  void Execute() override { ++*n_; }
  void Finally() override { ++*n_; }

 private:
  std::atomic<int>* n_;
};

TEST(TThreadITV, EntryCallsExecuteButNotFinally) {
  std::atomic<int> n{0};
  CountingThread t(&n);
  ASSERT_TRUE(t.Start());
  ASSERT_TRUE(t.WaitFor());
  EXPECT_EQ(n.load(), 1);
  EXPECT_FALSE(t.WaitFor());
  EXPECT_EQ(TThreadITV::ThreadProcITV(&t), nullptr);
  EXPECT_EQ(n.load(), 2);
}

TEST(TThreadITV, LoweredPriorityStillRuns) {
  for (auto p : {TThreadITV::tpIdle, TThreadITV::tpLower, TThreadITV::tpHighest}) {
    std::atomic<bool> ran{false};
    FnThread t([&] { ran = true; });
    t.SetPriority(p);
    t.SetPriority_s(TThreadITV::tpNormal);
    EXPECT_EQ(t.prioridad, p);
    ASSERT_TRUE(t.Start());
    t.WaitFor();
    EXPECT_TRUE(ran.load());
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
  EXPECT_TRUE(t.Kill());
  release.Open();
  // Whether the thread has ended yet or not, until it is joined it exists.
  EXPECT_TRUE(t.Kill());
  t.WaitFor();
  EXPECT_TRUE(finished.load());
  EXPECT_FALSE(t.Kill());
}

TEST(TThreadITV, MainThreadIsTheLoadingThread) {
  EXPECT_TRUE(TThreadITV::InMainThreadNow());
  bool in_main = true;
  bool after_set = false;
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
}

TEST(Sleep, ShortAndNonPositiveSleepsReturn) {
  Sleep(1);
  Sleep(0);
  Sleep(-1000);
}

}  // namespace
