// Edits after a read that stopped early (a Null record, a cancellation):
// the records the read did not reach are still the map's, so an append goes
// after the last of them and a deletion moves and renumbers every one. Other
// readers walk the index; what they see is checked here by a walk of our own
// over both files, independent of the plug-in, and then by the readers
// themselves (pyshp, shpdump, ogrinfo) before and after each kind of edit.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "support/HostMap.h"
#include "support/ShpBuilder.h"
#include "support/ShpTools.h"

namespace shptest {
namespace {

// The records as a reader that trusts the index sees them: every entry must
// point at a record header carrying its length and the number j; returns the
// count, or -1 with `why` set.
int IndexWalk(const std::string& shp_path, std::string& why) {
  const Bytes shp = ReadFile(shp_path), shx = ReadFile(ShxOf(shp_path));
  if (shp.size() < 100 || shx.size() < 100) return why = "short files", -1;
  const size_t shp_len = 2 * static_cast<size_t>(GetBE32(shp, 24));
  const size_t shx_len = 2 * static_cast<size_t>(GetBE32(shx, 24));
  if (shp_len > shp.size() || shx_len > shx.size() || (shx_len - 100) % 8)
    return why = "header lengths beyond the files", -1;
  const int n = static_cast<int>((shx_len - 100) / 8);
  size_t expected_pos = 100;
  for (int j = 1; j <= n; j++) {
    const size_t off = 2 * static_cast<size_t>(GetBE32(shx, ShpImage::IndexPos(j)));
    const int32_t len = GetBE32(shx, ShpImage::IndexPos(j) + 4);
    if (off != expected_pos || off + 8 + 2 * static_cast<size_t>(len) > shp_len)
      return why = "entry " + std::to_string(j) + " out of place", -1;
    if (GetBE32(shp, off) != j || GetBE32(shp, off + 4) != len)
      return why = "record " + std::to_string(j) + " disagrees with its entry", -1;
    expected_pos = off + 8 + 2 * static_cast<size_t>(len);
  }
  if (expected_pos != shp_len && !(expected_pos + 4 == shp_len && GetBE32(shp, expected_pos) == 0))
    return why = "records do not end where the .shp length says", -1;
  return n;
}

std::string CopyCorpusMap(const TempDir& d, const std::string& stem) {
  const std::string src = std::string(VARDA_CORPUS_DIR) + "/" + stem;
  const Bytes shp = ReadFile(src + ".shp"), shx = ReadFile(src + ".shx");
  if (shp.empty() || shx.empty()) return "";
  WriteFile(d / (stem + ".shp"), shp);
  WriteFile(d / (stem + ".shx"), shx);
  return d / (stem + ".shp");
}

const std::vector<XYZ> kLine = {{1, 1, 0}, {2, 2, 0}, {3, 1, 0}};

class PartialRead : public PlugInTest {};

TEST_F(PartialRead, EditsAfterANullRecordKeepEveryRecord) {
  for (int kind = 0; kind < 3; kind++) {
    SCOPED_TRACE(kind);
    TempDir d;
    const std::string p = CopyCorpusMap(d, "csah");
    if (p.empty()) GTEST_SKIP() << "no csah sample map";
    std::string why;
    const int before = IndexWalk(p, why);
    ASSERT_GT(before, 4) << why;
    MapSession s(p);
    ASSERT_EQ(s.OpenAndRead(), 1);
    ASSERT_EQ(s.reader.lines.size(), 3u);  // delivery ends at the Null record
    int32_t id = 0;
    const int r = kind == 0 ? s.Add(0, kLine, 0, &id) : kind == 1 ? s.Delete(2) : s.Add(0, kLine, 2);
    ASSERT_EQ(r, 1) << s.sink.All();
    if (kind == 0) {
      EXPECT_EQ(id, before + 1);
    }
    ASSERT_EQ(s.Close(), 1);
    EXPECT_EQ(IndexWalk(p, why), kind == 0 ? before + 1 : kind == 1 ? before - 1 : before) << why;
  }
}

TEST_F(PartialRead, EditsAfterACancelledReadKeepEveryRecord) {
  ShpBuilder b(3);
  for (int i = 0; i < 12; i++) b.Record(PolyContent(3, {0}, {{1.0 * i, 0, 0}, {i + 0.5, 1, 0}}));
  const std::string p = PutMap(dir, "m", b.Build());
  MapSession s(p);
  ASSERT_EQ(s.Open(), 1);
  Progress pr;
  pr.cancel_at = 2;
  ASSERT_EQ(s.Read(s.reader, &pr), 0);
  int32_t id = 0;
  ASSERT_EQ(s.Add(0, kLine, 0, &id), 1) << s.sink.All();
  EXPECT_EQ(id, 13);
  ASSERT_EQ(s.Add(0, kLine, 5), 1) << s.sink.All();  // a record the read did not reach
  ASSERT_EQ(s.Delete(1), 1) << s.sink.All();
  ASSERT_EQ(s.Close(), 1);
  std::string why;
  EXPECT_EQ(IndexWalk(p, why), 12) << why;
  MapSession again(p);
  ASSERT_EQ(again.OpenAndRead(), 1) << again.sink.All();
  ASSERT_EQ(again.reader.lines.size(), 12u);
  EXPECT_TRUE(SameXYZ(CoordsOf(again.reader.lines[3]), kLine));
  EXPECT_TRUE(SameXYZ(CoordsOf(again.reader.lines[11]), kLine));
}

TEST_F(PartialRead, IndexDisagreeingPastTheStopRefusesTheEdit) {
  ShpBuilder b(3);
  b.Record(PolyContent(3, {0}, kLine)).Record(RawContent(0, 0)).Record(PolyContent(3, {0}, kLine));
  b.Record(PolyContent(3, {0}, kLine));
  ShpImage img = b.Build();
  PutBE32(img.shx, ShpImage::IndexPos(3) + 4, 2);  // record 3's length, as the index says
  const std::string p = PutMap(dir, "m", img);
  MapSession s(p);
  ASSERT_EQ(s.OpenAndRead(), 1);
  EXPECT_EQ(s.Add(0, kLine), 0);
  EXPECT_EQ(s.Delete(1), 0);
  EXPECT_NE(s.sink.All().find("disagree"), std::string::npos) << s.sink.All();
  // An id no map can hold is refused as such, before any counting.
  s.sink.messages.clear();
  EXPECT_EQ(s.Delete(0), 0);
  EXPECT_EQ(s.sink.All(), "Error in Line.dababaseid");
  EXPECT_EQ(s.Close(), 1);
  EXPECT_TRUE(SameMap(img, p));
  EXPECT_FALSE(FileExists(p + ".bak"));
}

// ---- The other readers' own account, before and after.

// One reader's view of a map: exit status, what it said on standard error,
// and every shape in file order (a Null shape as one without points).
struct Seen {
  int status = -1;
  std::string err;
  std::vector<ToolShape> shapes;
};

// pyshp through a Python that has it. The helper script stops at a Null
// shape, as the module does; this lists every shape the index holds.
Seen Pyshp(const std::string& p) {
  static const char kScript[] =
      "import shapefile, sys\n"
      "for s in shapefile.Reader(sys.argv[1]).iterShapes():\n"
      "  z = list(getattr(s, 'z', None) or [0.0] * len(s.points))\n"
      "  print('S 0 0 %d' % len(s.points))\n"
      "  for q, h in zip(s.points, z):\n"
      "    print('P %r %r %r' % (float(q[0]), float(q[1]), float(h)))\n";
  CommandResult r = RunCommand(PythonWithPyshp() + " -c " + Quote(kScript) + " " + Quote(p));
  return {r.status, r.err, ParseHelper(r.out)};
}

Seen Shpdump(const std::string& p) {
  CommandResult r = RunCommand("shpdump " + Quote(p));
  return {r.status, r.err, ParseShpdump(r.out)};
}

// ogrinfo lists every feature, a Null one without geometry; its layer
// summary counts the index's entries and must agree with the list.
Seen Ogrinfo(const std::string& p) {
  CommandResult r = RunCommand("ogrinfo -al " + Quote(p));
  Seen s{r.status, r.err, {}};
  for (size_t at = r.out.find("\nOGRFeature("); at != std::string::npos;) {
    const size_t next = r.out.find("\nOGRFeature(", at + 1);
    std::vector<ToolShape> g = ParseOgrinfo(r.out.substr(at, next - at));
    s.shapes.push_back(g.empty() ? ToolShape{} : g[0]);
    at = next;
  }
  const size_t fc = r.out.find("Feature Count: ");
  if (fc == std::string::npos ||
      std::atoi(r.out.c_str() + fc + 15) != static_cast<int>(s.shapes.size()))
    s.err += "[feature count disagrees with the features listed]";
  return s;
}

std::vector<Seen> ReadersSee(const std::string& p) { return {Pyshp(p), Shpdump(p), Ogrinfo(p)}; }

// How the read stopped: a Null record (csah, 124 records, Null from the
// 4th), a cancellation after 2 records (pline, 460 records, or a map the
// module made, which ends with its counted end mark), or a refused 3rd
// record (its part count negative).
enum Stop { kNullRecord, kCancelled, kCancelledOwnMap, kRefused };
enum Edit { kAppend, kReplaceFirstGrowing, kDeleteSecond };

class PartialReadReaders : public PlugInTest,
                           public ::testing::WithParamInterface<std::tuple<Stop, Edit>> {};

TEST_P(PartialReadReaders, FindEveryShapeTheyFoundBeforeWithJustTheEdit) {
  const Stop stop = std::get<0>(GetParam());
  const Edit edit = std::get<1>(GetParam());
  if (PythonWithPyshp().empty() || !HaveTool("shpdump") || !HaveTool("ogrinfo"))
    GTEST_SKIP() << "needs pyshp, shpdump and ogrinfo";
  std::string p;
  if (stop == kRefused) {
    ShpBuilder b(3);
    for (int i = 0; i < 6; i++) {
      Bytes c = PolyContent(3, {0}, {{10.0 * i, 0, 0}, {10.0 * i + 5, 5, 0}});
      if (i == 2) PutLE32(c, kPolyNumParts, -1);
      b.Record(c);
    }
    p = PutMap(dir, "m", b.Build());
  } else if (stop == kCancelledOwnMap) {
    MapSession s(p = dir / "own.shp", true);
    ASSERT_EQ(s.Open(), 1) << s.sink.All();
    for (int i = 0; i < 6; i++) ASSERT_EQ(s.Add(0, {{1.0 * i, 0, 0}, {i + 0.5, 1, 0}}), 1);
  } else {
    p = CopyCorpusMap(dir, stop == kNullRecord ? "csah" : "pline");
    if (p.empty()) GTEST_SKIP() << "no sample maps in " << VARDA_CORPUS_DIR;
  }
  const ShpImage was = {ReadFile(p), ReadFile(ShxOf(p))};
  std::vector<XYZ> longer;
  for (int i = 0; i < 64; i++) longer.push_back({3e5 + 12.5 * i, 5.2e6 - 7.25 * i * (i % 3), 0});
  const std::vector<Seen> before = ReadersSee(p);
  {
    MapSession s(p);
    ASSERT_EQ(s.Open(), 1) << s.sink.All();
    Progress pr;
    pr.cancel_at = stop == kCancelled || stop == kCancelledOwnMap ? 2 : 0;
    ASSERT_EQ(s.Read(s.reader, &pr), stop == kNullRecord ? 1 : 0) << s.sink.All();
    ASSERT_EQ(s.reader.lines.size(), stop == kNullRecord ? 3u : 2u);
    int32_t id = 0;
    const int r = edit == kAppend ? s.Add(0, kLine, 0, &id)
                  : edit == kReplaceFirstGrowing ? s.Add(0, longer, 1)
                                                 : s.Delete(2);
    if (stop == kRefused) {
      EXPECT_EQ(r, 0);
      EXPECT_EQ(s.sink.Last(), "Error: the map was refused when it was read; it is not changed.");
    } else {
      ASSERT_EQ(r, 1) << s.sink.All();
      if (edit == kAppend) {
        EXPECT_EQ(id, static_cast<int32_t>(before[0].shapes.size() + 1));
      }
    }
    ASSERT_EQ(s.Close(), 1);
  }
  if (stop == kRefused) {
    EXPECT_TRUE(SameMap(was, p));
    EXPECT_FALSE(FileExists(p + ".bak"));
  }
  const std::vector<Seen> after = ReadersSee(p);
  const char* names[] = {"pyshp", "shpdump", "ogrinfo"};
  for (size_t t = 0; t < before.size(); t++) {
    SCOPED_TRACE(names[t]);
    if (stop != kRefused) {
      ASSERT_EQ(before[t].status, 0) << before[t].err;
      ASSERT_EQ(before[t].err, "");
      ASSERT_EQ(before[t].shapes.size(), before[0].shapes.size()) << "the readers disagree already";
    }
    EXPECT_EQ(after[t].status, before[t].status);
    EXPECT_EQ(after[t].err, before[t].err);
    std::vector<ToolShape> want = before[t].shapes;
    if (stop != kRefused) {  // a refused edit changes nothing
      if (edit == kAppend)
        want.push_back(ToolShape{0, 0, 0, kLine});
      else if (edit == kReplaceFirstGrowing)
        want.at(0).pts = longer;
      else
        want.erase(want.begin() + 1);
    }
    ASSERT_EQ(after[t].shapes.size(), want.size());
    for (size_t i = 0; i < want.size(); i++)
      ASSERT_TRUE(NearXYZ(after[t].shapes[i].pts, want[i].pts, true))
          << "shape " << i << ": " << Show(after[t].shapes[i].pts) << "\nwanted "
          << Show(want[i].pts);
  }
}

std::string CaseName(const ::testing::TestParamInfo<std::tuple<Stop, Edit>>& i) {
  static const char* const stops[] = {"NullRecord", "Cancelled", "CancelledOwnMap", "Refused"};
  static const char* const edits[] = {"Append", "ReplaceFirstGrowing", "DeleteSecond"};
  return std::string(stops[std::get<0>(i.param)]) + "_" + edits[std::get<1>(i.param)];
}

INSTANTIATE_TEST_SUITE_P(
    AllStops, PartialReadReaders,
    ::testing::Combine(::testing::Values(kNullRecord, kCancelled, kCancelledOwnMap, kRefused),
                       ::testing::Values(kAppend, kReplaceFirstGrowing, kDeleteSecond)),
    CaseName);

}  // namespace
}  // namespace shptest
