#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "string/DString.h"

namespace {

// What Dsnprintf leaves in a fresh string.
template <class... A>
std::string Fmt(const char* format, A... args) {
  DString s;
  s.Dsnprintf(format, args...);
  return s.c_str();
}

TEST(DStringFormat, DsnprintfFlagsWidthsAndPrecision) {
  DString s;
  EXPECT_EQ(s.Dsnprintf("%5d|%-5d|%05d", 42, 42, 42), 17);
  EXPECT_STREQ(s.c_str(), "   42|42   |00042");
  EXPECT_EQ(Fmt("%+d % d %+ d", 5, 5, 5), "+5  5 +5");
  EXPECT_EQ(Fmt("%#x %#o %#X %#x %#o", 255, 8, 171, 0, 0), "0xff 010 0XAB 0 0");
  EXPECT_EQ(Fmt("%.5d|%8.3d|%-8.3d|%+05d|%'d", 42, 42, 42, -3, 1000),
            "00042|     042|042     |-0003|1000");
  EXPECT_EQ(s.Dsnprintf("%.0d", 0), 0);
  EXPECT_STREQ(s.c_str(), "");
  EXPECT_EQ(Fmt("%*d|%-*d|%.*d|%.*d", -4, 7, 3, 7, 3, 7, -1, 7), "7   |7  |007|7");
}

TEST(DStringFormat, DsnprintfExtremeNumbers) {
  EXPECT_EQ(Fmt("%d %x %u %o", INT_MIN, -1, UINT_MAX, 8u), "-2147483648 ffffffff 4294967295 10");
  EXPECT_EQ(Fmt("%ld %lu %D %U %O", LONG_MIN, 7ul, -5l, 6ul, 8ul),
            std::to_string(LONG_MIN) + " 7 -5 6 10");
  EXPECT_EQ(Fmt("%lld|%hd", LLONG_MIN, 70000), "-9223372036854775808|4464");
}

TEST(DStringFormat, DsnprintfTextsAndOddConversions) {
  EXPECT_EQ(Fmt("%.3s|%s|%5s|%-4s|%05s", "abcdef", static_cast<const char*>(nullptr), "ab", "ab",
                "ab"),
            "abc||   ab|ab  |   ab");
  char unterminated[3] = {'x', 'y', 'z'};
  EXPECT_EQ(Fmt("%.2s", unterminated), "xy");
  EXPECT_EQ(Fmt("%a %a %a %3a|", 27, 0, 1, 25), "BB AA AB  AZ|");
  EXPECT_EQ(Fmt("%c%-3c|%3c|%%", 'z', 'y', 'x'), "zy  |  x|%");
  DString s;
  EXPECT_EQ(s.Dsnprintf("%q"), 1);  // an unknown conversion is its letter
  EXPECT_STREQ(s.c_str(), "q");
  EXPECT_EQ(Fmt("%10q|"), "q|");
  EXPECT_EQ(Fmt("ab%"), "ab");
  EXPECT_EQ(Fmt("ab%-5."), "ab");
  EXPECT_EQ(s.Dsnprintf(nullptr), 0);
  EXPECT_STREQ(s.c_str(), "");
}

TEST(DStringFormat, FormattersGrowPastAnyScratchSizeAndKeepAttributes) {
  DString s;
  s.SetCodepage(1252);
  s.Set_prec_float(3);
  EXPECT_EQ(s.Dsnprintf("%20000d", 1), 20000);
  EXPECT_EQ(s[19999], '1');
  EXPECT_EQ(s.prec_floatC(), 3);
  EXPECT_EQ(s.Dsprintf("%15000d", 2), 15000);
  EXPECT_EQ(s.Len(), 15000);
  EXPECT_EQ(s[14999], '2');
  EXPECT_EQ(s.GetCodepage(), 1252);
  std::string big(12000, 'q');
  s.Dsprintf("<%s>", big.c_str());
  EXPECT_EQ(s.Len(), 12002);
}

TEST(DStringFormat, GrowthAroundTheReservedTarget) {
  // "%s" reserves 2 + 20 characters first: cross that edge one by one.
  for (int len = 15; len <= 30; len++) {
    std::string text(static_cast<size_t>(len), 'k');
    DString s;
    EXPECT_EQ(s.Dsnprintf("%s", text.c_str()), len);
    EXPECT_EQ(std::string(s.c_str()), text);
    EXPECT_GT(s.clentot(), len);
  }
  // The block grows in steps of the output as it is written, not once at the
  // end: two texts of 30 reach the target at 24 and 44, and the block then
  // holds what those two growths made.
  {
    const std::string t30(30, 'x');
    DString s;
    EXPECT_EQ(s.Dsnprintf("%s%s", t30.c_str(), t30.c_str()), 60);
    DString steps;
    steps.Incre_A(24, true);
    steps.Incre_A(44, true);
    steps.Incre_A(64, true);
    EXPECT_EQ(s.clentot(), steps.clentot());
  }
  for (int len = 0; len <= 20; len++) {
    DString p(std::string(static_cast<size_t>(len), 'p').c_str());
    int padded = p.Padding('#', 8);
    EXPECT_EQ(padded % 8, 0);
    EXPECT_GE(padded, len + 1);
    EXPECT_EQ(p.Len(), len);
    EXPECT_EQ(p.c_str()[padded], 0);
    EXPECT_GT(p.clentot(), padded);
  }
}

TEST(DStringFormat, FormattersMayReadTheirOwnText) {
  DString s("abc");
  s.Dsnprintf("x%sy%s", s.c_str(), s.c_str());
  EXPECT_STREQ(s.c_str(), "xabcyabc");
  s.Dsprintf("[%s]", s.c_str());
  EXPECT_STREQ(s.c_str(), "[xabcyabc]");
}

TEST(DStringFormat, StreamOperatorsForNumbers) {
  DString s;
  s << INT_MIN << ' ' << static_cast<short>(-32768) << ' ' << true << false << ' ' << UINT_MAX
    << ' ' << 4000000000ul << ' ' << LLONG_MIN << ' ' << ULLONG_MAX << ' ' << -7l;
  EXPECT_STREQ(s.c_str(),
               "-2147483648 -32768 10 4294967295 4000000000 -9223372036854775808 "
               "18446744073709551615 -7");
  // Onto an empty string, an int keeps its code page; the other numbers are
  // appended from a temporary, whose default code page the string takes.
  DString a, b;
  a.SetCodepage(1252);
  b.SetCodepage(1252);
  a << 5;
  b << 5u;
  EXPECT_EQ(a.GetCodepage(), 1252);
  EXPECT_EQ(b.GetCodepage(), 65001);
}

TEST(DStringFormat, DoublesFollowTheStringPrecision) {
  DString s;
  s << 2.0;
  EXPECT_STREQ(s.c_str(), "2.0");
  DString p;
  p.Set_prec_float(3);
  p << 2.0;
  EXPECT_STREQ(p.c_str(), "2.000");
  p = "";
  p.Set_prec_float(-1);
  p << 2.0 << '|' << 0.5f;
  EXPECT_STREQ(p.c_str(), "2.000000|0.500000");
  DString z;
  z.Set_prec_float(0);
  z << -2.5 << ' ' << 1e20;
  EXPECT_STREQ(z.c_str(), "-2 100000000000000000000");
}

TEST(DStringFormat, PrintFloatDigits) {
  DString s;
  s.SetCodepage(1252);
  s.Set_prec_float(7);
  s.Print_Float_Cifras(3.14159, 4);
  EXPECT_STREQ(s.c_str(), "3.142");
  EXPECT_EQ(s.prec_floatC(), 7);        // own precision untouched
  EXPECT_EQ(s.GetCodepage(), 65001);    // the temporary's code page travels
  const struct {
    double v;
    int digits;  // 0: Print_Float_NoZeros
    const char* want;
  } cases[] = {{-12.5, 4, "-12.5"}, {-0.25, 3, "-0.25"}, {123456.7, 4, "123457"},
               {1e12, 4, "1000000000000"}, {2.5, 0, "2.5"}, {100.0, 0, "100"},
               {0.1, 0, "0.1"}, {-3.0, 0, "-3"}};
  for (const auto& c : cases) {
    if (c.digits)
      s.Print_Float_Cifras(c.v, c.digits);
    else
      s.Print_Float_NoZeros(c.v);
    EXPECT_STREQ(s.c_str(), c.want) << c.v << " to " << c.digits << " digits";
  }
}

TEST(DStringFormat, DitoaBasesAndExtremes) {
  char buf[40];
  EXPECT_STREQ(Ditoa(-255, buf, 16), "ffffff01");
  EXPECT_STREQ(Ditoa(-255, buf, 10), "-255");
  EXPECT_STREQ(Ditoa(INT_MIN, buf, 10), "-2147483648");
  EXPECT_STREQ(Ditoa(INT_MIN, buf, 2), "10000000000000000000000000000000");
  EXPECT_STREQ(Ditoa(0, buf, 2), "0");
  EXPECT_STREQ(Ditoa(35, buf, 36), "z");
  EXPECT_STREQ(Ditoa(INT_MAX, buf, 10), "2147483647");
}

TEST(DStringFormat, ItoaAndStrcatnum) {
  DString s;
  s = "ab";  // exact capacity 3: itoa must grow before writing
  s.itoa(INT_MIN);
  EXPECT_STREQ(s.c_str(), "-2147483648");
  EXPECT_GE(s.clentot(), 12);
  s.itoa(7);
  EXPECT_STREQ(s.c_str(), "7");
  s.strcatnum(-1);
  s.strcatnum(INT_MAX);
  EXPECT_STREQ(s.c_str(), "7-12147483647");
}

TEST(DStringFormat, HexOfRawBytes) {
  DString s;
  s.memcat(0, "\x01\xAB\x00\x7F", 4);
  s.PasaHex(4);
  EXPECT_STREQ(s.c_str(), "01AB007F");
  DString t("hi");
  DString u = t.PasaHexL(-1);
  EXPECT_STREQ(u.c_str(), "6869");
  EXPECT_STREQ(t.c_str(), "hi");
  EXPECT_STREQ(t.PasaHexL(4).c_str(), "68690000");  // nothing after the text is carried
  DString big("a");
  big.PasaHex(1000);  // beyond the block: only the block is read
  EXPECT_EQ(big.Len(), 2 * 16);
  EXPECT_EQ(std::strncmp(big.c_str(), "61", 2), 0);
  DString none;
  none.PasaHex(0);
  EXPECT_EQ(none.ptr(), nullptr);
}

TEST(DStringFormat, FillAndPadding) {
  DString s("abcdef");
  s.rellena('x', 3);
  EXPECT_STREQ(s.c_str(), "xxxdef");
  DString p("abc");
  EXPECT_EQ(p.Padding('#', 8), 8);
  EXPECT_STREQ(p.c_str(), "abc");
  EXPECT_EQ(std::memcmp(p.c_str() + 3, "\0####\0", 6), 0);
  DString q("abcdefg");
  EXPECT_EQ(q.Padding('#', 8), 8);
  EXPECT_STREQ(q.c_str(), "abcdefg");
  DString e;
  EXPECT_EQ(e.Padding('-', 4), 4);
  EXPECT_STREQ(e.c_str(), "");
  EXPECT_EQ(std::memcmp(e.c_str(), "\0---\0", 5), 0);
  EXPECT_EQ(q.Padding('#', 0), 8);  // no block size: only the size, nothing written
  q.Padding('#', -3);
  EXPECT_STREQ(q.c_str(), "abcdefg");
}

}  // namespace
