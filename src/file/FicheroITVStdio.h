// FicheroITVStdio.h - the disk backend: a POSIX file descriptor with absolute
// 64-bit positions on every target. It buffers nothing: reads are buffered
// once, by the file object's read cache, and every write has reached the
// kernel when GuardaBytes returns.
#ifndef VARDA_FILE_FICHEROITVSTDIO_H
#define VARDA_FILE_FICHEROITVSTDIO_H

#include <cstdio>

#include "file/FicheroITVBase.h"
#include "string/DString.h"

class TFicheroITV_stdio : public TFicheroITV_Base {
 public:
  TFicheroITV_stdio() : fd(-1), pos(0), fin_datos(false), anyadir(false), error(0) {}
  // Closing is done through Cierra; a backend dropped open closes quietly.
  ~TFicheroITV_stdio() override;

  // The mode string in the C library's terms: exactly one of read, write
  // and append, then "+" for update, then "b". Throws "Error en
  // TFicheroITV::Abre" otherwise. The descriptor is opened with the same
  // meaning as a stream of that mode ("a": every write at the end).
  static void Calcula_str_stdio(int mode, DString& out);

  bool Abre(const TStringNomFitx& name, int& mode, DString* err) override;
  bool Cierra(DString* err) override;
  bool Abierto() const override { return fd >= 0; }
  bool LeeBytes(void* buf, int n) override;
  bool GuardaBytes(const void* buf, int n) override;
  // A seek to where the descriptor already stands makes no system call.
  bool Posicionate64(long long pos) override;
  // True after a read met the end of the data, until the next seek or write.
  bool eof() override { return fd < 0 || fin_datos; }
  long long PosActual64() override;
  long long FileSize64() override;
  // Nothing is held back: there is nothing to flush.
  int Flush() override { return 0; }
  int Errno() const override { return error; }
  // fdatasync.
  bool Sincroniza() override;
  // ftruncate.
  bool Trunca(long long largo) override;

 private:
  bool falla(int e) {
    error = e;
    return false;
  }

  int fd;
  // Where the descriptor stands; -1 when not known (after an appending
  // write, which lands at an end that only the kernel knows).
  long long pos;
  bool fin_datos;
  bool anyadir;
  int error;
  DString nombre;
};

// A new, closed disk backend owned by the caller.
TFicheroITV_Base* FicheroITV_new_Stdio();
// Opens with the C library; names are UTF-8 and passed through unchanged.
FILE* fopen_utf8(const char* path, const char* mode);

#endif
