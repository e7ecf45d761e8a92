#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "file/FicheroITVdatos.h"
#include "support/TempDir.h"
#include "thread/MonitorProc.h"

namespace {

// Same object, but not a plain TFicheroITV: the move then runs with exactly
// the block size asked for, which gives the reference result.
class TFicheroITVReferencia : public TFicheroITV {};

class FicheroITVEditTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(tmp.ok()); }
  TStringNomFitx Name(const char* rel) { return TStringNomFitx((tmp / rel).c_str()); }
  std::string Move(TFicheroITV& f, const std::string& data, int desde, int d, int b, int fin) {
    if (!tmp.Write("m.bin", data)) return "<write failed>";
    if (!f.Abre(Name("m.bin"), MODO_LEER | MODO_BINARIO | MODO_ACTUALIZAR, nullptr))
      return "<open failed>";
    EXPECT_EQ(f.MoveBytesEnd(desde, d, b, fin), 1);
    f.CierraEx();
    return tmp.Read("m.bin");
  }
  TempDir tmp;
};

// The large-block path must give exactly what the caller's block size gives,
// across block boundaries and overlapping ranges.
TEST_F(FicheroITVEditTest, LargeBlocksGiveTheSameResult) {
  std::mt19937 rng(12345);
  const std::string data = Pattern(3 * (1 << 20) + 777);
  const int n = static_cast<int>(data.size());
  struct Caso {
    int desde, d, b, fin;
  };
  std::vector<Caso> casos = {{100, -48, 1024, -1},      {1 << 20, -(1 << 20) + 3, 4093, -1},
                             {5, 1 << 20, 1024, n - 9}, {0, 48, 4096, -1},
                             {n - 10, -20, 3, n},       {200, -300, 64, -1},
                             {n - 5, 10, 2, n + 50}};
  for (int i = 0; i < 6; i++) {
    int desde = static_cast<int>(rng() % n);
    int d = static_cast<int>(rng() % 5000) - 2500;
    if (d == 0) d = 1;
    int fin = desde + static_cast<int>(rng() % (n - desde));
    casos.push_back({desde, d, 500 + static_cast<int>(rng() % 3000), i % 2 ? -1 : fin});
  }
  for (const Caso& c : casos) {
    SCOPED_TRACE(::testing::Message() << c.desde << " " << c.d << " " << c.b << " " << c.fin);
    TFicheroITV rapido;
    TFicheroITVReferencia referencia;
    std::string a = Move(rapido, data, c.desde, c.d, c.b, c.fin);
    std::string b = Move(referencia, data, c.desde, c.d, c.b, c.fin);
    ASSERT_EQ(a.size(), b.size());
    EXPECT_TRUE(a == b);
  }
}

// A move whose range runs past the end of the file reads short: what no read
// ever filled is written as zeros, never as whatever memory held. (A failed
// read leaves the block as the last one left it: byte 8 gets that '8' back.)
// In append mode every write lands at the end, so the block size shapes the
// result and the caller's is kept.
TEST_F(FicheroITVEditTest, ShortReadsAndAppendModeKeepTheCallersBlocks) {
  TFicheroITV f;
  EXPECT_EQ(Move(f, "0123456789", 8, -3, 3, 12), std::string("0123489\0" "8\0\0\0", 12));

  const auto append_move = [&](TFicheroITV& g) {
    if (!tmp.Write("a.bin", "0123456789")) return std::string("<write failed>");
    if (!g.Abre(Name("a.bin"), MODO_ANYADIR | MODO_ACTUALIZAR | MODO_BINARIO, nullptr))
      return std::string("<open failed>");
    EXPECT_EQ(g.MoveBytesEnd(4, 2, 3, -1), 1);
    g.CierraEx();
    return tmp.Read("a.bin");
  };
  TFicheroITV plain;
  TFicheroITVReferencia referencia;
  EXPECT_EQ(append_move(plain), append_move(referencia));
}

std::vector<int> escrituras;
void Observa(void*, const void*, int n) { escrituras.push_back(n); }

TEST_F(FicheroITVEditTest, CopyInBlocksWithProgress) {
  const std::string data = Pattern(10000);
  ASSERT_TRUE(tmp.Write("src.bin", "xx" + data));
  TFicheroITV src, dst;
  ASSERT_TRUE(src.Abre(Name("src.bin"), MODO_LEER | MODO_BINARIO, nullptr));
  EXPECT_FALSE(src.CopyFileData(dst, 10, nullptr, false));  // destination closed
  ASSERT_TRUE(dst.Abre(Name("dst.bin"), MODO_ESCRIBIR | MODO_BINARIO, nullptr));
  escrituras.clear();
  dst.SetHookEscritura(Observa, nullptr);
  src.Posicionate64(2);
  TMonitorProc mon;
  EXPECT_TRUE(src.CopyFileData(dst, 10000, &mon, false));
  EXPECT_EQ(escrituras, (std::vector<int>{4096, 4096, 1808}));
  EXPECT_EQ(mon.actual.load(), 10000);
  EXPECT_STREQ(mon.texto.c_str(), "9 Kb / 9 Kb ");

  escrituras.clear();
  src.Posicionate64(2);
  EXPECT_TRUE(src.CopyFileData(dst, 10000, nullptr, true));
  EXPECT_EQ(escrituras, (std::vector<int>{10000}));

  mon.stop = true;
  escrituras.clear();
  src.Posicionate64(2);
  EXPECT_FALSE(src.CopyFileData(dst, 10000, &mon, false));
  EXPECT_EQ(escrituras.size(), 1u);
  dst.CierraEx();
  EXPECT_EQ(tmp.Read("dst.bin"), data + data + data.substr(0, 4096));
}

TEST_F(FicheroITVEditTest, DuplicatesBorrowTheBackend) {
  ASSERT_TRUE(tmp.Write("o.bin", Pattern(100)));
  TFicheroITV origen, dup;
  ASSERT_TRUE(origen.Abre(Name("o.bin"), MODO_LEER | MODO_BINARIO, nullptr));
  TStringNomFitx nombre("member");
  ASSERT_TRUE(dup.CreateDuplicate(origen, nombre));
  EXPECT_FALSE(dup.CreateDuplicate(origen, nombre));  // already open
  dup.Posicionate64(40);
  EXPECT_EQ(origen.PosActual64(), 40);  // one backend, one position
  EXPECT_EQ(dup.CierraEx(), 1);
  EXPECT_TRUE(origen.Abierto());
  unsigned char c = 0;
  origen >> c;
  EXPECT_EQ(c, 40);

  char* datos = new char[50];
  std::memcpy(datos, Pattern(50).data(), 50);
  TFicheroITV conDatos;
  ASSERT_TRUE(conDatos.CreateDuplicateWithData(origen, nombre, datos, 50));
  EXPECT_EQ(conDatos.FileSize(), 50);
  EXPECT_FALSE(conDatos.eof());
  char leido[50];
  EXPECT_TRUE(conDatos.LeeTokenBin(leido, 50, nullptr, -1));
  EXPECT_EQ(std::string(leido, 50), Pattern(50));
  EXPECT_TRUE(conDatos.eof());
  EXPECT_EQ(origen.PosActual64(), 41);  // the borrowed backend was not touched
}

}  // namespace
