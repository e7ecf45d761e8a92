#include <gtest/gtest.h>

#include <vector>

#include "file/FicheroITVdatos.h"
#include "support/TempDir.h"

namespace {

// A memory file reading `s` as text.
struct Texto {
  explicit Texto(const std::string& s, int mode = MODO_LEER | MODO_TEXTO)
      : datos(s), f(mode, &datos[0], static_cast<int>(s.size())) {}
  std::string datos;
  TFicheroITVdatos f;
};

// Logical lines: blanks around them, comments after ";" and blank lines are
// skipped, "VOID" reads as empty; each answer is the line's number.
TEST(FicheroITVTextTest, LogicalLinesWithEveryKindOfLineEnd) {
  for (const char* fin : {"\n", "\r", "\r\n"}) {
    SCOPED_TRACE(fin);
    std::string e(fin);
    Texto t("  a b  \t" + e + e + "two;x" + e + "VOID" + e + e + "last");
    DString s;
    EXPECT_EQ(t.f.get_linea(s, 0), 0);
    EXPECT_STREQ(s.c_str(), "a b");
    EXPECT_EQ(t.f.get_linea(s, 0), 2);
    EXPECT_STREQ(s.c_str(), "two");
    EXPECT_EQ(t.f.get_linea(s, 0), 3);
    EXPECT_STREQ(s.c_str(), "");
    EXPECT_EQ(t.f.get_linea(s, 0), 5);
    EXPECT_STREQ(s.c_str(), "last");
    EXPECT_EQ(t.f.GetLinea(), 5);
  }
}

TEST(FicheroITVTextTest, LongLinesAreCutAndTheRestSkipped) {
  Texto t(std::string(25000, 'x') + "\nnext\n");
  DString s;
  t.f.get_linea(s, 0);
  EXPECT_EQ(s.Len(), 19999);
  t.f.get_linea(s, 0);
  EXPECT_STREQ(s.c_str(), "next");
  Texto u("abcdef\n");
  u.f.get_linea(s, 4);
  EXPECT_STREQ(s.c_str(), "abc");
}

TEST(FicheroITVTextTest, PhysicalLines) {
  Texto t("x\r\ny\n\r z \r\n\r\nlast");
  DString s;
  std::vector<std::string> lineas;
  while (t.f.get_linea_CR(s)) lineas.push_back(s.c_str());
  EXPECT_EQ(lineas, (std::vector<std::string>{"x", "y", "z", "", "last"}));
}

TEST(FicheroITVTextTest, PushBackIsLastInFirstOut) {
  Texto t("q");
  t.f.Unget("ab");
  t.f.Unget('c');
  EXPECT_EQ(t.f.fgetc(), 'c');
  EXPECT_EQ(t.f.fgetc(), 'a');
  EXPECT_EQ(t.f.fgetc(), 'b');
  EXPECT_EQ(t.f.fgetc(), 'q');
  EXPECT_EQ(t.f.fgetc(), 0);
  EXPECT_TRUE(t.f.eof());
  Texto ff("\xFF");
  EXPECT_EQ(ff.f.fgetc(), -1);
}

TEST(FicheroITVTextTest, ByteOrderMarks) {
  Texto utf8("\xEF\xBB\xBFz");
  EXPECT_TRUE(utf8.f.Lee_BOM());
  EXPECT_EQ(utf8.f.GetCodepage(), 65001);
  EXPECT_EQ(utf8.f.PosActual(), 3);
  EXPECT_FALSE(utf8.f.Lee_BOM());  // the code page is already known

  Texto roto("\xEF\x41");
  EXPECT_FALSE(roto.f.Lee_BOM());
  EXPECT_EQ(roto.f.GetCodepage(), 0);
  EXPECT_EQ(roto.f.PosActual(), 0);

  Texto nada("A");
  EXPECT_FALSE(nada.f.Lee_BOM());
  EXPECT_EQ(nada.f.GetCodepage(), -1);
  EXPECT_EQ(nada.f.PosActual(), 0);

  for (const char* m : {"\xFF\xFE", "\xFE\xFF"}) {
    Texto u16(m);
    EXPECT_TRUE(u16.f.Lee_BOM());
    EXPECT_EQ(u16.f.GetCodepage(), 0);
    EXPECT_EQ(u16.f.PosActual(), 2);
  }
}

TEST(FicheroITVTextTest, DiskFilesWithAndWithoutMarks) {
  TempDir tmp;
  ASSERT_TRUE(tmp.ok());
  for (const char* bom : {"", "\xEF\xBB\xBF"}) {
    for (const char* fin : {"\n", "\r", "\r\n"}) {
      std::string e(fin);
      ASSERT_TRUE(tmp.Write("t.txt", std::string(bom) + "first line" + e + e + "2nd" + e));
      for (int extra : {0, MODO_CACHE}) {
        SCOPED_TRACE(std::string(bom) + "|" + fin + "|" + std::to_string(extra));
        TFicheroITV f;
        ASSERT_TRUE(f.Abre(TStringNomFitx((tmp / "t.txt").c_str()), MODO_LEER | MODO_TEXTO | extra,
                           nullptr));
        EXPECT_EQ(f.GetCodepage(), *bom ? 65001 : 1);
        DString s;
        f.get_linea(s, 0);
        EXPECT_STREQ(s.c_str(), "first line");
        f.get_linea(s, 0);
        EXPECT_STREQ(s.c_str(), "2nd");
        f.get_linea(s, 0);
        EXPECT_STREQ(s.c_str(), "");
        EXPECT_TRUE(f.eof());
      }
    }
  }
}

TEST(FicheroITVTextTest, ReadingUpToStopBytes) {
  Texto t("key=value;rest");
  DString s;
  EXPECT_TRUE(t.f.Lee_Str_Hasta(s, '='));
  EXPECT_STREQ(s.c_str(), "key");
  char c = 0;
  s = "";
  EXPECT_TRUE(t.f.Lee_Str_Hasta_alguno(s, ",;", c));
  EXPECT_STREQ(s.c_str(), "value");
  EXPECT_EQ(c, ';');
  t.f.Lee_Todo_Str(s);
  EXPECT_STREQ(s.c_str(), "rest");
  s = "";
  EXPECT_FALSE(t.f.Lee_Str_Hasta(s, '#'));
  EXPECT_STREQ(s.c_str(), "");

  // A binary memory file does not flag its end on failed reads; the readers
  // must end all the same.
  Texto b("abc", MODO_LEER | MODO_BINARIO);
  s = "";
  EXPECT_FALSE(b.f.Lee_Str_Hasta(s, '#'));
  EXPECT_STREQ(s.c_str(), "abc");
  b.f.Posicionate(0);
  s = "";
  EXPECT_FALSE(b.f.Lee_Str_Hasta_alguno(s, "#", c));
  EXPECT_STREQ(s.c_str(), "abc");

  Texto sk("   \t x y");
  sk.f.Skip(" \t");
  EXPECT_EQ(sk.f.fgetc(), 'x');
  s = "";
  sk.f.get_dato_texto(s);
  EXPECT_STREQ(s.c_str(), "y");
}

TEST(FicheroITVTextTest, FormattedWritingHasNoLengthLimit) {
  TFicheroITVdatos m(MODO_ESCRIBIR | MODO_TEXTO, 0);
  EXPECT_EQ(m.fprintf("%d-%s", 7, "x"), 3);
  std::string largo(10000, 'y');
  EXPECT_EQ(m.fprintf("%s!", largo.c_str()), 10001);
  int n = 0;
  char* p = m.Vacia_Retornando_Ptr(n);
  EXPECT_EQ(std::string(p, static_cast<size_t>(n)), "7-x " + largo + "! ");
}

TEST(FicheroITVTextTest, CodePageConversionOfLines) {
  // A file marked as 1252 by its reader: lines come out in UTF-8.
  Texto t("caf\xE9\n");
  t.f.SetCodepage(1252);
  DString s;
  t.f.get_linea(s, 0);
  EXPECT_STREQ(s.c_str(), "caf\xC3\xA9");
  EXPECT_EQ(s.GetCodepage(), 65001);
  // Unknown (-1) passes bytes through.
  Texto u("caf\xE9\n");
  u.f.get_linea(s, 0);
  EXPECT_STREQ(s.c_str(), "caf\xE9");
}

}  // namespace
