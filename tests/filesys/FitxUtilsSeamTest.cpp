// The file utilities over the file system in use: lookups, removals and
// renames reach it, copies that fail leave nothing behind, and a backup that
// fails keeps the old one.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "filesys/FitxUtils.h"
#include "support/FaultDisk.h"
#include "support/MemoryDisk.h"
#include "support/TempDir.h"

namespace {

TStringNomFitx N(const std::string& s) { return TStringNomFitx(s.c_str()); }

// Over a memory disk: a name that exists only there proves the call went
// through the file system in use.
TEST(FitxUtilsSeam, LookupsRemovalsAndRenamesReachTheFileSystemInUse) {
  MemoryDisk mem;
  ScopedFileSystem use(mem);
  EXPECT_FALSE(TFitxUtils::Verifica_Existencia_Archivo(N("/m/a.shp")));
  mem.Put("/m/a.shp", "12345");
  EXPECT_TRUE(TFitxUtils::Verifica_Existencia_Archivo(N("/m/a.shp")));
  EXPECT_EQ(TFitxUtils::Tamanyo_Archivo_b(N("/m/a.shp")), 5u);
  EXPECT_TRUE(TFitxUtils::Move_File(N("/m/a.shp"), N("/m/b.shp")));
  EXPECT_FALSE(TFitxUtils::Verifica_Existencia_Archivo_1(N("/m/a.shp")));
  EXPECT_EQ(mem.GetString("/m/b.shp"), "12345");
  EXPECT_TRUE(TFitxUtils::Delete_File(N("/m/b.shp")));
  EXPECT_FALSE(mem.Exists("/m/b.shp"));
  errno = 0;
  EXPECT_FALSE(TFitxUtils::Delete_File(N("/m/b.shp")));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(TFitxUtils::Tamanyo_Archivo_b(N("/m/b.shp")), 0u);
}

class FitxUtilsFallos : public ::testing::Test {
 protected:
  FitxUtilsFallos() : fallos(mem), use(fallos) {}
  MemoryDisk mem;
  FaultDisk fallos;
  ScopedFileSystem use;
};

// A write or a close of the destination fails: the copy says so, and no
// destination is left, not even an old one.
TEST_F(FitxUtilsFallos, CopiesThatFailHalfWayLeaveNoDestination) {
  const std::string datos = Pattern(300000);
  mem.Put("/m/src", datos);
  for (FaultDisk::Op op : {FaultDisk::kWrite, FaultDisk::kClose}) {
    SCOPED_TRACE(op);
    fallos.Reset();
    fallos.Fail(op, op == FaultDisk::kWrite ? 2 : 1, op == FaultDisk::kWrite ? ENOSPC : EIO);
    mem.Put("/m/dst", "old");
    DString err;
    errno = 0;
    EXPECT_FALSE(TFitxUtils::Copy(N("/m/src"), N("/m/dst"), err, true));
    EXPECT_EQ(errno, op == FaultDisk::kWrite ? ENOSPC : EIO);
    EXPECT_STREQ(err.c_str(), "Can't write file /m/dst");
    EXPECT_FALSE(mem.Exists("/m/dst"));
  }
  fallos.Reset();
  DString err;
  EXPECT_TRUE(TFitxUtils::Copy(N("/m/src"), N("/m/dst"), err, true));
  EXPECT_TRUE(mem.GetString("/m/dst") == datos);
}

TEST_F(FitxUtilsFallos, BackupsReplaceTheOldOneOnlyWhenMade) {
  mem.Put("/m/map.shp", "new contents");
  mem.Put("/m/map.shp.bak", "old");
  EXPECT_TRUE(TFitxUtils::Backup_File(N("/m/map.shp"), N("/m/map.shp.bak")));
  EXPECT_EQ(mem.GetString("/m/map.shp.bak"), "new contents");
  EXPECT_FALSE(mem.Exists("/m/map.shp.bak.$$$"));
  // A backup that cannot be written or made durable fails, and the old
  // backup is still there, whole.
  for (FaultDisk::Op op : {FaultDisk::kWrite, FaultDisk::kSync}) {
    SCOPED_TRACE(op);
    mem.Put("/m/map.shp.bak", "old");
    fallos.Reset();
    fallos.Fail(op, 1, op == FaultDisk::kWrite ? ENOSPC : EIO);
    errno = 0;
    EXPECT_FALSE(TFitxUtils::Backup_File(N("/m/map.shp"), N("/m/map.shp.bak")));
    EXPECT_EQ(errno, op == FaultDisk::kWrite ? ENOSPC : EIO);
    EXPECT_EQ(mem.GetString("/m/map.shp.bak"), "old");
    EXPECT_FALSE(mem.Exists("/m/map.shp.bak.$$$"));
  }
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
