// Reading a map: walks the .shp strictly forward, checks each record against
// its .shx entry, and hands every shape to the host's reader.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>

#include "VardaPlugIn.h"
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

class LecturaMapa {
 public:
  LecturaMapa(TPrivateDataSHP& d, TReadVectorMapPlugIn* reader, TStringPlugIn* err,
              TProgressPlugIn* progress)
      : d_(d), F_(d.shp), X_(d.shx), reader_(reader), err_(err), progress_(progress) {}

  int Lee();

 private:
  bool Cancelado() { return progress_ && progress_->IsCancelled(); }
  void Avanza(long long n) {
    if (progress_) progress_->Advance(static_cast<int32_t>(n));
  }
  bool ComparaCabeceras(long long N);
  // One record at position P; returns 1 to go on, 0 to fail, 2 to end with success.
  int LeeRegistro(long long P, bool idx_ok, int32_t io, int32_t il);

  TPrivateDataSHP& d_;
  TFicheroITV& F_;
  TFicheroITV& X_;
  TReadVectorMapPlugIn* reader_;
  TStringPlugIn* err_;
  TProgressPlugIn* progress_;
  TSearchParams params_;
  TReadVectorMapPlugIn sin_lector_{};
  long long tam_ = 0;
};

bool LecturaMapa::ComparaCabeceras(long long N) {
  unsigned char hx[shp::kHeaderSize] = {0};
  X_.Posicionate64(0);
  X_.LeeTokenBin(hx, shp::kHeaderSize, nullptr, -1);
  // The index's own length, taken before the two headers are made to agree.
  const long long long_x = 2LL * shp::GetBigInt(hx, shp::kHdrFileLength);
  std::memcpy(hx + shp::kHdrFileLength, d_.cabecera + shp::kHdrFileLength, 4);
  if (std::memcmp(hx, d_.cabecera, shp::kHdrCompared) != 0) {
    EnviaError(err_, "Error: headers are not identical between SHP and SHX");
    return false;
  }
  int32_t ult[2] = {0, 0};
  if (long_x >= 8 && X_.Posicionate64(long_x - 8)) X_.LeeTokenBin(ult, 8, nullptr, -1);
  const long long O = shp::Reverse(ult[0]), L = shp::Reverse(ult[1]);
  // Up to 4 words of difference cover the end mark of maps written here.
  if (std::llabs(O + L + 4 - N) > 4 && O > 0 && L > 0) {
    EnviaError(err_, "Error: FileSize error in the SHP - SHX header.");
    return false;
  }
  X_.Posicionate64(shp::kHeaderSize);
  return true;
}

int LecturaMapa::Lee() {
  if (!reader_) reader_ = &sin_lector_;  // no callbacks: nothing delivered

  d_.Asienta();
  F_.Posicionate64(0);
  tam_ = F_.FileSize64();
  if (progress_) progress_->SetTotal(static_cast<int32_t>(tam_ - shp::kHeaderSize));
  if (tam_ < shp::kHeaderSize ||
      !F_.LeeTokenBin(d_.cabecera, shp::kHeaderSize, nullptr, -1)) {
    EnviaError(err_, "Error: the 100-byte header of the SHP file cannot be read.");
    return 0;
  }
  // Only Xmin is looked at: a box whose Xmin is about zero counts as unset.
  if (std::fabs(shp::GetDouble(d_.cabecera, shp::kHdrXmin)) > 1e-05) d_.extremos = true;

  try {
    params_ = Lee_Opciones(reader_->opciones);
  } catch (...) {
    params_ = TSearchParams();
  }

  const long long N = shp::GetBigInt(d_.cabecera, shp::kHdrFileLength);
  if (d_.shx_abierto && !ComparaCabeceras(N)) return 0;

  d_.long_shp_words = static_cast<int>(N);
  d_.num_registros = 0;
  d_.marca_final = false;
  bool stop = false;
  while (!F_.eof() && !stop) {
    const long long P = F_.PosActual64();
    int32_t entrada[2] = {0, 0};
    // A missing entry only matters if a record turns out to be there.
    const bool idx_ok = !d_.shx_abierto || LeeBytes(X_, entrada, 8);
    int32_t numero = 0;
    const bool leido = LeeBytes(F_, &numero, 4);
    if (F_.eof() || P >= 2 * N) stop = true;
    if (!leido && !stop) {
      ErrorRegistro(err_, d_.num_registros + 1, "its header cannot be read");
      return 0;
    }
    if (numero == 0) {  // the end mark
      if (leido && P + 4 == 2 * N) d_.marca_final = true;
      stop = true;
    }
    if (stop) continue;
    int r = LeeRegistro(P, idx_ok, shp::Reverse(entrada[0]), shp::Reverse(entrada[1]));
    if (r != 1) return r == 2 ? 1 : 0;
  }
  return 1;
}

int LecturaMapa::LeeRegistro(long long P, bool idx_ok, int32_t io, int32_t il) {
  int32_t cab[2];
  if (!LeeBytes(F_, cab, 8)) {
    ErrorRegistro(err_, d_.num_registros + 1, "the record is cut short by the end of the file");
    return 0;
  }
  const int32_t C = shp::Reverse(cab[0]);
  const int32_t T = cab[1];
  if (d_.shx_abierto) {
    if (!idx_ok) {
      ErrorRegistro(err_, d_.num_registros + 1, "the SHX index has no entry for it");
      return 0;
    }
    if (2LL * io != P || C != il) {
      DString msg("Error 1 in SHP-SHX relation in shape #");
      msg << d_.num_registros;
      EnviaError(err_, msg.c_str());
      return 0;
    }
  }
  const int id = ++d_.num_registros;
  if (C < 2) {
    ErrorRegistro(err_, id, "its content length is shorter than its shape type");
    return 0;
  }
  if (static_cast<uint32_t>(T) - 1u > 30u) {
    // A Null record, or a type beyond the format, ends the map with success.
    if (Cancelado()) return 0;
    Avanza(static_cast<long long>(C) + 12);
    return 2;
  }
  int32_t tipo_mapa = shp::GetInt(d_.cabecera, shp::kHdrShapeType);
  if (T != tipo_mapa) {
    if (tipo_mapa != 0) {
      EnviaError(err_, "ShapeType Error reading SHP file.");
      return 0;
    }
    shp::PutInt(d_.cabecera, shp::kHdrShapeType, T);
  }
  const long long bytes = 2LL * C - 4;
  if (P + shp::kRecordHeaderSize + 4 + bytes > tam_) {
    ErrorRegistro(err_, id, "its content length goes beyond the end of the file");
    return 0;
  }
  // Usually the contents lie in the cache's span and are read in place; a
  // record across the span's end is copied into the reused record buffer.
  const unsigned char* datos =
      reinterpret_cast<const unsigned char*>(F_.LeeEnSpan(static_cast<int>(bytes)));
  if (!datos) {
    try {
      if (d_.registro.size() < static_cast<size_t>(bytes)) d_.registro.resize(bytes);
    } catch (const std::bad_alloc&) {
      ErrorRegistro(err_, id, "there is not enough memory for its contents");
      return 0;
    }
    if (bytes > 0 && !F_.LeeTokenBin(d_.registro.data(), static_cast<int>(bytes), nullptr, -1)) {
      ErrorRegistro(err_, id, "its contents cannot be read");
      return 0;
    }
    datos = d_.registro.data();
  }
  const int len = static_cast<int>(bytes);
  TErrorRegistro fallo = nullptr;
  switch (T) {
    case shp::kPoint:
    case shp::kPointZ:
      fallo = Lee_Punto(reader_, T, datos, len, id, params_);
      break;
    case shp::kPolyLine:
    case shp::kPolygon:
    case shp::kPolyLineZ:
    case shp::kPolygonZ:
      fallo = Lee_Polilinea(reader_, T, datos, len, id, params_);
      break;
    case shp::kMultiPoint:
    case shp::kMultiPointZ:
      fallo = Lee_MultiPunto(reader_, T, datos, len, id, params_);
      break;
    default:
      break;  // other types up to 31 are read and skipped
  }
  if (fallo) {
    ErrorRegistro(err_, id, fallo);
    return 0;
  }
  if (Cancelado()) return 0;
  Avanza(2LL * C + 8);
  return 1;
}

}  // namespace

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
  return lectura.Lee();
}
