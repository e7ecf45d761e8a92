#include <strings.h>

#include <cstring>

#include "string/DString.h"

// Case is not folded: the case-changing members of the strings do nothing, so
// the "case-insensitive" comparison compares bytes like strcmp.
int Dstrcmpi(const char* a, const char* b) {
  DString x(a), y(b);
  return std::strcmp(x.c_str(), y.c_str());
}

int Dstrncmpi(const char* a, const char* b, int n) {
  if (n <= 0) return 0;
  return strncasecmp(a ? a : "", b ? b : "", static_cast<size_t>(n));
}
