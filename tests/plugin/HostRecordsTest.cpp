#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "VardaPlugIn.h"
#include "support/HostMap.h"

namespace shptest {
namespace {

TEST(HostRecords, LineAttributesDefaultsAndHostStretches) {
  alignas(8) unsigned char buf[196];
  std::memset(buf, kSentinel, sizeof buf);
  new (buf) TLineAttributesPlugIn();
  const Bytes a(buf, buf + sizeof buf);
  ExpectDefaultAttributes(a);
  EXPECT_EQ(GetLE32(a, 8), 0);
  EXPECT_EQ(GetLE32(a, 20), 0);
  EXPECT_EQ(GetLE32(a, 40), -1);
  for (int i : {104, 105, 106, 107, 109, 110, 111, 112}) EXPECT_EQ(a[i], kSentinel) << i;
  for (int i = 186; i < 196; i++) EXPECT_EQ(a[i], kSentinel) << i;
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
}  // namespace shptest
