// large_maps - maps beyond 2 GiB through the plug-in, for the CI step
// .ci/run.d/60-large-maps.sh.
//
//   large_maps write STEM RECORDS         write a PolyLine map of RECORDS records
//   large_maps edit PLUGIN STEM OP...     one open .. close of the map on the plug-in
//       read=N                  read it all; N lines, ids 1..N in order, expected
//       replace=ID:SEED:POINTS  replace record ID by the pattern's line
//       delete=ID               delete record ID
//   large_maps check STEM LAYOUT...       check the files with no plug-in; LAYOUT lists
//                                         the records in order: A-B for the written
//                                         records A to B, SEED/POINTS for a replacement
//   large_maps oversized STEM             write the map too large for its header
//   large_maps refuse PLUGIN STEM         the plug-in must refuse that map: open or
//                                         read fails with a message, every change
//                                         fails, no .bak appears, the files stay as
//                                         they were
//
// Prints one line for each thing it does; exits 1 on a fault, 2 on misuse.
#include <dlfcn.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "MapFiles.h"
#include "VardaPlugIn.h"
#include "common/HostLineAttributes.h"
#include "common/PlugInExports.h"

namespace {

using large::Expected;

double Now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

struct Fault : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// ---------------------------------------------------------------- the host

struct Sink {
  TStringPlugIn record;
  std::string text;
};
void KeepText(TStringPlugIn* self, const char* text) {
  Sink* s = reinterpret_cast<Sink*>(self);
  if (!s->text.empty()) s->text += " / ";
  s->text += text ? text : "(null)";
}

// What reading delivered; ids must come 1, 2, 3, ... as the records do.
struct Delivered {
  TReadVectorMapPlugIn record;
  long long lines = 0;
  long long points = 0;
  long long out_of_order = 0;  // lines whose id was not the next number
};
int32_t BeginLine(TReadVectorMapPlugIn* self, TLineAttributesPlugIn* a) {
  Delivered* d = reinterpret_cast<Delivered*>(self);
  if (a->id_bd != d->lines + 1) d->out_of_order++;
  return static_cast<int32_t>(++d->lines);
}
void AddPoint(TReadVectorMapPlugIn* self, int32_t, TVectorPointPlugIn*, int32_t) {
  reinterpret_cast<Delivered*>(self)->points++;
}

class Progress final : public TProgressPlugIn {
 public:
  void SetTotal(int32_t) override {}
  void Advance(int32_t) override {}
  bool IsCancelled() override { return false; }
};

class PlugIn {
 public:
  explicit PlugIn(const std::string& path) {
    const std::string where = path.find('/') == std::string::npos ? "./" + path : path;
    handle_ = dlopen(where.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_) throw std::runtime_error("cannot load " + path + ": " + dlerror());
    if (const char* missing = api.Resolve(handle_))
      throw std::runtime_error(path + " lacks the export " + missing);
    api.Init();
  }
  ~PlugIn() { dlclose(handle_); }
  PlugIn(const PlugIn&) = delete;
  PlugIn& operator=(const PlugIn&) = delete;
  host::PlugInExports api;

 private:
  void* handle_ = nullptr;
};

class Map {
 public:
  explicit Map(PlugIn& p) : p_(p) { std::memset(&map_, 0, sizeof map_); }
  ~Map() { Close(); }
  Map(const Map&) = delete;
  Map& operator=(const Map&) = delete;

  // Each call returns the plug-in's result and leaves its message in Error().
  bool Open(const std::string& shp) {
    std::vector<char> path(shp.begin(), shp.end());
    path.push_back('\0');
    open_ = Call([&](TStringPlugIn* error) { return p_.api.Open(path.data(), &map_, error); });
    return open_;
  }
  bool Read(Delivered& d) {
    std::memset(&d.record, 0, sizeof d.record);
    d.record.BeginLine = BeginLine;
    d.record.AddPoint = AddPoint;
    Progress progress;
    return Call([&](TStringPlugIn* error) { return p_.api.Read(&map_, &d.record, error, &progress); });
  }
  // Replaces record `id`, or appends when there is no such record; LastId()
  // is then the id the plug-in gave back.
  bool Add(int32_t id, uint32_t seed, int points) {
    std::vector<double> xy(2 * static_cast<size_t>(points));
    large::PatternPoints(seed, points, xy.data());
    std::vector<TVectorPointPlugIn> pts(static_cast<size_t>(points));
    for (int k = 0; k < points; k++) {
      std::memset(&pts[k], 0, sizeof pts[k]);
      pts[k].tamanyo = 40;
      pts[k].x = xy[2 * k];
      pts[k].y = xy[2 * k + 1];
      pts[k].m = -1.0;
    }
    alignas(8) unsigned char attr[host::kLineAttributesSize];
    host::LineAttributeDefaults(attr);
    TLineAttributesPlugIn* a = reinterpret_cast<TLineAttributesPlugIn*>(attr);
    a->id_bd = id;
    a->flags = 0;  // an open line without Z: a PolyLine record
    const bool ok = Call([&](TStringPlugIn* error) { return p_.api.Add(&map_, a, points, pts.data(), error); });
    last_id_ = a->id_bd;
    return ok;
  }
  int32_t LastId() const { return last_id_; }
  bool Delete(int32_t id) {
    return Call([&](TStringPlugIn* error) { return p_.api.Delete(&map_, id, error); });
  }
  void Close() {
    if (open_) p_.api.Close(&map_);
    open_ = false;
  }
  const std::string& Error() const { return error_; }

 private:
  // Makes one call of the plug-in with a string record for its message.
  template <class F>
  bool Call(F call) {
    Sink sink{{KeepText}, ""};
    const bool ok = call(&sink.record) == 1;
    error_ = sink.text;
    return ok;
  }
  PlugIn& p_;
  TVectorMapPlugIn map_;
  bool open_ = false;
  std::string error_;
  int32_t last_id_ = 0;
};

// ---------------------------------------------------------------- commands

long long Number(const std::string& s, const char* what) {
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(s.c_str(), &end, 10);
  if (s.empty() || *end || errno || v < 0) throw std::invalid_argument(std::string("bad ") + what + ": " + s);
  return v;
}

int Write(const std::string& stem, long long records) {
  const double t = Now();
  large::WriteMap(stem, records);
  struct stat st;
  ::stat((stem + ".shp").c_str(), &st);
  std::printf("  wrote %s.shp: %lld records, %lld bytes (%.1f s)\n", stem.c_str(), records,
              static_cast<long long>(st.st_size), Now() - t);
  const long long record_bytes = 8 + 48 + 16 * large::kOriginalPoints;
  const long long across = (2147483648LL - 100) / record_bytes + 1;
  if (across <= records)
    std::printf("  record %lld spans byte 2^31: bytes %lld to %lld\n", across,
                100 + (across - 1) * record_bytes, 100 + across * record_bytes);
  return 0;
}

int Edit(PlugIn& plugin, const std::string& stem, const std::vector<std::string>& ops) {
  const std::string shp = stem + ".shp";
  Map map(plugin);
  double t = Now();
  if (!map.Open(shp)) throw Fault("open " + shp + " refused: " + map.Error());
  std::printf("  open %s (%.1f s)\n", shp.c_str(), Now() - t);
  for (const std::string& op : ops) {
    t = Now();
    const size_t eq = op.find('=');
    const std::string verb = op.substr(0, eq), arg = eq == std::string::npos ? "" : op.substr(eq + 1);
    if (verb == "read") {
      const long long want = Number(arg, "record count");
      Delivered d;
      if (!map.Read(d))
        throw Fault("reading failed after " + std::to_string(d.lines) + " lines: " + map.Error());
      if (d.lines != want || d.out_of_order != 0 || d.points < want)
        throw Fault("reading delivered " + std::to_string(d.lines) + " lines (" +
                    std::to_string(want) + " expected), " + std::to_string(d.out_of_order) +
                    " of them out of order, " + std::to_string(d.points) + " points");
      std::printf("  read: %lld lines, %lld points (%.1f s)\n", d.lines, d.points, Now() - t);
    } else if (verb == "replace") {
      unsigned long id = 0, seed = 0;
      int points = 0;
      if (std::sscanf(arg.c_str(), "%lu:%lu:%d", &id, &seed, &points) != 3 || points < 1)
        throw std::invalid_argument("bad replace: " + arg);
      if (!map.Add(static_cast<int32_t>(id), static_cast<uint32_t>(seed), points))
        throw Fault("replacing record " + std::to_string(id) + " failed: " + map.Error());
      if (map.LastId() != static_cast<int32_t>(id))
        throw Fault("record " + std::to_string(id) + " was appended as record " +
                    std::to_string(map.LastId()) + " instead of being replaced");
      std::printf("  replace record %lu by %d points (%.1f s)\n", id, points, Now() - t);
    } else if (verb == "delete") {
      const long long id = Number(arg, "record id");
      if (!map.Delete(static_cast<int32_t>(id)))
        throw Fault("deleting record " + std::to_string(id) + " failed: " + map.Error());
      std::printf("  delete record %lld (%.1f s)\n", id, Now() - t);
    } else {
      throw std::invalid_argument("unknown operation: " + op);
    }
  }
  t = Now();
  map.Close();
  std::printf("  close (%.1f s)\n", Now() - t);
  return 0;
}

int Check(const std::string& stem, const std::vector<std::string>& layout) {
  std::vector<Expected> records;
  for (const std::string& part : layout) {
    unsigned long a = 0, b = 0;
    int points = 0;
    char tail = 0;
    if (std::sscanf(part.c_str(), "%lu-%lu%c", &a, &b, &tail) == 2 && a >= 1 && a <= b) {
      for (unsigned long s = a; s <= b; s++)
        records.push_back({static_cast<uint32_t>(s), large::kOriginalPoints});
    } else if (std::sscanf(part.c_str(), "%lu/%d%c", &a, &points, &tail) == 2 && points >= 1) {
      records.push_back({static_cast<uint32_t>(a), points});
    } else {
      throw std::invalid_argument("bad layout part: " + part);
    }
  }
  const double t = Now();
  const std::vector<std::string> faults = large::CheckMap(stem, records);
  for (const std::string& f : faults) std::printf("  FAULT %s: %s\n", stem.c_str(), f.c_str());
  if (!faults.empty()) throw Fault(stem + ".shp/.shx do not hold what they should");
  std::printf("  check: %zu records, index, headers and contents sound (%.1f s)\n",
              records.size(), Now() - t);
  return 0;
}

// Size, time of change and the first and last 64 KiB of a file.
struct Snapshot {
  bool exists = false;
  long long size = 0;
  long long mtime_ns = 0;
  std::string head, tail;
};
Snapshot Take(const std::string& path) {
  Snapshot s;
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return s;
  s.exists = true;
  s.size = st.st_size;
  s.mtime_ns = static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec;
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return s;
  std::vector<char> b(65536);
  s.head.assign(b.data(), std::fread(b.data(), 1, b.size(), f));
  if (s.size > 65536 && fseeko(f, s.size - 65536, SEEK_SET) == 0)
    s.tail.assign(b.data(), std::fread(b.data(), 1, b.size(), f));
  std::fclose(f);
  return s;
}
bool Same(const Snapshot& a, const Snapshot& b) {
  return a.exists == b.exists && a.size == b.size && a.mtime_ns == b.mtime_ns &&
         a.head == b.head && a.tail == b.tail;
}

int Refuse(PlugIn& plugin, const std::string& stem) {
  // Under a file size limit a write far into the file fails instead of
  // filling the disk; the signal that comes with it must not end the run.
  ::signal(SIGXFSZ, SIG_IGN);
  const std::string shp = stem + ".shp", shx = stem + ".shx";
  const Snapshot shp0 = Take(shp), shx0 = Take(shx);
  std::vector<std::string> faults;
  {
    Map map(plugin);
    if (!map.Open(shp)) {
      if (map.Error().empty()) faults.push_back("open failed without a message");
      std::printf("  open refused: %s\n", map.Error().c_str());
    } else {
      Delivered d;
      if (map.Read(d)) {
        faults.push_back("reading succeeded with " + std::to_string(d.lines) + " lines");
      } else if (map.Error().empty()) {
        faults.push_back("reading failed without a message");
      } else {
        std::printf("  read refused after %lld lines: %s\n", d.lines, map.Error().c_str());
      }
      // However the reading ended, nothing may change a map that the
      // header cannot describe.
      if (map.Delete(1)) faults.push_back("deleting record 1 succeeded");
      if (map.Add(1, 1, 20)) faults.push_back("replacing record 1 succeeded");
      if (map.Add(0, 1, 20)) faults.push_back("appending a line succeeded");
      std::printf("  delete, replace and append attempted after the refusal\n");
      map.Close();
    }
  }
  for (const char* bak : {".shp.bak", ".shx.bak"}) {
    if (::access((stem + bak).c_str(), F_OK) == 0) faults.push_back(stem + bak + " was made");
  }
  if (!Same(shp0, Take(shp))) faults.push_back(shp + " changed");
  if (!Same(shx0, Take(shx))) faults.push_back(shx + " changed");
  for (const std::string& f : faults) std::printf("  FAULT %s\n", f.c_str());
  if (!faults.empty()) throw Fault("the oversized map was not refused cleanly");
  std::printf("  refused cleanly: no change, no .bak\n");
  return 0;
}

int Usage() {
  std::fprintf(stderr,
               "usage: large_maps write STEM RECORDS\n"
               "       large_maps edit PLUGIN STEM OP...   (read=N, replace=ID:SEED:POINTS, delete=ID)\n"
               "       large_maps check STEM LAYOUT...     (A-B: written records, SEED/POINTS)\n"
               "       large_maps oversized STEM\n"
               "       large_maps refuse PLUGIN STEM\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (argc < 3) return Usage();
  const std::string cmd = argv[1];
  const std::vector<std::string> rest(argv + 2, argv + argc);
  try {
    if (cmd == "write" && rest.size() == 2) return Write(rest[0], Number(rest[1], "record count"));
    if (cmd == "check" && rest.size() >= 2)
      return Check(rest[0], std::vector<std::string>(rest.begin() + 1, rest.end()));
    if (cmd == "oversized" && rest.size() == 1) {
      const long long bytes = large::WriteOversizedMap(rest[0]);
      std::printf("  wrote %s.shp: %lld bytes (sparse), header length in words %lld as a signed "
                  "32-bit number\n",
                  rest[0].c_str(), bytes, static_cast<long long>(static_cast<int32_t>(bytes / 2)));
      return 0;
    }
    if (cmd == "edit" && rest.size() >= 3) {
      PlugIn plugin(rest[0]);
      return Edit(plugin, rest[1], std::vector<std::string>(rest.begin() + 2, rest.end()));
    }
    if (cmd == "refuse" && rest.size() == 2) {
      PlugIn plugin(rest[0]);
      return Refuse(plugin, rest[1]);
    }
    return Usage();
  } catch (const std::invalid_argument& e) {
    std::fprintf(stderr, "large_maps: %s\n", e.what());
    return Usage();
  } catch (const std::exception& e) {
    std::printf("  FAILED: %s\n", e.what());
    return 1;
  }
}
