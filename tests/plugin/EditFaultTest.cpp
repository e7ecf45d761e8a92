// Every edit of a map, run again and again with one operation of the file
// system failing: the first write, then the second, and so on past the last
// one, and likewise for syncs, seeks and closes. The call that meets the
// failure must return 0 with one message that names the file and the
// system's reason, every call before it must have succeeded, the backups of
// the map are either absent or the whole map as it was, and once the failure
// falls past the last operation the edit gives exactly the files it gives
// without any failure.
//
// The plug-in's functions are called as linked into this program, so that
// the file system put in place through the seam is the one they use.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "VardaPlugIn.h"
#include "file/SistemaFicheros.h"
#include "support/EditRun.h"
#include "support/FaultDisk.h"
#include "support/HostMap.h"
#include "support/MemoryDisk.h"
#include "support/ShpBuilder.h"
#include "support/TempDir.h"

namespace {

using namespace shptest;

const std::vector<std::vector<XYZ>> kRecords = {
    {{0, 0, 0}, {1, 1, 0}, {2, 0, 0}, {3, 1, 0}},
    {{10, 10, 0}, {11, 12, 0}, {12, 10, 0}},
    {{20, 20, 0}, {21, 22, 0}, {22, 20, 0}, {23, 22, 0}, {24, 20, 0}},
};

ShpImage Original() {
  std::vector<XYZ> all;
  for (const auto& r : kRecords) all.insert(all.end(), r.begin(), r.end());
  return PolyLinesImage(kRecords, all);
}

struct Scenario {
  const char* name;
  bool create;        // a new map (create flag) instead of the sample map
  bool backups_made;  // the sample map's backups exist before the edit
  std::function<void(EditRun&)> edit;
};

const Scenario kScenarios[] = {
    {"append", false, false, [](EditRun& r) { r.Read(); r.Add(3, 0); }},
    {"append to a created map", true, false, [](EditRun& r) { r.Add(3, 0); r.Add(2, 0); }},
    {"replace, equal size", false, false, [](EditRun& r) { r.Read(); r.Add(3, 2); }},
    {"replace, growing", false, false, [](EditRun& r) { r.Read(); r.Add(7, 1); }},
    {"replace, shrinking", false, false, [](EditRun& r) { r.Read(); r.Add(2, 1); }},
    {"delete first", false, false, [](EditRun& r) { r.Read(); r.Delete(1); }},
    {"delete middle", false, false, [](EditRun& r) { r.Read(); r.Delete(2); }},
    {"delete last", false, false, [](EditRun& r) { r.Read(); r.Delete(3); }},
    {"two edits", false, false, [](EditRun& r) { r.Read(); r.Delete(1); r.Add(4, 0); }},
    {"append, backups present", false, true, [](EditRun& r) { r.Read(); r.Add(3, 0); }},
};

const struct {
  FaultDisk::Op op;
  const char* name;
} kOps[] = {
    {FaultDisk::kWrite, "write"},
    {FaultDisk::kSync, "sync"},
    {FaultDisk::kSeek, "seek"},
    {FaultDisk::kClose, "close"},
};

class EditFaultTest : public ::testing::Test {
 protected:
  const std::string kDir = "/maps";
  const std::string kShp = kDir + "/MAP.shp";
  const std::string kShx = kDir + "/MAP.shx";

  // The folder as the scenario starts.
  void Prepare(const Scenario& s) {
    mem.Clear();
    if (s.create) return;
    mem.Put(kShp, original.shp);
    mem.Put(kShx, original.shx);
    if (s.backups_made) {
      mem.Put(kShp + ".bak", original.shp);
      mem.Put(kShx + ".bak", original.shx);
    }
  }
  std::vector<Outcome> Play(const Scenario& s) {
    EditRun run(&faults, kShp, s.create);
    run.Open();
    s.edit(run);
    run.Close();
    return run.outcomes;
  }
  // Only the map's files and their backups, and the backups whole or absent.
  // Appends that closing could not write stay in the journal, and the next
  // opening writes them: the map is then as closing would have left it.
  void CheckFolder(const Scenario& s, const std::vector<Outcome>& got, const FileImages& expected,
                   const std::string& what) {
    if (mem.Exists(kShp + ".jnl")) {
      EXPECT_EQ(got.back().call, "close") << what << ": journal left by a failed " << got.back().call;
      faults.Reset();
      EditRun reopen(nullptr, kShp, false);
      reopen.Open();
      reopen.Close();
      EXPECT_EQ(mem.Files(), expected) << what << ": the journal did not give the closed map";
    }
    for (const std::string& n : mem.Names())
      EXPECT_TRUE(n == kShp || n == kShx || n == kShp + ".bak" || n == kShx + ".bak")
          << what << ": left behind " << n;
    if (!s.create) CheckBackups(mem.Files(), kShp, original, what);
  }

  ShpImage original = Original();
  MemoryDisk mem;
  FaultDisk faults{mem};
  ScopedFileSystem use{faults};
};

TEST_F(EditFaultTest, EveryFailedOperationIsReportedOnceAndNothingIsHalfBackedUp) {
  for (const Scenario& s : kScenarios) {
    // Without failures: what each edit gives, and how many operations it makes.
    Prepare(s);
    faults.Reset();
    const std::vector<Outcome> clean = Play(s);
    for (const Outcome& o : clean) ASSERT_EQ(o.result, 1) << s.name << Show(clean);
    const FileImages expected = mem.Files();
    int counts[FaultDisk::kNumOps];
    for (int op = 0; op < FaultDisk::kNumOps; op++)
      counts[op] = faults.Count(static_cast<FaultDisk::Op>(op));

    for (const auto& kind : kOps) {
      std::set<std::string> failed_calls;
      for (int n = 1;; n++) {
        const std::string what = std::string(s.name) + ", " + kind.name + " " + std::to_string(n);
        SCOPED_TRACE(what);
        Prepare(s);
        faults.Reset();
        faults.Fail(kind.op, n, ENOSPC);
        const std::vector<Outcome> got = Play(s);
        const bool injected = faults.Injected() != 0;
        const bool closing_journal = kind.op == FaultDisk::kClose && injected &&
                                     BaseName(faults.InjectedInto()) == "MAP.shp.jnl";
        if (!injected || closing_journal) {
          // Past the last operation, or at the closing of a journal that was
          // already made durable and marked done: the edit as without failures.
          if (!closing_journal) {
            EXPECT_GT(n, counts[kind.op]);
          }
          for (const Outcome& o : got) EXPECT_EQ(o.result, 1) << Show(got);
          EXPECT_EQ(mem.Files(), expected) << "the files differ from those of the same edit without failures";
          CheckFolder(s, got, expected, what);
          if (closing_journal) continue;
          break;
        }
        ASSERT_LE(n, 4 * counts[kind.op] + 50) << "the failure makes the edit run away" << Show(got);
        const Outcome* o = CheckReported(got, ENOSPC);
        ASSERT_NE(o, nullptr);
        if (o->result == 0) failed_calls.insert(o->call.substr(0, o->call.find(' ')));
        const std::string file = BaseName(o->into);
        // A backup that could not be made leaves the map as it was.
        if (!s.create && file.find(".bak") != std::string::npos) {
          EXPECT_TRUE(SameBytes(original.shp, mem.Get(kShp)));
          EXPECT_TRUE(SameBytes(original.shx, mem.Get(kShx)));
        }
        CheckFolder(s, got, expected, what);
      }
      // Every call that writes met a failed write for some n: the edits,
      // closing after appends (they go into the map then), and opening a
      // created map (its empty headers).
      if (kind.op == FaultDisk::kWrite) {
        bool appends = false;
        for (const Outcome& o : clean) {
          const std::string verb = o.call.substr(0, o.call.find(' '));
          if (verb == "add") appends = appends || s.create || o.call.find(" as 0") != std::string::npos;
          if (verb == "read" || (verb == "open" && !s.create) || (verb == "close" && !appends))
            continue;
          EXPECT_TRUE(failed_calls.count(verb)) << s.name << ": no write failure met " << verb;
        }
      }
    }
  }
}

TEST_F(EditFaultTest, KilledOrCutOffMidEditTheBackupsAreWholeOrAbsent) {
  for (const Scenario& s : kScenarios) {
    if (s.create) continue;
    SCOPED_TRACE(s.name);
    Prepare(s);
    faults.Reset();
    const FileImages before = mem.Files();
    for (const Outcome& o : Play(s)) ASSERT_EQ(o.result, 1);
    const std::vector<FaultDisk::Event> log = faults.Log();
    long long written = 0;
    for (const FaultDisk::Event& e : log) written += static_cast<long long>(e.bytes.size());

    // A power cut at any point, with any of the volatile writes kept.
    ForEachPowerCut(before, log, [&](const FileImages& after, const std::string& what) {
      CheckBackups(after, kShp, original, what);
    });

    // The process killed after every byte it writes (its temporary files
    // may stay behind: nobody is left to remove them).
    for (long long n = 0; n <= written; n++) {
      Prepare(s);
      faults.Reset();
      faults.CrashAfterBytes(n);
      Play(s);
      CheckBackups(mem.Files(), kShp, original, "killed after " + std::to_string(n) + " bytes");
      if (!faults.Crashed()) break;
    }
  }
}

// ---- the same, on the disk, for the first change of a map.

class EditFaultOnDiskTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(dir.ok());
    shp = PutMap(dir, "MAP", original);
    shx = ShxOf(shp);
  }
  // The map's files and backups as they are.
  FileImages Files() const {
    FileImages v;
    for (const std::string& p : {shp, shx, shp + ".bak", shx + ".bak"})
      if (FileExists(p)) v[p] = ReadFile(p);
    return v;
  }
  void ExpectUnchanged() const {
    EXPECT_TRUE(SameBytes(original.shp, ReadFile(shp)));
    EXPECT_TRUE(SameBytes(original.shx, ReadFile(shx)));
  }

  TempDir dir;
  ShpImage original = Original();
  std::string shp, shx;
};

TEST_F(EditFaultOnDiskTest, FirstChangeWithEveryWriteFailing) {
  TSistemaFicheros& disk = SistemaFicheros();
  FileImages expected;
  for (int n = 0;; n++) {
    SCOPED_TRACE("write " + std::to_string(n));
    ASSERT_EQ(PutMap(dir, "MAP", original), shp);
    std::remove((shp + ".bak").c_str());
    std::remove((shx + ".bak").c_str());
    std::remove((shp + ".jnl").c_str());  // appends a failed closing kept
    FaultDisk faults(disk);
    ScopedFileSystem use(faults);
    if (n > 0) faults.Fail(FaultDisk::kWrite, n, ENOSPC);
    std::vector<Outcome> got;
    {
      EditRun run(&faults, shp, false);
      run.Open();
      run.Read();
      run.Add(5, 0);
      run.Close();
      got = run.outcomes;
    }
    CheckBackups(Files(), shp, original, "");
    if (n == 0) {
      for (const Outcome& o : got) ASSERT_EQ(o.result, 1) << Show(got);
      expected = Files();
    } else if (faults.Injected() == 0) {
      EXPECT_EQ(Files(), expected);
      break;
    } else {
      EXPECT_NE(CheckReported(got, ENOSPC), nullptr);
    }
    ASSERT_LT(n, 1000);
  }
}

TEST_F(EditFaultOnDiskTest, FileSizeLimitIsReportedAsAWriteFailure) {
  // The backups exist, so that only the append meets the limit.
  ASSERT_TRUE(WriteFile(shp + ".bak", original.shp));
  ASSERT_TRUE(WriteFile(shx + ".bak", original.shx));
  EditRun run(nullptr, shp, false);
  run.Open();
  run.Read();
  struct rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  struct rlimit limit = before;
  limit.rlim_cur = static_cast<rlim_t>(original.shp.size() + 8);
  void (*handler)(int) = signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  run.Add(40, 0);
  setrlimit(RLIMIT_FSIZE, &before);
  signal(SIGXFSZ, handler);
  ASSERT_EQ(run.outcomes.size(), 3u);
  CheckMessage(run.outcomes.back(), "MAP.shp", EFBIG, run.outcomes);
}

TEST_F(EditFaultOnDiskTest, ReadOnlyFolderRefusesTheFirstChange) {
  if (geteuid() == 0) GTEST_SKIP() << "folder permissions do not bind root";
  EditRun run(nullptr, shp, false);
  run.Open();
  run.Read();
  ASSERT_EQ(chmod(dir.path().c_str(), 0555), 0);
  run.Add(3, 0);
  run.Close();
  chmod(dir.path().c_str(), 0755);
  ASSERT_GE(run.outcomes.size(), 3u);
  CheckMessage(run.outcomes[2], "MAP.sh", EACCES, run.outcomes);
  ExpectUnchanged();
  EXPECT_FALSE(FileExists(shp + ".bak"));
  EXPECT_FALSE(FileExists(shx + ".bak"));
}

TEST_F(EditFaultTest, ReadOnlyFolderRefusesTheFirstChange) {
  // The memory disk's read-only folder binds whoever runs the test.
  for (const Scenario& s : kScenarios) {
    if (s.create || s.backups_made) continue;
    SCOPED_TRACE(s.name);
    Prepare(s);
    faults.Reset();
    EditRun run(&faults, kShp, false);
    run.Open();
    mem.SetReadOnly(true);
    s.edit(run);
    run.Close();
    mem.SetReadOnly(false);
    // Opening and reading succeed; the first change is refused.
    ASSERT_GE(run.outcomes.size(), 4u);
    EXPECT_EQ(run.outcomes[1].call, "read");
    EXPECT_EQ(run.outcomes[1].result, 1);
    CheckMessage(run.outcomes[2], "MAP.sh", EACCES, run.outcomes);
    EXPECT_EQ(mem.Names(), (std::vector<std::string>{kShp, kShx}));
    EXPECT_TRUE(SameBytes(original.shp, mem.Get(kShp)));
    EXPECT_TRUE(SameBytes(original.shx, mem.Get(kShx)));
  }
}

}  // namespace
