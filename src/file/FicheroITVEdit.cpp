// FicheroITVEdit.cpp - moving bytes inside an open file, copying runs of
// bytes between files, and second views of an open backend.

#include <cerrno>
#include <climits>
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

// Large blocks may be used only where the block size cannot change the
// result: a plain disk file, uncached, unobserved and not in append mode
// (where every write lands at the end, block by block), every byte of the
// range inside the file (so every read is complete) and every target
// position at or after 0 (so every seek lands). Overlap is safe in both
// directions because a shift towards the start goes front to back and a
// shift towards the end back to front.
bool TFicheroITV::bloques_grandes_validos(long long desde, long long d, long long fin) {
  if (typeid(*this) != typeid(TFicheroITV) || cache || hook_escritura || !Abierto() ||
      (modo & MODO_ANYADIR))
    return false;
  if (desde < 0 || fin <= desde) return false;
  if (d < 0 && desde + d < 0) return false;
  return fin <= FileSize64();
}

// A seek through the virtual int seek while the position fits, so that a
// derived file that replaces it is honoured. A memory file ignores a
// position past its content instead of failing: a checked move sees that.
bool TFicheroITV::coloca_mover(long long p, bool comprobado) {
  bool ok = p >= 0 && p <= INT_MAX ? Posicionate(static_cast<int>(p)) : Posicionate64(p);
  if (!ok) return false;
  if (comprobado && es_memoria && PosActual64() != p) return falla_propio(EINVAL);
  return true;
}

// The move of MoveBytesEnd and MoveBytesEnd64. Unchecked, every seek, read
// and write is made whatever the previous one gave, as MoveBytesEnd always
// did; checked, the first failure ends it.
bool TFicheroITV::mover(long long desde, long long d, int tam_bloque, long long fin,
                        bool comprobado) {
  bool grandes = bloques_grandes_validos(desde, d, fin);
  long long b = tam_bloque > 0 ? tam_bloque : kBloqueDefecto;
  std::unique_ptr<char[]> buf;
  if (grandes) {
    long long tam = min_ll(fin - desde, kBloqueGrande);
    buf.reset(new (std::nothrow) char[static_cast<size_t>(tam)]);
    if (buf) b = tam;
  }
  long long tam = max_ll(min_ll(fin - desde, b), 1);
  if (!buf) {
    // Zeroed: a read cut short by the end of the file leaves the rest of the
    // block as it is, and an unchecked move writes the block all the same.
    buf.reset(comprobado ? new (std::nothrow) char[static_cast<size_t>(tam)]()
                         : new char[static_cast<size_t>(tam)]());
    if (!buf) return falla_propio(ENOMEM);
  }
  auto paso = [comprobado](bool r) { return r || !comprobado; };
  char* p_buf = buf.get();

  if (d < 0) {
    for (long long p = desde; p < fin; p += b) {
      int k = static_cast<int>(min_ll(fin - p, b));
      if (!paso(coloca_mover(p, comprobado)) || !paso(LeeTokenBin(p_buf, k, nullptr, -1)) ||
          !paso(coloca_mover(p + d, comprobado)) || !paso(PonTokenBin(p_buf, k, nullptr, -1)))
        return false;
    }
    // The bytes that fall free at the end become zeros; the file keeps its
    // length, since truncating is the caller's business.
    if (!paso(coloca_mover(fin + d, comprobado))) return false;
    // In text mode MoveBytesEnd writes each zero as a token, as it always
    // did; raw zeros go out in blocks (unbuffered writes: one call per
    // block, not per byte).
    bool texto = (modo & (MODO_TEXTO | MODO_BINARIO)) != MODO_BINARIO;
    if (!comprobado && texto) {
      for (long long i = 0; i < -d; i++) *this << static_cast<char>(0);
    } else {
      std::memset(p_buf, 0, static_cast<size_t>(tam));
      for (long long queda = -d; queda > 0; queda -= tam)
        if (!paso(PonTokenBin(p_buf, static_cast<int>(min_ll(queda, tam)), nullptr, -1)))
          return false;
    }
  } else {
    long long f = fin;
    while (f > desde) {
      long long s = max_ll(f - b, desde);
      int k = static_cast<int>(f - s);
      if (!paso(coloca_mover(s, comprobado)) || !paso(LeeTokenBin(p_buf, k, nullptr, -1)) ||
          !paso(coloca_mover(s + d, comprobado)) || !paso(PonTokenBin(p_buf, k, nullptr, -1)))
        return false;
      f = s;
    }
  }
  return true;
}

int TFicheroITV::MoveBytesEnd(int desde, int d, int tam_bloque, int fin) {
  if (d == 0) return 1;
  if (fin < 0) fin = FileSize();
  mover(desde, d, tam_bloque, fin, false);
  return 1;
}

bool TFicheroITV::MoveBytesEnd64(long long desde, long long d, int tam_bloque, long long fin) {
  if (d == 0) return true;
  if (!es_memoria && !Abierto()) return falla_propio(EBADF);
  long long largo = FileSize64();
  if (fin < 0) fin = largo;
  // Writes do not pass through the read cache: a span could serve bytes
  // that the move has already replaced.
  if (cache || desde < 0 || fin < desde || fin > largo || desde + d < 0)
    return falla_propio(EINVAL);
  return mover(desde, d, tam_bloque, fin, true);
}

bool TFicheroITV::CopyFileData(TFicheroITV& destino, long long n, TMonitorProc* monitor,
                               bool bloque_grande) {
  if (!destino.Abierto()) {
    destino.falla_propio(EBADF);
    return falla_propio(EBADF);
  }
  if (!Abierto()) return falla_propio(EBADF);
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
    if (!LeeTokenBin(buf, c, nullptr, -1)) return false;
    if (!destino.PonTokenBin(buf, c, nullptr, -1)) return false;
    n -= c;
    if (monitor) {
      monitor->actual += c;
      SetStrMonitorState(monitor);
      // A stop is told apart from a failure by this object's error number.
      if (monitor->stop) return falla_propio(ECANCELED);
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
