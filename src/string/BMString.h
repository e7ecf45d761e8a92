// BMString.h - Boyer-Moore shift tables for a borrowed pattern.
#ifndef VARDA_STRING_BMSTRING_H
#define VARDA_STRING_BMSTRING_H

#include <cstdint>

class BMString {
 public:
  BMString() = default;
  explicit BMString(const char* pattern) { Init(pattern); }
  BMString(const BMString& o);
  BMString& operator=(const BMString& o);
  ~BMString();

  // Keeps `pattern` (not copied) and builds both tables; null builds none.
  void Init(const char* pattern);

  int32_t longitud = 0;            // pattern length
  const char* patron = nullptr;    // borrowed pattern
  int32_t* sufijos = nullptr;      // good-suffix shift, one entry per pattern character
  int32_t* caracteres = nullptr;   // bad-character table, 256 entries

 private:
  void libera();
};

#endif
