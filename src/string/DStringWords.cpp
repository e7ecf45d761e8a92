// Cutting a text into words at separator characters, and joining words.
#include <cstring>

#include "core/Vector.h"
#include "string/DString.h"

namespace {

// Appends a word holding `n` characters of `p`, tagged with `codepage`
// when that is not negative.
DString* add_word(Vector<DString>& words, const char* p, int n, int codepage) {
  DString* w = words.Anyade(-1);
  // The block is made first, then the characters copied into it: a word
  // grows from that block as any copy would.
  w->Incre_A(1, true);
  if (codepage >= 0) w->SetCodepage(codepage);
  w->strncpy(p, n);
  return w;
}

// The splitter behind every form; `keep_sep` makes each word keep the
// separator that ended it.
bool split(const CDString& text, const char* separators, Vector<DString>& words, int max_words,
           bool keep_empty, int codepage, bool keep_sep) {
  // A copy, since emptying `words` may free the very string being split.
  DString copy(text.c_str());
  words.Vacia(words.propietario);
  const char* t = copy.c_str();
  const char* seps = separators ? separators : "";
  int n = copy.Len();
  int start = 0;
  char last_compared = 0;
  auto limit_reached = [&] { return max_words >= 0 && max_words <= words.numero; };
  for (int i = 0; i < n; i++) {
    for (const char* s = seps; *s; ++s) {
      last_compared = *s;
      if (t[i] != *s) continue;
      // A separator in the first position belongs to the first word.
      if (i == 0 && !keep_empty) break;
      if (limit_reached()) break;
      if (start < i || keep_empty) {
        DString* w = add_word(words, t + start, i - start, codepage);
        if (keep_sep) *w += *s;
      }
      start = i + 1;
      break;
    }
  }
  if (!limit_reached()) {
    if (start != n) {
      // The tail keeps the default code page of a new string.
      DString* w = words.Anyade(-1);
      *w = t + start;
      if (keep_sep) *w += last_compared;
    }
  } else if (words.numero == max_words && n > start) {
    // With the limit reached the rest joins the last word, with the
    // separator that ended it. A limit of 0 asks for key base - 1 and throws.
    words[words.base + words.numero - 1] += t + start - 1;
  }
  return true;
}

}  // namespace

bool CDString::Separa_En_Palabras(const char* separators, Vector<DString>& words, int max_words,
                                  bool keep_empty, int codepage) const {
  return split(*this, separators, words, max_words, keep_empty, codepage, false);
}

bool DString::Separa_En_Palabras(const char* separators, Vector<DString>& words, int max_words,
                                 bool keep_empty) const {
  return split(*this, separators, words, max_words, keep_empty, GetCodepage(), false);
}

bool CDString::Separa_En_Palabras_Y_Mantiene(const char* separators, Vector<DString>& words,
                                             int max_words, bool keep_empty,
                                             int codepage) const {
  return split(*this, separators, words, max_words, keep_empty, codepage, true);
}

bool CDString::Separa_En_Palabras_SinEspacios(const char* separators, Vector<DString>& words,
                                              int max_words, int keep_empty) const {
  bool r = split(*this, separators, words, max_words, keep_empty != 0, 0, false);
  for (int i = 0; i < words.numero; i++)
    if (words.datos[i]) words.datos[i]->Saca_Espacios_AntesDespues();
  return r;
}

bool CDString::Separa_en_Dos_Por(DString& left, DString& right, char c) const {
  if (!str) return false;
  const char* p = std::strchr(str, c);
  if (!p || p == str || !c) return false;
  // Work on a copy: either output may be this very string.
  DString whole(str);
  int at = static_cast<int>(p - str);
  right = whole.c_str() + at + 1;
  whole.buffer()[at] = 0;
  left = whole.c_str();
  return true;
}

bool CDString::Separa_Por_Asignacion(DString& left, DString& right) const {
  return Separa_en_Dos_Por(left, right, '=');
}

void DString::VectorToString(Vector<DString>& words, DString separator) {
  if (separator.IsEmpty()) separator = ",";
  DString result;
  for (int i = 0; i < words.numero; i++) {
    const DString* w = words.datos[i];
    if (!w) continue;
    if (!result.IsEmpty()) result += separator.c_str();
    result += w->c_str();
  }
  *this = result.c_str();
}
