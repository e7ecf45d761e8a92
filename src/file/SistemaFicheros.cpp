// SistemaFicheros.cpp - the disk as the default file system, and the switch
// that lets a test or the fuzz target put another in its place.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif

#include "file/SistemaFicheros.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>

#include "file/FicheroITVStdio.h"

namespace {

class TSistemaDisco : public TSistemaFicheros {
 public:
  TFicheroITV_Base* NuevoBackend(const TStringNomFitx&, int) override {
    return FicheroITV_new_Stdio();
  }

  TTipo Tipo(const char* nombre) override {
    struct stat st;
    if (!nombre || ::stat(nombre, &st) != 0) return kNoExiste;
    return S_ISREG(st.st_mode) ? kRegular : kOtro;
  }

  long long Tamanyo(const char* nombre) override {
    struct stat st;
    if (!nombre || ::stat(nombre, &st) != 0) return -1;
    if (!S_ISREG(st.st_mode)) {
      errno = EINVAL;
      return -1;
    }
    return static_cast<long long>(st.st_size);
  }

  // A file is unlinked; an empty folder, which the same name may denote,
  // is removed as a folder.
  bool Borra(const char* nombre) override {
    if (!nombre) return falla(ENOENT);
    if (::unlink(nombre) == 0) return true;
    int e = errno;
    struct stat st;
    if ((e == EISDIR || e == EPERM) && ::lstat(nombre, &st) == 0 && S_ISDIR(st.st_mode))
      return ::rmdir(nombre) == 0;
    errno = e;
    return false;
  }

  bool Renombra(const char* de, const char* a) override {
    if (!de || !a) return falla(ENOENT);
    return ::rename(de, a) == 0;
  }

  bool SincronizaCarpeta(const char* nombre) override {
    if (!nombre) return falla(ENOENT);
    std::string carpeta(nombre);
    size_t barra = carpeta.find_last_of('/');
    if (barra == std::string::npos)
      carpeta = ".";
    else if (barra == 0)
      carpeta = "/";
    else
      carpeta.resize(barra);
    int fd;
    do {
      fd = ::open(carpeta.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return false;
    int r;
    do {
      r = ::fsync(fd);
    } while (r != 0 && errno == EINTR);
    int e = errno;
    ::close(fd);
    if (r != 0) {
      errno = e;
      return false;
    }
    return true;
  }

 private:
  static bool falla(int e) {
    errno = e;
    return false;
  }
};

// Built on first use, so that static initialisers of other files may
// already open files.
TSistemaFicheros& disco() {
  static TSistemaDisco d;
  return d;
}
std::atomic<TSistemaFicheros*> en_uso{nullptr};

}  // namespace

TSistemaFicheros& SistemaFicheros() {
  TSistemaFicheros* s = en_uso.load(std::memory_order_acquire);
  return s ? *s : disco();
}

TSistemaFicheros* CambiaSistemaFicheros(TSistemaFicheros* s) {
  TSistemaFicheros* antes = en_uso.exchange(s, std::memory_order_acq_rel);
  return antes ? antes : &disco();
}
