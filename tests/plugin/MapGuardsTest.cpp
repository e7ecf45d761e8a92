// Files the plug-in must refuse before it touches them (not regular files,
// maps larger than their header can count), edits after a read that refused
// the map, and maps whose counted length falls just short of their records.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "support/HostMap.h"
#include "support/ShpBuilder.h"

namespace shptest {
namespace {

const std::vector<XYZ> kA = {{0, 0, 1}, {1, 1, 2}};
const std::vector<XYZ> kB = {{2, 2, 3}, {3, 3, 4}, {4, 2, 5}};
const std::vector<XYZ> kC = {{5, 5, 6}, {6, 6, 7}};

ShpImage Three() {
  ShpBuilder b(3);
  for (const auto* r : {&kA, &kB, &kC}) b.Record(PolyContent(3, {0}, *r));
  return b.Build();
}

// An open that hangs (a FIFO opened for reading) would stop the whole run:
// the alarm turns it into a failure.
class Guards : public PlugInTest {
 protected:
  void SetUp() override {
    PlugInTest::SetUp();
    std::signal(SIGALRM, [](int) { _exit(3); });
    alarm(20);
  }
  void TearDown() override { alarm(0); }

  // A fresh copy of `img` in the test's folder.
  std::string Fresh(const ShpImage& img) { return PutMap(dir, "m" + std::to_string(n_++), img); }

  int n_ = 0;
};

TEST_F(Guards, NotRegularFilesAreRefusedAtOpen) {
  struct Case {
    const char* name;
    bool fifo;
    bool on_index;
  } cases[] = {{"fifo as .shp", true, false},
               {"fifo as .shx", true, true},
               {"folder as .shp", false, false},
               {"folder as .shx", false, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string p = Fresh(Three());
    const std::string target = c.on_index ? ShxOf(p) : p;
    ASSERT_EQ(unlink(target.c_str()), 0);
    ASSERT_EQ(c.fifo ? mkfifo(target.c_str(), 0644) : mkdir(target.c_str(), 0755), 0);
    MapSession s(p);
    EXPECT_EQ(s.Open(), 0);
    EXPECT_NE(s.sink.All().find("is not a regular file"), std::string::npos) << s.sink.All();
    EXPECT_NE(s.sink.All().find(c.on_index ? ".shx" : ".shp"), std::string::npos);
    EXPECT_FALSE(FileExists(p + ".bak"));
  }
}

TEST_F(Guards, MapBeyondWhatItsHeaderCanCountIsRefused) {
  const std::string p = Fresh(Three());
  // Sparse: no disk is spent on the 4.5 GB.
  ASSERT_EQ(truncate(p.c_str(), 4500LL * 1000 * 1000), 0);
  MapSession s(p);
  if (s.Open() == 1) {
    EXPECT_EQ(s.Read(), 0);
    EXPECT_EQ(s.Add(0, kA), 0);
    EXPECT_EQ(s.Delete(1), 0);
    s.Close();
  }
  EXPECT_NE(s.sink.All().find("too large"), std::string::npos) << s.sink.All();
  EXPECT_FALSE(FileExists(p + ".bak"));
  EXPECT_FALSE(FileExists(ShxOf(p) + ".bak"));
  struct stat st;
  ASSERT_EQ(stat(p.c_str(), &st), 0);
  EXPECT_EQ(st.st_size, 4500LL * 1000 * 1000);
}

TEST_F(Guards, NoEditAfterAReadThatRefusedTheMap) {
  // Record 2 claims a part beyond its points: reading stops there.
  ShpBuilder b(3);
  b.Record(PolyContent(3, {0}, kA)).Record(PolyContent(3, {0, 99}, kB)).Record(PolyContent(3, {0}, kC));
  const ShpImage img = b.Build();
  for (int kind = 0; kind < 3; kind++) {
    SCOPED_TRACE(kind);
    const std::string p = Fresh(img);
    MapSession s(p);
    ASSERT_EQ(s.OpenAndRead(), 0) << s.sink.All();
    s.sink.messages.clear();
    const int r = kind == 0 ? s.Add(0, kA) : kind == 1 ? s.Add(0, kB, 1) : s.Delete(1);
    EXPECT_EQ(r, 0);
    EXPECT_NE(s.sink.All().find("refused when it was read"), std::string::npos) << s.sink.All();
    EXPECT_EQ(s.Close(), 1);
    EXPECT_TRUE(SameMap(img, p));
    EXPECT_FALSE(FileExists(p + ".bak"));
  }
}

// A host may change a map it never read: the plug-in reads it first, so the
// change lands as it would after the host's own read. A map that reading
// refuses is then not touched, and the message is the read's.
TEST_F(Guards, ChangeWithoutAReadReadsTheMapFirst) {
  const struct {
    const char* name;
    int (*edit)(MapSession&);
  } edits[] = {
      {"append", [](MapSession& s) {
         int32_t id = 0;
         const int r = s.Add(0x80, kA, 0, &id);
         if (r == 1) {
           EXPECT_EQ(id, 4);
         }
         return r;
       }},
      {"replace", [](MapSession& s) { return s.Add(0x80, kC, 2); }},
      {"delete", [](MapSession& s) { return s.Delete(1); }},
  };
  for (const auto& e : edits) {
    SCOPED_TRACE(e.name);
    const std::string read_first = Fresh(Three()), unread = Fresh(Three());
    {
      MapSession s(read_first);
      ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
      ASSERT_EQ(e.edit(s), 1) << s.sink.All();
    }
    {
      MapSession s(unread);
      ASSERT_EQ(s.Open(), 1) << s.sink.All();
      EXPECT_EQ(e.edit(s), 1) << s.sink.All();
      EXPECT_EQ(s.Close(), 1) << s.sink.All();
      EXPECT_TRUE(s.sink.messages.empty()) << s.sink.All();
    }
    EXPECT_TRUE(SameBytes(ReadFile(read_first), ReadFile(unread)));
    EXPECT_TRUE(SameBytes(ReadFile(ShxOf(read_first)), ReadFile(ShxOf(unread))));

    ShpImage other = Three();
    other.shx[32] = 5;  // the index says polygons
    const std::string p = Fresh(other);
    MapSession s(p);
    ASSERT_EQ(s.Open(), 1) << s.sink.All();
    EXPECT_EQ(e.edit(s), 0);
    EXPECT_EQ(s.sink.All(), "Error: headers are not identical between SHP and SHX");
    EXPECT_EQ(s.Close(), 1);
    EXPECT_TRUE(SameMap(other, p));
    EXPECT_FALSE(FileExists(p + ".bak"));
  }
}

// A header length up to 4 words short of the last record is accepted by
// reading; the last record can then still be replaced and deleted.
TEST_F(Guards, HeaderLengthJustShortOfTheLastRecord) {
  ShpImage img = Three();
  const int32_t words = GetBE32(img.shp, 24);
  PutBE32(img.shp, 24, words - 4);
  for (int kind = 0; kind < 3; kind++) {
    SCOPED_TRACE(kind);
    MapSession s(Fresh(img));
    ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
    ASSERT_EQ(s.reader.lines.size(), 3u);
    const std::vector<XYZ> same = {{7, 7, 0}, {8, 8, 0}};
    const int r = kind == 0 ? s.Delete(3) : kind == 1 ? s.Add(0, same, 3) : s.Add(0, kB, 3);
    EXPECT_EQ(r, 1) << s.sink.All();
    EXPECT_EQ(s.Close(), 1);
  }
}

// A header whose length counts far past the end of the file: reading ends at
// the end of the file, but an append would land beyond a gap that no reader
// crosses (and grow the file by the gap). It is refused; the map stays.
TEST_F(Guards, AppendAfterAHeaderCountingPastTheFileIsRefused) {
  ShpImage img = Three();
  PutBE32(img.shp, 24, GetBE32(img.shp, 24) + 1000000);
  // An index whose own length ends in its header is not held against the
  // main file's length.
  PutBE32(img.shx, 24, 50);
  const std::string p = Fresh(img);
  MapSession s(p);
  ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
  s.sink.messages.clear();
  EXPECT_EQ(s.Add(0, kA), 0);
  EXPECT_NE(s.sink.All().find("gives a length beyond the end of the file"), std::string::npos)
      << s.sink.All();
  EXPECT_EQ(s.Close(), 1);
  EXPECT_TRUE(SameMap(img, p));
}

TEST_F(Guards, FirstPartStartingAtThePointCountIsAnEmptyLine) {
  ShpBuilder b(3);
  b.Record(PolyContent(3, {0}, kA)).Record(PolyContent(3, {3}, kB)).Record(PolyContent(3, {0}, kC));
  MapSession s(Fresh(b.Build()));
  ASSERT_EQ(s.OpenAndRead(), 1) << s.sink.All();
  ASSERT_EQ(s.reader.lines.size(), 3u);
  EXPECT_EQ(s.reader.lines[1].Id(), 2);
  EXPECT_TRUE(s.reader.lines[1].points.empty());
}

}  // namespace
}  // namespace shptest
