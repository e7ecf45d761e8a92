// Helpers that order test threads by events, never by time.
#ifndef VARDA_TESTS_THREAD_THREADTESTSUPPORT_H
#define VARDA_TESTS_THREAD_THREADTESTSUPPORT_H

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "thread/ThreadITV.h"

// A one-shot gate that remembers being opened, unlike TEventITV.
class Gate {
 public:
  void Open() {
    std::lock_guard<std::mutex> l(m_);
    open_ = true;
    cv_.notify_all();
  }
  void Wait() {
    std::unique_lock<std::mutex> l(m_);
    cv_.wait(l, [this] { return open_; });
  }
  // Only for proving that something does not happen within a while.
  bool WaitFor(std::chrono::milliseconds d) {
    std::unique_lock<std::mutex> l(m_);
    return cv_.wait_for(l, d, [this] { return open_; });
  }

 private:
  std::mutex m_;
  std::condition_variable cv_;
  bool open_ = false;
};

// A TThreadITV running a function; it waits for its thread before its own
// members go.
class FnThread : public TThreadITV {
 public:
  explicit FnThread(std::function<void()> fn) : fn_(std::move(fn)) {}
  ~FnThread() override { WaitFor(); }
  void Execute() override { fn_(); }

 private:
  std::function<void()> fn_;
};

// Whether a thread other than the caller could take the mutex right now,
// asked without blocking from a fresh thread.
inline bool FreeForOtherThreads(pthread_mutex_t* m) {
  bool free = false;
  FnThread probe([&] {
    if (pthread_mutex_trylock(m) == 0) {
      free = true;
      pthread_mutex_unlock(m);
    }
  });
  probe.Start();
  probe.WaitFor();
  return free;
}

#endif
