// Opening and closing a map: binds the host's map record to a pair of files
// through a TPrivateDataSHP, and writes the headers back after changes.
#include <cstring>

#include "VardaPlugIn.h"
#include "filesys/StringNomFitx.h"
#include "plugin/PrivateDataSHP.h"
#include "plugin/ShapeFileLayout.h"
#include "plugin/exports/Export.h"

namespace {

bool CreaFichero(TFicheroITV& f, const TStringNomFitx& nombre, TStringPlugIn* err) {
  if (f.Abre(nombre, kModoCrearMapa, nullptr)) return true;
  DString msg = FormatoFichero(nullptr, "Error writing %s file.", nombre.c_str());
  EnviaError(err, msg.c_str());
  return false;
}

int CreaMapa(TPrivateDataSHP* d, TVectorMapPlugIn* map, TStringPlugIn* err) {
  TStringNomFitx nombre_shp(d->path);
  TStringNomFitx nombre_shx(d->path);
  nombre_shx.Cambia_Ext("shx");
  if (!CreaFichero(d->shp, nombre_shp, err) || !CreaFichero(d->shx, nombre_shx, err)) {
    map->privado = nullptr;
    delete d;
    return 0;
  }
  // A new map starts with 100 zero bytes in each file; the real headers are
  // written on closing, once something was added.
  std::memset(d->cabecera, 0, sizeof d->cabecera);
  d->shp.PonTokenBin(d->cabecera, shp::kHeaderSize, nullptr, -1);
  d->shx.PonTokenBin(d->cabecera, shp::kHeaderSize, nullptr, -1);
  d->num_registros = 0;
  d->extremos = false;
  map->privado = d;
  map->shx_abierto = 0;
  map->modo_escritura = 1;
  return 1;
}

void EscribeCabeceras(TPrivateDataSHP* d, const TVectorMapPlugIn* map) {
  long long pos_shp = d->shp.PosActual64();
  long long pos_shx = d->shx.PosActual64();
  long long long_shp, long_shx;
  if (map->crear) {
    // The 32-bit end mark of a created map, counted in its length.
    int32_t cero = 0;
    d->shp.PonTokenBin(&cero, 4, nullptr, -1);
    long_shp = pos_shp + 4;
    long_shx = pos_shx;
  } else {
    long_shp = 2LL * d->long_shp_words;
    long_shx = shp::kHeaderSize + 8LL * d->num_registros;
  }
  d->shp.Posicionate64(0);
  d->shx.Posicionate64(0);
  shp::PutBigInt(d->cabecera, shp::kHdrFileCode, shp::kFileCode);
  shp::PutInt(d->cabecera, shp::kHdrVersion, shp::kVersion);
  shp::PutBigInt(d->cabecera, shp::kHdrFileLength, static_cast<int32_t>(long_shp / 2));
  d->shp.PonTokenBin(d->cabecera, shp::kHeaderSize, nullptr, -1);
  shp::PutBigInt(d->cabecera, shp::kHdrFileLength, static_cast<int32_t>(long_shx / 2));
  d->shx.PonTokenBin(d->cabecera, shp::kHeaderSize, nullptr, -1);
}

}  // namespace

VARDA_EXPORT int32_t VardaPlugIn_Open_Vector_Map(char* path, TVectorMapPlugIn* map,
                                                 TStringPlugIn* err) {
  if (!map) {
    EnviaError(err, "Error: no map record given to open.");
    return 0;
  }
  TPrivateDataSHP* d = nullptr;
  try {
    d = new TPrivateDataSHP;
    d->path = path;
    if (map->crear) return CreaMapa(d, map, err);
    DString msg;
    if (d->Abre(false, msg)) {
      map->privado = d;
      map->shx_abierto = d->shx_abierto ? 1 : 0;
      map->modo_escritura = 0;
      return 1;
    }
    EnviaError(err, msg.c_str());
  } catch (...) {
    EnviaError(err, "Error: the map could not be opened (out of memory).");
  }
  delete d;
  return 0;
}

VARDA_EXPORT int32_t VardaPlugIn_Close_Vector_Map(TVectorMapPlugIn* map) {
  TPrivateDataSHP* d = Estado(map);
  // A map that was never opened has nothing to close.
  if (!d) return 1;
  try {
    d->Asienta();
    if (d->modificado && map->modo_escritura) EscribeCabeceras(d, map);
  } catch (...) {
    // Closing always succeeds for the host; the files are closed below.
  }
  d->Cierra();
  delete d;
  map->privado = nullptr;
  return 1;
}
