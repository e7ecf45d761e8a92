#include "filesys/IteradorFitx.h"

#include <fnmatch.h>
#include <strings.h>
#include <sys/stat.h>

#include <cstring>
#include <string>

#include "filesys/FitxUtils.h"

TIteradorFitx::TIteradorFitx(const TStringNomFitx& pattern_path) {
  TStringNomFitx p(pattern_path);
  p.Arregla_dir_carac();
  carpeta = p.npath();
  // The folder of a name right under the root is the root itself.
  if (carpeta.IsEmpty() && p.c_str()[0] == '/') carpeta = "/";
  // The pattern is matched against full paths, so it keeps its folder; it is
  // taken after the separator fix so that it has the form of the candidates.
  if (std::strcmp(p.nom_fitx_ext(), "*.*") != 0) patron = p;
}

TIteradorFitx::~TIteradorFitx() {
  if (dir) closedir(dir);
}

bool TIteradorFitx::Siguiente2() {
  if (!dir) {
    // A pattern without a folder reads the working folder.
    dir = opendir(carpeta.IsEmpty() ? "." : carpeta.c_str());
    if (!dir) return false;
  }
  for (;;) {
    struct dirent* e = readdir(dir);
    if (!e) {
      closedir(dir);
      dir = nullptr;
      return false;
    }
    TStringNomFitx cand;
    cand.Set_Path_y_Fitx(carpeta.c_str(), e->d_name);
    if (!patron.IsEmpty() && fnmatch(patron.c_str(), cand.c_str(), 0) != 0) continue;
    fitx = cand;
    // Only true directories: a symbolic link to a folder is an entry of its
    // own (deleting it must not reach into the folder it points to), and
    // devices and sockets, whose type codes share bits with the directory
    // code, are not folders either. Some file systems give no type at all.
    if (e->d_type == DT_UNKNOWN) {
      struct stat st;
      es_carpeta = lstat(cand.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
    } else {
      es_carpeta = e->d_type == DT_DIR;
    }
    return true;
  }
}

bool TIteradorFitx::Siguiente() {
  for (;;) {
    if (!Siguiente2()) return false;
    if (sin_test_ocultos || sin_filtro) return true;
    if (!TFitxUtils::IsFileHidden(fitx)) return true;
  }
}

// ---------------------------------------------------------------- wildcards

namespace {

bool starts_nocase(const std::string& s, const std::string& pre) {
  return s.size() >= pre.size() && strncasecmp(s.c_str(), pre.c_str(), pre.size()) == 0;
}

bool ends_nocase(const std::string& s, const std::string& suf) {
  return s.size() >= suf.size() &&
         strcasecmp(s.c_str() + (s.size() - suf.size()), suf.c_str()) == 0;
}

void split_stem_ext(const std::string& t, std::string& stem, std::string& ext) {
  size_t d = t.rfind('.');
  stem = (d == std::string::npos || d < 1) ? t : t.substr(0, d);
  ext = d == std::string::npos ? std::string() : t.substr(d + 1);
}

bool match_one(const std::string& pat, const std::string& name) {
  size_t p = pat.find('*');
  if (p == std::string::npos) return strcasecmp(pat.c_str(), name.c_str()) == 0;
  if (pat == "*") return true;
  std::string prefix = pat.substr(0, p);
  std::string suffix = pat.substr(p + 1);
  if (name.size() < p) return false;
  if (!prefix.empty() && !starts_nocase(name, prefix)) return false;
  if (!suffix.empty()) {
    if (name.size() < prefix.size() + suffix.size()) return false;
    if (!ends_nocase(name, suffix)) return false;
  }
  return name.find_first_of("/\\", p) == std::string::npos;
}

}  // namespace

bool Verifica_Pertenencia_Windcards_2(const DString& pattern, const DString& name) {
  return match_one(pattern.c_str(), name.c_str());
}

bool Verifica_Pertenencia_Windcards(const DString& pattern, const DString& name) {
  std::string ps, pe, ns, ne;
  split_stem_ext(pattern.c_str(), ps, pe);
  split_stem_ext(name.c_str(), ns, ne);
  if (!match_one(ps, ns)) return false;
  return match_one(pe, ne);
}

bool Busca_Archivo_Carpetas(const char*, const char*, TStringNomFitx&) { return false; }

bool Busca_Archivos_Carpetas(const TStringNomFitx&, Vector<TStringNomFitx>&) { return false; }
