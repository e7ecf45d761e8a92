#include <gtest/gtest.h>

#include <map>
#include <string>

#include "filesys/IteradorFitx.h"
#include "support/TempDir.h"

namespace {

bool W2(const char* pattern, const char* name) {
  return Verifica_Pertenencia_Windcards_2(DString(pattern), DString(name));
}
bool W(const char* pattern, const char* name) {
  return Verifica_Pertenencia_Windcards(DString(pattern), DString(name));
}

TEST(Windcards, OneStringAgainstOnePattern) {
  EXPECT_TRUE(W2("*", "anything/at all"));
  EXPECT_TRUE(W2("Readme", "README"));
  EXPECT_TRUE(W2("MAP*.SHP", "map_01.shp"));
  EXPECT_FALSE(W2("MAP*.SHP", "map/01.shp"));
  EXPECT_FALSE(W2("MAP*.SHP", "map\\01.shp"));
  // Only the first star is a wildcard; "?" is an ordinary character.
  EXPECT_TRUE(W2("a*b*c", "a_b*c"));
  EXPECT_FALSE(W2("a*b*c", "a_bxc"));
  EXPECT_FALSE(W2("a?*", "ab"));
  EXPECT_TRUE(W2("a?*", "a?b"));
  // Prefix and suffix may not overlap in the name.
  EXPECT_FALSE(W2("ab*ba", "aba"));
  EXPECT_TRUE(W2("ab*ba", "abba"));
  EXPECT_FALSE(W2("abc*", "ab"));
}

TEST(Windcards, FileNamesMatchStemAndExtensionApart) {
  EXPECT_TRUE(W("*.*", "readme"));
  EXPECT_FALSE(W("*.shp", "readme"));
  EXPECT_TRUE(W("*.SHP", "roads.shp"));
  EXPECT_TRUE(W("ro*.s*", "roads.shx"));
  EXPECT_FALSE(W("ro*.s*", "rivers.shx"));
  EXPECT_FALSE(W("ro*.s*", "roads.dbf"));
  EXPECT_TRUE(W("*.profile", ".profile"));
  EXPECT_FALSE(W("a.*", "a.b.c"));
}

class IteradorFitxTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(tmp.ok() && tmp.Make({"a.shp", "b.SHP", "c.txt", ".hidden", "sub.shp/"}));
  }
  // Full path -> is folder, for every entry the iterator returns.
  std::map<std::string, bool> Walk(TIteradorFitx& it) {
    std::map<std::string, bool> r;
    while (it.Siguiente()) r[it.fitx.c_str()] = it.es_carpeta;
    return r;
  }
  TempDir tmp;
};

TEST_F(IteradorFitxTest, AllEntriesIncludingDotsAndHidden) {
  TIteradorFitx it(TStringNomFitx((tmp / "*.*").c_str()));
  std::map<std::string, bool> got = Walk(it);
  std::map<std::string, bool> want = {
      {tmp / ".", true},        {tmp / "..", true},     {tmp / "a.shp", false},
      {tmp / "b.SHP", false},   {tmp / "c.txt", false}, {tmp / ".hidden", false},
      {tmp / "sub.shp", true}};
  EXPECT_EQ(got, want);
}

TEST_F(IteradorFitxTest, PatternsRestartsAndBackslashes) {
  TIteradorFitx it(TStringNomFitx((tmp / "*.shp").c_str()));
  // Matched on the full path by fnmatch, with case: b.SHP is not returned.
  std::map<std::string, bool> want = {{tmp / "a.shp", false}, {tmp / "sub.shp", true}};
  EXPECT_EQ(Walk(it), want);
  EXPECT_EQ(Walk(it), want);  // the folder is read again after the end

  TIteradorFitx win(TStringNomFitx((tmp.path() + "\\c.*").c_str()));
  ASSERT_TRUE(win.Siguiente());
  EXPECT_EQ(std::string(win.fitx.c_str()), tmp / "c.txt");
  TIteradorFitx none(TStringNomFitx((tmp / "nope/*.*").c_str()));
  EXPECT_FALSE(none.Siguiente());
}

}  // namespace
