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

std::vector<XYZ> Line(int n, double at) {
  std::vector<XYZ> v;
  for (int i = 0; i < n; i++) v.push_back({at + i, at - i, 0});
  return v;
}

std::string BaseName(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// What one call of the scenario answered.
struct Outcome {
  std::string call;
  int result = 0;
  std::vector<std::string> messages;  // for closing: what it printed
  int injected = 0;                   // failures injected during the call
  std::string into;                   // the file the last of them struck
  bool after_failure = false;         // the closing after a failed call
};

// One map driven through the linked functions with host records laid out as
// a host lays them; once a call fails the scenario's later calls are not
// made, but an open map is still closed.
class EditRun {
 public:
  // `faults`, when given, tells which call met an injected failure.
  EditRun(const FaultDisk* faults, std::string path, bool create)
      : faults_(faults), map_(create), path_(std::move(path)) {}
  ~EditRun() {
    if (open_) Close();
  }

  void Open() {
    Call("open", [&] {
      std::vector<char> p(path_.begin(), path_.end());
      p.push_back('\0');
      const int r = VardaPlugIn_Open_Vector_Map(p.data(), Map(), Sink());
      open_ = r == 1;
      return r;
    });
  }
  void Read() {
    Call("read", [&] { return VardaPlugIn_Read_Vector_Map3(Map(), Rd(), Sink(), nullptr); });
  }
  void Add(int n, int32_t id) {
    Call("add " + std::to_string(n) + " points as " + std::to_string(id), [&] {
      Bytes attrs = LineAttrs(0, id);
      Bytes pts = PointArray(Line(n, 100 + id));
      return VardaPlugIn_Add_Poliline_Vector_Map(
          Map(), reinterpret_cast<TLineAttributesPlugIn*>(attrs.data()), n,
          reinterpret_cast<TVectorPointPlugIn*>(pts.data()), Sink());
    });
  }
  void Delete(int32_t id) {
    Call("delete " + std::to_string(id),
         [&] { return VardaPlugIn_Delete_Poliline_Vector_Map(Map(), id, Sink()); });
  }
  void Close() {
    if (!open_) return;
    const bool after_failure = failed_;
    failed_ = false;  // closing is made in any case
    Call("close", [&] {
      open_ = false;
      ::testing::internal::CaptureStderr();
      const int r = VardaPlugIn_Close_Vector_Map(Map());
      closing_text_ = ::testing::internal::GetCapturedStderr();
      return r;
    });
    outcomes.back().after_failure = after_failure;
  }

  std::vector<Outcome> outcomes;

 private:
  TVectorMapPlugIn* Map() { return static_cast<TVectorMapPlugIn*>(map_.rec()); }
  TStringPlugIn* Sink() { return static_cast<TStringPlugIn*>(sink_.rec()); }
  TReadVectorMapPlugIn* Rd() { return static_cast<TReadVectorMapPlugIn*>(reader_.rec()); }

  void Call(const std::string& name, const std::function<int()>& call) {
    if (failed_) return;
    Outcome o;
    o.call = name;
    const int injected = faults_ ? faults_->Injected() : 0;
    const size_t messages = sink_.messages.size();
    closing_text_.clear();
    o.result = call();
    if (faults_) {
      o.injected = faults_->Injected() - injected;
      o.into = faults_->InjectedInto();
    }
    o.messages.assign(sink_.messages.begin() + static_cast<long>(messages), sink_.messages.end());
    if (!closing_text_.empty()) o.messages.push_back(closing_text_);
    if (o.result != 1) failed_ = true;
    outcomes.push_back(o);
  }

  const FaultDisk* faults_;
  HostMap map_;
  ErrorSink sink_;
  Reader reader_;
  std::string path_;
  std::string closing_text_;
  bool open_ = false;
  bool failed_ = false;
};

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

std::string Show(const std::vector<Outcome>& outcomes) {
  std::string s;
  for (const Outcome& o : outcomes) {
    s += "\n  " + o.call + " -> " + std::to_string(o.result);
    if (o.injected) s += " (failure injected into " + o.into + ")";
    for (const std::string& m : o.messages) s += "\n    \"" + m + "\"";
  }
  return s;
}

// One message that names `file` and the reason of `error`.
void CheckMessage(const Outcome& o, const std::string& file, int error,
                  const std::vector<Outcome>& all) {
  EXPECT_EQ(o.result, 0) << "the failure went unreported" << Show(all);
  ASSERT_EQ(o.messages.size(), 1u) << Show(all);
  EXPECT_NE(o.messages[0].find(file), std::string::npos) << "no file name" << Show(all);
  EXPECT_NE(o.messages[0].find(std::strerror(error)), std::string::npos) << "no reason" << Show(all);
}

// The call that met the injected failure (null when none did), checked:
// every call before it succeeded, and it failed naming the file the failure
// struck (a temporary file by the name it stands for) and the reason.
const Outcome* CheckReported(const std::vector<Outcome>& got, int error) {
  size_t i = 0;
  while (i < got.size() && got[i].injected == 0) i++;
  if (i == got.size()) return nullptr;
  for (size_t j = 0; j < i; j++) EXPECT_EQ(got[j].result, 1) << Show(got);
  std::string file = BaseName(got[i].into);
  if (file.size() > 4 && file.compare(file.size() - 4, 4, ".$$$") == 0) file.resize(file.size() - 4);
  CheckMessage(got[i], file, error, got);
  return &got[i];
}

// The backups of `shp` among `files` are absent or the original files.
void CheckBackups(const FileImages& files, const std::string& shp, const ShpImage& original,
                  const std::string& what) {
  for (const auto& bak : {std::make_pair(shp + ".bak", &original.shp),
                          std::make_pair(ShxOf(shp) + ".bak", &original.shx)}) {
    auto it = files.find(bak.first);
    if (it != files.end()) {
      EXPECT_TRUE(SameBytes(*bak.second, it->second)) << what << ": " << bak.first;
    }
  }
}

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
  void CheckFolder(const Scenario& s, const std::string& what) {
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
        CheckFolder(s, what);
        if (faults.Injected() == 0) {
          // Past the last operation: the edit as without failures.
          EXPECT_GT(n, counts[kind.op]);
          for (const Outcome& o : got) EXPECT_EQ(o.result, 1) << Show(got);
          EXPECT_EQ(mem.Files(), expected) << "the files differ from those of the same edit without failures";
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
      }
      // Every call that writes met a failed write for some n: the edits,
      // closing (the headers), and opening a created map (its empty headers).
      if (kind.op == FaultDisk::kWrite) {
        for (const Outcome& o : clean) {
          const std::string verb = o.call.substr(0, o.call.find(' '));
          if (verb == "read" || (verb == "open" && !s.create)) continue;
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
