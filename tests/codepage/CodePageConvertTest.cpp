#include <gtest/gtest.h>

#include <string>

#include "codepage/CodePageHelper.h"

namespace {

std::wstring wide(int cp, const std::string& s) {
  TCodePageHelper& h = *CodePageHelper;
  int need = h.char8_to_UTF16(cp, s.data(), static_cast<int>(s.size()), nullptr, 0);
  std::wstring out(static_cast<size_t>(need), L'\0');
  EXPECT_EQ(h.char8_to_UTF16(cp, s.data(), static_cast<int>(s.size()), &out[0], need), need);
  out.resize(static_cast<size_t>(need - 1));
  return out;
}

std::string narrow(int cp, const std::wstring& w) {
  TCodePageHelper& h = *CodePageHelper;
  int need = h.UTF16_to_char8(cp, w.data(), static_cast<int>(w.size()), nullptr, 0);
  std::string out(static_cast<size_t>(need), '\0');
  EXPECT_EQ(h.UTF16_to_char8(cp, w.data(), static_cast<int>(w.size()), &out[0], need), need);
  out.resize(static_cast<size_t>(need - 1));
  return out;
}

std::string transform(const char* text, int from, int to) {
  DString s(text);
  EXPECT_TRUE(CodePageHelper->TransformaCodepage(s, from, to));
  EXPECT_EQ(s.GetCodepage(), to);
  return s.c_str();
}

TEST(CodePageConvert, EightBitPagesToWide) {
  EXPECT_EQ(wide(1252, "a\x80\x9F\xE9"), (std::wstring{L'a', 0x20AC, 0x0178, 0xE9}));
  EXPECT_EQ(wide(0, "\x80"), std::wstring(1, wchar_t(0x20AC)));  // 0 stands for 1252
  EXPECT_EQ(wide(1252, "\x81\x8D\x8F\x90\x9D"), std::wstring(5, wchar_t(0xFFFD)));
  EXPECT_EQ(wide(28591, "\x80\xFF"), (std::wstring{0x80, 0xFF}));
  EXPECT_EQ(wide(1251, "a\xC0"), (std::wstring{L'a', 0xFFFD}));  // no table for it
}

TEST(CodePageConvert, Utf8ToWideReplacesEveryInvalidSequence) {
  EXPECT_EQ(wide(65001, "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"),
            (std::wstring{0xE9, 0x20AC, 0x1F600}));
  EXPECT_EQ(wide(65001, "a\xC3"), (std::wstring{L'a', 0xFFFD}));  // truncated at the end
  EXPECT_EQ(wide(65001, "\xE2\x82"), (std::wstring{0xFFFD, 0xFFFD}));
  EXPECT_EQ(wide(65001, "\x80z"), (std::wstring{0xFFFD, L'z'}));
  EXPECT_EQ(wide(65001, "\xF4\x90\x80\x80"), std::wstring(1, wchar_t(0xFFFD)));  // > U+10FFFF
  EXPECT_EQ(TCodePageHelper::TCodePageHelper65001::char8_to_UTF16("\xC3\xA9", -1, nullptr, 0),
            2);
}

TEST(CodePageConvert, WideToEightBitAndUtf8) {
  std::wstring w{L'a', 0xE9, 0x20AC, 0x0416, 0x80};
  EXPECT_EQ(narrow(1252, w), "a\xE9\x80??");
  EXPECT_EQ(narrow(28591, w), "a\xE9??\x80");
  EXPECT_EQ(narrow(65001, w), "a\xC3\xA9\xE2\x82\xAC\xD0\x96\xC2\x80");
  EXPECT_EQ(narrow(65001, std::wstring(1, wchar_t(0x1F600))), "\xF0\x9F\x98\x80");
  // Surrogate pairs are joined; lone halves are not characters.
  EXPECT_EQ(narrow(65001, std::wstring{0xD83D, 0xDE00}), "\xF0\x9F\x98\x80");
  EXPECT_EQ(narrow(65001, std::wstring{0xD83D, L'x'}), "\xEF\xBF\xBDx");
  EXPECT_EQ(narrow(1252, std::wstring{0xDE00, 0xFFFD}), "??");
  EXPECT_EQ(narrow(1252, std::wstring(1, wchar_t(-5))), "?");
}

TEST(CodePageConvert, OutputNeverExceedsItsCapacity) {
  TCodePageHelper& h = *CodePageHelper;
  wchar_t w[4] = {9, 9, 9, 9};
  EXPECT_EQ(h.char8_to_UTF16(65001, "abc", 3, w, 4), 4);
  EXPECT_EQ(h.char8_to_UTF16(65001, "abcd", 4, w, 4), 0);
  EXPECT_EQ(w[3], 0);
  EXPECT_EQ(w[2], L'c');
  EXPECT_EQ(h.char8_to_UTF16(1252, "a", 1, w, 0), 0);
  EXPECT_EQ(h.char8_to_UTF16(1252, nullptr, 5, w, 4), 1);
  EXPECT_EQ(w[0], 0);
  char b[4] = {9, 9, 9, 9};
  wchar_t euro[] = {L'a', 0x20AC, 0};
  EXPECT_EQ(h.UTF16_to_char8(65001, euro, -1, b, 4), 0);  // 1 + 3 bytes leave no terminator room
  EXPECT_STREQ(b, "a");
  EXPECT_EQ(h.UTF16_to_char8(1252, euro, -1, b, 3), 3);
  EXPECT_STREQ(b, "a\x80");
}

TEST(CodePageConvert, TransformingStringsInPlace) {
  EXPECT_EQ(transform("caf\xE9 \x80", 1252, 65001), "caf\xC3\xA9 \xE2\x82\xAC");
  EXPECT_EQ(transform("caf\xC3\xA9 \xE2\x82\xAC \xD0\x96", 65001, 1252), "caf\xE9 \x80 ?");
  EXPECT_EQ(transform("\xC3\xA9\xE2\x82\xAC", 65001, 28591), "\xE9?");
  EXPECT_EQ(transform("\x80\xE9", 28591, 65001), "\xC2\x80\xC3\xA9");
  EXPECT_EQ(transform("bad \xFF", 65001, 65001), "bad \xFF");  // same code page: untouched
  EXPECT_EQ(transform("", 1252, 65001), "");
  // The string's own code page is the source; precision and growth hold up.
  DString s;
  s.Set_prec_float(4);
  s.SetCodepage(1252);
  std::string text(300, '\x80');
  s = text.c_str();
  ASSERT_TRUE(CodePageHelper->TransformaCodepage(s, 65001));
  EXPECT_EQ(s.Len(), 900);
  EXPECT_EQ(s.prec_floatC(), 4);
  EXPECT_EQ(s.GetCodepage(), 65001);
}

TEST(CodePageConvert, UnsupportedCodepagesLeaveTheTextAlone) {
  DString s("x\xC0");
  s.SetCodepage(1251);
  EXPECT_FALSE(CodePageHelper->TransformaCodepage(s, 65001));
  EXPECT_STREQ(s.c_str(), "x\xC0");
  EXPECT_EQ(s.GetCodepage(), 1251);
  EXPECT_FALSE(CodePageHelper->TransformaCodepage(s, 65001, -1));
  EXPECT_FALSE(CodePageHelper->IsCodepageSoportado(1251));
  EXPECT_TRUE(CodePageHelper->IsCodepageSoportado(0));
  EXPECT_TRUE(CodePageHelper->IsCodepageSoportado(28591));
}

TEST(CodePageConvert, RegisteredTablesServeOtherCodepages) {
  TCodePageHelper h;
  TCodePageVarda t;
  t.codepage = 1255;
  t.num_paginas = 1;
  t.tabla[0xE0 - 128] = 0x05D0;  // alef
  h.Anyade(t);
  wchar_t w[4];
  EXPECT_EQ(h.char8_to_UTF16(1255, "a\xE0\xE1", 3, w, 4), 4);
  EXPECT_EQ(w[1], 0x05D0);
  EXPECT_EQ(w[2], 0xFFFD);
  DString s("\xD7\x90x\xE2\x82\xAC");
  ASSERT_TRUE(h.TransformaCodepage(s, 65001, 1255));
  EXPECT_STREQ(s.c_str(), "\xE0x?");
  EXPECT_EQ(s.GetCodepage(), 1255);
}

}  // namespace
