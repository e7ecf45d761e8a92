// FicheroITVText.cpp - reading text byte by byte (with a push-back buffer),
// lines, data and byte-order marks, and printf-style writing.

#include <cstdarg>
#include <cstdio>
#include <string>

#include "codepage/CodePageHelper.h"
#include "file/FicheroITV.h"
#include "string/DUString.h"

namespace {
constexpr char CR = '\r';
constexpr char LF = '\n';

bool es_blanco_o_tab(char c) { return c == ' ' || c == '\t'; }

// `c` is one of the bytes of `conjunto`; the terminator never belongs to it.
bool en_conjunto(const char* conjunto, char c) {
  return conjunto && c != 0 && std::strchr(conjunto, c) != nullptr;
}

void trim_final(std::string& s) {
  while (s.size() > 1 && es_blanco_o_tab(s.back())) s.pop_back();
}
}  // namespace

// ------------------------------------------------------------- byte level

int TFicheroITV::fgetc() {
  if (num_devueltos > 0) {
    num_devueltos--;
    return static_cast<signed char>(devueltos.c_str()[num_devueltos]);
  }
  return fgetc_dir();
}

void TFicheroITV::Unget(char c) {
  devueltos[num_devueltos] = c;
  num_devueltos++;
}

void TFicheroITV::Unget(const char* s) {
  if (!s) return;
  for (int i = static_cast<int>(std::strlen(s)) - 1; i >= 0; i--) Unget(s[i]);
}

// One byte by operator>>(char&). False at the end of the data, and also when
// a binary read fails on a file whose end-of-file flag does not follow failed
// reads (a memory file), so that the readers below always end.
bool TFicheroITV::lee_byte(char& c) {
  c = 0;
  if (!(modo & (MODO_TEXTO | MODO_BINARIO))) return false;
  if (modo & MODO_TEXTO) c = static_cast<char>(fgetc());
  if ((modo & MODO_BINARIO) && !LeeTokenBin(&c, 1, nullptr, -1)) {
    c = 0;
    return false;
  }
  return !eof();
}

void TFicheroITV::Skip(const char* conjunto) {
  // At the end of the data the byte read is 0, which ends the run.
  for (;;) {
    char c = 0;
    *this >> c;
    if (!en_conjunto(conjunto, c)) {
      Unget(c);
      return;
    }
  }
}

// ------------------------------------------------------------- writing

int TFicheroITV::fprintf(const char* format, ...) {
  if (!format) return 0;
  char local[4096];
  va_list args;
  va_start(args, format);
  va_list copia;
  va_copy(copia, args);
  int n = std::vsnprintf(local, sizeof local, format, args);
  va_end(args);
  if (n < 0) {
    va_end(copia);
    return n;
  }
  if (static_cast<size_t>(n) < sizeof local) {
    va_end(copia);
    *this << local;
    return n;
  }
  // Longer output than the local buffer: format again into one of its size.
  std::string grande(static_cast<size_t>(n) + 1, '\0');
  std::vsnprintf(&grande[0], grande.size(), format, copia);
  va_end(copia);
  *this << grande.c_str();
  return n;
}

// ------------------------------------------------------------- reading

int TFicheroITV::get_linea(DString& s, int max) {
  if (max < 1) max = 20000;
  const int xr = xor_datos ? 0xAA : 0;
  std::string linea_leida;
  int resultado = linea;
  char c = anterior;
  for (;;) {
    // Leading blanks, tabs and line ends; every line end is counted once.
    for (;;) {
      anterior = c;
      c = static_cast<char>(fgetc() ^ xr);
      if (c == CR || (c == LF && anterior != CR)) linea++;
      if (eof()) break;
      if (c != '\t' && c != LF && c != ' ' && c != CR) break;
    }
    linea_leida.clear();
    bool corte_ff = false;
    while (!eof() && c != LF && c != ';' && c != 0 && c != CR) {
      if (static_cast<unsigned char>(c) == 0xFF) {
        corte_ff = true;
        break;
      }
      if (static_cast<int>(linea_leida.size()) < max - 1) linea_leida.push_back(c);
      anterior = c;
      c = static_cast<char>(fgetc() ^ xr);
    }
    resultado = linea;
    if (!corte_ff) {
      if (c == CR) {
        linea++;
      } else if (c == LF) {
        if (anterior != CR) linea++;
      } else if (c == ';') {
        // A comment runs to the end of the line.
        while (!eof()) {
          anterior = c;
          c = static_cast<char>(fgetc() ^ xr);
          if (c == CR) {
            linea++;
            break;
          }
          if (c == LF) {
            if (anterior != CR) linea++;
            break;
          }
        }
      }
    }
    if (!linea_leida.empty() || eof()) break;
  }
  anterior = c;
  trim_final(linea_leida);
  if (linea_leida == "VOID") linea_leida.clear();
  s = linea_leida.c_str();
  TransformStrCodepage(s);
  return resultado;
}

bool TFicheroITV::get_linea_CR(DString& s) {
  std::string texto;
  for (;;) {
    char c = static_cast<char>(fgetc());
    if (c == CR || c == LF) break;
    if (c != 0 && static_cast<unsigned char>(c) != 0xFF) texto.push_back(c);
    if (eof()) break;
  }
  // A CR LF or LF CR pair is taken whole.
  char c = static_cast<char>(fgetc());
  if (c != CR && c != LF && c != 0) Unget(c);
  bool al_final = eof();
  bool algo = !texto.empty();
  size_t ini = 0;
  while (ini < texto.size() && es_blanco_o_tab(texto[ini])) ini++;
  size_t fin = texto.size();
  while (fin > ini && es_blanco_o_tab(texto[fin - 1])) fin--;
  s = texto.substr(ini, fin - ini).c_str();
  TransformStrCodepage(s);
  return !al_final || algo;
}

void TFicheroITV::get_dato_texto(DString& s) {
  if (!(modo & MODO_TEXTO) || !(modo & MODO_LEER)) throw "Error en get_dato_texto";
  const char* seps = separadores.c_str();
  bool sin_seps = *seps == 0;
  auto separa = [&](char c) { return sin_seps ? c == 0 : en_conjunto(seps, c); };
  char c = 0;
  bool hay = false;
  while (!eof()) {
    c = static_cast<char>(fgetc());
    if (separa(c) || c == CR || c == LF || c == 0) continue;
    hay = true;
    break;
  }
  if (!hay) return;
  std::string dato;
  do {
    if (eof()) break;
    dato.push_back(c);
    c = static_cast<char>(fgetc());
    if (separa(c)) break;
  } while (c != CR && c != LF && c != 0);
  s += dato.c_str();
}

bool TFicheroITV::Lee_Str_Hasta(DString& s, char tope) {
  std::string texto;
  bool encontrado = false;
  for (;;) {
    char c;
    if (!lee_byte(c)) break;
    if (c == tope) {
      encontrado = true;
      break;
    }
    texto.push_back(c);
  }
  s += texto.c_str();
  return encontrado;
}

bool TFicheroITV::Lee_Str_Hasta_alguno(DString& s, const char* topes, char& encontrado) {
  std::string texto;
  char c;
  bool leido = lee_byte(c);
  for (;;) {
    if (!leido) break;
    if (topes ? en_conjunto(topes, c) : c == 0) break;
    texto.push_back(c);
    leido = lee_byte(c);
  }
  s += texto.c_str();
  if (en_conjunto(topes, c)) {
    encontrado = c;
    return true;
  }
  return false;
}

void TFicheroITV::Lee_Todo_Str(DString& s) {
  long long n = static_cast<long long>(FileSize()) - PosActual();
  if (n <= 0 || n > 0x7ffffff0LL) {
    s = "";
    return;
  }
  int l = static_cast<int>(n);
  s.Incre_A(l + 3, true);
  char* p = s.buffer();
  std::memset(p, 0, static_cast<size_t>(l) + 1);
  LeeTokenBin(p, l, nullptr, -1);
  p[l] = 0;
  TransformStrCodepage(s);
}

bool TFicheroITV::Lee_BOM() {
  if (codepage != -1) return false;
  long long pos = PosActual64();
  int b1 = fgetc_dir() & 0xFF;
  if (b1 != 0xFF && b1 != 0xEF && b1 != 0xFE) {
    Posicionate64(pos);
    return false;
  }
  int b2 = fgetc_dir() & 0xFF;
  if ((b1 == 0xFF && b2 == 0xFE) || (b1 == 0xFE && b2 == 0xFF)) {
    codepage = 0;  // UTF-16, either byte order
    return true;
  }
  int b3 = fgetc_dir() & 0xFF;
  if (b1 == 0xEF && b2 == 0xBB && b3 == 0xBF) {
    codepage = 65001;
    return true;
  }
  Posicionate64(pos);
  codepage = 0;
  return false;
}

void TFicheroITV::TransformStrCodepage(DString& s) {
  if (codepage < 0 || codepage == DUString::default_codepage) return;
  s.SetCodepage(codepage);
  if (CodePageHelper) CodePageHelper->TransformaCodepage(s, DUString::default_codepage);
}
