#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <vector>

#include "string/BMString.h"
#include "string/DString.h"

namespace {

TEST(DStringParse, IntegerConversions) {
  EXPECT_EQ(DString("0x1F").atoi(), 31);
  EXPECT_EQ(DString("0X1F").atoi(), 0);
  EXPECT_EQ(DString("0xFFFFFFFF").atoi(), -1);
  EXPECT_EQ(DString("42abc").atoi(), 42);
  EXPECT_EQ(DString().atoi(), 0);
  EXPECT_EQ(DString("-2147483648").atoi(), INT_MIN);
  EXPECT_EQ(DString("99999999999").atoi(), INT_MAX);  // same on every host
  EXPECT_EQ(DString("-123456789012").atoi64(), -123456789012LL);
  EXPECT_EQ(DString("12345678").atoi64(), 12345678);
  EXPECT_EQ(DString("123456789").atoi64(), 123456789);
  EXPECT_EQ(DString("-5").atoi64(), -5);
  EXPECT_EQ(DString().atoi64(), 0);
}

TEST(DStringParse, DatofReadsIntegerAndFractionApart) {
  EXPECT_DOUBLE_EQ(Datof("3.25", false), 3.25);
  EXPECT_DOUBLE_EQ(Datof("3,25", false), 3.0);
  EXPECT_DOUBLE_EQ(Datof("3,25", true), 3.25);
  EXPECT_DOUBLE_EQ(Datof("1,5.25", true), 1.5);
  EXPECT_DOUBLE_EQ(Datof("1.5.3", false), 1.5);
  EXPECT_DOUBLE_EQ(Datof("1e3", false), 1000.0);
  EXPECT_DOUBLE_EQ(Datof("   -.5", false), -0.5);
  EXPECT_DOUBLE_EQ(Datof(nullptr, false), 0.0);
  double z = Datof("-0", false);
  EXPECT_EQ(z, 0.0);
  EXPECT_TRUE(std::signbit(z));
  EXPECT_NEAR(Datof("0.12345678901234567890123456789", false), 0.123456789012345678, 1e-15);
  EXPECT_DOUBLE_EQ(DString("48,85").atof(true), 48.85);
  EXPECT_DOUBLE_EQ(DString().atof(false), 0.0);
  EXPECT_DOUBLE_EQ(DString("1+2").atof_formula(), 1.0);
}

TEST(DStringParse, HexDigits) {
  EXPECT_EQ(HexToInt(reinterpret_cast<const unsigned char*>("ff"), 2), 255);
  EXPECT_EQ(HexToInt(reinterpret_cast<const unsigned char*>("FF"), 1), 15);
  EXPECT_EQ(HexToInt(nullptr, 3), 0);
  EXPECT_EQ(DString("0x1f").ahextoi(0), 31);
  EXPECT_EQ(DString("0x").ahextoi(0), 33);  // both characters read as digits
  EXPECT_EQ(DString("ab").ahextoi(5), 171);
  EXPECT_EQ(GetNibble('g'), 16);
  EXPECT_EQ(GetNibble('7'), 7);
  EXPECT_TRUE(IsHex('f') && IsHex('F') && IsHex('0'));
  EXPECT_FALSE(IsHex('g'));
  EXPECT_TRUE(DString("09afAF").ishex());
  EXPECT_FALSE(DString("0g").ishex());
}

TEST(DStringParse, Classification) {
  EXPECT_FALSE(IsLetraID('0'));
  EXPECT_TRUE(IsLetraID('9') && IsLetraID('_') && IsLetraID('z'));
  EXPECT_FALSE(DString("a0").is_alphanumeric());
  EXPECT_TRUE(DString("a1_").is_alphanumeric());
  EXPECT_TRUE(DString().is_alphanumeric());
  EXPECT_TRUE(DString().is_numeric());
  EXPECT_TRUE(DString("0123").is_numeric());
  EXPECT_FALSE(DString("12a").is_numeric());
  EXPECT_EQ(DString("a,b,,c").Cuenta_Caracter(','), 3);
  EXPECT_EQ(DString().Cuenta_Caracter(','), 0);
}

TEST(DStringParse, CharacterSearches) {
  DString s("abcb"), n;
  EXPECT_EQ(s.strchr(0, 'b'), 1);
  EXPECT_EQ(s.strchr(2, 'b'), 3);
  EXPECT_EQ(s.strchr(100, 'b'), -1);
  EXPECT_EQ(s.strchr_single(0, 'c'), 2);
  EXPECT_EQ(n.strchr(0, 'a'), -1);
  EXPECT_EQ(s.strchrs(0, "cb"), 1);
  EXPECT_EQ(s.strchrs(2, "xb"), 3);
  EXPECT_EQ(s.strchrs(0, ""), -1);
  EXPECT_EQ(s.strchr_inv('b'), 3);
  EXPECT_EQ(n.strchr_inv('x'), -1);
  EXPECT_EQ(n.strchr_inv('\0'), 0);
  EXPECT_EQ(s.strchr_inv(2, 'b'), 1);
  EXPECT_EQ(s.strchr_inv(100, 'b'), 3);
  EXPECT_EQ(s.strchr_inv(-1, 'a'), -1);
  EXPECT_EQ(n.strchr_inv(5, 'a'), -1);
}

TEST(DStringParse, SubstringSearches) {
  DString s("abcb");
  EXPECT_EQ(s.strstr("cb"), 2);
  EXPECT_EQ(s.strstr("zz"), -1);
  EXPECT_EQ(DString().strstr("a"), -1);
  EXPECT_EQ(DString("abab").strstr_inv("ab"), 1);
  EXPECT_EQ(DString("ab").strstr_inv("ab"), -1);  // same length never matches
  EXPECT_EQ(DString("abxx").strstr_inv("ab"), 0);
  EXPECT_EQ(DString("xxab").strstr_inv("ab"), 1);
  EXPECT_EQ(DString("xxxx").strstr_inv("ab"), -1);
  EXPECT_EQ(DString().strstr_inv("a"), -1);

  EXPECT_EQ(DString("xab").strstrpos("AB", 0, false, true, false, 0), 1);
  EXPECT_EQ(DString("xab").strstrpos("ab", 0, false, true, false, 0), -1);
  EXPECT_EQ(DString("a cat").strstrpos("cat", 0, true, false, false, 0), 2);
  EXPECT_EQ(DString("cats").strstrpos("cat", 0, true, false, false, 0), -1);
  EXPECT_EQ(DString("cat0").strstrpos("cat", 0, true, false, false, 0), 0);
  EXPECT_EQ(DString("_cat cat").strstrpos("cat", 0, true, false, false, 0), 5);
  EXPECT_EQ(DString("abcabc").strstrpos("bc", 2, false, false, false, 0), 4);
  EXPECT_EQ(DString("abcabc").strstrpos("bc", 2, false, false, true, 0), 4);
  EXPECT_EQ(DString("abc").strstrpos("bc", 50, false, false, false, 0), -1);
  EXPECT_EQ(DString().strstrpos("a", 0, false, false, false, 0), -1);
  EXPECT_EQ(DString("abc").strstrpos(nullptr, 0, false, false, false, 0), -1);
  EXPECT_EQ(DString("x Cat").strstrpos("CAT", 0, true, true, false), 2);
  EXPECT_EQ(DString("abc").strstrpos("c"), 2);
}

TEST(DStringParse, PrefixComparisonAndCaseRules) {
  EXPECT_EQ(DString("abc").strncmp(nullptr, 2), 1);
  EXPECT_EQ(DString().strncmp(nullptr, 2), 0);
  EXPECT_EQ(DString().strncmp("a", 2), 1);
  EXPECT_EQ(DString("abc").strncmp("abd", 2), 0);
  EXPECT_LT(DString("abc").strncmp("abd", -1), 0);
  EXPECT_NE(Dstrcmpi("ABC", "abc"), 0);
  EXPECT_EQ(Dstrcmpi(nullptr, ""), 0);
  EXPECT_EQ(Dstrncmpi("ABC", "abc", 3), 0);
  EXPECT_EQ(Dstrncmpi("ABC", "abd", 2), 0);
  EXPECT_NE(Dstrncmpi("ABC", "abd", 3), 0);
  EXPECT_EQ(Dstrncmpi(nullptr, "", 3), 0);
}

TEST(DStringParse, RawByteSearchesStayInsideTheBlock) {
  DString s;
  s.memcat(0, "a\0bcab\0c", 8);
  EXPECT_EQ(s.memchr('c', 8), 3);
  EXPECT_EQ(s.memchr('c', 3), -1);
  EXPECT_EQ(s.memchr('z', 1 << 20), -1);
  EXPECT_EQ(s.memstr("b\0c", 3, 8), 5);
  EXPECT_EQ(s.memstr("bc", 2, 8), 2);
  EXPECT_EQ(s.memstr("bc", 2, 2), -1);
  // After a failed candidate the count left reaches one byte past the first n.
  EXPECT_EQ(DString("aXab").memstr("ab", 2, 2), 2);
  EXPECT_EQ(DString("aXab").memstr("ab", 2, 1), -1);
  EXPECT_EQ(s.memstr("zz", 2, 1 << 20), -1);
  EXPECT_EQ(DString().memstr("a", 1, 10), -1);
  EXPECT_EQ(s.search("bc"), -1);
  EXPECT_EQ(s.search(BMString("bc")), -1);
}

TEST(DStringParse, NextWordAndParentheses) {
  EXPECT_EQ(DString("ab  cd").Obten_Siguiente_Palabra(" "), 4);
  EXPECT_EQ(DString("\"a b\" c").Obten_Siguiente_Palabra(" "), 6);
  EXPECT_EQ(DString("abc").Obten_Siguiente_Palabra(" "), -1);
  EXPECT_EQ(DString("ab,;").Obten_Siguiente_Palabra(";,"), 4);
  int o = 99, c = 99;
  EXPECT_TRUE(DString("f(a(b)c)").Busca_Parentesis_Internos(o, c));
  EXPECT_EQ(o, 3);
  EXPECT_EQ(c, 5);
  EXPECT_TRUE(DString("a)b").Busca_Parentesis_Internos(o, c));
  EXPECT_EQ(o, -1);
  EXPECT_EQ(c, 1);
  EXPECT_FALSE(DString("(ab").Busca_Parentesis_Internos(o, c));
  o = c = 7;
  EXPECT_FALSE(DString().Busca_Parentesis_Internos(o, c));
  EXPECT_EQ(o, 7);
  EXPECT_EQ(c, 7);
}

TEST(DStringParse, ConsumingOperators) {
  DString s("xyz");
  char ch = 0;
  s >> ch;
  EXPECT_EQ(ch, 'x');
  EXPECT_STREQ(s.c_str(), "");  // the whole text goes, not one character
  // Numbers are read word by word; once the text is used up they read 0.
  DString n("12 -34 0x10");
  int a = 0, b = 0, c = 0, d = 5;
  n >> a >> b >> c >> d;
  EXPECT_EQ((std::vector<int>{a, b, c, d}), (std::vector<int>{12, -34, 16, 0}));
  DString t("1 0");
  bool b1 = false, b2 = true;
  t >> b1;
  EXPECT_TRUE(b1);
  EXPECT_STREQ(t.c_str(), "0");
  t >> b2;
  EXPECT_FALSE(b2);
  EXPECT_STREQ(t.c_str(), "");
  DString src("text"), dst;
  src.SetCodepage(1252);
  src >> dst;
  EXPECT_STREQ(dst.c_str(), "text");
  EXPECT_EQ(dst.GetCodepage(), 1252);
  EXPECT_STREQ(src.c_str(), "");
}

TEST(DStringParse, LeePalabraSpace) {
  DString s("12 34"), w;
  s.SetCodepage(1252);
  s.Lee_Palabra_Space(w);
  EXPECT_STREQ(w.c_str(), "12");
  EXPECT_EQ(w.GetCodepage(), 1252);
  EXPECT_STREQ(s.c_str(), "34");
  s.Lee_Palabra_Space(w);
  EXPECT_STREQ(w.c_str(), "34");
  EXPECT_STREQ(s.c_str(), "");
  DString lead(" 12 34");
  lead.Lee_Palabra_Space(w);
  EXPECT_STREQ(w.c_str(), "");
  EXPECT_STREQ(lead.c_str(), "");  // the rest is dropped
  DString empty;
  w = "keep";
  empty.Lee_Palabra_Space(w);
  EXPECT_STREQ(w.c_str(), "keep");
}

TEST(DStringParse, BoyerMooreTables) {
  BMString null_pattern(nullptr);
  EXPECT_EQ(null_pattern.sufijos, nullptr);
  BMString bm("abcab");
  EXPECT_EQ(bm.longitud, 5);
  const int sufijos[5] = {3, 3, 3, 5, 1};
  for (int i = 0; i < 5; i++) EXPECT_EQ(bm.sufijos[i], sufijos[i]) << i;
  EXPECT_EQ(bm.caracteres['a'], 3);
  EXPECT_EQ(bm.caracteres['b'], 1);
  EXPECT_EQ(bm.caracteres['c'], 2);
  EXPECT_EQ(bm.caracteres['z'], -1);
  BMString copy(bm);  // its own tables: no double free
  EXPECT_NE(copy.sufijos, bm.sufijos);
  EXPECT_EQ(copy.sufijos[4], 1);
}

}  // namespace
