// Opening and closing a map: binds the host's map record to a pair of files
// through a TPrivateDataSHP, and writes the headers back after changes.
#include <cstdio>
#include <new>

#include "VardaPlugIn.h"
#include "plugin/PrivateDataSHP.h"
#include "plugin/exports/Export.h"

VARDA_EXPORT int32_t VardaPlugIn_Open_Vector_Map(char* path, TVectorMapPlugIn* map,
                                                 TStringPlugIn* err) {
  if (!map) {
    EnviaError(err, "Error: no map record given to open.");
    return 0;
  }
  TPrivateDataSHP* d = nullptr;
  try {
    d = new TPrivateDataSHP(path);
    DString msg;
    if (map->crear) {
      if (!d->Crea(msg)) {
        EnviaError(err, msg.c_str());
        map->privado = nullptr;
        delete d;
        return 0;
      }
      map->privado = d;
      map->shx_abierto = 0;
      map->modo_escritura = 1;
      return 1;
    }
    if (d->Abre(false, msg)) {
      map->privado = d;
      map->shx_abierto = d->ShxAbierto() ? 1 : 0;
      map->modo_escritura = 0;
      return 1;
    }
    EnviaError(err, msg.c_str());
  } catch (const std::bad_alloc&) {
    EnviaError(err, "Error: the map could not be opened (out of memory).");
  }
  delete d;
  return 0;
}

VARDA_EXPORT int32_t VardaPlugIn_Close_Vector_Map(TVectorMapPlugIn* map) {
  TPrivateDataSHP* d = Estado(map);
  // A map that was never opened has nothing to close.
  if (!d) return 1;
  DString msg;
  bool ok = false;
  try {
    ok = d->Cierra(map->modo_escritura != 0, msg);
  } catch (const std::bad_alloc&) {
    msg = "Error: the map could not be closed (out of memory).";
  }
  delete d;
  map->privado = nullptr;
  if (ok) return 1;
  // Closing has no error sink of the host's: the reason goes to the
  // standard error stream, and the result tells the host that it failed.
  std::fprintf(stderr, "%s\n", msg.c_str());
  return 0;
}
