// Reading maps larger than one read block: every record reaches the host in
// order with its progress steps, damage deep inside the map is refused with
// the same message as near its start, and coordinates reach the host's point
// record bit for bit.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/HostMap.h"
#include "support/ShpBuilder.h"

namespace shptest {
namespace {

// 10,000 point records of 28 bytes: the .shp spans several 64 KiB blocks and
// the .shx more than one, and record boundaries fall across block ends.
constexpr int kPoints = 10000;

ShpImage PointMap(int type = 1) {
  ShpBuilder b(type);
  for (int i = 1; i <= kPoints; i++) b.Record(PointContent(type, i, -i, 0.0, 0.0));
  return b.Build();
}

// Byte position of record n (from 1) of PointMap(1) in the .shp.
size_t PointRecordAt(int n) { return 100 + 28 * static_cast<size_t>(n - 1); }

class ReadWalk : public PlugInTest {
 protected:
  int Read(const ShpImage& img, Reader& rd, Progress* pr = nullptr) {
    MapSession s(PutMap(dir, "m", img));
    if (s.Open() != 1) {
      ADD_FAILURE() << "open: " << s.sink.All();
      return -1;
    }
    const int r = s.Read(rd, pr);
    messages = s.sink.All();
    return r;
  }
  std::string messages;
};

TEST_F(ReadWalk, EveryRecordInOrderWithItsProgressSteps) {
  for (int type : {1, 11}) {
    SCOPED_TRACE(type);
    const ShpImage img = PointMap(type);
    const int32_t size = type == 1 ? 28 : 44;
    Reader rd;
    Progress pr;
    ASSERT_EQ(Read(img, rd, &pr), 1) << messages;
    ASSERT_EQ(rd.lines.size(), static_cast<size_t>(kPoints));
    int wrong = 0;
    for (int i = 0; i < kPoints && wrong < 5; i++) {
      const GotLine& l = rd.lines[i];
      const bool ok = l.Id() == i + 1 && l.Flags() == 3 && l.Count() == 1 &&
                      l.points.size() == 1 && l.points[0].x == i + 1 && l.points[0].y == -(i + 1) &&
                      l.points[0].z == 0.0 && l.points[0].last == 1;
      if (!ok) ADD_FAILURE() << "record " << i + 1 << " delivered wrong (id " << l.Id() << ")";
      wrong += !ok;
    }
    ASSERT_EQ(pr.calls.size(), 1 + 2u * kPoints);
    for (int i = 0; i < kPoints && wrong < 5; i++) {
      const Progress::Call& c = pr.calls[1 + 2 * i];
      const Progress::Call& a = pr.calls[2 + 2 * i];
      const bool ok = c.what == 'C' && a.what == 'A' && a.value == size;
      if (!ok) ADD_FAILURE() << "progress of record " << i + 1 << ": " << c.what << a.what << a.value;
      wrong += !ok;
    }
  }
}

TEST_F(ReadWalk, DamageDeepInsideTheMapIsRefusedAsNearItsStart) {
  struct Case {
    const char* name;
    int at;  // the damaged record
    void (*damage)(ShpImage&, int);
    std::string message;
  } cases[] = {
      {"index offset off by a word", 7001,
       [](ShpImage& m, int n) { PutBE32(m.shx, 100 + 8 * (n - 1), GetBE32(m.shx, 100 + 8 * (n - 1)) + 1); },
       "Error 1 in SHP-SHX relation in shape #7000"},
      {"index length differs", 4681,
       [](ShpImage& m, int n) { PutBE32(m.shx, 104 + 8 * (n - 1), 12); },
       "Error 1 in SHP-SHX relation in shape #4680"},
      {"point too short for its coordinates", 2341,
       [](ShpImage& m, int n) {
         PutBE32(m.shp, PointRecordAt(n) + 4, 6);
         PutBE32(m.shx, 104 + 8 * (n - 1), 6);
       },
       "Error: record 2341 of the SHP file: its contents are too short for a point."},
      {"record of another type", 9000,
       [](ShpImage& m, int n) { PutLE32(m.shp, PointRecordAt(n) + 8, 8); },
       "ShapeType Error reading SHP file."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ShpImage img = PointMap();
    c.damage(img, c.at);
    Reader rd;
    EXPECT_EQ(Read(img, rd), 0);
    EXPECT_EQ(messages, c.message);
    EXPECT_EQ(rd.lines.size(), static_cast<size_t>(c.at - 1));
  }
}

TEST_F(ReadWalk, ANullRecordDeepInsideEndsTheMapWithSuccess) {
  ShpImage img = PointMap();
  PutLE32(img.shp, PointRecordAt(5000) + 8, 0);
  Reader rd;
  Progress pr;
  ASSERT_EQ(Read(img, rd, &pr), 1) << messages;
  EXPECT_EQ(messages, "");
  EXPECT_EQ(rd.lines.size(), 4999u);
  ASSERT_EQ(pr.calls.size(), 1 + 2u * 5000);
  EXPECT_EQ(pr.calls.back().value, 10 + 12) << "a Null record counts C + 12";
}

TEST_F(ReadWalk, CancellationDeepInsideLeavesTheMapReadableAgain) {
  MapSession s(PutMap(dir, "m", PointMap()));
  ASSERT_EQ(s.Open(), 1);
  Progress pr;
  pr.cancel_at = 6000;
  EXPECT_EQ(s.Read(s.reader, &pr), 0);
  EXPECT_TRUE(s.sink.messages.empty()) << "a cancellation is no failure: " << s.sink.All();
  EXPECT_EQ(s.reader.lines.size(), 6000u) << "the record before the question is delivered";
  EXPECT_EQ(pr.CountOf('A'), 5999);
  EXPECT_EQ(pr.calls.back().what, 'C');
  // The records the read did not reach are still counted by the edit.
  EXPECT_EQ(s.Delete(kPoints), 1) << s.sink.All();
  ASSERT_EQ(s.Read(), 1) << s.sink.All();
  EXPECT_EQ(s.reader.lines.size(), static_cast<size_t>(kPoints - 1));
}

void PutRaw(Bytes& b, size_t off, uint64_t bits) {
  for (int i = 0; i < 8; i++) b.at(off + i) = static_cast<unsigned char>(bits >> (8 * i));
}
uint64_t GetRaw(const Bytes& b, size_t off) {
  uint64_t u = 0;
  for (int i = 0; i < 8; i++) u |= static_cast<uint64_t>(b.at(off + i)) << (8 * i);
  return u;
}

TEST_F(ReadWalk, LineCoordinatesReachTheHostBitForBit) {
  // Signalling and quiet NaNs with payloads, -0.0, the smallest subnormal,
  // the largest double, -infinity and a pattern with every byte different.
  const uint64_t bits[] = {0x7FF0000000000001ull, 0xFFF4000000000abcull, 0x7FF8000000000123ull,
                           0x8000000000000000ull, 0x0000000000000001ull, 0x7FEFFFFFFFFFFFFFull,
                           0xFFF0000000000000ull, 0x0123456789ABCDEFull, 0xC000000000000001ull};
  const int n = 3;  // points per line: x, y and z take the patterns in turn
  for (int type : {3, 13}) {
    SCOPED_TRACE(type);
    std::vector<XYZ> placeholder(n, XYZ{0, 0, 0});
    Bytes content = PolyContent(type, {0}, placeholder);
    const size_t xy = kPolyParts + 4, z = xy + 16 * n + 16;
    for (int i = 0; i < n; i++) {
      PutRaw(content, xy + 16 * i, bits[3 * i]);
      PutRaw(content, xy + 16 * i + 8, bits[3 * i + 1]);
      if (type == 13) PutRaw(content, z + 8 * i, bits[3 * i + 2]);
    }
    MapSession s(PutMap(dir, "bits", ShpBuilder(type).Record(content).Build()));
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    const std::vector<GotPoint>& got = s.reader.points;
    ASSERT_EQ(got.size(), static_cast<size_t>(n));
    for (int i = 0; i < n; i++) {
      EXPECT_EQ(GetRaw(got[i].raw, 4), bits[3 * i]) << "x of point " << i;
      EXPECT_EQ(GetRaw(got[i].raw, 12), bits[3 * i + 1]) << "y of point " << i;
      EXPECT_EQ(GetRaw(got[i].raw, 20), type == 13 ? bits[3 * i + 2] : 0u) << "z of point " << i;
    }
  }
}

}  // namespace
}  // namespace shptest
