// Finding characters and substrings, and consuming a string word by word.
#include <cctype>
#include <cstring>

#include "string/BMString.h"
#include "string/DString.h"

// ---------------------------------------------------------------- characters

int CDString::strchr(int from, char c) const {
  const char* t = c_str();
  if (from < 0) from = 0;
  // An offset past the terminator would search outside the text.
  if (from > Len()) return -1;
  const char* p = std::strchr(t + from, c);
  return p ? static_cast<int>(p - t) : -1;
}

int CDString::strchr_single(int from, char c) const { return strchr(from, c); }

int CDString::strchrs(int from, const char* set) const {
  if (!set || !*set) return -1;
  if (from < 0) from = 0;
  int n = Len();
  for (int i = from; i < n; i++)
    if (std::strchr(set, str[i])) return i;
  return -1;
}

int CDString::strchr_inv(char c) const {
  const char* t = c_str();
  const char* p = std::strrchr(t, c);
  return p ? static_cast<int>(p - t) : -1;
}

int CDString::strchr_inv(int from, char c) const {
  int n = Len();
  if (from > n - 1) from = n - 1;
  for (int i = from; i >= 0; i--)
    if (str[i] == c) return i;
  return -1;
}

// ---------------------------------------------------------------- substrings

int CDString::strstr(const char* s) const {
  const char* t = c_str();
  const char* p = std::strstr(t, s ? s : "");
  return p ? static_cast<int>(p - t) : -1;
}

// The greatest p <= length - (strlen(s) + 1) from which s still occurs: a
// text exactly as long as s never matches.
int CDString::strstr_inv(const char* s) const {
  if (!s) s = "";
  int m = static_cast<int>(std::strlen(s)) + 1;
  int n = Len();
  if (m > n) return -1;
  const char* t = c_str();
  int last = -1;
  for (const char* p = std::strstr(t, s); p; p = *p ? std::strstr(p + 1, s) : nullptr)
    last = static_cast<int>(p - t);
  if (last < 0) return -1;
  return last < n - m ? last : n - m;
}

int CDString::strstrpos(const char* s, int from, bool whole_word, bool upper, bool third,
                        int) const {
  if (!str || !s) return -1;
  int n = Len();
  if (from < 0) from = 0;
  if (from > n) return -1;
  if (!whole_word && !upper && !third) {
    const char* p = std::strstr(str + from, s);
    return p ? static_cast<int>(p - str) : -1;
  }
  int m = static_cast<int>(std::strlen(s));
  for (int p = from; p <= n - m; p++) {
    int k = 0;
    for (; k < m; k++) {
      char c = str[p + k];
      if (upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      if (c != s[k]) break;
    }
    if (k < m) continue;
    if (whole_word) {
      if (p > 0 && IsLetraID(str[p - 1])) continue;
      if (p + m < n && IsLetraID(str[p + m])) continue;
    }
    return p;
  }
  return -1;
}

int DString::strstrpos(const char* s, int from, bool whole_word, bool upper, bool third) const {
  return CDString::strstrpos(s, from, whole_word, upper, third, GetCodepage());
}

int CDString::strncmp(const char* s, int n) const {
  if (!s) return Len() ? 1 : 0;
  if (!Len()) return 1;
  if (n < 0) n = static_cast<int>(std::strlen(s));
  return std::strncmp(str, s, static_cast<size_t>(n));
}

int CDString::Obten_Siguiente_Palabra(const char* separators) const {
  if (!separators) separators = "";
  int n = Len();
  bool quoted = false;
  for (int i = 0; i < n; i++) {
    char c = str[i];
    if (!quoted && std::strchr(separators, c)) {
      while (i < n && std::strchr(separators, str[i])) i++;
      return i;
    }
    if (c == '"') quoted = !quoted;
  }
  return -1;
}

bool CDString::Busca_Parentesis_Internos(int& open, int& close) const {
  if (!str) return false;
  open = strchr_inv('(');
  close = strchr(open < 0 ? 0 : open, ')');
  return close >= 0;
}

// ---------------------------------------------------------------- raw bytes

int DString::memchr(int c, int n) const {
  if (!str) return -1;
  if (n > clentot()) n = clentot();  // only bytes inside the block are read
  if (n < 1) return -1;
  const void* p = std::memchr(str, c, static_cast<size_t>(n));
  return p ? static_cast<int>(static_cast<const char*>(p) - str) : -1;
}

int DString::memstr(const char* what, int len, int n) const {
  if (!str || !what || len < 1) return -1;
  int cap = clentot();
  if (n > cap) n = cap;
  int pos = 0, fin = n;
  while (fin - pos > 0) {
    const void* hit = std::memchr(str + pos, static_cast<unsigned char>(what[0]),
                                  static_cast<size_t>(fin - pos));
    if (!hit) return -1;
    int cand = static_cast<int>(static_cast<const char*>(hit) - str);
    if (cand + len <= cap && std::memcmp(str + cand, what, static_cast<size_t>(len)) == 0)
      return cand;
    // Deliberate: after a failed candidate the count left is n less the
    // candidate's position, counted from the byte after it, so the search
    // reaches one byte past the first n (never past the buffer).
    pos = cand + 1;
    fin = pos + (n - cand) < cap ? pos + (n - cand) : cap;
  }
  return -1;
}

// The table-driven search is not wired up: both forms report "not found".
int DString::search(const char* pattern) const {
  BMString bm(pattern);
  return -1;
}

int DString::search(const BMString&) const { return -1; }

// ---------------------------------------------------------------- consuming

DString& DString::operator>>(char& c) {
  c = (*this)[0];
  *this = "";  // the whole text goes, not only the first character
  return *this;
}

DString& DString::operator>>(DString& d) {
  if (&d == this) return *this;
  d = *this;
  *this = "";
  return *this;
}

DString& DString::operator>>(int& n) {
  DString w;
  Lee_Palabra_Space(w);
  n = w.atoi();
  return *this;
}

DString& DString::operator>>(short& n) {
  DString w;
  Lee_Palabra_Space(w);
  n = static_cast<short>(w.atoi());
  return *this;
}

DString& DString::operator>>(unsigned long& n) {
  DString w;
  Lee_Palabra_Space(w);
  n = static_cast<unsigned long>(static_cast<long>(w.atoi()));
  return *this;
}

DString& DString::operator>>(float& v) {
  DString w;
  Lee_Palabra_Space(w);
  v = static_cast<float>(Datof(w.c_str(), false));
  return *this;
}

DString& DString::operator>>(double& v) {
  DString w;
  Lee_Palabra_Space(w);
  v = Datof(w.c_str(), false);
  return *this;
}

DString& DString::operator>>(bool& b) {
  b = atoi() != 0;
  int p = strchr(1, ' ');
  if (p > 0) *this = str + p + 1;
  else *this = "";
  return *this;
}

// A leading space leaves an empty word and drops the rest of the text.
void DString::Lee_Palabra_Space(DString& word) {
  if (IsEmpty()) return;
  int p = strchr(0, ' ');
  DString head;
  if (p < 0) head = str;
  else if (p > 0) head.strncpy(str, p);
  head.SetCodepage(GetCodepage());
  DString rest;
  if (p >= 1) rest = str + p + 1;
  if (&word != this) word = head;
  if (p < 1) *this = "";
  else *this = rest.c_str();
  if (&word == this) *this = head;
}
