// FicheroITVStdio.h - the disk backend: a thin layer over a C stream with
// absolute 64-bit positions on every target.
#ifndef VARDA_FILE_FICHEROITVSTDIO_H
#define VARDA_FILE_FICHEROITVSTDIO_H

#include <cstdio>

#include "file/FicheroITVBase.h"

class TFicheroITV_stdio : public TFicheroITV_Base {
 public:
  TFicheroITV_stdio() : f(nullptr), ultima(kNinguna) {}
  // Closing is always done through Cierra; the destructor leaves the stream.
  ~TFicheroITV_stdio() override {}

  // The stream mode string: exactly one of read, write and append, then "+"
  // for update, then "b". Throws "Error en TFicheroITV::Abre" otherwise.
  static void Calcula_str_stdio(int mode, DString& out);

  bool Abre(const TStringNomFitx& name, int& mode, DString* err) override;
  bool Cierra(DString* err) override;
  bool Abierto() const override { return f != nullptr; }
  bool LeeBytes(void* buf, int n) override;
  bool GuardaBytes(const void* buf, int n) override;
  // Returns true whatever the seek does: a bad seek shows at the next read.
  bool Posicionate64(long long pos) override;
  bool eof() override;
  long long PosActual64() override;
  long long FileSize64() override;
  int Flush() override;

 private:
  // On an update stream the C library needs a positioning call between a
  // write and a following read (and the other way round); the last direction
  // is kept so that the switch can be made legal without a seek per call.
  enum { kNinguna, kLectura, kEscritura };
  FILE* f;
  int ultima;
};

// A new, closed disk backend owned by the caller.
TFicheroITV_Base* FicheroITV_new_Stdio();
// Opens with the C library; names are UTF-8 and passed through unchanged.
FILE* fopen_utf8(const char* path, const char* mode);

#endif
