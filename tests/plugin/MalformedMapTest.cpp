// Damaged maps: one case per kind of damage. Reading must stop with 0 and a
// message that names the record; changing must refuse with the record's
// number and leave both files as they were. None of them may read or write
// outside a buffer (the sanitizer build runs these too).
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/HostMap.h"
#include "support/ShpBuilder.h"

namespace shptest {
namespace {

const std::vector<XYZ> kA = {{0, 0, 1}, {1, 1, 2}};
const std::vector<XYZ> kB = {{2, 2, 3}, {3, 3, 4}, {4, 2, 5}};
const std::vector<XYZ> kC = {{5, 5, 6}, {6, 6, 7}};

// Three records of `type` (3, 13 or 8); record 2 is the one damaged.
ShpImage Three(int type = 3) {
  ShpBuilder b(type);
  for (const auto* r : {&kA, &kB, &kC})
    b.Record(type == 8 ? MultiPointContent(8, *r) : PolyContent(type, {0}, *r));
  return b.Build();
}

// Offset of record k's contents (its shape-type word) in the .shp.
size_t ContentPos(const ShpImage& img, int k) { return img.RecordPos(k) + 8; }

class Malformed : public PlugInTest {
 protected:
  // Reads `img`; expects result 0, a message naming record `n`, and the
  // records before it delivered.
  void ExpectReadRefused(const ShpImage& img, int n, bool with_shx = true) {
    TempDir d;
    const std::string p = PutMap(d, "bad", img, with_shx);
    MapSession s(p);
    ASSERT_EQ(s.Open(), 1) << s.sink.All();
    EXPECT_EQ(s.Read(), 0);
    ASSERT_EQ(s.sink.messages.size(), 1u) << s.sink.All();
    EXPECT_NE(s.sink.Last().find("record " + std::to_string(n)), std::string::npos)
        << s.sink.Last();
    EXPECT_EQ(s.reader.lines.size(), static_cast<size_t>(n - 1));
  }

  // Reads the intact three-record map, then damages the files on disk as
  // another program might before the change; the change must be refused
  // naming record `n` ("replaced" or "deleted") and change neither file.
  void ExpectEditRefused(const std::function<void(Bytes&, Bytes&)>& damage,
                         const std::function<int(MapSession&)>& change, int n, const char* verb) {
    TempDir d;
    const ShpImage img = Three();
    const std::string p = PutMap(d, "m", img);
    MapSession s(p);
    ASSERT_EQ(s.Open(), 1);
    ASSERT_EQ(s.Read(), 1) << s.sink.All();
    Bytes shp = img.shp, shx = img.shx;
    damage(shp, shx);
    WriteFile(p, shp);
    WriteFile(ShxOf(p), shx);
    EXPECT_EQ(change(s), 0);
    ASSERT_FALSE(s.sink.messages.empty());
    EXPECT_NE(s.sink.Last().find("record " + std::to_string(n) + " cannot be " + verb),
              std::string::npos)
        << s.sink.All();
    s.Close();
    EXPECT_TRUE(SameBytes(shp, ReadFile(p))) << "shp";
    EXPECT_TRUE(SameBytes(shx, ReadFile(ShxOf(p)))) << "shx";
  }
};

TEST_F(Malformed, CountsThatDoNotFitTheContentLengthOrAreNegative) {
  struct Case {
    const char* name;
    int type;
    size_t field;  // from the shape-type word
    int32_t value;
  } cases[] = {
      {"points", 3, kPolyNumPoints, 1000},
      {"parts", 3, kPolyNumParts, 1000},
      {"huge points", 3, kPolyNumPoints, 0x7FFFFFFF},
      {"parts overflowing 4 x parts", 3, kPolyNumParts, 0x40000001},
      {"one point too many", 3, kPolyNumPoints, 4},
      {"Z points", 13, kPolyNumPoints, 5},
      {"multipoint", 8, 36, 1000},
      {"multipoint huge", 8, 36, 0x7FFFFFFF},
      {"negative parts", 3, kPolyNumParts, -1},
      {"negative points", 3, kPolyNumPoints, -3},
      {"most negative parts", 3, kPolyNumParts, static_cast<int32_t>(0x80000000)},
      {"negative Z points", 13, kPolyNumPoints, -1},
      {"negative multipoint", 8, 36, -1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ShpImage img = Three(c.type);
    PutLE32(img.shp, ContentPos(img, 2) + c.field, c.value);
    ExpectReadRefused(img, 2);
  }
}

TEST_F(Malformed, ZArrayMissingFromAZRecord) {
  // A PolyLineZ record whose contents stop after the X/Y pairs.
  ShpBuilder b(13);
  b.Record(PolyContent(13, {0}, kA));
  Bytes cut = PolyContent(3, {0}, kB);
  PutLE32(cut, 0, 13);
  b.Record(cut).Record(PolyContent(13, {0}, kC));
  ExpectReadRefused(b.Build(), 2);
}

TEST_F(Malformed, ContentsTooShortForTheirType) {
  struct Case {
    const char* name;
    int type;
    Bytes content;
  } cases[] = {
      {"point", 1, RawContent(1, 12)},
      {"line without counts", 3, RawContent(3, 32)},
      {"line without parts array", 3, RawContent(3, 36)},
      {"multipoint without count", 8, RawContent(8, 28)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ShpBuilder b(c.type);
    Bytes good = c.type == 1   ? PointContent(1, 1, 1)
                 : c.type == 8 ? MultiPointContent(8, kA)
                               : PolyContent(3, {0}, kA);
    ExpectReadRefused(b.Record(good).Record(c.content).Record(good).Build(), 2);
  }
}

TEST_F(Malformed, ContentLengthBelowTwoWords) {
  for (int32_t words : {1, 0, -4, static_cast<int32_t>(0x80000000)}) {
    SCOPED_TRACE(words);
    ShpImage img = Three();
    PutBE32(img.shp, img.RecordPos(2) + 4, words);
    PutBE32(img.shx, ShpImage::IndexPos(2) + 4, words);
    ExpectReadRefused(img, 2);
  }
}

TEST_F(Malformed, ContentLengthBeyondTheEndOfTheFile) {
  for (int32_t words : {60, 1000, 0x40000000, 0x7FFFFFFF}) {
    SCOPED_TRACE(words);
    ShpImage img = Three();
    PutBE32(img.shp, img.RecordPos(3) + 4, words);
    ExpectReadRefused(img, 3, false);
  }
}

TEST_F(Malformed, PartIndicesOutsideThePoints) {
  struct Case {
    const char* name;
    std::vector<int> parts;
  } cases[] = {
      {"first beyond the count", {4}},
      {"first negative", {-1}},
      {"first huge", {0x7FFFFFFF}},
      {"later part beyond", {0, 99}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ShpBuilder b(3);
    b.Record(PolyContent(3, {0}, kA)).Record(PolyContent(3, c.parts, kB)).Record(PolyContent(3, {0}, kC));
    ExpectReadRefused(b.Build(), 2);
  }
}

TEST_F(Malformed, EmptyLineIsNoDamage) {
  ShpBuilder b(3);
  b.Record(PolyContent(3, {0}, kA)).Record(PolyContent(3, {}, {})).Record(PolyContent(3, {0}, kC));
  TempDir d;
  MapSession s(PutMap(d, "m", b.Build()));
  ASSERT_EQ(s.Open(), 1);
  EXPECT_EQ(s.Read(), 1) << s.sink.All();
  ASSERT_EQ(s.reader.lines.size(), 2u);
  EXPECT_EQ(s.reader.lines[1].Id(), 3);
}

TEST_F(Malformed, IndexShorterThanTheRecords) {
  // The index header still counts three entries; the file holds two.
  ShpImage img = Three();
  img.shx.resize(img.shx.size() - 8);
  ExpectReadRefused(img, 3);

  // An index that says it holds two ends before the main file does.
  PutBE32(img.shx, 24, static_cast<int32_t>(img.shx.size() / 2));
  TempDir d;
  MapSession s(PutMap(d, "m", img));
  ASSERT_EQ(s.Open(), 1);
  EXPECT_EQ(s.Read(), 0);
  EXPECT_EQ(s.sink.All(), "Error: FileSize error in the SHP - SHX header.");
}

TEST_F(Malformed, IndexEntriesPointingBeyondTheMainFile) {
  ShpImage img = Three();
  PutBE32(img.shx, ShpImage::IndexPos(2), 100000);
  TempDir d;
  {
    MapSession s(PutMap(d, "m", img));
    ASSERT_EQ(s.Open(), 1);
    EXPECT_EQ(s.Read(), 0);
    EXPECT_EQ(s.sink.All(), "Error 1 in SHP-SHX relation in shape #1");
    EXPECT_EQ(s.reader.lines.size(), 1u);
  }
  img = Three();
  PutBE32(img.shx, ShpImage::IndexPos(3), 100000);
  MapSession s(PutMap(d, "m", img));
  ASSERT_EQ(s.Open(), 1);
  EXPECT_EQ(s.Read(), 0);
  EXPECT_EQ(s.sink.All(), "Error: FileSize error in the SHP - SHX header.");
}

// ---- changes to a map whose files were damaged after it was read.

auto Replace(int id) {
  return [id](MapSession& s) { return s.Add(0, {{1, 1, 0}, {2, 2, 0}, {3, 1, 0}, {4, 4, 0}}, id); };
}
auto ReplaceSame(int id) {
  return [id](MapSession& s) { return s.Add(0, {{1, 1, 0}, {2, 2, 0}, {3, 1, 0}}, id); };
}
auto Delete(int id) {
  return [id](MapSession& s) { return s.Delete(id); };
}
auto EntryOffset(int k, int32_t words) {
  return [k, words](Bytes&, Bytes& shx) { PutBE32(shx, ShpImage::IndexPos(k), words); };
}
auto EntryLength(int k, int32_t words) {
  return [k, words](Bytes&, Bytes& shx) { PutBE32(shx, ShpImage::IndexPos(k) + 4, words); };
}
auto DropEntries(int n) {
  return [n](Bytes&, Bytes& shx) { shx.resize(shx.size() - 8 * n); };
}

TEST_F(Malformed, EditWithIndexEntryBeyondTheMainFile) {
  ExpectEditRefused(EntryOffset(2, 100000), Replace(2), 2, "replaced");
  ExpectEditRefused(EntryOffset(2, 100000), ReplaceSame(2), 2, "replaced");
  ExpectEditRefused(EntryOffset(2, 100000), Delete(2), 2, "deleted");
  ExpectEditRefused(EntryOffset(3, 0x7FFFFFFF), Delete(3), 3, "deleted");
  ExpectEditRefused(EntryOffset(3, -20), Replace(3), 3, "replaced");
}

TEST_F(Malformed, EditWithIndexLengthBeyondTheEndOfTheFile) {
  ExpectEditRefused(EntryLength(3, 1000), Replace(3), 3, "replaced");
  ExpectEditRefused(EntryLength(3, 1000), Delete(3), 3, "deleted");
  ExpectEditRefused(EntryLength(3, -8), Delete(3), 3, "deleted");
  ExpectEditRefused(EntryLength(3, -8), Replace(3), 3, "replaced");
}

TEST_F(Malformed, EditWithIndexShorterThanTheRecords) {
  ExpectEditRefused(DropEntries(1), Replace(3), 3, "replaced");
  ExpectEditRefused(DropEntries(1), Delete(2), 2, "deleted");
  ExpectEditRefused(DropEntries(1), Delete(3), 3, "deleted");
  ExpectEditRefused(DropEntries(3), Delete(1), 1, "deleted");
}

TEST_F(Malformed, DeleteWithALaterEntryBeyondTheMainFileChangesNothing) {
  TempDir d;
  const ShpImage img = Three();
  const std::string p = PutMap(d, "m", img);
  MapSession s(p);
  ASSERT_EQ(s.Open(), 1);
  ASSERT_EQ(s.Read(), 1);
  Bytes shx = img.shx;
  PutBE32(shx, ShpImage::IndexPos(3), 100000);
  WriteFile(ShxOf(p), shx);
  EXPECT_EQ(s.Delete(2), 0);
  EXPECT_FALSE(s.sink.messages.empty());
  s.Close();
  EXPECT_TRUE(SameBytes(img.shp, ReadFile(p)));
  EXPECT_TRUE(SameBytes(shx, ReadFile(ShxOf(p))));
}

}  // namespace
}  // namespace shptest
