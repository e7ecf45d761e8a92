// DString.h - the library's 8-bit string: one pointer to NUL-terminated text,
// preceded in its heap block by a capacity, a code page and a float precision.
#ifndef VARDA_STRING_DSTRING_H
#define VARDA_STRING_DSTRING_H

#include <cstdint>
#include <cstdio>

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

  // Cleanup members used throughout the library.
  void Sustituye(char from, char to);
  void Arregla_dir_carac();

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

#endif
