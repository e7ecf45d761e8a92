#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "DiscoMemoria.h"
#include "support/TempDir.h"
#include "file/FicheroITVStdio.h"

namespace {

TStringNomFitx N(const std::string& s) { return TStringNomFitx(s.c_str()); }

TEST(SistemaFicherosDisco, LooksUpRemovesRenamesAndSyncs) {
  TempDir tmp;
  ASSERT_TRUE(tmp.ok());
  TSistemaFicheros& sf = SistemaFicheros();
  ASSERT_TRUE(tmp.Write("a.bin", "12345"));
  ASSERT_EQ(::mkdir((tmp / "d").c_str(), 0755), 0);
  ASSERT_EQ(::mkfifo((tmp / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(sf.Tipo((tmp / "a.bin").c_str()), TSistemaFicheros::kRegular);
  EXPECT_EQ(sf.Tipo((tmp / "d").c_str()), TSistemaFicheros::kOtro);
  EXPECT_EQ(sf.Tipo((tmp / "fifo").c_str()), TSistemaFicheros::kOtro);  // not opened
  EXPECT_EQ(sf.Tipo((tmp / "none").c_str()), TSistemaFicheros::kNoExiste);
  EXPECT_EQ(sf.Tamanyo((tmp / "a.bin").c_str()), 5);
  EXPECT_EQ(sf.Tamanyo((tmp / "none").c_str()), -1);
  EXPECT_EQ(sf.Tamanyo((tmp / "d").c_str()), -1);

  EXPECT_TRUE(sf.Renombra((tmp / "a.bin").c_str(), (tmp / "b.bin").c_str()));
  EXPECT_EQ(tmp.Read("b.bin"), "12345");
  errno = 0;
  EXPECT_FALSE(sf.Renombra((tmp / "a.bin").c_str(), (tmp / "c.bin").c_str()));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(sf.SincronizaCarpeta((tmp / "b.bin").c_str()));
  errno = 0;
  EXPECT_FALSE(sf.SincronizaCarpeta((tmp / "nope/b.bin").c_str()));
  EXPECT_EQ(errno, ENOENT);

  EXPECT_TRUE(sf.Borra((tmp / "b.bin").c_str()));
  errno = 0;
  EXPECT_FALSE(sf.Borra((tmp / "b.bin").c_str()));
  EXPECT_EQ(errno, ENOENT);
  ASSERT_TRUE(tmp.Write("d/x", "x"));
  errno = 0;
  EXPECT_FALSE(sf.Borra((tmp / "d").c_str()));  // a folder that is not empty
  EXPECT_EQ(errno, ENOTEMPTY);
  EXPECT_TRUE(sf.Borra((tmp / "d/x").c_str()));
  EXPECT_TRUE(sf.Borra((tmp / "d").c_str()));
  EXPECT_TRUE(sf.Borra((tmp / "fifo").c_str()));
}

TEST(SistemaFicherosCambio, ReplacingAndRestoringTheDisk) {
  TSistemaFicheros* disco = &SistemaFicheros();
  {
    TDiscoMemoria mem;
    EXPECT_EQ(&SistemaFicheros(), &mem);
    TFicheroITV f;
    ASSERT_TRUE(f.Abre(N("/mem/a.shp"), MODO_ESCRIBIR | MODO_BINARIO | MODO_TEMPORAL, nullptr));
    f << 7;
    EXPECT_EQ(f.CierraEx(), 1);
    // The backend is asked for the name that is really opened.
    EXPECT_TRUE(mem.Llamado("NuevoBackend /mem/a.shp.$$$"));
    EXPECT_EQ(mem.Contenido("/mem/a.shp.$$$"), std::string("\x07\0\0\0", 4));
  }
  EXPECT_EQ(&SistemaFicheros(), disco);
  TDiscoMemoria mem;
  EXPECT_EQ(CambiaSistemaFicheros(nullptr), &mem);
  EXPECT_EQ(&SistemaFicheros(), disco);
  CambiaSistemaFicheros(&mem);  // the destructor swaps back what it found
}

TEST(SistemaFicherosCambio, EveryModeWorksOverAnotherBackend) {
  TDiscoMemoria mem;
  TFicheroITV f;
  DString err;
  EXPECT_FALSE(f.Abre(N("/mem/none"), MODO_LEER | MODO_BINARIO, &err));
  EXPECT_STREQ(err.c_str(), "Error: /mem/none File not found");
  EXPECT_EQ(f.ErrnoSistema(), ENOENT);

  ASSERT_TRUE(f.Abre(N("/mem/t.txt"), MODO_ESCRIBIR | MODO_TEXTO, nullptr));
  f << 12 << "ab";
  f.CierraEx();
  EXPECT_EQ(mem.Contenido("/mem/t.txt"), "\xEF\xBB\xBF" "12 ab ");
  ASSERT_TRUE(f.Abre(N("/mem/t.txt"), MODO_LEER | MODO_TEXTO | MODO_CACHE, nullptr));
  int v = 0;
  f >> v;
  EXPECT_EQ(v, 12);
  EXPECT_EQ(f.GetCodepage(), 65001);
}

// Reading a file forward through the cache loads span after span where the
// backend already stands: no seek reaches it until the reader jumps.
TEST(SistemaFicherosCambio, CachedForwardReadsMakeNoSeeks) {
  TDiscoMemoria mem;
  const std::string datos = Pattern(5 * 65536 + 1234);
  mem.ficheros["/mem/p.bin"] = std::make_shared<std::string>(datos);
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(N("/mem/p.bin"), MODO_LEER | MODO_BINARIO | MODO_CACHE, nullptr));
  std::string leido;
  int v;
  while (!f.eof()) {
    ASSERT_TRUE(f.LeeTokenBin(&v, 2, nullptr, -1));
    leido.append(reinterpret_cast<char*>(&v), 2);
  }
  EXPECT_EQ(leido, datos);
  EXPECT_EQ(mem.posicionamientos, 0);
  // A jump does seek, once.
  f.Posicionate64(10);
  unsigned char c = 0;
  f >> c;
  EXPECT_EQ(c, 10);
  EXPECT_EQ(mem.posicionamientos, 1);
}

// The same over the real disk backend, counted by a wrapper around it.
class TContador : public TFicheroITV_Base {
 public:
  explicit TContador(int& n) : b(FicheroITV_new_Stdio()), seeks(n) {}
  bool Abre(const TStringNomFitx& name, int& mode, DString* err) override {
    return b->Abre(name, mode, err);
  }
  bool Cierra(DString* err) override { return b->Cierra(err); }
  bool Abierto() const override { return b->Abierto(); }
  bool LeeBytes(void* buf, int n) override { return b->LeeBytes(buf, n); }
  bool GuardaBytes(const void* buf, int n) override { return b->GuardaBytes(buf, n); }
  bool Posicionate64(long long p) override {
    seeks++;
    return b->Posicionate64(p);
  }
  bool eof() override { return b->eof(); }
  long long PosActual64() override { return b->PosActual64(); }
  long long FileSize64() override { return b->FileSize64(); }

 private:
  std::unique_ptr<TFicheroITV_Base> b;
  int& seeks;
};

class TDiscoContado : public TDiscoMemoria {
 public:
  int seeks = 0;
  TFicheroITV_Base* NuevoBackend(const TStringNomFitx&, int) override {
    return new TContador(seeks);
  }
};

TEST(SistemaFicherosCambio, CachedForwardReadsOfADiskFileMakeNoSeeks) {
  TempDir tmp;
  ASSERT_TRUE(tmp.ok());
  const std::string datos = Pattern(3 * 65536 + 77);
  ASSERT_TRUE(tmp.Write("p.bin", datos));
  TDiscoContado disco;
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(N((tmp / "p.bin")), MODO_LEER | MODO_BINARIO | MODO_CACHE, nullptr));
  std::string leido;
  double d;
  while (f.PosActual64() + 8 <= static_cast<long long>(datos.size())) {
    f >> d;
    leido.append(reinterpret_cast<char*>(&d), 8);
  }
  EXPECT_EQ(leido, datos.substr(0, leido.size()));
  EXPECT_EQ(disco.seeks, 0);
}

TEST(SistemaFicherosCambio, FailedClosesAndSyncsAreReported) {
  TDiscoMemoria mem;
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(N("/mem/c.bin"), MODO_ESCRIBIR | MODO_BINARIO, nullptr));
  f << 1;
  mem.falla_sincroniza = true;
  EXPECT_FALSE(f.Sincroniza());
  EXPECT_EQ(f.ErrnoSistema(), EIO);
  mem.falla_cierre = true;
  DString err;
  EXPECT_EQ(f.CierraEx(true, &err), 0);
  EXPECT_FALSE(f.Abierto());
  EXPECT_EQ(f.ErrnoSistema(), EIO);
  EXPECT_EQ(std::string(err.c_str()),
            std::string("Error writing /mem/c.bin file. ") + std::strerror(EIO));
  // A duplicate never closes the backend it borrows.
  mem.falla_cierre = false;
  TFicheroITV origen, dup;
  ASSERT_TRUE(origen.Abre(N("/mem/c.bin"), MODO_LEER | MODO_BINARIO, nullptr));
  TStringNomFitx nombre("m");
  ASSERT_TRUE(dup.CreateDuplicate(origen, nombre));
  mem.falla_cierre = true;
  EXPECT_EQ(dup.CierraEx(), 1);
  EXPECT_EQ(origen.CierraEx(), 0);
}

// A move that meets a full disk stops there and says so.
TEST(SistemaFicherosCambio, MoveStopsAtTheFirstFailedWrite) {
  TDiscoMemoria mem;
  mem.ficheros["/mem/m.bin"] = std::make_shared<std::string>(Pattern(10000));
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(N("/mem/m.bin"), MODO_LEER | MODO_BINARIO | MODO_ACTUALIZAR, nullptr));
  mem.escrituras_restantes = 100;
  EXPECT_FALSE(f.MoveBytesEnd64(0, 500, 1000, -1));
  EXPECT_EQ(f.ErrnoSistema(), ENOSPC);
  mem.escrituras_restantes = -1;
  mem.lecturas_restantes = 10;
  EXPECT_FALSE(f.MoveBytesEnd64(100, -50, 1000, -1));
  EXPECT_EQ(f.ErrnoSistema(), EIO);
}

}  // namespace
