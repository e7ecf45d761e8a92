// FicheroITVStream.cpp - raw runs of bytes and the typed stream operators.
//
// One set of operators serves two encodings chosen by the open mode: raw
// little-endian bytes with MODO_BINARIO, decimal text tokens followed by the
// separator byte with MODO_TEXTO. Bytes are never swapped here.

#include <cerrno>
#include <cstdint>

#include "file/FicheroITV.h"
#include "file/MultipleFiles.h"
#include "thread/MonitorProc.h"

// ------------------------------------------------------------- raw runs

bool TFicheroITV::PonTokenBin(const void* buf, int n, TMonitorProc* monitor, int chunk) {
  if (hook_escritura) hook_escritura(hook_contexto, buf, n);
  if (monitor) {
    monitor->actual = 0;
    monitor->npasos = n;
    int paso = chunk > 0 ? chunk : 32000;
    const char* p = static_cast<const char*>(buf);
    int hecho = 0;
    while (hecho < n) {
      int c = n - hecho < paso ? n - hecho : paso;
      if (!PonTokenBin(p + hecho, c, nullptr, -1)) return false;
      hecho += c;
      monitor->actual = hecho;
      if (monitor->stop) return false;
    }
    return true;
  }
  if (!backend) return falla_propio(EBADF);
  return backend->GuardaBytes(buf, n) || falla_backend(true);
}

bool TFicheroITV::LeeTokenBin(void* buf, int n, TMonitorProc* monitor, int chunk) {
  if (cache && buf != cache) {
    if (n >= 0 && lee_span(buf, n)) return chunk != 0;
    return lee_cache(buf, n, chunk);
  }
  if (monitor && chunk > 0) {
    monitor->actual = 0;
    monitor->npasos = n;
    char* p = static_cast<char*>(buf);
    int hecho = 0;
    while (hecho < n) {
      int c = n - hecho < chunk ? n - hecho : chunk;
      if (!LeeTokenBin(p + hecho, c, nullptr, -1)) return false;
      hecho += c;
      monitor->actual = hecho;
      if (monitor->stop) return false;
    }
    return true;
  }
  if (!backend) return falla_propio(EBADF);
  return backend->LeeBytes(buf, n) || falla_backend();
}

// ------------------------------------------------------------- writing

void TFicheroITV::PonTokenText(const char* s) {
  if (!s) s = "";
  PonTokenBin(s, static_cast<int>(std::strlen(s)), nullptr, -1);
  if (separador) PonTokenBin(&separador, 1, nullptr, -1);
}

TFicheroITV& TFicheroITV::operator<<(char v) {
  if (modo & MODO_TEXTO) {
    char t[2] = {v, 0};
    PonTokenText(t);
  } else if (modo & MODO_BINARIO) {
    PonTokenBin(&v, 1, nullptr, -1);
  }
  return *this;
}

TFicheroITV& TFicheroITV::operator<<(unsigned char v) {
  return *this << static_cast<char>(v);
}

TFicheroITV& TFicheroITV::operator<<(bool v) {
  if (modo & MODO_TEXTO) {
    PonTokenText(v ? "1" : "0");
  } else if (modo & MODO_BINARIO) {
    char b = v ? 1 : 0;
    PonTokenBin(&b, 1, nullptr, -1);
  }
  return *this;
}

namespace {

// One typed write: in text mode `texto` formatted by the string layer as a
// token, in binary mode the bytes of `bin`, as the machine holds them.
template <class Texto, class Bin>
TFicheroITV& PonTipo(TFicheroITV& f, Texto texto, Bin bin) {
  if (f.GetModo() & MODO_TEXTO) {
    DString t;
    t << texto;
    f.PonTokenText(t.c_str());
  } else if (f.GetModo() & MODO_BINARIO) {
    f.PonTokenBin(&bin, static_cast<int>(sizeof bin), nullptr, -1);
  }
  return f;
}

}  // namespace

TFicheroITV& TFicheroITV::operator<<(short v) { return PonTipo(*this, v, v); }
TFicheroITV& TFicheroITV::operator<<(unsigned short v) {
  return PonTipo(*this, static_cast<int>(v), v);
}
TFicheroITV& TFicheroITV::operator<<(int v) { return PonTipo(*this, v, v); }
TFicheroITV& TFicheroITV::operator<<(unsigned int v) { return PonTipo(*this, v, v); }
// `long` is a 32-bit field in the file on every target.
TFicheroITV& TFicheroITV::operator<<(long v) {
  return PonTipo(*this, v, static_cast<int32_t>(v));
}
TFicheroITV& TFicheroITV::operator<<(unsigned long v) {
  return PonTipo(*this, v, static_cast<uint32_t>(v));
}
// Text files carry 32-bit values: only the low half is printed.
TFicheroITV& TFicheroITV::operator<<(long long v) {
  return PonTipo(*this, static_cast<int>(v), v);
}
TFicheroITV& TFicheroITV::operator<<(float v) { return PonTipo(*this, v, v); }
TFicheroITV& TFicheroITV::operator<<(double v) { return PonTipo(*this, v, v); }

TFicheroITV& TFicheroITV::operator<<(const char* s) {
  if (!s) s = "";
  if (modo & MODO_TEXTO) {
    PonTokenText(s);
  } else if (modo & MODO_BINARIO) {
    size_t largo = std::strlen(s);
    uint16_t l = static_cast<uint16_t>(largo);
    PonTokenBin(&l, 2, nullptr, -1);
    PonTokenBin(s, l, nullptr, -1);
    char nul = 0;
    PonTokenBin(&nul, 1, nullptr, -1);
  }
  return *this;
}

int TFicheroITV::SetVersion(int v) {
  *this << v;
  version = v;
  return v;
}

void TFicheroITV::Guarda_BOM(int cp) {
  if (cp == 65001 && PosActual() < 1) {
    static const unsigned char bom[3] = {0xEF, 0xBB, 0xBF};
    PonTokenBin(bom, 3, nullptr, -1);
  }
}

bool TFicheroITV::SetKey(const char* key, int len) {
  if (long_sub == 0) return true;
  clave = key;
  long_clave = len;
  if (vMultipleFiles) vMultipleFiles->PonClave(nombre, key, len);
  return true;
}

// ------------------------------------------------------------- reading

bool TFicheroITV::lee_texto_tipo(DString& dato) {
  if (!(modo & MODO_TEXTO)) return false;
  get_dato_texto(dato);
  return true;
}

TFicheroITV& TFicheroITV::lee_char(char& v) {
  if (modo & MODO_TEXTO) v = static_cast<char>(fgetc());
  if (modo & MODO_BINARIO) LeeTokenBin(&v, 1, nullptr, -1);
  return *this;
}

TFicheroITV& TFicheroITV::lee_uchar(unsigned char& v) {
  if (modo & MODO_TEXTO) v = static_cast<unsigned char>(fgetc());
  if (modo & MODO_BINARIO) LeeTokenBin(&v, 1, nullptr, -1);
  return *this;
}

TFicheroITV& TFicheroITV::operator>>(bool& v) {
  DString dato;
  if (lee_texto_tipo(dato)) v = dato.atoi() != 0;
  if (modo & MODO_BINARIO) {
    char b = 0;
    if (lee_rapido(&b, 1) || LeeTokenBin(&b, 1, nullptr, -1)) v = b != 0;
  }
  return *this;
}

TFicheroITV& TFicheroITV::lee_short(short& v) {
  DString dato;
  if (lee_texto_tipo(dato)) v = static_cast<short>(dato.atoi());
  if (modo & MODO_BINARIO) LeeTokenBin(&v, 2, nullptr, -1);
  return *this;
}

TFicheroITV& TFicheroITV::lee_ushort(unsigned short& v) {
  DString dato;
  if (lee_texto_tipo(dato)) v = static_cast<unsigned short>(dato.atoi());
  if (modo & MODO_BINARIO) LeeTokenBin(&v, 2, nullptr, -1);
  return *this;
}

TFicheroITV& TFicheroITV::lee_int(int& v) {
  DString dato;
  if (lee_texto_tipo(dato)) v = dato.atoi();
  if (modo & MODO_BINARIO) LeeTokenBin(&v, 4, nullptr, -1);
  return *this;
}

TFicheroITV& TFicheroITV::lee_uint(unsigned int& v) {
  DString dato;
  if (lee_texto_tipo(dato)) v = static_cast<unsigned int>(dato.atoi());
  if (modo & MODO_BINARIO) LeeTokenBin(&v, 4, nullptr, -1);
  return *this;
}

TFicheroITV& TFicheroITV::operator>>(unsigned long& v) {
  DString dato;
  if (lee_texto_tipo(dato)) v = static_cast<unsigned long>(static_cast<unsigned int>(dato.atoi()));
  if (modo & MODO_BINARIO) {
    uint32_t w = static_cast<uint32_t>(v);
    if (lee_rapido(&w, 4) || LeeTokenBin(&w, 4, nullptr, -1)) v = w;
  }
  return *this;
}

TFicheroITV& TFicheroITV::lee_ll(long long& v) {
  DString dato;
  if (lee_texto_tipo(dato)) v = dato.atoi();
  if (modo & MODO_BINARIO) LeeTokenBin(&v, 8, nullptr, -1);
  return *this;
}

TFicheroITV& TFicheroITV::lee_float(float& v) {
  DString dato;
  if (lee_texto_tipo(dato)) v = static_cast<float>(dato.atof(false));
  if (modo & MODO_BINARIO) LeeTokenBin(&v, 4, nullptr, -1);
  return *this;
}

TFicheroITV& TFicheroITV::lee_double(double& v) {
  DString dato;
  if (lee_texto_tipo(dato)) v = dato.atof(false);
  if (modo & MODO_BINARIO) LeeTokenBin(&v, 8, nullptr, -1);
  return *this;
}

TFicheroITV& TFicheroITV::operator>>(DString& s) {
  // Text: the datum is appended and not converted; binary: the string is
  // replaced and converted from the file's code page.
  if (modo & MODO_TEXTO) get_dato_texto(s);
  if (!(modo & MODO_BINARIO)) return *this;
  long long largo = 2;
  if (ancho_longitud == 4) {
    int32_t l = 0;
    LeeTokenBin(&l, 4, nullptr, -1);
    largo = l;
  } else if (ancho_longitud == 2) {
    uint16_t l = 0;
    LeeTokenBin(&l, 2, nullptr, -1);
    largo = l;
  } else if (ancho_longitud == 1) {
    unsigned char l = 0;
    LeeTokenBin(&l, 1, nullptr, -1);
    largo = l;
  }
  if (largo == 0) {
    char nul;
    LeeTokenBin(&nul, 1, nullptr, -1);
    s = "";
    return *this;
  }
  // A corrupt 32-bit prefix must not make the string allocate what the file
  // cannot hold.
  if (largo < 0 || largo > 0x7ffffff0LL ||
      (ancho_longitud == 4 && largo + 1 > FileSize64() - PosActual64())) {
    s = "";
    return *this;
  }
  int l = static_cast<int>(largo);
  s.Incre_A(l + 1, true);
  char* p = s.buffer();
  std::memset(p, 0, static_cast<size_t>(l) + 1);
  LeeTokenBin(p, l + 1, nullptr, -1);
  p[l] = 0;
  TransformStrCodepage(s);
  return *this;
}
