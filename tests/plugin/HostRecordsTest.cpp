#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "VardaPlugIn.h"

namespace {

int32_t I32(const unsigned char* b, int off) {
  int32_t v;
  std::memcpy(&v, b + off, 4);
  return v;
}
float F32(const unsigned char* b, int off) {
  float v;
  std::memcpy(&v, b + off, 4);
  return v;
}

TEST(HostRecords, LineAttributesDefaultsAndHostStretches) {
  alignas(8) unsigned char buf[196];
  std::memset(buf, 0xA5, sizeof buf);
  new (buf) TLineAttributesPlugIn();
  const int ints[][2] = {{0, 196}, {4, 0},   {8, 0},   {12, -1}, {16, -1}, {20, 0},
                         {24, 0},  {28, 0},  {36, 0},  {40, -1}, {44, 0},  {48, 0},
                         {56, -1}, {60, -1}, {64, -1}, {72, 1},  {76, 0},  {80, 0},
                         {92, -1}, {96, -1}, {100, 0}};
  for (const auto& f : ints) EXPECT_EQ(I32(buf, f[0]), f[1]) << "offset " << f[0];
  EXPECT_EQ(F32(buf, 32), 1.0f);
  EXPECT_EQ(F32(buf, 52), -1.0f);
  EXPECT_EQ(F32(buf, 68), -1.0f);
  EXPECT_EQ(F32(buf, 84), -9999.0f);
  EXPECT_EQ(F32(buf, 88), -9999.0f);
  EXPECT_EQ(buf[108], 0);
  for (int i = 113; i < 153; i++) EXPECT_EQ(buf[i], 0) << i;
  for (int i = 153; i < 185; i++) EXPECT_EQ(buf[i], 0xFF) << i;
  EXPECT_EQ(buf[185], 0);
  for (int i : {104, 105, 106, 107, 109, 110, 111, 112}) EXPECT_EQ(buf[i], 0xA5) << i;
  for (int i = 186; i < 196; i++) EXPECT_EQ(buf[i], 0xA5) << i;
}

TEST(HostRecords, PointerFieldsMoveOnlyOnSixtyFourBits) {
  const size_t shift = sizeof(void*) - 4;
  EXPECT_EQ(offsetof(TVectorMapPlugIn, privado), 28u);
  EXPECT_EQ(offsetof(TReadVectorMapPlugIn, AddPoint), 20 + shift);
  EXPECT_EQ(offsetof(TReadVectorMapPlugIn, opciones), 28 + 2 * shift);
  EXPECT_EQ(sizeof(TVectorPointPlugIn), 40u);
  EXPECT_EQ(sizeof(TLineAttributesPlugIn), 196u);
}

}  // namespace
