// add and delete: what goes in through the plug-in comes back out exactly,
// ids stay meaningful, and refusals leave the files as they were.
#include <gtest/gtest.h>

#include <sstream>

#include "ToolRunner.h"

using namespace vmtest;

namespace {

std::vector<int> Ids(const std::string& out) {
  std::vector<int> ids;
  std::istringstream in(out);
  for (int id; in >> id;) ids.push_back(id);
  return ids;
}

}  // namespace

TEST(VardamapAdd, LinesPolygonsAndPointsRoundTripExactly) {
  TempDir dir;
  // Values that only survive when every digit is kept.
  Result lines = Vardamap({"add", dir / "l.shp", "--create"},
                     "0.1 0.2\n1e-7 -3.25\n123456.789012345 -0.3\n\n# a comment\n5,6\n7 8\n");
  ASSERT_EQ(lines.code, 0) << lines.err;
  EXPECT_EQ(Ids(lines.out), (std::vector<int>{1, 2}));
  std::vector<DumpShape> l = ParseDump(Vardamap({"dump", dir / "l.shp"}).out);
  ASSERT_EQ(l.size(), 2u);
  EXPECT_EQ(l[0].kind, "line");
  EXPECT_EQ(l[0].flags, 0x80u);
  EXPECT_EQ(l[0].points, (std::vector<std::vector<double>>{{0.1, 0.2}, {1e-7, -3.25}, {123456.789012345, -0.3}}));
  EXPECT_EQ(l[1].points, (std::vector<std::vector<double>>{{5, 6}, {7, 8}}));

  // A ring with a hole; the hole is given open and closed by the tool.
  Result area = Vardamap({"add", dir / "a.shp", "--create", "--kind", "polygon"},
                         "10 10\n10 20\n20 20\n20 10\n10 10\n12 12\n14 12\n14 14\n");
  ASSERT_EQ(area.code, 0) << area.err;
  std::vector<DumpShape> a = ParseDump(Vardamap({"dump", dir / "a.shp"}).out);
  ASSERT_EQ(a.size(), 1u);
  EXPECT_EQ(a[0].flags, 0x81u);
  ASSERT_EQ(a[0].points.size(), 9u);
  EXPECT_EQ(a[0].points[8], (std::vector<double>{12, 12}));
  Result open_ring = Vardamap({"add", dir / "b.shp", "--create", "--kind", "polygon"}, "0 0\n0 1\n1 1\n");
  ASSERT_EQ(open_ring.code, 0) << open_ring.err;
  std::vector<DumpShape> b = ParseDump(Vardamap({"dump", dir / "b.shp"}).out);
  ASSERT_EQ(b.size(), 1u);
  EXPECT_EQ(b[0].points, (std::vector<std::vector<double>>{{0, 0}, {0, 1}, {1, 1}, {0, 0}}));

  // With --kind point every line is a point of its own.
  Result pts = Vardamap({"add", dir / "p.shp", "--create", "--kind", "point"}, "1 2\n3 4\n5 6\n");
  ASSERT_EQ(pts.code, 0) << pts.err;
  EXPECT_EQ(Ids(pts.out), (std::vector<int>{1, 2, 3}));
  std::vector<DumpShape> p = ParseDump(Vardamap({"dump", dir / "p.shp"}).out);
  ASSERT_EQ(p.size(), 3u);
  EXPECT_EQ(p[2].points, (std::vector<std::vector<double>>{{5, 6}}));
  EXPECT_EQ(p[2].flags, 3u);
}

TEST(VardamapAdd, MapHasZOnlyWhenTheFirstPointsZIsAboveTwo) {
  TempDir dir;
  Result high = Vardamap({"add", dir / "high.shp", "--create", "--z"}, "0 0 5\n1 1 1.5\n");
  ASSERT_EQ(high.code, 0) << high.err;
  EXPECT_TRUE(high.err.empty()) << high.err;
  EXPECT_NE(Vardamap({"info", dir / "high.shp"}).out.find("13 PolyLineZ"), std::string::npos);
  std::vector<DumpShape> h = ParseDump(Vardamap({"dump", dir / "high.shp"}).out);
  ASSERT_EQ(h.size(), 1u);
  EXPECT_TRUE(h[0].z);
  EXPECT_EQ(h[0].points, (std::vector<std::vector<double>>{{0, 0, 5}, {1, 1, 1.5}}));

  Result low = Vardamap({"add", dir / "low.shp", "--create", "--z"}, "0 0 1.5\n1 1 100\n");
  ASSERT_EQ(low.code, 0) << low.err;
  EXPECT_NE(low.err.find("warning: the first point's Z is not above 2.0"), std::string::npos) << low.err;
  EXPECT_NE(Vardamap({"info", dir / "low.shp"}).out.find("3 PolyLine"), std::string::npos);
  EXPECT_FALSE(ParseDump(Vardamap({"dump", dir / "low.shp"}).out)[0].z);

  EXPECT_EQ(Vardamap({"add", dir / "missing_z.shp", "--create", "--z"}, "0 0 5\n1 1\n").code, 2);
  EXPECT_FALSE(FileExists(dir / "missing_z.shp"));  // refused before anything was made
}

TEST(VardamapAdd, AppendsToAnExistingMapAndReplacesById) {
  if (!HaveCorpus()) GTEST_SKIP() << "no sample maps in " << CorpusDir();
  TempDir dir;
  const std::string map = CopyCorpusMap("mexico_roads", dir);
  std::vector<DumpShape> before = ParseDump(Vardamap({"dump", map}).out);
  ASSERT_EQ(before.size(), 105u);

  Result add = Vardamap({"add", map}, "-100 20\n-101 21\n\n-102 22\n-103 23\n-104 24\n");
  ASSERT_EQ(add.code, 0) << add.err;
  EXPECT_EQ(Ids(add.out), (std::vector<int>{106, 107}));
  // The first change of an existing map keeps a copy of it as it was.
  EXPECT_EQ(ReadFile(map + ".bak"), ReadFile(CorpusDir() + "/mexico_roads.shp"));
  EXPECT_TRUE(FileExists(dir / "mexico_roads.shx.bak"));

  Result replace = Vardamap({"add", map, "--id", "2"}, "1 2\n3 4\n5 6\n7 8\n9 10\n11 12\n13 14\n15 16\n");
  ASSERT_EQ(replace.code, 0) << replace.err;
  EXPECT_EQ(Ids(replace.out), (std::vector<int>{2}));

  std::vector<DumpShape> after = ParseDump(Vardamap({"dump", map}).out);
  ASSERT_EQ(after.size(), 107u);
  EXPECT_EQ(after[1].points.size(), 8u);
  EXPECT_EQ(after[1].points[7], (std::vector<double>{15, 16}));
  for (size_t i = 0; i < before.size(); ++i) {
    if (i == 1) continue;
    EXPECT_EQ(after[i].points, before[i].points) << "shape " << i + 1;
  }
  EXPECT_EQ(after[106].points, (std::vector<std::vector<double>>{{-102, 22}, {-103, 23}, {-104, 24}}));
  EXPECT_EQ(Vardamap({"check", map}).code, 0);

  // A polygon added to a line map is stored as a line: the user is told.
  Result mixed = Vardamap({"add", map, "--kind", "polygon"}, "0 0\n0 1\n1 1\n");
  ASSERT_EQ(mixed.code, 0) << mixed.err;
  EXPECT_NE(mixed.err.find("stored as PolyLine"), std::string::npos) << mixed.err;
}

TEST(VardamapAdd, MapsMadeHereCanBeExtendedLater) {
  // A created map ends with an end mark counted in its length; later
  // appends, replacements and deletions must all stay readable.
  TempDir dir;
  const std::string map = dir / "made.shp";
  ASSERT_EQ(Vardamap({"add", map, "--create"}, "1 1\n2 2\n").code, 0);
  Result more = Vardamap({"add", map}, "3 3\n4 4\n\n5 5\n6 6\n");
  ASSERT_EQ(more.code, 0) << more.err;
  EXPECT_EQ(Ids(more.out), (std::vector<int>{2, 3}));
  ASSERT_EQ(Vardamap({"add", map, "--id", "1"}, "7 7\n8 8\n9 9\n").code, 0);
  ASSERT_EQ(Vardamap({"delete", map, "2"}).code, 0);
  ASSERT_EQ(Vardamap({"add", map}, "10 10\n11 11\n").code, 0);
  std::vector<DumpShape> s = ParseDump(Vardamap({"dump", map}).out);
  ASSERT_EQ(s.size(), 3u);
  EXPECT_EQ(s[0].points, (std::vector<std::vector<double>>{{7, 7}, {8, 8}, {9, 9}}));
  EXPECT_EQ(s[1].points, (std::vector<std::vector<double>>{{5, 5}, {6, 6}}));
  EXPECT_EQ(s[2].points, (std::vector<std::vector<double>>{{10, 10}, {11, 11}}));
  EXPECT_EQ(Vardamap({"check", map}).code, 0);
}

TEST(VardamapDelete, SeveralIdsHighestFirstKeepTheRestInOrder) {
  if (!HaveCorpus()) GTEST_SKIP() << "no sample maps in " << CorpusDir();
  TempDir dir;
  const std::string map = CopyCorpusMap("mexico_roads", dir);
  std::vector<DumpShape> before = ParseDump(Vardamap({"dump", map}).out);
  ASSERT_EQ(before.size(), 105u);

  Result r = Vardamap({"delete", map, "3", "105", "10", "7", "3"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "deleted 105\ndeleted 10\ndeleted 7\ndeleted 3\n");
  std::vector<DumpShape> after = ParseDump(Vardamap({"dump", map}).out);
  std::vector<DumpShape> expected;
  for (const DumpShape& s : before)
    if (s.id != 3 && s.id != 7 && s.id != 10 && s.id != 105) expected.push_back(s);
  ASSERT_EQ(after.size(), expected.size());
  for (size_t i = 0; i < after.size(); ++i) {
    EXPECT_EQ(after[i].id, static_cast<int>(i) + 1);  // renumbered from 1
    EXPECT_EQ(after[i].points, expected[i].points) << "shape " << i + 1;
  }
  EXPECT_EQ(Vardamap({"check", map}).code, 0);
}

TEST(VardamapDelete, UnknownIdIsRefusedAndNothingIsDeleted) {
  if (!HaveCorpus()) GTEST_SKIP() << "no sample maps in " << CorpusDir();
  TempDir dir;
  const std::string map = CopyCorpusMap("mexico_lakes", dir);
  const std::string shp = ReadFile(map);
  Result r = Vardamap({"delete", map, "1", "4"});
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(CountLines(r.err), 1) << r.err;
  EXPECT_NE(r.err.find("Error in Line.dababaseid"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("nothing was deleted"), std::string::npos) << r.err;
  EXPECT_EQ(ReadFile(map), shp);
  EXPECT_EQ(Vardamap({"delete", map, "0"}).code, 2);
  EXPECT_EQ(Vardamap({"delete", map, "one"}).code, 2);
  EXPECT_EQ(Vardamap({"delete", map}).code, 2);
}

TEST(VardamapCancel, ReadsStopCleanlyWithExitCode130) {
  if (!HaveCorpus()) GTEST_SKIP() << "no sample maps in " << CorpusDir();
  TempDir dir;
  const std::string map = CopyCorpusMap("pline", dir);
  const std::string shp = ReadFile(map);
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"dump", map}, {"check", map}, {"info", map}, {"delete", map, "1"},
        {"render", map, "-o", dir / "x.svg"}}) {
    Result r = Vardamap(args, "", {"VARDAMAP_CANCEL_AFTER=3"});
    EXPECT_EQ(r.code, 130) << args[0] << ": " << r.err;
    EXPECT_EQ(r.err, "vardamap: the read was cancelled\n") << args[0];
    // dump streams what it has read; the others print only at the end.
    if (args[0] != "dump") {
      EXPECT_TRUE(r.out.empty()) << args[0] << ": " << r.out;
    }
  }
  Result add = Vardamap({"add", map}, "1 1\n2 2\n", {"VARDAMAP_CANCEL_AFTER=3"});
  EXPECT_EQ(add.code, 130);
  EXPECT_EQ(ReadFile(map), shp);  // nothing was changed
  EXPECT_FALSE(FileExists(dir / "x.svg"));
  EXPECT_FALSE(FileExists(map + ".bak"));
  // Without the aid the same read succeeds.
  EXPECT_EQ(Vardamap({"check", map}).code, 0);
}

TEST(VardamapProgress, ForcedBarReachesTheEnd) {
  if (!HaveCorpus()) GTEST_SKIP() << "no sample maps in " << CorpusDir();
  Result r = Vardamap({"check", CorpusDir() + "/pline.shp"}, "", {"VARDAMAP_PROGRESS=always"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.err.find("100%"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("MB/s"), std::string::npos) << r.err;
  // Not a terminal and not forced: nothing on standard error.
  EXPECT_TRUE(Vardamap({"check", CorpusDir() + "/pline.shp"}).err.empty());
}
