// Number and text formatting members of DString.
#include <cmath>
#include <cstdarg>
#include <climits>
#include <cstring>
#include <memory>
#include <string>

#include "string/DString.h"

namespace {

// Writes the digits of `value` in `base` (least significant first, then
// reversed in place) after an optional minus sign; returns `buf`.
char* xtoxm(char* buf, unsigned long value, unsigned base, bool negative) {
  char* p = buf;
  if (negative) *p++ = '-';
  char* first = p;
  do {
    unsigned d = static_cast<unsigned>(value % base);
    *p++ = static_cast<char>(d < 10 ? '0' + d : 'a' + (d - 10));
    value /= base;
  } while (value);
  *p-- = 0;
  while (first < p) {
    char t = *first;
    *first++ = *p;
    *p-- = t;
  }
  return buf;
}

// Formats into a heap buffer that is 10000 bytes unless the result needs
// more; the second pass keeps long results whole instead of overrunning.
int vformat(std::unique_ptr<char[]>& out, const char* fmt, va_list ap) {
  constexpr int kScratch = 10000;
  va_list again;
  va_copy(again, ap);
  out.reset(new char[kScratch]);
  int r = std::vsnprintf(out.get(), kScratch, fmt, ap);
  if (r >= kScratch) {
    out.reset(new char[static_cast<size_t>(r) + 1]);
    std::vsnprintf(out.get(), static_cast<size_t>(r) + 1, fmt, again);
  }
  va_end(again);
  if (r < 0) out[0] = 0;
  return r;
}

}  // namespace

char* Ditoa(int value, char* buf, int base) {
  if (base < 2 || base > 36) base = 10;
  bool negative = base == 10 && value < 0;
  unsigned magnitude = static_cast<unsigned>(value);
  if (negative) magnitude = 0u - magnitude;  // exact for the most negative value too
  return xtoxm(buf, magnitude, static_cast<unsigned>(base), negative);
}

// ---------------------------------------------------------------- printf

int DString::Dsprintf(const char* fmt, ...) {
  std::unique_ptr<char[]> out;
  va_list ap;
  va_start(ap, fmt);
  int r = vformat(out, fmt ? fmt : "", ap);
  va_end(ap);
  int n = static_cast<int>(std::strlen(out.get()));
  Incre_A(n, true);
  std::memcpy(str, out.get(), static_cast<size_t>(n) + 1);
  return r;
}

namespace {

// The library's own printf engine. Output goes to a separate buffer so that
// arguments pointing into the target string are read before it changes.
class Formatter {
 public:
  Formatter(std::string& out, va_list ap) : out_(out) { va_copy(ap_, ap); }
  ~Formatter() { va_end(ap_); }
  Formatter(const Formatter&) = delete;
  Formatter& operator=(const Formatter&) = delete;

  void run(const char* fmt) {
    const char* p = fmt;
    while (*p) {
      if (*p != '%') {
        const char* q = p;
        while (*q && *q != '%') ++q;
        out_.append(p, static_cast<size_t>(q - p));
        p = q;
        continue;
      }
      ++p;
      Spec sp;
      for (;; ++p) {
        if (*p == '-') sp.left = true;
        else if (*p == '0') sp.zero = true;
        else if (*p == '+') sp.plus = true;
        else if (*p == ' ') sp.space = true;
        else if (*p == '#') sp.alt = true;
        else if (*p != '\'') break;
      }
      if (*p == '*') {
        int w = va_arg(ap_, int);
        if (w < 0) {
          sp.left = true;
          w = w == INT_MIN ? INT_MAX : -w;
        }
        sp.width = w;
        ++p;
      } else {
        sp.width = read_number(p);
      }
      if (*p == '.') {
        ++p;
        if (*p == '*') {
          int pr = va_arg(ap_, int);
          sp.prec = pr < 0 ? -1 : pr;
          ++p;
        } else {
          sp.prec = read_number(p);
        }
      }
      if (*p == 'h') {
        sp.mod = "h";
        ++p;
      } else if (*p == 'l') {
        ++p;
        sp.mod = "l";
        if (*p == 'l') {
          sp.mod = "ll";
          ++p;
        }
      }
      char conv = *p;
      if (!conv) return;  // format ends inside a conversion: stop here
      ++p;
      convert(conv, sp);
    }
  }

 private:
  struct Spec {
    bool left = false, zero = false, plus = false, space = false, alt = false;
    int width = 0;
    int prec = -1;
    const char* mod = "";
  };

  // Widths and precisions are capped well below the int range.
  static int read_number(const char*& p) {
    int v = 0;
    while (*p >= '0' && *p <= '9') {
      if (v < 100000000) v = v * 10 + (*p - '0');
      ++p;
    }
    return v;
  }

  void pad(const char* text, size_t n, const Spec& sp) {
    size_t w = sp.width > 0 ? static_cast<size_t>(sp.width) : 0;
    size_t fill = w > n ? w - n : 0;
    if (!sp.left) out_.append(fill, ' ');
    out_.append(text, n);
    if (sp.left) out_.append(fill, ' ');
  }

  void convert(char conv, Spec sp) {
    char buf[64];
    switch (conv) {
      case 'D': sp.mod = "l"; conv = 'd'; break;
      case 'U': sp.mod = "l"; conv = 'u'; break;
      case 'O': sp.mod = "l"; conv = 'o'; break;
      default: break;
    }
    switch (conv) {
      case 'd':
      case 'i':
      case 'u':
      case 'o':
      case 'x':
      case 'X':
        number(conv, sp);
        return;
      case 'p': {
        void* v = va_arg(ap_, void*);
        int n = std::snprintf(buf, sizeof buf, "%p", v);
        pad(buf, static_cast<size_t>(n), sp);
        return;
      }
      case 'a': {
        unsigned long long v = fetch_unsigned(sp);
        buf[0] = static_cast<char>('A' + v / 26);
        buf[1] = static_cast<char>('A' + v % 26);
        pad(buf, 2, sp);
        return;
      }
      case 'c':
        buf[0] = static_cast<char>(va_arg(ap_, int));
        pad(buf, 1, sp);
        return;
      case 's': {
        const char* s = va_arg(ap_, const char*);
        if (!s) s = "";
        size_t n;
        if (sp.prec >= 0) {
          // With a precision the text need not be terminated.
          const void* end = std::memchr(s, 0, static_cast<size_t>(sp.prec));
          n = end ? static_cast<size_t>(static_cast<const char*>(end) - s)
                  : static_cast<size_t>(sp.prec);
        } else {
          n = std::strlen(s);
        }
        pad(s, n, sp);
        return;
      }
      case '%':
        out_ += '%';
        return;
      default:
        out_ += conv;
        return;
    }
  }

  unsigned long long fetch_unsigned(const Spec& sp) {
    if (sp.mod[0] == 'l' && sp.mod[1] == 'l') return va_arg(ap_, unsigned long long);
    if (sp.mod[0] == 'l') return va_arg(ap_, unsigned long);
    return va_arg(ap_, unsigned int);
  }

  void number(char conv, const Spec& sp) {
    char fmt[8] = "%";
    std::strcat(fmt, sp.mod);
    size_t fl = std::strlen(fmt);
    fmt[fl] = conv;
    fmt[fl + 1] = 0;
    bool is_signed = conv == 'd' || conv == 'i';
    char digits[80];
    bool zero_value;
    if (is_signed) {
      long long v;
      if (sp.mod[0] == 'l' && sp.mod[1] == 'l') v = va_arg(ap_, long long);
      else if (sp.mod[0] == 'l') v = va_arg(ap_, long);
      else v = va_arg(ap_, int);
      zero_value = v == 0;
      if (sp.mod[0] == 'l' && sp.mod[1] == 'l') std::snprintf(digits, sizeof digits, fmt, v);
      else if (sp.mod[0] == 'l') std::snprintf(digits, sizeof digits, fmt, static_cast<long>(v));
      else std::snprintf(digits, sizeof digits, fmt, static_cast<int>(v));
    } else {
      unsigned long long v = fetch_unsigned(sp);
      zero_value = v == 0;
      if (sp.mod[0] == 'l' && sp.mod[1] == 'l') std::snprintf(digits, sizeof digits, fmt, v);
      else if (sp.mod[0] == 'l')
        std::snprintf(digits, sizeof digits, fmt, static_cast<unsigned long>(v));
      else std::snprintf(digits, sizeof digits, fmt, static_cast<unsigned>(v));
    }
    const char* d = digits;
    std::string sign;
    if (*d == '-') {
      sign = "-";
      ++d;
    } else if (is_signed && sp.plus) {
      sign = "+";
    } else if (is_signed && sp.space) {
      sign = " ";
    }
    // "%hd" and friends may still print a short value: the digits are as printed.
    std::string prefix;
    if (sp.alt && (conv == 'x' || conv == 'X') && !zero_value) prefix = conv == 'x' ? "0x" : "0X";
    int prec = sp.prec < 0 ? 1 : sp.prec;
    size_t nd = std::strlen(d);
    if (zero_value && sp.prec == 0) nd = 0;
    if (sp.alt && conv == 'o' && (nd == 0 || d[0] != '0') && prec <= static_cast<int>(nd))
      prec = static_cast<int>(nd) + 1;
    size_t zeros = prec > static_cast<int>(nd) ? static_cast<size_t>(prec) - nd : 0;
    size_t field = sign.size() + prefix.size() + zeros + nd;
    size_t width = sp.width > 0 ? static_cast<size_t>(sp.width) : 0;
    if (sp.zero && !sp.left && width > field) {
      zeros += width - field;
      field = width;
    }
    size_t fill = width > field ? width - field : 0;
    if (!sp.left) out_.append(fill, ' ');
    out_ += sign;
    out_ += prefix;
    out_.append(zeros, '0');
    out_.append(d, nd);
    if (sp.left) out_.append(fill, ' ');
  }

  std::string& out_;
  va_list ap_;
};

}  // namespace

int DString::Dsnprintf(const char* fmt, ...) {
  if (!fmt) fmt = "";
  std::string out;
  va_list ap;
  va_start(ap, fmt);
  Formatter(out, ap).run(fmt);
  va_end(ap);
  // Room is reserved as the output grows, character by character: the
  // format length plus 20 first, then the end position plus 20 whenever a
  // character brings the output to the target. The block grows in the same
  // steps as if each character had been written straight into it.
  int target = static_cast<int>(std::strlen(fmt)) + 20;
  Incre_A(target, true);
  int n = static_cast<int>(out.size());
  for (int end = target; end <= n; end = target) {
    target = end + 20;
    Incre_A(target, true);
  }
  if (n) std::memcpy(str, out.data(), static_cast<size_t>(n));
  str[n] = 0;
  return n;
}

// ---------------------------------------------------------------- numbers

void DString::strcatnum(int n) {
  char buf[16];
  Ditoa(n, buf, 10);
  *this += buf;
}

void DString::itoa(int n) {
  Incre_A(10, true);  // 12 bytes: room for "-2147483648" and its terminator
  Ditoa(n, str, 10);
}

DString& DString::operator<<(int n) {
  strcatnum(n);
  return *this;
}
DString& DString::operator<<(short n) {
  strcatnum(n);
  return *this;
}
DString& DString::operator<<(bool b) {
  strcatnum(b ? 1 : 0);
  return *this;
}

DString& DString::operator<<(long n) {
  // On 64-bit hosts a long may not fit the int path: keep every digit.
  if (n >= INT_MIN && n <= INT_MAX) {
    strcatnum(static_cast<int>(n));
    return *this;
  }
  char buf[32];
  std::snprintf(buf, sizeof buf, "%ld", n);
  *this += buf;
  return *this;
}

DString& DString::operator<<(unsigned int n) {
  DString t;
  t.Dsprintf("%u", n);
  return *this << t;
}
DString& DString::operator<<(unsigned long n) {
  DString t;
  t.Dsprintf("%lu", n);
  return *this << t;
}
DString& DString::operator<<(long long n) {
  DString t;
  t.Dsprintf("%lld", n);
  return *this << t;
}
DString& DString::operator<<(unsigned long long n) {
  DString t;
  t.Dsprintf("%llu", n);
  return *this << t;
}

DString& DString::operator<<(double v) {
  int p = prec_floatC();
  DString t;
  if (p < 0) {
    t.Dsprintf("%lf", v);
  } else {
    char fmt[24] = "%.";
    char num[16];
    Ditoa(p, num, 10);
    std::strcat(fmt, num);
    std::strcat(fmt, "lf");
    t.Dsprintf(fmt, v);
  }
  return *this << t;
}
DString& DString::operator<<(float v) { return *this << static_cast<double>(v); }

void DString::Print_Float_Cifras(double v, int cifras) {
  char ip[400];
  double t = std::trunc(v);
  if (!std::isfinite(t)) {
    std::strcpy(ip, "0");
  } else if (t > INT_MIN && t < INT_MAX) {
    Ditoa(static_cast<int>(t), ip, 10);  // -0.5 gives "0": no sign for zero
  } else {
    std::snprintf(ip, sizeof ip, "%.0f", t);
  }
  int decimals = cifras - static_cast<int>(std::strlen(ip));
  if (decimals < 0) decimals = 0;
  DString tmp;
  tmp.Set_prec_float(decimals);
  tmp << v;
  *this = tmp;
}

void DString::Print_Float_NoZeros(double v) {
  Print_Float_Cifras(v, 10);
  if (!str || !std::strchr(str, '.')) return;
  int n = Len();
  while (n > 0 && str[n - 1] == '0') str[--n] = 0;
  if (n > 0 && str[n - 1] == '.') str[--n] = 0;
}

// ---------------------------------------------------------------- bytes

void DString::PasaHex(int n) {
  static const char kDigits[] = "0123456789ABCDEF";
  if (n < 0) return;
  if (!str) {
    if (n == 0) return;
    n = 0;
  }
  // Only bytes inside the block are read.
  if (n > clentot()) n = clentot();
  std::string hex;
  hex.reserve(static_cast<size_t>(n) * 2);
  for (int i = 0; i < n; i++) {
    unsigned char b = static_cast<unsigned char>(str[i]);
    hex += kDigits[b >> 4];
    hex += kDigits[b & 15];
  }
  Incre_A(2 * n, true);
  if (n) std::memcpy(str, hex.data(), hex.size());
  str[2 * n] = 0;
}

DString DString::PasaHexL(int n) const {
  int len = Len();
  if (n < 0) n = len;
  // The copy takes the text only; bytes past it read as zero.
  DString copy;
  if (n > 0) {
    copy.Incre_A(n > len ? n : len, true);
    std::memset(copy.str, 0, static_cast<size_t>(n > len ? n : len) + 1);
    if (len) std::memcpy(copy.str, str, static_cast<size_t>(len));
  }
  copy.PasaHex(n);
  return copy;
}

void DString::rellena(char c, int n) {
  if (n < 1) return;
  Incre_A(n, true);
  std::memset(str, c, static_cast<size_t>(n));
}

int DString::Padding(char c, int block) {
  int size = Len() + 1;
  if (block == 0) return size;
  int rest = block - size % block;
  int padded = rest < block ? size + rest : size;
  if (block < 1) return padded;
  Incre_A(padded, true);
  if (padded > size) std::memset(str + size, c, static_cast<size_t>(padded - size));
  str[padded] = 0;
  return padded;
}
