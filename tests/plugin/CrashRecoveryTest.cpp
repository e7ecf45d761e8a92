// Every change of a map, cut short in every way the fault disk can cut it,
// must leave a map that the next open brings back to a whole state:
//
// - the process killed after each of its writes in turn,
// - the power lost at every point of the write log, with any of the writes
//   not yet made durable lost too,
// - a write, sync, seek, close, truncation or rename failing: the call
//   reports it, the files are at once as before the call, and no file of the
//   call's own is left beside them,
// - the folder made read-only: the first change is refused.
//
// The whole states are never written out by hand: S_i is what the same
// scenario leaves, without faults, when it stops after its i-th edit and
// closes the map. After a cut the files must be S_j or S_{j+1} (j = the
// edits that had returned), the backups absent or whole, and nothing else
// may be left beside the map. The plug-in's functions are linked into this
// program, so the fault disk put in place through the seam is the one they
// use.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "support/EditRun.h"
#include "support/FaultDisk.h"
#include "support/MemoryDisk.h"
#include "support/ShpBuilder.h"

namespace {

using namespace shptest;

const std::string kShp = "/maps/MAP.shp", kShx = "/maps/MAP.shx";

struct MapCase {
  ShpImage img;
  int records;
};

// A PolyLine map whose record k has points[k - 1] points.
MapCase MakeMap(const std::vector<int>& points) {
  std::vector<std::vector<XYZ>> recs;
  std::vector<XYZ> all;
  for (size_t k = 0; k < points.size(); k++) {
    recs.push_back(Line(points[k], 1000.0 * static_cast<double>(k + 1)));
    all.insert(all.end(), recs.back().begin(), recs.back().end());
  }
  return {PolyLinesImage(recs, all), static_cast<int>(points.size())};
}
const MapCase& Small() {
  static const MapCase m = MakeMap({4, 3, 5});
  return m;
}
// Records of 6,456 bytes: record 11 runs from 64,660 to 71,116, across the
// end of the first 64 KiB the read cache holds.
const MapCase& CacheEdge() {
  static const MapCase m = MakeMap(std::vector<int>(12, 400));
  return m;
}
// A small record 1 before 3.1 MB of records: moving the tail takes several
// 1 MiB blocks.
const MapCase& Large() {
  static const MapCase m = [] {
    std::vector<int> points(301, 640);
    points[0] = 5;
    return MakeMap(points);
  }();
  return m;
}

// An edit: `points` < 0 deletes record `id`; else a line of `points` points
// is added as `id` (0 appends, an existing record's number replaces it).
struct Step {
  int id;
  int points;
  bool Append() const { return points >= 0 && id == 0; }
};

struct Scenario {
  const char* name;
  const MapCase& (*map)();  // null: a map created by the scenario
  bool bak;                 // the backups exist before the scenario
  std::vector<Step> steps;
};

const std::vector<Scenario>& Table() {
  static const std::vector<Scenario> t = {
      {"append 3", Small, false, {{0, 3}, {0, 2}, {0, 4}}},
      {"append 3, bak present", Small, true, {{0, 3}, {0, 2}, {0, 4}}},
      {"append 3 to a created map", nullptr, false, {{0, 3}, {0, 2}, {0, 4}}},
      {"replace equal size", Small, false, {{2, 3}}},
      {"replace growing", Small, false, {{1, 7}}},
      {"replace growing, bak present", Small, true, {{1, 7}}},
      {"replace shrinking", Small, false, {{1, 2}}},
      {"delete first", Small, false, {{1, -1}}},
      {"delete middle", Small, false, {{2, -1}}},
      {"delete last", Small, false, {{3, -1}}},
      {"replace then delete", Small, false, {{2, 6}, {1, -1}}},
      {"appends then delete", Small, false, {{0, 3}, {0, 2}, {2, -1}}},
      {"delete then append", Small, false, {{1, -1}, {0, 4}}},
      {"cache edge: replace growing", CacheEdge, false, {{11, 450}}},
      {"cache edge: replace shrinking, bak present", CacheEdge, true, {{11, 300}}},
      {"cache edge: delete first", CacheEdge, false, {{1, -1}}},
      {"cache edge: append 3", CacheEdge, false, {{0, 3}, {0, 2}, {0, 4}}},
      {"3 MB: delete first", Large, false, {{1, -1}}},
      {"3 MB: replace growing, bak present", Large, true, {{1, 9}}},
  };
  return t;
}

bool IsEdit(const Outcome& o) { return o.call.rfind("add", 0) == 0 || o.call.rfind("delete", 0) == 0; }

FileImages MapFiles(const MemoryDisk& d) {
  FileImages f;
  for (const std::string& n : {kShp, kShx})
    if (d.Exists(n)) f[n] = d.Get(n);
  return f;
}

// Sizes and first differing byte of each file of `got` against `want`.
std::string Diff(const FileImages& want, const FileImages& got) {
  std::string s;
  for (const std::string& n : {kShp, kShx}) {
    auto w = want.find(n), g = got.find(n);
    if (w == want.end() || g == got.end()) {
      if ((w == want.end()) != (g == got.end()))
        s += " " + BaseName(n) + (g == got.end() ? " missing;" : " present;");
      continue;
    }
    const Bytes &a = w->second, &b = g->second;
    if (a == b) continue;
    size_t i = 0;
    while (i < a.size() && i < b.size() && a[i] == b[i]) i++;
    s += " " + BaseName(n) + " " + std::to_string(b.size()) + " B (expected " +
         std::to_string(a.size()) + "), first difference at byte " + std::to_string(i) + ";";
  }
  return s;
}

// The reference states of a scenario and its fault-free run.
struct States {
  FileImages before;          // every file as the scenario starts
  std::vector<FileImages> s;  // S_0 .. S_m
  int counts[FaultDisk::kNumOps] = {};  // operations of the whole run
  int reading[FaultDisk::kNumOps] = {};  // of opening, reading and closing alone
  std::vector<int> records;              // records in S_i
  std::vector<Outcome> clean;            // the calls of the whole run
};

class CrashRecovery : public ::testing::TestWithParam<size_t> {
 protected:
  const Scenario& S() const { return Table()[GetParam()]; }
  int M() const { return static_cast<int>(S().steps.size()); }

  void Prepare() {
    mem.Clear();
    faults.Reset();
    if (!S().map) return;
    const ShpImage& img = S().map().img;
    mem.Put(kShp, img.shp);
    mem.Put(kShx, img.shx);
    if (S().bak) {
      mem.Put(kShp + ".bak", img.shp);
      mem.Put(kShx + ".bak", img.shx);
    }
  }
  // Open, read, the first `calls` edits, close.
  std::vector<Outcome> Play(int calls, std::function<void(const Outcome&)> hook = {}) {
    EditRun run(&faults, kShp, S().map == nullptr, false);
    run.after_call = std::move(hook);
    run.Open();
    if (S().map) run.Read();
    for (int i = 0; i < calls; i++) {
      const Step& st = S().steps[static_cast<size_t>(i)];
      if (st.points < 0)
        run.Delete(st.id);
      else
        run.Add(st.points, st.id);
    }
    run.Close();
    return run.outcomes;
  }

  // Computed once per scenario: the fault-free runs cut after each edit.
  const States& Ref() {
    static std::map<size_t, States> cache;
    auto found = cache.find(GetParam());
    if (found != cache.end()) return found->second;
    States& st = cache[GetParam()];
    int records = S().map ? S().map().records : 0;
    for (int i = 0; i <= M(); i++) {
      Prepare();
      if (i == 0) st.before = mem.Files();
      const std::vector<Outcome> got = Play(i);
      for (const Outcome& o : got) EXPECT_EQ(o.result, 1) << "fault-free, " << i << " edits: " << o.call;
      if (i == M()) st.clean = got;
      st.s.push_back(MapFiles(mem));
      for (int op = 0; op < FaultDisk::kNumOps; op++)
        (i == 0 ? st.reading : st.counts)[op] = faults.Count(static_cast<FaultDisk::Op>(op));
      if (i > 0) {
        const Step& e = S().steps[static_cast<size_t>(i - 1)];
        records += e.points < 0 ? -1 : e.Append() ? 1 : 0;
      }
      st.records.push_back(records);
    }
    return st;
  }

  // The states a cut may leave after `j` edits returned (all of them and
  // closing too when `closed`). A power loss during a run of appends, or
  // during the closing or call that ends it, may also take back the run's
  // earlier appends; a created map may also be left as before it was made.
  std::set<int> Allowed(int j, bool closed, bool power) const {
    if (closed) return {M()};
    std::set<int> ok = {j, std::min(j + 1, M())};
    const auto append = [&](int i) { return i >= 1 && i <= M() && S().steps[i - 1].Append(); };
    if (power && (append(j) || append(j + 1))) {
      int first = append(j + 1) ? j + 1 : j;
      while (append(first - 1)) first--;
      for (int i = first - 1; i <= j; i++) ok.insert(i);
    }
    if (!S().map && ok.count(0)) ok.insert(-1);
    return ok;
  }
  // The edits that had returned when the log had `end` events, uncrashed,
  // and the states they allow.
  std::set<int> AllowedAt(const std::vector<Outcome>& got, size_t end, bool power) const {
    int j = 0;
    bool cut = false, closed = false;
    for (const Outcome& o : got) {
      const bool returned = !cut && !o.crashed && o.log_size <= end;
      if (IsEdit(o)) returned ? j++ : (cut = true);
      if (o.call == "close") closed = returned && j == M();
    }
    return Allowed(j, closed, power);
  }

  // Opens the map on `d` again (the recovering open) and closes it; what is
  // wrong with what it leaves, or "". The backups must be whole both as the
  // cut leaves them and after the recovering open.
  std::string Recover(MemoryDisk& d, const std::set<int>& allowed) {
    const States& st = Ref();
    std::string p;
    const auto check_files = [&](bool recovered) {
      for (const std::string& n : d.Names()) {
        const bool bak = S().map && (n == kShp + ".bak" || n == kShx + ".bak");
        if (recovered && n != kShp && n != kShx && !bak) p += " " + BaseName(n) + " left behind;";
        if (bak && d.Get(n) != (n == kShp + ".bak" ? S().map().img.shp : S().map().img.shx))
          p += " " + BaseName(n) + " is not a whole copy of the map (" + std::to_string(d.Get(n).size()) + " B)" +
               (recovered ? ";" : " before the recovering open;");
      }
    };
    check_files(false);
    EditRun run(nullptr, kShp, false, false);
    run.Open();
    run.Close();
    if (d.Exists(kShp) && run.outcomes[0].result != 1)
      p += " the recovering open failed (" + Show(run.outcomes) + ");";
    check_files(true);
    const FileImages got = MapFiles(d);
    const auto state = [&](int k) { return k < 0 ? FileImages() : st.s[static_cast<size_t>(k)]; };
    for (int k : allowed)
      if (state(k) == got) return p;
    std::string found = "no state";
    for (int k = -1; k <= M(); k++)
      if (state(k) == got) found = k < 0 ? "the files before the map was made" : "S_" + std::to_string(k);
    p += " found " + found + ", allowed";
    for (int k : allowed) p += " S_" + std::to_string(k);
    return p + "; against S_" + std::to_string(*allowed.rbegin()) + ":" + Diff(state(*allowed.rbegin()), got);
  }

  void Note(const std::string& what, const std::string& problem) {
    if (!problem.empty()) problems.push_back(what + ":" + problem);
  }
  void TearDown() override {
    if (problems.empty()) return;
    std::string all;
    for (size_t i = 0; i < problems.size() && i < 40; i++) all += "\n  " + problems[i];
    if (problems.size() > 40) all += "\n  ... " + std::to_string(problems.size() - 40) + " more";
    ADD_FAILURE() << S().name << ": " << problems.size() << " cut(s) left a wrong map" << all;
  }

  MemoryDisk mem;
  FaultDisk faults{mem};
  ScopedFileSystem use{faults};
  std::vector<std::string> problems;
};

TEST_P(CrashRecovery, FaultFreeScenarioDoesWhatItSays) {
  const States& st = Ref();
  EXPECT_GT(st.counts[FaultDisk::kWrite], 0);
  for (int i = 0; i <= M(); i++) {
    SCOPED_TRACE("S_" + std::to_string(i));
    if (i > 0) {
      EXPECT_NE(st.s[static_cast<size_t>(i)], st.s[static_cast<size_t>(i - 1)]) << "the edit changed nothing";
    }
    if (!S().map && i == 0) continue;  // a created map's empty headers hold no map yet
    MemoryDisk d;
    for (const auto& f : st.s[static_cast<size_t>(i)]) d.Put(f.first, f.second);
    ScopedFileSystem use_d(d);
    EditRun run(nullptr, kShp, false, false);
    run.Open();
    run.Read();
    run.Close();
    for (const Outcome& o : run.outcomes) EXPECT_EQ(o.result, 1) << Show(run.outcomes);
    EXPECT_EQ(static_cast<int>(run.reader().lines.size()), st.records[static_cast<size_t>(i)]);
  }
}

// Killed after every write call; on the small maps also after every byte,
// which leaves the write that crosses the limit torn.
TEST_P(CrashRecovery, KilledAfterEveryWriteAndByte) {
  const int writes = Ref().counts[FaultDisk::kWrite];
  for (int n = 0; n <= writes + 1; n++) {
    Prepare();
    faults.CrashAfterWrites(n);
    const std::vector<Outcome> got = Play(M());
    if (n > writes) {
      EXPECT_FALSE(faults.Crashed()) << "the fault-free run wrote more than before";
    }
    faults.Reset();
    Note("killed after " + std::to_string(n) + " writes", Recover(mem, AllowedAt(got, SIZE_MAX, false)));
  }
  if (S().map && S().map != Small) return;
  for (long long n = 0;; n++) {
    Prepare();
    faults.CrashAfterBytes(n);
    const std::vector<Outcome> got = Play(M());
    const bool crashed = faults.Crashed();
    faults.Reset();
    Note("killed after " + std::to_string(n) + " bytes", Recover(mem, AllowedAt(got, SIZE_MAX, false)));
    if (!crashed) break;
  }
}

// Every power cut ForEachPowerCut makes, plus random subsets of the volatile
// events where it keeps only their in-order prefixes. For the 3 MB maps only
// the cuts that keep all or none of them: every image is a copy of megabytes.
void PowerCuts(const FileImages& before, const std::vector<FaultDisk::Event>& log, bool capped,
               const std::function<void(const FileImages&, const std::string&, size_t)>& check) {
  if (!capped)
    ForEachPowerCut(before, log, [&](const FileImages& images, const std::string& what) {
      check(images, what, std::stoul(what.substr(std::string("power cut after ").size())));
    });
  std::mt19937 random(20261123);
  for (size_t end = 0; end <= log.size(); end++) {
    const std::vector<FaultDisk::Event> prefix(log.begin(), log.begin() + static_cast<long>(end));
    const std::vector<size_t> v = Volatile(prefix);
    if (!capped && v.size() <= 10) continue;
    for (int t = 0; t < (capped ? 2 : 4); t++) {
      std::set<size_t> keep;
      std::string what = "power cut after " + std::to_string(end) + " events, volatile ones kept:";
      for (size_t i : v)
        if (capped ? t == 1 : random() % 2 == 0) keep.insert(i), what += " " + std::to_string(i);
      check(AfterPowerLoss(before, prefix, keep), what, end);
    }
  }
}

TEST_P(CrashRecovery, PowerCutAnywhere) {
  const States& st = Ref();
  const int writes = st.counts[FaultDisk::kWrite];
  // The fault-free run, and for the small maps runs killed a third and two
  // thirds of the way (on the larger ones each image costs a copy of the map).
  for (int n : {-1, writes / 3, 2 * writes / 3}) {
    if (n >= 0 && S().map && S().map != Small) break;
    Prepare();
    if (n >= 0) faults.CrashAfterWrites(n);
    const std::vector<Outcome> got = Play(M());
    const std::vector<FaultDisk::Event> log = faults.Log();
    const std::string run = n < 0 ? "" : "killed after " + std::to_string(n) + " writes, ";
    PowerCuts(st.before, log, S().map == Large, [&](const FileImages& images, const std::string& what, size_t end) {
      MemoryDisk cut;
      for (const auto& f : images) cut.Put(f.first, f.second);
      ScopedFileSystem use_cut(cut);
      Note(run + what, Recover(cut, AllowedAt(got, end, true)));
    });
  }
}

TEST_P(CrashRecovery, FailedCallLeavesTheFilesAsBefore) {
  const States& st = Ref();
  const struct {
    FaultDisk::Op op;
    const char* name;
  } ops[] = {{FaultDisk::kWrite, "write"},       {FaultDisk::kSync, "sync"},
             {FaultDisk::kSeek, "seek"},         {FaultDisk::kClose, "close"},
             {FaultDisk::kTruncate, "truncate"}, {FaultDisk::kRename, "rename"}};
  for (const auto& kind : ops) {
    std::set<std::string> failed_calls;
    // The 3 MB maps fail only writes, syncs and truncations that follow
    // their reading: a run costs a read of megabytes, and the smaller maps
    // fail their reads and seeks already.
    if (S().map == Large && kind.op == FaultDisk::kSeek) continue;
    for (int n = S().map == Large ? st.reading[kind.op] + 1 : 1;; n++) {
      const int error = n % 2 ? ENOSPC : EIO;
      const std::string what = std::string(kind.name) + " " + std::to_string(n) + " failing";
      SCOPED_TRACE(what);
      Prepare();
      faults.Fail(kind.op, n, error);
      // At once, in the same process: the files as before the failed call
      // (or, for an edit, as its predecessor leaves them once closed).
      int edits = 0, before = -2;
      bool in_place = false;  // the failed call replaces or deletes beside the backups
      FileImages last = MapFiles(mem);
      std::string at_once;
      const std::vector<Outcome> got = Play(M(), [&](const Outcome& o) {
        if (IsEdit(o)) edits++;
        if (o.injected && before == -2) {
          before = o.call == "close" ? M() : IsEdit(o) ? edits - 1 : S().map ? 0 : -1;
          in_place = IsEdit(o) && o.call.find(" as 0") == std::string::npos && (S().bak || edits > 1);
          const FileImages now = MapFiles(mem);
          if (o.result == 0 && o.call != "open" && o.call != "close" && now != last &&
              !(IsEdit(o) && now == st.s[static_cast<size_t>(edits - 1)]))
            at_once = " at once after the failed " + o.call + ", against the files before it:" + Diff(last, now) +
                      (IsEdit(o) ? " against S_" + std::to_string(edits - 1) + ":" +
                                       Diff(st.s[static_cast<size_t>(edits - 1)], now)
                                 : "");
        }
        last = MapFiles(mem);
      });
      const bool injected = faults.Injected() > 0;
      const std::string into = BaseName(faults.InjectedInto());
      faults.Reset();
      if (!injected) {
        EXPECT_GT(n, st.counts[kind.op]);
        for (const Outcome& o : got) EXPECT_EQ(o.result, 1) << Show(got);
        Note(what, Recover(mem, {M()}));
        break;
      }
      ASSERT_LE(n, 4 * st.counts[kind.op] + 50) << "the failure makes the edit run away" << Show(got);
      // Once a change is committed it only goes forward and the calls all
      // succeed: a rename of a change made on copies that fails then is tried
      // again; a journal durable and marked done that fails to close is no
      // failure; nor need be a map file that fails to close after a change
      // made in place, beside the backups.
      const bool all_done = std::all_of(got.begin(), got.end(), [](const Outcome& o) { return o.result == 1; });
      const bool journal_closed = kind.op == FaultDisk::kClose && into == "MAP.shp.jnl";
      if (journal_closed || (all_done && (kind.op == FaultDisk::kRename || (kind.op == FaultDisk::kClose && in_place)))) {
        EXPECT_TRUE(all_done) << Show(got);
        Note(what, Recover(mem, {M()}));
        continue;
      }
      const Outcome* o = CheckReported(got, error);
      ASSERT_NE(o, nullptr) << Show(got);
      if (o->result == 0) failed_calls.insert(o->call.substr(0, o->call.find(' ')));
      // The failed call leaves no file of its own; a closing that failed may
      // leave the journal, for the next open to write into the map.
      for (const std::string& n : mem.Names())
        if (n != kShp && n != kShx && n != kShp + ".bak" && n != kShx + ".bak" &&
            !(n == kShp + ".jnl" && o->call == "close"))
          Note(what, " " + BaseName(n) + " left by the failed " + o->call);
      // A created map whose making failed is no map yet: nothing to recover.
      if (before >= 0) Note(what, at_once + Recover(mem, {before}));
    }
    // Every call that writes met a failed write: the edits, closing after
    // appends (they go into the map then, or at the next other edit), and
    // opening a created map (its empty headers).
    if (kind.op != FaultDisk::kWrite) continue;
    bool appends = false;
    for (const Outcome& o : st.clean) {
      const std::string verb = o.call.substr(0, o.call.find(' '));
      if (IsEdit(o)) appends = !S().map || o.call.find(" as 0") != std::string::npos;
      if (verb == "read" || (verb == "open" && S().map) || (verb == "close" && !appends)) continue;
      EXPECT_TRUE(failed_calls.count(verb)) << "no write failure met " << verb;
    }
  }
}

// A folder where no file can be made or removed (the memory disk's, which
// binds whoever runs the test): opening and reading succeed, the first edit
// is refused naming the map and the reason, and nothing changes.
TEST_P(CrashRecovery, ReadOnlyFolderRefusesTheFirstChange) {
  if (!S().map) return;  // a created map needs the folder writable to be made
  Prepare();
  const FileImages before = mem.Files();
  const std::vector<Outcome> got = Play(M(), [&](const Outcome& o) {
    if (o.call == "read") mem.SetReadOnly(true);
  });
  mem.SetReadOnly(false);
  ASSERT_EQ(got.size(), 4u) << Show(got);
  EXPECT_EQ(got[1].result, 1) << Show(got);
  CheckMessage(got[2], "MAP.sh", EACCES, got);
  EXPECT_TRUE(mem.Files() == before) << Diff(before, mem.Files());
}

std::string ParamName(const ::testing::TestParamInfo<size_t>& info) {
  std::string s;
  for (const char* c = Table()[info.param].name; *c; c++) s += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
  return s;
}

INSTANTIATE_TEST_SUITE_P(Scenarios, CrashRecovery, ::testing::Range<size_t>(0, Table().size()), ParamName);

}  // namespace
