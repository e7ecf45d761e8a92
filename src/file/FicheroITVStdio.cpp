// 64-bit file offsets on 32-bit targets too; must come before any system
// header.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif

#include "file/FicheroITVStdio.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "file/FicheroITV.h"
#include "filesys/StringNomFitx.h"

static_assert(sizeof(off_t) == 8, "the disk backend needs 64-bit file offsets");

FILE* fopen_utf8(const char* path, const char* mode) { return std::fopen(path, mode); }

TFicheroITV_Base* FicheroITV_new_Stdio() { return new TFicheroITV_stdio(); }

void TFicheroITV_stdio::Calcula_str_stdio(int mode, DString& out) {
  int tipo = mode & (MODO_LEER | MODO_ESCRIBIR | MODO_ANYADIR);
  const char* base;
  if (tipo == MODO_LEER)
    base = "r";
  else if (tipo == MODO_ESCRIBIR)
    base = "w";
  else if (tipo == MODO_ANYADIR)
    base = "a";
  else
    throw "Error en TFicheroITV::Abre";
  out = base;
  if (mode & MODO_ACTUALIZAR) out << "+";
  out << "b";
}

TFicheroITV_stdio::~TFicheroITV_stdio() {
  if (fd >= 0) ::close(fd);
}

bool TFicheroITV_stdio::Abre(const TStringNomFitx& name, int& mode, DString* err) {
  DString str_modo;
  Calcula_str_stdio(mode, str_modo);
  if (fd >= 0) {
    ::close(fd);
    fd = -1;
  }
  // The open flags of a C stream of the same mode string.
  const char* m = str_modo.c_str();
  bool mas = m[1] == '+';
  int flags = O_CLOEXEC;
  switch (m[0]) {
    case 'r':
      flags |= mas ? O_RDWR : O_RDONLY;
      break;
    case 'w':
      flags |= (mas ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC;
      break;
    default:
      flags |= (mas ? O_RDWR : O_WRONLY) | O_CREAT | O_APPEND;
      break;
  }
  anyadir = m[0] == 'a';
  fin_datos = false;
  error = 0;
  nombre = name.c_str();
  do {
    fd = ::open(name.c_str(), flags, 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    error = errno;
    TFicheroITV::ComposeStringError(err, (mode & MODO_ESCRIBIR) != 0, name, nullptr);
    errno = error;
    return false;
  }
  pos = 0;
  // A write-only append stream starts at the end; one that may also read
  // starts at 0 for its reads.
  if (anyadir && !mas) {
    off_t fin = ::lseek(fd, 0, SEEK_END);
    pos = fin < 0 ? -1 : static_cast<long long>(fin);
  }
  return true;
}

bool TFicheroITV_stdio::Cierra(DString* err) {
  if (fd < 0) return true;
  // The descriptor is gone whatever close answers (a retry could close a
  // descriptor opened meanwhile by another thread).
  int r = ::close(fd);
  int e = errno;
  fd = -1;
  fin_datos = false;
  if (r != 0) {
    error = e;
    if (err) {
      TFicheroITV::ComposeStringError(err, true, TStringNomFitx(nombre.c_str()),
                                      std::strerror(e));
    }
    errno = e;
    return false;
  }
  return true;
}

namespace {

// Repeats `llamada(offset, remaining)` (a read or a write) until n bytes are
// done. Returns the bytes done; `e` is the error number of a failed call, or
// 0 when the call answered 0 bytes (the end of the data, for a read).
template <class Llamada>
int repite(Llamada llamada, int n, int& e) {
  int hecho = 0;
  e = 0;
  while (hecho < n) {
    ssize_t r = llamada(hecho, static_cast<size_t>(n - hecho));
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) {
      if (r < 0) e = errno;
      break;
    }
    hecho += static_cast<int>(r);
  }
  return hecho;
}

}  // namespace

bool TFicheroITV_stdio::LeeBytes(void* buf, int n) {
  if (fd < 0) return falla(EBADF);
  if (n < 0) return falla(EINVAL);
  char* p = static_cast<char*>(buf);
  int e;
  int hecho = repite([&](int off, size_t k) { return ::read(fd, p + off, k); }, n, e);
  if (pos >= 0) pos += hecho;
  if (hecho == n) return true;
  if (e == 0) fin_datos = true;
  return falla(e);
}

bool TFicheroITV_stdio::GuardaBytes(const void* buf, int n) {
  if (fd < 0) return falla(EBADF);
  if (n < 0) return falla(EINVAL);
  const char* p = static_cast<const char*>(buf);
  fin_datos = false;
  int e;
  int hecho = repite([&](int off, size_t k) { return ::write(fd, p + off, k); }, n, e);
  if (anyadir)
    pos = -1;
  else if (pos >= 0)
    pos += hecho;
  if (hecho == n) return true;
  // A write that takes nothing and gives no reason is an I/O error.
  if (e == 0) e = EIO;
  errno = e;
  return falla(e);
}

bool TFicheroITV_stdio::Posicionate64(long long p) {
  if (fd < 0) return falla(EBADF);
  if (p < 0) {
    errno = EINVAL;
    return falla(EINVAL);
  }
  fin_datos = false;
  if (p == pos) return true;
  off_t r = ::lseek(fd, static_cast<off_t>(p), SEEK_SET);
  if (r < 0) return falla(errno);
  pos = p;
  return true;
}

long long TFicheroITV_stdio::PosActual64() {
  if (fd < 0) return 0;
  if (pos < 0) {
    off_t r = ::lseek(fd, 0, SEEK_CUR);
    if (r < 0) {
      error = errno;
      return 0;
    }
    pos = static_cast<long long>(r);
  }
  return pos;
}

long long TFicheroITV_stdio::FileSize64() {
  if (fd < 0) return 0;
  struct stat st;
  if (::fstat(fd, &st) != 0) {
    error = errno;
    return 0;
  }
  return static_cast<long long>(st.st_size);
}

bool TFicheroITV_stdio::Sincroniza() {
  if (fd < 0) return falla(EBADF);
  int r;
  do {
    r = ::fdatasync(fd);
  } while (r != 0 && errno == EINTR);
  return r == 0 || falla(errno);
}

bool TFicheroITV_stdio::Trunca(long long largo) {
  if (fd < 0) return falla(EBADF);
  if (largo < 0) {
    errno = EINVAL;
    return falla(EINVAL);
  }
  int r;
  do {
    r = ::ftruncate(fd, static_cast<off_t>(largo));
  } while (r != 0 && errno == EINTR);
  return r == 0 || falla(errno);
}
