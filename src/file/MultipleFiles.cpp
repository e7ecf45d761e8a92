// MultipleFiles.cpp - the installed container manager and the file object's
// questions to it.

#include "file/MultipleFiles.h"

#include "core/Vector.h"

TVirtualFatMultipleFiles* vMultipleFiles = nullptr;

void Set_MultipleFiles_Manager(TVirtualFatMultipleFiles* m) { vMultipleFiles = m; }

long long TFicheroITV::GetMultipleFilePos(TStringNomFitx& nombre_miembro, long long& longitud) {
  if (!vMultipleFiles) return -1;
  TStringNomFitx contenedor(nombre_miembro.npath());
  if (!vMultipleFiles->EsContenedor(contenedor)) return -1;
  if (!Abre(nombre_miembro, MODO_LEER | MODO_BINARIO | MODO_MULTIPLE, nullptr)) return -1;
  nombre_miembro = contenedor;
  longitud = long_sub;
  return offset_sub;
}

bool TFicheroITV::GetMultipleFileList(const TStringNomFitx& contenedor,
                                      Vector<TStringNomFitx>& lista) {
  if (!vMultipleFiles || !vMultipleFiles->EsContenedor(contenedor)) return false;
  TFicheroITV temporal;
  if (!temporal.Abre(contenedor, MODO_LEER | MODO_BINARIO, nullptr)) return false;
  bool ok = vMultipleFiles->ListaMiembros(temporal, contenedor, lista);
  temporal.CierraEx(true, nullptr);
  return ok;
}
