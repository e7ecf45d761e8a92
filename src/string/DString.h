// DString.h - the library's 8-bit string: one pointer to NUL-terminated text,
// preceded in its heap block by a capacity, a code page and a float precision.
#ifndef VARDA_STRING_DSTRING_H
#define VARDA_STRING_DSTRING_H

#include <cstdint>
#include <cstdio>

template <class T>
class Vector;
class DString;
class BMString;

// Read-only side: the same one-pointer layout, operations that never change
// the text. A null pointer is the empty string with default attributes.
class CDString {
 public:
  CDString() : str(nullptr) {}

  // The text, never null: a string without a block yields the shared "".
  const char* c_str() const { return str ? str : Get_str_null(); }
  // Raw pointer, null when there is no block.
  const char* ptr() const { return str; }
  int Len() const;
  bool IsEmpty() const { return !str || !*str; }

  int clentot() const;
  int memsize() const;
  bool is_NULL() const;
  int GetCodepage() const;
  int f_codepageC() const;
  int prec_floatC() const;
  const char* Get_str_null() const;

  char operator[](int n) const;
  char Ultimo_Caracter() const;

  int Strcmp(const char* s) const;
  int Strcmpi(const char* s) const;
  int CompareNoCase(const wchar_t*) const;

  // Numbers. Out-of-range integers saturate to the 32-bit range.
  int atoi() const;
  long long atoi64() const;
  double atof(bool comma = false) const;
  double atof_formula() const;
  int ahextoi(int = 0) const;

  // Classification; an empty text passes every whole-string test.
  bool ishex() const;
  bool is_numeric() const;
  bool is_alphanumeric() const;
  int Cuenta_Caracter(char c) const;

  // Searching: positions from 0, -1 when not found.
  int strchr(int from, char c) const;
  int strchr_single(int from, char c) const;
  int strchrs(int from, const char* set) const;
  int strchr_inv(char c) const;
  int strchr_inv(int from, char c) const;
  int strstr(const char* s) const;
  int strstr_inv(const char* s) const;
  int strstrpos(const char* s, int from, bool whole_word, bool upper, bool third,
                int codepage) const;
  int strncmp(const char* s, int n) const;
  int Obten_Siguiente_Palabra(const char* separators) const;
  bool Busca_Parentesis_Internos(int& open, int& close) const;

  // Word splitting into `words` (emptied first); `max_words` < 0: no limit.
  bool Separa_En_Palabras(const char* separators, Vector<DString>& words, int max_words,
                          bool keep_empty, int codepage) const;
  bool Separa_En_Palabras_SinEspacios(const char* separators, Vector<DString>& words,
                                      int max_words = -1, int keep_empty = 0) const;
  bool Separa_En_Palabras_Y_Mantiene(const char* separators, Vector<DString>& words,
                                     int max_words, bool keep_empty, int codepage) const;
  bool Separa_en_Dos_Por(DString& left, DString& right, char c) const;
  bool Separa_Por_Asignacion(DString& left, DString& right) const;

 protected:
  // Header of the heap block, immediately in front of the text.
  static constexpr int kHeader = 8;
  int32_t& cap_ref() const { return *reinterpret_cast<int32_t*>(str - kHeader); }
  uint16_t& cp_ref() const { return *reinterpret_cast<uint16_t*>(str - kHeader + 4); }
  int16_t& prec_ref() const { return *reinterpret_cast<int16_t*>(str - kHeader + 6); }

  char* str;
};

class DString : public CDString {
 public:
  DString() = default;
  DString(const char* s);
  DString(const unsigned char* s);
  DString(const DString& s);
  DString(const CDString& s);
  DString(const wchar_t* s);
  ~DString();

  // Storage and attributes.
  void Incre_A(int n, bool extra);
  int& lentot();
  void Set_codepage(int cp);
  void SetCodepage(int cp);
  void SetCodepage(int cp, int);
  void ChangeCodepage(int);
  void Set_prec_float(int p);
  void SetPrecision_Floats(int p);
  void Deletea();
  // Writable text; the block must exist (or the result is null).
  char* buffer() { return str; }

  // Assignment.
  DString& operator=(const char* s);
  DString& operator=(const CDString& s);
  DString& operator=(const DString& s);
  DString& operator=(const wchar_t* s);
  DString& operator=(int n);

  // Appending. += and << differ on purpose in how they treat empty sources.
  DString& operator+=(const char* s);
  DString& operator<<(const char* s);
  DString& operator<<(const unsigned char* s);
  DString& operator+=(char c);
  DString& operator<<(char c);
  DString& operator<<(unsigned char c);
  DString& operator+=(const DString& s);
  DString& operator<<(const DString& s);
  DString& operator<<(const CDString& s);
  DString& operator+=(const wchar_t* s);
  DString operator+(char c) const;
  DString operator+(const char* s) const;
  DString operator+(const DString& s) const;

  // Characters.
  using CDString::operator[];
  char& operator[](int n);
  char& Ultimo_Caracter();
  using CDString::Ultimo_Caracter;
  void strncpy(const char* s, int n);
  void memcat(int pos, const void* data, int n);

  // Comparison: the or-equal forms are strict on purpose.
  bool operator>(const DString& o) const { return Strcmp(o.c_str()) > 0; }
  bool operator>=(const DString& o) const { return Strcmp(o.c_str()) > 0; }
  bool operator>(const char* o) const { return Strcmp(o) > 0; }
  bool operator<(const DString& o) const { return Strcmp(o.c_str()) < 0; }
  bool operator<=(const DString& o) const { return Strcmp(o.c_str()) < 0; }
  bool operator<(const char* o) const { return Strcmp(o) < 0; }

  // Stream record: 16-bit length, the text, a line feed.
  int Grava(FILE* f) const;
  bool Lee(FILE* f, int maxlen);

  // Formatting. Dsprintf uses the C library, Dsnprintf the library's own
  // formatter (with the two-letter "%a" conversion); both replace the text.
  int Dsprintf(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  int Dsnprintf(const char* fmt, ...);
  DString& operator<<(int n);
  DString& operator<<(unsigned int n);
  DString& operator<<(long n);
  DString& operator<<(unsigned long n);
  DString& operator<<(long long n);
  DString& operator<<(unsigned long long n);
  DString& operator<<(short n);
  DString& operator<<(bool b);
  DString& operator<<(double v);
  DString& operator<<(float v);
  void strcatnum(int n);
  void itoa(int n);
  void Print_Float_Cifras(double v, int cifras);
  void Print_Float_NoZeros(double v);
  void PasaHex(int n);
  DString PasaHexL(int n) const;
  void rellena(char c, int n);
  int Padding(char c, int block);

  // Parsing and searching on the writable side.
  using CDString::strstrpos;
  int strstrpos(const char* s, int from = 0, bool whole_word = false, bool upper = false,
                bool third = false) const;
  int memchr(int c, int n) const;
  int memstr(const char* what, int len, int n) const;
  int search(const char* pattern) const;
  int search(const BMString& pattern) const;
  int KeyFromUTFToCodepage(int, int) const { return -1; }

  // Consuming the text word by word.
  DString& operator>>(char& c);
  DString& operator>>(DString& d);
  DString& operator>>(int& n);
  DString& operator>>(short& n);
  DString& operator>>(unsigned long& n);
  DString& operator>>(float& v);
  DString& operator>>(double& v);
  DString& operator>>(bool& b);
  void Lee_Palabra_Space(DString& word);

  // Word splitting with this string's own code page for the words.
  using CDString::Separa_En_Palabras;
  bool Separa_En_Palabras(const char* separators, Vector<DString>& words, int max_words = -1,
                          bool keep_empty = false) const;
  void VectorToString(Vector<DString>& words, DString separator);

  // Cleanup members used throughout the library.
  void Sustituye(char from, char to);
  void Arregla_dir_carac();
  // Removes blanks and tabs at the start, at the end, or at both ends.
  void Saca_Espacios_Antes();
  void Saca_Espacios_Despues();
  void Saca_Espacios_AntesDespues();
  // Removes every occurrence of `c`.
  void Elimina_Caracter(char c);

  // Members that deliberately do nothing: callers rely on them being harmless.
  void A_Mayusculas(bool) {}
  void A_Minusculas(bool) {}
  void ProperCase() {}
  void Elimina_Caracteres_128() {}
  void Lee_Unicode(const wchar_t*, int) {}
  bool SimplificaAcentosEnyesEtc() { return false; }
  bool ExpandeEnyesStrassenEtc() { return false; }

 private:
  void assign_text(const char* s);
  void append_text(const char* s);
};

void Clipboard_GetTextBuf(DString&);
void Clipboard_SetTextBuf(DString&);

// Free text and number helpers of the string layer; null texts count as "".
char* Ditoa(int value, char* buf, int base);
double Datof(const char* s, bool comma);
int HexToInt(const unsigned char* s, int n);
unsigned char GetNibble(unsigned char c);
bool IsHex(unsigned char c);
bool IsLetraID(char c);
bool Disdigit(char c);
int Dstrcmpi(const char* a, const char* b);
int Dstrncmpi(const char* a, const char* b, int n);

#endif
