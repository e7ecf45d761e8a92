#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "support/FaultDisk.h"
#include "support/MemoryDisk.h"
#include "support/TempDir.h"
#include "file/FicheroITV.h"

namespace {

TStringNomFitx N(const std::string& s) { return TStringNomFitx(s.c_str()); }

TEST(SistemaFicherosDisco, LooksUpRemovesRenamesAndSyncs) {
  TempDir tmp;
  ASSERT_TRUE(tmp.ok());
  TSistemaFicheros& sf = SistemaFicheros();
  auto P = [&](const char* n) { return tmp / n; };
  ASSERT_TRUE(tmp.Write("a.bin", "12345"));
  ASSERT_EQ(::mkdir(P("d").c_str(), 0755), 0);
  ASSERT_EQ(::mkfifo(P("fifo").c_str(), 0600), 0);
  EXPECT_EQ(sf.Tipo(P("a.bin").c_str()), TSistemaFicheros::kRegular);
  EXPECT_EQ(sf.Tipo(P("d").c_str()), TSistemaFicheros::kOtro);
  EXPECT_EQ(sf.Tipo(P("fifo").c_str()), TSistemaFicheros::kOtro);  // not opened
  EXPECT_EQ(sf.Tipo(P("none").c_str()), TSistemaFicheros::kNoExiste);
  EXPECT_EQ(sf.Tamanyo(P("a.bin").c_str()), 5);
  EXPECT_EQ(sf.Tamanyo(P("none").c_str()), -1);
  EXPECT_EQ(sf.Tamanyo(P("d").c_str()), -1);

  EXPECT_TRUE(sf.Renombra(P("a.bin").c_str(), P("b.bin").c_str()));
  EXPECT_EQ(tmp.Read("b.bin"), "12345");
  EXPECT_TRUE(sf.SincronizaCarpeta(P("b.bin").c_str()));
  EXPECT_TRUE(sf.Borra(P("b.bin").c_str()));
  ASSERT_TRUE(tmp.Write("d/x", "x"));
  const std::pair<std::function<bool()>, int> fallos[] = {
      {[&] { return sf.Renombra(P("a.bin").c_str(), P("c.bin").c_str()); }, ENOENT},
      {[&] { return sf.SincronizaCarpeta(P("nope/b.bin").c_str()); }, ENOENT},
      {[&] { return sf.Borra(P("b.bin").c_str()); }, ENOENT},
      {[&] { return sf.Borra(P("d").c_str()); }, ENOTEMPTY},  // a folder that is not empty
  };
  for (const auto& f : fallos) {
    errno = 0;
    EXPECT_FALSE(f.first());
    EXPECT_EQ(errno, f.second);
  }
  EXPECT_TRUE(sf.Borra(P("d/x").c_str()));
  EXPECT_TRUE(sf.Borra(P("d").c_str()));
  EXPECT_TRUE(sf.Borra(P("fifo").c_str()));
}

TEST(SistemaFicherosCambio, ReplacingAndRestoringTheDisk) {
  TSistemaFicheros* disco = &SistemaFicheros();
  {
    MemoryDisk mem;
    ScopedFileSystem use(mem);
    EXPECT_EQ(&SistemaFicheros(), &mem);
    TFicheroITV f;
    DString err;
    EXPECT_FALSE(f.Abre(N("/mem/none"), MODO_LEER | MODO_BINARIO, &err));
    EXPECT_STREQ(err.c_str(), "Error: /mem/none File not found");
    EXPECT_EQ(f.ErrnoSistema(), ENOENT);
    // The backend is asked for the name that is really opened.
    ASSERT_TRUE(f.Abre(N("/mem/a.shp"), MODO_ESCRIBIR | MODO_BINARIO | MODO_TEMPORAL, nullptr));
    EXPECT_EQ(f.CierraEx(), 1);
    EXPECT_EQ(mem.Names(), std::vector<std::string>{"/mem/a.shp.$$$"});
  }
  EXPECT_EQ(&SistemaFicheros(), disco);
  MemoryDisk mem;
  EXPECT_EQ(CambiaSistemaFicheros(&mem), disco);
  EXPECT_EQ(CambiaSistemaFicheros(nullptr), &mem);  // null puts the disk back
  EXPECT_EQ(&SistemaFicheros(), disco);
}

// Reading a file forward through the cache loads span after span where the
// backend already stands: no seek reaches it until the reader jumps. Counted
// over a memory file and over a disk file.
TEST(SistemaFicherosCambio, CachedForwardReadsMakeNoSeeks) {
  TempDir tmp;
  ASSERT_TRUE(tmp.ok());
  const std::string datos = Pattern(5 * 65536 + 1234);
  MemoryDisk mem;
  mem.Put("/mem/p.bin", datos);
  ASSERT_TRUE(tmp.Write("p.bin", datos));
  for (bool en_disco : {false, true}) {
    SCOPED_TRACE(en_disco);
    FaultDisk contador(en_disco ? SistemaFicheros() : mem);
    ScopedFileSystem use(contador);
    TFicheroITV f;
    ASSERT_TRUE(f.Abre(N(en_disco ? tmp / "p.bin" : "/mem/p.bin"),
                       MODO_LEER | MODO_BINARIO | MODO_CACHE, nullptr));
    std::string leido;
    int v;
    while (!f.eof()) {
      ASSERT_TRUE(f.LeeTokenBin(&v, 2, nullptr, -1));
      leido.append(reinterpret_cast<char*>(&v), 2);
    }
    EXPECT_EQ(leido, datos);
    EXPECT_EQ(contador.Count(FaultDisk::kSeek), 0);
    // A jump does seek, once.
    f.Posicionate64(10);
    unsigned char c = 0;
    f >> c;
    EXPECT_EQ(c, 10);
    EXPECT_EQ(contador.Count(FaultDisk::kSeek), 1);
  }
}

// A move that meets a full disk stops there and says so.
TEST(SistemaFicherosCambio, MoveStopsAtTheFirstFailedWrite) {
  MemoryDisk mem;
  mem.Put("/mem/m.bin", Pattern(10000));
  FaultDisk fallos(mem);
  ScopedFileSystem use(fallos);
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(N("/mem/m.bin"), MODO_LEER | MODO_BINARIO | MODO_ACTUALIZAR, nullptr));
  fallos.Fail(FaultDisk::kWrite, 1, ENOSPC);
  EXPECT_FALSE(f.MoveBytesEnd64(0, 500, 1000, -1));
  EXPECT_EQ(f.ErrnoSistema(), ENOSPC);
  EXPECT_EQ(fallos.Count(FaultDisk::kWrite), 1);
  EXPECT_EQ(mem.GetString("/mem/m.bin"), Pattern(10000));
}

}  // namespace
