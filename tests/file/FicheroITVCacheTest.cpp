#include <gtest/gtest.h>

#include "file/FicheroITV.h"
#include "support/TempDir.h"

namespace {

class FicheroITVCacheTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(tmp.ok()); }
  // Opens a file of n pattern bytes.
  void OpenPattern(TFicheroITV& f, size_t n, bool cached = true) {
    ASSERT_TRUE(tmp.Write("p.bin", Pattern(n)));
    int mode = MODO_LEER | MODO_BINARIO | (cached ? MODO_CACHE : 0);
    ASSERT_TRUE(f.Abre(TStringNomFitx((tmp / "p.bin").c_str()), mode, nullptr));
  }
  TempDir tmp;
};

TEST_F(FicheroITVCacheTest, EndOfTheData) {
  TFicheroITV f;
  OpenPattern(f, 100);
  ASSERT_TRUE(f.CacheActiva());
  // Seeks to the end and past it succeed; reads there fail without moving.
  EXPECT_TRUE(f.Posicionate64(100));
  EXPECT_TRUE(f.eof());
  int v = 5;
  EXPECT_FALSE(f.LeeTokenBin(&v, 4, nullptr, -1));
  EXPECT_EQ(f.PosActual64(), 100);
  EXPECT_TRUE(f.Posicionate64(101));
  EXPECT_FALSE(f.LeeTokenBin(&v, 1, nullptr, -1));
  EXPECT_EQ(f.PosActual64(), 101);
  EXPECT_TRUE(f.Posicionate64(99));
  EXPECT_FALSE(f.eof());
  unsigned char u = 0;
  f >> u;
  EXPECT_EQ(u, 99);
  EXPECT_TRUE(f.eof());  // at the end as soon as the last byte is read
  // Two bytes of data and two past it: the missing ones read as zeros, not
  // as whatever the buffer held.
  f.Posicionate64(98);
  char b[4] = {1, 1, 1, 1};
  EXPECT_TRUE(f.LeeTokenBin(b, 4, nullptr, -1));
  EXPECT_EQ(std::string(b, 4), std::string("\x62\x63\0\0", 4));
  TFicheroITV e;
  OpenPattern(e, 0);
  EXPECT_TRUE(e.eof());
  EXPECT_EQ(e.fgetc_dir(), 0);
}

TEST_F(FicheroITVCacheTest, ReadsAcrossAndAtTheEndOfSpans) {
  TFicheroITV f;
  OpenPattern(f, 200000);
  const std::string p = Pattern(200000);
  f.Posicionate64(65534);
  int v = 0;
  f >> v;  // two bytes in the first span, two in the next
  EXPECT_EQ(std::memcmp(&v, p.data() + 65534, 4), 0);
  f.Posicionate64(199990);
  double d = 0;
  f >> d;  // the last span is shorter
  EXPECT_EQ(std::memcmp(&d, p.data() + 199990, 8), 0);
  EXPECT_FALSE(f.eof());
}

TEST_F(FicheroITVCacheTest, LargeReadsBypassTheSpan) {
  TFicheroITV f;
  OpenPattern(f, 200000);
  f.Posicionate64(10);
  std::string buf(100000, '\0');
  EXPECT_TRUE(f.LeeTokenBin(&buf[0], 100000, nullptr, -1));
  EXPECT_EQ(buf, Pattern(200000).substr(10, 100000));
  EXPECT_EQ(f.PosActual64(), 100010);
  unsigned char c = 0;
  f >> c;
  EXPECT_EQ(c, 100010 % 251);
}

TEST_F(FicheroITVCacheTest, SkipAndPushBackWithAndWithoutCache) {
  for (bool cached : {true, false}) {
    SCOPED_TRACE(cached);
    TFicheroITV f;
    OpenPattern(f, 1000, cached);
    f.Posicionate64(10);
    int v;
    f >> v;
    f.Skip(-3);
    EXPECT_EQ(f.PosActual64(), 11);
    f.Unget("ab");
    EXPECT_EQ(f.PosActual64(), 9);
    EXPECT_EQ(f.fgetc(), 'a');
    EXPECT_EQ(f.fgetc(), 'b');
    EXPECT_EQ(f.fgetc(), 11);
    f.Skip(500);
    EXPECT_EQ(f.PosActual64(), 512);
  }
}

TEST_F(FicheroITVCacheTest, SwitchingOffLeavesTheBackendAtTheSpanEnd) {
  TFicheroITV f;
  OpenPattern(f, 1000);
  int v;
  f >> v;
  f.SetCache(false);
  EXPECT_EQ(f.PosActual64(), 1000);
  f.Posicionate64(4);
  f >> v;
  std::string p = Pattern(1000);
  EXPECT_EQ(std::memcmp(&v, p.data() + 4, 4), 0);
  // And back on at the current position.
  f.SetCache(true);
  EXPECT_EQ(f.PosActual64(), 8);
  f >> v;
  EXPECT_EQ(std::memcmp(&v, p.data() + 8, 4), 0);
}

// A sparse file of 5 GiB: positions past 4 GiB must survive on 32-bit
// targets too, with and without the cache.
TEST_F(FicheroITVCacheTest, PositionsBeyondFourGigabytes) {
  const long long kGiB = 1LL << 30;
  const long long lejos = 4 * kGiB + 123456789;
  TStringNomFitx nombre((tmp / "sparse.bin").c_str());
  {
    TFicheroITV f;
    ASSERT_TRUE(f.Abre(nombre, MODO_ESCRIBIR | MODO_BINARIO, nullptr));
    f.Posicionate64(lejos);
    f << 0x12345678 << 2.5;
    EXPECT_EQ(f.PosActual64(), lejos + 12);
    f.Posicionate64(5 * kGiB - 1);
    f << 'z';
    if (f.Flush() != 0) GTEST_SKIP() << "no room for a sparse file";
  }
  for (int mode : {MODO_LEER | MODO_BINARIO, MODO_LEER | MODO_BINARIO | MODO_CACHE}) {
    SCOPED_TRACE(mode);
    TFicheroITV f;
    ASSERT_TRUE(f.Abre(nombre, mode, nullptr));
    EXPECT_EQ(f.FileSize64(), 5 * kGiB);
    f.Posicionate64(lejos);
    int v = 0;
    double d = 0;
    f >> v >> d;
    EXPECT_EQ(v, 0x12345678);
    EXPECT_EQ(d, 2.5);
    EXPECT_EQ(f.PosActual64(), lejos + 12);
    f.Posicionate64(5 * kGiB - 1);
    char c = 0;
    f >> c;
    EXPECT_EQ(c, 'z');
  }
}

}  // namespace
