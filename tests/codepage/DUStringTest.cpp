#include <gtest/gtest.h>

#include <string>

#include "codepage/CodePageHelper.h"
#include "string/DUString.h"

namespace {

const wchar_t H1 = 0x05D0, H2 = 0x05D1, A1 = 0x0627;

std::wstring text(const DUString& u) { return u.c_str(); }

// UTF-8 bytes of `w`, to build wide strings from.
std::string u8(const std::wstring& w) {
  char buf[256];
  CodePageHelper->UTF16_to_char8(65001, w.c_str(), -1, buf, sizeof buf);
  return buf;
}

TEST(DUString, ConstructionConvertsThroughTheRegistry) {
  DUString u("caf\xC3\xA9", -1, 0);  // 0: the default code page, UTF-8
  EXPECT_EQ(text(u), L"caf\u00e9");
  DUString l("caf\xE9", 3, 1252);
  EXPECT_EQ(text(l), L"caf");
  EXPECT_EQ(DUString(nullptr, -1, 1252).strlen(), 0);
  // Without a buffer every member treats the string as empty.
  DUString none(0);
  EXPECT_EQ(none.IndexOf(L'a', 0), -1);
  none.Reverse(0, -1);
  none.ReverseFrase();
  none = "abc";
  EXPECT_EQ(none.strlen(), 0);
}

TEST(DUString, IndexOf) {
  DUString u("abcb", -1, 65001);
  EXPECT_EQ(u.IndexOf(L'b', 0), 1);
  EXPECT_EQ(u.IndexOf(L'b', 2), 3);
  EXPECT_EQ(u.IndexOf(L'z', 0), -1);
  EXPECT_EQ(u.IndexOf(L'b', 50), -1);
}

TEST(DUString, Reverse) {
  DUString u("abc", -1, 65001);
  u.Reverse(0, -1);
  EXPECT_EQ(text(u), L"cba");
  u.Reverse(2, 1);
  EXPECT_EQ(text(u), L"cba");
  u.Reverse(0, 3);  // one past the last character means the last
  EXPECT_EQ(text(u), L"abc");
  u.Reverse(1, 99);
  EXPECT_EQ(text(u), L"acb");
  DUString e("", -1, 65001);
  e.Reverse(0, -1);
  EXPECT_EQ(e.strlen(), 0);
}

TEST(DUString, ReverseFraseKeepsLeftToRightRuns) {
  DUString u(u8({H1, H2, L' ', L'1', L'2'}).c_str(), -1, 65001);
  u.ReverseFrase();
  EXPECT_EQ(text(u), (std::wstring{L' ', L'1', L'2', H2, H1}));
  DUString plain("ab 12", -1, 65001);
  plain.ReverseFrase();
  EXPECT_EQ(text(plain), L"ab 12");
  // Right-to-left characters at both ends, runs between them.
  DUString ends(u8({H1, L'a', L'b', A1, L'1', H2}).c_str(), -1, 65001);
  ends.ReverseFrase();
  EXPECT_EQ(text(ends), (std::wstring{H2, L'1', A1, L'a', L'b', H1}));
  // Presentation forms count as right to left too.
  DUString forms(u8({0xFB1D, L'x', 0xFEFE}).c_str(), -1, 65001);
  forms.ReverseFrase();
  EXPECT_EQ(text(forms), (std::wstring{0xFEFE, L'x', 0xFB1D}));
}

TEST(DUString, ReverseFraseOfAStretchNeverTestsItsLastPosition) {
  DUString u(u8({L'x', H1, L'a', L'b', H2, L'y'}).c_str(), -1, 65001);
  u.ReverseFrase(1, 4);
  // The stretch becomes H2 b a H1; the walk stops before position 4, so H1
  // joins the final run and is turned back with it.
  EXPECT_EQ(text(u), (std::wstring{L'x', H2, H1, L'a', L'b', L'y'}));
  DUString whole(u8({L'a', L'b', H1}).c_str(), -1, 65001);
  whole.ReverseFrase(0, -1);  // whole text reversed, nothing re-reversed
  EXPECT_EQ(text(whole), (std::wstring{H1, L'b', L'a'}));
  DUString past(u8({L'a', H1, L'b'}).c_str(), -1, 65001);
  past.ReverseFrase(0, 100);  // past the text: no reads beyond it
  EXPECT_EQ(text(past), (std::wstring{L'b', H1, L'a'}));
}

TEST(DUString, AssignmentCopiesHalfTheCharacters) {
  DUString u("zzzzzz", -1, 65001);
  u = "abcd";
  EXPECT_EQ(text(u), L"abzz");  // 2 * 4 bytes: two wide characters
  DUString small(3);
  small = "abcdef";  // n = capacity - 1 = 2: one character copied, end at 2
  EXPECT_EQ(small.c_str()[0], L'a');
  EXPECT_EQ(small.c_str()[2], 0);
  u = nullptr;
  EXPECT_EQ(u.strlen(), 0);
}

TEST(DUString, ToUtf16DropsUpperBits) {
  DUString u(u8({L'a', 0x20AC, 0x1F600}).c_str(), -1, 65001);
  unsigned short out[5] = {9, 9, 9, 9, 9};
  u.to_UTF16(out);
  EXPECT_EQ(out[0], 'a');
  EXPECT_EQ(out[1], 0x20AC);
  EXPECT_EQ(out[2], 0xF600);
  EXPECT_EQ(out[3], 0);
  EXPECT_EQ(out[4], 9);
}

}  // namespace
