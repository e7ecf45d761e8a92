// info, dump and check over every sample map: the plug-in's verdict is
// reported the same way by all three, and the GeoJSON export carries
// exactly the coordinates of the text dump.
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "ToolRunner.h"

using namespace vmtest;
using nlohmann::json;
using Coord = std::vector<double>;

TEST(VardamapCorpus, InfoDumpCheckAndGeoJsonAgreeOnEveryMap) {
  if (!HaveCorpus()) GTEST_SKIP() << "no sample maps in " << CorpusDir();
  int accepted = 0;
  for (const std::string& map : CorpusMaps()) {
    SCOPED_TRACE(map);
    Result check = Vardamap({"check", map});
    Result info = Vardamap({"info", map});
    Result dump = Vardamap({"dump", map});
    ASSERT_TRUE(check.code == 0 || check.code == 1) << check.err;
    EXPECT_EQ(info.code, check.code);
    EXPECT_EQ(dump.code, check.code);
    EXPECT_NE(info.out.find("shape type"), std::string::npos);
    if (check.code != 0) {
      // One line naming the map and carrying the plug-in's own message.
      EXPECT_EQ(CountLines(check.err), 1) << check.err;
      EXPECT_EQ(check.err.rfind("vardamap: " + map + ": ", 0), 0u) << check.err;
      const std::string why = check.err.substr(check.err.find(map + ": ") + map.size() + 2);
      EXPECT_NE(info.out.find("refuses the map: " + why.substr(0, why.size() - 1)), std::string::npos)
          << info.out;
      continue;
    }
    ++accepted;
    EXPECT_NE(info.out.find("accepts the map"), std::string::npos) << info.out;
    std::vector<DumpShape> shapes = ParseDump(dump.out);
    EXPECT_NE(check.out.find(", " + std::to_string(shapes.size()) + (shapes.size() == 1 ? " shape" : " shapes")),
              std::string::npos)
        << check.out;

    Result gj = Vardamap({"dump", map, "--format", "geojson"});
    ASSERT_EQ(gj.code, 0) << gj.err;
    json doc = json::parse(gj.out);
    ASSERT_EQ(doc["type"], "FeatureCollection");
    ASSERT_EQ(doc["features"].size(), shapes.size());
    for (size_t i = 0; i < shapes.size(); ++i) {
      const json& f = doc["features"][i];
      const DumpShape& s = shapes[i];
      ASSERT_EQ(f["properties"]["id"], s.id);
      ASSERT_EQ(f["properties"]["kind"], s.kind);
      const std::string type = f["geometry"]["type"];
      if (s.kind == "point") {
        EXPECT_EQ(type, "Point");
      } else if (s.kind == "polygon") {
        EXPECT_TRUE(type == "Polygon" || type == "MultiPolygon") << type;
      } else if (s.points.size() > 1) {
        EXPECT_EQ(type, "LineString");
      }
      std::vector<Coord> coords;
      Flatten(f["geometry"]["coordinates"], coords);
      // Rings may be closed and regrouped by the export, never changed.
      std::set<Coord> from_json(coords.begin(), coords.end());
      std::set<Coord> from_dump(s.points.begin(), s.points.end());
      ASSERT_EQ(from_json, from_dump) << "shape " << s.id;
      ASSERT_GE(coords.size(), s.points.size());
      for (const Coord& c : coords) ASSERT_EQ(c.size(), s.z ? 3u : 2u);
    }
  }
  EXPECT_GT(accepted, 10);
}

TEST(VardamapCorpus, KnownMapsReadAsExpected) {
  if (!HaveCorpus()) GTEST_SKIP() << "no sample maps in " << CorpusDir();
  // A MultiPatch is read and skipped: records but no shapes.
  Result patch = Vardamap({"check", CorpusDir() + "/mpatch3.shp"});
  ASSERT_EQ(patch.code, 0) << patch.err;
  EXPECT_NE(patch.out.find("473 records, 0 shapes"), std::string::npos) << patch.out;
  Result info = Vardamap({"info", CorpusDir() + "/mexico_roads.shp"});
  EXPECT_NE(info.out.find("3 PolyLine"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("index found"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("105 entries"), std::string::npos) << info.out;
}

TEST(VardamapCorpus, MapWithoutIndexIsReadUnchecked) {
  if (!HaveCorpus()) GTEST_SKIP() << "no sample maps in " << CorpusDir();
  TempDir dir;
  CopyFile(CorpusDir() + "/mexico_lakes.shp", dir / "lakes.shp");
  Result info = Vardamap({"info", dir / "lakes.shp"});
  ASSERT_EQ(info.code, 0) << info.err;
  EXPECT_NE(info.out.find(".shx          missing, no index"), std::string::npos) << info.out;
  Result check = Vardamap({"check", dir / "lakes.shp"});
  ASSERT_EQ(check.code, 0) << check.err;
  EXPECT_NE(check.out.find("3 shapes delivered (no index"), std::string::npos) << check.out;
}

TEST(VardamapCorpus, InpointKeepsOnlyLinesWhoseBoxHoldsThePoint) {
  if (!HaveCorpus()) GTEST_SKIP() << "no sample maps in " << CorpusDir();
  const std::string states = CorpusDir() + "/mexico_states.shp";
  std::vector<DumpShape> all = ParseDump(Vardamap({"dump", states}).out);
  Result r = Vardamap({"dump", states, "--inpoint", "-100,20"});
  ASSERT_EQ(r.code, 0) << r.err;
  std::vector<DumpShape> some = ParseDump(r.out);
  ASSERT_FALSE(some.empty());
  EXPECT_LT(some.size(), all.size());
  for (const DumpShape& s : some) {
    double xmin = 1e300, xmax = -1e300, ymin = 1e300, ymax = -1e300;
    for (const auto& p : s.points) {
      xmin = std::min(xmin, p[0]), xmax = std::max(xmax, p[0]);
      ymin = std::min(ymin, p[1]), ymax = std::max(ymax, p[1]);
    }
    EXPECT_TRUE(xmin < -100 && -100 < xmax && ymin < 20 && 20 < ymax) << "shape " << s.id;
  }
  EXPECT_EQ(Vardamap({"dump", states, "--inpoint", "-100"}).code, 2);
  EXPECT_EQ(Vardamap({"dump", states, "--inpoint", "a,b"}).code, 2);
}

TEST(VardamapCorpus, DamagedMapsAreRefusedWithThePlugInsMessage) {
  if (!HaveCorpus()) GTEST_SKIP() << "no sample maps in " << CorpusDir();
  TempDir dir;
  // Cut in the middle of a record: the index promises more than is there.
  const std::string map = CopyCorpusMap("pline", dir);
  std::string bytes = ReadFile(map);
  std::ofstream(map, std::ios::binary | std::ios::trunc) << bytes.substr(0, bytes.size() / 2);
  ExpectOneLineError(Vardamap({"check", map}), 1, map);
  Result info = Vardamap({"info", map});
  EXPECT_EQ(info.code, 1);
  EXPECT_NE(info.out.find("refuses the map"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("3 PolyLine"), std::string::npos) << info.out;

  // Ten bytes are not a shapefile at all.
  const std::string tiny = dir / "tiny.shp";
  std::ofstream(tiny, std::ios::binary) << "0123456789";
  Result t = Vardamap({"info", tiny});
  EXPECT_EQ(t.code, 1);
  EXPECT_NE(t.out.find("shorter than the 100-byte shapefile header"), std::string::npos) << t.out;
  EXPECT_EQ(Vardamap({"check", tiny}).code, 1);
}
