// bench_plugin - how fast the SHP plug-in reads, edits and appends, held
// against the plain file operations that bound it and against shapelib.
//
// One run makes its own maps in a temporary folder and measures, on the same
// files: the plug-in driven through its exports as a host drives it, shapelib
// doing the same work, a read() loop over the .shp (the reference of reading)
// and a pread/pwrite move of the file's tail (the reference of an edit near
// the start). Every number is the median of several runs after a discarded
// warm-up run, with the page cache warm. One table is printed, with the
// performance targets beside the numbers they judge.
//
// Two floors bound the plug-in from below more tightly than the plain file
// operations: reading is held against a forward parser with no library that
// does only what a reader for this host cannot avoid (parse every record,
// copy every vertex into the host's point record, call the host's two
// callbacks), and the tail move is also timed with the fdatasync that a
// durable edit adds to it.
//
// Usage: bench_plugin [--quick] [--runs N] [--dir DIR] [--plugin PATH]
//                     [--only LIST] [--plugin-only] [--cpu]
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "plugin_bench/Floor.h"
#include "plugin_bench/Maps.h"
#include "plugin_bench/Measure.h"
#include "plugin_bench/PlugInHost.h"
#include "plugin_bench/ShapelibDriver.h"
#include "plugin_bench/Table.h"

#ifndef VARDA_BENCH_PLUGIN_PATH
#define VARDA_BENCH_PLUGIN_PATH "VardaPlugIn_SHP.so"
#endif

namespace {

using namespace bench;

// Performance targets of the plug-in.
constexpr double kReadPolyLine = 4.0;    // time over the read() loop
constexpr double kReadPolygonZ = 3.0;
constexpr double kReadPoint = 20.0;
constexpr double kReadOverFloor = 1.2;   // time over the parse and callback floor
constexpr double kRatePolyLine = 4.0;    // vertex rate over shapelib's
constexpr double kRatePolygonZ = 1.6;
constexpr double kRatePoint = 4.0;
constexpr double kReadRssMiB = 8.0;      // peak resident growth while reading
constexpr double kEditOverDurable = 2.5;   // delete or replace over the durable tail move
constexpr double kFirstOverDurable = 3.5;  // the first change, with its backups, over it
constexpr double kAppendRate = 500000.0; // shapes per second

constexpr int kLinePoints = 16;
constexpr int kShapePool = 256;  // distinct shapes cycled through when appending

const char* const kMeasurements[] = {"read-polyline", "read-polygonz", "read-point",
                                     "delete", "replace", "append"};

struct Options {
  bool quick = false;
  int runs = 5;
  std::string dir;
  std::string plugin = VARDA_BENCH_PLUGIN_PATH;
  std::set<std::string> only;
  bool plugin_only = false;
  bool cpu = false;
};

void Usage(FILE* out) {
  std::fprintf(out,
               "usage: bench_plugin [--quick] [--runs N] [--dir DIR] [--plugin PATH]\n"
               "                    [--only LIST] [--plugin-only] [--cpu]\n"
               "  --quick        maps of 1/50 of the full size\n"
               "  --runs N       timed runs per measurement after one warm-up run (default 5)\n"
               "  --dir DIR      keep the maps in DIR and reuse them in later runs\n"
               "                 (default: a temporary folder, removed at the end)\n"
               "  --plugin PATH  the plug-in to load (default %s)\n"
               "  --only LIST    comma-separated subset of: read-polyline, read-polygonz,\n"
               "                 read-point, delete, replace, append\n"
               "  --plugin-only  measure only the plug-in (no reference, no shapelib),\n"
               "                 e.g. under a profiler\n"
               "  --cpu          time with the process's CPU time (user + system) instead of\n"
               "                 wall time: steadier on a busy machine\n",
               VARDA_BENCH_PLUGIN_PATH);
}

bool ParseOptions(int argc, char** argv, Options& o) {
  for (int i = 1; i < argc; i++) {
    const std::string a = argv[i];
    auto value = [&](std::string& into) {
      if (i + 1 >= argc) return false;
      into = argv[++i];
      return true;
    };
    std::string v;
    if (a == "--quick") {
      o.quick = true;
    } else if (a == "--plugin-only") {
      o.plugin_only = true;
    } else if (a == "--cpu") {
      o.cpu = true;
    } else if (a == "--runs") {
      if (!value(v)) return false;
      o.runs = std::atoi(v.c_str());
      if (o.runs < 1) return false;
    } else if (a == "--dir") {
      if (!value(o.dir)) return false;
    } else if (a == "--plugin") {
      if (!value(o.plugin)) return false;
    } else if (a == "--only") {
      if (!value(v)) return false;
      std::stringstream ss(v);
      std::string item;
      while (std::getline(ss, item, ',')) {
        bool known = false;
        for (const char* m : kMeasurements) known = known || item == m;
        if (!known) {
          std::fprintf(stderr, "bench_plugin: unknown measurement '%s'\n", item.c_str());
          return false;
        }
        o.only.insert(item);
      }
    } else if (a == "--help" || a == "-h") {
      Usage(stdout);
      std::exit(0);
    } else {
      std::fprintf(stderr, "bench_plugin: unknown option '%s'\n", a.c_str());
      return false;
    }
  }
  return true;
}

// Files removed when the run is interrupted: a full-size run would otherwise
// leave about a gigabyte in the temporary folder. The handler may only use
// what is async-signal-safe, hence fixed buffers filled beforehand.
constexpr int kMaxCleanup = 16;
char g_cleanup[kMaxCleanup][1024];
char g_cleanup_dir[1024];
volatile sig_atomic_t g_cleanup_count = 0;

void CleanUpOnSignal(const std::string& path) {
  if (g_cleanup_count >= kMaxCleanup || path.size() >= sizeof g_cleanup[0]) return;
  std::memcpy(g_cleanup[g_cleanup_count], path.c_str(), path.size() + 1);
  g_cleanup_count = g_cleanup_count + 1;
}

extern "C" void OnSignal(int sig) {
  for (int i = 0; i < g_cleanup_count; i++) ::unlink(g_cleanup[i]);
  if (g_cleanup_dir[0]) ::rmdir(g_cleanup_dir);
  ::signal(sig, SIG_DFL);
  ::raise(sig);
}

void CatchSignals() {
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) ::signal(sig, OnSignal);
}

// The folder of the maps: either the caller's, kept, or a temporary one that
// is removed with everything in it when the run ends.
class WorkDir {
 public:
  explicit WorkDir(const std::string& asked) {
    if (!asked.empty()) {
      path_ = asked;
      if (::mkdir(path_.c_str(), 0755) != 0 && errno != EEXIST)
        throw std::runtime_error("cannot create " + path_ + ": " + std::strerror(errno));
      keep_ = true;
      return;
    }
    const char* tmp = std::getenv("TMPDIR");
    std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/varda_bench_XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    if (!::mkdtemp(buf.data()))
      throw std::runtime_error("cannot create a folder like " + templ + ": " + std::strerror(errno));
    path_ = buf.data();
    if (path_.size() < sizeof g_cleanup_dir) std::memcpy(g_cleanup_dir, path_.c_str(), path_.size() + 1);
  }
  ~WorkDir() {
    for (const std::string& f : files_) RemoveFile(f);
    if (!keep_) ::rmdir(path_.c_str());
  }
  WorkDir(const WorkDir&) = delete;
  WorkDir& operator=(const WorkDir&) = delete;

  const std::string& path() const { return path_; }
  bool kept() const { return keep_; }
  // A map written here: removed at the end unless the folder is kept.
  void Owns(const MapFiles& m) {
    if (keep_) return;
    for (const std::string& f : {m.shp, m.shx}) {
      files_.push_back(f);
      CleanUpOnSignal(f);
    }
  }

 private:
  std::string path_;
  bool keep_ = false;
  std::vector<std::string> files_;
};

struct Context {
  Options opt;
  PlugIn* plugin = nullptr;
  std::string scratch;  // stem prefix for the copies that are edited
  Table table;
};

bool Wanted(const Options& o, const char* name) { return o.only.empty() || o.only.count(name); }

std::string VertexRate(long long vertices, double seconds) {
  return seconds > 0 ? Fixed(vertices / seconds / 1e6, 1) + " Mv/s" : "";
}

std::string ShapeRate(long long shapes, double seconds) {
  return seconds > 0 ? Fixed(shapes / seconds / 1e3, 0) + " k/s" : "";
}

std::string MiB(long long bytes) { return Fixed(bytes / 1048576.0, 1) + " MiB"; }

std::string BlockSize(long long bytes) {
  return bytes % 1048576 == 0 ? std::to_string(bytes / 1048576) + " MiB"
                              : std::to_string(bytes / 1024) + " KiB";
}

// The .shp file length from the header, in bytes; -1 if it cannot be read.
long long HeaderLength(const std::string& shp) {
  int fd = ::open(shp.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  uint32_t be = 0;
  const bool ok = ::pread(fd, &be, 4, 24) == 4;
  ::close(fd);
  return ok ? 2LL * static_cast<int32_t>(__builtin_bswap32(be)) : -1;
}

bool CheckLength(const std::string& shp, long long expected, std::string& err) {
  const long long got = HeaderLength(shp);
  if (got == expected) return true;
  err = "the header of " + shp + " gives " + Thousands(got) + " bytes, " + Thousands(expected) +
        " expected";
  return false;
}

void RemoveMap(const std::string& stem) {
  for (const char* ext : {".shp", ".shx", ".shp.bak", ".shx.bak"}) RemoveFile(stem + ext);
}

// Makes the backups the plug-in looks for before its first change, as links
// to the untouched originals, so that it skips its own copies.
void LinkBackups(const MapFiles& m, const std::string& stem) {
  if (::link(m.shp.c_str(), (stem + ".shp.bak").c_str()) != 0) {
    int fd = ::open((stem + ".shp.bak").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd >= 0) ::close(fd);
  }
  if (::link(m.shx.c_str(), (stem + ".shx.bak").c_str()) != 0) {
    int fd = ::open((stem + ".shx.bak").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd >= 0) ::close(fd);
  }
}

Row Failed(const std::string& label, const Stats& s) {
  Row r;
  r.label = label;
  r.error = s.error;
  return r;
}

// A measured row: its median, its time over `base` when that was measured,
// and its peak memory; or the failure.
Row Timed(const std::string& label, const Stats& s, const Stats* base) {
  if (!s.ok) return Failed(label, s);
  Row r;
  r.label = label;
  r.seconds = s.median;
  if (base && base->ok && base->median > 0) r.ratio = s.median / base->median;
  r.rss_mib = s.peak_mib;
  return r;
}

// ---------------------------------------------------------------- reading

struct ReadTargets {
  double time_over_read;
  double rate_over_shapelib;
};

void MeasureRead(Context& c, const MapFiles& m, const char* kind, int points, ReadTargets t) {
  const int runs = c.opt.runs;
  std::string shape = points > 1 ? " x " + std::to_string(points) + " points" : "";
  c.table.Section("Reading " + std::string(kind) + ": " + Thousands(m.records) + " records" + shape +
                  ", " + Thousands(m.vertices) + " vertices, .shp " + MiB(m.shp_bytes));

  Stats ref;
  if (!c.opt.plugin_only) {
    ref = Repeat(runs, [&](Probe& p, std::string& err) {
      p.Begin();
      const long long n = ReadLoop(m.shp);
      p.End();
      if (n != m.shp_bytes) err = "read() loop got " + Thousands(n) + " bytes";
      return n == m.shp_bytes;
    });
  }

  Visit plugin_visit;
  const Stats plug = Repeat(runs, [&](Probe& p, std::string& err) {
    Visit v;
    HostMap map(*c.plugin);
    p.Begin();
    bool ok = map.Open(m.shp, false) && map.Read(v);
    map.Close();
    p.End();
    if (!ok) {
      err = "plug-in: " + map.Error();
      return false;
    }
    if (v.lines != m.records || v.vertices != m.vertices) {
      err = "plug-in delivered " + Thousands(v.lines) + " lines and " + Thousands(v.vertices) +
            " vertices, " + Thousands(m.records) + " and " + Thousands(m.vertices) + " expected";
      return false;
    }
    if (map.ProgressBytes() != m.shp_bytes - 100) {
      err = "plug-in reported progress of " + Thousands(map.ProgressBytes()) + " bytes";
      return false;
    }
    plugin_visit = v;
    return true;
  });

  // Both other readers add x + y + z vertex by vertex in file order as the
  // plug-in's callbacks do; any difference means one of them delivered other
  // coordinates or skipped some.
  auto agrees = [&](const Visit& v, const std::string& who, std::string& err) {
    if (v.vertices != m.vertices) {
      err = who + " visited " + Thousands(v.vertices) + " vertices";
      return false;
    }
    if (plug.ok && v.sum != plugin_visit.sum) {
      err = "the vertex sum differs from the plug-in's (" + Fixed(v.sum, 3) + " against " +
            Fixed(plugin_visit.sum, 3) + ")";
      return false;
    }
    return true;
  };

  // Same callbacks, same totals: the floor did all the work the plug-in did.
  Stats floor;
  if (!c.opt.plugin_only) {
    floor = Repeat(runs, [&](Probe& p, std::string& err) {
      Visit v;
      HostReader reader;
      InitHostReader(reader, v);
      p.Begin();
      const long long n = ParseFloor(m.shp, &reader.record, err);
      p.End();
      if (n < 0) return false;
      if (n != m.records || v.lines != m.records) {
        err = "the floor delivered " + Thousands(v.lines) + " lines";
        return false;
      }
      return agrees(v, "the floor", err);
    });
  }

  struct ShapelibSeries {
    std::string label;
    Stats stats;
  };
  std::vector<ShapelibSeries> shapelib;
  std::string shapelib_missing;
  if (!c.opt.plugin_only) {
    if (!ShapelibBuilt()) {
      shapelib_missing = sizeof(void*) == 4
                             ? "not measured: no shapelib for i386 (package libshp-dev:i386)"
                             : "not measured: shapelib not found at build time (libshp-dev)";
    }
    for (int fast = 0; ShapelibBuilt() && fast <= (ShapelibHasFastMode() ? 1 : 0); fast++) {
      ShapelibSeries s;
      s.label = fast ? "  shapelib fast mode (SHPSetFastModeReadObject)"
                     : "  shapelib: SHPOpen, SHPReadObject loop, SHPClose";
      s.stats = Repeat(runs, [&](Probe& p, std::string& err) {
        Visit v;
        p.Begin();
        bool ok = ShapelibRead(m.stem, fast != 0, v, err);
        p.End();
        return ok && agrees(v, "shapelib", err);
      });
      shapelib.push_back(s);
    }
  }

  const bool have_ref = !c.opt.plugin_only && ref.ok;
  if (!c.opt.plugin_only) {
    if (!ref.ok) {
      c.table.Add(Failed("  read() loop, 64 KiB blocks (reference)", ref));
    } else {
      Row r;
      r.label = "  read() loop, 64 KiB blocks (reference)";
      r.seconds = ref.median;
      r.ratio = 1.0;
      r.rss_mib = ref.peak_mib;
      c.table.Add(r);
    }
    Row r = Timed("  parse + callbacks floor, read() " + BlockSize(kFloorBlock) + ", no index",
                  floor, &ref);
    if (floor.ok) r.rate = VertexRate(m.vertices, floor.median);
    c.table.Add(r);
  }

  auto rate = [&](const Stats& s) { return s.ok && s.median > 0 ? m.vertices / s.median : -1.0; };
  if (!plug.ok) {
    c.table.Add(Failed("  plug-in: open, read, close", plug));
  } else {
    Row r;
    r.label = "  plug-in: open, read, close";
    r.seconds = plug.median;
    if (have_ref) r.ratio = plug.median / ref.median;
    r.ratio_target = AtMost(r.ratio, t.time_over_read, "<= " + Fixed(t.time_over_read, 0));
    r.rate = VertexRate(m.vertices, plug.median);
    if (!shapelib.empty() && shapelib[0].stats.ok)
      r.vs_shapelib = rate(plug) / rate(shapelib[0].stats);
    r.shapelib_target =
        AtLeast(r.vs_shapelib, t.rate_over_shapelib, ">= " + Fixed(t.rate_over_shapelib, 1));
    r.rss_mib = plug.peak_mib;
    r.rss_target = AtMost(r.rss_mib, kReadRssMiB, "<= " + Fixed(kReadRssMiB, 0));
    c.table.Add(r);
  }
  if (plug.ok && !c.opt.plugin_only && floor.ok && floor.median > 0) {
    Row r;
    r.label = "  plug-in time over the parse + callbacks floor";
    r.ratio = plug.median / floor.median;
    r.ratio_target = AtMost(r.ratio, kReadOverFloor, "<= " + Fixed(kReadOverFloor, 1));
    c.table.Add(r);
  }
  if (!shapelib_missing.empty()) {
    Row r;
    r.label = "  shapelib";
    r.note = shapelib_missing;
    c.table.Add(r);
  }
  for (const ShapelibSeries& s : shapelib) {
    if (!s.stats.ok) {
      c.table.Add(Failed(s.label, s.stats));
      continue;
    }
    Row r;
    r.label = s.label;
    r.seconds = s.stats.median;
    if (have_ref) r.ratio = s.stats.median / ref.median;
    r.rate = VertexRate(m.vertices, s.stats.median);
    // On shapelib rows: the plug-in's rate over this row's.
    if (plug.ok) r.vs_shapelib = rate(plug) / rate(s.stats);
    r.rss_mib = s.stats.peak_mib;
    c.table.Add(r);
  }
}

// ---------------------------------------------------------------- editing

// A series of edits, each on a fresh copy of the map: open and read it
// untimed, then time the edit and the close (which writes the headers).
Stats EditSeries(Context& c, const MapFiles& m, bool backups_present, long long expected_length,
                 const std::function<bool(HostMap&, std::string&)>& edit) {
  return Repeat(c.opt.runs, [&](Probe& p, std::string& err) {
    const std::string stem = c.scratch;
    RemoveMap(stem);
    if (!CopyFile(m.shp, stem + ".shp", err) || !CopyFile(m.shx, stem + ".shx", err)) {
      RemoveMap(stem);
      return false;
    }
    if (backups_present) LinkBackups(m, stem);
    bool ok;
    {
      HostMap map(*c.plugin);
      Visit v;
      ok = map.Open(stem + ".shp", false) && map.Read(v);
      if (ok) {
        p.Begin();
        ok = edit(map, err);
        map.Close();
        p.End();
      }
      if (!ok && err.empty()) err = "plug-in: " + map.Error();
    }
    ok = ok && CheckLength(stem + ".shp", expected_length, err);
    RemoveMap(stem);
    return ok;
  });
}

Stats TailMoveSeries(Context& c, const MapFiles& m, long long from, long long shift,
                     bool sync = false) {
  return Repeat(c.opt.runs, [&](Probe& p, std::string& err) {
    const std::string shp = c.scratch + ".shp";
    if (!CopyFile(m.shp, shp, err)) {
      RemoveFile(shp);
      return false;
    }
    p.Begin();
    const bool ok = TailMove(shp, from, shift, err, sync);
    p.End();
    RemoveFile(shp);
    return ok;
  });
}

// The edit rows of one change: the plain tail move (the reference), the same
// move made durable (the floor of an edit that is on disk when it returns),
// the plug-in's edit over that floor, first change and later, and what the
// one-time backups cost at the least.
void AddEditRows(Context& c, const std::string& shift, const std::string& action,
                 const Stats& ref, const Stats& durable, const Stats& first, const Stats& again,
                 const MapFiles& m, bool backup_floor) {
  const std::string ref_label = "  tail move by " + shift + ", pread/pwrite 1 MiB (ref)";
  if (!c.opt.plugin_only) {
    if (!ref.ok) {
      c.table.Add(Failed(ref_label, ref));
    } else {
      Row r;
      r.label = ref_label;
      r.seconds = ref.median;
      r.ratio = 1.0;
      r.rss_mib = ref.peak_mib;
      c.table.Add(r);
    }
    c.table.Add(Timed("  tail move by " + shift + " + fdatasync (durable floor)", durable, &ref));
  }
  const bool have_floor = !c.opt.plugin_only && durable.ok && durable.median > 0;
  const struct {
    const Stats* s;
    const char* suffix;
    double target;
  } rows[] = {{&first, " (makes .bak)", kFirstOverDurable},
              {&again, " (.bak present)", kEditOverDurable}};
  for (const auto& row : rows) {
    const std::string label = "  plug-in: " + action + row.suffix + ", x dur";
    if (!row.s->ok) {
      c.table.Add(Failed(label, *row.s));
      continue;
    }
    Row r;
    r.label = label;
    r.seconds = row.s->median;
    if (have_floor) {
      r.ratio = row.s->median / durable.median;
      r.ratio_target = AtMost(r.ratio, row.target, "<= " + Fixed(row.target, 1));
    }
    r.rss_mib = row.s->peak_mib;
    c.table.Add(r);
  }
  if (c.opt.plugin_only || !backup_floor) return;
  // What the one-time backups cost at the least: a plain copy of both files.
  const Stats copy = Repeat(c.opt.runs, [&](Probe& p, std::string& err) {
    const std::string shp = c.scratch + ".shp.bak", shx = c.scratch + ".shx.bak";
    p.Begin();
    const bool ok = CopyFile(m.shp, shp, err, false) && CopyFile(m.shx, shx, err, false);
    p.End();
    RemoveFile(shp);
    RemoveFile(shx);
    return ok;
  });
  c.table.Add(Timed("  copy of .shp + .shx, read/write 1 MiB (.bak floor)", copy, &ref));
}

void MeasureDelete(Context& c, const MapFiles& m) {
  const long long S = m.first_record_bytes;
  Stats ref;
  if (!c.opt.plugin_only) ref = TailMoveSeries(c, m, 100 + S, -S);
  auto edit = [](HostMap& map, std::string&) { return map.Delete(1); };
  Stats durable;
  if (!c.opt.plugin_only) durable = TailMoveSeries(c, m, 100 + S, -S, true);
  const Stats first = EditSeries(c, m, false, m.shp_bytes - S, edit);
  const Stats again = EditSeries(c, m, true, m.shp_bytes - S, edit);
  AddEditRows(c, "-" + std::to_string(S) + " B", "delete record 1", ref, durable, first, again, m,
              true);
}

void MeasureReplace(Context& c, const MapFiles& m) {
  const long long S = m.first_record_bytes;
  // A PolyLine record of 17 points instead of 16: exactly 16 bytes longer.
  std::vector<double> xy(2 * (kLinePoints + 1));
  LinePoints(0, kLinePoints + 1, xy.data());
  std::vector<TVectorPointPlugIn> pts(kLinePoints + 1);
  for (int k = 0; k <= kLinePoints; k++) {
    std::memset(&pts[k], 0, sizeof pts[k]);
    pts[k].tamanyo = 40;
    pts[k].x = xy[2 * k];
    pts[k].y = xy[2 * k + 1];
    pts[k].m = -1.0;
  }
  Stats ref, durable;
  if (!c.opt.plugin_only) {
    ref = TailMoveSeries(c, m, 100 + S, 16);
    durable = TailMoveSeries(c, m, 100 + S, 16, true);
  }
  auto edit = [&](HostMap& map, std::string&) {
    return map.Add(1, 0, kLinePoints + 1, pts.data());
  };
  const Stats first = EditSeries(c, m, false, m.shp_bytes + 16, edit);
  const Stats again = EditSeries(c, m, true, m.shp_bytes + 16, edit);
  AddEditRows(c, "+16 B", "replace record 1 +16 B", ref, durable, first, again, m, false);
}

// ---------------------------------------------------------------- appending

// Shapes of 16 points cycled through while appending, in the host's point
// records and as the X and Y arrays that shapelib takes.
struct ShapePool {
  std::vector<TVectorPointPlugIn> points;
  std::vector<double> x, y;
  ShapePool() : points(kShapePool * kLinePoints), x(points.size()), y(points.size()) {
    std::vector<double> xy(2 * kLinePoints);
    for (int s = 0; s < kShapePool; s++) {
      LinePoints(7919LL * s, kLinePoints, xy.data());
      for (int k = 0; k < kLinePoints; k++) {
        TVectorPointPlugIn& p = points[s * kLinePoints + k];
        std::memset(&p, 0, sizeof p);
        p.tamanyo = 40;
        p.x = x[s * kLinePoints + k] = xy[2 * k];
        p.y = y[s * kLinePoints + k] = xy[2 * k + 1];
        p.m = -1.0;
      }
    }
  }
  TVectorPointPlugIn* Plugin(long long i) { return &points[(i % kShapePool) * kLinePoints]; }
  const double* X(long long i) const { return &x[(i % kShapePool) * kLinePoints]; }
  const double* Y(long long i) const { return &y[(i % kShapePool) * kLinePoints]; }
};

bool AppendLines(HostMap& map, ShapePool& pool, long long count, std::string& err) {
  for (long long i = 0; i < count; i++) {
    if (!map.Add(0, 0, kLinePoints, pool.Plugin(i))) {
      err = "plug-in, shape " + Thousands(i + 1) + ": " + map.Error();
      return false;
    }
  }
  return true;
}

bool ShapelibAppendLines(void* h, const ShapePool& pool, long long count, std::string& err) {
  for (long long i = 0; i < count; i++) {
    if (!ShapelibAppendLine(h, kLinePoints, pool.X(i), pool.Y(i))) {
      err = "shapelib, shape " + Thousands(i + 1) + ": SHPWriteObject failed";
      return false;
    }
  }
  return true;
}

Row AppendRow(const std::string& label, const Stats& s, long long count, bool judged,
              double shapelib_rate) {
  if (!s.ok) return Failed(label, s);
  Row r;
  r.label = label;
  r.seconds = s.median;
  r.rate = ShapeRate(count, s.median);
  const double rate = s.median > 0 ? count / s.median : -1.0;
  if (judged) r.rate_target = AtLeast(rate, kAppendRate, ">= " + ShapeRate(kAppendRate, 1.0));
  if (shapelib_rate > 0 && rate > 0) r.vs_shapelib = rate / shapelib_rate;
  r.rss_mib = s.peak_mib;
  return r;
}

void MeasureAppend(Context& c, const MapFiles& m, long long count) {
  const int runs = c.opt.runs;
  ShapePool pool;
  const long long record = 8 + 4 + 32 + 4 + 4 + 4 + 16 * kLinePoints;
  c.table.Section("Appending " + Thousands(count) + " lines of " + std::to_string(kLinePoints) +
                  " points (rate in shapes per second)");

  const std::string stem = c.scratch;
  const Stats plug_new = Repeat(runs, [&](Probe& p, std::string& err) {
    RemoveMap(stem);
    bool ok;
    {
      HostMap map(*c.plugin);
      p.Begin();
      ok = map.Open(stem + ".shp", true);
      if (!ok) err = "plug-in: " + map.Error();
      ok = ok && AppendLines(map, pool, count, err);
      map.Close();
      p.End();
    }
    // A new map ends with a zero word that its length counts.
    ok = ok && CheckLength(stem + ".shp", 100 + count * record + 4, err);
    RemoveMap(stem);
    return ok;
  });

  Stats shp_new, shp_old;
  const bool with_shapelib = !c.opt.plugin_only && ShapelibBuilt();
  if (with_shapelib) {
    shp_new = Repeat(runs, [&](Probe& p, std::string& err) {
      RemoveMap(stem);
      p.Begin();
      void* h = ShapelibCreateLines(stem, err);
      bool ok = h && ShapelibAppendLines(h, pool, count, err);
      ShapelibClose(h);
      p.End();
      ok = ok && CheckLength(stem + ".shp", 100 + count * record, err);
      RemoveMap(stem);
      return ok;
    });
  }

  const long long grown = m.shp_bytes + count * record;
  auto add = [&](HostMap& map, std::string& err) { return AppendLines(map, pool, count, err); };
  const Stats plug_first = EditSeries(c, m, false, grown, add);
  const Stats plug_again = EditSeries(c, m, true, grown, add);

  if (with_shapelib) {
    shp_old = Repeat(runs, [&](Probe& p, std::string& err) {
      RemoveMap(stem);
      bool ok = CopyFile(m.shp, stem + ".shp", err) && CopyFile(m.shx, stem + ".shx", err);
      void* h = ok ? ShapelibOpenForUpdate(stem, err) : nullptr;
      ok = h != nullptr;
      if (ok) {
        p.Begin();
        ok = ShapelibAppendLines(h, pool, count, err);
        ShapelibClose(h);
        p.End();
      }
      ok = ok && CheckLength(stem + ".shp", grown, err);
      RemoveMap(stem);
      return ok;
    });
  }

  auto rate = [&](const Stats& s) { return s.ok && s.median > 0 ? count / s.median : -1.0; };
  const double shp_new_rate = with_shapelib ? rate(shp_new) : -1.0;
  const double shp_old_rate = with_shapelib ? rate(shp_old) : -1.0;
  c.table.Add(AppendRow("  plug-in: new map, open + add + close", plug_new, count, true,
                        shp_new_rate));
  if (with_shapelib)
    c.table.Add(AppendRow("  shapelib: SHPCreate + SHPWriteObject + SHPClose", shp_new, count,
                          false, -1.0));
  // Not judged: the one-time backup of the whole map, made durable before the
  // first append, costs more on its own than the appends are given.
  c.table.Add(AppendRow("  plug-in: add to PolyLine map (makes .bak)", plug_first, count,
                        false, shp_old_rate));
  c.table.Add(AppendRow("  plug-in: add to PolyLine map (.bak present)", plug_again, count, true,
                        shp_old_rate));
  if (with_shapelib)
    c.table.Add(AppendRow("  shapelib: add to PolyLine map (SHPOpen r+b)", shp_old, count, false,
                          -1.0));
  if (!c.opt.plugin_only && !ShapelibBuilt()) {
    Row r;
    r.label = "  shapelib";
    r.note = sizeof(void*) == 4 ? "not measured: no shapelib for i386 (package libshp-dev:i386)"
                                : "not measured: shapelib not found at build time (libshp-dev)";
    c.table.Add(r);
  }
}

// ---------------------------------------------------------------- main

std::string LoadAverage() {
  FILE* f = std::fopen("/proc/loadavg", "r");
  if (!f) return "unknown";
  char buf[128] = {0};
  const bool ok = std::fgets(buf, sizeof buf, f) != nullptr;
  std::fclose(f);
  if (!ok) return "unknown";
  std::string s(buf);
  // The first three fields: the 1, 5 and 15 minute averages.
  size_t cut = 0;
  for (int i = 0; i < 3 && cut != std::string::npos; i++) cut = s.find(' ', cut + 1);
  return s.substr(0, cut);
}

MapFiles ProvideMap(WorkDir& dir, const std::string& name, const MapSpec& spec) {
  const std::string stem = dir.path() + "/" + name + "_" + std::to_string(spec.records);
  MapFiles plan = PlanMap(stem, spec);
  // A map cut short by an interrupted run has the right size only once its
  // records are all there, and its header only after that.
  if (dir.kept() && FileSize(plan.shp) == plan.shp_bytes &&
      FileSize(plan.shx) == 100 + 8 * spec.records && HeaderLength(plan.shp) == plan.shp_bytes) {
    std::fprintf(stderr, "bench_plugin: reusing %s\n", plan.shp.c_str());
    return plan;
  }
  std::fprintf(stderr, "bench_plugin: writing %s (%s)\n", plan.shp.c_str(),
               MiB(plan.shp_bytes).c_str());
  dir.Owns(plan);
  return WriteMap(stem, spec);
}

int Run(const Options& opt) {
  const long long div = opt.quick ? 50 : 1;
  const MapSpec polyline{MapKind::PolyLine, 1000000 / div, kLinePoints, 1};
  const MapSpec polygonz{MapKind::PolygonZ, 200000 / div, 50, 2};
  const MapSpec points{MapKind::Point, 5000000 / div, 1, 1};
  const long long append_count = 100000 / div;

  UseCpuClock(opt.cpu);
  PlugIn plugin(opt.plugin);
  WorkDir dir(opt.dir);

  // Room for the maps, a copy of the PolyLine map, its backup and a new map.
  const long long need = PlanMap("", polyline).shp_bytes * 4 + PlanMap("", polygonz).shp_bytes +
                         PlanMap("", points).shp_bytes * 2;
  struct statvfs vfs;
  if (::statvfs(dir.path().c_str(), &vfs) == 0) {
    const long long avail = static_cast<long long>(vfs.f_bavail) * vfs.f_frsize;
    if (avail < need) {
      std::fprintf(stderr, "bench_plugin: %s has %s free, about %s needed\n", dir.path().c_str(),
                   MiB(avail).c_str(), MiB(need).c_str());
      return 2;
    }
  }

  Context c;
  c.opt = opt;
  c.plugin = &plugin;
  c.scratch = dir.path() + "/scratch";
  for (const char* ext : {".shp", ".shx", ".shp.bak", ".shx.bak"}) CleanUpOnSignal(c.scratch + ext);
  CatchSignals();

  const bool any_polyline = Wanted(opt, "read-polyline") || Wanted(opt, "delete") ||
                            Wanted(opt, "replace") || Wanted(opt, "append");
  MapFiles m_polyline, m_polygonz, m_points;
  if (any_polyline) m_polyline = ProvideMap(dir, "polyline", polyline);
  if (Wanted(opt, "read-polygonz")) m_polygonz = ProvideMap(dir, "polygonz", polygonz);
  if (Wanted(opt, "read-point")) m_points = ProvideMap(dir, "point", points);

  std::fprintf(stderr, "bench_plugin: measuring (%d runs each after a warm-up run)\n", opt.runs);
  if (Wanted(opt, "read-polyline"))
    MeasureRead(c, m_polyline, "PolyLine", kLinePoints, {kReadPolyLine, kRatePolyLine});
  if (Wanted(opt, "read-polygonz"))
    MeasureRead(c, m_polygonz, "PolygonZ (2 parts)", 50, {kReadPolygonZ, kRatePolygonZ});
  if (Wanted(opt, "read-point")) MeasureRead(c, m_points, "Point", 1, {kReadPoint, kRatePoint});
  if (Wanted(opt, "delete") || Wanted(opt, "replace"))
    c.table.Section("Editing the PolyLine map (fresh copy each run; opened and read untimed; "
                    "edit + close timed)");
  if (Wanted(opt, "delete")) MeasureDelete(c, m_polyline);
  if (Wanted(opt, "replace")) MeasureReplace(c, m_polyline);
  if (Wanted(opt, "append")) MeasureAppend(c, m_polyline, append_count);

  std::printf("VardaPlugIn_SHP benchmark: %s, %s, %s\n", plugin.VersionText().c_str(),
              sizeof(void*) == 8 ? "x86-64" : "i386", opt.quick ? "quick size (1/50)" : "full size");
  std::printf("plug-in %s; maps in %s\n", opt.plugin.c_str(), dir.path().c_str());
  std::printf("%s: median of %d runs after one discarded warm-up run, page cache warm; load "
              "average %s (a busy machine makes every number noisy)\n",
              opt.cpu ? "CPU time (user + system)" : "wall time", opt.runs,
              LoadAverage().c_str());
  if (!Probe::MemoryAvailable())
    std::printf("peak RSS not measured: /proc/self/clear_refs cannot be written here\n");
  std::printf("\n");
  c.table.Print(stdout);
  std::printf(
      "\nx ref: time over the section's reference. rate: vertices (Mv/s) or shapes (k/s) per\n"
      "second. x shplib: the plug-in's rate over shapelib's (on a plug-in row: over the\n"
      "SHPReadObject loop or SHPWriteObject; on a shapelib row: over that row). RSS MiB: peak\n"
      "resident size during the timed part over the resident size at its start, the largest\n"
      "of all runs, warm-up included. The edit references move the .shp tail only.\n"
      "\"makes .bak\" rows include the one-time .bak copies of both files that the plug-in\n"
      "makes before it first changes an existing map; \".bak present\" rows start with backups\n"
      "in place, so that the plug-in skips them. The \".bak floor\" row is a plain copy of both\n"
      "files; its ratio is over the tail move. The \"durable floor\" rows are the same\n"
      "tail move with fdatasync of the file after it: the least an edit costs that is on\n"
      "disk when it returns (ratio over the move). The plug-in's edit rows are over that\n"
      "floor (\"x dur\"): everything the plug-in makes durable is counted, its journal\n"
      "and, on the first change, its backups. With --cpu the wait for the disk is not\n"
      "counted. The append rate is judged without the one-time backup: made durable,\n"
      "the copy of the 312 MB map alone takes longer than 100,000 appends are given.\n"
      "The \"parse + callbacks floor\" reads the .shp forward with no library and no index,\n"
      "copies every vertex into the host's 40-byte point record and calls the benchmark's\n"
      "BeginLine and AddPoint through the reader record, as the plug-in must; the row\n"
      "below the plug-in holds the plug-in's time over that floor.\n");
  std::printf("\ntargets: %d held, %d missed; %d measurements failed\n", c.table.Held(),
              c.table.Missed(), c.table.Failed());
  return c.table.Failed() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options opt;
  if (!ParseOptions(argc, argv, opt)) {
    Usage(stderr);
    return 2;
  }
  try {
    return Run(opt);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench_plugin: %s\n", e.what());
    return 2;
  }
}
