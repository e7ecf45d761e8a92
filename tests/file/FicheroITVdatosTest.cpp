#include <gtest/gtest.h>

#include <memory>

#include "file/FicheroITVdatos.h"

namespace {

TEST(FicheroITVdatosTest, GrowthKeepsTheContent) {
  TFicheroITVdatos g(MODO_ESCRIBIR | MODO_BINARIO, 500);
  std::string bloque(1001, 'a');
  EXPECT_TRUE(g.PonTokenBin(bloque.data(), 1001, nullptr, -1));
  char* p = g.PtrPos(3000);  // room past the position, content kept
  std::memcpy(p, "xyz", 3);
  EXPECT_EQ(g.IncreTamanyo(3), 1004);
  EXPECT_EQ(g.Len(), 1004);
  g.Posicionate(1000);
  char t[4];
  g.LeeTokenBin(t, 4, nullptr, -1);
  EXPECT_EQ(std::string(t, 4), "axyz");
}

// Reading exactly to the end is not yet the end; a failed read is not
// either; only a byte read at the end is, and the position stays one past.
TEST(FicheroITVdatosTest, EndOfFileAndIgnoredSeeks) {
  TFicheroITVdatos m(MODO_ESCRIBIR | MODO_BINARIO, 1000);
  m << 7 << 2.5;
  EXPECT_TRUE(m.Posicionate(0));
  int i = 0;
  double d = 0;
  m >> i >> d;
  EXPECT_FALSE(m.eof());
  int extra = 3;
  EXPECT_FALSE(m.LeeTokenBin(&extra, 4, nullptr, -1));
  EXPECT_EQ(extra, 0);
  EXPECT_EQ(m.PosActual(), 12);
  EXPECT_FALSE(m.eof());
  EXPECT_EQ(m.fgetc_dir(), 0);
  EXPECT_TRUE(m.eof());
  EXPECT_EQ(m.fgetc_dir(), 0);
  EXPECT_EQ(m.PosActual(), 13);

  EXPECT_TRUE(m.Posicionate(4));
  EXPECT_TRUE(m.Posicionate(100));  // ignored
  EXPECT_TRUE(m.Posicionate(-1));   // ignored
  EXPECT_EQ(m.PosActual64(), 4);
  EXPECT_TRUE(m.Posicionate64(0));  // the 64-bit seek reaches memory files too
  EXPECT_EQ(m.LenQueda(), 12);
}

TEST(FicheroITVdatosTest, HandingTheBufferOver) {
  TFicheroITVdatos m(MODO_ESCRIBIR | MODO_BINARIO, 1000);
  m << 1 << 2;
  int n = 0;
  std::unique_ptr<char[]> p(m.Cierra_Retornando_Ptr(n));
  EXPECT_EQ(n, 8);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p[4], 2);
  int n2 = 0;
  EXPECT_EQ(m.Cierra_Retornando_Ptr(n2), nullptr);
  EXPECT_EQ(n2, 8);
  // The detached file stays safe to use: reads fail, writes get a new buffer.
  int v = 5;
  EXPECT_FALSE(m.LeeTokenBin(&v, 4, nullptr, -1));
  m.Posicionate(0);
  m << 9;
  int n3 = 0;
  std::unique_ptr<char[]> q(m.Cierra_Retornando_Ptr(n3));
  EXPECT_EQ(q[0], 9);

  TFicheroITVdatos k(MODO_ESCRIBIR | MODO_BINARIO, 0);
  k << 3;
  char* r = k.Vacia_Retornando_Ptr(n);
  EXPECT_EQ(n, 4);
  EXPECT_EQ(r[0], 3);
  EXPECT_EQ(k.Len(), 0);
  EXPECT_EQ(k.PosActual(), 0);
  // Pointed at other memory, the file no longer owns the buffer it handed
  // out: the caller has taken it, and it stays readable until freed.
  char other[3] = {7, 8, 9};
  k.Set_Datos_Lectura(other, 3, false);
  EXPECT_EQ(r[0], 3);
  delete[] r;
  char c = 0;
  ASSERT_TRUE(k.LeeTokenBin(&c, 1, nullptr, -1));
  EXPECT_EQ(c, 7);
}

TEST(FicheroITVdatosTest, ForeignMemoryIsReadOnly) {
  char datos[8] = {1, 0, 0, 0, 2, 0, 0, 0};
  TFicheroITVdatos m(MODO_LEER | MODO_BINARIO, datos, 8);
  int a = 0, b = 0;
  m >> a >> b;
  EXPECT_EQ(a + b, 3);
  EXPECT_THROW(m << 5, const char*);
  EXPECT_EQ(m.Len(), 8);
  int n;
  m.Set_Datos_Lectura(datos + 4, 4, false);
  m >> a;
  EXPECT_EQ(a, 2);
  EXPECT_EQ(m.Cierra_Retornando_Ptr(n), datos + 4);
}

TEST(FicheroITVdatosTest, CopyingBetweenMemoryFiles) {
  TFicheroITVdatos a(MODO_ESCRIBIR | MODO_BINARIO, 0), b(MODO_ESCRIBIR | MODO_BINARIO, 0);
  a.PonTokenBin("abcdef", 6, nullptr, -1);
  EXPECT_EQ(b.Lee(a, 2, 3), 3);
  EXPECT_EQ(b.Lee(a, 4, -1), 5);
  EXPECT_EQ(b.Lee(a, 5, 100), 6);  // limited to what the source holds
  b.Posicionate(0);
  char t[6];
  b.LeeTokenBin(t, 6, nullptr, -1);
  EXPECT_EQ(std::string(t, 6), "cdeeff");
  // From itself, while growing.
  std::string grande(3000, 'z');
  b.PonTokenBin(grande.data(), 3000, nullptr, -1);
  EXPECT_EQ(b.Lee(b, 0, -1), 6012);

  b.SetTamanyo(2);
  EXPECT_EQ(b.IncrePosicion(5), 7);
  EXPECT_EQ(b.PosActual(), 2);
  b.Vacia();
  EXPECT_EQ(b.Len(), 0);
  char* p = b.Ptr(5000);
  std::memcpy(p, "hello", 5);
  b.SetTamanyo(5);
  EXPECT_EQ(b.Len(), 5);
  EXPECT_EQ(std::string(b.cPtr() - 5, 5), "hello");
}

}  // namespace
