// Maps with attributes and coordinate systems (../shared/corpus-gis): what
// vardamap says and writes agrees with GDAL's own programs on the same map.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <regex>

#include <nlohmann/json.hpp>

#include "ToolRunner.h"

using namespace vmtest;
using nlohmann::json;

namespace {

const char* const kMaps[] = {"nc", "world", "NY8_utm18", "lux"};

class VardamapGis : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!HaveGisCorpus() || !HaveProgram("ogr2ogr") || !VardamapHasGdal())
      GTEST_SKIP() << "needs " << GisCorpusDir() << ", ogr2ogr and a vardamap with GDAL";
  }
};

// Every match of `re` in `text`, its groups joined by a space.
std::vector<std::string> Matches(const std::string& text, const std::string& re) {
  std::vector<std::string> found;
  const std::regex r(re);
  for (std::sregex_iterator m(text.begin(), text.end(), r), end; m != end; ++m)
    found.push_back(m->size() > 2 ? (*m)[1].str() + " " + (*m)[2].str() : (*m)[1].str());
  return found;
}

// A GPX document holding `body`.
std::string Gpx(const std::string& body) {
  return "<?xml version=\"1.0\"?>\n"
         "<gpx version=\"1.1\" creator=\"test\" xmlns=\"http://www.topografix.com/GPX/1/1\">\n" + body + "</gpx>\n";
}

// Same keys in the same order; numbers equal to 12 significant digits (the
// peer prints 15 digits, the tool the shortest exact form).
void ExpectSameProperties(const json& ours, const json& theirs) {
  ASSERT_EQ(ours.size(), theirs.size()) << ours.dump() << "\n" << theirs.dump();
  auto a = ours.begin();
  for (auto b = theirs.begin(); b != theirs.end(); ++a, ++b) {
    ASSERT_EQ(a.key(), b.key());
    if (b->is_number() && a->is_number())
      EXPECT_NEAR(a->get<double>(), b->get<double>(), 1e-12 * std::max(1.0, std::fabs(b->get<double>()))) << b.key();
    else
      EXPECT_EQ(*a, *b) << b.key();
  }
}

// The same points, to 1e-9 degrees, whatever the order of the rings. The
// plug-in delivers a shape's rings as one run of points, so where a ring
// touches its own start or repeats its closing point the tool may cut the
// run otherwise than the file's parts: repeated points are compared once.
void ExpectSameGeometry(const json& ours, const json& theirs) {
  EXPECT_EQ(ours["type"], theirs["type"]);
  std::vector<std::vector<double>> a, b;
  Flatten(ours["coordinates"], a);
  Flatten(theirs["coordinates"], b);
  for (auto* v : {&a, &b}) {
    std::sort(v->begin(), v->end());
    v->erase(std::unique(v->begin(), v->end()), v->end());
  }
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) {
    ASSERT_EQ(a[i].size(), b[i].size());
    for (size_t k = 0; k < a[i].size(); ++k) ASSERT_NEAR(a[i][k], b[i][k], 1e-9) << "point " << i;
  }
}

}  // namespace

TEST_F(VardamapGis, GeoJsonMatchesOgr2ogrInWgs84) {
  for (const char* name : kMaps) {
    SCOPED_TRACE(name);
    const std::string map = GisCorpusDir() + "/" + name + ".shp";
    Result ours = Vardamap({"dump", map, "--format", "geojson"});
    ASSERT_EQ(ours.code, 0) << ours.err;
    EXPECT_TRUE(ours.err.empty()) << ours.err;
    Result theirs = RunProgram({"ogr2ogr", "-f", "GeoJSON", "-t_srs", "EPSG:4326", "/vsistdout/", map});
    ASSERT_EQ(theirs.code, 0) << theirs.err;
    const json a = json::parse(ours.out), b = json::parse(theirs.out);
    ASSERT_EQ(a["features"].size(), b["features"].size());
    for (size_t i = 0; i < a["features"].size(); ++i) {
      SCOPED_TRACE("feature " + std::to_string(i));
      EXPECT_EQ(a["features"][i]["id"], i + 1);
      ExpectSameProperties(a["features"][i]["properties"], b["features"][i]["properties"]);
      ExpectSameGeometry(a["features"][i]["geometry"], b["features"][i]["geometry"]);
    }
  }
}

TEST_F(VardamapGis, InfoNamesTheSystemAndFieldsOgrinfoNames) {
  for (const char* name : kMaps) {
    SCOPED_TRACE(name);
    const std::string map = GisCorpusDir() + "/" + name + ".shp";
    Result info = Vardamap({"info", map});
    ASSERT_EQ(info.code, 0) << info.err;
    Result og = RunProgram({"ogrinfo", "-so", "-al", map});
    ASSERT_EQ(og.code, 0) << og.err;
    // The system by the first name of its WKT, the rows, and the fields
    // ("NAME: String (80.0)" there, "  NAME      String (80.0)" here).
    const std::vector<std::string> crs = Matches(og.out, "Layer SRS WKT:\n[A-Z]+\\[\"([^\"]+)\""),
                                   rows = Matches(og.out, "\nFeature Count: ([0-9]+)");
    ASSERT_EQ(crs.size(), 1u);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_NE(info.out.find("coordinates   " + crs[0]), std::string::npos) << crs[0] << "\n" << info.out;
    EXPECT_NE(info.out.find(", " + rows[0] + " rows in " + name + ".dbf"), std::string::npos) << info.out;
    const std::vector<std::string> fields = Matches(og.out, "\n([A-Za-z0-9_]+): ([A-Za-z0-9]+ \\([0-9.]+\\))");
    ASSERT_FALSE(fields.empty()) << og.out;
    EXPECT_EQ(Matches(info.out, "\n  ([A-Za-z0-9_]+) +([A-Za-z0-9]+ \\([0-9.]+\\))"), fields);
  }
  const std::string nc = GisCorpusDir() + "/nc.shp";
  EXPECT_NE(Vardamap({"info", nc}).out.find("coordinates   NAD27 (EPSG 4267)"), std::string::npos);
}

TEST_F(VardamapGis, MissingShortOrUnreadableCompanionsAreReported) {
  TempDir dir;
  const std::string map = CopyGisMap("NY8_utm18", dir);
  // Without a .prj: "none", and GeoJSON as stored with a warning.
  std::remove((dir / "NY8_utm18.prj").c_str());
  EXPECT_NE(Vardamap({"info", map}).out.find("coordinates   none (no .prj)"), std::string::npos);
  Result stored = Vardamap({"dump", map, "--format", "geojson"});
  ASSERT_EQ(stored.code, 0) << stored.err;
  EXPECT_NE(stored.err.find("warning: " + map + ": no .prj"), std::string::npos) << stored.err;
  std::vector<std::vector<double>> pts;
  Flatten(json::parse(stored.out)["features"][0]["geometry"]["coordinates"], pts);
  EXPECT_GT(pts[0][0], 400000);  // UTM metres, not degrees

  // A .prj that PROJ cannot read: info says so; GeoJSON is refused unless
  // the coordinates are wanted as stored.
  std::ofstream(dir / "NY8_utm18.prj") << "PROJCS[\"broken\",GEOGCS[";
  Result info = Vardamap({"info", map});
  EXPECT_EQ(info.code, 0) << info.err;
  EXPECT_NE(info.out.find("coordinates   unreadable .prj"), std::string::npos) << info.out;
  const std::string out = dir / "out.geojson";
  ExpectOneLineError(Vardamap({"dump", map, "--format", "geojson", "-o", out}), 1, "--keep-crs");
  EXPECT_FALSE(FileExists(out));
  Result kept = Vardamap({"dump", map, "--format", "geojson", "--keep-crs", "-o", out});
  EXPECT_EQ(kept.code, 0) << kept.err;
  EXPECT_EQ(json::parse(ReadFile(out))["features"].size(), 281u);

  // A table one row short: info and dump warn, the rows there are joined.
  TempDir other;
  ASSERT_EQ(RunProgram({"ogr2ogr", "-f", "ESRI Shapefile", other / "short.dbf", map, "-limit", "280", "-nlt", "NONE"}).code, 0);
  CopyFile(other / "short.dbf", dir / "NY8_utm18.dbf");
  Result short_info = Vardamap({"info", map});
  EXPECT_EQ(short_info.code, 0);
  EXPECT_NE(short_info.err.find("has 280 rows but the map has 281 records"), std::string::npos) << short_info.err;
  Result short_dump = Vardamap({"dump", map, "--format", "geojson", "--keep-crs"});
  EXPECT_EQ(short_dump.code, 0);
  EXPECT_NE(short_dump.err.find("280 rows but the map has 281 records"), std::string::npos) << short_dump.err;
  const json doc = json::parse(short_dump.out);
  EXPECT_EQ(doc["features"][279]["properties"]["AREAKEY"], "36109992200");
  EXPECT_TRUE(doc["features"][280]["properties"].is_null());
}

TEST_F(VardamapGis, ExportWritesEveryFormatOgrReadsBack) {
  TempDir dir;
  const std::string map = GisCorpusDir() + "/nc.shp";
  const json dumped = json::parse(Vardamap({"dump", map, "--format", "geojson"}).out);
  struct Case {
    const char* ext;
    const char* layer;  // as ogrinfo lists it
  };
  for (const Case& c : {Case{"geojson", "nc"}, Case{"gpx", "tracks"}, Case{"kml", "nc"}, Case{"gpkg", "nc"},
                        Case{"csv", "nc"}}) {
    SCOPED_TRACE(c.ext);
    const std::string out = dir / (std::string("nc.") + c.ext);
    Result r = Vardamap({"export", map, out});
    ASSERT_EQ(r.code, 0) << r.err;
    Result og = RunProgram({"ogrinfo", "-so", out, c.layer});
    ASSERT_EQ(og.code, 0) << og.err;
    EXPECT_NE(og.out.find("Feature Count: 100"), std::string::npos) << og.out;
    if (std::string(c.ext) != "gpx") {
      EXPECT_NE(og.out.find("FIPS: String"), std::string::npos) << og.out;
    }
  }
  // Through OGR's own GeoJSON back out: the same names and points as dump.
  Result back = RunProgram({"ogr2ogr", "-f", "GeoJSON", "/vsistdout/", dir / "nc.gpkg", "-t_srs", "EPSG:4326"});
  ASSERT_EQ(back.code, 0) << back.err;
  const json theirs = json::parse(back.out);
  ASSERT_EQ(theirs["features"].size(), 100u);
  for (size_t i = 0; i < 100; ++i) {
    EXPECT_EQ(theirs["features"][i]["properties"]["NAME"], dumped["features"][i]["properties"]["NAME"]);
    ExpectSameGeometry(dumped["features"][i]["geometry"], theirs["features"][i]["geometry"]);
  }
  EXPECT_EQ(Vardamap({"export", map, dir / "nc.xyz"}).code, 2);  // unknown extensions are wrong usage
}

// A cancelled dump to a file (written by the tool) or export (written by
// OGR) leaves neither the file nor its part-written temporary.
TEST_F(VardamapGis, CancelledDumpOrExportLeavesNoFile) {
  TempDir dir;
  const std::string map = GisCorpusDir() + "/nc.shp";
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"dump", map, "--format", "geojson", "-o", dir / "nc.geojson"},
        std::vector<std::string>{"export", map, dir / "nc.gpkg"}}) {
    Result r = Vardamap(args, "", {"VARDAMAP_CANCEL_AFTER=10"});
    EXPECT_EQ(r.code, 130) << args[0] << ": " << r.err;
  }
  EXPECT_EQ(Entries(dir.path()), std::vector<std::string>{});
}

TEST_F(VardamapGis, ImportBringsExportedMapsBackWithTheirAttributes) {
  TempDir dir;
  const std::string map = GisCorpusDir() + "/lux.shp";
  const json original = json::parse(Vardamap({"dump", map, "--format", "geojson"}).out);
  const size_t n = original["features"].size();
  for (const char* ext : {"geojson", "gpkg", "kml", "gpx"}) {
    SCOPED_TRACE(ext);
    const std::string file = dir / (std::string("lux.") + ext), back = dir / (std::string("back_") + ext + ".shp");
    ASSERT_EQ(Vardamap({"export", map, file}).code, 0);
    Result imp = Vardamap({"import", file, back, "--create"});
    ASSERT_EQ(imp.code, 0) << imp.err;
    // Other GIS programs read the new map, its names and its system.
    Result og = RunProgram({"ogrinfo", "-so", "-al", back});
    ASSERT_EQ(og.code, 0) << og.err;
    EXPECT_NE(og.out.find("GEOGCRS[\"WGS 84\""), std::string::npos) << og.out;
    const json again = json::parse(Vardamap({"dump", back, "--format", "geojson"}).out);
    if (std::string(ext) == "gpx") {
      // Rings come back as track lines, one shape per ring; every point is kept.
      std::vector<std::vector<double>> a, b;
      for (const json& f : original["features"]) Flatten(f["geometry"]["coordinates"], a);
      for (const json& f : again["features"]) Flatten(f["geometry"]["coordinates"], b);
      ExpectSameGeometry(json{{"type", "x"}, {"coordinates", a}}, json{{"type", "x"}, {"coordinates", b}});
      EXPECT_GE(again["features"].size(), n);
      continue;
    }
    ASSERT_EQ(again["features"].size(), n);
    for (size_t i = 0; i < n; ++i) {
      ExpectSameGeometry(again["features"][i]["geometry"], original["features"][i]["geometry"]);
      if (std::string(ext) != "kml") {  // KML keeps the first text field as the placemark's name
        EXPECT_EQ(again["features"][i]["properties"]["NAME_2"], original["features"][i]["properties"]["NAME_2"]);
      }
    }
  }
}

TEST_F(VardamapGis, ImportRefusesInputItCannotUseAndChangesNothing) {
  TempDir dir;
  std::ofstream(dir / "garbage.gpx") << "this is no GPX";
  ExpectOneLineError(Vardamap({"import", dir / "garbage.gpx", dir / "new.shp", "--create"}), 1, "OGR cannot open it");
  EXPECT_FALSE(FileExists(dir / "new.shp"));

  // Waypoints only: no track to make a line map of.
  std::ofstream(dir / "points.gpx") << Gpx("<wpt lat=\"49.6\" lon=\"6.1\"><name>Kirchberg</name></wpt>\n");
  ExpectOneLineError(Vardamap({"import", dir / "points.gpx", dir / "new.shp", "--create", "--kind", "line"}), 2,
                     "has no lines (tracks or routes) to import");
  EXPECT_FALSE(FileExists(dir / "new.shp"));
  EXPECT_FALSE(FileExists(dir / "new.prj"));
  const std::string lines = CopyGisMap("nc", dir);  // polygons
  const std::string before = ReadFile(lines) + ReadFile(dir / "nc.dbf");
  EXPECT_EQ(Vardamap({"import", dir / "points.gpx", lines}).code, 2);
  EXPECT_EQ(ReadFile(lines) + ReadFile(dir / "nc.dbf"), before);

  // The same waypoint as a point map keeps its name.
  Result pts = Vardamap({"import", dir / "points.gpx", dir / "wpt.shp", "--create"});
  ASSERT_EQ(pts.code, 0) << pts.err;
  Result og = RunProgram({"ogrinfo", "-al", "-q", dir / "wpt.shp"});
  EXPECT_NE(og.out.find("name (String) = Kirchberg"), std::string::npos) << og.out;
  EXPECT_NE(og.out.find("POINT (6.1 49.6)"), std::string::npos) << og.out;
}

TEST_F(VardamapGis, CancelledImportLeavesNoNewMapAndKeepsAnExistingOneInStep) {
  TempDir dir;
  const std::string in = dir / "nc.geojson";
  ASSERT_EQ(Vardamap({"export", GisCorpusDir() + "/nc.shp", in}).code, 0);
  // The first pass asks once for each of the 100 features, the adding pass
  // again: cancelled in the first pass and half-way through the adding.
  for (const char* after : {"20", "150"}) {
    SCOPED_TRACE(after);
    Result r = Vardamap({"import", in, dir / "new.shp", "--create"}, "",
                        {std::string("VARDAMAP_CANCEL_AFTER=") + after, "VARDAMAP_PROGRESS=always"});
    EXPECT_EQ(r.code, 130) << r.err;
    EXPECT_NE(r.err.find("cancelled"), std::string::npos) << r.err;
    EXPECT_EQ(Entries(dir.path()), std::vector<std::string>{"nc.geojson"});
  }
  // Into an existing map: the shapes added before Ctrl-C stay with their rows.
  const std::string map = CopyGisMap("nc", dir);
  Result r = Vardamap({"import", in, map}, "", {"VARDAMAP_CANCEL_AFTER=150"});
  EXPECT_EQ(r.code, 130) << r.err;
  Result og = RunProgram({"ogrinfo", "-so", "-al", map});
  const size_t at = og.out.find("Feature Count: ");
  ASSERT_NE(at, std::string::npos) << og.out;
  const int records = std::stoi(og.out.substr(at + 15));
  EXPECT_GT(records, 100);
  EXPECT_LT(records, 200);
  Result info = Vardamap({"info", map});
  EXPECT_EQ(info.code, 0) << info.err;
  EXPECT_NE(info.out.find(std::to_string(records) + " rows in nc.dbf"), std::string::npos) << info.out;
  EXPECT_EQ(info.err.find("rows but the map has"), std::string::npos) << info.err;
  Result last = RunProgram({"ogrinfo", "-q", "-fid", std::to_string(records - 1), map, "nc"});
  EXPECT_NE(last.out.find("NAME (String) = "), std::string::npos) << last.out;
}

TEST_F(VardamapGis, GpxTrackOfTwoSegmentsBecomesTwoShapesWithAWarning) {
  TempDir dir;
  std::ofstream(dir / "walk.gpx") << Gpx(
      "<trk><name>Walk</name>\n"
      "<trkseg><trkpt lat=\"49.60\" lon=\"6.10\"/><trkpt lat=\"49.61\" lon=\"6.11\"/></trkseg>\n"
      "<trkseg><trkpt lat=\"49.70\" lon=\"6.20\"/><trkpt lat=\"49.71\" lon=\"6.21\"/>"
      "<trkpt lat=\"49.72\" lon=\"6.22\"/></trkseg>\n</trk>\n");
  Result r = Vardamap({"import", dir / "walk.gpx", dir / "walk.shp", "--create"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("2 shapes from 1 feature added"), std::string::npos) << r.out;
  EXPECT_NE(r.err.find("warning: 1 feature had several parts: each part became a shape of its own"),
            std::string::npos)
      << r.err;
  const json doc = json::parse(Vardamap({"dump", dir / "walk.shp", "--format", "geojson"}).out);
  ASSERT_EQ(doc["features"].size(), 2u);
  const size_t points[] = {2, 3};
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(doc["features"][i]["properties"]["name"], "Walk");
    EXPECT_EQ(doc["features"][i]["geometry"]["type"], "LineString");
    EXPECT_EQ(doc["features"][i]["geometry"]["coordinates"].size(), points[i]);
  }
  EXPECT_NEAR(doc["features"][1]["geometry"]["coordinates"][0][1].get<double>(), 49.70, 1e-12);
}
