#include "plugin/PrivateDataSHP.h"

#include <cstring>

#include "filesys/FitxUtils.h"
#include "filesys/StringNomFitx.h"

extern "C" {
extern const char* fmt_open;
extern const char* fmt_save;
}

TPrivateDataSHP::TPrivateDataSHP()
    : shx_abierto(false), modificado(false), num_registros(0), extremos(false),
      long_shp_words(0) {
  // Only the first word is cleared here; opening or reading fills the rest.
  std::memset(cabecera, 0, 4);
}

void EnviaError(TStringPlugIn* err, const char* texto) {
  if (err && err->SetStr) err->SetStr(err, texto ? texto : "");
}

TStringPlugIn& Sumidero(TStringPlugIn* err) {
  static TStringPlugIn descarta = {nullptr};  // never written: shared safely
  return err ? *err : descarta;
}

namespace {
// A usable file message has exactly one "%s" and no other conversion but "%%";
// anything else from the host would read arguments that are not there.
bool FormatoValido(const char* f) {
  if (!f) return false;
  int s = 0;
  for (const char* p = f; *p; ++p) {
    if (*p != '%') continue;
    if (p[1] == '%') {
      ++p;
    } else if (p[1] == 's') {
      ++s;
      ++p;
    } else {
      return false;
    }
  }
  return s == 1;
}
}  // namespace

DString FormatoFichero(const char* formato, const char* por_defecto, const char* nombre) {
  const char* f = FormatoValido(formato) ? formato : por_defecto;
  // The result is assembled piecewise so that no name is too long for it.
  DString out;
  out = "";
  for (const char* p = f; *p; ++p) {
    if (*p == '%' && p[1] == '%') {
      out << '%';
      ++p;
    } else if (*p == '%' && p[1] == 's') {
      out << nombre;
      ++p;
    } else {
      out << *p;
    }
  }
  return out;
}

bool TPrivateDataSHP::Abre(bool escribir, DString& msg) {
  TStringNomFitx nombre_shp(path);
  TStringNomFitx nombre_shx(path);
  nombre_shx.Cambia_Ext("shx");

  if (escribir) {
    // The backups hold the map as it was before the first change ever made
    // through the plug-in: made once, never refreshed.
    TStringNomFitx bak_shp(nombre_shp);
    bak_shp << ".bak";
    TStringNomFitx bak_shx(nombre_shx);
    bak_shx << ".bak";
    if (!TFitxUtils::Verifica_Existencia_Archivo(bak_shp)) {
      TFitxUtils::Backup_File(nombre_shp, bak_shp);
      TFitxUtils::Backup_File(nombre_shx, bak_shx);
    }
  }

  int modo = escribir ? kModoLeerEscribirMapa : kModoLeerMapa;
  if (!shp.Abre(nombre_shp, modo, nullptr)) {
    msg = escribir ? FormatoFichero(fmt_save, "Error: Cannot open %s for saving.", path.c_str())
                   : FormatoFichero(fmt_open, "Error: File %s not found.", path.c_str());
    return false;
  }
  shx_abierto = shx.Abre(nombre_shx, modo, nullptr);
  if (shx_abierto || !escribir) return true;
  msg = FormatoFichero(fmt_open, "Error: File %s not found.", nombre_shx.c_str());
  return false;
}

void TPrivateDataSHP::Asienta() {
  anyadiendo = false;
  if (!terminador_pendiente) return;
  terminador_pendiente = false;
  int32_t cero = 0;
  shp.Posicionate64(2LL * long_shp_words);
  shp.PonTokenBin(&cero, 4, nullptr, -1);
}

void TPrivateDataSHP::Cierra() {
  shp.CierraEx(true, nullptr);
  shx.CierraEx(true, nullptr);
}

bool Set_Archivo_Modo_Leer_Escribir(TVectorMapPlugIn& map, TStringPlugIn& err) {
  if (map.modo_escritura) return true;
  TPrivateDataSHP* d = map.privado;
  d->Cierra();
  DString msg;
  if (!d->Abre(true, msg)) {
    EnviaError(&err, msg.c_str());
    return false;
  }
  map.modo_escritura = 1;
  return true;
}
