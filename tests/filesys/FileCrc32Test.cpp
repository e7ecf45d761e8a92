#include <gtest/gtest.h>

#include <string>

#include "filesys/StringNomFitx.h"
#include "support/TempDir.h"
#include "thread/MonitorProc.h"

namespace {

// Bit-by-bit reference, independent of the table-driven code under test.
unsigned reference_crc(const std::string& s) {
  unsigned c = 0xFFFFFFFFu;
  for (unsigned char b : s) {
    c ^= b;
    for (int k = 0; k < 8; k++) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
  }
  return ~c;
}

std::string le32(unsigned v) {
  std::string r(4, '\0');
  for (int i = 0; i < 4; i++) r[i] = static_cast<char>((v >> (8 * i)) & 0xFF);
  return r;
}

class FileCrc32Test : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(tmp.ok()); }
  TStringNomFitx Name(const char* rel) { return TStringNomFitx((tmp / rel).c_str()); }
  TempDir tmp;
};

TEST_F(FileCrc32Test, CheckValueAndRanges) {
  ASSERT_TRUE(tmp.Write("nine", "123456789"));
  unsigned crc = 0;
  EXPECT_TRUE(Name("nine").FileCrc32(crc, FILECHECK_GENERATE));
  EXPECT_EQ(crc, 0xCBF43926u);

  ASSERT_TRUE(tmp.Write("framed", "xx123456789yy"));
  crc = 0;
  EXPECT_TRUE(Name("framed").FileCrc32(crc, FILECHECK_GENERATE, nullptr, 2, 11));
  EXPECT_EQ(crc, 0xCBF43926u);

  EXPECT_TRUE(Name("framed").FileCrc32(crc, FILECHECK_GENERATE, nullptr, 5, 5));
  EXPECT_EQ(crc, 0u);  // an empty range
  EXPECT_FALSE(Name("framed").FileCrc32(crc, FILECHECK_GENERATE, nullptr, 6, 5));
  EXPECT_FALSE(Name("absent").FileCrc32(crc, FILECHECK_GENERATE));
  // A range beyond the end fails at the read.
  EXPECT_FALSE(Name("framed").FileCrc32(crc, FILECHECK_GENERATE, nullptr, 0, 100));
}

TEST_F(FileCrc32Test, BlocksAcrossBufferBoundaries) {
  std::string data;
  for (int i = 0; i < 10000; i++) data += static_cast<char>((i * 7919) >> 3);
  ASSERT_TRUE(tmp.Write("big", data));
  TMonitorProc m;
  unsigned crc = 0;
  EXPECT_TRUE(Name("big").FileCrc32(crc, FILECHECK_GENERATE, &m));
  EXPECT_EQ(crc, reference_crc(data));
  EXPECT_EQ(m.npasos + m.actual, 20000);
  EXPECT_TRUE(m.texto.IsEmpty() && m.subtexto.IsEmpty());

  EXPECT_TRUE(Name("big").FileCrc32(crc, FILECHECK_GENERATE, nullptr, 4095, 8193));
  EXPECT_EQ(crc, reference_crc(data.substr(4095, 8193 - 4095)));
}

TEST_F(FileCrc32Test, AddThenCheckThenCorrupt) {
  std::string data = "shape records and more shape records";
  ASSERT_TRUE(tmp.Write("f", data));
  unsigned added = 0;
  EXPECT_TRUE(Name("f").FileCrc32(added, FILECHECK_ADD));
  EXPECT_EQ(added, reference_crc(data));
  EXPECT_EQ(tmp.Read("f"), data + le32(added));

  unsigned checked = 0;
  EXPECT_TRUE(Name("f").FileCrc32(checked, FILECHECK_CHECK));
  EXPECT_EQ(checked, added);

  std::string bad = data + le32(added);
  bad[3] ^= 0x01;
  ASSERT_TRUE(tmp.Write("f", bad));
  EXPECT_FALSE(Name("f").FileCrc32(checked, FILECHECK_CHECK));
  EXPECT_EQ(checked, reference_crc(bad.substr(0, data.size())));

  // A file too short to hold a stored CRC.
  ASSERT_TRUE(tmp.Write("short", "abc"));
  EXPECT_FALSE(Name("short").FileCrc32(checked, FILECHECK_CHECK));
}

TEST_F(FileCrc32Test, AddingInsideTheFileOverwritesInPlace) {
  ASSERT_TRUE(tmp.Write("g", "123456789----tail"));
  unsigned crc = 0;
  EXPECT_TRUE(Name("g").FileCrc32(crc, FILECHECK_ADD, nullptr, 0, 9));
  EXPECT_EQ(tmp.Read("g"), "123456789" + le32(0xCBF43926u) + "tail");
  EXPECT_TRUE(Name("g").FileCrc32(crc, FILECHECK_CHECK, nullptr, 0, 13));
}

}  // namespace
