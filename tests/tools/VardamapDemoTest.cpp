// The demo and the SVG pictures: well-formed XML with one element per
// delivered shape, and a picture that an SVG renderer accepts.
#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <nlohmann/json.hpp>

#include "ToolRunner.h"

using namespace vmtest;

namespace {

// A small XML checker: tags nest and close, attributes are quoted and not
// repeated, text holds no stray markup. Counts the elements carrying a
// data-id attribute (one per drawn shape).
bool WellFormed(const std::string& xml, std::string* why, int* shape_elements) {
  std::vector<std::string> open;
  *shape_elements = 0;
  size_t i = 0;
  auto fail = [&](const std::string& w) {
    *why = w + " at byte " + std::to_string(i);
    return false;
  };
  if (xml.compare(0, 5, "<?xml") == 0) i = xml.find("?>") + 2;
  bool root_seen = false;
  while (i < xml.size()) {
    if (xml[i] != '<') {
      if (xml[i] == '&') {
        size_t semi = xml.find(';', i);
        std::string ent = xml.substr(i, semi == std::string::npos ? 0 : semi - i + 1);
        if (ent != "&amp;" && ent != "&lt;" && ent != "&gt;" && ent != "&quot;" && ent != "&apos;")
          return fail("bad entity");
      } else if (open.empty() && !std::isspace(static_cast<unsigned char>(xml[i]))) {
        return fail("text outside the root");
      }
      ++i;
      continue;
    }
    size_t end = xml.find('>', i);
    if (end == std::string::npos) return fail("unclosed tag");
    std::string tag = xml.substr(i + 1, end - i - 1);
    if (!tag.empty() && tag[0] == '/') {
      if (open.empty() || open.back() != tag.substr(1)) return fail("mismatched </" + tag.substr(1) + ">");
      open.pop_back();
      i = end + 1;
      continue;
    }
    bool self_closing = !tag.empty() && tag.back() == '/';
    if (self_closing) tag.pop_back();
    size_t p = 0;
    while (p < tag.size() && !std::isspace(static_cast<unsigned char>(tag[p]))) ++p;
    const std::string name = tag.substr(0, p);
    if (name.empty()) return fail("empty tag name");
    if (open.empty() && root_seen) return fail("second root element");
    root_seen = true;
    std::map<std::string, std::string> attrs;
    while (p < tag.size()) {
      while (p < tag.size() && std::isspace(static_cast<unsigned char>(tag[p]))) ++p;
      if (p >= tag.size()) break;
      size_t eq = tag.find('=', p);
      if (eq == std::string::npos || eq + 1 >= tag.size() || tag[eq + 1] != '"')
        return fail("unquoted attribute in <" + name + ">");
      size_t close = tag.find('"', eq + 2);
      if (close == std::string::npos) return fail("unterminated attribute");
      std::string key = tag.substr(p, eq - p);
      std::string value = tag.substr(eq + 2, close - eq - 2);
      if (value.find('<') != std::string::npos) return fail("'<' in an attribute");
      if (!attrs.emplace(key, value).second) return fail("repeated attribute " + key);
      p = close + 1;
    }
    if (attrs.count("data-id")) ++*shape_elements;
    if (!self_closing) open.push_back(name);
    i = end + 1;
  }
  if (!open.empty()) return fail("<" + open.back() + "> never closed");
  return root_seen || fail("no root element");
}

void ExpectValidSvg(const std::string& path, int expected_shapes) {
  const std::string svg = ReadFile(path);
  std::string why;
  int shapes = 0;
  ASSERT_TRUE(WellFormed(svg, &why, &shapes)) << why;
  EXPECT_EQ(shapes, expected_shapes);
  EXPECT_NE(svg.find("<svg xmlns=\"http://www.w3.org/2000/svg\""), std::string::npos);
  if (HaveProgram("xmllint")) {
    EXPECT_EQ(std::system(("xmllint --noout '" + path + "'").c_str()), 0);
  }
}

const char* const kDemoMaps[] = {"areas.shp", "roads.shp", "trail_z.shp", "places.shp"};

}  // namespace

TEST(VardamapDemo, MakesFourMapsAndOneSvgElementPerShape) {
  TempDir dir;
  const std::string where = dir / "nested/demo";  // folders are made as needed
  Result r = Vardamap({"demo", where});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find(where + "/demo.svg"), std::string::npos) << r.out;

  int delivered = 0;
  for (const char* m : kDemoMaps) {
    Result d = Vardamap({"dump", where + "/" + m});
    ASSERT_EQ(d.code, 0) << m << ": " << d.err;
    delivered += static_cast<int>(ParseDump(d.out).size());
    EXPECT_EQ(Vardamap({"check", where + "/" + m}).code, 0) << m;
  }
  EXPECT_EQ(delivered, 12);
  ExpectValidSvg(where + "/demo.svg", delivered);

  // Run again over its own output: the maps are made afresh, not extended.
  Result again = Vardamap({"demo", where});
  ASSERT_EQ(again.code, 0) << again.err;
  EXPECT_EQ(ParseDump(Vardamap({"dump", where + "/roads.shp"}).out).size(), 4u);
}

TEST(VardamapDemo, MapsHoldTheirKindsHolesAndHeights) {
  TempDir dir;
  ASSERT_EQ(Vardamap({"demo", dir.path()}).code, 0);

  Result info = Vardamap({"info", dir / "trail_z.shp"});
  ASSERT_EQ(info.code, 0) << info.err;
  EXPECT_NE(info.out.find("13 PolyLineZ"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("z range       121.5 to 184.5"), std::string::npos) << info.out;
  EXPECT_NE(Vardamap({"info", dir / "places.shp"}).out.find("1 Point"), std::string::npos);

  std::vector<DumpShape> trail = ParseDump(Vardamap({"dump", dir / "trail_z.shp"}).out);
  ASSERT_EQ(trail.size(), 1u);
  EXPECT_TRUE(trail[0].z);
  ASSERT_EQ(trail[0].points.size(), 6u);
  EXPECT_EQ(trail[0].points[5][2], 184.5);

  // The lake and the park each come back as a polygon with one hole.
  Result gj = Vardamap({"dump", dir / "areas.shp", "--format", "geojson"});
  ASSERT_EQ(gj.code, 0) << gj.err;
  nlohmann::json doc = nlohmann::json::parse(gj.out);
  ASSERT_EQ(doc["features"].size(), 2u);
  for (const auto& f : doc["features"]) {
    EXPECT_EQ(f["geometry"]["type"], "Polygon");
    EXPECT_EQ(f["geometry"]["coordinates"].size(), 2u);
  }
}

TEST(VardamapDemo, PictureConvertsToPng) {
  if (!HaveProgram("rsvg-convert")) GTEST_SKIP() << "rsvg-convert (librsvg2-bin) is not installed";
  TempDir dir;
  ASSERT_EQ(Vardamap({"demo", dir.path()}).code, 0);
  const std::string png = dir / "demo.png";
  ASSERT_EQ(std::system(("rsvg-convert '" + (dir / "demo.svg") + "' -o '" + png + "'").c_str()), 0);
  const std::string bytes = ReadFile(png);
  ASSERT_GT(bytes.size(), 1000u);
  EXPECT_EQ(bytes.substr(1, 3), "PNG");
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
  Result nowhere = Vardamap({"render", dir / "roads.shp", "-o", dir / "no/such/folder/x.svg"});
  EXPECT_EQ(nowhere.code, 1);
  EXPECT_NE(nowhere.err.find("cannot write"), std::string::npos) << nowhere.err;
  EXPECT_EQ(CountLines(nowhere.err), 1);
}
