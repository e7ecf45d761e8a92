#include "filesys/StringNomFitx.h"

#include <strings.h>
#include <sys/stat.h>

#include <string>
#include <vector>

// Every operation works on std::string copies of the text and assigns the
// result back at the end, so an argument that aliases the object itself (or
// points into its buffer) is never read after the buffer has changed.

DString TStringNomFitx::dir_exe;
DString TStringNomFitx::nom_exe;
DString TStringNomFitx::app_path;
DString TStringNomFitx::global_path_app_data;
DString TStringNomFitx::dir_mydocs;
DString TStringNomFitx::main_app_path;
DString TStringNomFitx::CurrentDir;
const char* TStringNomFitx::VardaGPSApp = "$(VardaGPSApp)";

namespace {

using std::string;
constexpr size_t npos = string::npos;

string S(const char* s) { return s ? string(s) : string(); }

// Index of the first character of the name: after the last "/" or backslash.
size_t name_start(const string& t) {
  size_t a = t.rfind('/');
  size_t b = t.rfind('\\');
  if (a == npos) return b == npos ? 0 : b + 1;
  if (b == npos) return a + 1;
  return (a > b ? a : b) + 1;
}

// The folder counts only "/" as a separator.
string folder_of(const string& t) {
  size_t p = t.rfind('/');
  return p == npos ? string() : t.substr(0, p);
}

string name_of(const string& t) { return t.substr(name_start(t)); }

string join(const string& folder, const string& name) {
  string r = folder;
  if (!r.empty() && r.back() != '/') r += '/';
  return r + name;
}

// Position of the last "." that lies after the last "/", or npos.
size_t ext_dot(const string& t) {
  size_t dot = t.rfind('.');
  size_t slash = t.rfind('/');
  if (dot == npos) return npos;
  if (slash != npos && dot < slash) return npos;
  return dot;
}

string ext_of_name(const string& name) {
  size_t d = name.rfind('.');
  return d == npos ? string() : name.substr(d + 1);
}

string stem_of_name(const string& name) {
  size_t d = name.rfind('.');
  return (d == npos || d < 1) ? name : name.substr(0, d);
}

bool equal_nocase(const string& a, const string& b) {
  return strcasecmp(a.c_str(), b.c_str()) == 0;
}

void replace_all(string& t, const string& from, const string& to) {
  if (from.empty()) return;
  size_t p = 0;
  while ((p = t.find(from, p)) != npos) {
    t.replace(p, from.size(), to);
    p += to.size();
  }
}

}  // namespace

// ---------------------------------------------------------------- building

void TStringNomFitx::Set_Path_y_Fitx(const char* folder, const char* name) {
  *this = join(S(folder), S(name)).c_str();
}

void TStringNomFitx::Set_Path(const char* folder) {
  string n = name_of(S(c_str()));
  *this = join(S(folder), n).c_str();
}

void TStringNomFitx::Set_nom_fitx_ext(const char* name) {
  string f = folder_of(S(c_str()));
  *this = join(f, S(name)).c_str();
}

void TStringNomFitx::Set_nom_fitx_sinext(const char* stem) {
  string t = c_str();
  string ext = ext_of_name(name_of(t));
  // An extension-less name keeps the bare "." on purpose.
  string n = S(stem) + "." + ext;
  *this = join(folder_of(t), n).c_str();
}

void TStringNomFitx::StrcatNom(const char* suffix) {
  string t = c_str();
  string n = name_of(t);
  string r = stem_of_name(n) + S(suffix) + "." + ext_of_name(n);
  *this = join(folder_of(t), r).c_str();
}

void TStringNomFitx::Cambia_Ext(const char* ext) {
  string t = c_str();
  string e = S(ext);
  size_t d = ext_dot(t);
  if (d != npos) t.erase(d);
  if (!e.empty() && e[0] != '.') t += '.';
  t += e;
  *this = t.c_str();
}

void TStringNomFitx::Elimina_Ultima_Extension() {
  string t = c_str();
  size_t d = ext_dot(t);
  if (d == npos) return;
  t.erase(d);
  *this = t.c_str();
}

void TStringNomFitx::Anyade_Ext_sinohay(const char* ext) {
  string t = c_str();
  if (ext_dot(t) == npos) {
    t += '.';
    t += S(ext);
  } else if (!t.empty() && t.back() == '.') {
    t += S(ext);
  } else {
    return;
  }
  *this = t.c_str();
}

void TStringNomFitx::Anyade_dir_sinotiene(const char* folder) {
  string t = c_str();
  if (t.find('/') != npos) return;
  *this = join(S(folder), t).c_str();
}

bool TStringNomFitx::Anyade_ConPathFitx(const TStringNomFitx& other) {
  string t = c_str();
  string o = other.c_str();
  if (!t.empty() && t.back() == '/') t.pop_back();
  string of = folder_of(o);
  if (!t.empty() && !of.empty() && of[0] != '/') t += '/';
  t += of;
  *this = join(t, name_of(o)).c_str();
  return true;
}

void TStringNomFitx::Set_Path_del_Fitx(const TStringNomFitx& other) {
  if (Path_Absoluto()) return;
  string t = c_str();
  string old_folder = folder_of(t);
  // Joined rather than glued with a bare "/": a reference name without a
  // folder must not turn a relative name into one under the root, while one
  // right under the root puts it there.
  string of = folder_of(S(other.c_str()));
  if (of.empty() && other.c_str()[0] == '/') of = "/";
  *this = join(of, name_of(t)).c_str();
  if (!old_folder.empty()) cd(old_folder.c_str(), true);
}

bool TStringNomFitx::Separa_Parametros(DString& params) {
  string t = c_str();
  bool quoted = false;
  for (size_t i = 0; i < t.size(); i++) {
    if (t[i] == '"') {
      quoted = !quoted;
    } else if (t[i] == ' ' && !quoted) {
      if (i < 1) return false;
      params = t.substr(i + 1).c_str();
      *this = t.substr(0, i).c_str();
      return true;
    }
  }
  return false;
}

void TStringNomFitx::Set_Path_Volume(DString volume) {
  string t = c_str();
  string r = "/Volumes/" + S(volume.c_str());
  if (t.empty() || t[0] != '/') r += '/';
  r += t;
  if (r.back() != '/') r += '/';
  *this = r.c_str();
}

// Changing folder. A path with several components is walked one component at
// a time; ".." climbs, "." stays, anything else descends.
void TStringNomFitx::cd(const char* dir, bool keep_name) {
  TStringNomFitx d(dir);
  d.Arregla_dir_carac();
  string ds = d.c_str();
  string t = c_str();
  // A lone "/" is not absolute by the two-character rule, yet it names the
  // root: treat it as such instead of splitting it into itself forever.
  if (d.Path_Absoluto() || ds == "/") {
    *this = keep_name ? join(S(dir), name_of(t)).c_str() : S(dir).c_str();
    return;
  }
  if (ds.find('/') != npos) {
    std::vector<string> words;
    size_t start = 0;
    for (size_t i = 0; i <= ds.size(); i++) {
      if (i == ds.size() || ds[i] == '/') {
        if (i > start) words.push_back(ds.substr(start, i - start));
        start = i + 1;
      }
    }
    for (const string& w : words) cd(w.c_str(), keep_name);
    return;
  }
  string w, n;
  if (keep_name) {
    w = folder_of(t);
    n = name_of(t);
  } else {
    w = t;
  }
  if (ds == "..") {
    if (!w.empty() && w.back() == '/') w.pop_back();
    size_t p = w.rfind('/');
    if (p == npos) return;
    // Climbing out of a top-level folder lands on the root, not on a
    // relative name.
    w = p == 0 ? string("/") : w.substr(0, p);
  } else if (ds == ".") {
    return;
  } else {
    // An empty folder gives a leading "/"; a folder that already ends in one
    // does not get a second.
    if (w.empty() || w.back() != '/') w += '/';
    w += ds;
  }
  *this = join(w, n).c_str();
}

// ---------------------------------------------------------------- base folders

bool TStringNomFitx::Set_Path_Exe() {
  if (dir_exe.IsEmpty()) return false;
  Set_Path(dir_exe.c_str());
  return true;
}

bool TStringNomFitx::Set_Path_ExeF() {
  Set_Path(dir_exe.c_str());
  return true;
}

bool TStringNomFitx::Set_Path_AppData() {
  if (!global_path_app_data.IsEmpty()) {
    Set_Path(global_path_app_data.c_str());
    return true;
  }
  return Set_Path_Exe();
}

void TStringNomFitx::Set_Path_Exe_o_AppData() { Set_Path_AppData(); }

void TStringNomFitx::Set_Path_Docs() { Set_Path(CurrentDir.c_str()); }

bool TStringNomFitx::Set_Path_Temp() {
  bool r = Set_Path_AppData();
  cd("temp", true);
  return r;
}

void TStringNomFitx::Set_this_Path_Exe(const char* exe_path) {
  dir_exe = folder_of(S(exe_path)).c_str();
}
void TStringNomFitx::Set_this_Path_de_AppData(const char* folder) {
  global_path_app_data = folder;
}
void TStringNomFitx::Set_this_Path_Main_App(const char* folder) { main_app_path = folder; }
void TStringNomFitx::Set_this_Path_MyDocuments(const char* folder) { dir_mydocs = folder; }
DString TStringNomFitx::Ret_Path_Exe() { return dir_exe; }
DString TStringNomFitx::Ret_Path_AppData() { return app_path; }

void TStringNomFitx::DeleteGlobals() {
  dir_exe.Deletea();
  nom_exe.Deletea();
  app_path.Deletea();
  dir_mydocs.Deletea();
  global_path_app_data.Deletea();
  main_app_path.Deletea();
}

// ---------------------------------------------------------------- taking apart

DString TStringNomFitx::npath() const { return DString(folder_of(c_str()).c_str()); }

DString TStringNomFitx::Obten_Carpeta() const {
  string f = folder_of(c_str());
  if (!f.empty() && f.back() != '/') f += '/';
  return DString(f.c_str());
}

char TStringNomFitx::Obten_Unidad_c() const {
  string f = folder_of(c_str());
  return f.empty() ? 0 : f[0];
}

const char* TStringNomFitx::nom_fitx_ext() const {
  const char* t = c_str();
  return t + name_start(t);
}

DString TStringNomFitx::nom_fitx_sinext() const {
  return DString(stem_of_name(nom_fitx_ext()).c_str());
}

DString TStringNomFitx::extension() const {
  return DString(ext_of_name(nom_fitx_ext()).c_str());
}

void TStringNomFitx::Separa_Path_Fitx(DString& folder, DString& name) const {
  string t = c_str();
  folder = folder_of(t).c_str();
  name = name_of(t).c_str();
}

bool TStringNomFitx::es_extension(const char* ext) const {
  return equal_nocase(ext_of_name(nom_fitx_ext()), S(ext));
}

DString TStringNomFitx::extension_intermedia() const {
  string t = c_str();
  size_t l = t.rfind('/');
  if (l == npos || l == 0) return DString();
  size_t dot = t.rfind('.', l - 1);
  if (dot == npos) return DString();
  if (t.find('/', dot) != l) return DString();
  return DString(t.substr(dot + 1, l - dot - 1).c_str());
}

bool TStringNomFitx::es_extension_intermedia(const char* ext) const {
  return equal_nocase(extension_intermedia().c_str(), S(ext));
}

TStringNomFitx TStringNomFitx::MainFile() const {
  string t = c_str();
  size_t x = t.find('!');
  // Without a container mark the folder is the answer, by design.
  if (x == npos) return TStringNomFitx(folder_of(t).c_str());
  return TStringNomFitx(t.substr(0, x).c_str());
}

TStringNomFitx TStringNomFitx::SubFile() const {
  string t = c_str();
  size_t x = t.find('!');
  if (x != npos) {
    size_t s = t.find('/', x);
    if (s != npos) return TStringNomFitx(t.substr(s + 1).c_str());
  }
  return TStringNomFitx(nom_fitx_ext());
}

DString TStringNomFitx::ExtensionInet() const {
  string t = c_str();
  size_t q = t.find('?');
  if (q == npos) return extension();
  if (q == 0) return DString();
  size_t dot = t.rfind('.', q - 1);
  if (dot == npos) return DString();
  return DString(t.substr(dot + 1, q - dot - 1).c_str());
}

bool TStringNomFitx::Separa_Carpeta_Padre_y_Esta(TStringNomFitx& parent, DString& name) {
  string t = c_str();
  if (t.empty()) return false;
  if (t.back() == '/') {
    t.pop_back();
    *this = t.c_str();
  }
  name = name_of(t).c_str();
  parent = (folder_of(t) + "/").c_str();
  return true;
}

bool TStringNomFitx::Path_Absoluto() const {
  const char* t = c_str();
  if (!t[0] || !t[1]) return false;
  if (t[1] == ':' || t[0] == '/') return true;
  return S(t).find(':') != npos;
}

DString TStringNomFitx::Obten_Unidad() const {
  string t = c_str();
  static const string kVol = "/Volumes/";
  size_t v = t.find(kVol);
  if (v != npos) {
    size_t b = v + kVol.size();
    size_t e = t.find('/', b);
    if (e == npos) return DString();
    return DString(t.substr(b, e - b).c_str());
  }
  if (t.find('/') != npos) return DString();
  return DString(t.c_str());
}

DString TStringNomFitx::Obten_Unidad_Formateada() const {
  DString r("/Volumes/");
  r += Obten_Unidad();
  r += "/";
  return r;
}

DString TStringNomFitx::Obten_Unidad_Typo() const {
  string t = c_str();
  if (t.empty() || t[0] != '/') return DString();
  size_t e = t.find('/', 1);
  return DString(t.substr(1, e == npos ? npos : e - 1).c_str());
}

// The root of the system ("/") or of a mounted volume ("/Volumes/name").
bool TStringNomFitx::es_dir_raiz() const {
  string t = c_str();
  if (t == "/") return true;
  std::vector<string> words;
  size_t start = 0;
  for (size_t i = 1; i <= t.size(); i++) {
    if (i == t.size() || t[i] == '/') {
      if (i > start) words.push_back(t.substr(start, i - start));
      start = i + 1;
    }
  }
  if (words.empty()) return false;
  return equal_nocase(words[0], "/Volumes") && words.size() < 3;
}

bool TStringNomFitx::Es_Archivo_Hijo(const TStringNomFitx& child, int& length) const {
  length = Len();
  if (length > 0 && Ultimo_Caracter() == '/') length--;
  if (length < 1) return false;
  const char* c = child.c_str();
  if (child.Len() <= length) return false;
  return strncasecmp(c, c_str(), static_cast<size_t>(length)) == 0 && c[length] == '/';
}

bool TStringNomFitx::Resta_Path(const char* base) {
  TStringNomFitx b;
  b.Set_Path_y_Fitx(base, "");
  int length = 0;
  if (!b.Es_Archivo_Hijo(*this, length)) return false;
  string t = c_str();
  *this = t.substr(static_cast<size_t>(length) + 1).c_str();
  return true;
}

bool TStringNomFitx::Quita_Path_ifposible(const TStringNomFitx& base) {
  if (!Path_Absoluto() || !base.Path_Absoluto()) return false;
  string t = c_str();
  string mine = folder_of(t);
  string theirs = folder_of(base.c_str());
  if (mine == theirs) {
    *this = name_of(t).c_str();
    return true;
  }
  // Only a true subfolder: 'C:/data2' does not lie under 'C:/data'.
  if (mine.size() > theirs.size() && mine.compare(0, theirs.size(), theirs) == 0 &&
      mine[theirs.size()] == '/') {
    *this = t.substr(theirs.size() + 1).c_str();
    return true;
  }
  return false;
}

bool TStringNomFitx::Verifica_Existencia_Carpeta(bool folder_of_file) const {
  string t = c_str();
  string p = folder_of_file ? folder_of(t) : t;
  // A file directly under the root has an empty folder text.
  if (folder_of_file && p.empty() && !t.empty() && t[0] == '/') p = "/";
  if (p.empty()) return false;
  struct stat st;
  if (stat(p.c_str(), &st) != 0) return false;
  return S_ISDIR(st.st_mode);
}

// ---------------------------------------------------------------- comparison

bool TStringNomFitx::operator==(const TStringNomFitx& o) const {
  return strcasecmp(c_str(), o.c_str()) == 0;
}

bool TStringNomFitx::operator<(const TStringNomFitx& o) const {
  return strcasecmp(c_str(), o.c_str()) < 0;
}

bool TStringNomFitx::Igual_A(const TStringNomFitx& other, bool exact) const {
  string a = c_str();
  string b = other.c_str();
  if (!exact) {
    if (!a.empty() && a.back() != '/') a += '/';
    if (!b.empty() && b.back() != '/') b += '/';
  }
  return equal_nocase(a, b);
}

// ---------------------------------------------------------------- stored names

void TStringNomFitx::CodificaNomFitx() {
  if (main_app_path.IsEmpty()) return;
  string t = c_str();
  replace_all(t, main_app_path.c_str(), VardaGPSApp);
  *this = t.c_str();
}

void TStringNomFitx::DescodificaNomFitx() {
  if (main_app_path.IsEmpty()) return;
  string t = c_str();
  replace_all(t, VardaGPSApp, main_app_path.c_str());
  *this = t.c_str();
}
