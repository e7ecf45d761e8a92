// FicheroITVEdit.cpp - moving bytes inside an open file, copying runs of
// bytes between files, and second views of an open backend.

#include <cstdio>
#include <memory>
#include <new>
#include <typeinfo>

#include "file/FicheroITV.h"
#include "thread/MonitorProc.h"

namespace {
// Block used by MoveBytesEnd on disk files whenever its size cannot change
// the outcome: the number of system calls falls with it.
constexpr int kBloqueGrande = 1 << 20;
// Block used when the caller gives none.
constexpr int kBloqueDefecto = 1 << 16;

long long min_ll(long long a, long long b) { return b < a ? b : a; }
long long max_ll(long long a, long long b) { return b > a ? b : a; }

// The monitor's text: kilobytes done, and the total when it is known.
void SetStrMonitorState(TMonitorProc* monitor) {
  if (!monitor) return;
  char texto[64];
  if (monitor->npasos < 2)
    std::snprintf(texto, sizeof texto, "%d Kb ", monitor->actual.load() >> 10);
  else
    std::snprintf(texto, sizeof texto, "%d Kb / %d Kb ", monitor->actual.load() >> 10,
                  monitor->npasos.load() >> 10);
  // A watcher may be reading the text from another thread.
  monitor->SetTexto(texto);
}
}  // namespace

// The move done with large blocks. Valid only where the block size cannot
// change the result: a plain disk file, uncached and unobserved, every byte
// of the range inside the file (so every read is complete) and every target
// position at or after 0 (so every seek lands). Overlap is safe in both
// directions because a shift towards the start goes front to back and a
// shift towards the end back to front.
bool TFicheroITV::mover_bloques_grandes(int desde, int d, int fin) {
  if (typeid(*this) != typeid(TFicheroITV) || cache || hook_escritura || !Abierto())
    return false;
  if (desde < 0 || fin <= desde) return false;
  if (d < 0 && static_cast<long long>(desde) + d < 0) return false;
  if (fin > FileSize64()) return false;

  long long largo = static_cast<long long>(fin) - desde;
  int bloque = static_cast<int>(min_ll(largo, kBloqueGrande));
  std::unique_ptr<char[]> buf(new (std::nothrow) char[static_cast<size_t>(bloque)]);
  if (!buf) return false;

  if (d < 0) {
    for (long long p = desde; p < fin; p += bloque) {
      int k = static_cast<int>(min_ll(fin - p, bloque));
      Posicionate64(p);
      LeeTokenBin(buf.get(), k, nullptr, -1);
      Posicionate64(p + d);
      PonTokenBin(buf.get(), k, nullptr, -1);
    }
    // The bytes that fall free at the end become zeros; the file keeps its
    // length, since truncating is the caller's business.
    Posicionate64(static_cast<long long>(fin) + d);
    if ((modo & (MODO_TEXTO | MODO_BINARIO)) == MODO_BINARIO) {
      std::memset(buf.get(), 0, static_cast<size_t>(bloque));
      for (long long queda = -static_cast<long long>(d); queda > 0; queda -= bloque)
        PonTokenBin(buf.get(), static_cast<int>(min_ll(queda, bloque)), nullptr, -1);
    } else {
      for (long long i = 0; i < -static_cast<long long>(d); i++) *this << static_cast<char>(0);
    }
  } else {
    long long f = fin;
    while (f > desde) {
      long long s = max_ll(f - bloque, desde);
      int k = static_cast<int>(f - s);
      Posicionate64(s);
      LeeTokenBin(buf.get(), k, nullptr, -1);
      Posicionate64(s + d);
      PonTokenBin(buf.get(), k, nullptr, -1);
      f = s;
    }
  }
  return true;
}

int TFicheroITV::MoveBytesEnd(int desde, int d, int tam_bloque, int fin) {
  if (d == 0) return 1;
  if (fin < 0) fin = FileSize();
  if (mover_bloques_grandes(desde, d, fin)) return 1;

  long long b = tam_bloque > 0 ? tam_bloque : kBloqueDefecto;
  long long tam = min_ll(static_cast<long long>(fin) - desde, b);
  if (tam < 1) tam = 1;
  std::unique_ptr<char[]> buf(new char[static_cast<size_t>(tam)]);
  if (d < 0) {
    for (long long p = desde; p < fin; p += b) {
      int k = static_cast<int>(min_ll(fin - p, b));
      Posicionate(static_cast<int>(p));
      LeeTokenBin(buf.get(), k, nullptr, -1);
      Posicionate(static_cast<int>(p + d));
      PonTokenBin(buf.get(), k, nullptr, -1);
    }
    buf.reset();
    Posicionate(static_cast<int>(static_cast<long long>(fin) + d));
    for (long long i = 0; i < -static_cast<long long>(d); i++) *this << static_cast<char>(0);
  } else {
    long long f = fin;
    while (f > desde) {
      long long s = max_ll(f - b, desde);
      int k = static_cast<int>(f - s);
      Posicionate(static_cast<int>(s));
      LeeTokenBin(buf.get(), k, nullptr, -1);
      Posicionate(static_cast<int>(s + d));
      PonTokenBin(buf.get(), k, nullptr, -1);
      f = s;
    }
  }
  return 1;
}

bool TFicheroITV::CopyFileData(TFicheroITV& destino, long long n, TMonitorProc* monitor,
                               bool bloque_grande) {
  if (!Abierto() || !destino.Abierto()) return false;
  if (monitor) {
    monitor->actual = 0;
    monitor->npasos = static_cast<int>(n);
    SetStrMonitorState(monitor);
  }
  // The small block lives on the stack; the large one is allocated once,
  // since a quarter of a megabyte on the stack is too much for threads of
  // the host.
  char pequeno[4096];
  std::unique_ptr<char[]> grande;
  char* buf = pequeno;
  long long bloque = 4096;
  if (bloque_grande) {
    grande.reset(new char[262144]);
    buf = grande.get();
    bloque = 262144;
  }
  while (n > 0) {
    int c = static_cast<int>(min_ll(n, bloque));
    LeeTokenBin(buf, c, nullptr, -1);
    destino.PonTokenBin(buf, c, nullptr, -1);
    n -= c;
    if (monitor) {
      monitor->actual += c;
      SetStrMonitorState(monitor);
      if (monitor->stop) return false;
    }
  }
  return true;
}

bool TFicheroITV::CreateDuplicate(TFicheroITV& origen, TStringNomFitx& nombre_dup) {
  if (Abierto()) return false;
  // A closed backend of our own (never the case after a normal close) would
  // otherwise be lost.
  if (backend && !duplicado) delete backend;
  duplicado = true;
  nombre = nombre_dup;
  backend = origen.backend;
  return true;
}

bool TFicheroITV::CreateDuplicateWithData(TFicheroITV& origen, TStringNomFitx& nombre_dup,
                                          char* datos, int n) {
  if (!CreateDuplicate(origen, nombre_dup)) return false;
  delete[] cache;
  cache = datos;
  long_fichero_cache = n;
  tam_cache = n;
  ini_cache = 0;
  fin_cache = n;
  limite_cache = n;
  error_cache = 0;
  // The offset is only a marker: it makes FileSize report n. With the cache
  // on, no seek reaches the borrowed backend.
  long_sub = n;
  offset_sub = 255;
  pon_pos_cache(0);
  return true;
}
