// IteradorFitx.h - walking the entries of one folder that match a pattern,
// and matching names against patterns with a single "*".
#ifndef VARDA_FILESYS_ITERADORFITX_H
#define VARDA_FILESYS_ITERADORFITX_H

#include <dirent.h>

#include "core/Vector.h"
#include "filesys/StringNomFitx.h"
#include "string/DString.h"

// Iterates over the entries of the folder of `pattern_path` whose full paths
// match it (fnmatch), or over all of them when its name part is "*.*". The
// entries "." and ".." are returned like any other; callers skip them. After
// the last entry the next call starts the folder again from the beginning.
//
//   TIteradorFitx it("/data/*.shp");
//   while (it.Siguiente()) use(it.fitx, it.es_carpeta);
class TIteradorFitx {
 public:
  explicit TIteradorFitx(const TStringNomFitx& pattern_path);
  ~TIteradorFitx();
  TIteradorFitx(const TIteradorFitx&) = delete;
  TIteradorFitx& operator=(const TIteradorFitx&) = delete;

  // Next matching entry; false at the end (the folder is then closed) or
  // when the folder cannot be opened.
  bool Siguiente2();
  // Siguiente2, stepping over hidden entries unless told not to test them.
  // Nothing is hidden on this platform, so hidden (dot) entries are seen.
  bool Siguiente();
  // Kept for callers; the entry is complete after each step.
  void Rellena_Fitx_Actual() {}

  TStringNomFitx fitx;       // full path of the entry last returned
  bool es_carpeta = false;   // that entry is a folder
  bool opcion = false;       // kept for callers; no effect on this platform
  bool sin_test_ocultos = false;  // Siguiente does not test for hidden entries
  TStringNomFitx carpeta;    // the folder being read
  bool sin_filtro = false;   // Siguiente does not test for hidden entries

 private:
  DIR* dir = nullptr;
  DString patron;            // empty: every entry matches
};

// One name against one pattern holding at most one "*" (the first; any later
// "*" and every "?" are ordinary characters). Case is ignored; the star never
// matches a folder separator.
bool Verifica_Pertenencia_Windcards_2(const DString& pattern, const DString& name);
// A file name against a pattern, stems and extensions matched separately, so
// that "*.*" also matches a name without an extension.
bool Verifica_Pertenencia_Windcards(const DString& pattern, const DString& name);

// Searching folder trees is not available on this platform: these find
// nothing and return false.
bool Busca_Archivo_Carpetas(const char* folder, const char* name, TStringNomFitx& found);
bool Busca_Archivos_Carpetas(const TStringNomFitx& pattern, Vector<TStringNomFitx>& found);

#endif
