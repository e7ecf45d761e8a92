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
  using Points = std::vector<std::vector<double>>;
  struct Case {
    std::vector<std::string> kind;
    const char* input;
    unsigned flags;
    std::vector<Points> shapes;
  };
  const Case cases[] = {
      // Lines by default; values that only survive when every digit is kept.
      {{}, "0.1 0.2\n1e-7 -3.25\n123456.789012345 -0.3\n\n# a comment\n5,6\n7 8\n", 0x80,
       {{{0.1, 0.2}, {1e-7, -3.25}, {123456.789012345, -0.3}}, {{5, 6}, {7, 8}}}},
      // A ring with a hole; the hole is given open and closed by the tool.
      {{"--kind", "polygon"}, "10 10\n10 20\n20 20\n20 10\n10 10\n12 12\n14 12\n14 14\n", 0x81,
       {{{10, 10}, {10, 20}, {20, 20}, {20, 10}, {10, 10}, {12, 12}, {14, 12}, {14, 14}, {12, 12}}}},
      {{"--kind", "polygon"}, "0 0\n0 1\n1 1\n", 0x81, {{{0, 0}, {0, 1}, {1, 1}, {0, 0}}}},
      // Every line a point of its own.
      {{"--kind", "point"}, "1 2\n3 4\n5 6\n", 3, {{{1, 2}}, {{3, 4}}, {{5, 6}}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input);
    TempDir dir;
    std::vector<std::string> args{"add", dir / "m.shp", "--create"};
    args.insert(args.end(), c.kind.begin(), c.kind.end());
    Result r = Vardamap(args, c.input);
    ASSERT_EQ(r.code, 0) << r.err;
    const std::vector<DumpShape> got = ParseDump(Vardamap({"dump", dir / "m.shp"}).out);
    ASSERT_EQ(got.size(), c.shapes.size());
    std::string ids;
    for (size_t i = 0; i < got.size(); ++i) {
      ids += std::to_string(i + 1) + "\n";
      EXPECT_EQ(got[i].flags, c.flags);
      EXPECT_EQ(got[i].points, c.shapes[i]) << "shape " << i + 1;
    }
    EXPECT_EQ(r.out, ids);  // the new ids, one a line
  }
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
  EXPECT_EQ(after[1].points,
            (std::vector<std::vector<double>>{{1, 2}, {3, 4}, {5, 6}, {7, 8}, {9, 10}, {11, 12}, {13, 14}, {15, 16}}));
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
  ExpectOneLineError(r, 1, "Error in Line.dababaseid");
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
