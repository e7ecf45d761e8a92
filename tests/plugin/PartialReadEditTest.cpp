// Edits after a read that stopped early (a Null record, a cancellation):
// the records the read did not reach are still the map's, so an append goes
// after the last of them and a deletion moves and renumbers every one. Other
// readers walk the index; what they see is checked here by a walk of our own
// over both files, independent of the plug-in.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/HostMap.h"
#include "support/ShpBuilder.h"

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
    ASSERT_TRUE(d.ok());
    const std::string p = CopyCorpusMap(d, "csah");
    if (p.empty()) GTEST_SKIP() << "no csah sample map";
    std::string why;
    const int before = IndexWalk(p, why);
    ASSERT_GT(before, 4) << why;
    MapSession s(p);
    ASSERT_EQ(s.Open(), 1);
    ASSERT_EQ(s.Read(), 1);
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
  TempDir d;
  ASSERT_TRUE(d.ok());
  const std::string p = PutMap(d, "m", b.Build());
  MapSession s(p);
  ASSERT_EQ(s.Open(), 1);
  Progress pr;
  pr.cancel_at = 2;
  ASSERT_EQ(s.Read(s.reader, &pr), 0);
  int32_t id = 0;
  ASSERT_EQ(s.Add(0, kLine, 0, &id), 1) << s.sink.All();
  EXPECT_EQ(id, 13);
  ASSERT_EQ(s.Delete(1), 1) << s.sink.All();
  ASSERT_EQ(s.Close(), 1);
  std::string why;
  EXPECT_EQ(IndexWalk(p, why), 12) << why;
  MapSession again(p);
  ASSERT_EQ(again.Open(), 1);
  ASSERT_EQ(again.Read(), 1) << again.sink.All();
  ASSERT_EQ(again.reader.lines.size(), 12u);
  EXPECT_TRUE(SameXYZ(CoordsOf(again.reader.lines[11]), kLine));
}

TEST_F(PartialRead, IndexDisagreeingPastTheStopRefusesTheEdit) {
  ShpBuilder b(3);
  b.Record(PolyContent(3, {0}, kLine)).Record(RawContent(0, 0)).Record(PolyContent(3, {0}, kLine));
  b.Record(PolyContent(3, {0}, kLine));
  ShpImage img = b.Build();
  PutBE32(img.shx, ShpImage::IndexPos(3) + 4, 2);  // record 3's length, as the index says
  TempDir d;
  ASSERT_TRUE(d.ok());
  const std::string p = PutMap(d, "m", img);
  MapSession s(p);
  ASSERT_EQ(s.Open(), 1);
  ASSERT_EQ(s.Read(), 1);
  EXPECT_EQ(s.Add(0, kLine), 0);
  EXPECT_EQ(s.Delete(1), 0);
  EXPECT_NE(s.sink.All().find("disagree"), std::string::npos) << s.sink.All();
  EXPECT_EQ(s.Close(), 1);
  EXPECT_TRUE(SameBytes(img.shp, ReadFile(p)));
  EXPECT_TRUE(SameBytes(img.shx, ReadFile(ShxOf(p))));
  EXPECT_FALSE(FileExists(p + ".bak"));
}

}  // namespace
}  // namespace shptest
