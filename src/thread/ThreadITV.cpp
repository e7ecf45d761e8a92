#include "thread/ThreadITV.h"

#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>

// ---------------------------------------------------------------- locks

TCriticalSectionITV::TCriticalSectionITV() {
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&mutex, &attr);
  pthread_mutexattr_destroy(&attr);
}

TCriticalSectionITV::~TCriticalSectionITV() { pthread_mutex_destroy(&mutex); }

void TCriticalSectionITV::Entra() { pthread_mutex_lock(&mutex); }
void TCriticalSectionITV::Sale() { pthread_mutex_unlock(&mutex); }

bool TCriticalSectionITV::TryEntra() {
  pthread_mutex_lock(&mutex);
  return true;
}

TCriticalSectionITVEntra::TCriticalSectionITVEntra(const TCriticalSectionITV& cs, bool entrar)
    : mutex(cs.Mutex()) {
  if (entrar) pthread_mutex_lock(mutex);
}

TCriticalSectionITVEntra::~TCriticalSectionITVEntra() {
  if (mutex) pthread_mutex_unlock(mutex);
}

void TCriticalSectionITVEntra::Entra() {
  if (mutex) pthread_mutex_lock(mutex);
}

bool TCriticalSectionITVEntra::TryEntra() {
  Entra();
  return true;
}

void TCriticalSectionITVEntra::Sale() {
  if (mutex) pthread_mutex_unlock(mutex);
  mutex = nullptr;
}

// ---------------------------------------------------------------- event

TEventITV::TEventITV() {
  TCriticalSectionITVEntra guard(cs);
  pthread_cond_init(&cond, nullptr);
}

TEventITV::~TEventITV() {
  {
    TCriticalSectionITVEntra guard(cs);
    pthread_cond_destroy(&cond);
  }
}

void TEventITV::SetEvent() {
  TCriticalSectionITVEntra guard(cs);
  pthread_cond_signal(&cond);
}

int TEventITV::WaitForSingleObject(unsigned int) {
  TCriticalSectionITVEntra guard(cs);
  pthread_cond_wait(&cond, cs.Mutex());
  return 0;
}

// ---------------------------------------------------------------- threads

namespace {

// The thread that loaded the library, recorded by static initialisation.
// Any thread may ask, so it is read and written atomically.
std::atomic<pthread_t> main_thread{pthread_self()};

}  // namespace

TThreadITV::TThreadITV(const char* descripcion_)
    : descripcion(descripcion_), hilo(), prioridad(tpNormal) {}

TThreadITV::~TThreadITV() { WaitFor(); }

bool TThreadITV::Start() {
  if (hilo != pthread_t()) return false;
  pthread_t h = pthread_t();
  int rc;
  if (prioridad == tpNormal) {
    rc = pthread_create(&h, nullptr, &TThreadITV::ThreadProcITV, this);
  } else {
    // Two below the default priority. Where the scheduling policy has a
    // single priority the request is refused and the thread runs at the
    // default one, which is still better than not running.
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    sched_param param;
    if (pthread_attr_getschedparam(&attr, &param) == 0) {
      param.sched_priority -= 2;
      pthread_attr_setschedparam(&attr, &param);
    }
    rc = pthread_create(&h, &attr, &TThreadITV::ThreadProcITV, this);
    pthread_attr_destroy(&attr);
  }
  if (rc != 0) return false;
  hilo = h;
  return true;
}

bool TThreadITV::WaitFor() {
  if (hilo == pthread_t()) return false;
  pthread_join(hilo, nullptr);
  hilo = pthread_t();
  return true;
}

bool TThreadITV::Kill() {
  // A thread never started has no identity that could be tested.
  if (hilo == pthread_t()) return false;
  return pthread_kill(hilo, 0) == 0;
}

void* TThreadITV::ThreadProcITV(void* obj) {
  static_cast<TThreadITV*>(obj)->Execute();
  return nullptr;
}

void TThreadITV::SetThisAsMainThread() { main_thread.store(pthread_self(), std::memory_order_relaxed); }

bool TThreadITV::InMainThreadNow() { return pthread_equal(main_thread.load(std::memory_order_relaxed), pthread_self()) != 0; }

void Sleep(int ms) {
  if (ms <= 0) return;
  // usleep takes at most a second on some systems: longer sleeps go in steps.
  long long us = static_cast<long long>(ms) * 1000;
  while (us > 0) {
    long long step = us > 999999 ? 999999 : us;
    usleep(static_cast<useconds_t>(step));
    us -= step;
  }
}
