// DUString.h - the wide-character string of the string layer; it also owns
// the default code page that every new string block receives.
#ifndef VARDA_STRING_DUSTRING_H
#define VARDA_STRING_DUSTRING_H

class DUString {
 public:
  // Default code page of new string blocks; 65001 (UTF-8) unless changed.
  // A negative value leaves the code page field of new blocks at 0.
  static int default_codepage;
};

#endif
