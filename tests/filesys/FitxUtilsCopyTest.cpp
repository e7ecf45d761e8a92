#include <gtest/gtest.h>

#include <string>

#include "core/Vector.h"
#include "file/MultipleFiles.h"
#include "filesys/FitxUtils.h"
#include "support/TempDir.h"
#include "thread/MonitorProc.h"

namespace {

TStringNomFitx N(const std::string& s) { return TStringNomFitx(s.c_str()); }

class FitxUtilsCopyTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(tmp.ok()); }
  TempDir tmp;
};

TEST_F(FitxUtilsCopyTest, CopiesAndRespectsOverwrite) {
  ASSERT_TRUE(tmp.Write("src", "new contents"));
  DString err;
  EXPECT_TRUE(TFitxUtils::Copy(N(tmp / "src"), N(tmp / "dst"), err, false));
  EXPECT_EQ(tmp.Read("dst"), "new contents");

  ASSERT_TRUE(tmp.Write("dst", "old"));
  EXPECT_TRUE(TFitxUtils::Copy(N(tmp / "src"), N(tmp / "dst"), err, false));
  EXPECT_EQ(tmp.Read("dst"), "old");
  EXPECT_TRUE(TFitxUtils::Copy(N(tmp / "src"), N(tmp / "dst"), err, true));
  EXPECT_EQ(tmp.Read("dst"), "new contents");
  EXPECT_TRUE(err.IsEmpty());

  // Onto itself: the file must survive.
  EXPECT_TRUE(TFitxUtils::Copy(N(tmp / "src"), N(tmp / "./src"), err, true));
  EXPECT_EQ(tmp.Read("src"), "new contents");
}

TEST_F(FitxUtilsCopyTest, ReportsWhatWentWrong) {
  DString err;
  std::string missing = tmp / "missing";
  EXPECT_FALSE(TFitxUtils::Copy(N(missing), N(tmp / "dst"), err, true));
  EXPECT_EQ(std::string(err.c_str()), "File not found " + missing);
  EXPECT_FALSE(tmp.Exists("dst"));

  ASSERT_TRUE(tmp.Write("src", "x"));
  std::string bad = tmp / "no/such/folder/dst";
  err = "";
  EXPECT_FALSE(TFitxUtils::Copy(N(tmp / "src"), N(bad), err, true));
  EXPECT_EQ(std::string(err.c_str()), "Can't open file to write " + bad);
}

TEST_F(FitxUtilsCopyTest, LargeCopyWithMonitor) {
  std::string data(1200000, '\0');
  for (size_t i = 0; i < data.size(); i++) data[i] = static_cast<char>(i * 31 + (i >> 9));
  ASSERT_TRUE(tmp.Write("big", data));
  TMonitorProc m;
  DString err;
  EXPECT_TRUE(TFitxUtils::Copy(N(tmp / "big"), N(tmp / "big2"), err, true, &m));
  EXPECT_TRUE(tmp.Read("big2") == data);
  EXPECT_EQ(m.actual, 1200000);
  EXPECT_TRUE(m.texto.IsEmpty());

  // A copy stopped by its monitor still answers true; the stop flag tells
  // the caller that the destination is partial.
  TMonitorProc stopped;
  stopped.Cancelar();
  EXPECT_TRUE(TFitxUtils::Copy(N(tmp / "big"), N(tmp / "big3"), err, true, &stopped));
  EXPECT_TRUE(stopped.texto.IsEmpty());
  EXPECT_TRUE(stopped.stop);
  EXPECT_LT(tmp.Read("big3").size(), data.size());
}

// Replacing a backup, and making a new one: FitxUtilsSeamTest, FaultDiskTest.
TEST_F(FitxUtilsCopyTest, BackupOfEqualSizeCopiesNothing) {
  ASSERT_TRUE(tmp.Write("map.shp", "abcd"));
  ASSERT_TRUE(tmp.Write("map.shp.bak", "wxyz"));
  EXPECT_TRUE(TFitxUtils::Backup_File(N(tmp / "map.shp"), N(tmp / "map.shp.bak")));
  EXPECT_EQ(tmp.Read("map.shp.bak"), "wxyz");  // by design: size is the test
  EXPECT_FALSE(TFitxUtils::Backup_File(N(tmp / "none.shp"), N(tmp / "none.bak")));
}

// Test containers: "*.pack" files that list their members one per line.
class PackManager : public TVirtualFatMultipleFiles {
 public:
  bool EsContenedor(const TStringNomFitx& path) override { return path.es_extension("pack"); }
  bool LocalizaMiembro(TFicheroITV& f, const TStringNomFitx&, const DString& miembro,
                       long long& offset, long long& longitud, bool& xor_datos,
                       DString*) override {
    char buf[64] = {0};
    int n = static_cast<int>(f.FileSize64());
    if (n >= 64 || !f.LeeTokenBin(buf, n)) return false;
    offset = 0, longitud = n, xor_datos = false;
    return std::string(buf).find(std::string(miembro.c_str()) + "\n") != std::string::npos;
  }
  bool AbreMiembro(const TStringNomFitx&, const DString&, TFicheroITV&, bool& tratado, bool&,
                   DString*) override {
    return tratado = false;
  }
  bool ListaMiembros(TFicheroITV&, const TStringNomFitx&, Vector<TStringNomFitx>&) override {
    return false;
  }
};

TEST_F(FitxUtilsCopyTest, MembersOfContainersExistThroughTheManager) {
  ASSERT_TRUE(tmp.Write("set.pack", "roads.shp\nrivers.shp\n"));
  TStringNomFitx member = N(tmp / "set.pack!/rivers.shp");
  EXPECT_FALSE(TFitxUtils::Verifica_Existencia_Archivo(member));  // no manager yet
  PackManager manager;
  Set_MultipleFiles_Manager(&manager);
  EXPECT_TRUE(TFitxUtils::Verifica_Existencia_Archivo(member));
  EXPECT_FALSE(TFitxUtils::Verifica_Existencia_Archivo(N(tmp / "set.pack!/lakes.shp")));
  EXPECT_FALSE(TFitxUtils::Verifica_Existencia_Archivo(N(tmp / "gone.pack!/roads.shp")));
  Set_MultipleFiles_Manager(nullptr);
}

}  // namespace
