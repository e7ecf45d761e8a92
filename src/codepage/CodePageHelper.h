// CodePageHelper.h - the registry of code pages, the UTF-8 codec and the
// conversion of texts between 8-bit code pages, UTF-8 and wide characters.
#ifndef VARDA_CODEPAGE_CODEPAGEHELPER_H
#define VARDA_CODEPAGE_CODEPAGEHELPER_H

#include <cstdint>

#include "core/Vector.h"
#include "string/DString.h"

class TStringNomFitx;

// One code page table: UTF-16 code points for the 8-bit codes from 128 on,
// 128 per page. Plain data, so that the registry may copy and free it freely.
class TCodePageVarda {
 public:
  static constexpr int kMaxPaginas = 4;

  int32_t codepage = 0;     // code page number, the search key
  int32_t num_paginas = 0;  // number of 128-entry pages in use
  // Entry i of the first page stands for code 128 + i; one spare entry
  // keeps the registry's scan of pages * 128 + 1 entries inside the table.
  int32_t tabla[kMaxPaginas * 128 + 1] = {};

  // Tables are not read from files by this library.
  bool LeeFitx(const TStringNomFitx&) { return true; }
  // Pages actually held, whatever num_paginas claims.
  int Paginas() const {
    return num_paginas < 0 ? 0 : num_paginas > kMaxPaginas ? kMaxPaginas : num_paginas;
  }
};

class TCodePageHelper : public Vector<TCodePageVarda> {
 public:
  // UTF-8 (code page 65001).
  class TCodePageHelper65001 {
   public:
    // Decodes the character at `s` (`avail` bytes there); returns the bytes
    // consumed, 1 to 4 (0 when `avail` < 1). Invalid sequences give U+FFFD,
    // except a two-byte lead without its second byte, which keeps the
    // partial value.
    static int GetChar(const char* s, int avail, int& c);
    // Writes `c` at `out` (room for 4 bytes); returns the bytes written.
    // Exact below U+10000; the four-byte form has a fixed lead byte 0xF3
    // and keeps only two bits of its third group.
    static int PutChar(char* out, int& c);
    // Whole texts; see TCodePageHelper::char8_to_UTF16 for the contract.
    static int char8_to_UTF16(const char* s, int len, wchar_t* out, int cap);
    static int UTF16_to_char8(const wchar_t* s, int len, char* out, int cap);
  };

  static constexpr int kReplacement = 0xFFFD;

  TCodePageHelper();
  ~TCodePageHelper() override;

  static void Init() {}
  // Destroys the global helper; the pointer itself is left as it is.
  static void DeleteGlobals();

  void AbreCodepage(int) {}
  // Appends an empty table; the file is not read.
  TCodePageVarda* AbreCodepage(TStringNomFitx& file);

  DString CodepageNumToName(int cp) const;
  int CodepageNameToNum(const DString& name) const;
  bool IsCodePage_RigtToLeft(int cp) const { return cp >= 1255 && cp < 1257; }
  // Index of the table of `cp` (0 meaning 1252), or -1; remembers the last answer.
  int CodepagePropio(int cp);
  // 8-bit code of UTF-16 `key` in `cp` through its table; 63 when absent.
  int KeyFromUTFToCodepage(int key, int cp);

  // Code pages that texts can be converted from and to: 65001, 28591, 1252
  // (also as 0), and every code page with a table in the registry.
  bool IsCodepageSoportado(int cp);

  // Converts `len` bytes of `s` (len < 0: up to its terminator) in code page
  // `cp` (0 meaning 1252) to wide characters, one code point per element.
  // Returns the number of elements including the terminator; with `out`
  // null, the number needed. Returns 0 when `out` cannot hold them all in
  // `cap` elements (it then holds a terminated prefix, if cap > 0). Bytes a
  // code page leaves undefined, and invalid UTF-8, give U+FFFD.
  int char8_to_UTF16(int cp, const char* s, int len, wchar_t* out, int cap);
  // The reverse: wide text (surrogate pairs are joined) to code page `cp`.
  // Returns bytes including the terminator, as above. What `cp` cannot
  // represent becomes "?" in an 8-bit code page, U+FFFD in UTF-8.
  int UTF16_to_char8(int cp, const wchar_t* s, int len, char* out, int cap);

  // Re-encodes `s` from its own code page (or from `from_cp`) to `to_cp`
  // and tags it with `to_cp`. Returns false, leaving `s` untouched, when
  // either code page is not supported.
  bool TransformaCodepage(DString& s, int to_cp);
  bool TransformaCodepage(DString& s, int from_cp, int to_cp);

  int cache_codepage = -1;  // code page last asked of CodepagePropio
  int cache_indice = -1;    // and the index found for it
};

// The one registry of the library, created when the library is loaded.
extern TCodePageHelper* CodePageHelper;

#endif
