// MonitorProc.h - progress and stop requests of long operations.
#ifndef VARDA_THREAD_MONITORPROC_H
#define VARDA_THREAD_MONITORPROC_H

#include "string/DString.h"
#include "thread/AtomicRelaxed.h"
#include "thread/ThreadITV.h"
#include "time/Temps.h"

// Progress of a long operation and a request to stop it. The worker counts
// steps (Start, Incre, or the fields directly) and polls the stop request; a
// watcher reads Porcentaje and Texto_Proceso and may call Cancelar. A
// sub-operation uses a TMonitorProcHijo standing for some of the parent's
// steps, so that nested work reports one percentage and a stop reaches every
// level.
//
// Threads: actual, npasos and stop are written by one thread and read by
// another without the lock; they are relaxed atomics that read and write like
// plain values (m->actual += n; m->npasos = n; if (m->stop) ...). Passing them
// to printf-like functions or to templates needs the plain value: use
// m->actual.load() or (int)m->actual. The texts are not atomic: a worker that
// changes them while a watcher may read them uses SetTexto/SetSubtexto, or
// holds a TMonitorProcCritSect. The links between parent and child, and
// everything else, are guarded by one process-wide recursive lock.
class TMonitorProc {
 public:
  typedef void (*TFuncCancel)(void* contexto);

  TMonitorProc();
  virtual ~TMonitorProc();
  TMonitorProc(const TMonitorProc&) = delete;
  TMonitorProc& operator=(const TMonitorProc&) = delete;

  // Requests a stop of this monitor and of its current child, and calls the
  // cancel callback.
  virtual void Cancelar();
  // Back to the state of a new monitor (weight and callback stay). A child
  // that is reset leaves its parent, and its parent forgets it.
  virtual void Reset();
  // Hook for user interfaces; does nothing here.
  virtual void ActualizaBarras() {}
  // Percentage done, with the current child's share; not clamped above 100.
  virtual float Porcentaje();
  // n steps to do, none done, no stop request.
  virtual void Start(int n);
  // Counts n steps; false when the work should stop.
  virtual bool Incre(int n);
  virtual void SetNpasos(int n);
  // Refresh request; a child passes it up to the root.
  virtual void Actu() {}

  // This monitor or one of its ancestors has been asked to stop.
  bool HayStop() const;
  // The text, the detail text after two blanks, and with `recursivo` the
  // text of the child after one blank.
  DString Texto_Proceso(bool recursivo);
  void DeleteStr();
  bool VersionFuncCancel() const { return marca == kMarcaFuncCancel; }

  // Change the texts under the monitor lock, safe against a watcher reading
  // them from another thread.
  void SetTexto(const char* s);
  void SetSubtexto(const char* s);

  // The process-wide lock of all monitors.
  static TCriticalSectionITV& CritSect();

  static constexpr int kMarcaFuncCancel = 0xABCD;

  TAtomicRelaxed<int> actual;
  TAtomicRelaxed<int> npasos;
  TAtomicRelaxed<bool> stop;
  DString texto;
  DString subtexto;
  TTempsUTC inicio;  // for user interfaces; nothing here sets it
  int reservado;
  // Read without the lock by HayStop on the worker's side.
  TAtomicRelaxed<TMonitorProc*> padre;
  TMonitorProc* hijo;
  int peso;
  int marca;
  void* contexto_cancel;
  TFuncCancel func_cancel;
};

// A monitor for a sub-operation, standing for `peso` steps of its parent. It
// starts with the parent's stop request. When it goes, the parent counts the
// whole weight as done and takes over this monitor's stop request.
class TMonitorProcHijo : public TMonitorProc {
 public:
  TMonitorProcHijo(TMonitorProc* padre, int peso);
  ~TMonitorProcHijo() override;
  void Actu() override;
};

// Holds the monitor lock for a scope, to read several fields consistently.
class TMonitorProcCritSect {
 public:
  TMonitorProcCritSect();
  ~TMonitorProcCritSect();
  TMonitorProcCritSect(const TMonitorProcCritSect&) = delete;
  TMonitorProcCritSect& operator=(const TMonitorProcCritSect&) = delete;
};

#endif
