#include "string/DString.h"

#include <cstring>

#include "string/DUString.h"

int DUString::default_codepage = 65001;

namespace {
// The one read-only empty text handed out for strings without a block.
const char kStrNull[1] = {0};

int text_len(const char* s) { return s ? static_cast<int>(std::strlen(s)) : 0; }
}  // namespace

// ---------------------------------------------------------------- read side

int CDString::Len() const { return text_len(str); }
int CDString::clentot() const { return str ? cap_ref() : 0; }
int CDString::memsize() const { return str ? cap_ref() + kHeader : 0; }
bool CDString::is_NULL() const { return str && cap_ref() < 0; }
int CDString::GetCodepage() const { return str ? cp_ref() : 0; }
int CDString::f_codepageC() const { return GetCodepage(); }
int CDString::prec_floatC() const { return str ? prec_ref() : 1; }
const char* CDString::Get_str_null() const { return kStrNull; }

char CDString::operator[](int n) const {
  if (n < 0 || n >= Len()) return 0;
  return str[n];
}

char CDString::Ultimo_Caracter() const {
  int n = Len();
  return n ? str[n - 1] : 0;
}

int CDString::Strcmp(const char* s) const {
  if (!s || !*s) return Len() ? 1 : 0;
  if (!Len()) return -1;
  return std::strcmp(str, s);
}

int CDString::Strcmpi(const char* s) const {
  if (!s) return Len() ? 1 : 0;
  if (!Len()) return *s ? 1 : 0;
  return Dstrcmpi(str, s);
}

int CDString::CompareNoCase(const wchar_t*) const { return Strcmpi(""); }

// ---------------------------------------------------------------- storage

void DString::Incre_A(int n, bool extra) {
  if (n < 0) return;
  int need = extra ? n + 2 : n;
  if (!str) {
    int cap = extra ? need + 13 : need;
    char* block = new char[static_cast<size_t>(cap) + kHeader];
    str = block + kHeader;
    cap_ref() = cap;
    cp_ref() = DUString::default_codepage >= 0
                   ? static_cast<uint16_t>(DUString::default_codepage)
                   : 0;
    prec_ref() = 1;
    str[0] = 0;
    return;
  }
  int cap = cap_ref();
  if (need <= cap) return;
  int ncap = extra ? need * 3 / 2 + 11 : need;
  // Two bytes more than the header needs, as every regrown block has.
  char* block = new char[static_cast<size_t>(ncap) + kHeader + 2];
  char* nstr = block + kHeader;
  if (cap > 0) std::memcpy(nstr, str, static_cast<size_t>(cap));
  uint16_t cp = cp_ref();
  int16_t prec = prec_ref();
  delete[] (str - kHeader);
  str = nstr;
  cap_ref() = ncap;
  cp_ref() = cp;
  prec_ref() = prec;
}

int& DString::lentot() { return cap_ref(); }

void DString::Set_codepage(int cp) {
  if (!str) Incre_A(1, true);
  if (cp >= 0) cp_ref() = static_cast<uint16_t>(cp);
}
void DString::SetCodepage(int cp) { Set_codepage(cp); }
void DString::SetCodepage(int cp, int) { Set_codepage(cp); }
void DString::ChangeCodepage(int) {}

void DString::Set_prec_float(int p) {
  if (!str) Incre_A(1, true);
  prec_ref() = static_cast<int16_t>(p);
}

void DString::SetPrecision_Floats(int p) {
  Incre_A(1, true);
  prec_ref() = static_cast<int16_t>(p);
}

void DString::Deletea() {
  if (str) delete[] (str - kHeader);
  str = nullptr;
}

DString::~DString() { Deletea(); }

// ---------------------------------------------------------------- construction

DString::DString(const char* s) {
  int n = text_len(s);
  if (!n) return;
  Incre_A(n, true);
  std::memcpy(str, s, static_cast<size_t>(n) + 1);
}

DString::DString(const unsigned char* s) : DString(reinterpret_cast<const char*>(s)) {}

DString::DString(const DString& s) : CDString() {
  int n = s.Len();
  if (!n) return;
  Incre_A(n, true);
  std::memcpy(str, s.str, static_cast<size_t>(n) + 1);
  cp_ref() = static_cast<uint16_t>(s.GetCodepage());
}

DString::DString(const CDString& s) : DString(s.ptr()) {}

// Wide text is not converted: the result is always an empty string.
DString::DString(const wchar_t*) {}

// ---------------------------------------------------------------- assignment

void DString::assign_text(const char* s) {
  int n = text_len(s);
  if (!n) {
    if (str && *str) *str = 0;
    return;
  }
  if (s >= str && str && s <= str + Len()) {
    // Assigning a part of ourselves: copy out first, growth may free it.
    DString tmp(s);
    assign_text(tmp.str);
    return;
  }
  Incre_A(n + 1, false);
  std::memcpy(str, s, static_cast<size_t>(n) + 1);
}

DString& DString::operator=(const char* s) {
  assign_text(s);
  return *this;
}

DString& DString::operator=(const CDString& s) {
  assign_text(s.ptr());
  return *this;
}

DString& DString::operator=(const DString& s) {
  if (&s == this) return *this;
  assign_text(s.str);
  Set_codepage(s.GetCodepage());
  return *this;
}

DString& DString::operator=(const wchar_t* s) {
  if (!s) {
    assign_text(nullptr);
    return *this;
  }
  if (!str) Incre_A(1, true);
  *str = 0;
  return *this;
}

DString& DString::operator=(int n) {
  assign_text("");
  char buf[16];
  std::snprintf(buf, sizeof buf, "%d", n);
  append_text(buf);
  return *this;
}

// ---------------------------------------------------------------- appending

void DString::append_text(const char* s) {
  if (!s) return;
  int add = text_len(s);
  int len = Len();
  if (str && s >= str && s <= str + len) {
    DString tmp(s);
    append_text(tmp.str);
    return;
  }
  Incre_A(len + add, true);
  std::memcpy(str + len, s, static_cast<size_t>(add) + 1);
}

DString& DString::operator+=(const char* s) {
  append_text(s);
  return *this;
}
DString& DString::operator<<(const char* s) {
  append_text(s);
  return *this;
}
DString& DString::operator<<(const unsigned char* s) {
  append_text(reinterpret_cast<const char*>(s));
  return *this;
}

DString& DString::operator+=(char c) {
  int len = Len();
  Incre_A(len + 1 + 1, true);
  if (c) {
    str[len] = c;
    str[len + 1] = 0;
  }
  return *this;
}
DString& DString::operator<<(char c) { return *this += c; }
DString& DString::operator<<(unsigned char c) { return *this += static_cast<char>(c); }

DString& DString::operator+=(const DString& s) {
  if (!s.str) return *this;
  if (!Len()) Set_codepage(s.GetCodepage());
  append_text(s.str);
  return *this;
}

DString& DString::operator<<(const DString& s) {
  if (!Len()) Set_codepage(s.GetCodepage());
  int len = Len();
  Incre_A(s.Len() + len, true);
  append_text(s.c_str());
  return *this;
}

DString& DString::operator<<(const CDString& s) {
  append_text(s.c_str());
  return *this;
}

DString& DString::operator+=(const wchar_t* s) {
  if (!s) return *this;
  return *this << DString(s);
}

DString DString::operator+(char c) const {
  DString r(*this);
  r += c;
  return r;
}
DString DString::operator+(const char* s) const {
  DString r(*this);
  r += s;
  return r;
}
DString DString::operator+(const DString& s) const {
  DString r(*this);
  r += s;
  return r;
}

// ---------------------------------------------------------------- characters

char& DString::operator[](int n) {
  if (n < 0) throw "Error DString n<0";
  Incre_A(n + 1, true);
  return str[n];
}

char& DString::Ultimo_Caracter() {
  int n = Len();
  if (!n) {
    Incre_A(2, true);
    return str[0];  // the terminator: callers must not write through it
  }
  return str[n - 1];
}

void DString::strncpy(const char* s, int n) {
  if (n < 0) return;
  Incre_A(n, true);
  if (s && s >= str && s <= str + clentot()) {
    DString tmp(s);
    strncpy(tmp.c_str(), n);
    return;
  }
  std::strncpy(str, s ? s : "", static_cast<size_t>(n));
  str[n] = 0;
}

void DString::memcat(int pos, const void* data, int n) {
  if (n < 1 || pos < 0) return;
  Incre_A(pos + n, true);
  std::memmove(str + pos, data, static_cast<size_t>(n));
}

// ---------------------------------------------------------------- stream record

int DString::Grava(FILE* f) const {
  int n = Len();
  int16_t len = static_cast<int16_t>(n);
  std::fwrite(&len, 2, 1, f);
  if (n) std::fwrite(str, 1, static_cast<size_t>(n), f);
  return std::fputc('\n', f);
}

bool DString::Lee(FILE* f, int maxlen) {
  int16_t len = 0;
  if (std::fread(&len, 2, 1, f) != 1) return false;
  if (len < 0 || len > maxlen) return false;
  Incre_A(len + 3, true);
  size_t got = std::fread(str, 1, static_cast<size_t>(len) + 1, f);
  str[got] = 0;
  char* lf = std::strchr(str, '\n');
  if (lf) *lf = 0;
  return true;
}

// ---------------------------------------------------------------- cleanup

void DString::Sustituye(char from, char to) {
  if (!str) return;
  for (char* p = str; *p; ++p)
    if (*p == from) *p = to;
}

void DString::Arregla_dir_carac() { Sustituye('\\', '/'); }

void Clipboard_GetTextBuf(DString&) {}
void Clipboard_SetTextBuf(DString&) {}
