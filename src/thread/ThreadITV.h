// ThreadITV.h - threads, recursive locks and events over POSIX threads.
#ifndef VARDA_THREAD_THREADITV_H
#define VARDA_THREAD_THREADITV_H

#include <pthread.h>

#include "string/DString.h"

// A recursive mutex: the thread that holds it may enter again, and each
// Entra needs its Sale.
class TCriticalSectionITV {
 public:
  TCriticalSectionITV();
  ~TCriticalSectionITV();
  TCriticalSectionITV(const TCriticalSectionITV&) = delete;
  TCriticalSectionITV& operator=(const TCriticalSectionITV&) = delete;

  void Entra();
  void Sale();
  // Waits for the lock like Entra and returns true: callers use it as
  // "enter", not as a test.
  bool TryEntra();

  pthread_mutex_t* Mutex() const { return &mutex; }

 private:
  mutable pthread_mutex_t mutex;
};

// A polymorphic holder of a lock, for locks kept as static objects.
class TCriticalSectionITV2 {
 public:
  TCriticalSectionITV2() = default;
  virtual ~TCriticalSectionITV2() = default;
  TCriticalSectionITV2(const TCriticalSectionITV2&) = delete;
  TCriticalSectionITV2& operator=(const TCriticalSectionITV2&) = delete;

  TCriticalSectionITV cs;
};

// Scope guard. Sale() releases the lock and forgets it, so that neither the
// destructor nor a later Entra() touches it again.
class TCriticalSectionITVEntra {
 public:
  TCriticalSectionITVEntra(const TCriticalSectionITV& cs, bool entrar = true);
  ~TCriticalSectionITVEntra();
  TCriticalSectionITVEntra(const TCriticalSectionITVEntra&) = delete;
  TCriticalSectionITVEntra& operator=(const TCriticalSectionITVEntra&) = delete;

  void Entra();
  bool TryEntra();
  void Sale();

 private:
  pthread_mutex_t* mutex;
};

// A wake-up call for a thread that is already waiting. The event keeps no
// state: a SetEvent with nobody waiting is lost, and the wait has no time
// limit. A producer that may signal before the consumer waits needs its own
// flag, kept under the event's lock.
class TEventITV {
 public:
  TEventITV();
  ~TEventITV();
  TEventITV(const TEventITV&) = delete;
  TEventITV& operator=(const TEventITV&) = delete;

  // Wakes one waiting thread, if any.
  void SetEvent();
  // Nothing to do: there is no signalled state.
  void ResetEvent() {}
  // Waits for the next SetEvent; the time-out is not honoured. Returns 0.
  // The caller must not hold the event's lock.
  int WaitForSingleObject(unsigned int milisegundos);

  TCriticalSectionITV cs;

 private:
  pthread_cond_t cond;
};

// A thread whose work is Execute(). The object must outlive its thread: the
// destructor waits for the thread to end. A derived class whose Execute uses
// its own members should call WaitFor() in its destructor, before they go.
class TThreadITV {
 public:
  // 3 is the normal priority; any other value lowers it.
  enum EnumThreadPriority {
    tpIdle = 0,
    tpLowest = 1,
    tpLower = 2,
    tpNormal = 3,
    tpHigher = 4,
    tpHighest = 5,
    tpTimeCritical = 6
  };

  explicit TThreadITV(const char* descripcion = nullptr);
  virtual ~TThreadITV();
  TThreadITV(const TThreadITV&) = delete;
  TThreadITV& operator=(const TThreadITV&) = delete;

  virtual void Execute() = 0;
  virtual void Finally() {}

  // Starts the thread. False when it cannot be created, or when this object
  // has already started one.
  bool Start();
  // Waits for a started thread to end; true when there was one to wait for.
  bool WaitFor();
  // Stored for the next Start.
  void SetPriority(EnumThreadPriority p) { prioridad = p; }
  // Does nothing.
  void SetPriority_s(EnumThreadPriority) {}
  // True while the thread exists (running, or ended but not waited for). It
  // only tests: it never stops the thread.
  bool Kill();

  static void* ThreadProcITV(void* obj);

  static void SetThisAsMainThread();
  static bool InMainThreadNow();

  DString descripcion;
  pthread_t hilo;
  EnumThreadPriority prioridad;
};

// Sleeps the calling thread for ms milliseconds.
void Sleep(int ms);

#endif
