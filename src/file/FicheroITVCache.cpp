// FicheroITVCache.cpp - the read cache and every positioning operation.
//
// While the cache is on, one span of at most 64 KiB of the file is held in
// `cache`; pos_cache() is the logical position, and the backend is touched
// only when a read leaves the span.

#include <cerrno>
#include <new>

#include "file/FicheroITV.h"

namespace {
constexpr int kTamSpan = 0x10000;
}

void TFicheroITV::actualiza_rapido() {
  bool permitido = cache && !es_memoria && long_fichero_cache >= 0 && base_cache == ini_cache &&
                   (modo & (MODO_TEXTO | MODO_BINARIO)) == MODO_BINARIO;
  lim_off = permitido ? static_cast<long>(fin_cache - ini_cache) : 0;
}

void TFicheroITV::pon_pos_cache(long long p) {
  if (cache && p >= ini_cache && p - ini_cache <= fin_cache - ini_cache) {
    base_cache = ini_cache;
    off_cache = static_cast<long>(p - ini_cache);
  } else {
    base_cache = p;
    off_cache = 0;
  }
  actualiza_rapido();
}

void TFicheroITV::SetCache(bool on) {
  if (on == (cache != nullptr)) return;
  if (!on) {
    // The backend stays where the last load left it; callers seek explicitly.
    delete[] cache;
    cache = nullptr;
    actualiza_rapido();
    return;
  }
  long long pos = PosActual64();
  // A memory file measures itself through its own FileSize; a disk file is
  // measured in 64 bits so that large files keep a correct end of data.
  limite_cache = es_memoria ? FileSize() : FileSize64();
  if (long_sub > 0 && offset_sub > 0)
    long_fichero_cache = long_sub;
  else
    long_fichero_cache = backend ? backend->FileSize64() : 0;
  error_cache = 0;
  long long tam = long_fichero_cache < kTamSpan ? long_fichero_cache : kTamSpan;
  if (backend && !backend->AceptasRandomPos()) tam = long_fichero_cache;
  if (tam < 0) tam = 0;
  if (tam > 0x7fffffffLL) tam = 0x7fffffffLL;
  char* nuevo = new (std::nothrow) char[static_cast<size_t>(tam)];
  if (!nuevo) return;  // no memory for the span: the file is read uncached
  tam_cache = static_cast<int>(tam);
  cache = nuevo;
  ini_cache = fin_cache = pos;
  pon_pos_cache(pos);
  LoadCache(pos);
}

bool TFicheroITV::LoadCache(long long pos) {
  long long p = pos_cache();
  bool ok = carga_span(pos, p);
  pon_pos_cache(p);
  return ok;
}

// Loads the span for `pos`; on success `nueva` receives the new logical
// position, on failure it is left alone.
bool TFicheroITV::carga_span(long long pos, long long& nueva) {
  long long start = pos;
  if (margen_cache != 0) {
    start = pos - margen_cache;
    if (start < 0) start = 0;
  }
  if (!coloca_backend(start + offset_sub)) {
    error_cache = 1;
    return false;
  }
  ini_cache = start;
  fin_cache = start + tam_cache;
  if (fin_cache > limite_cache) fin_cache = limite_cache;
  bool movido = false;
  if (fin_cache - ini_cache < 1) {
    // At or past the end of the data: pull the span back so that it ends
    // there and stays full.
    ini_cache = fin_cache - tam_cache;
    if (ini_cache <= 0) ini_cache = 0;
    movido = true;
    if (fin_cache - ini_cache < 1) return falla_propio(0);
  }
  if (ini_cache != start && !coloca_backend(ini_cache + offset_sub)) {
    fin_cache = ini_cache;
    error_cache = 1;
    return false;
  }
  if (!backend->LeeBytes(cache, static_cast<int>(fin_cache - ini_cache))) {
    // What was read is not the file's: serve nothing from it.
    falla_backend();
    fin_cache = ini_cache;
    error_cache = 1;
    return false;
  }
  // When the span was pulled back the requested position is kept in its low
  // 32 bits only: files served through the cache stay below 2 GiB.
  nueva = movido ? static_cast<long long>(static_cast<int>(pos)) : start;
  return true;
}

// Reading forward through the cache loads span after span where the backend
// already stands: no seek is made for them.
bool TFicheroITV::coloca_backend(long long p) {
  if (!backend) return falla_propio(EBADF);
  if (backend->PosActual64() == p) return true;
  return backend->Posicionate64(p) || falla_backend(true);
}

bool TFicheroITV::lee_cache(void* buf, int n, int chunk) {
  if (n < 0) return falla_propio(EINVAL);
  if (n > tam_cache) {
    // Larger than the span: straight from the backend, the span untouched.
    long long p = pos_cache();
    bool colocado = coloca_backend(p + offset_sub);
    pon_pos_cache(p + n);
    return colocado && (backend->LeeBytes(buf, n) || falla_backend());
  }
  if (long_fichero_cache < 0) return falla_propio(0);
  if (pos_cache() + n > fin_cache && !LoadCache(pos_cache())) return false;
  long long p = pos_cache();
  long long off = p - ini_cache;
  if (off > tam_cache) return falla_propio(0);
  long long validos = fin_cache - ini_cache;
  char* dest = static_cast<char*>(buf);
  if (off < 0 || off >= validos) {
    // Nothing of the request lies in the data: fail without moving.
    std::memset(dest, 0, static_cast<size_t>(n));
    return falla_propio(0);
  }
  // Bytes past the end of the data read as zeros, never as stale buffer.
  long long copiables = validos - off;
  if (copiables >= n) {
    std::memcpy(dest, cache + off, static_cast<size_t>(n));
  } else {
    std::memcpy(dest, cache + off, static_cast<size_t>(copiables));
    std::memset(dest + copiables, 0, static_cast<size_t>(n - copiables));
  }
  pon_pos_cache(p + n);
  return chunk != 0;
}

bool TFicheroITV::PosicionateCache(long long pos) {
  if (ini_cache <= pos && pos <= fin_cache) {
    pon_pos_cache(pos);
    return true;
  }
  return LoadCache(pos);
}

bool TFicheroITV::Posicionate64(long long pos) {
  if (es_memoria) return Posicionate(static_cast<int>(pos));
  if (cache) return PosicionateCache(pos);
  if (!backend) return falla_propio(EBADF);
  return backend->Posicionate64(pos + offset_sub) || falla_backend(true);
}

bool TFicheroITV::Posicionate(int pos) { return Posicionate64(pos); }

long long TFicheroITV::PosActual64() {
  long long p;
  if (cache)
    p = pos_cache();
  else
    p = backend ? backend->PosActual64() - offset_sub : 0;
  return p - num_devueltos;
}

int TFicheroITV::PosActual() { return static_cast<int>(PosActual64()); }

long long TFicheroITV::FileSize64() {
  if (es_memoria) return FileSize();
  if (long_sub > 0 && offset_sub > 0) return long_sub;
  return backend ? backend->FileSize64() : 0;
}

int TFicheroITV::FileSize() { return static_cast<int>(FileSize64()); }

bool TFicheroITV::eof() {
  if (cache) return error_cache ? true : pos_cache() >= limite_cache;
  return backend ? backend->eof() : true;
}

void TFicheroITV::Skip(int n) {
  long long destino = PosActual64() + n;
  if (cache) {
    if (ini_cache <= destino && destino <= fin_cache) {
      pon_pos_cache(destino);
    } else {
      LoadCache(destino);
    }
  } else {
    Posicionate64(destino);
  }
}

int TFicheroITV::fgetc_dir() {
  char c = 0;
  if (!LeeTokenBin(&c, 1, nullptr, -1)) return 0;
  return static_cast<signed char>(c);
}
