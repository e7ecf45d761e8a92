// The demo and the SVG pictures: well-formed XML with one element per
// delivered shape.
#include <gtest/gtest.h>

#include <cstdlib>

#include "ToolRunner.h"

using namespace vmtest;

namespace {

// The picture is the XML of an SVG, with one element carrying a data-id per
// drawn shape; xmllint (installed by CI) judges that it is well formed.
void ExpectValidSvg(const std::string& path, int expected_shapes) {
  const std::string svg = ReadFile(path);
  EXPECT_NE(svg.find("<svg xmlns=\"http://www.w3.org/2000/svg\""), std::string::npos);
  if (!HaveProgram("xmllint")) {
    EXPECT_EQ(Count(svg, " data-id=\""), static_cast<size_t>(expected_shapes));
    return;
  }
  Result r = RunProgram({"xmllint", "--xpath", "count(//*[@data-id])", path});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(std::atoi(r.out.c_str()), expected_shapes) << r.out;
}

}  // namespace

// One demo run: four maps the plug-in accepts, with their kinds, holes and
// heights, and a picture of their shapes that an SVG renderer accepts.
TEST(VardamapDemo, MakesFourMapsAndAPictureOfTheirShapes) {
  TempDir dir;
  const std::string where = dir / "nested/demo";  // folders are made as needed
  Result r = Vardamap({"demo", where});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find(where + "/demo.svg"), std::string::npos) << r.out;
  int delivered = 0;
  for (const char* m : {"areas.shp", "roads.shp", "trail_z.shp", "places.shp"}) {
    Result d = Vardamap({"dump", where + "/" + m});
    ASSERT_EQ(d.code, 0) << m << ": " << d.err;
    delivered += static_cast<int>(ParseDump(d.out).size());
    EXPECT_EQ(Vardamap({"check", where + "/" + m}).code, 0) << m;
  }
  EXPECT_EQ(delivered, 12);
  ExpectValidSvg(where + "/demo.svg", delivered);
  if (HaveProgram("rsvg-convert")) {
    ASSERT_EQ(RunProgram({"rsvg-convert", where + "/demo.svg", "-o", dir / "demo.png"}).code, 0);
    EXPECT_EQ(ReadFile(dir / "demo.png").substr(1, 3), "PNG");
  }

  Result info = Vardamap({"info", where + "/trail_z.shp"});
  EXPECT_NE(info.out.find("13 PolyLineZ"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("z range       121.5 to 184.5"), std::string::npos) << info.out;
  EXPECT_NE(Vardamap({"info", where + "/places.shp"}).out.find("1 Point"), std::string::npos);
  // The lake and the park each come back as a polygon with one hole.
  const nlohmann::json doc = nlohmann::json::parse(Vardamap({"dump", where + "/areas.shp", "--format", "geojson"}).out);
  ASSERT_EQ(doc["features"].size(), 2u);
  for (const auto& f : doc["features"]) {
    EXPECT_EQ(f["geometry"]["type"], "Polygon");
    EXPECT_EQ(f["geometry"]["coordinates"].size(), 2u);
  }

  // Run again over its own output: the maps are made afresh, not extended.
  ASSERT_EQ(Vardamap({"demo", where}).code, 0);
  EXPECT_EQ(ParseDump(Vardamap({"dump", where + "/roads.shp"}).out).size(), 4u);
}

TEST(VardamapRender, DrawsCorpusMapsTogether) {
  if (!HaveCorpus()) GTEST_SKIP() << "no sample maps in " << CorpusDir();
  TempDir dir;
  const std::string states = CorpusDir() + "/mexico_states.shp";
  const std::string cities = CorpusDir() + "/mexico_cities.shp";
  Result r = Vardamap({"render", states, cities, "-o", dir / "mexico.svg", "--size", "300"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, dir / "mexico.svg" + ": 68 shapes drawn\n");
  ExpectValidSvg(dir / "mexico.svg", 68);
}

TEST(VardamapRender, RefusesBadSizesAndUnwritableOutput) {
  TempDir dir;
  ASSERT_EQ(Vardamap({"demo", dir.path()}).code, 0);
  Result small = Vardamap({"render", dir / "roads.shp", "-o", dir / "x.svg", "--size", "3"});
  EXPECT_EQ(small.code, 2);
  EXPECT_EQ(Vardamap({"render", dir / "roads.shp"}).code, 2);  // no -o
  ExpectOneLineError(Vardamap({"render", dir / "roads.shp", "-o", dir / "no/such/folder/x.svg"}), 1, "cannot write");
}
