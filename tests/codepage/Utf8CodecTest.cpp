#include <gtest/gtest.h>

#include <string>

#include "codepage/CodePageHelper.h"

namespace {

using U8 = TCodePageHelper::TCodePageHelper65001;

struct Decoded {
  int code;
  int used;
};

Decoded get(const std::string& bytes, int avail = -1) {
  int c = -7;
  int n = U8::GetChar(bytes.data(), avail < 0 ? static_cast<int>(bytes.size()) : avail, c);
  return {c, n};
}

std::string put(int c) {
  char buf[4];
  int n = U8::PutChar(buf, c);
  return std::string(buf, static_cast<size_t>(n));
}

// One to three bytes are decoded in the round trip below.
TEST(Utf8Codec, DecodesFourByteSequencesAndUncheckedValues) {
  EXPECT_EQ(get("\xF0\x9F\x98\x80").code, 0x1F600);
  EXPECT_EQ(get("\xF0\x9F\x98\x80").used, 4);
  // No overlong or surrogate checks: arithmetic values come out.
  EXPECT_EQ(get("\xC0\x80").code, 0);
  EXPECT_EQ(get("\xED\xA0\x80").code, 0xD800);
  EXPECT_EQ(get("\xF7\xBF\xBF\xBF").code, 0x1FFFFF);
}

TEST(Utf8Codec, InvalidSequencesGiveReplacementAfterTheBytesRead) {
  const int R = 0xFFFD;
  // Stray continuation and five-byte-or-longer leads.
  for (const char* s : {"\x80", "\xBF", "\xF8", "\xFC\x80", "\xFF"}) {
    EXPECT_EQ(get(s).code, R) << s;
    EXPECT_EQ(get(s).used, 1);
  }
  // Two-byte form: bad second byte; too short keeps the partial value.
  EXPECT_EQ(get("\xC3\x41").code, R);
  EXPECT_EQ(get("\xC3\x41").used, 1);
  EXPECT_EQ(get("\xC3\xA9", 1).code, 0xC0);
  EXPECT_EQ(get("\xC3\xA9", 1).used, 1);
  // Three-byte form.
  EXPECT_EQ(get("\xE2\x82", 2).code, R);
  EXPECT_EQ(get("\xE2\x82", 2).used, 1);
  EXPECT_EQ(get("\xE2\x41\xAC").used, 1);
  EXPECT_EQ(get("\xE2\x82\x41").code, R);
  EXPECT_EQ(get("\xE2\x82\x41").used, 2);
  // Four-byte form.
  EXPECT_EQ(get("\xF0\x9F\x98", 3).used, 1);
  EXPECT_EQ(get("\xF0\x41\x98\x80").used, 1);
  EXPECT_EQ(get("\xF0\x9F\x41\x80").used, 2);
  EXPECT_EQ(get("\xF0\x9F\x98\x41").code, R);
  EXPECT_EQ(get("\xF0\x9F\x98\x41").used, 3);
}

TEST(Utf8Codec, EncodesExactlyBelowTheSupplementaryPlanes) {
  EXPECT_EQ(put(0x7F), "\x7F");
  EXPECT_EQ(put(0x80), "\xC2\x80");
  EXPECT_EQ(put(0x7FF), "\xDF\xBF");
  EXPECT_EQ(put(0x800), "\xE0\xA0\x80");
  EXPECT_EQ(put(0xFFFF), "\xEF\xBF\xBF");
  for (int c = 0; c < 0x10000; c++) {
    std::string b = put(c);
    Decoded d = get(b);
    ASSERT_EQ(d.code, c);
    ASSERT_EQ(d.used, static_cast<int>(b.size()));
  }
}

TEST(Utf8Codec, FourByteFormKeepsItsFixedLeadAndTwoBitGroup) {
  EXPECT_EQ(put(0x1F600), "\xF3\x9F\x80\x80");
  EXPECT_EQ(put(0x10041), "A");  // low 16 bits below 0x80: one byte
  int c = 0x1F600;
  char buf[4];
  U8::PutChar(buf, c);
  EXPECT_EQ(c, 0x1F600);  // the code is not changed
}

}  // namespace
