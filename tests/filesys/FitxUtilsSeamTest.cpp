// The file utilities over the file system in use: lookups, removals and
// renames reach it, copies that fail leave nothing behind, and backups are
// durable before they count.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "file/DiscoMemoria.h"
#include "file/EnHijo.h"
#include "filesys/FitxUtils.h"
#include "support/TempDir.h"

namespace {

TStringNomFitx N(const std::string& s) { return TStringNomFitx(s.c_str()); }

void Pon(TDiscoMemoria& mem, const std::string& nombre, const std::string& datos) {
  mem.ficheros[nombre] = std::make_shared<std::string>(datos);
}

TEST(FitxUtilsSeam, LookupsRemovalsAndRenamesReachTheFileSystemInUse) {
  TDiscoMemoria mem;
  EXPECT_FALSE(TFitxUtils::Verifica_Existencia_Archivo(N("/m/a.shp")));
  Pon(mem, "/m/a.shp", "12345");
  EXPECT_TRUE(TFitxUtils::Verifica_Existencia_Archivo(N("/m/a.shp")));
  EXPECT_EQ(TFitxUtils::Tamanyo_Archivo_b(N("/m/a.shp")), 5u);
  EXPECT_TRUE(TFitxUtils::Move_File(N("/m/a.shp"), N("/m/b.shp")));
  EXPECT_FALSE(TFitxUtils::Verifica_Existencia_Archivo_1(N("/m/a.shp")));
  EXPECT_EQ(mem.Contenido("/m/b.shp"), "12345");
  EXPECT_TRUE(TFitxUtils::Delete_File(N("/m/b.shp")));
  EXPECT_FALSE(mem.Tiene("/m/b.shp"));
  errno = 0;
  EXPECT_FALSE(TFitxUtils::Delete_File(N("/m/b.shp")));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(TFitxUtils::Tamanyo_Archivo_b(N("/m/b.shp")), 0u);
  for (const char* verbo : {"Tipo /m/a.shp", "Tamanyo /m/a.shp", "Renombra /m/a.shp /m/b.shp",
                            "Borra /m/b.shp"})
    EXPECT_TRUE(mem.Llamado(verbo)) << verbo;
}

TEST(FitxUtilsSeam, CopiesThatFailHalfWayLeaveNoDestination) {
  TDiscoMemoria mem;
  const std::string datos = Pattern(300000);
  Pon(mem, "/m/src", datos);
  DString err;
  // The source fails to read after a third of it.
  mem.lecturas_restantes = 100000;
  errno = 0;
  EXPECT_FALSE(TFitxUtils::Copy(N("/m/src"), N("/m/dst"), err, true));
  EXPECT_EQ(errno, EIO);
  EXPECT_STREQ(err.c_str(), "Can't read file /m/src");
  EXPECT_FALSE(mem.Tiene("/m/dst"));
  // The destination fills up half-way; an old destination goes too.
  mem.lecturas_restantes = -1;
  mem.escrituras_restantes = 150000;
  Pon(mem, "/m/dst", "old");
  EXPECT_FALSE(TFitxUtils::Copy(N("/m/src"), N("/m/dst"), err, true));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_STREQ(err.c_str(), "Can't write file /m/dst");
  EXPECT_FALSE(mem.Tiene("/m/dst"));
  // The destination cannot be closed.
  mem.escrituras_restantes = -1;
  mem.falla_cierre = true;
  EXPECT_FALSE(TFitxUtils::Copy(N("/m/src"), N("/m/dst"), err, true));
  EXPECT_EQ(errno, EIO);
  EXPECT_STREQ(err.c_str(), "Can't write file /m/dst");
  EXPECT_FALSE(mem.Tiene("/m/dst"));
  mem.falla_cierre = false;
  EXPECT_TRUE(TFitxUtils::Copy(N("/m/src"), N("/m/dst"), err, true));
  EXPECT_TRUE(mem.Contenido("/m/dst") == datos);
}

TEST(FitxUtilsSeam, BackupsAreDurableBeforeTheyCount) {
  TDiscoMemoria mem;
  Pon(mem, "/m/map.shp", "new contents");
  Pon(mem, "/m/map.shp.bak", "old");
  EXPECT_TRUE(TFitxUtils::Backup_File(N("/m/map.shp"), N("/m/map.shp.bak")));
  EXPECT_EQ(mem.Contenido("/m/map.shp.bak"), "new contents");
  EXPECT_FALSE(mem.Tiene("/m/map.shp.bak.$$$"));
  // Written beside, made durable, renamed over the old one, folder synced.
  std::vector<std::string> orden;
  for (const std::string& l : mem.llamadas)
    if (l.rfind("Sincroniza", 0) == 0 || l.rfind("Renombra", 0) == 0) orden.push_back(l);
  EXPECT_EQ(orden, (std::vector<std::string>{"Sincroniza /m/map.shp.bak.$$$",
                                             "Renombra /m/map.shp.bak.$$$ /m/map.shp.bak",
                                             "SincronizaCarpeta /m/map.shp.bak"}));

  // A backup that cannot be written or made durable fails, and the old
  // backup is still there, whole.
  Pon(mem, "/m/map.shp.bak", "old");
  mem.escrituras_restantes = 5;
  errno = 0;
  EXPECT_FALSE(TFitxUtils::Backup_File(N("/m/map.shp"), N("/m/map.shp.bak")));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(mem.Contenido("/m/map.shp.bak"), "old");
  EXPECT_FALSE(mem.Tiene("/m/map.shp.bak.$$$"));
  mem.escrituras_restantes = -1;
  mem.falla_sincroniza = true;
  EXPECT_FALSE(TFitxUtils::Backup_File(N("/m/map.shp"), N("/m/map.shp.bak")));
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(mem.Contenido("/m/map.shp.bak"), "old");
  EXPECT_FALSE(mem.Tiene("/m/map.shp.bak.$$$"));
}

TEST(FitxUtilsSeam, CopyPastTheFileSizeLimitLeavesNoDestination) {
  TempDir tmp;
  ASSERT_TRUE(tmp.ok());
  ASSERT_TRUE(tmp.Write("src", Pattern(300000)));
  ASSERT_TRUE(tmp.Write("map.bak", "old backup"));
  const std::string src = tmp / "src", dst = tmp / "dst", bak = tmp / "map.bak";
  int r = EnHijoConLimite(100000, [&]() {
    DString err;
    errno = 0;
    if (TFitxUtils::Copy(N(src), N(dst), err, true)) return 1;
    if (errno != EFBIG) return 2;
    if (std::string(err.c_str()) != "Can't write file " + dst) return 3;
    if (TFitxUtils::Backup_File(N(src), N(bak))) return 4;
    if (errno != EFBIG) return 5;
    return 0;
  });
  EXPECT_EQ(r, 0);
  EXPECT_FALSE(tmp.Exists("dst"));
  EXPECT_EQ(tmp.Read("map.bak"), "old backup");
  EXPECT_FALSE(tmp.Exists("map.bak.$$$"));
  // Without the limit the backup is made.
  EXPECT_TRUE(TFitxUtils::Backup_File(N(src), N(bak)));
  EXPECT_TRUE(tmp.Read("map.bak") == Pattern(300000));
}

TEST(FitxUtilsSeam, OnlyRegularFilesAreFiles) {
  TempDir tmp;
  ASSERT_TRUE(tmp.ok());
  ASSERT_TRUE(tmp.MakeDir("d"));
  ASSERT_EQ(::mkfifo((tmp / "fifo").c_str(), 0600), 0);
  // A FIFO is never opened (that would block with no writer).
  EXPECT_FALSE(TFitxUtils::Verifica_Existencia_Archivo(N(tmp / "fifo")));
  EXPECT_FALSE(TFitxUtils::Verifica_Existencia_Archivo(N(tmp / "d")));
  EXPECT_EQ(TFitxUtils::Tamanyo_Archivo_b(N(tmp / "fifo")), 0u);
  DString err;
  EXPECT_FALSE(TFitxUtils::Copy(N(tmp / "fifo"), N(tmp / "x"), err, true));
  EXPECT_FALSE(tmp.Exists("x"));
}

}  // namespace
