// 64-bit file offsets for every stream this backend opens, on 32-bit targets
// too; must come before any system header.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif

#include "file/FicheroITVStdio.h"

#include <sys/types.h>

#include <cstdio>

#include "file/FicheroITV.h"
#include "filesys/StringNomFitx.h"
#include "string/DString.h"

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

bool TFicheroITV_stdio::Abre(const TStringNomFitx& name, int& mode, DString* err) {
  DString str_modo;
  Calcula_str_stdio(mode, str_modo);
  if (f) {
    std::fclose(f);
    f = nullptr;
  }
  ultima = kNinguna;
  f = fopen_utf8(name.c_str(), str_modo.c_str());
  if (!f) {
    TFicheroITV::ComposeStringError(err, (mode & MODO_ESCRIBIR) != 0, name, nullptr);
    return false;
  }
  return true;
}

bool TFicheroITV_stdio::Cierra(DString*) {
  if (f) std::fclose(f);
  f = nullptr;
  ultima = kNinguna;
  return true;
}

bool TFicheroITV_stdio::LeeBytes(void* buf, int n) {
  if (!f || n < 0) return false;
  if (ultima == kEscritura) ::fseeko(f, 0, SEEK_CUR);
  ultima = kLectura;
  return std::fread(buf, 1, static_cast<size_t>(n), f) == static_cast<size_t>(n);
}

bool TFicheroITV_stdio::GuardaBytes(const void* buf, int n) {
  if (!f || n < 0) return false;
  if (ultima == kLectura) ::fseeko(f, 0, SEEK_CUR);
  ultima = kEscritura;
  return std::fwrite(buf, 1, static_cast<size_t>(n), f) == static_cast<size_t>(n);
}

bool TFicheroITV_stdio::Posicionate64(long long pos) {
  if (f) {
    ::fseeko(f, static_cast<off_t>(pos), SEEK_SET);
    ultima = kNinguna;
  }
  return true;
}

bool TFicheroITV_stdio::eof() { return !f || std::feof(f) != 0; }

long long TFicheroITV_stdio::PosActual64() {
  if (!f) return 0;
  off_t p = ::ftello(f);
  return p < 0 ? 0 : static_cast<long long>(p);
}

long long TFicheroITV_stdio::FileSize64() {
  if (!f) return 0;
  long long antes = PosActual64();
  ::fseeko(f, 0, SEEK_END);
  long long fin = PosActual64();
  Posicionate64(antes);
  return fin;
}

int TFicheroITV_stdio::Flush() { return f ? std::fflush(f) : 0; }
