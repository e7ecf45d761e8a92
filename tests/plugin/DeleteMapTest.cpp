// Deleting lines: records cut out and later ones renumbered, the index
// shortened, tails zero-filled; every byte of both files after closing.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/HostMap.h"
#include "support/ShpBuilder.h"

namespace shptest {
namespace {

const std::vector<XYZ> kR1 = {{10, 10, 0}, {12, 11, 0}};               // 88 bytes with header
const std::vector<XYZ> kR2 = {{11, 12, 0}, {13, 14, 0}, {15, 12, 0}};  // 104 bytes
const std::vector<XYZ> kR3 = {{14, 10, 0}, {16, 16, 0}};               // 88 bytes
const std::vector<XYZ> kR4 = {{1, 2, 0}, {3, 4, 0}};                   // 88 bytes

class DeleteMap : public PlugInTest {
 protected:
  void SetUp() override {
    PlugInTest::SetUp();
    all = Concat({kR1, kR2, kR3});
    original = PolyLinesImage({kR1, kR2, kR3}, all);
    path = PutMap(dir, "rivers", original);
  }
  // Reopens the map and returns what reading delivers.
  std::vector<GotLine> ReadBack() {
    MapSession s(path);
    EXPECT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    return s.reader.lines;
  }
  std::vector<XYZ> all;
  ShpImage original;
  std::string path;
};

// The box keeps covering the deleted shape; the tail moves up and the bytes
// it leaves are zeros. The last record's index entry stays in the file,
// outside the length in the header.
TEST_F(DeleteMap, RecordIsCutOutAndLaterOnesRenumbered) {
  const std::vector<std::vector<XYZ>> records = {kR1, kR2, kR3};
  const size_t sizes[] = {88, 104, 88};
  for (int k = 1; k <= 3; k++) {
    SCOPED_TRACE("delete " + std::to_string(k));
    PutMap(dir, "rivers", original);
    {
      MapSession s(path);
      ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
      ASSERT_EQ(s.Delete(k), 1) << s.sink.All();
      EXPECT_EQ(s.map.WriteMode(), 1);
      EXPECT_TRUE(s.sink.messages.empty()) << s.sink.All();
    }
    std::vector<std::vector<XYZ>> kept = records;
    kept.erase(kept.begin() + (k - 1));
    ShpImage want = PolyLinesImage(kept, all);
    want.shp = want.shp + Zeros(sizes[k - 1]);
    want.shx = want.shx + (k == 3 ? Bytes(original.shx.end() - 8, original.shx.end()) : Zeros(8));
    EXPECT_TRUE(SameMap(want, path));
    const std::vector<GotLine> lines = ReadBack();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].Id(), 2);
    EXPECT_TRUE(SameXYZ(CoordsOf(lines[1]), kept[1]));
  }
}

TEST_F(DeleteMap, OnlyRecordLeavesAnEmptyMap) {
  const ShpImage one = PolyLinesImage({kR2}, kR2);
  PutMap(dir, "rivers", one);
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    ASSERT_EQ(s.Delete(1), 1) << s.sink.All();
    EXPECT_EQ(s.sink.messages.size(), 0u) << s.sink.All();
    EXPECT_EQ(s.Delete(1), 0) << "no record is left";
    EXPECT_EQ(s.sink.All(), "Error in Line.dababaseid");
  }
  ShpImage want = PolyLinesImage({}, kR2);
  want.shp = want.shp + Zeros(104);
  want.shx = want.shx + Bytes(one.shx.end() - 8, one.shx.end());
  EXPECT_TRUE(SameMap(want, path));
  EXPECT_EQ(GetBE32(ReadFile(path), 24), 50);
  EXPECT_EQ(ReadBack().size(), 0u);
}

TEST_F(DeleteMap, SuccessiveDeletionsAndAnAppendInOneSession) {
  const std::vector<XYZ> added = {{20, 20, 0}, {21, 22, 0}};
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    ASSERT_EQ(s.Delete(1), 1) << s.sink.All();
    ASSERT_EQ(s.Delete(1), 1) << s.sink.All();
    int32_t id = 0;
    ASSERT_EQ(s.Add(0, added, 0, &id), 1) << s.sink.All();
    EXPECT_EQ(id, 2);
  }
  ShpImage want = PolyLinesImage({kR3, added}, Concat({all, added}));
  // The appended record overwrites the zeros the deletions left; its own end
  // word follows it, and nothing grows past the old end.
  EXPECT_TRUE(SameBytes(want.shp + Zeros(original.shp.size() - want.shp.size()), ReadFile(path)));
  Bytes shx = ReadFile(ShxOf(path));
  ASSERT_GE(shx.size(), want.shx.size());
  EXPECT_TRUE(SameBytes(want.shx, Bytes(shx.begin(), shx.begin() + want.shx.size())));

  std::vector<GotLine> lines = ReadBack();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(SameXYZ(CoordsOf(lines[0]), kR3));
  EXPECT_TRUE(SameXYZ(CoordsOf(lines[1]), added));
}

// Another program damages the files after they were read; deleting record 2
// checks the record it cuts and the ones it renumbers. A wrong number at the
// record itself only warns, damage at the next record stops before a change,
// and one further on stops the renumbering where it is found (the files it
// leaves are held to the plain path in DeleteEquivalenceTest).
TEST_F(DeleteMap, DamageFoundWhileDeleting) {
  const ShpImage four = PolyLinesImage({kR1, kR2, kR3, kR4}, Concat({all, kR4}));
  struct Case {
    const char* name;
    std::function<void(Bytes& shp, Bytes& shx)> damage;
    int result;
    const char* message;
    enum { kAsDamaged, kCutOut, kNotChecked } left;
  } cases[] = {
      {"wrong number at the record", [&](Bytes& shp, Bytes&) { PutBE32(shp, four.RecordPos(2), 77); }, 1,
       "Fatal error 1 deleting item in SHP file", Case::kCutOut},
      {"wrong number at the next record", [&](Bytes& shp, Bytes&) { PutBE32(shp, four.RecordPos(3), 2); }, 0,
       "Fatal error 2 deleting item in SHP file", Case::kAsDamaged},
      {"gap to the next record other than the indexed length",
       [](Bytes&, Bytes& shx) { PutBE32(shx, ShpImage::IndexPos(2) + 4, GetBE32(shx, ShpImage::IndexPos(2) + 4) - 2); },
       0, "Fatal error 3 deleting item in SHP file", Case::kAsDamaged},
      {"wrong number further on", [&](Bytes& shp, Bytes&) { PutBE32(shp, four.RecordPos(4), 9); }, 0,
       "Fatal error 4 deleting item in SHP file", Case::kNotChecked},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    PutMap(dir, "rivers", four);
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    ShpImage damaged = four;
    c.damage(damaged.shp, damaged.shx);
    PutMap(dir, "rivers", damaged);
    EXPECT_EQ(s.Delete(2), c.result);
    EXPECT_EQ(s.sink.All(), c.message);
    s.Close();
    if (c.left == Case::kAsDamaged) {
      EXPECT_TRUE(SameMap(damaged, path));
    } else if (c.left == Case::kCutOut) {
      ShpImage want = PolyLinesImage({kR1, kR3, kR4}, Concat({all, kR4}));
      EXPECT_TRUE(SameBytes(want.shp + Zeros(104), ReadFile(path)));
    }
  }
}

// A renumbering stopped by a wrong number further on leaves the record cut
// out: the length the headers are written with falls by it, while the count
// (and so the index length) stays. An equal replace first makes the session
// write its headers.
TEST_F(DeleteMap, StoppedRenumberingStillCountsTheCutInTheLength) {
  ShpImage four = PolyLinesImage({kR1, kR2, kR3, kR4}, Concat({all, kR4}));
  PutBE32(four.shp, four.RecordPos(4), 9);
  PutMap(dir, "rivers", four);
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    ASSERT_EQ(s.Add(0, kR1, 1), 1) << s.sink.All();
    EXPECT_EQ(s.Delete(2), 0);
    EXPECT_EQ(s.sink.All(), "Fatal error 4 deleting item in SHP file");
  }
  const Bytes shp = ReadFile(path), shx = ReadFile(ShxOf(path));
  ASSERT_GE(shp.size(), 100u);
  ASSERT_GE(shx.size(), 100u);
  EXPECT_EQ(GetBE32(shp, 24), static_cast<uint32_t>((four.shp.size() - 104) / 2));
  EXPECT_EQ(GetBE32(shx, 24), static_cast<uint32_t>(four.shx.size() / 2));
  // Record 3 moved into record 2's place and took its number.
  EXPECT_EQ(GetBE32(shp, four.RecordPos(2)), 2u);
}

}  // namespace
}  // namespace shptest
