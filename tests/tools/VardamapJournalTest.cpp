// Journals left by killed sessions: the next vardamap run opens the map, the
// plug-in plays the journal inside the opening, and the tool says what was
// put right and from what. The journals are real: a vardamap changing a
// large map is killed with SIGKILL while its journal is on the disk.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "ToolRunner.h"
#include "support/ShpBuilder.h"

using namespace vmtest;

namespace {

long long Size(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

// A PolyLine map of `records` lines of `points` points: 16 bytes a point.
void WriteLineMap(const std::string& shp, int records, int points) {
  std::vector<std::vector<shptest::XYZ>> lines(records);
  for (int r = 0; r < records; ++r)
    for (int i = 0; i < points; ++i) lines[r].push_back({r + i * 0.001, i * 0.5, 0});
  shptest::ShpImage img = shptest::PolyLinesImage(lines, {{0, 0, 0}, {records + 1.0, points * 0.5, 0}});
  ASSERT_TRUE(shptest::WriteFile(shp, img.shp));
  ASSERT_TRUE(shptest::WriteFile(shp.substr(0, shp.size() - 3) + "shx", img.shx));
}

// The journal ends with its closing mark: from here on the plug-in may
// change the map, and an opening plays the journal.
bool Closed(const std::string& journal) {
  const long long n = Size(journal);
  if (n < 64) return false;
  std::ifstream in(journal, std::ios::binary);
  char mark[8] = {};
  in.seekg(n - 16);
  return in.read(mark, 8) && std::memcmp(mark, "VRDJEND1", 8) == 0;
}

// Starts vardamap with `args`, standard input from `input` (or /dev/null);
// waits for `ready()` to hold and kills it with SIGKILL then. True when it
// was killed with its journal on the disk and not yet marked done; false
// when it ended first.
template <class Ready>
bool KillWhen(const std::vector<std::string>& args, const std::string& input,
              const std::string& journal, Ready ready) {
  std::vector<std::string> all{VARDAMAP_BIN};
  all.insert(all.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& a : all) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    int in = open(input.empty() ? "/dev/null" : input.c_str(), O_RDONLY);
    int null = open("/dev/null", O_WRONLY);
    dup2(in, 0);
    dup2(null, 1);
    dup2(null, 2);
    execv(argv[0], argv.data());
    _exit(127);
  }
  const timespec ms{0, 1000000};
  int status = 0;
  while (!ready()) {
    if (waitpid(pid, &status, WNOHANG) == pid) return false;
    nanosleep(&ms, nullptr);
  }
  kill(pid, SIGKILL);
  waitpid(pid, &status, 0);
  return WIFSIGNALED(status) && Size(journal) >= 0 && ReadFile(journal).rfind("VRDJDONE", 0) != 0;
}

std::string RecoveredRow(const std::string& info) {
  std::smatch m;
  return std::regex_search(info, m, std::regex("(^|\n)recovered +([^\n]*)")) ? m[2].str() : "";
}

int InfoRecords(const std::string& info) {
  std::smatch m;
  return std::regex_search(info, m, std::regex("\nrecords +([0-9]+)")) ? std::stoi(m[1].str()) : -1;
}

// A journal as the plug-in writes one, made by hand: header, pieces (kept
// bytes follow their head) and the closing mark, with their CRCs.
uint32_t Crc(uint32_t crc, const shptest::Bytes& b, size_t from, size_t n) {
  crc = ~crc;
  for (size_t i = from; i < from + n; ++i) {
    crc ^= b[i];
    for (int k = 0; k < 8; ++k) crc = (crc & 1) ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
  }
  return ~crc;
}
void Le(shptest::Bytes& b, uint64_t v, int n) {
  for (int i = 0; i < n; ++i) b.push_back(static_cast<unsigned char>(v >> (8 * i)));
}
struct Piece {
  uint32_t type;  // 0 .shp bytes, 1 .shx bytes, 2 and 3 the .bak copies
  shptest::Bytes bytes;  // kept bytes; a copy's head gives only its size
  long long copy_size = 0;
};
shptest::Bytes Journal(uint32_t cls, long long shp_size, long long shx_size, uint32_t records,
                       const std::vector<Piece>& pieces) {
  shptest::Bytes j = {'V', 'R', 'D', 'J', 'N', 'L', '0', '1'};
  Le(j, cls, 4);
  Le(j, 0, 4);
  Le(j, shp_size, 8);
  Le(j, shx_size, 8);
  Le(j, records, 4);
  Le(j, 100, 8);
  Le(j, Crc(0, j, 0, 44), 4);
  uint32_t meta = Crc(0, j, 0, 48);
  for (const Piece& p : pieces) {
    const size_t at = j.size();
    Le(j, 0, 8);
    Le(j, p.type >= 2 ? p.copy_size : static_cast<long long>(p.bytes.size()), 8);
    Le(j, p.type, 4);
    Le(j, Crc(0, j, at, 20), 4);
    meta = Crc(meta, j, at, 24);
    j.insert(j.end(), p.bytes.begin(), p.bytes.end());
  }
  const char end[] = "VRDJEND1";
  j.insert(j.end(), end, end + 8);
  Le(j, pieces.size(), 4);
  Le(j, meta, 4);
  return j;
}

}  // namespace

// Deterministic journals: one keeping the map's bytes puts a damaged map
// back; one naming .bak copies that are gone cannot be played, so the map is
// refused as any map the plug-in refuses, and the journal stays.
TEST(VardamapJournal, MadeJournalsPlayOrRefuse) {
  TempDir dir;
  const std::string shp = dir / "roads.shp", shx = dir / "roads.shx", jnl = shp + ".jnl";
  WriteLineMap(shp, 6, 5);
  const shptest::Bytes good_shp = shptest::ReadFile(shp), good_shx = shptest::ReadFile(shx);
  ASSERT_TRUE(shptest::WriteFile(jnl, Journal(1, good_shp.size(), good_shx.size(), 6, {{0, good_shp}, {1, good_shx}})));
  shptest::Bytes half = good_shp;
  half.resize(good_shp.size() - 40);
  ASSERT_TRUE(shptest::WriteFile(shp, half));
  Result info = Vardamap({"info", shp});
  ASSERT_EQ(info.code, 0) << info.err;
  EXPECT_EQ(RecoveredRow(info.out), "an interrupted replace or delete was undone from roads.shp.jnl");
  EXPECT_EQ(InfoRecords(info.out), 6);
  EXPECT_TRUE(shptest::ReadFile(shp) == good_shp);
  EXPECT_FALSE(FileExists(jnl));

  const long long shp_size = good_shp.size(), shx_size = good_shx.size();
  const shptest::Bytes orphan = Journal(1, shp_size, shx_size, 6, {{2, {}, shp_size}, {3, {}, shx_size}});
  ASSERT_TRUE(shptest::WriteFile(jnl, orphan));
  Result refused = Vardamap({"info", shp});
  EXPECT_EQ(refused.code, 1) << refused.out;
  EXPECT_NE(refused.err.find("could not be put right"), std::string::npos) << refused.err;
  EXPECT_EQ(refused.out.find("recovered"), std::string::npos) << refused.out;
  EXPECT_TRUE(shptest::ReadFile(jnl) == orphan);
}

// A delete of record 1 of a 21 MB map, killed once its journal is closed,
// and info says what the opening did. On the first change the journal names
// the fresh .bak copies and the map is put back byte for byte; with them
// present the delete is made on copies of the files, which the closed
// journal puts in the map's place.
TEST(VardamapJournal, KilledDeleteIsPutBackAndSaid) {
  for (bool backups : {false, true}) {
    SCOPED_TRACE(backups ? "with .bak present" : "first change");
    TempDir dir;
    const std::string shp = dir / "roads.shp", shx = dir / "roads.shx", jnl = shp + ".jnl";
    WriteLineMap(shp, 1300, 1000);
    const shptest::Bytes before_shp = shptest::ReadFile(shp), before_shx = shptest::ReadFile(shx);
    bool caught = false;
    for (int attempt = 0; attempt < 5 && !caught; ++attempt) {
      for (const auto& [path, bytes] : {std::pair{shp, &before_shp}, std::pair{shx, &before_shx}}) {
        ASSERT_TRUE(shptest::WriteFile(path, *bytes));
        std::remove((path + ".bak").c_str());
        if (backups) CopyFile(path, path + ".bak");
      }
      caught = KillWhen({"delete", shp, "1"}, "", jnl, [&] { return Closed(jnl); });
    }
    ASSERT_TRUE(caught) << "the delete always ended before it could be killed";

    Result info = Vardamap({"info", shp});
    ASSERT_EQ(info.code, 0) << info.err;
    const std::string row = RecoveredRow(info.out);
    EXPECT_EQ(row, backups ? "a replace or delete that had finished on copies of the files was put "
                             "in place of the map (roads.shp.jnl)"
                           : "an interrupted first change was undone from the .bak copies")
        << info.out;
    EXPECT_NE(info.out.find("accepts the map"), std::string::npos) << info.out;
    EXPECT_EQ(info.err.find("recovered"), std::string::npos);
    EXPECT_FALSE(FileExists(jnl));
    EXPECT_FALSE(FileExists(shp + ".jnlcopy"));
    EXPECT_EQ(InfoRecords(info.out), backups ? 1299 : 1300);
    EXPECT_EQ(shptest::ReadFile(shp) == before_shp, !backups);
    EXPECT_EQ(shptest::ReadFile(shx) == before_shx, !backups);
    // Said once: the next run finds nothing to say.
    EXPECT_EQ(RecoveredRow(Vardamap({"info", shp}).out), "");
  }
}

// A run of appends killed part way: the opening writes every whole entry of
// the journal into the map, and another command says so in a warning.
TEST(VardamapJournal, KilledAppendsAreWrittenAndWarned) {
  TempDir dir;
  const std::string shp = dir / "tracks.shp", jnl = shp + ".jnl", input = dir / "points.txt";
  WriteLineMap(shp, 40, 4);
  {
    std::ofstream points(input);
    for (int s = 0; s < 200000; ++s) points << s << " 1\n" << s << " 2\n\n";
  }
  CopyFile(shp, shp + ".bak");
  CopyFile(dir / "tracks.shx", dir / "tracks.shx.bak");
  bool caught = false;
  for (int attempt = 0; attempt < 5 && !caught; ++attempt) {
    WriteLineMap(shp, 40, 4);
    // Well into the run: some entries are in the journal.
    caught = KillWhen({"add", shp}, input, jnl, [&] { return Size(jnl) > 20000; });
  }
  ASSERT_TRUE(caught) << "the run of appends always ended before it could be killed";

  Result check = Vardamap({"check", shp});
  ASSERT_EQ(check.code, 0) << check.err;
  std::smatch m;
  ASSERT_TRUE(std::regex_search(
      check.err, m,
      std::regex("^vardamap: warning: .*tracks\\.shp: the appends of an interrupted session were "
                 "written from tracks\\.shp\\.jnl: records 41 to ([0-9]+)\n$")))
      << check.err;
  EXPECT_FALSE(FileExists(jnl));
  Result info = Vardamap({"info", shp});
  ASSERT_EQ(info.code, 0) << info.err;
  EXPECT_EQ(RecoveredRow(info.out), "");
  EXPECT_GT(InfoRecords(info.out), 40);
  EXPECT_EQ(InfoRecords(info.out), std::stoi(m[1].str())) << info.out;
  EXPECT_NE(info.out.find("accepts the map"), std::string::npos) << info.out;
}

// Journals that never reached the map: one cut inside its header is thrown
// away with a word; one marked done goes without any.
TEST(VardamapJournal, CutShortJournalIsDiscardedAndDoneOneIsSilent) {
  TempDir dir;
  const std::string shp = dir / "roads.shp", jnl = shp + ".jnl";
  WriteLineMap(shp, 3, 5);
  const shptest::Bytes map = shptest::ReadFile(shp);
  shptest::Bytes head = {'V', 'R', 'D', 'J', 'N', 'L', '0', '1', 1, 0, 0, 0};
  head.resize(20, 0);
  ASSERT_TRUE(shptest::WriteFile(jnl, head));
  Result info = Vardamap({"info", shp});
  ASSERT_EQ(info.code, 0) << info.err;
  EXPECT_EQ(RecoveredRow(info.out),
            "an interrupted change that had not touched the map was discarded (roads.shp.jnl)");
  EXPECT_FALSE(FileExists(jnl));
  EXPECT_TRUE(shptest::ReadFile(shp) == map);

  ASSERT_TRUE(shptest::WriteFile(jnl, head));
  Result dump = Vardamap({"dump", shp});
  ASSERT_EQ(dump.code, 0) << dump.err;
  EXPECT_NE(dump.err.find("vardamap: warning: " + shp +
                          ": an interrupted change that had not touched the map was discarded"),
            std::string::npos)
      << dump.err;
  EXPECT_EQ(ParseDump(dump.out).size(), 3u);

  shptest::Bytes done = {'V', 'R', 'D', 'J', 'D', 'O', 'N', 'E'};
  done.resize(48, 0);
  ASSERT_TRUE(shptest::WriteFile(jnl, done));
  Result quiet = Vardamap({"check", shp});
  ASSERT_EQ(quiet.code, 0) << quiet.err;
  EXPECT_EQ(quiet.err, "");
  EXPECT_FALSE(FileExists(jnl));
}
