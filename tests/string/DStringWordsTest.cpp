#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/Vector.h"
#include "string/DString.h"

namespace {

std::vector<std::string> words_of(Vector<DString>& v) {
  std::vector<std::string> r;
  for (int i = 0; i < v.numero; i++) r.emplace_back(v[i].c_str());
  return r;
}

using W = std::vector<std::string>;

TEST(DStringWords, SplittingAtSeparators) {
  const struct {
    const char* text;
    const char* seps;
    int limit;        // past it, the rest joins the last word
    bool keep_empty;  // empty words between separators
    W want;
  } cases[] = {
      {"a,,b", ",", -1, false, {"a", "b"}},
      {"a,,b", ",", -1, true, {"a", "", "b"}},
      {"a,b,", ",", -1, false, {"a", "b"}},
      {",a,b", ",", -1, false, {",a", "b"}},  // a leading separator stays in the word
      {",a", ",", -1, true, {"", "a"}},
      {"x;y z", "; ", -1, false, {"x", "y", "z"}},
      {"", ",", -1, false, {}},
      {"", ",", -1, true, {}},
      {"abc", nullptr, -1, false, {"abc"}},
      {"a,b,c", ",", 2, false, {"a", "b,c"}},
      {"a,b,c,d", ",", 1, false, {"a,b,c,d"}},
      {"a,b", ",", 5, false, {"a", "b"}},
      {"a,b,", ",", 2, false, {"a", "b"}},
  };
  for (const auto& c : cases) {
    Vector<DString> v(0, 10, true);
    v.Anyade(DString("stale"));
    EXPECT_TRUE(DString(c.text).Separa_En_Palabras(c.seps, v, c.limit, c.keep_empty));
    EXPECT_EQ(words_of(v), c.want) << '"' << c.text << "\" limit " << c.limit << " empty "
                                   << c.keep_empty;
  }
  Vector<DString> v(0, 10, true);
  EXPECT_THROW(DString("a,b").Separa_En_Palabras(",", v, 0), TXErrorVectoresDG);
}

TEST(DStringWords, CodepageOfTheWords) {
  Vector<DString> v(0, 10, true);
  DString s("a,b");
  s.SetCodepage(1252);
  s.Separa_En_Palabras(",", v);
  ASSERT_EQ(v.numero, 2);
  EXPECT_EQ(v[0].GetCodepage(), 1252);
  EXPECT_EQ(v[1].GetCodepage(), 65001);  // the tail keeps a new string's default
  s.Separa_En_Palabras(",", v, -1, false, 28591);
  EXPECT_EQ(v[0].GetCodepage(), 28591);
  // Each word but the tail starts as a one-character block and grows as its
  // text is copied in; the tail is assigned, exactly.
  DString t("abcdefghij,abcdefghijklmnopqrst,xy");
  t.Separa_En_Palabras(",", v);
  ASSERT_EQ(v.numero, 3);
  DString one;
  one.Incre_A(1, true);
  EXPECT_EQ(v[0].clentot(), one.clentot());
  one.Incre_A(20, true);
  EXPECT_EQ(v[1].clentot(), one.clentot());
  EXPECT_EQ(v[2].clentot(), 3);
}

TEST(DStringWords, WordsKeepingTheirSeparators) {
  Vector<DString> v(0, 10, true);
  DString("a,b").Separa_En_Palabras_Y_Mantiene(",", v, -1, false, 0);
  EXPECT_EQ(words_of(v), (W{"a,", "b,"}));
  DString("a,b").Separa_En_Palabras_Y_Mantiene(",;", v, -1, false, 0);
  EXPECT_EQ(words_of(v), (W{"a,", "b;"}));
  DString("a,b,c").Separa_En_Palabras_Y_Mantiene(",", v, 2, false, 0);
  EXPECT_EQ(words_of(v), (W{"a,", "b,,c"}));
}

TEST(DStringWords, TrimmedWords) {
  Vector<DString> v(0, 10, true);
  DString("x = 1").Separa_En_Palabras_SinEspacios("=", v);
  EXPECT_EQ(words_of(v), (W{"x", "1"}));
  EXPECT_EQ(v[0].GetCodepage(), 0);
  DString(" a\t, ,b ").Separa_En_Palabras_SinEspacios(",", v, -1, 1);
  EXPECT_EQ(words_of(v), (W{"a", "", "b"}));
}

TEST(DStringWords, SplittingInTwo) {
  DString left("L"), right("R");
  EXPECT_TRUE(DString("x = 1").Separa_Por_Asignacion(left, right));
  EXPECT_STREQ(left.c_str(), "x ");
  EXPECT_STREQ(right.c_str(), " 1");
  left = "L";
  right = "R";
  EXPECT_FALSE(DString("=1").Separa_Por_Asignacion(left, right));
  EXPECT_FALSE(DString("abc").Separa_Por_Asignacion(left, right));
  EXPECT_FALSE(DString().Separa_Por_Asignacion(left, right));
  EXPECT_STREQ(left.c_str(), "L");
  EXPECT_STREQ(right.c_str(), "R");
  EXPECT_TRUE(DString("k:").Separa_en_Dos_Por(left, right, ':'));
  EXPECT_STREQ(left.c_str(), "k");
  EXPECT_STREQ(right.c_str(), "");
  DString self("key=value");
  EXPECT_TRUE(self.Separa_Por_Asignacion(left, self));
  EXPECT_STREQ(left.c_str(), "key");
  EXPECT_STREQ(self.c_str(), "value");
}

TEST(DStringWords, JoiningWords) {
  Vector<DString> v(0, 10, true);
  DString out("old");
  out.VectorToString(v, DString());
  EXPECT_STREQ(out.c_str(), "");
  for (const char* w : {"", "a", "", "b"}) v.Anyade(DString(w));
  out.VectorToString(v, DString());
  EXPECT_STREQ(out.c_str(), "a,,b");
  out.VectorToString(v, DString(" | "));
  EXPECT_STREQ(out.c_str(), "a |  | b");
}

TEST(DStringWords, SplittingAWordOfTheTargetVector) {
  Vector<DString> v(0, 10, true);
  v.Anyade(DString("p,q"));
  v[0].Separa_En_Palabras(",", v);
  EXPECT_EQ(words_of(v), (W{"p", "q"}));
}

TEST(DStringCleanup, TrimmingAndRemoval) {
  DString s(" \t a b \t ");
  s.Saca_Espacios_AntesDespues();
  EXPECT_STREQ(s.c_str(), "a b");
  DString l("  x "), r("  x ");
  l.Saca_Espacios_Antes();
  r.Saca_Espacios_Despues();
  EXPECT_STREQ(l.c_str(), "x ");
  EXPECT_STREQ(r.c_str(), "  x");
  DString blank(" \t ");
  blank.Saca_Espacios_AntesDespues();
  EXPECT_STREQ(blank.c_str(), "");
  DString none;
  none.Saca_Espacios_AntesDespues();
  none.Elimina_Caracter('a');
  EXPECT_EQ(none.ptr(), nullptr);
  DString line("a\r\nb\r\n");
  line.Elimina_Caracter('\r');
  line.Elimina_Caracter('\n');
  EXPECT_STREQ(line.c_str(), "ab");
  DString path("a\\b\\c");
  path.Arregla_dir_carac();
  EXPECT_STREQ(path.c_str(), "a/b/c");
}

}  // namespace
