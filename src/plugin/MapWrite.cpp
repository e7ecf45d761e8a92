// Adding a line to a map, or replacing the record the line names.
#include <climits>
#include <cstring>
#include <new>

#include "VardaPlugIn.h"
#include "plugin/MapIO.h"
#include "plugin/MapRead.h"
#include "plugin/PrivateDataSHP.h"
#include "plugin/ShapeFileLayout.h"
#include "plugin/ShapeWriter.h"
#include "plugin/exports/Export.h"

namespace {

DString ErrorEdicion(int registro, const char* que) {
  DString msg("Error: record ");
  msg << registro << " cannot be replaced: " << que << ".";
  return msg;
}

DString DemasiadoGrande(const DString& path) {
  DString msg("Error: ");
  msg << path.c_str() << " would grow beyond the largest size a shapefile can count.";
  return msg;
}

TResultado Reemplaza(TPrivateDataSHP& d, int tipo, TLineAttributesPlugIn& line, int n,
                     TVectorPointPlugIn* pts, DString& msg) {
  if (!d.PagaMarcaFinal(msg)) return TResultado::kFallo;
  TFicheroITV& F = d.Shp();
  TFicheroITV& X = d.Shx();
  const int k = line.id_bd;
  const long long n_reg = d.NumRegistros();
  const long long fin_shp = d.FinShp();
  // The index must hold every entry the record count promises before any of
  // them is rewritten.
  if (X.FileSize64() < shp::IndexEntryPos(n_reg + 1)) {
    msg = ErrorEdicion(k, "the SHX index is shorter than the number of records");
    return TResultado::kFallo;
  }
  int32_t entrada[2];
  if (!mapio::Lee(X, shp::IndexEntryPos(k), entrada, 8, msg)) return TResultado::kFallo;
  const long long offset = 2LL * shp::Reverse(entrada[0]);
  const long long viejo = 2LL * shp::Reverse(entrada[1]);
  const long long tam = F.FileSize64();
  if (offset < shp::kHeaderSize || offset + shp::kRecordHeaderSize > tam) {
    msg = ErrorEdicion(k, "its SHX entry points outside the SHP file");
    return TResultado::kFallo;
  }
  // The format's own check comes before ours: the record must carry its number.
  int32_t cab[2] = {0, 0};
  if (!mapio::Lee(F, offset, cab, 8, msg)) return TResultado::kFallo;
  if (shp::Reverse(cab[0]) != k) {
    msg = "Error corrupt data in SHP-SHX";
    return TResultado::kFallo;
  }
  // The record is measured against the file as it is on disk: the counted
  // length may fall a few words short of it, which reading accepts.
  if (viejo < 0 || offset + shp::kRecordHeaderSize + viejo > tam) {
    msg = ErrorEdicion(k, "its SHX entry points outside the SHP file");
    return TResultado::kFallo;
  }

  std::vector<unsigned char>& r = d.Bloque();
  r.assign(4, 0);  // room for the content length
  const long long nuevo = Compone_Elemento(tipo, n, pts, r);
  const long long delta = nuevo - viejo;

  if (delta == 0) {
    if (!d.EmpiezaCambio(offset + shp::kRecordHeaderSize, offset + shp::kRecordHeaderSize + nuevo,
                         -1, -1, msg))
      return TResultado::kFallo;
    if (!mapio::Escribe(F, offset + shp::kRecordHeaderSize, r.data() + 4, nuevo, msg))
      return d.DeshazCambio();
  } else {
    if (fin_shp > tam) {
      msg = ErrorEdicion(k, "the SHP header gives a length beyond the end of the file");
      return TResultado::kFallo;
    }
    if (fin_shp + delta > kMaxBytesMapa) {
      msg = DemasiadoGrande(d.Path());
      return TResultado::kFallo;
    }
    // The later entries move by the same amount: read, shifted in memory and
    // written back in one run each.
    const long long resto = n_reg - k;
    std::vector<unsigned char> e(static_cast<size_t>(resto > 0 ? resto : 0) * shp::kIndexEntrySize);
    if (resto > 0 && !mapio::Lee(X, shp::IndexEntryPos(k + 1), e.data(),
                                 static_cast<long long>(e.size()), msg))
      return TResultado::kFallo;
    for (long long j = 0; j < resto; j++) {
      const long long at = j * shp::kIndexEntrySize;
      shp::PutBigInt(e.data(), at, static_cast<int32_t>(shp::GetBigInt(e.data(), at) + delta / 2));
    }
    shp::PutBigInt(r.data(), 0, static_cast<int32_t>(nuevo / 2));
    // Everything from the record's length word to the end of the moved tail
    // (and of the zeros it leaves behind) is written below, reading the tail
    // as it was.
    const long long escrito_hasta = delta > 0 ? fin_shp + delta : fin_shp;
    if (!d.EmpiezaCambio(offset + 4, -1, shp::IndexEntryPos(k), -1, msg, escrito_hasta))
      return TResultado::kFallo;
    if (!mapio::MueveDesde(d.Origen(), F, offset + shp::kRecordHeaderSize + viejo, delta, fin_shp,
                           msg) ||
        !mapio::Escribe(F, offset + 4, r.data(), 4 + nuevo, msg) ||
        !mapio::Escribe(X, shp::IndexEntryPos(k) + 4, r.data(), 4, msg) ||
        (resto > 0 && !mapio::Escribe(X, shp::IndexEntryPos(k + 1), e.data(),
                                      static_cast<long long>(e.size()), msg)))
      return d.DeshazCambio();
    d.RegistroCambiado(delta / 2);
  }
  // Deliberate: the box only ever grows; the replaced shape's extent stays in it.
  d.EnsanchaCaja(n, pts);
  d.ContenidoCambiado();
  return d.TerminaCambio(msg);
}

TResultado Anyade(TPrivateDataSHP& d, bool crear, int tipo, TLineAttributesPlugIn& line, int n,
                  TVectorPointPlugIn* pts, DString& msg) {
  // Record header and contents, assembled to go out in one write.
  std::vector<unsigned char>& r = d.Bloque();
  r.assign(shp::kRecordHeaderSize, 0);
  const long long bytes = Compone_Elemento(tipo, n, pts, r);
  if (d.FinShp() + shp::kRecordHeaderSize + bytes + 4 > kMaxBytesMapa) {
    msg = DemasiadoGrande(d.Path());
    return TResultado::kFallo;
  }
  int32_t numero = 0;
  if (d.AnyadeRegistro(r, n, pts, crear, numero, msg) == TResultado::kFallo)
    return TResultado::kFallo;
  line.id_bd = numero;
  return TResultado::kHecho;
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
  // A record's content length is a 32-bit count of words.
  if (num_points > (INT_MAX - 200) / 28) {
    EnviaError(err, "Error: VardaPlugIn_Add_Poliline_Vector_Map SHP was given too many points.");
    return 0;
  }
  if (!map->crear && !LeeAntesDeCambiar(*d, err)) return 0;
  if (d->Rechazado()) {
    EnviaError(err, "Error: the map was refused when it was read; it is not changed.");
    return 0;
  }
  try {
    DString msg;
    if (!map->crear && !d->CompletaRecuento(msg)) {
      EnviaError(err, msg.c_str());
      return 0;
    }
    if (!Set_Archivo_Modo_Leer_Escribir(*map, Sumidero(err))) return 0;
    int tipo = d->TipoMapa();
    if (tipo == 0) {
      tipo = Calcula_ShapeType(*line, num_points, points);
      d->PonTipoMapa(tipo);
    }
    TResultado r;
    if (!map->crear && line->id_bd >= 1 && line->id_bd <= d->NumRegistros())
      r = Reemplaza(*d, tipo, *line, num_points, points, msg);
    else
      r = Anyade(*d, map->crear != 0, tipo, *line, num_points, points, msg);
    if (r == TResultado::kFallo) EnviaError(err, msg.c_str());
    return AlHost(r);
  } catch (const std::bad_alloc&) {
    EnviaError(err, "Error: the line could not be written (out of memory).");
    return 0;
  }
}
