#include "string/BMString.h"

#include <cstring>

BMString::BMString(const BMString& o) { Init(o.patron); }

BMString& BMString::operator=(const BMString& o) {
  if (this != &o) Init(o.patron);
  return *this;
}

BMString::~BMString() { libera(); }

void BMString::libera() {
  delete[] sufijos;
  delete[] caracteres;
  sufijos = nullptr;
  caracteres = nullptr;
  longitud = 0;
}

void BMString::Init(const char* pattern) {
  libera();
  patron = pattern;
  if (!pattern) return;
  int m = static_cast<int>(std::strlen(pattern));
  longitud = m;
  sufijos = new int32_t[m > 0 ? m : 1];
  for (int i = 0; i < m; i++) sufijos[i] = m;
  for (int i = 0; i <= m - 2; i++) {
    // Compare backwards from i against the pattern's own end.
    int k = 0;
    while (i - k >= 0 && pattern[i - k] == pattern[m - 1 - k]) k++;
    if (i - k >= 0) {
      sufijos[m - 1 - k] = m - i - 1;
    } else {
      for (int j = m - 1 - k; j >= 0; j--) sufijos[j] = m - i - 1;
    }
  }
  caracteres = new int32_t[256];
  for (int i = 0; i < 256; i++) caracteres[i] = -1;
  for (int j = 0; j <= m - 2; j++) caracteres[static_cast<unsigned char>(pattern[j])] = j;
}
