// Reading maps through the module: what reaches the host's reader, progress
// and error sink for each kind of record and file.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/HostMap.h"
#include "support/ShpBuilder.h"

namespace shptest {
namespace {

class ReadMap : public PlugInTest {
 protected:
  // Writes `img`, opens it and reads it with `rd` (and `pr`); returns the result.
  int ReadImage(const ShpImage& img, Reader& rd, Progress* pr = nullptr, bool with_shx = true) {
    TempDir d;
    const std::string p = PutMap(d, "m", img, with_shx);
    MapSession s(p);
    if (s.Open() != 1) {
      ADD_FAILURE() << "open: " << s.sink.All();
      return -1;
    }
    int r = s.Read(rd, pr);
    messages = s.sink.messages;
    index_flag = s.map.IndexFlag();
    return r;
  }
  std::string All() const {
    std::string s;
    for (const std::string& m : messages) s += (s.empty() ? "" : " | ") + m;
    return s;
  }
  std::vector<std::string> messages;
  int index_flag = -1;
};

// The defaults every delivered line starts from.
void ExpectDefaultAttributes(const Bytes& a) {
  const int ints[][2] = {{0, 196}, {4, 0},   {12, -1}, {16, -1}, {24, 0},  {28, 0},
                         {36, 0},  {44, 0},  {48, 0},  {56, -1}, {60, -1}, {64, -1},
                         {72, 1},  {76, 0},  {80, 0},  {92, -1}, {96, -1}, {100, 0}};
  for (const auto& f : ints) EXPECT_EQ(GetLE32(a, f[0]), f[1]) << "offset " << f[0];
  auto f32 = [&](size_t off) {
    float v;
    std::memcpy(&v, &a[off], 4);
    return v;
  };
  EXPECT_EQ(f32(32), 1.0f);
  EXPECT_EQ(f32(52), -1.0f);
  EXPECT_EQ(f32(68), -1.0f);
  EXPECT_EQ(f32(84), -9999.0f);
  EXPECT_EQ(f32(88), -9999.0f);
  EXPECT_EQ(a[108], 0);
  for (int i = 113; i < 153; i++) EXPECT_EQ(a[i], 0) << i;
  for (int i = 153; i < 185; i++) EXPECT_EQ(a[i], 0xFF) << i;
  EXPECT_EQ(a[185], 0);
}

void ExpectPointsWellFormed(const GotLine& l) {
  for (size_t i = 0; i < l.points.size(); i++) {
    EXPECT_EQ(l.points[i].size, 40);
    EXPECT_EQ(l.points[i].m, -1.0);
    EXPECT_EQ(l.points[i].handle, l.handle);
    EXPECT_EQ(l.points[i].last, i + 1 == l.points.size() ? 1 : 0) << "point " << i;
  }
}

TEST_F(ReadMap, PolyLineOfTwoPartsIsOneLineThroughAllPoints) {
  const std::vector<XYZ> pts = {{0, 0, 0}, {1, 1, 0}, {2, 0, 0}, {5, 5, 0}, {6, 6, 0}, {7, 5, 0}};
  Reader rd;
  ASSERT_EQ(ReadImage(ShpBuilder(3).Record(PolyContent(3, {0, 3}, pts)).Build(), rd), 1) << All();
  ASSERT_EQ(rd.lines.size(), 1u);
  const GotLine& l = rd.lines[0];
  ExpectDefaultAttributes(l.attrs);
  EXPECT_EQ(l.Id(), 1);
  EXPECT_EQ(l.Flags(), 0x80);
  EXPECT_EQ(l.Count(), 6);
  EXPECT_TRUE(SameXYZ(CoordsOf(l), pts)) << Show(CoordsOf(l));
  ExpectPointsWellFormed(l);
  EXPECT_EQ(index_flag, 1);
}

TEST_F(ReadMap, FlagsAndZByLineType) {
  const std::vector<XYZ> pts = {{0, 0, 10}, {1, 2, 20}, {3, 1, 30}, {0, 0, 10}};
  struct Case {
    int type, flags;
    bool z;
  } cases[] = {{3, 0x80, false}, {5, 0x81, false}, {13, 0, true}, {15, 1, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    Reader rd;
    ASSERT_EQ(ReadImage(ShpBuilder(c.type).Record(PolyContent(c.type, {0}, pts)).Build(), rd), 1)
        << All();
    ASSERT_EQ(rd.lines.size(), 1u);
    EXPECT_EQ(rd.lines[0].Flags(), c.flags);
    std::vector<XYZ> want = pts;
    if (!c.z)
      for (XYZ& p : want) p.z = 0;
    EXPECT_TRUE(SameXYZ(CoordsOf(rd.lines[0]), want)) << Show(CoordsOf(rd.lines[0]));
  }
}

TEST_F(ReadMap, DeliveryStartsAtTheFirstPartsStart) {
  const std::vector<XYZ> pts = {{0, 0, 1}, {1, 0, 2}, {2, 2, 3}, {3, 3, 4}, {4, 2, 5}};
  Reader rd;
  ASSERT_EQ(ReadImage(ShpBuilder(15).Record(PolyContent(15, {2}, pts)).Build(), rd), 1) << All();
  ASSERT_EQ(rd.lines.size(), 1u);
  EXPECT_EQ(rd.lines[0].Count(), 3);
  EXPECT_TRUE(SameXYZ(CoordsOf(rd.lines[0]), {pts[2], pts[3], pts[4]}));
  ExpectPointsWellFormed(rd.lines[0]);
}

TEST_F(ReadMap, PointShapesGiveOnePointWithoutZ) {
  struct Case {
    const char* name;
    int type;
    Bytes content;
    XYZ want;
  } cases[] = {
      {"Point", 1, PointContent(1, 3.5, -2.25), {3.5, -2.25, 0}},
      {"PointZ", 11, PointContent(11, 3.5, -2.25, 99, 7), {3.5, -2.25, 0}},
      {"MultiPoint of 5", 8,
       MultiPointContent(8, {{1, 2, 0}, {3, 4, 0}, {5, 6, 0}, {7, 8, 0}, {9, 10, 0}}),
       {1, 2, 0}},
      {"MultiPointZ", 18, MultiPointContent(18, {{-1, -2, 50}, {3, 4, 60}}), {-1, -2, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Reader rd;
    ASSERT_EQ(ReadImage(ShpBuilder(c.type).Record(c.content).Record(c.content).Build(), rd), 1)
        << All();
    ASSERT_EQ(rd.lines.size(), 2u);
    for (int i = 0; i < 2; i++) {
      const GotLine& l = rd.lines[i];
      ExpectDefaultAttributes(l.attrs);
      EXPECT_EQ(l.Id(), i + 1);
      EXPECT_EQ(l.Flags(), 3);
      EXPECT_EQ(l.Count(), 1);
      EXPECT_TRUE(SameXYZ(CoordsOf(l), {c.want})) << Show(CoordsOf(l));
      ExpectPointsWellFormed(l);
    }
  }
}

TEST_F(ReadMap, WithoutCallbacks) {
  const ShpImage img = ShpBuilder(3)
                           .Record(PolyContent(3, {0}, {{0, 0, 0}, {1, 1, 0}}))
                           .Record(PolyContent(3, {0}, {{2, 2, 0}, {3, 3, 0}, {4, 4, 0}}))
                           .Build();
  Reader no_begin(false, true);
  ASSERT_EQ(ReadImage(img, no_begin), 1) << All();
  ASSERT_EQ(no_begin.points.size(), 5u);
  for (const GotPoint& p : no_begin.points) EXPECT_EQ(p.handle, -1);
  EXPECT_EQ(no_begin.points[1].last, 1);
  EXPECT_EQ(no_begin.points[4].x, 4.0);

  Reader no_add(true, false);
  ASSERT_EQ(ReadImage(img, no_add), 1) << All();
  EXPECT_EQ(no_add.lines.size(), 2u);
  EXPECT_TRUE(no_add.points.empty());
}

TEST_F(ReadMap, NullRecordEndsTheMapWithSuccess) {
  const ShpImage img = ShpBuilder(3)
                           .Record(PolyContent(3, {0}, {{0, 0, 0}, {1, 1, 0}}))
                           .Record(RawContent(0, 0))
                           .Record(PolyContent(3, {0}, {{2, 2, 0}, {3, 3, 0}}))
                           .Build();
  Reader rd;
  Progress pr;
  ASSERT_EQ(ReadImage(img, rd, &pr), 1) << All();
  EXPECT_EQ(rd.lines.size(), 1u);
  EXPECT_TRUE(messages.empty()) << All();
  ASSERT_EQ(pr.calls.size(), 5u);
  EXPECT_EQ(pr.calls[3].what, 'C');
  EXPECT_EQ(pr.calls[4].what, 'A');
  EXPECT_EQ(pr.calls[4].value, 2 + 12) << "a Null record counts its length plus 12";
}

TEST_F(ReadMap, TypesBeyondTheFormatEndTheMap) {
  for (int t : {32, 99, -3, INT32_MIN}) {
    SCOPED_TRACE(t);
    Reader rd;
    ShpImage img = ShpBuilder(3)
                       .Record(PolyContent(3, {0}, {{0, 0, 0}, {1, 1, 0}}))
                       .Record(RawContent(t, 40))
                       .Record(PolyContent(3, {0}, {{2, 2, 0}, {3, 3, 0}}))
                       .Build();
    ASSERT_EQ(ReadImage(img, rd), 1) << All();
    EXPECT_EQ(rd.lines.size(), 1u);
  }
}

TEST_F(ReadMap, SkippedTypesDeliverNothingAndReadingGoesOn) {
  for (int t : {23, 31, 2, 28}) {
    SCOPED_TRACE(t);
    Reader rd;
    Progress pr;
    ShpImage img = ShpBuilder(t).Record(RawContent(t, 60)).Record(RawContent(t, 20)).Build();
    ASSERT_EQ(ReadImage(img, rd, &pr), 1) << All();
    EXPECT_TRUE(rd.lines.empty());
    EXPECT_TRUE(rd.points.empty());
    EXPECT_EQ(pr.CountOf('A'), 2);
    EXPECT_EQ(pr.CountOf('C'), 2);
  }
}

TEST_F(ReadMap, HeaderTypeZeroTakesTheFirstRecordsType) {
  Reader rd;
  ShpImage img = ShpBuilder(0)
                     .Record(PolyContent(3, {0}, {{0, 0, 0}, {1, 1, 0}}))
                     .Record(PolyContent(3, {0}, {{2, 2, 0}, {3, 3, 0}}))
                     .Build();
  ASSERT_EQ(ReadImage(img, rd), 1) << All();
  EXPECT_EQ(rd.lines.size(), 2u);

  Reader mixed;
  img = ShpBuilder(0)
            .Record(PolyContent(3, {0}, {{0, 0, 0}, {1, 1, 0}}))
            .Record(PolyContent(5, {0}, {{2, 2, 0}, {3, 3, 0}}))
            .Build();
  EXPECT_EQ(ReadImage(img, mixed), 0);
  EXPECT_EQ(All(), "ShapeType Error reading SHP file.");
  EXPECT_EQ(mixed.lines.size(), 1u) << "what was delivered stays delivered";
}

TEST_F(ReadMap, RecordTypeOtherThanTheFilesIsRefused) {
  Reader rd;
  ShpImage img = ShpBuilder(5).Record(PolyContent(3, {0}, {{0, 0, 0}, {1, 1, 0}})).Build();
  EXPECT_EQ(ReadImage(img, rd), 0);
  EXPECT_EQ(All(), "ShapeType Error reading SHP file.");
  EXPECT_TRUE(rd.lines.empty());
}

TEST_F(ReadMap, WithoutIndexNothingIsCheckedAgainstIt) {
  ShpImage img = ShpBuilder(3)
                     .Record(PolyContent(3, {0}, {{0, 0, 0}, {1, 1, 0}}))
                     .Record(PolyContent(3, {0}, {{2, 2, 0}, {3, 3, 0}}))
                     .Build();
  Reader rd;
  ASSERT_EQ(ReadImage(img, rd, nullptr, false), 1) << All();
  EXPECT_EQ(index_flag, 0);
  EXPECT_EQ(rd.lines.size(), 2u);
  // Even a header length that an index would contradict.
  PutBE32(img.shp, 24, GetBE32(img.shp, 24) + 40);
  Reader rd2;
  ASSERT_EQ(ReadImage(img, rd2, nullptr, false), 1) << All();
  EXPECT_EQ(rd2.lines.size(), 2u);
}

ShpImage ThreeLines() {
  return ShpBuilder(3)
      .Record(PolyContent(3, {0}, {{0, 0, 0}, {1, 1, 0}}))
      .Record(PolyContent(3, {0}, {{2, 2, 0}, {3, 3, 0}, {4, 2, 0}}))
      .Record(PolyContent(3, {0}, {{5, 5, 0}, {6, 6, 0}}))
      .Build();
}

TEST_F(ReadMap, HeadersOfBothFilesMustAgreeInTheirFirst36Bytes) {
  ShpImage img = ThreeLines();
  img.shx[32] = 5;  // shape type
  Reader rd;
  EXPECT_EQ(ReadImage(img, rd), 0);
  EXPECT_EQ(All(), "Error: headers are not identical between SHP and SHX");
  EXPECT_TRUE(rd.lines.empty());

  img = ThreeLines();
  img.shx[7] = 1;  // an unused word
  EXPECT_EQ(ReadImage(img, rd), 0);
  EXPECT_EQ(All(), "Error: headers are not identical between SHP and SHX");

  img = ThreeLines();
  PutF64(img.shx, 36, 123.0);  // the box is not compared
  PutF64(img.shx, 84, 1.0);
  Reader rd2;
  EXPECT_EQ(ReadImage(img, rd2), 1) << All();
  EXPECT_EQ(rd2.lines.size(), 3u);
}

TEST_F(ReadMap, MainFileLengthMustMatchTheLastIndexEntryWithinFourWords) {
  for (int extra : {-5, -4, 0, 2, 4, 5, 40}) {
    SCOPED_TRACE(extra);
    ShpImage img = ThreeLines();
    PutBE32(img.shp, 24, GetBE32(img.shp, 24) + extra);
    Reader rd;
    int r = ReadImage(img, rd);
    if (extra < -4 || extra > 4) {
      EXPECT_EQ(r, 0);
      EXPECT_EQ(All(), "Error: FileSize error in the SHP - SHX header.");
    } else {
      EXPECT_EQ(r, 1) << All();
    }
  }
}

TEST_F(ReadMap, RecordAwayFromItsIndexEntryIsRefused) {
  ShpImage img = ThreeLines();
  PutBE32(img.shx, ShpImage::IndexPos(2) + 4, GetBE32(img.shx, ShpImage::IndexPos(2) + 4) + 2);
  Reader rd;
  EXPECT_EQ(ReadImage(img, rd), 0);
  EXPECT_EQ(All(), "Error 1 in SHP-SHX relation in shape #1");
  EXPECT_EQ(rd.lines.size(), 1u);

  img = ThreeLines();
  PutBE32(img.shx, ShpImage::IndexPos(1), 52);
  Reader rd2;
  EXPECT_EQ(ReadImage(img, rd2), 0);
  EXPECT_EQ(All(), "Error 1 in SHP-SHX relation in shape #0");
}

TEST_F(ReadMap, InpointFilterKeepsLinesWhoseBoxStrictlyContainsThePoint) {
  const ShpImage img = ShpBuilder(3)
                           .Record(PolyContent(3, {0}, {{0, 0, 0}, {2, 2, 0}}))      // contains
                           .Record(PolyContent(3, {0}, {{1, 0, 0}, {3, 3, 0}}))      // x on edge
                           .Record(PolyContent(3, {0}, {{0, 1, 0}, {3, 3, 0}}))      // y on edge
                           .Record(PolyContent(3, {0}, {{-5, -5, 0}, {0.5, 9, 0}}))  // outside
                           .Record(PolyContent(3, {0}, {{0.5, 0.5, 0}, {1.5, 1.5, 0}}))
                           .Build();
  struct Case {
    const char* options;
    std::vector<int> ids;
  } cases[] = {
      {"inpoint=1,1", {1, 5}},
      {"inpoint=1,1;anything", {1, 5}},
      {"inpoint=2.5,2.5;inpoint=1,1", {2, 3}},
      {"inpoint=1", {1, 2, 3, 4, 5}},
      {"inpoint=1,2,3", {1, 2, 3, 4, 5}},
      {"other=1,1", {1, 2, 3, 4, 5}},
      {"", {1, 2, 3, 4, 5}},
      {nullptr, {1, 2, 3, 4, 5}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.options ? c.options : "(null)");
    Reader rd;
    rd.SetOptions(c.options);
    ASSERT_EQ(ReadImage(img, rd), 1) << All();
    std::vector<int> ids;
    for (const GotLine& l : rd.lines) ids.push_back(l.Id());
    EXPECT_EQ(ids, c.ids);
  }
}

TEST_F(ReadMap, InpointFilterDeliversNoPointShapes) {
  for (int t : {1, 8}) {
    Bytes content = t == 1 ? PointContent(1, 1, 1) : MultiPointContent(8, {{0, 0, 0}, {2, 2, 0}});
    const ShpImage img = ShpBuilder(t).Record(content).Build();
    Reader rd;
    rd.SetOptions("inpoint=1,1");
    ASSERT_EQ(ReadImage(img, rd), 1) << All();
    EXPECT_TRUE(rd.lines.empty()) << t;
  }
}

TEST_F(ReadMap, ProgressCountsBytesAndAsksForCancellationPerRecord) {
  const ShpImage img = ThreeLines();
  Reader rd;
  Progress pr;
  ASSERT_EQ(ReadImage(img, rd, &pr), 1) << All();
  const int sizes[] = {88, 104, 88};
  ASSERT_EQ(pr.calls.size(), 7u);
  EXPECT_EQ(pr.calls[0].what, 'T');
  EXPECT_EQ(pr.calls[0].value, static_cast<int32_t>(img.shp.size() - 100));
  for (int i = 0; i < 3; i++) {
    EXPECT_EQ(pr.calls[1 + 2 * i].what, 'C') << i;
    EXPECT_EQ(pr.calls[2 + 2 * i].what, 'A') << i;
    EXPECT_EQ(pr.calls[2 + 2 * i].value, sizes[i]) << i;
  }
  EXPECT_EQ(pr.CountOf('R'), 0);

  Progress empty;
  Reader rd2;
  ASSERT_EQ(ReadImage(ShpBuilder(3).Build(), rd2, &empty), 1) << All();
  ASSERT_EQ(empty.calls.size(), 1u);
  EXPECT_EQ(empty.calls[0].what, 'T');
  EXPECT_EQ(empty.calls[0].value, 0);
}

TEST_F(ReadMap, CancellationStopsWithoutAMessage) {
  Reader rd;
  Progress pr;
  pr.cancel_at = 2;
  EXPECT_EQ(ReadImage(ThreeLines(), rd, &pr), 0);
  EXPECT_TRUE(messages.empty()) << All();
  EXPECT_EQ(rd.lines.size(), 2u) << "the record before the question is delivered";
  ASSERT_EQ(pr.calls.size(), 4u);
  EXPECT_EQ(pr.calls[3].what, 'C');
}

TEST_F(ReadMap, ExceptionFromALineIsSwallowedAndReadingGoesOn) {
  Reader rd;
  rd.throw_at_line_id = 2;
  ASSERT_EQ(ReadImage(ThreeLines(), rd), 1) << All();
  ASSERT_EQ(rd.lines.size(), 3u);
  EXPECT_TRUE(rd.lines[1].points.empty());
  EXPECT_EQ(rd.lines[2].points.size(), 2u);

  Reader rd2;
  rd2.throw_at_point_call = 3;  // the first point of the second line
  ASSERT_EQ(ReadImage(ThreeLines(), rd2), 1) << All();
  ASSERT_EQ(rd2.lines.size(), 3u);
  EXPECT_EQ(rd2.lines[1].points.size(), 1u);
  EXPECT_EQ(rd2.lines[2].points.size(), 2u);
}

TEST_F(ReadMap, ExceptionFromAPointReachesTheHost) {
  const ShpImage img =
      ShpBuilder(1).Record(PointContent(1, 1, 1)).Record(PointContent(1, 2, 2)).Build();
  const std::string p = PutMap(dir, "pts", img);
  MapSession s(p);
  ASSERT_EQ(s.Open(), 1);
  s.reader.throw_at_line_id = 2;
  int thrown = 0;
  try {
    s.Read(s.reader);
  } catch (const HostThrow& e) {
    thrown = e.id;
  }
  EXPECT_EQ(thrown, 2);
  // The map stays usable.
  s.reader.throw_at_line_id = 0;
  s.reader.Clear();
  EXPECT_EQ(s.Read(s.reader), 1) << s.sink.All();
  EXPECT_EQ(s.reader.lines.size(), 2u);
}

TEST_F(ReadMap, RepeatedReadsRestartAndRecount) {
  const std::string p = PutMap(dir, "m", ThreeLines());
  MapSession s(p);
  ASSERT_EQ(s.Open(), 1);
  ASSERT_EQ(s.Read(), 1);
  ASSERT_EQ(s.Read(), 1);
  ASSERT_EQ(s.reader.lines.size(), 3u);
  EXPECT_EQ(s.reader.lines[2].Id(), 3);
  // The count the edits rely on is the recount, not the sum.
  EXPECT_EQ(s.Delete(4), 0);
  EXPECT_EQ(s.sink.All(), "Error in Line.dababaseid");
}

}  // namespace
}  // namespace shptest
