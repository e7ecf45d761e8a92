// Single UTF-8 characters: decoding and encoding with the library's rules.
#include "codepage/CodePageHelper.h"

namespace {
bool continuation(unsigned char b) { return (b & 0xC0) == 0x80; }
}  // namespace

int TCodePageHelper::TCodePageHelper65001::GetChar(const char* s, int avail, int& c) {
  if (avail < 1) {
    c = 0;
    return 0;
  }
  const unsigned char* b = reinterpret_cast<const unsigned char*>(s);
  if (b[0] < 0x80) {
    c = b[0];
    return 1;
  }
  if ((b[0] & 0xE0) == 0xC0) {
    c = (b[0] & 0x1F) << 6;
    if (avail < 2) return 1;  // the partial value stays: no U+FFFD here
    if (!continuation(b[1])) {
      c = kReplacement;
      return 1;
    }
    c |= b[1] & 0x3F;
    return 2;
  }
  // Three- and four-byte forms: each missing continuation byte ends the
  // sequence with U+FFFD after the bytes read so far.
  int total;
  if ((b[0] & 0xF0) == 0xE0) {
    total = 3;
    c = (b[0] & 0x0F) << 12;
  } else if ((b[0] & 0xF8) == 0xF0) {
    total = 4;
    c = (b[0] & 0x0F) << 18;
  } else {
    c = kReplacement;
    return 1;
  }
  if (avail < total) {
    c = kReplacement;
    return 1;
  }
  for (int i = 1; i < total; i++) {
    if (!continuation(b[i])) {
      c = kReplacement;
      return i;
    }
    c |= (b[i] & 0x3F) << (6 * (total - 1 - i));
  }
  return total;
}

int TCodePageHelper::TCodePageHelper65001::PutChar(char* out, int& c) {
  // The tests look at bits 7-15 and 11-15 only, and the four-byte form is
  // the historical one; both are relied upon as they are.
  if ((c & 0xFF80) == 0) {
    out[0] = static_cast<char>(c & 0x7F);
    return 1;
  }
  if (((c >> 8) & 0xF8) == 0) {
    out[0] = static_cast<char>(0xC0 | ((c >> 6) & 0x1F));
    out[1] = static_cast<char>(0x80 | (c & 0x3F));
    return 2;
  }
  if (c < 0x10000) {
    out[0] = static_cast<char>(0xE0 | ((c >> 12) & 0x0F));
    out[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (c & 0x3F));
    return 3;
  }
  out[0] = static_cast<char>(0xF3);
  out[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
  out[2] = static_cast<char>(0x80 | ((c >> 6) & 0x03));
  out[3] = static_cast<char>(0x80 | (c & 0x3F));
  return 4;
}
