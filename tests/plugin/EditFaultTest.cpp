// The first change of a map on the disk, with the operating system saying
// no: every write failing in turn, the file size limit, a read-only folder.
// The call that meets the failure must return 0 with one message that names
// the file and the system's reason, every call before it must have
// succeeded, and the backups of the map are either absent or the whole map
// as it was. (The same on the memory disk, for every kind of edit and
// operation, is in CrashRecoveryTest.)
//
// The plug-in's functions are called as linked into this program, so that
// the file system put in place through the seam is the one they use.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "file/SistemaFicheros.h"
#include "support/EditRun.h"
#include "support/FaultDisk.h"
#include "support/MemoryDisk.h"
#include "support/ShpBuilder.h"
#include "support/TempDir.h"

namespace {

using namespace shptest;

ShpImage Original() {
  const std::vector<std::vector<XYZ>> records = {Line(4, 0), Line(3, 10), Line(5, 20)};
  std::vector<XYZ> all;
  for (const auto& r : records) all.insert(all.end(), r.begin(), r.end());
  return PolyLinesImage(records, all);
}

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
  EXPECT_TRUE(SameMap(original, shp));
  EXPECT_FALSE(FileExists(shp + ".bak"));
  EXPECT_FALSE(FileExists(shx + ".bak"));
}

// Map files that cannot be opened for writing, in a folder where nothing can
// be made: the format's own messages, before any backup is tried, and the
// map untouched.
TEST(EditFaultTest, FilesThatCannotBeWrittenGetTheFormatsMessagesFirst) {
  const struct {
    const char* file;
    const char* message;
  } cases[] = {{"MAP.shp", "Error: Cannot open /maps/MAP.shp for saving."},
               {"MAP.shx", "Error: File /maps/MAP.shx not found."}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    MemoryDisk mem;
    const ShpImage original = Original();
    mem.Put("/maps/MAP.shp", original.shp);
    mem.Put("/maps/MAP.shx", original.shx);
    FaultDisk faults(mem);
    ScopedFileSystem use(faults);
    EditRun run(&faults, "/maps/MAP.shp", false);
    run.Open();
    run.Read();
    mem.SetReadOnly(true);
    faults.Fail(FaultDisk::kOpen, 1, EACCES, c.file, true);  // every open from now on
    run.Add(3, 0);
    run.Close();
    ASSERT_EQ(run.outcomes.size(), 4u) << Show(run.outcomes);
    EXPECT_EQ(run.outcomes[2].result, 0);
    EXPECT_EQ(run.outcomes[2].messages, std::vector<std::string>{c.message});
    EXPECT_EQ(mem.Names(), (std::vector<std::string>{"/maps/MAP.shp", "/maps/MAP.shx"}));
    EXPECT_EQ(mem.Get("/maps/MAP.shp"), original.shp);
    EXPECT_EQ(mem.Get("/maps/MAP.shx"), original.shx);
  }
}

}  // namespace
