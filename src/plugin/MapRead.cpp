// Reading a map: walks the .shp strictly forward, checks each record against
// its .shx entry, and hands every shape to the host's reader.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>

#include "VardaPlugIn.h"
#include "plugin/MapIO.h"
#include "plugin/MapRead.h"
#include "plugin/PrivateDataSHP.h"
#include "plugin/ShapeFileLayout.h"
#include "plugin/ShapeReader.h"
#include "plugin/exports/Export.h"

namespace {

// Composes "Error: record N of the SHP file ..." for damage that the format
// rules do not name themselves.
void ErrorRegistro(TStringPlugIn* err, int registro, const char* que) {
  DString msg("Error: record ");
  msg << registro << " of the SHP file: " << que << ".";
  EnviaError(err, msg.c_str());
}

// n bytes at the current position: straight from the read cache's span when
// they are there (no call out of line), else through LeeTokenBin.
inline bool LeeBytes(TFicheroITV& f, void* destino, int n) {
  if (const char* p = f.LeeEnSpan(n)) {
    std::memcpy(destino, p, static_cast<size_t>(n));
    return true;
  }
  return f.LeeTokenBin(destino, n, nullptr, -1);
}

// How one record ends the walk, or lets it go on.
enum class TPaso { kSigue, kFallo, kFinConExito };

// Shape types by the reader that takes them; kNinguna is read and skipped.
enum class TFamilia { kPunto, kLinea, kMultiPunto, kNinguna };

constexpr TFamilia FamiliaDe(int32_t T) {
  switch (T) {
    case shp::kPoint:
    case shp::kPointZ:
      return TFamilia::kPunto;
    case shp::kPolyLine:
    case shp::kPolygon:
    case shp::kPolyLineZ:
    case shp::kPolygonZ:
      return TFamilia::kLinea;
    case shp::kMultiPoint:
    case shp::kMultiPointZ:
      return TFamilia::kMultiPunto;
    default:
      return TFamilia::kNinguna;
  }
}

class LecturaMapa {
 public:
  LecturaMapa(TPrivateDataSHP& d, TReadVectorMapPlugIn* reader, TStringPlugIn* err,
              TProgressPlugIn* progress)
      : d_(d), F_(d.Shp()), X_(d.Shx()), reader_(reader), err_(err), progress_(progress) {}

  TResultado Lee();

 private:
  bool Cancelado() { return progress_ && progress_->IsCancelled(); }
  void Avanza(long long n) {
    if (progress_) progress_->Advance(static_cast<int32_t>(n));
  }
  // Damage found: the message goes out and the map is marked as refused, so
  // that no edit builds on what could not be read.
  TResultado Rechaza(const char* texto) {
    if (!FalloDelSistema()) EnviaError(err_, texto);
    rechazado_ = true;
    return TResultado::kFallo;
  }
  TPaso RechazaRegistro(int registro, const char* que) {
    if (!FalloDelSistema()) ErrorRegistro(err_, registro, que);
    rechazado_ = true;
    return TPaso::kFallo;
  }
  // A read the system refused (an I/O error, not a file that ends early) is
  // not damage of the map: the message names the file and the reason.
  bool FalloDelSistema() {
    TFicheroITV* f = F_.ErrnoSistema()                      ? &F_
                     : d_.ShxAbierto() && X_.ErrnoSistema() ? &X_
                                                            : nullptr;
    if (!f) return false;
    EnviaError(err_, mapio::Mensaje("read", f->GetNombre().c_str(), f->ErrnoSistema()).c_str());
    return true;
  }
  bool ComparaCabeceras(long long N);
  TResultado Recorre(long long N);
  // Delivers the records that lie wholly inside the loaded spans of both
  // files and need none of the checks' slow ends, straight from the spans;
  // stops at the first one that does, which the general step then takes.
  // Returns false when a record was refused or the host cancelled.
  bool RecorreSpan(long long N, long long& P, TResultado& r);
  // The same walk for one shape family, its delivery chosen at compile time.
  template <TFamilia kFamilia>
  bool RecorreSpanDe(long long N, long long& P, TResultado& r, const unsigned char* pf, long nf,
                     const unsigned char* px, long nx);
  // Hands one record's contents to the reader of its shape family.
  TErrorRegistro Entrega(int32_t T, const unsigned char* datos, int len, int id) {
    switch (T) {
      case shp::kPoint:
      case shp::kPointZ:
        return Lee_Punto(reader_, T, datos, len, id, params_);
      case shp::kPolyLine:
      case shp::kPolygon:
      case shp::kPolyLineZ:
      case shp::kPolygonZ:
        return Lee_Polilinea(reader_, T, datos, len, id, params_);
      case shp::kMultiPoint:
      case shp::kMultiPointZ:
        return Lee_MultiPunto(reader_, T, datos, len, id, params_);
      default:
        return nullptr;  // other types up to 31 are read and skipped
    }
  }
  // One record whose 12-byte header (number, length, type) is in `cab`.
  TPaso LeeRegistro(long long P, const unsigned char* cab, bool idx_ok, int32_t io, int32_t il);

  TPrivateDataSHP& d_;
  TFicheroITV& F_;
  TFicheroITV& X_;
  TReadVectorMapPlugIn* reader_;
  TStringPlugIn* err_;
  TProgressPlugIn* progress_;
  TSearchParams params_;
  TReadVectorMapPlugIn sin_lector_{};
  long long tam_ = 0;
  bool rechazado_ = false;
  int32_t tipo_mapa_ = 0;  // the header's shape type, as reading has it

 public:
  bool Rechazado() const { return rechazado_; }
};

bool LecturaMapa::ComparaCabeceras(long long N) {
  unsigned char hx[shp::kHeaderSize] = {0};
  X_.Posicionate64(0);
  X_.LeeTokenBin(hx, shp::kHeaderSize, nullptr, -1);
  // The index's own length, taken before the two headers are made to agree.
  const long long long_x = 2LL * shp::GetBigInt(hx, shp::kHdrFileLength);
  std::memcpy(hx + shp::kHdrFileLength, d_.Cabecera() + shp::kHdrFileLength, 4);
  if (std::memcmp(hx, d_.Cabecera(), shp::kHdrCompared) != 0) {
    Rechaza("Error: headers are not identical between SHP and SHX");
    return false;
  }
  int32_t ult[2] = {0, 0};
  if (long_x >= 8 && X_.Posicionate64(long_x - 8)) X_.LeeTokenBin(ult, 8, nullptr, -1);
  const long long O = shp::Reverse(ult[0]), L = shp::Reverse(ult[1]);
  // Up to 4 words of difference cover the end mark of maps written here.
  if (std::llabs(O + L + 4 - N) > 4 && O > 0 && L > 0) {
    Rechaza("Error: FileSize error in the SHP - SHX header.");
    return false;
  }
  X_.Posicionate64(shp::kHeaderSize);
  return true;
}

TResultado LecturaMapa::Lee() {
  if (!reader_) reader_ = &sin_lector_;  // no callbacks: nothing delivered

  DString msg;
  if (!d_.PagaMarcaFinal(msg)) {
    EnviaError(err_, msg.c_str());
    return TResultado::kFallo;
  }
  F_.Posicionate64(0);
  tam_ = F_.FileSize64();
  if (progress_) progress_->SetTotal(static_cast<int32_t>(tam_ - shp::kHeaderSize));
  if (tam_ > kMaxBytesMapa) {
    msg = "Error: ";
    msg << d_.Path().c_str() << " is too large for a shapefile: " << tam_
        << " bytes, more than its header can count.";
    return Rechaza(msg.c_str());
  }
  if (tam_ < shp::kHeaderSize ||
      !F_.LeeTokenBin(d_.CabeceraParaLeer(), shp::kHeaderSize, nullptr, -1))
    return Rechaza("Error: the 100-byte header of the SHP file cannot be read.");
  d_.CabeceraLeida();

  try {
    params_ = Lee_Opciones(reader_->opciones);
  } catch (...) {
    params_ = TSearchParams();
  }

  const long long N = shp::GetBigInt(d_.Cabecera(), shp::kHdrFileLength);
  if (d_.ShxAbierto() && !ComparaCabeceras(N)) return TResultado::kFallo;
  d_.EmpiezaLectura(static_cast<int32_t>(N));
  tipo_mapa_ = d_.TipoMapa();
  return Recorre(N);
}

TResultado LecturaMapa::Recorre(long long N) {
  // Reading is strictly forward: each record starts where the last one ended.
  long long P = F_.PosActual64();
  const bool con_indice = d_.ShxAbierto();
  for (;;) {
    TResultado r;
    if (!RecorreSpan(N, P, r)) return r;
    if (P >= tam_) return TResultado::kHecho;  // the end of the file
    int32_t entrada[2] = {0, 0};
    // A missing entry only matters if a record turns out to be there.
    const bool idx_ok = !con_indice || LeeBytes(X_, entrada, 8);
    // The record header in one piece: number, content length and shape type,
    // as much of it as the file holds; in place when the cache holds it.
    const long long queda = tam_ - P;
    const int n = static_cast<int>(queda < 12 ? queda : 12);
    const unsigned char* cab = n == 12 ? reinterpret_cast<const unsigned char*>(F_.LeeEnSpan(12)) : nullptr;
    unsigned char copia[12] = {0};
    bool leido = true;
    if (!cab) {
      leido = LeeBytes(F_, copia, n);
      cab = copia;
    }
    // Reading ends at the end of the file or of the counted length, and at a
    // zero record number (an end mark); that word is not a record.
    if (P + 4 >= tam_ || P >= 2 * N) {
      if (leido && n >= 4 && shp::GetInt(cab, 0) == 0 && P + 4 == 2 * N) d_.MarcaFinalLeida();
      return TResultado::kHecho;
    }
    if (!leido) {
      RechazaRegistro(d_.NumRegistros() + 1, "its header cannot be read");
      return TResultado::kFallo;
    }
    if (shp::GetInt(cab, 0) == 0) {
      if (P + 4 == 2 * N) d_.MarcaFinalLeida();
      return TResultado::kHecho;
    }
    if (n < 12) {
      RechazaRegistro(d_.NumRegistros() + 1, "the record is cut short by the end of the file");
      return TResultado::kFallo;
    }
    const long long siguiente = P + shp::kRecordHeaderSize + 2LL * shp::GetBigInt(cab, 4);
    const TPaso paso =
        LeeRegistro(P, cab, idx_ok, shp::Reverse(entrada[0]), shp::Reverse(entrada[1]));
    if (paso == TPaso::kSigue) {
      P = siguiente;
      continue;
    }
    // Records after this one were not counted; an edit counts them first.
    if (!rechazado_) d_.LecturaParcial(siguiente);
    return paso == TPaso::kFinConExito ? TResultado::kHecho : TResultado::kFallo;
  }
}

bool LecturaMapa::RecorreSpan(long long N, long long& P, TResultado& r) {
  // A header type outside 1..31 (0 above all) matches no record the walk
  // below could take: the general step reads the first one.
  if (static_cast<uint32_t>(tipo_mapa_) - 1u > 30u) return true;
  long nf = 0, nx = 0;
  const unsigned char* pf = reinterpret_cast<const unsigned char*>(F_.VistaSpan(nf));
  const bool con_indice = d_.ShxAbierto();
  const unsigned char* px =
      con_indice ? reinterpret_cast<const unsigned char*>(X_.VistaSpan(nx)) : nullptr;
  if (!pf || (con_indice && !px)) return true;
  // Every record of the walk has the map's type, so its reader is chosen once.
  switch (FamiliaDe(tipo_mapa_)) {
    case TFamilia::kPunto:
      return RecorreSpanDe<TFamilia::kPunto>(N, P, r, pf, nf, px, nx);
    case TFamilia::kLinea:
      return RecorreSpanDe<TFamilia::kLinea>(N, P, r, pf, nf, px, nx);
    case TFamilia::kMultiPunto:
      return RecorreSpanDe<TFamilia::kMultiPunto>(N, P, r, pf, nf, px, nx);
    case TFamilia::kNinguna:
      break;
  }
  return RecorreSpanDe<TFamilia::kNinguna>(N, P, r, pf, nf, px, nx);
}

template <TFamilia kFamilia>
bool LecturaMapa::RecorreSpanDe(long long N, long long& P, TResultado& r,
                                const unsigned char* pf, long nf, const unsigned char* px,
                                long nx) {
  // Every record taken here would pass each check of the general step; the
  // first that might not is left to it, so results and messages are the same.
  // The limits are taken relative to the span: a record's header must lie
  // within the span and the counted length (which ends within the file), its
  // contents within the span and the file.
  const long long P0 = P;
  const long long fin = 2 * N < tam_ ? 2 * N : tam_;
  const long long lim_cab = nf < fin - P0 ? nf : fin - P0;
  const long long lim_reg = nf < tam_ - P0 ? nf : tam_ - P0;
  const long lim_idx = px ? nx : 0;
  const int32_t tipo = tipo_mapa_;
  const bool con_indice = px != nullptr;
  const bool filtro = params_.inpoint;
  long uf = 0, ux = 0;
  bool sigue = true;
  // The positions stay local during the walk and reach the files when it
  // ends, also when a point callback throws out of the read.
  auto deja_posiciones = [&] {
    F_.SaltaEnSpan(uf);
    if (con_indice) X_.SaltaEnSpan(ux);
    P = P0 + uf;
  };
  try {
    while (uf + 12 <= lim_cab && (!con_indice || ux + 8 <= lim_idx)) {
      const unsigned char* cab = pf + uf;
      const int32_t C = shp::GetBigInt(cab, 4);
      // The point reader needs 16 bytes of contents: shorter records go to
      // the general step, which refuses them with its message.
      const int32_t C_min = kFamilia == TFamilia::kPunto ? 10 : 2;
      if (shp::GetInt(cab, 0) == 0 || C < C_min || shp::GetInt(cab, 8) != tipo) break;
      const long long bytes = 2LL * C - 4;
      if (uf + 12 + bytes > lim_reg) break;
      // Offset in words and content length against the index entry; the
      // lengths are compared as stored.
      if (con_indice && (2LL * shp::GetBigInt(px + ux, 0) != P0 + uf ||
                         shp::GetInt(px + ux, 4) != shp::GetInt(cab, 4)))
        break;
      const int id = d_.RegistroLeido();
      uf += 12 + bytes;
      ux += 8;
      const unsigned char* datos = cab + 12;
      TErrorRegistro fallo = nullptr;
      if constexpr (kFamilia == TFamilia::kPunto) {
        if (!filtro) Entrega_Punto(reader_, id, datos);
      } else if constexpr (kFamilia == TFamilia::kLinea) {
        fallo = Lee_Polilinea(reader_, tipo, datos, static_cast<int>(bytes), id, params_);
      } else if constexpr (kFamilia == TFamilia::kMultiPunto) {
        fallo = Lee_MultiPunto(reader_, tipo, datos, static_cast<int>(bytes), id, params_);
      }
      if (fallo) {
        RechazaRegistro(id, fallo);
        r = TResultado::kFallo;
        sigue = false;
        break;
      }
      if (Cancelado()) {
        d_.LecturaParcial(P0 + uf);
        r = TResultado::kFallo;
        sigue = false;
        break;
      }
      Avanza(2LL * C + 8);
    }
  } catch (...) {
    deja_posiciones();
    throw;
  }
  deja_posiciones();
  return sigue;
}

TPaso LecturaMapa::LeeRegistro(long long P, const unsigned char* cab, bool idx_ok, int32_t io,
                               int32_t il) {
  const int32_t C = shp::GetBigInt(cab, 4);
  const int32_t T = shp::GetInt(cab, 8);
  if (d_.ShxAbierto()) {
    if (!idx_ok) return RechazaRegistro(d_.NumRegistros() + 1, "the SHX index has no entry for it");
    if (2LL * io != P || C != il) {
      DString msg("Error 1 in SHP-SHX relation in shape #");
      msg << d_.NumRegistros();
      Rechaza(msg.c_str());
      return TPaso::kFallo;
    }
  }
  const int id = d_.RegistroLeido();
  if (C < 2) return RechazaRegistro(id, "its content length is shorter than its shape type");
  if (static_cast<uint32_t>(T) - 1u > 30u) {
    // Deliberate: a Null record (or a type beyond the format) ends the map
    // with success, and its progress step is C + 12, not the record's size.
    if (Cancelado()) return TPaso::kFallo;
    Avanza(static_cast<long long>(C) + 12);
    return TPaso::kFinConExito;
  }
  if (T != tipo_mapa_) {
    const int32_t tipo_mapa = d_.TipoMapa();
    if (tipo_mapa != 0) {
      Rechaza("ShapeType Error reading SHP file.");
      return TPaso::kFallo;
    }
    d_.PonTipoMapa(T);
    tipo_mapa_ = T;
  }
  const long long bytes = 2LL * C - 4;
  if (P + shp::kRecordHeaderSize + 4 + bytes > tam_)
    return RechazaRegistro(id, "its content length goes beyond the end of the file");
  // Usually the contents lie in the cache's span and are read in place; a
  // record across the span's end is copied into the reused record buffer.
  const unsigned char* datos =
      reinterpret_cast<const unsigned char*>(F_.LeeEnSpan(static_cast<int>(bytes)));
  if (!datos) {
    try {
      if (d_.Registro().size() < static_cast<size_t>(bytes)) d_.Registro().resize(bytes);
    } catch (const std::bad_alloc&) {
      ErrorRegistro(err_, id, "there is not enough memory for its contents");
      return TPaso::kFallo;
    }
    if (bytes > 0 && !F_.LeeTokenBin(d_.Registro().data(), static_cast<int>(bytes), nullptr, -1))
      return RechazaRegistro(id, "its contents cannot be read");
    datos = d_.Registro().data();
  }
  TErrorRegistro fallo = Entrega(T, datos, static_cast<int>(bytes), id);
  if (fallo) return RechazaRegistro(id, fallo);
  if (Cancelado()) return TPaso::kFallo;
  Avanza(2LL * C + 8);
  return TPaso::kSigue;
}

}  // namespace

bool LeeAntesDeCambiar(TPrivateDataSHP& d, TStringPlugIn* err) {
  if (!d.SinLeer()) return true;
  LecturaMapa lectura(d, nullptr, err, nullptr);
  const TResultado r = lectura.Lee();
  d.LecturaTerminada(lectura.Rechazado());
  return r == TResultado::kHecho;
}

VARDA_EXPORT int32_t VardaPlugIn_Read_Vector_Map3(TVectorMapPlugIn* map,
                                                  TReadVectorMapPlugIn* reader,
                                                  TStringPlugIn* err,
                                                  TProgressPlugIn* progress) {
  TPrivateDataSHP* d = Estado(map);
  if (!d) {
    EnviaError(err, "Error: the map is not open.");
    return 0;
  }
  LecturaMapa lectura(*d, reader, err, progress);
  const TResultado r = lectura.Lee();
  d->LecturaTerminada(lectura.Rechazado());
  return AlHost(r);
}
