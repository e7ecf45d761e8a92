// Deleting lines: records cut out and later ones renumbered, the index
// shortened, tails zero-filled; every byte of both files after closing.
#include <gtest/gtest.h>

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
  void OpenAndRead(MapSession& s, size_t lines = 3) {
    ASSERT_EQ(s.Open(), 1) << s.sink.All();
    ASSERT_EQ(s.Read(), 1) << s.sink.All();
    ASSERT_EQ(s.reader.lines.size(), lines);
  }
  // Reopens the map and returns what reading delivers.
  std::vector<GotLine> ReadBack() {
    MapSession s(path);
    EXPECT_EQ(s.Open(), 1) << s.sink.All();
    EXPECT_EQ(s.Read(), 1) << s.sink.All();
    return s.reader.lines;
  }
  std::vector<XYZ> all;
  ShpImage original;
  std::string path;
};

TEST_F(DeleteMap, MiddleRecordIsCutOutAndLaterOnesRenumbered) {
  {
    MapSession s(path);
    OpenAndRead(s);
    ASSERT_EQ(s.Delete(2), 1) << s.sink.All();
    EXPECT_EQ(s.map.WriteMode(), 1);
    EXPECT_TRUE(s.sink.messages.empty()) << s.sink.All();
  }
  // The box keeps covering the deleted shape.
  ShpImage want = PolyLinesImage({kR1, kR3}, all);
  Bytes shp = ReadFile(path), shx = ReadFile(ShxOf(path));
  EXPECT_TRUE(SameBytes(want.shp + Zeros(104), shp)) << "shp";
  EXPECT_TRUE(SameBytes(want.shx + Zeros(8), shx)) << "shx";
  EXPECT_EQ(GetBE32(shp, 24), GetBE32(original.shp, 24) - 52);
  EXPECT_EQ(GetBE32(shx, 24), GetBE32(original.shx, 24) - 4);
  EXPECT_EQ(GetBE32(shx, ShpImage::IndexPos(2)), GetBE32(original.shx, ShpImage::IndexPos(3)) - 52);

  std::vector<GotLine> lines = ReadBack();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1].Id(), 2);
  EXPECT_TRUE(SameXYZ(CoordsOf(lines[1]), kR3));
}

TEST_F(DeleteMap, FirstRecord) {
  {
    MapSession s(path);
    OpenAndRead(s);
    ASSERT_EQ(s.Delete(1), 1) << s.sink.All();
  }
  ShpImage want = PolyLinesImage({kR2, kR3}, all);
  EXPECT_TRUE(SameBytes(want.shp + Zeros(88), ReadFile(path))) << "shp";
  EXPECT_TRUE(SameBytes(want.shx + Zeros(8), ReadFile(ShxOf(path)))) << "shx";
}

TEST_F(DeleteMap, LastRecordIsZeroFilledInPlace) {
  {
    MapSession s(path);
    OpenAndRead(s);
    ASSERT_EQ(s.Delete(3), 1) << s.sink.All();
  }
  ShpImage want = PolyLinesImage({kR1, kR2}, all);
  // The index entry stays in the file, outside the length in the header.
  const Bytes entry3(original.shx.end() - 8, original.shx.end());
  EXPECT_TRUE(SameBytes(want.shp + Zeros(88), ReadFile(path))) << "shp";
  EXPECT_TRUE(SameBytes(want.shx + entry3, ReadFile(ShxOf(path)))) << "shx";
  EXPECT_EQ(ReadBack().size(), 2u);
}

TEST_F(DeleteMap, OnlyRecordLeavesAnEmptyMap) {
  const ShpImage one = PolyLinesImage({kR2}, kR2);
  PutMap(dir, "rivers", one);
  {
    MapSession s(path);
    OpenAndRead(s, 1);
    ASSERT_EQ(s.Delete(1), 1) << s.sink.All();
    EXPECT_EQ(s.sink.messages.size(), 0u) << s.sink.All();
    EXPECT_EQ(s.Delete(1), 0) << "no record is left";
    EXPECT_EQ(s.sink.All(), "Error in Line.dababaseid");
  }
  ShpImage want = PolyLinesImage({}, kR2);
  const Bytes entry1(one.shx.end() - 8, one.shx.end());
  EXPECT_TRUE(SameBytes(want.shp + Zeros(104), ReadFile(path))) << "shp";
  EXPECT_TRUE(SameBytes(want.shx + entry1, ReadFile(ShxOf(path)))) << "shx";
  EXPECT_EQ(GetBE32(ReadFile(path), 24), 50);
  EXPECT_EQ(ReadBack().size(), 0u);
}

TEST_F(DeleteMap, SuccessiveDeletionsAndAnAppendInOneSession) {
  const std::vector<XYZ> added = {{20, 20, 0}, {21, 22, 0}};
  {
    MapSession s(path);
    OpenAndRead(s);
    ASSERT_EQ(s.Delete(1), 1) << s.sink.All();
    ASSERT_EQ(s.Delete(1), 1) << s.sink.All();
    int32_t id = 0;
    ASSERT_EQ(s.Add(0, added, 0, &id), 1) << s.sink.All();
    EXPECT_EQ(id, 2);
  }
  ShpImage want = PolyLinesImage({kR3, added}, Concat({all, added}));
  // The appended record overwrites the zeros the deletions left; its own end
  // word follows it.
  Bytes shp = ReadFile(path);
  ASSERT_GE(shp.size(), want.shp.size());
  EXPECT_TRUE(SameBytes(want.shp, Bytes(shp.begin(), shp.begin() + want.shp.size())));
  EXPECT_EQ(shp.size(), original.shp.size()) << "nothing grows past the old end";
  EXPECT_EQ(Bytes(shp.begin() + want.shp.size(), shp.end()),
            Zeros(shp.size() - want.shp.size()));
  Bytes shx = ReadFile(ShxOf(path));
  ASSERT_GE(shx.size(), want.shx.size());
  EXPECT_TRUE(SameBytes(want.shx, Bytes(shx.begin(), shx.begin() + want.shx.size())));

  std::vector<GotLine> lines = ReadBack();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(SameXYZ(CoordsOf(lines[0]), kR3));
  EXPECT_TRUE(SameXYZ(CoordsOf(lines[1]), added));
}

TEST_F(DeleteMap, WrongNumberAtTheRecordOnlyWarns) {
  MapSession s(path);
  OpenAndRead(s);
  Bytes shp = ReadFile(path);
  PutBE32(shp, original.RecordPos(2), 77);
  WriteFile(path, shp);
  EXPECT_EQ(s.Delete(2), 1);
  EXPECT_EQ(s.sink.All(), "Fatal error 1 deleting item in SHP file");
  s.Close();
  ShpImage want = PolyLinesImage({kR1, kR3}, all);
  EXPECT_TRUE(SameBytes(want.shp + Zeros(104), ReadFile(path)));
}

TEST_F(DeleteMap, WrongNumberAtTheNextRecordStopsBeforeAnyChange) {
  MapSession s(path);
  OpenAndRead(s);
  Bytes shp = ReadFile(path);
  PutBE32(shp, original.RecordPos(3), 2);
  WriteFile(path, shp);
  EXPECT_EQ(s.Delete(2), 0);
  EXPECT_EQ(s.sink.All(), "Fatal error 2 deleting item in SHP file");
  s.Close();
  EXPECT_TRUE(SameBytes(shp, ReadFile(path)));
  EXPECT_TRUE(SameBytes(original.shx, ReadFile(ShxOf(path))));
}

TEST_F(DeleteMap, GapToTheNextRecordOtherThanTheIndexedLengthStops) {
  MapSession s(path);
  OpenAndRead(s);
  Bytes shx = ReadFile(ShxOf(path));
  PutBE32(shx, ShpImage::IndexPos(2) + 4, GetBE32(shx, ShpImage::IndexPos(2) + 4) - 2);
  WriteFile(ShxOf(path), shx);
  EXPECT_EQ(s.Delete(2), 0);
  EXPECT_EQ(s.sink.All(), "Fatal error 3 deleting item in SHP file");
  s.Close();
  EXPECT_TRUE(SameBytes(original.shp, ReadFile(path)));
  EXPECT_TRUE(SameBytes(shx, ReadFile(ShxOf(path))));
}

TEST_F(DeleteMap, WrongNumberFurtherOnIsReported) {
  const ShpImage four = PolyLinesImage({kR1, kR2, kR3, kR4}, Concat({all, kR4}));
  PutMap(dir, "rivers", four);
  MapSession s(path);
  OpenAndRead(s, 4);
  Bytes shp = ReadFile(path);
  PutBE32(shp, four.RecordPos(4), 9);
  WriteFile(path, shp);
  EXPECT_EQ(s.Delete(2), 0);
  EXPECT_EQ(s.sink.All(), "Fatal error 4 deleting item in SHP file");
}

}  // namespace
}  // namespace shptest
