// Conversion of whole texts between 8-bit code pages, UTF-8 and wide
// characters. Every conversion goes through code points: bytes are decoded
// by the source code page and encoded by the target one.
#include <cstring>
#include <memory>

#include "codepage/CodePageHelper.h"

namespace {

constexpr int kFFFD = TCodePageHelper::kReplacement;

// Windows-1252 from 0x80 to 0x9F; U+FFFD marks the five undefined bytes.
// From 0xA0 on the code page equals ISO-8859-1.
const uint16_t k1252[32] = {
    0x20AC, kFFFD,  0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, kFFFD,  0x017D, kFFFD,
    kFFFD,  0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, kFFFD,  0x017E, 0x0178};

enum class Kind { kUtf8, kLatin1, kWin1252, kTable, kUnknown };

struct Codec {
  Kind kind;
  int cp;
  TCodePageHelper* helper;         // set for kTable
  const TCodePageVarda* table;     // set for kTable
};

// Built-in code pages first; the registry's tables serve the others.
Codec resolve(TCodePageHelper* h, int cp) {
  if (cp == 0) cp = 1252;
  switch (cp) {
    case 65001: return {Kind::kUtf8, cp, nullptr, nullptr};
    case 28591: return {Kind::kLatin1, cp, nullptr, nullptr};
    case 1252: return {Kind::kWin1252, cp, nullptr, nullptr};
    default: break;
  }
  int i = h ? h->CodepagePropio(cp) : -1;
  if (i < 0) return {Kind::kUnknown, cp, nullptr, nullptr};
  return {Kind::kTable, cp, h, &(*h)[i]};
}

// One character from `s` (`avail` > 0 bytes); returns the bytes consumed.
int decode(const Codec& k, const char* s, int avail, int& c) {
  unsigned char b = static_cast<unsigned char>(*s);
  if (k.kind == Kind::kUtf8) {
    int n = TCodePageHelper::TCodePageHelper65001::GetChar(s, avail, c);
    // A lone lead byte, even a truncated two-byte one, and codes beyond
    // Unicode are invalid in a whole text.
    if ((n == 1 && b >= 0x80) || c > 0x10FFFF) c = kFFFD;
    return n;
  }
  if (b < 0x80) c = b;
  else if (k.kind == Kind::kLatin1) c = b;
  else if (k.kind == Kind::kWin1252) c = b < 0xA0 ? k1252[b - 0x80] : b;
  else if (k.kind == Kind::kTable && k.table->Paginas() > 0 && k.table->tabla[b - 0x80] > 0)
    c = k.table->tabla[b - 0x80];
  else c = kFFFD;
  return 1;
}

// Writes code point `c` (already validated, U+FFFD standing for anything
// invalid) at `out`; returns the bytes written (at most 4).
int encode(const Codec& k, int c, char* out) {
  int b;
  switch (k.kind) {
    case Kind::kUtf8:
      if (c < 0x10000) return TCodePageHelper::TCodePageHelper65001::PutChar(out, c);
      out[0] = static_cast<char>(0xF0 | (c >> 18));
      out[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out[3] = static_cast<char>(0x80 | (c & 0x3F));
      return 4;
    case Kind::kLatin1:
      b = c < 0x100 ? c : '?';
      break;
    case Kind::kWin1252:
      b = '?';
      if (c < 0x80 || (c >= 0xA0 && c < 0x100)) {
        b = c;
      } else if (c != kFFFD) {
        for (int i = 0; i < 32; i++)
          if (k1252[i] == c) b = 0x80 + i;
      }
      break;
    case Kind::kTable:
      b = c < 0x80 ? c : k.helper->KeyFromUTFToCodepage(c, k.cp);
      if (b < 0 || b > 0xFF) b = '?';
      break;
    default:
      b = c < 0x80 ? c : '?';
      break;
  }
  out[0] = static_cast<char>(b);
  return 1;
}

// Next code point of wide text, joining a surrogate pair; anything that is
// not a Unicode scalar value gives U+FFFD.
int next_wide(const wchar_t* s, int len, int& i) {
  long c = static_cast<long>(s[i++]);
  if (c >= 0xD800 && c <= 0xDBFF && i < len) {
    long lo = static_cast<long>(s[i]);
    if (lo >= 0xDC00 && lo <= 0xDFFF) {
      i++;
      return static_cast<int>(0x10000 + ((c - 0xD800) << 10) + (lo - 0xDC00));
    }
  }
  if (c < 0 || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return kFFFD;
  return static_cast<int>(c);
}

int to_wide(const Codec& k, const char* s, int len, wchar_t* out, int cap) {
  if (!s) len = 0;
  else if (len < 0) len = static_cast<int>(std::strlen(s));
  if (out && cap < 1) return 0;
  int n = 0;
  for (int i = 0; i < len;) {
    int c;
    i += decode(k, s + i, len - i, c);
    if (out) {
      if (n >= cap - 1) {
        out[n] = 0;
        return 0;
      }
      out[n] = static_cast<wchar_t>(c);
    }
    n++;
  }
  if (out) out[n] = 0;
  return n + 1;
}

int from_wide(const Codec& k, const wchar_t* s, int len, char* out, int cap) {
  if (!s) len = 0;
  else if (len < 0) len = static_cast<int>(std::wcslen(s));
  if (out && cap < 1) return 0;
  int n = 0;
  for (int i = 0; i < len;) {
    char buf[4];
    int m = encode(k, next_wide(s, len, i), buf);
    if (out) {
      if (n + m > cap - 1) {
        out[n] = 0;
        return 0;
      }
      std::memcpy(out + n, buf, static_cast<size_t>(m));
    }
    n += m;
  }
  if (out) out[n] = 0;
  return n + 1;
}

}  // namespace

int TCodePageHelper::TCodePageHelper65001::char8_to_UTF16(const char* s, int len, wchar_t* out,
                                                          int cap) {
  return to_wide(resolve(nullptr, 65001), s, len, out, cap);
}

int TCodePageHelper::TCodePageHelper65001::UTF16_to_char8(const wchar_t* s, int len, char* out,
                                                          int cap) {
  return from_wide(resolve(nullptr, 65001), s, len, out, cap);
}

int TCodePageHelper::char8_to_UTF16(int cp, const char* s, int len, wchar_t* out, int cap) {
  return to_wide(resolve(this, cp), s, len, out, cap);
}

int TCodePageHelper::UTF16_to_char8(int cp, const wchar_t* s, int len, char* out, int cap) {
  return from_wide(resolve(this, cp), s, len, out, cap);
}

bool TCodePageHelper::IsCodepageSoportado(int cp) {
  return resolve(this, cp).kind != Kind::kUnknown;
}

bool TCodePageHelper::TransformaCodepage(DString& s, int to_cp) {
  return TransformaCodepage(s, s.GetCodepage(), to_cp);
}

bool TCodePageHelper::TransformaCodepage(DString& s, int from_cp, int to_cp) {
  if (from_cp < 0 || to_cp < 0) return false;
  Codec from = resolve(this, from_cp), to = resolve(this, to_cp);
  if (from.kind == Kind::kUnknown || to.kind == Kind::kUnknown) return false;
  int len = s.Len();
  if (len && from.cp != to.cp) {
    std::unique_ptr<wchar_t[]> wide(new wchar_t[static_cast<size_t>(len) + 1]);
    int nw = to_wide(from, s.c_str(), len, wide.get(), len + 1) - 1;
    int need = from_wide(to, wide.get(), nw, nullptr, 0);
    s.Incre_A(need - 1, true);
    from_wide(to, wide.get(), nw, s.buffer(), need);
  }
  s.SetCodepage(to_cp);
  return true;
}
