// Changing an existing map: replacing and appending lines, the one-time
// backups, and the files left after closing, byte for byte.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/HostMap.h"
#include "support/ShpBuilder.h"

namespace shptest {
namespace {

const std::vector<XYZ> kR1 = {{10, 10, 0}, {12, 11, 0}};
const std::vector<XYZ> kR2 = {{11, 12, 0}, {13, 14, 0}, {15, 12, 0}};
const std::vector<XYZ> kR3 = {{14, 10, 0}, {16, 16, 0}};

class EditMap : public PlugInTest {
 protected:
  void SetUp() override {
    PlugInTest::SetUp();
    original = PolyLinesImage({kR1, kR2, kR3}, Concat({kR1, kR2, kR3}));
    path = PutMap(dir, "roads", original);
  }
  ShpImage original;
  std::string path;
};

struct ReplaceCase {
  const char* name;
  std::vector<XYZ> pts;
  int delta;  // bytes
};

TEST_F(EditMap, ReplacingTheMiddleRecordMovesTheTail) {
  const std::vector<ReplaceCase> cases = {
      {"equal size", {{9, 12, 0}, {13, 17, 0}, {15, 12, 0}}, 0},
      {"longer", {{11, 12, 0}, {13, 14, 0}, {15, 12, 0}, {20, 8, 0}}, 16},
      {"shorter", {{11.5, 12.5, 0}, {12, 13, 0}}, -16},
  };
  for (const ReplaceCase& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir d;
    const std::string p = PutMap(d, "roads", original);
    {
      MapSession s(p);
      ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
      int32_t id = 0;
      ASSERT_EQ(s.Add(0, c.pts, 2, &id), 1) << s.sink.All();
      EXPECT_EQ(id, 2) << "a replacement keeps the line's id";
      EXPECT_EQ(s.map.WriteMode(), 1);
      EXPECT_TRUE(s.sink.messages.empty()) << s.sink.All();
    }
    // The header box only grows: the old extent stays in it.
    ShpImage want = PolyLinesImage({kR1, c.pts, kR3}, Concat({kR1, kR2, kR3, c.pts}));
    // Moving the tail towards the start leaves zeros; the file keeps its size.
    if (c.delta < 0) want.shp.resize(want.shp.size() - c.delta, 0);
    EXPECT_TRUE(SameMap(want, p));
  }
}

TEST_F(EditMap, AppendingWithIdsOutsideTheRecordsAddsRecords) {
  const std::vector<XYZ> a = {{1, 1, 0}, {2, 2, 0}};
  const std::vector<XYZ> b = {{3, 1, 0}, {4, 2, 0}, {5, 1, 0}};
  const std::vector<XYZ> c = {{30, 31, 0}, {32, 33, 0}};
  const std::vector<XYZ> e = {{0.5, 0.25, 0}, {0.75, 0.5, 0}};
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    int32_t id = 0;
    ASSERT_EQ(s.Add(0, a, 0, &id), 1) << s.sink.All();
    EXPECT_EQ(id, 4);
    ASSERT_EQ(s.Add(0, b, -5, &id), 1);
    EXPECT_EQ(id, 5);
    ASSERT_EQ(s.Add(0, c, 6, &id), 1) << "count + 1";
    EXPECT_EQ(id, 6);
    ASSERT_EQ(s.Add(0, e, 1000, &id), 1);
    EXPECT_EQ(id, 7);
  }
  ShpImage want = PolyLinesImage({kR1, kR2, kR3, a, b, c, e}, Concat({kR1, kR2, kR3, a, b, c, e}));
  // The zero word after the last record is written but not counted.
  want.shp.resize(want.shp.size() + 4, 0);
  EXPECT_TRUE(SameMap(want, path));

  MapSession s(path);
  ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
  ASSERT_EQ(s.reader.lines.size(), 7u);
  EXPECT_EQ(s.reader.lines[6].Id(), 7);
  EXPECT_TRUE(SameXYZ(CoordsOf(s.reader.lines[6]), e));
}

TEST_F(EditMap, AHeaderBoxAtZeroIsReplacedByTheNextAddition) {
  ShpImage img = original;
  for (Bytes* b : {&img.shp, &img.shx})
    for (size_t off = 36; off < 84; off += 8) PutF64(*b, off, off == 36 ? 0.000001 : 50.0);
  PutMap(dir, "roads", img);
  const std::vector<XYZ> added = {{20, 21, 4}, {22, 23, 6}};
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    ASSERT_EQ(s.Add(0, added), 1);
  }
  const Bytes shp = ReadFile(path);
  const double want[] = {20, 21, 22, 23, 6, 4, -77.5};  // the box, Z greatest first, M kept
  for (size_t i = 0; i < 7; i++) EXPECT_EQ(GetF64(shp, 36 + 8 * i), want[i]) << "byte " << 36 + 8 * i;
}

TEST_F(EditMap, AHeaderTypeOfZeroIsFixedByReading) {
  ShpImage img = original;
  PutLE32(img.shp, 32, 0);
  PutLE32(img.shx, 32, 0);
  PutMap(dir, "roads", img);
  const std::vector<XYZ> area = {{10, 10, 9}, {10, 11, 9}, {11, 11, 9}, {10, 10, 9}};
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    ASSERT_EQ(s.Add(1, area), 1);
  }
  Bytes shp = ReadFile(path);
  EXPECT_EQ(GetLE32(shp, 32), 3);
  EXPECT_EQ(GetLE32(ReadFile(ShxOf(path)), 32), 3);
  EXPECT_EQ(GetLE32(shp, original.shp.size() + 8), 3) << "the added area is a PolyLine record";
}

TEST_F(EditMap, ReadingAndClosingChangesNothing) {
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    EXPECT_EQ(s.map.WriteMode(), 0);
    EXPECT_EQ(s.map.IndexFlag(), 1);
    EXPECT_NE(s.map.Private(), nullptr);
    EXPECT_EQ(s.Close(), 1);
    EXPECT_EQ(s.map.Private(), nullptr);
  }
  EXPECT_TRUE(SameMap(original, path));
  EXPECT_FALSE(FileExists(path + ".bak"));
  EXPECT_FALSE(FileExists(ShxOf(path) + ".bak"));
}

TEST_F(EditMap, BackupsAreMadeOnceBeforeTheFirstChangeEver) {
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    EXPECT_FALSE(FileExists(path + ".bak"));
    ASSERT_EQ(s.Add(0, {{1, 1, 0}, {2, 2, 0}}), 1);
    EXPECT_TRUE(SameBytes(original.shp, ReadFile(path + ".bak"))) << "shp.bak";
    EXPECT_TRUE(SameBytes(original.shx, ReadFile(ShxOf(path) + ".bak"))) << "shx.bak";
    ASSERT_EQ(s.Delete(1), 1);  // a second change in the same session
  }
  const Bytes changed = ReadFile(path);
  ASSERT_FALSE(SameBytes(original.shp, changed));
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    ASSERT_EQ(s.Add(0, {{5, 5, 0}, {6, 6, 0}}, 2), 1) << s.sink.All();
  }
  EXPECT_TRUE(SameBytes(original.shp, ReadFile(path + ".bak"))) << "never refreshed";
  EXPECT_TRUE(SameBytes(original.shx, ReadFile(ShxOf(path) + ".bak")));
}

TEST_F(EditMap, AnExistingShpBackupStopsBothCopies) {
  const Bytes old = {'o', 'l', 'd'};
  WriteFile(path + ".bak", old);
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    ASSERT_EQ(s.Add(0, {{1, 1, 0}, {2, 2, 0}}), 1);
  }
  EXPECT_TRUE(SameBytes(old, ReadFile(path + ".bak")));
  EXPECT_FALSE(FileExists(ShxOf(path) + ".bak"));
}

TEST_F(EditMap, FormatsAreReadFromTheExportedPointersWhenUsed) {
  struct Restore {
    const char** p;
    const char* was;
    ~Restore() { *p = was; }
  } r1{api().fmt_open, *api().fmt_open}, r2{api().fmt_save, *api().fmt_save};

  const std::string missing = dir / "nothere.shp";
  {
    MapSession s(missing);
    EXPECT_EQ(s.Open(), 0);
    EXPECT_EQ(s.sink.All(), "Error: File " + missing + " not found.");
  }
  *api().fmt_open = "Missing <%s>";
  {
    MapSession s(missing);
    EXPECT_EQ(s.Open(), 0);
    EXPECT_EQ(s.sink.All(), "Missing <" + missing + ">");
    // A failed open of an existing map leaves the private pointer alone.
    EXPECT_EQ(s.map.Private(), GetPtr(Bytes(kP, kSentinel), 0));
  }
  // The .shp vanishes between reading and the first change.
  *api().fmt_save = "Cannot save [%s]";
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    ASSERT_EQ(std::remove(path.c_str()), 0);
    EXPECT_EQ(s.Add(0, {{1, 1, 0}, {2, 2, 0}}), 0);
    EXPECT_EQ(s.sink.Last(), "Cannot save [" + path + "]");
    EXPECT_EQ(s.map.WriteMode(), 0);
  }
  // The .shx vanishes: the index is reported through the open format.
  PutMap(dir, "roads", original);
  std::remove((path + ".bak").c_str());
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    ASSERT_EQ(std::remove(ShxOf(path).c_str()), 0);
    EXPECT_EQ(s.Delete(2), 0);
    EXPECT_EQ(s.sink.Last(), "Missing <" + ShxOf(path) + ">");
    EXPECT_EQ(s.map.WriteMode(), 0);
  }
}

TEST_F(EditMap, RefusedIdsChangeNothing) {
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    for (int id : {0, 4, -1}) {
      s.sink.messages.clear();
      EXPECT_EQ(s.Delete(id), 0) << id;
      EXPECT_EQ(s.sink.All(), "Error in Line.dababaseid") << id;
    }
    EXPECT_EQ(s.map.WriteMode(), 0) << "refused before the switch to writing";
  }
  EXPECT_TRUE(SameMap(original, path));
  EXPECT_FALSE(FileExists(path + ".bak"));

  const std::string created = dir / "new.shp";
  MapSession s(created, true);
  ASSERT_EQ(s.Open(), 1);
  ASSERT_EQ(s.Add(0, {{1, 1, 0}, {2, 2, 0}}), 1);
  for (int id : {1, 0, 2}) {
    s.sink.messages.clear();
    EXPECT_EQ(s.Delete(id), 0) << id;
    EXPECT_EQ(s.sink.All(), "Error in Line.dababaseid") << id;
  }
}

TEST_F(EditMap, ReplacementFindsAnotherRecordNumberAtItsOffset) {
  MapSession s(path);
  ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
  // Another program renumbers record 2 on disk after it was read.
  Bytes shp = ReadFile(path);
  PutBE32(shp, original.RecordPos(2), 5);
  WriteFile(path, shp);
  EXPECT_EQ(s.Add(0, {{1, 1, 0}, {2, 2, 0}}, 2), 0);
  EXPECT_EQ(s.sink.All(), "Error corrupt data in SHP-SHX");
  s.Close();
  EXPECT_TRUE(SameBytes(shp, ReadFile(path)));
  EXPECT_TRUE(SameBytes(original.shx, ReadFile(ShxOf(path))));
}

}  // namespace
}  // namespace shptest
