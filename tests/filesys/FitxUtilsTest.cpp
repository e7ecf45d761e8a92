#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>

#include "filesys/FitxUtils.h"
#include "support/TempDir.h"

namespace {

TStringNomFitx N(const std::string& s) { return TStringNomFitx(s.c_str()); }

int mode_of(const std::string& p) {
  struct stat st;
  return stat(p.c_str(), &st) == 0 ? static_cast<int>(st.st_mode & 0777) : -1;
}

std::set<std::string> names(Vector<TStringNomFitx>& v) {
  std::set<std::string> r;
  for (int i = 0; i < v.numero; i++) r.insert(v[i].c_str());
  return r;
}

class FitxUtilsTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(tmp.ok()); }
  TempDir tmp;
};

TEST_F(FitxUtilsTest, CreatesEveryMissingParentOwnerOnly) {
  mode_t old = umask(022);
  EXPECT_TRUE(TFitxUtils::Crea_Carpeta(N(tmp / "a/b/c/file.txt"), true));
  umask(old);
  for (const char* d : {"a", "a/b", "a/b/c"}) {
    EXPECT_EQ(mode_of(tmp / d), 0700) << d;
  }
  EXPECT_FALSE(tmp.Exists("a/b/c/file.txt"));
  EXPECT_TRUE(TFitxUtils::Crea_Carpeta(N(tmp / "a/b"), false));  // already there
  EXPECT_TRUE(TFitxUtils::Verifica_Existencia_Carpeta(N(tmp / "a/b/c/x"), true));
  EXPECT_FALSE(TFitxUtils::Verifica_Existencia_Carpeta(N(tmp / "a/b/c/x"), false));
}

TEST_F(FitxUtilsTest, RelativeNameWithMissingTopFolderCreatesNothing) {
  // The parent of the top folder of a relative name is that folder itself.
  std::string top = "varda-absent-" + std::to_string(getpid());
  EXPECT_FALSE(TFitxUtils::Crea_Carpeta(N(top + "/b/file.txt"), true));
  struct stat st;
  EXPECT_NE(stat(top.c_str(), &st), 0);
}

TEST_F(FitxUtilsTest, CountsListsAndDeletesWholeTrees) {
  ASSERT_TRUE(tmp.Make({"t/", "t/s/", "t/s/deep/", "t/empty/", "t/a", "t/.hidden", "t/s/b",
                        "t/s/deep/c", "outside/", "outside/keep"}));
  // A link to a folder outside the tree: deleting the tree removes the link
  // and must leave the folder it points to alone.
  bool linked = symlink((tmp / "outside").c_str(), (tmp / "t/s/link").c_str()) == 0;

  EXPECT_EQ(TFitxUtils::Num_Files_Carpeta(N(tmp / "t")), linked ? 5 : 4);

  Vector<TStringNomFitx> top(10, 10, true);
  EXPECT_TRUE(TFitxUtils::Files_Carpeta(N(tmp / "t/"), top, false, false));
  EXPECT_EQ(names(top), (std::set<std::string>{tmp / "t/a", tmp / "t/.hidden", tmp / "t/s",
                                               tmp / "t/empty"}));
  Vector<TStringNomFitx> files(10, 10, true);
  EXPECT_TRUE(TFitxUtils::Files_Carpeta(N(tmp / "t"), files, true, true));
  std::set<std::string> want = {tmp / "t/a", tmp / "t/.hidden", tmp / "t/s/b",
                                tmp / "t/s/deep/c"};
  if (linked) want.insert(tmp / "t/s/link");
  EXPECT_EQ(names(files), want);
  Vector<TStringNomFitx> none(10, 10, true);
  EXPECT_FALSE(TFitxUtils::Files_Carpeta(N(tmp / "nope"), none, true, false));

  EXPECT_TRUE(TFitxUtils::Borra_Carpeta(N(tmp / "t")));
  EXPECT_FALSE(tmp.Exists("t"));
  EXPECT_TRUE(tmp.Exists("outside/keep"));
  EXPECT_FALSE(TFitxUtils::Borra_Carpeta(N(tmp / "t")));
}

TEST_F(FitxUtilsTest, TreeWithAnUndeletableFileIsKept) {
  ASSERT_TRUE(tmp.Make({"t/", "t/locked/", "t/locked/f"}));
  ASSERT_EQ(chmod((tmp / "t/locked").c_str(), 0500), 0);
  // Whoever may ignore folder permissions (root) cannot be refused this way.
  if (access((tmp / "t/locked").c_str(), W_OK) == 0)
    GTEST_SKIP() << "folder permissions are not enforced for this user";
  EXPECT_FALSE(TFitxUtils::Borra_Carpeta(N(tmp / "t")));
  EXPECT_TRUE(tmp.Exists("t"));
  EXPECT_TRUE(tmp.Exists("t/locked/f"));
}

TEST_F(FitxUtilsTest, DeletesFilesByPrefixAndExtension) {
  ASSERT_TRUE(tmp.Make({"sub/", "map1.tmp", "map2.TMP", "Map3.tmp", "map4.txt", "map5",
                        "sub/map6.tmp"}));
  EXPECT_TRUE(TFitxUtils::Delete_Files(N(tmp / "map*.tmp")));
  // Extension case is ignored, prefix case is not; subfolders are not entered.
  Vector<TStringNomFitx> left(10, 10, true);
  TFitxUtils::Files_Carpeta(N(tmp.path()), left, true, true);
  EXPECT_EQ(names(left), (std::set<std::string>{tmp / "Map3.tmp", tmp / "map4.txt",
                                                tmp / "map5", tmp / "sub/map6.tmp"}));
}

// A pattern without a folder works in the working folder, never in the
// root; an empty folder name counts and removes nothing.
TEST_F(FitxUtilsTest, NoFolderMeansTheWorkingFolder) {
  ASSERT_TRUE(tmp.Make({"sub/", "zq1.tmpq", "zq2.tmpq", "keep.txt"}));
  char before[4096];
  ASSERT_NE(getcwd(before, sizeof before), nullptr);
  ASSERT_EQ(chdir(tmp.path().c_str()), 0);
  Vector<TStringNomFitx> listed(10, 10, true);
  const bool listed_ok = TFitxUtils::Files_Carpeta(N(""), listed, false, false);
  const bool deleted = TFitxUtils::Delete_Files(N("zq*.tmpq"));
  const bool removed = TFitxUtils::Borra_Carpeta(N(""));
  const int counted = TFitxUtils::Num_Files_Carpeta(N(""));
  ASSERT_EQ(chdir(before), 0);
  EXPECT_TRUE(listed_ok);
  EXPECT_EQ(names(listed), (std::set<std::string>{"sub", "zq1.tmpq", "zq2.tmpq", "keep.txt"}));
  EXPECT_TRUE(deleted);
  EXPECT_FALSE(tmp.Exists("zq1.tmpq"));
  EXPECT_FALSE(tmp.Exists("zq2.tmpq"));
  EXPECT_FALSE(removed);
  EXPECT_EQ(counted, 0);
  EXPECT_TRUE(tmp.Exists("keep.txt"));
  EXPECT_TRUE(tmp.Exists("sub"));
}

}  // namespace
