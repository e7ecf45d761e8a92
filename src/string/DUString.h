// DUString.h - the wide-character string of the string layer; it also owns
// the default code page that every new string block receives.
#ifndef VARDA_STRING_DUSTRING_H
#define VARDA_STRING_DUSTRING_H

// A fixed-capacity, NUL-terminated buffer of wide characters (one code point
// each), filled from 8-bit text through the code page registry, with the
// reversals that right-to-left display needs. Its members are built with
// the code pages (src/codepage), which the conversion needs.
class DUString {
 public:
  // Default code page of new string blocks; 65001 (UTF-8) unless changed.
  // A negative value leaves the code page field of new blocks at 0.
  static int default_codepage;

  // `capacity` characters with an empty text; below 1 there is no buffer.
  explicit DUString(int capacity);
  // `len` bytes of `s` (len < 0: all of it) in `codepage` (0: the default).
  DUString(const char* s, int len, int codepage);
  ~DUString();
  DUString(const DUString&) = delete;
  DUString& operator=(const DUString&) = delete;

  int strlen() const;
  static int wcslen(const wchar_t* s);
  int IndexOf(wchar_t c, int from) const;
  // Reverses positions from..to inclusive; to < 0 or past the text: the last.
  void Reverse(int from, int to);
  // Reverses for right-to-left display, keeping left-to-right runs in order.
  void ReverseFrase();
  void ReverseFrase(int from, int to);
  // Converts `s` from the default code page into the existing buffer.
  DUString& operator=(const char* s);
  // Every character and the terminator as 16-bit units (upper bits dropped).
  void to_UTF16(unsigned short* out) const;

  const wchar_t* c_str() const { return str ? str : L""; }
  wchar_t* buffer() { return str; }
  int Capacidad() const { return capacidad; }

 private:
  wchar_t* str = nullptr;
  int capacidad = 0;
};

#endif
