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

std::vector<std::vector<XYZ>> PointsOf(const std::vector<ToolShape>& shapes) {
  std::vector<std::vector<XYZ>> v;
  for (const ToolShape& s : shapes) v.push_back(s.pts);
  return v;
}

// Reads `path` with the module itself and every available tool and compares
// with `shapes`: all their points in order, Z where `with_z`; of a point
// shape only its first point. The module and pyshp give the exact values
// (with Z only for lines with Z), the tools 15 digits.
void ExpectToolsAgree(const std::string& path, const std::vector<Shape>& shapes, bool with_z,
                      bool points) {
  const auto compare = [&](const std::string& who, const std::vector<std::vector<XYZ>>& got,
                           bool exact, const std::string& out) {
    EXPECT_EQ(got.size(), shapes.size()) << who << out;
    for (size_t i = 0; i < shapes.size() && i < got.size(); i++) {
      std::vector<XYZ> want = points ? std::vector<XYZ>{shapes[i].pts[0]} : shapes[i].pts;
      if (exact && (!with_z || points))
        for (XYZ& p : want) p.z = 0;
      EXPECT_TRUE(exact ? SameXYZ(got[i], want) : NearXYZ(got[i], want, with_z))
          << who << ", shape " << i << ": " << Show(got[i]);
    }
  };
  {
    MapSession s(path);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    std::vector<std::vector<XYZ>> got;
    for (const GotLine& l : s.reader.lines) got.push_back(CoordsOf(l));
    compare("module", got, true, "");
  }
  if (!PythonWithPyshp().empty()) {
    std::string problem;
    std::vector<ToolShape> got = PyshpShapes(path, &problem);
    EXPECT_TRUE(problem.empty()) << problem;
    for (size_t i = 0; i < got.size(); i++) EXPECT_EQ(got[i].id, static_cast<int>(i + 1));
    compare("pyshp", PointsOf(got), true, "");
  }
  for (const std::string tool : {"shpdump", "ogrinfo"}) {
    if (!HaveTool(tool)) continue;
    const bool ogr = tool == "ogrinfo";
    CommandResult r = RunCommand(tool + (ogr ? " -al " : " ") + Quote(path));
    EXPECT_EQ(r.status, 0) << tool;
    EXPECT_EQ(r.err, "") << tool;
    if (ogr) {
      EXPECT_NE(r.out.find("Feature Count: " + std::to_string(shapes.size())), std::string::npos) << r.out;
    }
    compare(tool, PointsOf(ogr ? ParseOgrinfo(r.out) : ParseShpdump(r.out)), false, ":\n" + r.out);
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
  const struct {
    const char* name;
    std::vector<Shape> shapes;
    bool with_z, points;
  } cases[] = {
      {"lines", LineShapes(), false, false},
      {"lines with Z", {{0, {{1, 1, 5}, {2, 3, 7.5}, {4, 2, 3}}}, {0, {{0, 0, 10}, {1, 0, 2.5}}}}, true, false},
      // Clockwise outer rings, as the format wants them.
      {"areas",
       {{1, {{0, 0, 0}, {0, 4, 0}, {4, 4, 0}, {4, 0, 0}, {0, 0, 0}}},
        {1, {{10, 10, 0}, {10, 12, 0}, {13, 11, 0}, {10, 10, 0}}}},
       false, false},
      {"areas with Z", {{1, {{0, 0, 3}, {0, 4, 4}, {4, 4, 5}, {4, 0, 6}, {0, 0, 3}}}}, true, false},
      {"points", {{3, {{1.25, 2.5, 0}}}, {3, {{-3, 7, 0}}}, {3, {{0.5, 0.5, 0}}}}, false, true},
      {"points with Z", {{3, {{1.25, 2.5, 8}}}, {3, {{-3, 7, 9}}}}, true, true},
  };
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string p = Create(dir / ("created" + std::to_string(n++) + ".shp"), c.shapes);
    ExpectToolsAgree(p, c.shapes, c.with_z, c.points);
  }
}

// Another program's map (without an end mark) and one the module created
// (with it), changed by the module after they were closed.
TEST_F(Interop, ChangedMapsReadBackEverywhere) {
  const std::vector<Shape> base = LineShapes();
  const std::vector<XYZ> longer = {{5, 5, 0}, {6, 7, 0}, {7, 5, 0}, {8, 7, 0}, {9, 5, 0}};
  const std::vector<XYZ> shorter = {{20, 20, 0}, {21, 21, 0}};
  const std::vector<XYZ> more = {{30, 30, 0}, {31, 32, 0}, {33, 30, 0}};
  const auto with = [&](std::initializer_list<Shape> added) {
    std::vector<Shape> v = base;
    v.insert(v.end(), added);
    return v;
  };
  struct Edit {
    int id;
    std::vector<XYZ> pts;  // none: the record is deleted
  };
  const struct {
    const char* name;
    bool created;
    std::vector<Edit> edits;
    std::vector<Shape> want;
  } cases[] = {
      {"replaced", false, {{2, longer}, {1, shorter}, {4, more}}, {{0, shorter}, {0, longer}, base[2], {0, more}}},
      {"appended", false, {{0, more}, {0, shorter}}, with({{0, more}, {0, shorter}})},
      {"deleted, the last one too", false, {{2, {}}, {3, {}}}, {base[0], base[2]}},
      {"created, then appended", true, {{0, more}}, with({{0, more}})},
      {"created, then replaced and deleted", true, {{4, more}, {1, {}}}, {base[1], base[2], {0, more}}},
  };
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string stem = "changed" + std::to_string(n++), p = dir / (stem + ".shp");
    if (c.created) {
      Create(p, base);
    } else {
      ShpBuilder b(3);
      for (const Shape& sh : base)
        b.Record(PolyContent(3, sh.pts.size() == 8 ? std::vector<int>{0, 4} : std::vector<int>{0}, sh.pts));
      PutMap(dir, stem, b.Build());
    }
    {
      MapSession s(p);
      ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
      for (const Edit& e : c.edits)
        ASSERT_EQ(e.pts.empty() ? s.Delete(e.id) : s.Add(0, e.pts, e.id), 1) << s.sink.All();
    }
    ExpectToolsAgree(p, c.want, false, false);
  }
}

}  // namespace
}  // namespace shptest
