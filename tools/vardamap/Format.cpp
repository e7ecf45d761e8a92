#include "Format.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace vardamap {

std::string Num(double value) {
  char buf[64];
  auto r = std::to_chars(buf, buf + sizeof buf, value);
  return std::string(buf, r.ptr);
}

bool ParseDouble(const std::string& text, double* out) {
  const char* begin = text.c_str();
  const char* end = begin + text.size();
  if (begin != end && *begin == '+') ++begin;  // from_chars takes no plus sign
  if (begin == end) return false;
  double v = 0;
  auto r = std::from_chars(begin, end, v);
  if (r.ec != std::errc() || r.ptr != end || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

bool ParsePair(const std::string& text, double* x, double* y) {
  size_t comma = text.find(',');
  if (comma == std::string::npos) return false;
  auto trim = [](std::string s) {
    size_t b = s.find_first_not_of(" \t");
    size_t e = s.find_last_not_of(" \t");
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
  };
  return ParseDouble(trim(text.substr(0, comma)), x) && ParseDouble(trim(text.substr(comma + 1)), y);
}

}  // namespace vardamap
