// The code page registry: names, numbers and the list of code page tables.
#include "codepage/CodePageHelper.h"

TCodePageHelper* CodePageHelper = new TCodePageHelper;

namespace {
bool borrado_por_DeleteGlobals = false;

// The registry goes with the library when a host unloads the plug-in, so that
// loading and unloading it repeatedly loses nothing.
struct LiberaAlDescargar {
  ~LiberaAlDescargar() {
    if (!borrado_por_DeleteGlobals) delete CodePageHelper;
  }
} libera_al_descargar;
}  // namespace

TCodePageHelper::TCodePageHelper() : Vector<TCodePageVarda>(0, 10, true) {}

TCodePageHelper::~TCodePageHelper() { Vacia(true); }

void TCodePageHelper::DeleteGlobals() {
  if (CodePageHelper) delete CodePageHelper;
  borrado_por_DeleteGlobals = true;
}

TCodePageVarda* TCodePageHelper::AbreCodepage(TStringNomFitx&) { return Anyade(-1); }

DString TCodePageHelper::CodepageNumToName(int cp) const {
  return DString(cp == 65001 ? "UTF-8" : "");
}

int TCodePageHelper::CodepageNameToNum(const DString& name) const {
  DString n(name);
  n.A_Mayusculas(false);  // does nothing: the comparison stays case-sensitive
  if (n.Strcmp("UTF-8") == 0) return 65001;
  if (n.Strcmp("ISO-8859-1") == 0) return 28591;
  return -1;
}

int TCodePageHelper::CodepagePropio(int cp) {
  if (cp == 0) cp = 1252;
  if (cp == cache_codepage) return cache_indice;
  cache_codepage = cp;
  cache_indice = -1;
  for (int i = 0; i < numero; i++) {
    if (datos[i] && datos[i]->codepage == cp) {
      cache_indice = i + base;
      break;
    }
  }
  return cache_indice;
}

int TCodePageHelper::KeyFromUTFToCodepage(int key, int cp) {
  int i = CodepagePropio(cp);
  if (i < 0 || key < 128) return key;
  const TCodePageVarda& t = (*this)[i];
  int result = 63;
  int n = t.Paginas() * 128 + 1;
  for (int j = 0; j < n; j++)
    if (t.tabla[j] == key) result = 128 + j % 128;  // the last match wins
  return result;
}
