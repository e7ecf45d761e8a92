// The module against independent shapefile readers: real sample maps read
// by both must give the same coordinates, and maps the module writes must
// read back the same in pyshp, shpdump and ogrinfo without complaint.
#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "support/HostMap.h"
#include "support/ShpBuilder.h"
#include "support/ShpTools.h"

namespace shptest {
namespace {

class Interop : public PlugInTest {};

std::vector<std::string> CorpusMaps() {
  std::vector<std::string> maps;
  DIR* d = opendir(VARDA_CORPUS_DIR);
  if (!d) return maps;
  while (dirent* e = readdir(d)) {
    std::string n = e->d_name;
    if (n.size() > 4 && n.compare(n.size() - 4, 4, ".shp") == 0)
      maps.push_back(std::string(VARDA_CORPUS_DIR) + "/" + n);
  }
  closedir(d);
  std::sort(maps.begin(), maps.end());
  return maps;
}

// What pyshp finds in `path`, by the module's delivery rules; `verdict`
// receives "OK" or "FAIL <n> <message>" by the module's consistency rules.
std::vector<ToolShape> PyshpShapes(const std::string& path, std::string* problem,
                                   std::string* verdict = nullptr) {
  CommandResult r = RunCommand(PythonWithPyshp() + " " + Quote(HelperScript()) + " " + Quote(path));
  if (r.status != 0 || !r.err.empty()) *problem = "pyshp helper failed: " + r.err;
  size_t eol = r.out.find('\n');
  std::string second = eol == std::string::npos ? "" : r.out.substr(eol + 1);
  second = second.substr(0, second.find('\n'));
  if (verdict) *verdict = second;
  if (second != "OK" && second.rfind("FAIL ", 0) != 0) *problem = "no verdict in: " + r.out;
  return ParseHelper(r.out);
}

// Compares what the module delivered with what pyshp found, shape by shape.
void ExpectSameDelivery(const std::vector<GotLine>& got, const std::vector<ToolShape>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < got.size(); i++) {
    SCOPED_TRACE("shape " + std::to_string(i));
    EXPECT_EQ(got[i].Id(), want[i].id);
    EXPECT_EQ(got[i].Flags(), want[i].flags);
    EXPECT_EQ(got[i].Count(), want[i].count);
    std::vector<XYZ> c = CoordsOf(got[i]);
    ASSERT_TRUE(SameXYZ(c, want[i].pts)) << "module: " << Show(c) << "\npyshp: " << Show(want[i].pts);
  }
}

TEST_F(Interop, SampleMapsReadLikePyshpReadsThem) {
  std::vector<std::string> maps = CorpusMaps();
  if (maps.empty()) GTEST_SKIP() << "no sample maps in " << VARDA_CORPUS_DIR;
  if (PythonWithPyshp().empty()) GTEST_SKIP() << "no python3 with pyshp";
  for (const std::string& m : maps) {
    SCOPED_TRACE(m);
    std::string problem, verdict;
    std::vector<ToolShape> want = PyshpShapes(m, &problem, &verdict);
    ASSERT_TRUE(problem.empty()) << problem;
    MapSession s(m);
    ASSERT_EQ(s.Open(), 1) << s.sink.All();
    EXPECT_EQ(s.map.IndexFlag(), 1);
    Progress pr;
    if (verdict == "OK") {
      ASSERT_EQ(s.Read(s.reader, &pr), 1) << s.sink.All();
      EXPECT_TRUE(s.sink.messages.empty()) << s.sink.All();
    } else {
      // A sample whose two files disagree: refused where the rules say, with
      // the shapes before that point delivered.
      int before = 0;
      char message[200] = "";
      ASSERT_EQ(std::sscanf(verdict.c_str(), "FAIL %d %199[^\n]", &before, message), 2) << verdict;
      EXPECT_EQ(s.Read(s.reader, &pr), 0);
      EXPECT_EQ(s.sink.All(), message);
      want.resize(std::min(want.size(), static_cast<size_t>(before)));
    }
    ExpectSameDelivery(s.reader.lines, want);
  }
}

// One shape the module is given, and what every reader must find of it.
struct Shape {
  int kind;
  std::vector<XYZ> pts;
};

// Reads `path` with every available tool and the module itself and compares
// with `shapes` (all points in order, Z where `with_z`).
void ExpectToolsAgree(const std::string& path, const std::vector<Shape>& shapes, bool with_z,
                      bool points) {
  // The module itself.
  {
    MapSession s(path);
    ASSERT_EQ(s.Open(), 1) << s.sink.All();
    ASSERT_EQ(s.Read(), 1) << s.sink.All();
    EXPECT_EQ(s.reader.lines.size(), shapes.size()) << "module";
    for (size_t i = 0; i < shapes.size() && i < s.reader.lines.size(); i++) {
      std::vector<XYZ> want = points ? std::vector<XYZ>{shapes[i].pts[0]} : shapes[i].pts;
      for (XYZ& p : want)
        if (!with_z || points) p.z = 0;
      EXPECT_TRUE(SameXYZ(CoordsOf(s.reader.lines[i]), want))
          << "module, shape " << i << ": " << Show(CoordsOf(s.reader.lines[i]));
    }
  }
  if (!PythonWithPyshp().empty()) {
    std::string problem;
    std::vector<ToolShape> got = PyshpShapes(path, &problem);
    EXPECT_TRUE(problem.empty()) << problem;
    EXPECT_EQ(got.size(), shapes.size()) << "pyshp";
    for (size_t i = 0; i < shapes.size() && i < got.size(); i++) {
      std::vector<XYZ> want = points ? std::vector<XYZ>{shapes[i].pts[0]} : shapes[i].pts;
      for (XYZ& p : want)
        if (!with_z || points) p.z = 0;
      EXPECT_TRUE(SameXYZ(got[i].pts, want)) << "pyshp, shape " << i << ": " << Show(got[i].pts);
      EXPECT_EQ(got[i].id, static_cast<int>(i + 1));
    }
  }
  if (HaveTool("shpdump")) {
    CommandResult r = RunCommand("shpdump " + Quote(path));
    EXPECT_EQ(r.status, 0) << "shpdump";
    EXPECT_EQ(r.err, "") << "shpdump";
    std::vector<ToolShape> got = ParseShpdump(r.out);
    EXPECT_EQ(got.size(), shapes.size()) << "shpdump:\n" << r.out;
    for (size_t i = 0; i < shapes.size() && i < got.size(); i++) {
      std::vector<XYZ> want = points ? std::vector<XYZ>{shapes[i].pts[0]} : shapes[i].pts;
      EXPECT_TRUE(NearXYZ(got[i].pts, want, with_z)) << "shpdump, shape " << i << ": "
                                                     << Show(got[i].pts);
    }
  }
  if (HaveTool("ogrinfo")) {
    CommandResult r = RunCommand("ogrinfo -al " + Quote(path));
    EXPECT_EQ(r.status, 0) << "ogrinfo";
    EXPECT_EQ(r.err, "") << "ogrinfo";
    EXPECT_NE(r.out.find("Feature Count: " + std::to_string(shapes.size())), std::string::npos)
        << r.out;
    std::vector<ToolShape> got = ParseOgrinfo(r.out);
    EXPECT_EQ(got.size(), shapes.size()) << "ogrinfo:\n" << r.out;
    for (size_t i = 0; i < shapes.size() && i < got.size(); i++) {
      std::vector<XYZ> want = points ? std::vector<XYZ>{shapes[i].pts[0]} : shapes[i].pts;
      EXPECT_TRUE(NearXYZ(got[i].pts, want, with_z)) << "ogrinfo, shape " << i << ": "
                                                     << Show(got[i].pts);
    }
  }
}

std::string Create(const std::string& path, const std::vector<Shape>& shapes) {
  MapSession s(path, true);
  EXPECT_EQ(s.Open(), 1) << s.sink.All();
  for (const Shape& sh : shapes) EXPECT_EQ(s.Add(sh.kind, sh.pts), 1) << s.sink.All();
  return path;
}

const XYZ A{1.5, 2.25, 0}, B{3, 2.5, 0}, C{2, 4.75, 0}, D{10, 10, 0}, E{12, 10, 0},
    F{11, 13.5, 0};

std::vector<Shape> LineShapes() {
  return {{0, {A, B, C}},
          {0, {A, B, C, A, D, E, F, D}},  // two parts
          {0, {{-100.125, 45.5, 0}, {-99.75, 46, 0}}},
          {0, {D, E}}};
}

TEST_F(Interop, CreatedMapsReadBackEverywhere) {
  {
    SCOPED_TRACE("lines");
    std::vector<Shape> shapes = LineShapes();
    ExpectToolsAgree(Create(dir / "lines.shp", shapes), shapes, false, false);
  }
  {
    SCOPED_TRACE("lines with Z");
    std::vector<Shape> shapes = {{0, {{1, 1, 5}, {2, 3, 7.5}, {4, 2, 3}}},
                                 {0, {{0, 0, 10}, {1, 0, 2.5}}}};
    ExpectToolsAgree(Create(dir / "linesz.shp", shapes), shapes, true, false);
  }
  {
    SCOPED_TRACE("areas");
    // Clockwise outer rings, as the format wants them.
    std::vector<Shape> shapes = {{1, {{0, 0, 0}, {0, 4, 0}, {4, 4, 0}, {4, 0, 0}, {0, 0, 0}}},
                                 {1, {{10, 10, 0}, {10, 12, 0}, {13, 11, 0}, {10, 10, 0}}}};
    ExpectToolsAgree(Create(dir / "areas.shp", shapes), shapes, false, false);
  }
  {
    SCOPED_TRACE("areas with Z");
    std::vector<Shape> shapes = {{1, {{0, 0, 3}, {0, 4, 4}, {4, 4, 5}, {4, 0, 6}, {0, 0, 3}}}};
    ExpectToolsAgree(Create(dir / "areasz.shp", shapes), shapes, true, false);
  }
  {
    SCOPED_TRACE("points");
    std::vector<Shape> shapes = {{3, {{1.25, 2.5, 0}}}, {3, {{-3, 7, 0}}}, {3, {{0.5, 0.5, 0}}}};
    ExpectToolsAgree(Create(dir / "points.shp", shapes), shapes, false, true);
  }
  {
    SCOPED_TRACE("points with Z");
    std::vector<Shape> shapes = {{3, {{1.25, 2.5, 8}}}, {3, {{-3, 7, 9}}}};
    ExpectToolsAgree(Create(dir / "pointsz.shp", shapes), shapes, true, true);
  }
}

TEST_F(Interop, ChangedMapsReadBackEverywhere) {
  const std::vector<Shape> base = LineShapes();
  const std::vector<XYZ> longer = {{5, 5, 0}, {6, 7, 0}, {7, 5, 0}, {8, 7, 0}, {9, 5, 0}};
  const std::vector<XYZ> shorter = {{20, 20, 0}, {21, 21, 0}};
  const std::vector<XYZ> more = {{30, 30, 0}, {31, 32, 0}, {33, 30, 0}};

  // Another program's map, changed by the module.
  auto start = [&](const std::string& name) {
    ShpBuilder b(3);
    for (const Shape& sh : base) {
      std::vector<int> parts = {0};
      if (sh.pts.size() == 8) parts = {0, 4};
      b.Record(PolyContent(3, parts, sh.pts));
    }
    return PutMap(dir, name, b.Build());
  };

  {
    SCOPED_TRACE("replaced");
    const std::string p = start("replaced");
    {
      MapSession s(p);
      ASSERT_EQ(s.Open(), 1);
      ASSERT_EQ(s.Read(), 1);
      ASSERT_EQ(s.Add(0, longer, 2), 1) << s.sink.All();
      ASSERT_EQ(s.Add(0, shorter, 1), 1) << s.sink.All();
      ASSERT_EQ(s.Add(0, more, 4), 1) << s.sink.All();
    }
    std::vector<Shape> want = {{0, shorter}, {0, longer}, base[2], {0, more}};
    ExpectToolsAgree(p, want, false, false);
  }
  {
    SCOPED_TRACE("appended");
    const std::string p = start("appended");
    {
      MapSession s(p);
      ASSERT_EQ(s.Open(), 1);
      ASSERT_EQ(s.Read(), 1);
      ASSERT_EQ(s.Add(0, more, 0), 1) << s.sink.All();
      ASSERT_EQ(s.Add(0, shorter, 0), 1) << s.sink.All();
    }
    std::vector<Shape> want = base;
    want.push_back({0, more});
    want.push_back({0, shorter});
    ExpectToolsAgree(p, want, false, false);
  }
  {
    SCOPED_TRACE("deleted");
    const std::string p = start("deleted");
    {
      MapSession s(p);
      ASSERT_EQ(s.Open(), 1);
      ASSERT_EQ(s.Read(), 1);
      ASSERT_EQ(s.Delete(2), 1) << s.sink.All();
      ASSERT_EQ(s.Delete(3), 1) << s.sink.All();  // the last one
    }
    ExpectToolsAgree(p, {base[0], base[2]}, false, false);
  }
}

// A map the module created, changed again after it was closed and reopened.
TEST_F(Interop, CreatedThenChangedMapsReadBackEverywhere) {
  const std::vector<Shape> base = LineShapes();
  const std::vector<XYZ> more = {{30, 30, 0}, {31, 32, 0}, {33, 30, 0}};
  {
    SCOPED_TRACE("appended");
    const std::string p = Create(dir / "app.shp", base);
    {
      MapSession s(p);
      ASSERT_EQ(s.Open(), 1);
      ASSERT_EQ(s.Read(), 1);
      ASSERT_EQ(s.Add(0, more, 0), 1) << s.sink.All();
    }
    std::vector<Shape> want = base;
    want.push_back({0, more});
    ExpectToolsAgree(p, want, false, false);
  }
  {
    SCOPED_TRACE("replaced and deleted");
    const std::string p = Create(dir / "rep.shp", base);
    {
      MapSession s(p);
      ASSERT_EQ(s.Open(), 1);
      ASSERT_EQ(s.Read(), 1);
      ASSERT_EQ(s.Add(0, more, 4), 1) << s.sink.All();
      ASSERT_EQ(s.Delete(1), 1) << s.sink.All();
    }
    ExpectToolsAgree(p, {base[1], base[2], {0, more}}, false, false);
  }
}

}  // namespace
}  // namespace shptest
