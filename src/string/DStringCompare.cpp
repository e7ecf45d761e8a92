#include <cstring>

// Case is not folded: the case-changing members of the strings do nothing, so
// the "case-insensitive" comparison compares bytes like strcmp.
int Dstrcmpi(const char* a, const char* b) {
  return std::strcmp(a ? a : "", b ? b : "");
}
