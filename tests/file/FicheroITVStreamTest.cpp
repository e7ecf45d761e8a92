#include <gtest/gtest.h>

#include <vector>

#include "file/FicheroITVdatos.h"
#include "support/TempDir.h"
#include "thread/MonitorProc.h"

namespace {

std::string Contents(TFicheroITVdatos& m) {
  int n = 0;
  char* p = m.Vacia_Retornando_Ptr(n);
  return std::string(p, static_cast<size_t>(n));
}

TEST(FicheroITVStreamTest, BinaryEncodings) {
  TFicheroITVdatos m(MODO_ESCRIBIR | MODO_BINARIO, 0);
  m << 9994;
  EXPECT_EQ(Contents(m), std::string("\x0A\x27\0\0", 4));
  m << "ab";
  EXPECT_EQ(Contents(m), std::string("\x02\0ab\0", 5));
  m << "";
  EXPECT_EQ(Contents(m), std::string(3, '\0'));
  m << true << static_cast<short>(-2) << 1L << 3LL << 'c';
  EXPECT_EQ(Contents(m), std::string("\x01\xFE\xFF\x01\0\0\0\x03\0\0\0\0\0\0\0c", 16));
}

TEST(FicheroITVStreamTest, BinaryRoundTrip) {
  TFicheroITVdatos m(MODO_ESCRIBIR | MODO_LEER | MODO_BINARIO, 0);
  m << static_cast<unsigned char>(200) << false << static_cast<unsigned short>(60000)
    << 4000000000u << 7UL << -9000000000LL << 1.5f << -2.25 << "hello" << "";
  EXPECT_EQ(m.Len(), 1 + 1 + 2 + 4 + 4 + 8 + 4 + 8 + 8 + 3);
  m.Posicionate(0);
  unsigned char uc;
  bool b = true;
  unsigned short us;
  unsigned int ui;
  unsigned long ul;
  long long ll;
  float fl;
  double d;
  DString t1, t2("old");
  m >> uc >> b >> us >> ui >> ul >> ll >> fl >> d >> t1 >> t2;
  EXPECT_TRUE(uc == 200 && !b && us == 60000 && ui == 4000000000u && ul == 7UL);
  EXPECT_TRUE(ll == -9000000000LL && fl == 1.5f && d == -2.25);
  EXPECT_STREQ(t1.c_str(), "hello");
  EXPECT_STREQ(t2.c_str(), "");
  EXPECT_EQ(m.LenQueda(), 0);
}

TEST(FicheroITVStreamTest, StringPrefixWidths) {
  const char one[] = "\x03" "abc";  // width 1: length byte, text, NUL
  TFicheroITVdatos m(MODO_LEER | MODO_BINARIO, const_cast<char*>(one), 5);
  m.SetAnchoLongitud(1);
  DString s;
  m >> s;
  EXPECT_STREQ(s.c_str(), "abc");
  const char four[] = "\x02\0\0\0hi";
  TFicheroITVdatos w(MODO_LEER | MODO_BINARIO, const_cast<char*>(four), 7);
  w.SetAnchoLongitud(4);
  w >> s;
  EXPECT_STREQ(s.c_str(), "hi");
  // A corrupt length beyond the data is refused instead of allocated.
  const char bad[] = "\x00\x10\x00\x00" "x";
  TFicheroITVdatos b(MODO_LEER | MODO_BINARIO, const_cast<char*>(bad), 5);
  b.SetAnchoLongitud(4);
  b >> s;
  EXPECT_STREQ(s.c_str(), "");
}

TEST(FicheroITVStreamTest, TextTokens) {
  TFicheroITVdatos m(MODO_ESCRIBIR | MODO_TEXTO, 0);
  m << 12 << 3.5;
  EXPECT_EQ(Contents(m), "12 3.5 ");
  m << 4294967297LL << true << static_cast<char>(0) << 'q' << "w o";
  EXPECT_EQ(Contents(m), "1 1  q w o ");
  m.SetSeparador(0);
  m << static_cast<unsigned short>(65535) << -7;
  EXPECT_EQ(Contents(m), "65535-7");
}

TEST(FicheroITVStreamTest, TextReading) {
  const char texto[] = "  12\t-3.5\n\ntrue 1 x";
  TFicheroITVdatos m(MODO_LEER | MODO_TEXTO, const_cast<char*>(texto), 19);
  int i = 0;
  double d = 0;
  DString s("pre-");
  bool b = false;
  m >> i >> d >> s >> b;
  EXPECT_EQ(i, 12);
  EXPECT_EQ(d, -3.5);
  EXPECT_STREQ(s.c_str(), "pre-true");  // text data are appended
  EXPECT_TRUE(b);
  char c = 0;
  m >> c;  // one byte, no separator skipping
  EXPECT_EQ(c, 'x');

  TFicheroITVdatos bin(MODO_LEER | MODO_BINARIO, const_cast<char*>(texto), 19);
  EXPECT_THROW(bin.get_dato_texto(s), const char*);
}

TEST(FicheroITVStreamTest, NoEncodingMovesNothingAndMarksOnlyAtTheStart) {
  TFicheroITVdatos m(MODO_ESCRIBIR, 0);
  m << 5 << 2.0 << "x";
  EXPECT_EQ(m.Len(), 0);
  m.Guarda_BOM(1252);
  EXPECT_EQ(m.Len(), 0);
  m.Guarda_BOM(65001);
  EXPECT_EQ(m.Len(), 3);
  m.Guarda_BOM(65001);
  EXPECT_EQ(m.Len(), 3);
}

struct Registro {
  std::vector<int> escrituras;
  TMonitorProc* monitor = nullptr;
  int parar_en = -1;
};

void Observa(void* contexto, const void*, int n) {
  Registro* r = static_cast<Registro*>(contexto);
  r->escrituras.push_back(n);
  if (r->monitor && static_cast<int>(r->escrituras.size()) == r->parar_en) r->monitor->stop = true;
}

TEST(FicheroITVStreamTest, MonitoredWritesGoInChunks) {
  TempDir tmp;
  ASSERT_TRUE(tmp.ok());
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(TStringNomFitx((tmp / "m.bin").c_str()), MODO_ESCRIBIR | MODO_BINARIO,
                     nullptr));
  std::string data = Pattern(100000);
  TMonitorProc mon;
  Registro r;
  f.SetHookEscritura(Observa, &r);
  EXPECT_TRUE(f.PonTokenBin(data.data(), 100000, &mon, 0));
  // The observer sees the whole run, then every chunk.
  EXPECT_EQ(r.escrituras, (std::vector<int>{100000, 32000, 32000, 32000, 4000}));
  EXPECT_EQ(mon.actual.load(), 100000);
  EXPECT_EQ(mon.npasos.load(), 100000);

  // A stop request during the second chunk ends the run after it.
  r = Registro();
  r.monitor = &mon;
  r.parar_en = 3;
  EXPECT_FALSE(f.PonTokenBin(data.data(), 100000, &mon, -1));
  EXPECT_EQ(mon.actual.load(), 64000);
  f.SetHookEscritura(nullptr, nullptr);
  f.CierraEx();
  EXPECT_EQ(tmp.Read("m.bin"), data + data.substr(0, 64000));

  // Monitored reads take the caller's chunk.
  ASSERT_TRUE(f.Abre(TStringNomFitx((tmp / "m.bin").c_str()), MODO_LEER | MODO_BINARIO,
                     nullptr));
  std::string back(100000, '\0');
  mon.stop = false;
  EXPECT_TRUE(f.LeeTokenBin(&back[0], 100000, &mon, 30000));
  EXPECT_EQ(back, data);
  EXPECT_EQ(mon.actual.load(), 100000);
}

}  // namespace
