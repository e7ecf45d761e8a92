// The checked 64-bit move: bytes past 2 GiB and past 4 GiB in both
// directions, on 32-bit targets too, over a sparse file that costs no disk.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif

#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "support/TempDir.h"
#include "file/FicheroITVdatos.h"

namespace {

constexpr long long kG = 1LL << 30;

// Not a plain TFicheroITV: the move then runs with the caller's block size.
class TFicheroITVReferencia : public TFicheroITV {};

TStringNomFitx N(const std::string& s) { return TStringNomFitx(s.c_str()); }

class FicheroITVMove64Test : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(tmp.ok());
    nombre = (tmp / "big.bin");
    TFicheroITV f;
    ASSERT_TRUE(f.Abre(N(nombre), MODO_ESCRIBIR | MODO_BINARIO, nullptr));
    if (!f.Trunca64(5 * kG)) GTEST_SKIP() << "no sparse file of 5 GiB here";
  }
  // The test's own view of the file, independent of the file layer.
  void Pon(long long pos, const std::string& s) {
    int fd = ::open(nombre.c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::pwrite(fd, s.data(), s.size(), pos), static_cast<ssize_t>(s.size()));
    ::close(fd);
  }
  std::string Lee(long long pos, size_t n) {
    std::string s(n, '\0');
    int fd = ::open(nombre.c_str(), O_RDONLY);
    if (fd < 0) return "<open>";
    ssize_t r = ::pread(fd, &s[0], n, pos);
    ::close(fd);
    return r == static_cast<ssize_t>(n) ? s : "<short>";
  }
  bool Mueve(TFicheroITV& f, long long desde, long long d, int b, long long fin) {
    if (!f.Abre(N(nombre), MODO_LEER | MODO_BINARIO | MODO_ACTUALIZAR, nullptr)) return false;
    bool ok = f.MoveBytesEnd64(desde, d, b, fin);
    return f.CierraEx() == 1 && ok;
  }
  TempDir tmp;
  std::string nombre;
};

// Each range is moved by the large-block move and by the reference one.
TEST_F(FicheroITVMove64Test, BothWaysAcrossTwoAndFourGigabytes) {
  const std::string datos = Pattern(3000);
  struct Caso {
    long long desde, d;
  };
  for (Caso c : {Caso{2 * kG + 100, -3000}, Caso{4 * kG + 100, -3000}, Caso{1000, 4 * kG + 7},
                 Caso{2 * kG - 1000, 2500}, Caso{2 * kG + 500, 2 * kG + 1},
                 Caso{4 * kG - 1000, 2500}}) {
    for (bool grandes : {true, false}) {
      SCOPED_TRACE(::testing::Message() << c.desde << " " << c.d << (grandes ? " large" : ""));
      Pon(c.desde, datos);
      TFicheroITV rapido;
      TFicheroITVReferencia referencia;
      ASSERT_TRUE(Mueve(grandes ? rapido : referencia, c.desde, c.d, 1000, c.desde + 3000));
      EXPECT_TRUE(Lee(c.desde + c.d, 3000) == datos);
      // Towards the start the freed tail is zeroed; towards the end the gap
      // below the target keeps its old bytes.
      if (c.d < 0 || c.d > 3000) {
        EXPECT_TRUE(Lee(c.desde, 3000) == (c.d < 0 ? std::string(3000, '\0') : datos));
      }
    }
  }
  struct stat st;
  ASSERT_EQ(::stat(nombre.c_str(), &st), 0);
  EXPECT_EQ(st.st_size, 5 * kG);
}

TEST_F(FicheroITVMove64Test, RangesThatCannotBeMovedTouchNothing) {
  const std::string datos = Pattern(100);
  Pon(4 * kG, datos);
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(N(nombre), MODO_LEER | MODO_BINARIO | MODO_ACTUALIZAR, nullptr));
  struct Caso {
    long long desde, d, fin;
  };
  for (Caso c : {Caso{4 * kG, 10, 5 * kG + 1}, Caso{-1, 10, 100}, Caso{10, -11, 4 * kG + 100},
                 Caso{4 * kG + 100, -10, 4 * kG}}) {
    SCOPED_TRACE(::testing::Message() << c.desde << " " << c.d << " " << c.fin);
    EXPECT_FALSE(f.MoveBytesEnd64(c.desde, c.d, 1000, c.fin));
    EXPECT_EQ(f.ErrnoSistema(), EINVAL);
  }
  EXPECT_TRUE(f.MoveBytesEnd64(4 * kG, 0, 1000, -1));  // nothing to move
  // Writes would not pass through the read cache: refused while it is on.
  f.SetCache(true);
  EXPECT_FALSE(f.MoveBytesEnd64(4 * kG, 10, 1000, 4 * kG + 100));
  EXPECT_EQ(f.ErrnoSistema(), EINVAL);
  f.CierraEx();
  EXPECT_FALSE(f.MoveBytesEnd64(0, 1, 10, 5));
  EXPECT_EQ(f.ErrnoSistema(), EBADF);
  EXPECT_TRUE(Lee(4 * kG, 100) == datos);
  EXPECT_TRUE(Lee(4 * kG + 100, 20) == std::string(20, '\0'));
}

TEST(FicheroITVMove64Pequenyo, SameResultsAsTheUncheckedMove) {
  TempDir tmp;
  ASSERT_TRUE(tmp.ok());
  struct Caso {
    int desde, d, b, fin;
    const char* esperado;
    size_t largo;
  };
  for (Caso c : {Caso{4, -2, 3, -1, "01456789\0\0", 10}, Caso{4, 2, 3, -1, "012345456789", 12},
                 Caso{0, 5, 1000, 4, "0123401239", 10}, Caso{3, 0, 3, -1, "0123456789", 10}}) {
    SCOPED_TRACE(::testing::Message() << c.desde << " " << c.d);
    for (int i = 0; i < 2; i++) {
      ASSERT_TRUE(tmp.Write("s.bin", "0123456789"));
      TFicheroITV f;
      ASSERT_TRUE(f.Abre(N((tmp / "s.bin")), MODO_LEER | MODO_BINARIO | MODO_ACTUALIZAR,
                         nullptr));
      if (i == 0)
        EXPECT_TRUE(f.MoveBytesEnd64(c.desde, c.d, c.b, c.fin));
      else
        EXPECT_EQ(f.MoveBytesEnd(c.desde, c.d, c.b, c.fin), 1);
      f.CierraEx();
      EXPECT_EQ(tmp.Read("s.bin"), std::string(c.esperado, c.largo));
    }
  }
  // A memory file moves the same way while every target lies in its
  // content; it ignores a seek past its content, which the checked move
  // reports instead of writing at the wrong place.
  TFicheroITVdatos m(MODO_LEER | MODO_ESCRIBIR | MODO_BINARIO, 0);
  m.PonTokenBin("0123456789", 10, nullptr, -1);
  EXPECT_TRUE(m.MoveBytesEnd64(4, -2, 3, -1));
  EXPECT_TRUE(m.MoveBytesEnd64(4, 2, 3, -1));
  int n;
  EXPECT_EQ(std::string(m.Vacia_Retornando_Ptr(n), 12), std::string("0145676789\0\0", 12));
  m.SetTamanyo(10);
  EXPECT_FALSE(m.MoveBytesEnd64(4, 5, 3, -1));
  EXPECT_EQ(m.ErrnoSistema(), EINVAL);
}

}  // namespace
