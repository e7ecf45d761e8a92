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
}

// Index damage found by the checks between the two files, with their own
// messages.
TEST_F(Malformed, IndexDisagreeingWithTheMainFile) {
  struct Case {
    const char* name;
    void (*damage)(Bytes& shx);
    const char* message;
    size_t delivered;
  } cases[] = {
      {"index that says it holds two",
       [](Bytes& shx) {
         shx.resize(shx.size() - 8);
         PutBE32(shx, 24, static_cast<int32_t>(shx.size() / 2));
       },
       "Error: FileSize error in the SHP - SHX header.", 0},
      {"entry 2 beyond the main file", [](Bytes& shx) { PutBE32(shx, ShpImage::IndexPos(2), 100000); },
       "Error 1 in SHP-SHX relation in shape #1", 1},
      {"last entry beyond the main file", [](Bytes& shx) { PutBE32(shx, ShpImage::IndexPos(3), 100000); },
       "Error: FileSize error in the SHP - SHX header.", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ShpImage img = Three();
    c.damage(img.shx);
    TempDir d;
    MapSession s(PutMap(d, "m", img));
    ASSERT_EQ(s.Open(), 1);
    EXPECT_EQ(s.Read(), 0);
    EXPECT_EQ(s.sink.All(), c.message);
    EXPECT_EQ(s.reader.lines.size(), c.delivered);
  }
}

// ---- changes to a map whose files were damaged after it was read.

// The intact three-record map is read, then its index damaged on disk as
// another program might; the change must be refused naming the record it
// meant to replace or delete, and change neither file.
TEST_F(Malformed, EditsOfAMapWhoseIndexWasDamagedAfterReading) {
  const auto entry = [](int k, int32_t offset) {
    return [=](Bytes& shx) { PutBE32(shx, ShpImage::IndexPos(k), offset); };
  };
  const auto length = [](int k, int32_t words) {
    return [=](Bytes& shx) { PutBE32(shx, ShpImage::IndexPos(k) + 4, words); };
  };
  const auto drop = [](int n) { return [=](Bytes& shx) { shx.resize(shx.size() - 8 * n); }; };
  struct Case {
    const char* name;
    std::function<void(Bytes&)> damage;
    int id;           // the record changed, and named in the message
    int points = 4;   // of the replacement; 0 deletes
  } cases[] = {
      {"entry beyond the main file, replaced", entry(2, 100000), 2},
      {"entry beyond the main file, replaced by one as long", entry(2, 100000), 2, 3},
      {"entry beyond the main file, deleted", entry(2, 100000), 2, 0},
      {"last entry far beyond the main file, deleted", entry(3, 0x7FFFFFFF), 3, 0},
      {"negative entry, replaced", entry(3, -20), 3},
      {"next entry beyond the main file, deleted", entry(3, 100000), 2, 0},
      {"length beyond the end, replaced", length(3, 1000), 3},
      {"length beyond the end, deleted", length(3, 1000), 3, 0},
      {"negative length, deleted", length(3, -8), 3, 0},
      {"negative length, replaced", length(3, -8), 3},
      {"index short of a record, replaced", drop(1), 3},
      {"index short of a record, the one before deleted", drop(1), 2, 0},
      {"index short of a record, deleted", drop(1), 3, 0},
      {"index without entries, deleted", drop(3), 1, 0},
  };
  const std::vector<XYZ> replacement = {{1, 1, 0}, {2, 2, 0}, {3, 1, 0}, {4, 4, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir d;
    ShpImage img = Three();
    const std::string p = PutMap(d, "m", img);
    MapSession s(p);
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    c.damage(img.shx);
    PutMap(d, "m", img);
    const std::vector<XYZ> pts(replacement.begin(), replacement.begin() + c.points);
    EXPECT_EQ(c.points ? s.Add(0, pts, c.id) : s.Delete(c.id), 0);
    const std::string want = "record " + std::to_string(c.id) + " cannot be " + (c.points ? "replaced" : "deleted");
    EXPECT_NE(s.sink.Last().find(want), std::string::npos) << s.sink.All();
    s.Close();
    EXPECT_TRUE(SameMap(img, p));
  }
}

}  // namespace
}  // namespace shptest
