// The attribute table kept in step: after delete and add every remaining
// shape still carries its own row in other GIS programs (read back with
// ogrinfo), and a table that cannot be kept in step stops the command before
// anything changes.
#include <gtest/gtest.h>

#include <fstream>

#include "ToolRunner.h"

using namespace vmtest;

namespace {

// Every feature of `shp` as ogrinfo -al prints it (fields and geometry),
// without the feature number line, which renumbering changes.
std::vector<std::string> Features(const std::string& shp) {
  Result r = RunProgram({"ogrinfo", "-al", "-q", shp});
  EXPECT_EQ(r.code, 0) << r.err;
  std::vector<std::string> features;
  const std::string mark = "OGRFeature(";
  for (size_t at = r.out.find(mark); at != std::string::npos;) {
    const size_t body = r.out.find('\n', at) + 1;
    const size_t next = r.out.find(mark, body);
    features.push_back(r.out.substr(body, next == std::string::npos ? std::string::npos : next - body));
    at = next;
  }
  return features;
}

// The bytes of the map's .shp, .shx and .dbf.
std::vector<std::string> Snapshot(const std::string& shp) {
  const std::string stem = shp.substr(0, shp.size() - 4);
  return {ReadFile(stem + ".shp"), ReadFile(stem + ".shx"), ReadFile(stem + ".dbf")};
}

// Both edits are refused with `code` and a message holding `text`, and the
// files stay as they were.
void ExpectEditsRefused(const std::string& map, int code, const std::string& text) {
  const std::vector<std::string> before = Snapshot(map);
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"delete", map, "3"}, std::vector<std::string>{"add", map, "--kind", "point"}}) {
    ExpectOneLineError(Vardamap(args, "1 1\n"), code, text);
    EXPECT_TRUE(Snapshot(map) == before);
  }
}

bool Skip() { return !HaveGisCorpus() || !HaveProgram("ogrinfo") || !VardamapHasGdal(); }

}  // namespace

TEST(VardamapDbf, DeleteAndAddKeepEveryRowWithItsShape) {
  if (Skip()) GTEST_SKIP() << "needs " << GisCorpusDir() << ", ogrinfo and a vardamap with GDAL";
  struct Case {
    const char* map;
    const char* name_field;
  };
  for (const Case& c : {Case{"nc", "NAME"}, Case{"world", "name_long"}}) {
    SCOPED_TRACE(c.map);
    TempDir dir;
    const std::string map = CopyGisMap(c.map, dir);
    const std::vector<std::string> before = Features(map);
    ASSERT_GT(before.size(), 10u);
    const int last = static_cast<int>(before.size());
    // The first, one in the middle and the last record.
    Result del = Vardamap({"delete", map, "7", "1", std::to_string(last)});
    ASSERT_EQ(del.code, 0) << del.err;
    std::vector<std::string> expected = before;
    expected.erase(expected.begin() + last - 1);
    expected.erase(expected.begin() + 6);
    expected.erase(expected.begin());
    ASSERT_EQ(Features(map), expected);

    // An added shape gets a row of its own: empty, or with the given values.
    Result add = Vardamap({"add", map, "--kind", "polygon", "--attr", std::string(c.name_field) + "=Atlantis"},
                          "1 1\n1 2\n2 2\n2 1\n1 1\n\n5 5\n5 6\n6 6\n");
    ASSERT_EQ(add.code, 0) << add.err;
    EXPECT_EQ(add.out, std::to_string(last - 2) + "\n" + std::to_string(last - 1) + "\n");
    std::vector<std::string> after = Features(map);
    ASSERT_EQ(after.size(), expected.size() + 2);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), after.begin()));
    for (size_t i = expected.size(); i < after.size(); ++i) {
      EXPECT_NE(after[i].find(std::string(c.name_field) + " (String) = Atlantis"), std::string::npos) << after[i];
      EXPECT_NE(after[i].find("POLYGON (("), std::string::npos) << after[i];
    }
    EXPECT_NE(after.back().find("POLYGON ((5 5,5 6,6 6,5 5))"), std::string::npos) << after.back();

    // A replacement keeps its row unless told otherwise.
    Result keep = Vardamap({"add", map, "--kind", "polygon", "--id", "2"}, "0 0\n0 1\n1 1\n0 0\n");
    ASSERT_EQ(keep.code, 0) << keep.err;
    std::vector<std::string> replaced = Features(map);
    const std::string fields_of_2 = after[1].substr(0, after[1].find("  POLYGON") == std::string::npos
                                                           ? after[1].find("  MULTIPOLYGON")
                                                           : after[1].find("  POLYGON"));
    EXPECT_EQ(replaced[1].rfind(fields_of_2, 0), 0u) << replaced[1];
    EXPECT_NE(replaced[1].find("POLYGON ((0 0,0 1,1 1,0 0))"), std::string::npos) << replaced[1];
    ASSERT_EQ(Vardamap({"add", map, "--kind", "polygon", "--id", "2", "--attr",
                        std::string(c.name_field) + "=Renamed"}, "0 0\n0 1\n1 1\n0 0\n").code, 0);
    EXPECT_NE(Features(map)[1].find("= Renamed"), std::string::npos);
  }
}

TEST(VardamapDbf, TablesThatCannotBeKeptInStepChangeNothing) {
  if (Skip()) GTEST_SKIP() << "needs " << GisCorpusDir() << ", ogrinfo and a vardamap with GDAL";
  TempDir dir;
  const std::string map = CopyGisMap("nc", dir);

  // One row short: record 100 has no row of its own.
  TempDir other;
  ASSERT_EQ(RunProgram({"ogr2ogr", "-f", "ESRI Shapefile", other / "short.dbf", map, "-limit", "99", "-nlt", "NONE"}).code, 0);
  CopyFile(other / "short.dbf", dir / "nc.dbf");
  ExpectEditsRefused(map, 1, "has 99 rows but the map has 100 records, so the rows cannot be kept in step; "
                            "nothing was changed");
  // Not a table at all.
  std::ofstream(dir / "nc.dbf", std::ios::binary | std::ios::trunc) << "this is not a dBASE file";
  ExpectEditsRefused(map, 1, "the attribute table cannot be read");

  // Values the table cannot take are refused as wrong usage.
  const std::string good = CopyGisMap("nc", dir);
  const std::vector<std::string> intact = Snapshot(good);
  for (const std::string& attr : {std::string("NOSUCH=1"), std::string("BIR74=many"), std::string("=x")}) {
    SCOPED_TRACE(attr);
    ExpectOneLineError(Vardamap({"add", good, "--kind", "polygon", "--attr", attr}, "0 0\n0 1\n1 1\n"), 2, "");
    EXPECT_TRUE(Snapshot(good) == intact);
  }
  // No work folder is left behind by any of these.
  for (const std::string& name : Entries(dir.path())) EXPECT_EQ(name.find(".vardamap"), std::string::npos) << name;
}

TEST(VardamapDbf, BuildWithoutGdalRefusesToEditMapsWithATable) {
  if (!HaveGisCorpus()) GTEST_SKIP() << "no " << GisCorpusDir();
  if (VardamapHasGdal()) GTEST_SKIP() << "this vardamap has GDAL";
  TempDir dir;
  const std::string map = CopyGisMap("lux", dir);
  ExpectEditsRefused(map, 2, "built without GDAL");
  // Commands of the map's geometry still work.
  EXPECT_EQ(Vardamap({"check", map}).code, 0);
}
