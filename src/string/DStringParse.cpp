// Turning text into numbers and classifying characters and texts.
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "string/DString.h"

namespace {

// atoi with a defined result out of range: the value saturates to the int
// range on every host, as the C library's atoi does where long is 32 bits.
int c_atoi(const char* s) {
  long v = std::strtol(s, nullptr, 10);
  if (v > INT_MAX) return INT_MAX;
  if (v < INT_MIN) return INT_MIN;
  return static_cast<int>(v);
}

}  // namespace

// ---------------------------------------------------------------- free helpers

double Datof(const char* s, bool comma) {
  if (!s) return 0.0;
  while (*s == ' ') ++s;
  if (std::strchr(s, 'e') || std::strchr(s, 'E')) return std::atof(s);
  bool negative = *s == '-';
  if (negative) ++s;
  // The integer and fraction parts are read apart, the integer part as int.
  double result = c_atoi(s);
  const char* sep = std::strchr(s, '.');
  if (comma) {
    const char* c = std::strchr(s, ',');
    if (c && (!sep || c < sep)) sep = c;
  }
  if (sep) {
    double f = 0.0, scale = 1.0;
    int used = 0;
    for (const char* p = sep + 1; *p >= '0' && *p <= '9'; ++p) {
      // Digits past double precision change nothing and could overflow.
      if (used++ < 18) {
        f = f * 10.0 + (*p - '0');
        scale *= 10.0;
      }
    }
    result += f / scale;
  }
  return negative ? -result : result;
}

unsigned char GetNibble(unsigned char c) {
  c = static_cast<unsigned char>(std::toupper(c));
  if (c >= '0' && c <= '9') return static_cast<unsigned char>(c - '0');
  return static_cast<unsigned char>(c - 55);
}

int HexToInt(const unsigned char* s, int n) {
  unsigned v = 0;
  if (!s) return 0;
  for (int i = 0; i < n; i++) v = (v << 4) | GetNibble(s[i]);
  return static_cast<int>(v);
}

bool IsHex(unsigned char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

// "0" is not an identifier character: a whole-word search treats it as a border.
bool IsLetraID(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '1' && c <= '9') ||
         c == '_';
}

bool Disdigit(char c) { return c >= '0' && c <= '9'; }

// ---------------------------------------------------------------- numbers

int CDString::atoi() const {
  if (IsEmpty()) return 0;
  if (str[0] == '0' && str[1] == 'x') {
    unsigned v = 0;
    if (std::sscanf(str + 2, "%X", &v) != 1) v = 0;
    return static_cast<int>(v);
  }
  return c_atoi(str);
}

long long CDString::atoi64() const {
  if (IsEmpty()) return 0;
  const char* s = str;
  bool negative = *s == '-';
  if (negative) ++s;
  size_t n = std::strlen(s);
  unsigned long long v;
  if (n > 8) {
    char high[64];
    size_t hn = n - 8 < sizeof high - 1 ? n - 8 : sizeof high - 1;
    std::memcpy(high, s, hn);
    high[hn] = 0;
    unsigned long long hi = static_cast<unsigned long long>(static_cast<long long>(c_atoi(high)));
    unsigned long long lo =
        static_cast<unsigned long long>(static_cast<long long>(c_atoi(s + n - 8)));
    v = hi * 100000000ull + lo;
  } else {
    v = static_cast<unsigned long long>(static_cast<long long>(c_atoi(s)));
  }
  if (negative) v = 0ull - v;
  return static_cast<long long>(v);
}

double CDString::atof(bool comma) const { return IsEmpty() ? 0.0 : Datof(str, comma); }

// No formula is evaluated: the text is read as a plain number.
double CDString::atof_formula() const { return IsEmpty() ? 0.0 : Datof(str, false); }

int CDString::ahextoi(int) const {
  if (IsEmpty()) return 0;
  const char* s = str;
  if (Len() >= 3 && s[0] == '0' && s[1] == 'x') s += 2;
  return HexToInt(reinterpret_cast<const unsigned char*>(s), static_cast<int>(std::strlen(s)));
}

// ---------------------------------------------------------------- classification

bool CDString::ishex() const {
  for (const char* p = c_str(); *p; ++p)
    if (!IsHex(static_cast<unsigned char>(*p))) return false;
  return true;
}

bool CDString::is_numeric() const {
  for (const char* p = c_str(); *p; ++p)
    if (!Disdigit(*p)) return false;
  return true;
}

bool CDString::is_alphanumeric() const {
  for (const char* p = c_str(); *p; ++p)
    if (!IsLetraID(*p)) return false;
  return true;
}

int CDString::Cuenta_Caracter(char c) const {
  int n = 0;
  for (const char* p = c_str(); *p; ++p)
    if (*p == c) n++;
  return n;
}
