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
  Vector<DString> v(0, 10, true);
  DString("a,,b").Separa_En_Palabras(",", v);
  EXPECT_EQ(words_of(v), (W{"a", "b"}));
  DString("a,,b").Separa_En_Palabras(",", v, -1, true);
  EXPECT_EQ(words_of(v), (W{"a", "", "b"}));
  DString("a,b,").Separa_En_Palabras(",", v);
  EXPECT_EQ(words_of(v), (W{"a", "b"}));
  DString(",a,b").Separa_En_Palabras(",", v);
  EXPECT_EQ(words_of(v), (W{",a", "b"}));  // a leading separator stays in the word
  DString(",a").Separa_En_Palabras(",", v, -1, true);
  EXPECT_EQ(words_of(v), (W{"", "a"}));
  DString("x;y z").Separa_En_Palabras("; ", v);
  EXPECT_EQ(words_of(v), (W{"x", "y", "z"}));
  DString().Separa_En_Palabras(",", v);
  EXPECT_EQ(v.numero, 0);
  DString("").Separa_En_Palabras(",", v, -1, true);
  EXPECT_EQ(v.numero, 0);
  EXPECT_TRUE(DString("abc").Separa_En_Palabras(nullptr, v));
  EXPECT_EQ(words_of(v), (W{"abc"}));
}

TEST(DStringWords, PluginOptionsText) {
  DString opts("inpoint=2.35,48.85"), key, value;
  ASSERT_TRUE(opts.Separa_Por_Asignacion(key, value));
  EXPECT_EQ(key.Strcmp("inpoint"), 0);
  Vector<DString> v(0, 10, true);
  value.Separa_En_Palabras(",", v, -1, false);
  ASSERT_EQ(v.numero, 2);
  EXPECT_DOUBLE_EQ(v[0].atof(false), 2.35);
  EXPECT_DOUBLE_EQ(v[1].atof(false), 48.85);
}

TEST(DStringWords, LimitJoinsTheRestToTheLastWord) {
  Vector<DString> v(0, 10, true);
  DString("a,b,c").Separa_En_Palabras(",", v, 2);
  EXPECT_EQ(words_of(v), (W{"a", "b,c"}));
  DString("a,b,c,d").Separa_En_Palabras(",", v, 1);
  EXPECT_EQ(words_of(v), (W{"a,b,c,d"}));
  DString("a,b").Separa_En_Palabras(",", v, 5);
  EXPECT_EQ(words_of(v), (W{"a", "b"}));
  DString("a,b,").Separa_En_Palabras(",", v, 2);
  EXPECT_EQ(words_of(v), (W{"a", "b"}));
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

TEST(DStringCleanup, MembersThatDoNothing) {
  DString s("MiXed");
  s.A_Mayusculas(true);
  s.A_Minusculas(false);
  s.ProperCase();
  s.Elimina_Caracteres_128();
  s.Lee_Unicode(L"x", 1);
  s.ChangeCodepage(1252);
  EXPECT_FALSE(s.SimplificaAcentosEnyesEtc());
  EXPECT_FALSE(s.ExpandeEnyesStrassenEtc());
  EXPECT_EQ(s.KeyFromUTFToCodepage(0x20AC, 1252), -1);
  Clipboard_GetTextBuf(s);
  Clipboard_SetTextBuf(s);
  EXPECT_STREQ(s.c_str(), "MiXed");
  EXPECT_EQ(s.GetCodepage(), 65001);
}

}  // namespace
