// A process editing a map of 31 MB is killed with SIGKILL at many moments of
// the edit. The next open must give the map as it was before the edit or
// after it (for a run of appends: after the calls that had returned, or one
// more), by the module's own read, byte for byte and by pyshp; no journal or
// other file may be left, and the backups are absent or whole copies of the
// map before its first change.
//
// The child, forked from this process that holds the module loaded through
// dlopen, says through a pipe when its read is done and whenever an edit call
// returns, so that each kill delay counts from the start of the edit. The
// delays are spread with a fixed seed over the edit's calls and close, as
// timed once without a kill.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "support/HostMap.h"
#include "support/ShpTools.h"

namespace shptest {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Ms = std::chrono::duration<double, std::milli>;

constexpr int kRecords = 45000, kPoints = 40, kAppends = 20000, kKills = 12;
enum Kind { kDelete, kReplace, kAppend };
const char* const kKindName[] = {"delete record 1", "replace record 1 (+16 bytes)", "append run"};

// Deterministic lines running east, so no point repeats the first: one part.
std::vector<XYZ> LinePoints(uint32_t seed, int n) {
  std::vector<XYZ> v;
  uint32_t s = seed * 2654435761u + 12345u;
  double x = 400000.0 + seed % 1000 * 50.0, y = 4500000.0 + seed / 1000 % 1000 * 50.0;
  for (int j = 0; j < n; j++) {
    s = s * 1664525u + 1013904223u;
    x += 0.5 + (s >> 20) * 0.001;
    y += ((s >> 8) & 0xfff) * 0.001 - 2.0;
    v.push_back({x, y, 0.0});
  }
  return v;
}
std::vector<XYZ> Replacement() { return LinePoints(7777777u, kPoints + 1); }
std::vector<XYZ> Appended(int a) { return LinePoints(1000000u + a, 10); }

// Call `i` (from 0) of an edit of `kind`.
int Edit(MapSession& s, Kind kind, int i) {
  return kind == kDelete    ? s.Delete(1)
         : kind == kReplace ? s.Add(0, Replacement(), 1)
                            : s.Add(0, Appended(i));
}

// A shape is known by a hash of its point count and the bits of its X and Y;
// the pyshp helper below computes the same.
constexpr uint64_t kSeed = 0xcbf29ce484222325ull;
uint64_t Mix(uint64_t h, const void* xy) {
  uint64_t u[2];
  std::memcpy(u, xy, 16);
  return (((h ^ u[0]) * 0x100000001b3ull) ^ u[1]) * 0x100000001b3ull;
}
uint64_t HashOf(const std::vector<XYZ>& pts) {
  uint64_t h = kSeed ^ pts.size();
  for (const XYZ& p : pts) h = Mix(h, &p.x);
  return h;
}

// A reader record keeping one hash per shape, not two million points; it
// finds itself through a pointer in the record's host-owned first bytes.
class HashReader {
 public:
  HashReader() : rec_(kRdSize, kSentinel) {
    PutPtr(rec_, 0, this);
    PutPtr(rec_, kRdBeginLine, &BeginLine);
    PutPtr(rec_, kRdAddPoint, &AddPoint);
    PutPtr(rec_, kRdOptions, static_cast<const char*>(nullptr));
  }
  void* rec() { return rec_.data(); }
  std::vector<uint64_t> shapes;
  bool ids_in_order = true;

 private:
  static HashReader* Me(void* rec) { return *static_cast<HashReader**>(rec); }
  static int32_t BeginLine(void* self, void* attrs) {
    const Bytes a(static_cast<unsigned char*>(attrs), static_cast<unsigned char*>(attrs) + 44);
    Me(self)->ids_in_order &= GetLE32(a, 8) == static_cast<int32_t>(Me(self)->shapes.size()) + 1;
    Me(self)->shapes.push_back(kSeed ^ static_cast<uint64_t>(GetLE32(a, 40)));
    return 1;
  }
  static void AddPoint(void* self, int32_t, void* pt, int32_t) {
    std::vector<uint64_t>& v = Me(self)->shapes;
    if (!v.empty()) v.back() = Mix(v.back(), static_cast<char*>(pt) + 4);
  }
  Bytes rec_;
};

struct Outcome {
  bool ready = false, closed = false, killed = false;
  int32_t calls = 0;    // edit calls that had returned
  int status = -1;      // from waitpid
  double calls_ms = 0;  // from the end of the read to the last call's return
  double ms = 0;        // ... to the child's end
};

// Forks a child that opens, reads, says -1, edits saying the number of calls
// returned after each, closes and says -2. Kills it `kill_ms` after the -1
// (never when negative); the child is reaped whatever happens.
Outcome RunChild(const std::string& shp, Kind kind, double kill_ms) {
  Outcome o;
  const int m = kind == kAppend ? kAppends : 1;
  int p[2];
  if (pipe(p) != 0) return o;
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    auto say = [&](int32_t w) {
      if (write(p[1], &w, 4) != 4) _exit(3);
    };
    MapSession s(shp);
    Reader quiet(false, false);
    if (s.Open() != 1 || s.Read(quiet) != 1) _exit(4);
    say(-1);
    for (int i = 0; i < m; say(++i)) {
      if (Edit(s, kind, i) == 1) continue;
      std::fprintf(stderr, "call %d: %s\n", i + 1, s.sink.All().c_str());
      _exit(5);
    }
    s.Close();
    say(-2);
    _exit(0);
  }
  close(p[1]);
  const auto never = Clock::time_point::max();
  Clock::time_point start = Clock::now(), deadline = never;
  std::string got;
  for (int n = pid < 0 ? 0 : 1, r; n > 0;) {
    if (Clock::now() >= deadline) kill(pid, SIGKILL), o.killed = true, deadline = never;
    const int64_t ns =
        deadline == never
            ? int64_t(120e9)
            : std::max<int64_t>(0, std::chrono::nanoseconds(deadline - Clock::now()).count());
    const timespec ts{static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
    pollfd pf{p[0], POLLIN, 0};
    if ((r = ppoll(&pf, 1, &ts, nullptr)) == 0 && deadline == never) break;  // it hangs
    if (r <= 0) continue;
    char buf[4096];
    n = static_cast<int>(read(p[0], buf, sizeof buf));
    for (got.append(buf, std::max(n, 0)); got.size() >= 4; got.erase(0, 4)) {
      int32_t w;
      std::memcpy(&w, got.data(), 4);
      o.calls = std::max(o.calls, w);
      o.closed |= w == -2;
      if (w == m) o.calls_ms = Ms(Clock::now() - start).count();
      if (w != -1) continue;
      o.ready = true;
      start = Clock::now();
      if (kill_ms >= 0) deadline = start + std::chrono::microseconds(int64_t(kill_ms * 1000));
    }
  }
  o.ms = Ms(Clock::now() - start).count();
  close(p[0]);
  if (pid > 0 && !o.closed) kill(pid, SIGKILL);  // it hangs, or has died already
  if (pid > 0) waitpid(pid, &o.status, 0);
  return o;
}

// What an open of the map finds: the open and read results and the shapes.
struct Found {
  int open = 0, read = 0;
  bool ids_in_order = true;
  std::vector<uint64_t> shapes;
  std::string messages;
};
Found OpenAndRead(const std::string& shp) {
  Found f;
  MapSession s(shp);
  if ((f.open = s.Open()) == 1) {
    HashReader rd;
    f.read = PlugInApi::Get().Read(s.map.rec(), rd.rec(), s.sink.rec(), nullptr);
    f.shapes = std::move(rd.shapes);
    f.ids_in_order = rd.ids_in_order;
    s.Close();
  }
  f.messages = s.sink.All();
  return f;
}

// "" when the file holds `want`, else where they part.
std::string Differ(const Bytes& want, const std::string& path) {
  std::error_code ec;
  const uintmax_t size = fs::file_size(path, ec);
  FILE* f = std::fopen(path.c_str(), "rb");
  Bytes buf(1 << 20);
  size_t at = 0, n;
  while (f && at < want.size() && (n = std::fread(buf.data(), 1, buf.size(), f)) > 0) {
    const auto w = want.begin() + at;
    const size_t k = std::mismatch(buf.begin(), buf.begin() + n, w, want.end()).first - buf.begin();
    at += k;
    if (k < n) break;
  }
  if (f) std::fclose(f);
  if (!ec && size == want.size() && at == size) return "";
  return path.substr(path.rfind('/') + 1) + " differs from byte " + std::to_string(at) + " (" +
         (ec ? "missing" : std::to_string(size) + " bytes") + ", expected " +
         std::to_string(want.size()) + ")";
}

// pyshp in one Python process per test: a map path in, a line out with its
// record count and the hashes of its first, second, middle and last records.
class Pyshp {
 public:
  Pyshp() {
    int sv[2];
    if (PythonWithPyshp().empty() || socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0) return;
    std::fflush(nullptr);
    if ((pid_ = fork()) == 0) {
      dup2(sv[1], 0), dup2(sv[1], 1), close(sv[0]), close(sv[1]);
      execlp(PythonWithPyshp().c_str(), "python3", "-c", kScript, static_cast<char*>(nullptr));
      _exit(127);
    }
    close(sv[1]);
    fd_ = sv[0];
  }
  ~Pyshp() {
    close(fd_);
    if (pid_ > 0) waitpid(pid_, nullptr, 0);
  }
  bool ok() const { return pid_ > 0; }
  // "" when pyshp finds what the module read.
  std::string Disagrees(const std::string& shp, const std::vector<uint64_t>& shapes) {
    const size_t n = shapes.size();
    std::string want = std::to_string(n), got, ask = shp + "\n";
    for (size_t i : std::set<size_t>{0, 1, n / 2, n - 1})
      if (i < n) want += " " + std::to_string(shapes[i]);
    char c;
    if (send(fd_, ask.data(), ask.size(), MSG_NOSIGNAL) != ssize_t(ask.size())) return "pyshp died";
    while (recv(fd_, &c, 1, 0) == 1 && c != '\n') got += c;
    return got == want ? "" : "pyshp read '" + got + "', expected '" + want + "'";
  }

 private:
  static constexpr const char* kScript =
      "import shapefile,struct,sys\n"
      "def h(s):\n"
      "  v=0xcbf29ce484222325^len(s.points)\n"
      "  for q in s.points:\n"
      "    for c in q[:2]: v=((v^struct.unpack('<Q',struct.pack('<d',c))[0])*0x100000001b3)%2**64\n"
      "  return v\n"
      "for p in sys.stdin:\n"
      "  try:\n"
      "    p=p.strip(); r=shapefile.Reader(shp=open(p,'rb'),shx=open(p[:-3]+'shx','rb')); "
      "n=len(r)\n"
      "    print(n,*[h(r.shape(i)) for i in sorted({0,1,n//2,n-1}) if 0<=i<n],flush=True)\n"
      "  except Exception as e: print(repr(e).replace('\\n',' '),flush=True)\n";
  pid_t pid_ = -1;
  int fd_ = -1;
};

class KillDuringEdit : public PlugInTest {
 protected:
  void SetUp() override {
    PlugInTest::SetUp();
    struct statfs sf;
    struct statvfs sv;
    ASSERT_TRUE(statfs(dir.path().c_str(), &sf) == 0 && statvfs(dir.path().c_str(), &sv) == 0);
    if (sf.f_type == 0x01021994) GTEST_SKIP() << dir.path() << " is a tmpfs, not a disk";
    if (sv.f_bavail * double(sv.f_frsize) < 1e9) GTEST_SKIP() << "< 1 GB free in " << dir.path();
    ShpBuilder b(3);
    b.Box(400000, 4400000, 500000, 4600000);  // holds every line
    for (int i = 0; i < kRecords; i++) {
      b.Record(PolyContent(3, {0}, LinePoints(i, kPoints)));
      s0_.push_back(HashOf(LinePoints(i, kPoints)));
    }
    after_[0] = b.Build();
    fs::create_directories(dir / "ref/run");
    fs::create_directory(dir / "work");
    ASSERT_TRUE(WriteFile(dir / "ref/s0.shp", after_[0].shp));
    ASSERT_TRUE(WriteFile(dir / "ref/s0.shx", after_[0].shx));
  }

  // The map as it was before the edit, with or without backups; backups
  // found whole are kept (the module never writes them).
  void Restore(const std::string& where, bool with_bak) {
    for (const auto& e : fs::directory_iterator(where))
      if (!with_bak || e.path().extension() != ".bak") fs::remove_all(e.path());
    for (const std::string ext : {"shp", "shx"}) {
      fs::copy_file(dir / ("ref/s0." + ext), where + "/map." + ext);
      if (with_bak && !FileExists(where + "/map." + ext + ".bak"))
        fs::copy_file(dir / ("ref/s0." + ext), where + "/map." + ext + ".bak");
    }
  }

  std::vector<uint64_t> ShapesAfter(Kind kind, int k) const {
    std::vector<uint64_t> v = s0_;
    if (k > 0 && kind == kDelete) v.erase(v.begin());
    if (k > 0 && kind == kReplace) v[0] = HashOf(Replacement());
    for (int a = 0; kind == kAppend && a < k; a++) v.push_back(HashOf(Appended(a)));
    return v;
  }

  // The files after k calls and a close, made once without a kill.
  const ShpImage& FilesAfter(Kind kind, int k) {
    if (!after_.count(k)) {
      const std::string run = dir / "ref/run";
      Restore(run, true);
      MapSession s(run + "/map.shp");
      Reader quiet(false, false);
      EXPECT_TRUE(s.Open() == 1 && s.Read(quiet) == 1);
      for (int i = 0; i < k; i++) EXPECT_EQ(Edit(s, kind, i), 1) << s.sink.All();
      s.Close();
      after_[k] = {ReadFile(run + "/map.shp"), ReadFile(run + "/map.shx")};
    }
    return after_[k];
  }

  void Run(Kind kind, bool with_bak, int kills, unsigned seed) {
    const std::string work = dir / "work", shp = work + "/map.shp";
    const int m = kind == kAppend ? kAppends : 1;
    Restore(work, with_bak);
    const Outcome clean = RunChild(shp, kind, -1);
    ASSERT_TRUE(clean.closed && clean.status == 0) << "the edit fails without a kill";
    ASSERT_TRUE(OpenAndRead(shp).shapes == ShapesAfter(kind, m)) << "other shapes without a kill";
    ASSERT_EQ(Differ(FilesAfter(kind, m).shp, shp), "") << "the child and the parent differ";
    Pyshp pyshp;
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> jitter(0.0, 1.0);
    for (int i = 0; i < kills; i++) {
      const double delay = 1.1 * clean.ms * (i + jitter(rng)) / kills;
      Restore(work, with_bak);
      const Outcome o = RunChild(shp, kind, delay);
      const Found f = OpenAndRead(shp);
      std::vector<std::string> bad;
      if (!o.ready || (!o.killed && o.status != 0))
        bad.push_back("the child failed by itself (status " + std::to_string(o.status) + ")");
      if (f.open != 1 || f.read != 1)
        bad.push_back("the recovering open returned " + std::to_string(f.open) + ", the read " +
                      std::to_string(f.read));
      // The kill may leave the state after the calls that returned, or one more.
      const int lo = o.closed ? m : o.calls, hi = std::min(m, lo + 1);
      int state = -1;
      for (int j = lo; j <= hi; j++)
        if (f.ids_in_order && f.shapes == ShapesAfter(kind, j)) state = j;
      const auto same = std::mismatch(s0_.begin(), s0_.end(), f.shapes.begin(), f.shapes.end());
      if (state < 0)
        bad.push_back("read " + std::to_string(f.shapes.size()) + " shapes, the first " +
                      std::to_string(same.first - s0_.begin()) + " as before the edit" +
                      (f.ids_in_order ? "" : ", ids out of order") + "; expected the state after " +
                      std::to_string(lo) + (hi > lo ? " or " + std::to_string(hi) : "") + " calls");
      const ShpImage& want = FilesAfter(kind, state < 0 ? lo : state);
      bad.push_back(Differ(want.shp, shp));
      bad.push_back(Differ(want.shx, ShxOf(shp)));
      for (const auto& e : fs::directory_iterator(work))
        if (!std::set<fs::path>{"map.shp", "map.shx", "map.shp.bak", "map.shx.bak"}.count(
                e.path().filename()))
          bad.push_back("left behind: " + e.path().filename().string());
      for (const std::string ext : {"shp", "shx"}) {
        const std::string bak = work + "/map." + ext + ".bak";
        if (!FileExists(bak) && (with_bak || state > 0 || FileExists(shp + ".bak")))
          bad.push_back("map." + ext + ".bak is missing");  // the map changed without it
        else if (FileExists(bak))  // whole, as the map was before its first change
          bad.push_back(Differ(ext == "shp" ? after_[0].shp : after_[0].shx, bak));
      }
      if (f.read == 1 && pyshp.ok()) bad.push_back(pyshp.Disagrees(shp, f.shapes));
      std::string all;
      for (const std::string& b : bad) all += b.empty() ? "" : "\n  - " + b;
      if (all.empty()) continue;
      for (const char* ext : {".shp.bak", ".shx.bak"}) fs::remove(work + "/map" + ext);
      char when[160];
      std::snprintf(when, sizeof when,
                    "at %.1f ms (without a kill the calls end at %.1f ms, the "
                    "close at %.1f ms); %d calls returned",
                    delay, clean.calls_ms, clean.ms, o.calls);
      ADD_FAILURE() << kKindName[kind] << (with_bak ? "" : " (first change)") << ", kill " << i + 1
                    << "/" << kills << " " << when << (o.closed ? ", closed" : "")
                    << (o.killed ? "" : ", ended before the kill") << ":" << all
                    << (f.messages.empty() ? ""
                                           : "\n  messages of the open and read: " + f.messages);
    }
    if (!pyshp.ok()) GTEST_SKIP() << "no python3 with pyshp: the independent reader was not run";
  }

  std::vector<uint64_t> s0_;
  std::map<int, ShpImage> after_;  // the files after k calls; 0: before the edit
};

TEST_F(KillDuringEdit, DeleteFirstRecord) { Run(kDelete, true, kKills, 1301); }
TEST_F(KillDuringEdit, DeleteFirstRecordMakingTheBackups) { Run(kDelete, false, 6, 1302); }
TEST_F(KillDuringEdit, ReplaceFirstRecordLonger) { Run(kReplace, true, kKills, 1303); }
TEST_F(KillDuringEdit, AppendRun) { Run(kAppend, true, kKills, 1304); }

}  // namespace
}  // namespace shptest
