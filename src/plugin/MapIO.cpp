#include "plugin/MapIO.h"

#include <cerrno>
#include <cstring>
#include <vector>

namespace mapio {

namespace {
constexpr long long kTrozo = 1 << 20;

int ErrnoDe(TFicheroITV& f) {
  const int e = f.ErrnoSistema();
  return e;
}
}  // namespace

DString Mensaje(const char* verbo, const char* fichero, int errnum, const char* sin_errno) {
  DString m("Error: cannot ");
  m << verbo << " " << fichero << ": " << (errnum ? std::strerror(errnum) : sin_errno) << ".";
  return m;
}

bool Situa(TFicheroITV& f, long long pos, DString& msg) {
  if (f.Posicionate64(pos)) return true;
  msg = Mensaje("seek in", f.GetNombre().c_str(), ErrnoDe(f), "the position is outside it");
  return false;
}

bool Lee(TFicheroITV& f, long long pos, void* buf, long long n, DString& msg) {
  if (!Situa(f, pos, msg)) return false;
  char* p = static_cast<char*>(buf);
  while (n > 0) {
    const int k = static_cast<int>(n < kTrozo ? n : kTrozo);
    if (!f.LeeTokenBin(p, k, nullptr, -1)) {
      msg = Mensaje("read", f.GetNombre().c_str(), ErrnoDe(f));
      return false;
    }
    p += k;
    n -= k;
  }
  return true;
}

bool EscribeAqui(TFicheroITV& f, const void* buf, long long n, DString& msg) {
  const char* p = static_cast<const char*>(buf);
  while (n > 0) {
    const int k = static_cast<int>(n < kTrozo ? n : kTrozo);
    if (!f.PonTokenBin(p, k, nullptr, -1)) {
      msg = Mensaje("write", f.GetNombre().c_str(), ErrnoDe(f), "the write was cut short");
      return false;
    }
    p += k;
    n -= k;
  }
  return true;
}

bool Escribe(TFicheroITV& f, long long pos, const void* buf, long long n, DString& msg) {
  return Situa(f, pos, msg) && EscribeAqui(f, buf, n, msg);
}

bool Ceros(TFicheroITV& f, long long pos, long long n, DString& msg) {
  if (!Situa(f, pos, msg)) return false;
  std::vector<char> ceros(static_cast<size_t>(n < kTrozo ? (n > 0 ? n : 0) : kTrozo), 0);
  for (long long queda = n; queda > 0;) {
    const long long k = queda < kTrozo ? queda : kTrozo;
    if (!EscribeAqui(f, ceros.data(), k, msg)) return false;
    queda -= k;
  }
  return true;
}

bool Mueve(TFicheroITV& f, long long desde, long long d, long long fin, DString& msg) {
  if (d == 0) return true;
  // A range that ends before it starts moves nothing; towards the start the
  // bytes before its end still fall free, as in every move.
  if (fin <= desde) return d > 0 || Ceros(f, fin + d, -d, msg);
  if (f.MoveBytesEnd64(desde, d, 1 << 20, fin)) return true;
  msg = Mensaje("move data in", f.GetNombre().c_str(), ErrnoDe(f));
  return false;
}

bool MueveDesde(TFicheroITV& origen, TFicheroITV& f, long long desde, long long d, long long fin,
                DString& msg) {
  if (&origen == &f) return Mueve(f, desde, d, fin, msg);
  if (d == 0) return true;
  std::vector<unsigned char> buf;
  for (long long p = desde; p < fin; p += kTrozo) {
    const long long k = fin - p < kTrozo ? fin - p : kTrozo;
    buf.resize(static_cast<size_t>(k));
    if (!Lee(origen, p, buf.data(), k, msg) || !Escribe(f, p + d, buf.data(), k, msg)) return false;
  }
  // As the move in place: towards the start, the bytes that fall free become zeros.
  return d > 0 || Ceros(f, fin + d, -d, msg);
}

bool Vuelca(TFicheroITV& f, DString& msg) {
  if (f.Flush() == 0) return true;
  msg = Mensaje("write", f.GetNombre().c_str(), ErrnoDe(f), "the data could not be flushed");
  return false;
}

}  // namespace mapio
