#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "string/DString.h"
#include "string/DUString.h"

namespace {

TEST(DStringCore, EmptyStringsAllocateNothing) {
  DString a, b(""), c(static_cast<const char*>(nullptr));
  for (DString* s : {&a, &b, &c}) {
    EXPECT_EQ(s->ptr(), nullptr);
    EXPECT_EQ(s->GetCodepage(), 0);
    EXPECT_EQ(s->prec_floatC(), 1);
    EXPECT_FALSE(s->is_NULL());
    EXPECT_STREQ(s->c_str(), "");
  }
}

TEST(DStringCore, GrowthKeepsTextAndAttributes) {
  DString s("x");
  s.SetCodepage(1252);
  s.Set_prec_float(4);
  std::string expect = "x";
  for (int i = 0; i < 200; i++) {
    s += "ab";
    expect += "ab";
  }
  EXPECT_EQ(std::string(s.c_str()), expect);
  EXPECT_EQ(s.GetCodepage(), 1252);
  EXPECT_EQ(s.prec_floatC(), 4);
}

// A negative code page is never stored: as the default it leaves the field
// at zero, as an argument it still creates the block, with the default.
TEST(DStringCore, NegativeCodepagesAreNotStored) {
  int old = DUString::default_codepage;
  DUString::default_codepage = -1;
  DString s("abc");
  DUString::default_codepage = old;
  EXPECT_EQ(s.GetCodepage(), 0);
  DString t;
  t.SetCodepage(-5);
  ASSERT_NE(t.ptr(), nullptr);
  EXPECT_EQ(t.GetCodepage(), 65001);
}

TEST(DStringCore, CopyCarriesCodepageNotPrecision) {
  DString s("abc");
  s.SetCodepage(1252);
  s.Set_prec_float(4);
  DString c(s);
  EXPECT_EQ(c.GetCodepage(), 1252);
  EXPECT_EQ(c.prec_floatC(), 1);
  DString d(static_cast<const CDString&>(s));
  EXPECT_EQ(d.GetCodepage(), 65001);  // from a CDString: the text only
  DString w(L"wide");
  EXPECT_EQ(w.ptr(), nullptr);
}

TEST(DStringCore, AssignmentRules) {
  DString a, b;
  a = b;  // a string without a block onto one without a block
  ASSERT_NE(a.ptr(), nullptr);
  EXPECT_STREQ(a.c_str(), "");
  EXPECT_EQ(a.GetCodepage(), 0);

  DString s("longer text");
  int cap = s.clentot();
  s.SetCodepage(1254);
  s = "";
  EXPECT_STREQ(s.c_str(), "");
  EXPECT_EQ(s.clentot(), cap);
  EXPECT_EQ(s.GetCodepage(), 1254);

  s = L"wide";
  EXPECT_STREQ(s.c_str(), "");
  s = -2147483647 - 1;
  EXPECT_STREQ(s.c_str(), "-2147483648");
  s = s.c_str() + 1;  // assigning a tail of itself
  EXPECT_STREQ(s.c_str(), "2147483648");
}

TEST(DStringCore, PlusEqualsAndShiftDifferOnEmptySources) {
  DString s;
  s += DString();
  EXPECT_EQ(s.ptr(), nullptr);
  s << DString();
  ASSERT_NE(s.ptr(), nullptr);
  EXPECT_EQ(s.GetCodepage(), 0);

  DString src("x");
  src.SetCodepage(1255);
  DString t;
  t += src;
  EXPECT_EQ(t.GetCodepage(), 1255);
  EXPECT_STREQ(t.c_str(), "x");
  t += L"ignored";
  EXPECT_STREQ(t.c_str(), "x");
  t += '\0';  // grows, appends nothing
  EXPECT_STREQ(t.c_str(), "x");
  t << 'y' << "z" << static_cast<const char*>(nullptr);
  EXPECT_STREQ(t.c_str(), "xyz");
  t << t;
  EXPECT_STREQ(t.c_str(), "xyzxyz");
  DString u = DString("a") + 'b' + "c" + DString("d");
  EXPECT_STREQ(u.c_str(), "abcd");
}

TEST(DStringCore, Indexing) {
  DString s("abc");
  EXPECT_THROW(s[-1], const char*);
  s[100];
  EXPECT_GE(s.clentot(), 103);
  EXPECT_EQ(s.Len(), 3);
  const DString& c = s;
  EXPECT_EQ(c[3], 0);
  EXPECT_EQ(c[-1], 0);
  EXPECT_EQ(c[1], 'b');
  EXPECT_EQ(c.Ultimo_Caracter(), 'c');
  EXPECT_EQ(DString().Ultimo_Caracter(), 0);
  s.strncpy("hello", 3);
  EXPECT_STREQ(s.c_str(), "hel");
  s.memcat(3, "lo!", 2);
  s[5] = 0;
  EXPECT_STREQ(s.c_str(), "hello");
}

TEST(DStringCore, ComparisonsAreStrictAndRankEmptiesDifferently) {
  EXPECT_FALSE(DString("b") >= DString("b"));
  EXPECT_TRUE(DString("b") >= DString("a"));
  EXPECT_FALSE(DString("b") <= DString("b"));
  EXPECT_TRUE(DString("a") < "b");
  EXPECT_EQ(DString().Strcmp("x"), -1);
  EXPECT_EQ(DString().Strcmpi("x"), 1);
  EXPECT_EQ(DString("x").Strcmp(nullptr), 1);
  EXPECT_EQ(DString().Strcmp(""), 0);
  EXPECT_EQ(DString("x").Strcmpi(nullptr), 1);
  EXPECT_NE(DString("ABC").Strcmpi("abc"), 0);  // case is not folded
  EXPECT_EQ(DString().CompareNoCase(L"anything"), 0);
  EXPECT_NE(DString("a").CompareNoCase(L"a"), 0);
}

// Records are a 16-bit length, the text and a newline; a record longer than
// the reader's limit, or with a negative length, leaves the string alone.
TEST(DStringCore, StreamRecordRoundTripAndLimits) {
  FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  DString("hello").Grava(f);
  DString("cut\nhere").Grava(f);
  DString("toolong").Grava(f);
  const unsigned char negative[] = {0xFF, 0xFF, 'x', '\n'};
  std::fwrite(negative, 1, sizeof negative, f);
  std::rewind(f);
  unsigned char head[3];
  ASSERT_EQ(std::fread(head, 1, 3, f), 3u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(head), 3), std::string("\x05\0h", 3));
  std::rewind(f);
  DString s;
  EXPECT_TRUE(s.Lee(f, 100));
  EXPECT_STREQ(s.c_str(), "hello");
  EXPECT_TRUE(s.Lee(f, 100));
  EXPECT_STREQ(s.c_str(), "cut");
  DString keep("kept");
  long before = std::ftell(f);
  EXPECT_FALSE(keep.Lee(f, 3));
  EXPECT_EQ(std::ftell(f), before + 2);
  std::fseek(f, 8, SEEK_CUR);  // past "toolong\n"
  EXPECT_FALSE(keep.Lee(f, 100));
  EXPECT_STREQ(keep.c_str(), "kept");
  std::fclose(f);
}

}  // namespace
