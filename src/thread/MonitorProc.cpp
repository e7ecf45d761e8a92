#include "thread/MonitorProc.h"

namespace {

// The lock is made on first use, so that a monitor built by another static
// initialiser still finds it; the reference below makes sure it exists once
// the library is loaded, before any thread but the loading one can run.
TCriticalSectionITV2& monitor_lock() {
  static TCriticalSectionITV2 lock;
  return lock;
}

TCriticalSectionITV2& monitor_lock_at_load = monitor_lock();

}  // namespace

TCriticalSectionITV& TMonitorProc::CritSect() { return monitor_lock().cs; }

// ---------------------------------------------------------------- TMonitorProc

TMonitorProc::TMonitorProc()
    : actual(-1),
      npasos(10),
      stop(false),
      reservado(0),
      padre(nullptr),
      hijo(nullptr),
      peso(0),
      marca(kMarcaFuncCancel),
      contexto_cancel(nullptr),
      func_cancel(nullptr) {
  Reset();
}

TMonitorProc::~TMonitorProc() {
  DeleteStr();
  TCriticalSectionITVEntra guard(CritSect());
  // A child that outlives this monitor must not reach it any more.
  if (hijo && hijo->padre == this) hijo->padre = nullptr;
  hijo = nullptr;
  TMonitorProc* p = padre;
  if (p && p->hijo == this) p->hijo = nullptr;
  padre = nullptr;
}

void TMonitorProc::Reset() {
  TCriticalSectionITVEntra guard(CritSect());
  actual = -1;
  npasos = 10;
  texto.Deletea();
  subtexto.Deletea();
  stop = false;
  reservado = 0;
  // Both links go, on both sides, so that neither monitor keeps a pointer to
  // the other once either is destroyed.
  TMonitorProc* p = padre;
  if (p && p->hijo == this) p->hijo = nullptr;
  padre = nullptr;
  if (hijo && hijo->padre == this) hijo->padre = nullptr;
  hijo = nullptr;
}

void TMonitorProc::Start(int n) {
  npasos = n;
  actual = 0;
  stop = false;
}

bool TMonitorProc::Incre(int n) {
  actual += n;
  if (stop) return false;
  TMonitorProc* p = padre;
  if (p) return !p->HayStop();
  return true;
}

bool TMonitorProc::HayStop() const {
  for (const TMonitorProc* m = this; m; m = m->padre)
    if (m->stop) return true;
  return false;
}

void TMonitorProc::SetNpasos(int n) {
  npasos = n;
  Actu();
}

void TMonitorProc::Cancelar() {
  // The flag goes first, so that the worker sees it without waiting for the
  // lock.
  stop = true;
  TCriticalSectionITVEntra guard(CritSect());
  if (func_cancel) func_cancel(contexto_cancel);
  if (hijo) hijo->Cancelar();
}

float TMonitorProc::Porcentaje() {
  TCriticalSectionITVEntra guard(CritSect());
  int n = npasos;
  if (n < 1) return 0.0f;
  float parte_hijo = 0.0f;
  if (hijo) {
    float p = hijo->Porcentaje() / 100.0f;
    parte_hijo = static_cast<float>(hijo->peso) * (p > 0.0f ? p : 0.0f);
  }
  float r = (static_cast<float>(actual.load()) + parte_hijo) / static_cast<float>(n);
  return 100.0f * (r > 0.0f ? r : 0.0f);
}

DString TMonitorProc::Texto_Proceso(bool recursivo) {
  TCriticalSectionITVEntra guard(CritSect());
  DString r(texto);
  if (!subtexto.IsEmpty()) {
    r += "  ";
    r += subtexto;
  }
  if (recursivo && hijo) {
    DString t = hijo->Texto_Proceso(true);
    if (!t.IsEmpty()) {
      r += " ";
      r += t;
    }
  }
  return r;
}

void TMonitorProc::DeleteStr() {
  TCriticalSectionITVEntra guard(CritSect());
  texto.Deletea();
  subtexto.Deletea();
}

void TMonitorProc::SetTexto(const char* s) {
  TCriticalSectionITVEntra guard(CritSect());
  texto = s;
}

void TMonitorProc::SetSubtexto(const char* s) {
  TCriticalSectionITVEntra guard(CritSect());
  subtexto = s;
}

// ---------------------------------------------------------------- TMonitorProcHijo

TMonitorProcHijo::TMonitorProcHijo(TMonitorProc* padre_, int peso_) {
  TCriticalSectionITVEntra guard(CritSect());
  padre = padre_;
  peso = peso_;
  if (padre_) {
    stop = padre_->stop.load();
    padre_->hijo = this;
  }
}

TMonitorProcHijo::~TMonitorProcHijo() {
  TCriticalSectionITVEntra guard(CritSect());
  TMonitorProc* p = padre;
  if (!p) return;
  // A child that goes counts as its whole weight, finished or not, and hands
  // its stop flag up as it stands: a child that cleared its own flag clears
  // the parent's too, which is what the callers of nested operations expect.
  p->actual += peso;
  if (p->hijo == this) p->hijo = nullptr;
  p->stop = stop.load();
  padre = nullptr;
}

void TMonitorProcHijo::Actu() {
  TMonitorProc* p = padre;
  if (p) p->Actu();
}

// ---------------------------------------------------------------- TMonitorProcCritSect

TMonitorProcCritSect::TMonitorProcCritSect() { TMonitorProc::CritSect().Entra(); }
TMonitorProcCritSect::~TMonitorProcCritSect() { TMonitorProc::CritSect().Sale(); }
