// Cleanup members: trimming blanks and removing characters, in place.
#include <cstring>

#include "string/DString.h"

namespace {
bool is_blank(char c) { return c == ' ' || c == '\t'; }
}  // namespace

void DString::Saca_Espacios_Antes() {
  if (!str) return;
  char* p = str;
  while (is_blank(*p)) ++p;
  if (p != str) std::memmove(str, p, std::strlen(p) + 1);
}

void DString::Saca_Espacios_Despues() {
  if (!str) return;
  int n = Len();
  while (n > 0 && is_blank(str[n - 1])) n--;
  str[n] = 0;
}

void DString::Saca_Espacios_AntesDespues() {
  Saca_Espacios_Despues();
  Saca_Espacios_Antes();
}

void DString::Elimina_Caracter(char c) {
  if (!str || !c) return;
  char* w = str;
  for (const char* r = str; *r; ++r)
    if (*r != c) *w++ = *r;
  *w = 0;
}
