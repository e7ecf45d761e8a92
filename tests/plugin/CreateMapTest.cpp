// Maps created through the module: every byte of both files after closing.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "support/HostMap.h"
#include "support/ShpBuilder.h"

namespace shptest {
namespace {

class CreateMap : public PlugInTest {};

// What a created map must hold after closing: the header with the given type,
// the extent of every point added (Z greatest first), the records, and one
// zero word after them counted in the length.
ShpImage CreatedImage(int type, const std::vector<Bytes>& contents, const std::vector<XYZ>& all) {
  Extent e(all);
  ShpBuilder b(type);
  b.Box(e.x0, e.y0, e.x1, e.y1).ZSlots(e.zmax, e.zmin).EndMark();
  for (const Bytes& c : contents) b.Record(c);
  return b.Build();
}

TEST_F(CreateMap, NothingAddedLeavesHundredZeroBytesInBothFiles) {
  const std::string path = dir / "empty.shp";
  MapSession s(path, true);
  ASSERT_EQ(s.Open(), 1) << s.sink.All();
  EXPECT_EQ(s.map.WriteMode(), 1);
  EXPECT_EQ(s.map.IndexFlag(), 0);
  EXPECT_EQ(s.map.CreateFlag(), 1);
  EXPECT_NE(s.map.Private(), nullptr);
  EXPECT_EQ(s.Close(), 1);
  EXPECT_EQ(s.map.Private(), nullptr);
  EXPECT_TRUE(SameMap({Bytes(100, 0), Bytes(100, 0)}, path));
  EXPECT_TRUE(s.sink.messages.empty()) << s.sink.All();
}

struct OneShape {
  const char* name;
  int kind;
  std::vector<XYZ> pts;
  int type;
  std::vector<int> parts;
};

TEST_F(CreateMap, OneAdditionWritesEveryByteOfBothFiles) {
  const std::vector<OneShape> cases = {
      {"open line", 0, {{1, 2, 0}, {3, 5, 0}, {-1, 4, 0}}, 3, {0}},
      {"closed line", 1, {{0, 0, 0}, {0, 4, 0}, {4, 4, 0}, {0, 0, 0}}, 5, {0}},
      {"line with Z", 0, {{10, 20, 3}, {11, 21, 7}, {12, 19, 1}}, 13, {0}},
      {"area with Z", 1, {{0, 0, 2.5}, {1, 1, -4}, {2, 0, 6}, {0, 0, 2.5}}, 15, {0}},
      {"point: the first is kept, the box spans all", 3, {{-7.25, 41.5, 0}, {50, -60, 0}}, 1, {}},
      {"point with Z", 3, {{-7.25, 41.5, 9.5}}, 11, {}},
      // Z at or below 2.0 is no Z, yet the header's Z slots still span it.
      {"line with low Z", 0, {{1, 1, 1.5}, {2, 2, -0.5}}, 3, {0}},
  };
  for (const OneShape& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir d;
    const std::string path = d / "one.shp";
    MapSession s(path, true);
    ASSERT_EQ(s.Open(), 1) << s.sink.All();
    int32_t id = -99;
    ASSERT_EQ(s.Add(c.kind, c.pts, 0, &id), 1) << s.sink.All();
    EXPECT_EQ(id, 1);
    EXPECT_EQ(s.Close(), 1);
    EXPECT_TRUE(SameMap(CreatedImage(c.type, {WrittenContent(c.type, c.parts, c.pts)}, c.pts), path));
    EXPECT_TRUE(s.sink.messages.empty()) << s.sink.All();
  }
}

// Later shapes take the map's type whatever their kind. The header's Z
// slots span every addition, greatest first, as does each record's own Z
// range; the M range stays zero.
TEST_F(CreateMap, SeveralAdditionsFollowOneAnotherWithOneEndMark) {
  const std::string path = dir / "three.shp";
  MapSession s(path, true);
  ASSERT_EQ(s.Open(), 1);
  const std::vector<XYZ> a = {{1, 1, 4}, {2, 3, 1}};
  const std::vector<XYZ> b = {{-5, 0.5, 5}, {0, 0, 7}, {4, -2, 2}};
  const std::vector<XYZ> c = {{7, 7, 3}, {8, 9, 0}, {7, 7, 3}, {6, 6, 0}};  // parts 0 and 3
  int32_t ids[3] = {0, 0, 0};
  ASSERT_EQ(s.Add(0, a, 0, &ids[0]), 1);
  ASSERT_EQ(s.Add(3, b, 17, &ids[1]), 1);  // an id on a created map appends all the same
  ASSERT_EQ(s.Add(1, c, 1, &ids[2]), 1);
  EXPECT_EQ(ids[0], 1);
  EXPECT_EQ(ids[1], 2);
  EXPECT_EQ(ids[2], 3);
  s.Close();
  EXPECT_TRUE(SameMap(CreatedImage(13,
                                   {WrittenContent(13, {0}, a), WrittenContent(13, {0}, b),
                                    WrittenContent(13, {0, 3}, c)},
                                   Concat({a, b, c})),
                      path));
}

struct ZCase {
  int kind;
  std::vector<double> z;
  int type;
};

TEST_F(CreateMap, ShapeTypeFollowsKindAndOnlyTheFirstPointsZ) {
  const std::vector<ZCase> cases = {
      {0, {5.0, 1.0}, 13},    {0, {1.0, 100.0}, 3}, {0, {2.0, 9.0}, 3},   {0, {2.0001, 0}, 13},
      {1, {2.5, 0}, 15},      {1, {0, 50}, 5},      {3, {3.0, 0}, 11},    {3, {0, 30}, 1},
      {7, {0, 0}, 13},        {0x80, {0, 0}, 13},   {0x81, {9, 9}, 13},   {0x83, {0, 0}, 13},
      {-1, {0, 0}, 13},
  };
  for (const ZCase& c : cases) {
    SCOPED_TRACE("kind " + std::to_string(c.kind) + " first z " + std::to_string(c.z[0]));
    TempDir d;
    const std::string path = d / "z.shp";
    MapSession s(path, true);
    ASSERT_EQ(s.Open(), 1);
    ASSERT_EQ(s.Add(c.kind, {{0, 0, c.z[0]}, {1, 1, c.z[1]}}), 1) << s.sink.All();
    s.Close();
    Bytes shp = ReadFile(path);
    ASSERT_GE(shp.size(), 112u);
    EXPECT_EQ(GetLE32(shp, 32), c.type) << "header";
    EXPECT_EQ(GetLE32(shp, 108), c.type) << "record";
  }
}

struct PartsCase {
  const char* name;
  std::vector<XYZ> pts;
  std::vector<int> parts;
};

TEST_F(CreateMap, PartsStartAfterEachReturnToAPartsFirstPoint) {
  const XYZ A{0, 0, 0}, B{1, 0, 0}, C{1, 1, 0}, D{5, 5, 0}, E{6, 5, 0}, F{6, 6, 0}, G{9, 9, 0};
  const std::vector<PartsCase> cases = {
      {"A B C A D E F D", {A, B, C, A, D, E, F, D}, {0, 4}},
      {"A B C A", {A, B, C, A}, {0}},
      {"A B C A D", {A, B, C, A, D}, {0, 4}},
      {"A B A C A", {A, B, A, C, A}, {0, 3}},
      {"A B C D", {A, B, C, D}, {0}},
      {"A A G", {A, A, G}, {0, 2}},
      // The remembered point is the part's first; a later return to an
      // earlier part's start does not count.
      {"A B A D E A", {A, B, A, D, E, A}, {0, 3}},
  };
  for (const PartsCase& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir d;
    const std::string path = d / "parts.shp";
    MapSession s(path, true);
    ASSERT_EQ(s.Open(), 1);
    ASSERT_EQ(s.Add(0, c.pts), 1);
    s.Close();
    ShpImage want = CreatedImage(3, {WrittenContent(3, c.parts, c.pts)}, c.pts);
    EXPECT_TRUE(SameBytes(want.shp, ReadFile(path)));
  }
}

TEST_F(CreateMap, PointArrayWithShortRecordSizeIsRefused) {
  const std::string path = dir / "align.shp";
  MapSession s(path, true);
  ASSERT_EQ(s.Open(), 1);
  Bytes attrs = LineAttrs(0, 0);
  Bytes pts = PointArray({{1, 1, 0}, {2, 2, 0}}, 39);
  EXPECT_EQ(s.AddRaw(attrs, pts, 2), 0);
  EXPECT_EQ(s.sink.All(),
            "Data Aligment error in TVectorPointPlugIn, VardaPlugIn_Add_Poliline_Vector_Map SHP");
  EXPECT_EQ(GetLE32(attrs, 8), 0);
  s.Close();
  EXPECT_TRUE(SameBytes(Bytes(100, 0), ReadFile(path)));
}

TEST_F(CreateMap, CreatingInAMissingFolderNamesThePath) {
  const std::string path = dir / "no/such/folder/x.shp";
  MapSession s(path, true);
  EXPECT_EQ(s.Open(), 0);
  EXPECT_EQ(s.sink.All(), "Error writing " + path + " file.");
  EXPECT_EQ(s.map.Private(), nullptr);
}

TEST_F(CreateMap, IndexThatCannotBeCreatedLeavesAnEmptyMainFile) {
  const std::string path = dir / "blocked.shp";
  ASSERT_EQ(mkdir(ShxOf(path).c_str(), 0755), 0);  // a folder where the index should go
  MapSession s(path, true);
  EXPECT_EQ(s.Open(), 0);
  EXPECT_EQ(s.sink.All(), "Error writing " + ShxOf(path) + " file.");
  EXPECT_EQ(s.map.Private(), nullptr);
  EXPECT_TRUE(FileExists(path));
  EXPECT_EQ(ReadFile(path).size(), 0u);
}

TEST_F(CreateMap, LineWithoutPointsDoesNoHarm) {
  const std::string path = dir / "nopoints.shp";
  MapSession s(path, true);
  ASSERT_EQ(s.Open(), 1);
  Bytes attrs = LineAttrs(0, 0);
  Bytes none;
  if (s.AddRaw(attrs, none, 0) == 0) {
    EXPECT_FALSE(s.sink.messages.empty()) << "a refusal says why";
  }
  s.sink.messages.clear();
  ASSERT_EQ(s.Add(0, {{1, 1, 0}, {2, 2, 0}}), 1) << s.sink.All();
  s.Close();
  MapSession r(path);
  ASSERT_EQ(r.Open(), 1);
  EXPECT_EQ(r.Read(), 1) << r.sink.All();
  EXPECT_FALSE(r.reader.lines.empty());
}

// The end mark of a created map is counted in its length: reading stops at
// it, and a line appended after reopening must still be found by reading,
// not hidden behind it.
TEST_F(CreateMap, ReadsBackUpToTheEndMarkAndPastItAfterAnAppend) {
  const std::string path = dir / "back.shp";
  const std::vector<XYZ> a = {{1, 2, 3}, {4, 5, 6}};
  const std::vector<XYZ> b = {{7, 8, 9}, {1, 0, 2.5}, {0, 0, 4}};
  const std::vector<XYZ> c = {{3, 3, 0}, {4, 5, 0}};
  {
    MapSession s(path, true);
    ASSERT_EQ(s.Open(), 1);
    ASSERT_EQ(s.Add(0, a), 1);
    ASSERT_EQ(s.Add(0, b), 1);
  }
  {
    MapSession s(path);
    ASSERT_EQ(s.Open(), 1) << s.sink.All();
    EXPECT_EQ(s.map.IndexFlag(), 1);
    EXPECT_EQ(s.map.WriteMode(), 0);
    Progress pr;
    ASSERT_EQ(s.Read(s.reader, &pr), 1) << s.sink.All();
    ASSERT_EQ(s.reader.lines.size(), 2u);
    EXPECT_EQ(s.reader.lines[1].Id(), 2);
    EXPECT_EQ(s.reader.lines[0].Flags(), 0);
    EXPECT_TRUE(SameXYZ(CoordsOf(s.reader.lines[0]), a)) << Show(CoordsOf(s.reader.lines[0]));
    EXPECT_TRUE(SameXYZ(CoordsOf(s.reader.lines[1]), b)) << Show(CoordsOf(s.reader.lines[1]));
    EXPECT_EQ(pr.CountOf('A'), 2) << "the end mark is no record";
    EXPECT_TRUE(s.sink.messages.empty()) << s.sink.All();
    int32_t id = 0;
    ASSERT_EQ(s.Add(0, c, 0, &id), 1) << s.sink.All();
    EXPECT_EQ(id, 3);
  }
  MapSession s(path);
  ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
  ASSERT_EQ(s.reader.lines.size(), 3u) << "the appended line is not read back";
  EXPECT_TRUE(SameXYZ(CoordsOf(s.reader.lines[2]), c));
  EXPECT_EQ(s.Delete(3), 1) << s.sink.All();
}

}  // namespace
}  // namespace shptest
