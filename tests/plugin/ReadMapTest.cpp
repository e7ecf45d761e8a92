// Reading maps through the module: what reaches the host's reader, progress
// and error sink for each kind of record and file.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
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
    MapSession s(PutMap(d, "m", img, with_shx));
    if (s.Open() != 1) {
      ADD_FAILURE() << "open: " << s.sink.All();
      return -1;
    }
    int r = s.Read(rd, pr);
    messages = s.sink.All();
    index_flag = s.map.IndexFlag();
    return r;
  }
  std::string messages;
  int index_flag = -1;
};

void ExpectPointsWellFormed(const GotLine& l) {
  for (size_t i = 0; i < l.points.size(); i++) {
    EXPECT_EQ(l.points[i].size, 40);
    EXPECT_EQ(l.points[i].m, -1.0);
    EXPECT_EQ(l.points[i].handle, l.handle);
    EXPECT_EQ(l.points[i].last, i + 1 == l.points.size() ? 1 : 0) << "point " << i;
  }
}

// Every part of a line or area record goes into one line, from the start of
// its first part; Z only for the Z types.
TEST_F(ReadMap, LineRecordsGiveOneLineFromTheFirstPartsStart) {
  const std::vector<XYZ> pts = {{0, 0, 10}, {1, 2, 20}, {3, 1, 30}, {0, 0, 10}, {5, 5, 7}, {6, 6, 8}};
  struct Case {
    int type, flags;
    std::vector<int> parts;
    size_t from;  // the first point delivered
  } cases[] = {{3, 0x80, {0, 3}, 0}, {5, 0x81, {0}, 0}, {13, 0, {0}, 0}, {15, 1, {2, 4}, 2}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    Reader rd;
    ASSERT_EQ(ReadImage(ShpBuilder(c.type).Record(PolyContent(c.type, c.parts, pts)).Build(), rd), 1)
        << messages;
    ASSERT_EQ(rd.lines.size(), 1u);
    const GotLine& l = rd.lines[0];
    ExpectDefaultAttributes(l.attrs);
    EXPECT_EQ(l.Id(), 1);
    EXPECT_EQ(l.Flags(), c.flags);
    EXPECT_EQ(l.Count(), static_cast<int32_t>(pts.size() - c.from));
    std::vector<XYZ> want(pts.begin() + static_cast<long>(c.from), pts.end());
    if (c.type < 10)
      for (XYZ& p : want) p.z = 0;
    EXPECT_TRUE(SameXYZ(CoordsOf(l), want)) << Show(CoordsOf(l));
    ExpectPointsWellFormed(l);
    EXPECT_EQ(index_flag, 1);
  }
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
       MultiPointContent(8, {{0, 0.5, 0}, {3, 4, 0}, {5, 6, 0}, {7, 8, 0}, {9, 10, 0}}),
       {0, 0.5, 0}},
      {"MultiPointZ", 18, MultiPointContent(18, {{-1, -2, 50}, {3, 4, 60}}), {-1, -2, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Reader rd;
    ASSERT_EQ(ReadImage(ShpBuilder(c.type).Record(c.content).Record(c.content).Build(), rd), 1)
        << messages;
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
    // The inpoint filter lets no point shape through, not even a multipoint
    // whose box holds the point.
    Reader filtered;
    filtered.SetOptions("inpoint=1,1");
    ASSERT_EQ(ReadImage(ShpBuilder(c.type).Record(c.content).Build(), filtered), 1) << messages;
    EXPECT_TRUE(filtered.lines.empty());
  }
}

TEST_F(ReadMap, WithoutCallbacks) {
  const ShpImage img = ShpBuilder(3)
                           .Record(PolyContent(3, {0}, {{0, 0, 0}, {1, 1, 0}}))
                           .Record(PolyContent(3, {0}, {{2, 2, 0}, {3, 3, 0}, {4, 4, 0}}))
                           .Build();
  Reader no_begin(false, true);
  ASSERT_EQ(ReadImage(img, no_begin), 1) << messages;
  ASSERT_EQ(no_begin.points.size(), 5u);
  for (const GotPoint& p : no_begin.points) EXPECT_EQ(p.handle, -1);
  EXPECT_EQ(no_begin.points[1].last, 1);
  EXPECT_EQ(no_begin.points[4].x, 4.0);

  Reader no_add(true, false);
  ASSERT_EQ(ReadImage(img, no_add), 1) << messages;
  EXPECT_EQ(no_add.lines.size(), 2u);
  EXPECT_TRUE(no_add.points.empty());
}

// A Null record, or a type beyond the format, ends the map as if it were its
// end (the progress of the Null record is checked in ReadWalkTest).
TEST_F(ReadMap, NullAndUnknownTypesEndTheMapWithSuccess) {
  for (int t : {0, 32, 99, -3, INT32_MIN}) {
    SCOPED_TRACE(t);
    Reader rd;
    ShpImage img = ShpBuilder(3)
                       .Record(PolyContent(3, {0}, {{0, 0, 0}, {1, 1, 0}}))
                       .Record(RawContent(t, t == 0 ? 0 : 40))
                       .Record(PolyContent(3, {0}, {{2, 2, 0}, {3, 3, 0}}))
                       .Build();
    ASSERT_EQ(ReadImage(img, rd), 1) << messages;
    EXPECT_EQ(rd.lines.size(), 1u);
    EXPECT_EQ(messages, "");
  }
}

TEST_F(ReadMap, SkippedTypesDeliverNothingAndReadingGoesOn) {
  for (int t : {23, 31, 2, 28}) {
    SCOPED_TRACE(t);
    Reader rd;
    Progress pr;
    ShpImage img = ShpBuilder(t).Record(RawContent(t, 60)).Record(RawContent(t, 20)).Build();
    ASSERT_EQ(ReadImage(img, rd, &pr), 1) << messages;
    EXPECT_TRUE(rd.lines.empty());
    EXPECT_TRUE(rd.points.empty());
    EXPECT_EQ(pr.CountOf('A'), 2);
    EXPECT_EQ(pr.CountOf('C'), 2);
  }
}

TEST_F(ReadMap, WithoutIndexNothingIsCheckedAgainstIt) {
  ShpImage img = ShpBuilder(3)
                     .Record(PolyContent(3, {0}, {{0, 0, 0}, {1, 1, 0}}))
                     .Record(PolyContent(3, {0}, {{2, 2, 0}, {3, 3, 0}}))
                     .Build();
  Reader rd;
  ASSERT_EQ(ReadImage(img, rd, nullptr, false), 1) << messages;
  EXPECT_EQ(index_flag, 0);
  EXPECT_EQ(rd.lines.size(), 2u);
  // Even a header length that an index would contradict.
  PutBE32(img.shp, 24, GetBE32(img.shp, 24) + 40);
  Reader rd2;
  ASSERT_EQ(ReadImage(img, rd2, nullptr, false), 1) << messages;
  EXPECT_EQ(rd2.lines.size(), 2u);
}

ShpImage ThreeLines() {
  return ShpBuilder(3)
      .Record(PolyContent(3, {0}, {{0, 0, 0}, {1, 1, 0}}))
      .Record(PolyContent(3, {0}, {{2, 2, 0}, {3, 3, 0}, {4, 2, 0}}))
      .Record(PolyContent(3, {0}, {{5, 5, 0}, {6, 6, 0}}))
      .Build();
}

// What reading holds the two files and the records' types to: the result,
// the message (none when the map is accepted) and the lines delivered
// before a refusal, which stay delivered.
TEST_F(ReadMap, FilesOrTypesThatDisagree) {
  const auto three = [](const std::function<void(ShpImage&)>& damage) {
    ShpImage img = ThreeLines();
    damage(img);
    return img;
  };
  const auto length = [&](int words) {
    return three([=](ShpImage& m) { PutBE32(m.shp, 24, GetBE32(m.shp, 24) + words); });
  };
  const auto line = [](int type, double at) { return PolyContent(type, {0}, {{at, at, 0}, {at + 1, at + 1, 0}}); };
  const std::string kType = "ShapeType Error reading SHP file.";
  const std::string kHeaders = "Error: headers are not identical between SHP and SHX";
  const std::string kSize = "Error: FileSize error in the SHP - SHX header.";
  const struct {
    const char* name;
    ShpImage img;
    int result;
    std::string message;
    size_t lines;
  } cases[] = {
      {"header type 0 takes the first record's", ShpBuilder(0).Record(line(3, 0)).Record(line(3, 2)).Build(), 1, "", 2},
      {"header type 0, then another", ShpBuilder(0).Record(line(3, 0)).Record(line(5, 2)).Build(), 0, kType, 1},
      {"record type other than the file's", ShpBuilder(5).Record(line(3, 0)).Build(), 0, kType, 0},
      {"index shape type differs", three([](ShpImage& m) { m.shx[32] = 5; }), 0, kHeaders, 0},
      {"index unused word differs", three([](ShpImage& m) { m.shx[7] = 1; }), 0, kHeaders, 0},
      {"index box and M range differ: not compared",
       three([](ShpImage& m) {
         PutF64(m.shx, 36, 123.0);
         PutF64(m.shx, 84, 1.0);
       }),
       1, "", 3},
      // The main file's length may be off the end of the last indexed
      // record by up to four words.
      {"length 5 words short", length(-5), 0, kSize, 0},
      {"length 4 words short", length(-4), 1, "", 3},
      {"length 4 words long", length(4), 1, "", 3},
      {"length 5 words long", length(5), 0, kSize, 0},
      {"length 40 words long", length(40), 0, kSize, 0},
      {"index length of record 2 differs",
       three([](ShpImage& m) { PutBE32(m.shx, ShpImage::IndexPos(2) + 4, GetBE32(m.shx, ShpImage::IndexPos(2) + 4) + 2); }),
       0, "Error 1 in SHP-SHX relation in shape #1", 1},
      {"index offset of record 1 differs", three([](ShpImage& m) { PutBE32(m.shx, ShpImage::IndexPos(1), 52); }), 0,
       "Error 1 in SHP-SHX relation in shape #0", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Reader rd;
    EXPECT_EQ(ReadImage(c.img, rd), c.result);
    EXPECT_EQ(messages, c.message);
    EXPECT_EQ(rd.lines.size(), c.lines);
  }
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
    ASSERT_EQ(ReadImage(img, rd), 1) << messages;
    std::vector<int> ids;
    for (const GotLine& l : rd.lines) ids.push_back(l.Id());
    EXPECT_EQ(ids, c.ids);
  }
}

TEST_F(ReadMap, ProgressCountsBytesAndAsksForCancellationPerRecord) {
  const ShpImage img = ThreeLines();
  Reader rd;
  Progress pr;
  ASSERT_EQ(ReadImage(img, rd, &pr), 1) << messages;
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
  ASSERT_EQ(ReadImage(ShpBuilder(3).Build(), rd2, &empty), 1) << messages;
  ASSERT_EQ(empty.calls.size(), 1u);
  EXPECT_EQ(empty.calls[0].what, 'T');
  EXPECT_EQ(empty.calls[0].value, 0);
}

TEST_F(ReadMap, ExceptionFromALineIsSwallowedAndReadingGoesOn) {
  Reader rd;
  rd.throw_at_line_id = 2;
  ASSERT_EQ(ReadImage(ThreeLines(), rd), 1) << messages;
  ASSERT_EQ(rd.lines.size(), 3u);
  EXPECT_TRUE(rd.lines[1].points.empty());
  EXPECT_EQ(rd.lines[2].points.size(), 2u);

  Reader rd2;
  rd2.throw_at_point_call = 3;  // the first point of the second line
  ASSERT_EQ(ReadImage(ThreeLines(), rd2), 1) << messages;
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
