// The wide-character string. It lives with the code pages because filling
// it from 8-bit text goes through the code page registry.
#include "string/DUString.h"

#include <cstring>

#include "codepage/CodePageHelper.h"

namespace {
// Hebrew and Arabic, and their presentation forms.
bool right_to_left(wchar_t c) {
  return (c >= 0x0590 && c <= 0x06FF) || (c >= 0xFB10 && c <= 0xFDFF) ||
         (c >= 0xFE70 && c <= 0xFEFE);
}
}  // namespace

DUString::DUString(int capacity) {
  if (capacity < 1) return;  // no buffer: every member treats it as empty
  str = new wchar_t[static_cast<size_t>(capacity)];
  capacidad = capacity;
  str[0] = 0;
}

DUString::DUString(const char* s, int len, int codepage) {
  if (!s) len = 0;
  else if (len < 0) len = static_cast<int>(std::strlen(s));
  capacidad = len + 20;
  str = new wchar_t[static_cast<size_t>(capacidad)];
  str[0] = 0;
  if (codepage == 0) codepage = default_codepage;
  if (!CodePageHelper || !CodePageHelper->char8_to_UTF16(codepage, s, len, str, capacidad))
    str[0] = 0;
}

DUString::~DUString() { delete[] str; }

int DUString::wcslen(const wchar_t* s) {
  int n = 0;
  if (s)
    while (s[n]) n++;
  return n;
}

int DUString::strlen() const { return wcslen(str); }

int DUString::IndexOf(wchar_t c, int from) const {
  if (!str) return -1;
  if (from < 0) from = 0;
  int n = strlen();
  for (int i = from; i < n; i++)
    if (str[i] == c) return i;
  return -1;
}

void DUString::Reverse(int from, int to) {
  if (!str) return;
  int n = strlen();
  if (to < 0 || to >= n) to = n - 1;
  if (from < 0) from = 0;
  int swaps = ((to - from) >> 1) + 1;
  for (int k = 0; k < swaps; k++) {
    wchar_t t = str[from + k];
    str[from + k] = str[to - k];
    str[to - k] = t;
  }
}

void DUString::ReverseFrase() {
  if (!str) return;
  Reverse(0, -1);
  int n = strlen();
  int r = 0;
  for (int i = 0; i < n; i++) {
    if (!right_to_left(str[i])) continue;
    if (r < i) Reverse(r, i - 1);
    r = i + 1;
  }
  if (r < n) Reverse(r, n - 1);
}

// Unlike the whole-text form, the stretch's last position is never tested:
// it always ends the final run.
void DUString::ReverseFrase(int from, int to) {
  if (!str) return;
  if (from < 0) from = 0;
  Reverse(from, to);
  // Positions past the text read as its terminator, which is left to right.
  int n = strlen();
  int walk_to = to > n ? n : to;
  int r = from;
  for (int i = from; i < walk_to; i++) {
    if (!right_to_left(str[i])) continue;
    if (r < i) Reverse(r, i - 1);
    r = i + 1;
  }
  if (r < to) Reverse(r, to);
}

// Copies 2 * n bytes, half the characters: the rest keep the old contents.
DUString& DUString::operator=(const char* s) {
  DUString tmp(s, -1, 0);
  if (!str) return *this;
  int n = tmp.strlen();
  if (n > capacidad - 1) n = capacidad - 1;
  std::memcpy(str, tmp.str, static_cast<size_t>(n) * 2);
  str[n] = 0;
  return *this;
}

void DUString::to_UTF16(unsigned short* out) const {
  int n = strlen();
  for (int i = 0; i < n; i++) out[i] = static_cast<unsigned short>(str[i]);
  out[n] = 0;
}
