// Adding a line to a map, or replacing the record the line names.
#include <cstring>
#include <memory>

#include "VardaPlugIn.h"
#include "file/FicheroITVdatos.h"
#include "plugin/PrivateDataSHP.h"
#include "plugin/ShapeFileLayout.h"
#include "plugin/ShapeWriter.h"
#include "plugin/exports/Export.h"

namespace {

void EnsanchaCabecera(TPrivateDataSHP& d, int n, const TVectorPointPlugIn* pts) {
  unsigned char* c = d.cabecera;
  double xmin = shp::GetDouble(c, shp::kHdrXmin), ymin = shp::GetDouble(c, shp::kHdrYmin);
  double xmax = shp::GetDouble(c, shp::kHdrXmax), ymax = shp::GetDouble(c, shp::kHdrYmax);
  double zmax = shp::GetDouble(c, shp::kHdrZmaxSlot), zmin = shp::GetDouble(c, shp::kHdrZminSlot);
  Incre_ExtremosS(n, pts, d.extremos, xmin, ymin, xmax, ymax, zmax, zmin);
  shp::PutDouble(c, shp::kHdrXmin, xmin);
  shp::PutDouble(c, shp::kHdrYmin, ymin);
  shp::PutDouble(c, shp::kHdrXmax, xmax);
  shp::PutDouble(c, shp::kHdrYmax, ymax);
  shp::PutDouble(c, shp::kHdrZmaxSlot, zmax);
  shp::PutDouble(c, shp::kHdrZminSlot, zmin);
}

void ErrorEdicion(TStringPlugIn* err, int registro, const char* que) {
  DString msg("Error: record ");
  msg << registro << " cannot be replaced: " << que << ".";
  EnviaError(err, msg.c_str());
}

int Reemplaza(TPrivateDataSHP& d, int tipo, TLineAttributesPlugIn& line, int n,
              TVectorPointPlugIn* pts, TStringPlugIn* err) {
  d.Asienta();
  const int k = line.id_bd;
  const long long n_reg = d.num_registros;
  const long long fin_shp = 2LL * d.long_shp_words;
  // The index must hold every entry the record count promises before any of
  // them is rewritten.
  if (d.shx.FileSize64() < shp::IndexEntryPos(n_reg + 1)) {
    ErrorEdicion(err, k, "the SHX index is shorter than the number of records");
    return 0;
  }
  int32_t entrada[2];
  d.shx.Posicionate64(shp::IndexEntryPos(k));
  if (!d.shx.LeeTokenBin(entrada, 8, nullptr, -1)) {
    ErrorEdicion(err, k, "its SHX entry cannot be read");
    return 0;
  }
  const long long offset = 2LL * shp::Reverse(entrada[0]);
  const long long viejo = 2LL * shp::Reverse(entrada[1]);
  if (offset < shp::kHeaderSize || viejo < 0 ||
      offset + shp::kRecordHeaderSize + viejo > fin_shp || fin_shp > d.shp.FileSize64()) {
    ErrorEdicion(err, k, "its SHX entry points outside the SHP file");
    return 0;
  }
  int32_t cab[2] = {0, 0};
  d.shp.Posicionate64(offset);
  d.shp.LeeTokenBin(cab, 8, nullptr, -1);
  if (shp::Reverse(cab[0]) != k) {
    EnviaError(err, "Error corrupt data in SHP-SHX");
    return 0;
  }

  TFicheroITVdatos mem(18, 1000);
  Guarda_Elemento(tipo, line, n, pts, mem);
  int nuevo = 0;
  std::unique_ptr<char[]> buf(static_cast<char*>(mem.Cierra_Retornando_Ptr(nuevo)));

  if (nuevo == viejo) {
    d.shp.Posicionate64(offset + shp::kRecordHeaderSize);
    d.shp.PonTokenBin(buf.get(), nuevo, nullptr, -1);
  } else {
    const long long delta = nuevo - viejo;
    d.shp.MoveBytesEnd(static_cast<int>(offset + shp::kRecordHeaderSize + viejo),
                       static_cast<int>(delta), 1024, static_cast<int>(fin_shp));
    d.shp.Posicionate64(offset + 4);
    int32_t largo = shp::Reverse(nuevo / 2);
    d.shp.PonTokenBin(&largo, 4, nullptr, -1);
    d.shp.PonTokenBin(buf.get(), nuevo, nullptr, -1);

    d.shx.Posicionate64(shp::IndexEntryPos(k) + 4);
    d.shx.PonTokenBin(&largo, 4, nullptr, -1);
    // The later entries move by the same amount: read, shifted in memory and
    // written back in one run each.
    const long long resto = n_reg - k;
    if (resto > 0) {
      d.bloque.resize(static_cast<size_t>(resto) * shp::kIndexEntrySize);
      unsigned char* e = d.bloque.data();
      d.shx.Posicionate64(shp::IndexEntryPos(k + 1));
      d.shx.LeeTokenBin(e, static_cast<int>(d.bloque.size()), nullptr, -1);
      for (long long j = 0; j < resto; j++) {
        const long long at = j * shp::kIndexEntrySize;
        shp::PutBigInt(e, at, static_cast<int32_t>(shp::GetBigInt(e, at) + delta / 2));
      }
      d.shx.Posicionate64(shp::IndexEntryPos(k + 1));
      d.shx.PonTokenBin(e, static_cast<int>(d.bloque.size()), nullptr, -1);
    }
    d.SumaPalabras(delta / 2);
  }
  // The box only ever grows: the replaced shape's extent stays in it.
  EnsanchaCabecera(d, n, pts);
  d.modificado = true;
  return 1;
}

int Anyade(TPrivateDataSHP& d, bool crear, int tipo, TLineAttributesPlugIn& line, int n,
           TVectorPointPlugIn* pts) {
  if (!crear && d.marca_final) {
    d.long_shp_words -= 2;
    d.marca_final = false;
    d.anyadiendo = false;
  }
  if (!crear && !d.anyadiendo) {
    d.shx.Posicionate64(shp::kHeaderSize + 8LL * d.num_registros);
    d.shp.Posicionate64(2LL * d.long_shp_words);
  }
  d.num_registros++;
  line.id_bd = d.num_registros;
  const long long P = d.shp.PosActual64();

  // Record header and contents, assembled and written in one run.
  std::vector<unsigned char>& r = d.bloque;
  r.resize(shp::kRecordHeaderSize);
  shp::PutBigInt(r.data(), 0, d.num_registros);
  const int bytes = Compone_Elemento(tipo, n, pts, r);
  const int32_t C = bytes / 2;
  shp::PutBigInt(r.data(), 4, C);
  d.shp.PonTokenBin(r.data(), static_cast<int>(r.size()), nullptr, -1);
  d.SumaPalabras(4 + static_cast<long long>(C));
  // An existing map owes its end mark after the record (a created one gets
  // it once, on closing).
  if (!crear) d.terminador_pendiente = d.anyadiendo = true;

  int32_t entrada[2] = {shp::Reverse(static_cast<int32_t>(P / 2)), shp::Reverse(C)};
  d.shx.PonTokenBin(entrada, 8, nullptr, -1);

  EnsanchaCabecera(d, n, pts);
  d.modificado = true;
  return 1;
}

}  // namespace

VARDA_EXPORT int32_t VardaPlugIn_Add_Poliline_Vector_Map(TVectorMapPlugIn* map,
                                                         TLineAttributesPlugIn* line,
                                                         int32_t num_points,
                                                         TVectorPointPlugIn* points,
                                                         TStringPlugIn* err) {
  TPrivateDataSHP* d = Estado(map);
  if (!d || !line) {
    EnviaError(err, "Error: VardaPlugIn_Add_Poliline_Vector_Map SHP needs an open map and a line.");
    return 0;
  }
  if (num_points > 0 && !points) {
    EnviaError(err, "Error: VardaPlugIn_Add_Poliline_Vector_Map SHP was given no points.");
    return 0;
  }
  if (num_points > 0 && points[0].tamanyo < 40) {
    EnviaError(err,
               "Data Aligment error in TVectorPointPlugIn, VardaPlugIn_Add_Poliline_Vector_Map SHP");
    return 0;
  }
  // A shape without points would need a box and a point that do not exist.
  if (num_points < 1) {
    EnviaError(err, "Error: VardaPlugIn_Add_Poliline_Vector_Map SHP needs at least one point.");
    return 0;
  }
  try {
    if (!Set_Archivo_Modo_Leer_Escribir(*map, Sumidero(err))) return 0;
    int tipo = shp::GetInt(d->cabecera, shp::kHdrShapeType);
    if (tipo == 0) {
      tipo = Calcula_ShapeType(*line, num_points, points);
      shp::PutInt(d->cabecera, shp::kHdrShapeType, tipo);
    }
    if (!map->crear && line->id_bd >= 1 && line->id_bd <= d->num_registros)
      return Reemplaza(*d, tipo, *line, num_points, points, err);
    return Anyade(*d, map->crear != 0, tipo, *line, num_points, points);
  } catch (...) {
    EnviaError(err, "Error: the line could not be written (out of memory).");
    return 0;
  }
}
