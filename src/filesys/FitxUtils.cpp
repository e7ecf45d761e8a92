#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif

#include "filesys/FitxUtils.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "file/FicheroITV.h"
#include "file/SistemaFicheros.h"
#include "filesys/IteradorFitx.h"

// Operations that only name files; those that read or write contents go
// through the file object and live in FitxUtilsCopy.cpp. Lookups, removals
// and renames go through the file system in use, so that a memory disk put
// in place of the real one sees them.

bool TFitxUtils::Verifica_Existencia_Archivo_1(const TStringNomFitx& name) {
  TSistemaFicheros& sf = SistemaFicheros();
  // Asked first without opening: opening a FIFO for reading would block.
  if (sf.Tipo(name.c_str()) != TSistemaFicheros::kRegular) return false;
  std::unique_ptr<TFicheroITV_Base> b(sf.NuevoBackend(name, MODO_LEER | MODO_BINARIO));
  int modo = MODO_LEER | MODO_BINARIO;
  if (!b || !b->Abre(name, modo, nullptr)) return false;
  b->Cierra(nullptr);
  return true;
}

bool TFitxUtils::Crea_Carpeta(const TStringNomFitx& name, bool folder_of_file) {
  if (folder_of_file) {
    TStringNomFitx folder(name.npath());
    folder += "/";
    return Crea_Carpeta(folder, false);
  }
  if (name.Verifica_Existencia_Carpeta(false)) return true;
  TStringNomFitx parent(name);
  parent.cd("..", false);
  // A parent that is not shorter means there is nothing above to create.
  if (parent.Len() >= name.Len()) return false;
  if (!Crea_Carpeta(parent, false)) return false;
  return mkdir(name.c_str(), 0700) == 0;
}

bool TFitxUtils::Delete_File(const TStringNomFitx& name) {
  return SistemaFicheros().Borra(name.c_str());
}

bool TFitxUtils::Remove_Directory(const TStringNomFitx& name) { return Delete_File(name); }

bool TFitxUtils::Move_File(const TStringNomFitx& src, const TStringNomFitx& dst) {
  return SistemaFicheros().Renombra(src.c_str(), dst.c_str());
}

namespace {

// Every entry of `folder`; an empty folder is the working folder ("*.*"),
// never the root that "/" + "*.*" would name.
TStringNomFitx all_entries(const TStringNomFitx& folder) {
  TStringNomFitx p(folder);
  if (!p.IsEmpty() && p.Ultimo_Caracter() != '/') p += "/";
  p += "*.*";
  return p;
}

bool is_dot_entry(const TStringNomFitx& path) {
  const char* n = path.nom_fitx_ext();
  return std::strcmp(n, ".") == 0 || std::strcmp(n, "..") == 0;
}

}  // namespace

bool TFitxUtils::Borra_Carpeta(const TStringNomFitx& name) {
  // No name names no folder: nothing is removed.
  if (name.IsEmpty()) return false;
  TIteradorFitx it(all_entries(name));
  while (it.Siguiente()) {
    if (is_dot_entry(it.fitx)) continue;
    bool ok = it.es_carpeta ? Borra_Carpeta(it.fitx) : Delete_File(it.fitx);
    if (!ok) return false;
  }
  return Delete_File(name);
}

int TFitxUtils::Num_Files_Carpeta(const TStringNomFitx& name) {
  int n = 0;
  if (name.IsEmpty()) return 0;
  TIteradorFitx it(all_entries(name));
  while (it.Siguiente()) {
    if (is_dot_entry(it.fitx)) continue;
    n += it.es_carpeta ? Num_Files_Carpeta(it.fitx) : 1;
  }
  return n;
}

bool TFitxUtils::Files_Carpeta(const TStringNomFitx& folder, Vector<TStringNomFitx>& out,
                               bool recursive, bool files_only) {
  // An empty folder is the working folder, as for the iterator.
  TStringNomFitx probe(folder.IsEmpty() ? TStringNomFitx(".") : folder);
  if (!probe.Verifica_Existencia_Carpeta(false)) return false;
  TIteradorFitx it(all_entries(folder));
  while (it.Siguiente()) {
    if (is_dot_entry(it.fitx)) continue;
    if (it.es_carpeta) {
      if (recursive) Files_Carpeta(it.fitx, out, true, files_only);
      if (!files_only) out.Anyade(it.fitx);
    } else {
      out.Anyade(it.fitx);
    }
  }
  return true;
}

bool TFitxUtils::Delete_Files(const TStringNomFitx& pattern) {
  TStringNomFitx folder(pattern.npath());
  DString ext = pattern.extension();
  std::string prefix = pattern.nom_fitx_ext();
  prefix = prefix.substr(0, prefix.find('*'));

  Vector<TStringNomFitx> list(10, 10, true);
  Files_Carpeta(folder, list, false, true);
  bool ok = true;
  for (int i = 0; i < list.numero; i++) {
    const TStringNomFitx& f = list[i];
    if (!f.es_extension(ext.c_str())) continue;
    if (std::strncmp(f.nom_fitx_ext(), prefix.c_str(), prefix.size()) != 0) continue;
    if (!Delete_File(f)) ok = false;
  }
  return ok;
}
