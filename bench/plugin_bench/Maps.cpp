#include "Maps.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace bench {

namespace {

constexpr int kHeaderSize = 100;
constexpr int kFileCode = 9994;
constexpr int kVersion = 1000;

// Buffered sequential output to one file; the header is patched at the end.
class Output {
 public:
  explicit Output(const std::string& path) : path_(path), buf_(1 << 20) {
    fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd_ < 0) Fail("cannot create");
  }
  ~Output() {
    if (fd_ >= 0) ::close(fd_);
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  void Bytes(const void* p, size_t n) {
    const unsigned char* s = static_cast<const unsigned char*>(p);
    while (n > 0) {
      if (used_ == buf_.size()) Flush();
      size_t k = std::min(n, buf_.size() - used_);
      std::memcpy(buf_.data() + used_, s, k);
      used_ += k;
      s += k;
      n -= k;
    }
  }
  void Le32(int32_t v) { Bytes(&v, 4); }
  void Be32(int32_t v) {
    uint32_t b = __builtin_bswap32(static_cast<uint32_t>(v));
    Bytes(&b, 4);
  }
  void Double(double v) { Bytes(&v, 8); }
  long long Position() const { return written_ + static_cast<long long>(used_); }

  void Flush() {
    size_t done = 0;
    while (done < used_) {
      ssize_t w = ::write(fd_, buf_.data() + done, used_ - done);
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) Fail("cannot write");
      done += static_cast<size_t>(w);
    }
    written_ += static_cast<long long>(used_);
    used_ = 0;
  }
  void PatchAt(long long pos, const void* p, size_t n) {
    if (::pwrite(fd_, p, n, pos) != static_cast<ssize_t>(n)) Fail("cannot write the header of");
  }
  void Close() {
    Flush();
    if (::close(fd_) != 0) {
      fd_ = -1;
      Fail("cannot close");
    }
    fd_ = -1;
  }

 private:
  [[noreturn]] void Fail(const char* what) {
    throw std::runtime_error(std::string(what) + " " + path_ + ": " + std::strerror(errno));
  }

  std::string path_;
  int fd_ = -1;
  std::vector<unsigned char> buf_;
  size_t used_ = 0;
  long long written_ = 0;
};

struct Box {
  bool set = false;
  double xmin = 0, ymin = 0, xmax = 0, ymax = 0, zmin = 0, zmax = 0;
  void Add(double x, double y, double z = 0.0) {
    if (!set) {
      xmin = xmax = x;
      ymin = ymax = y;
      zmin = zmax = z;
      set = true;
      return;
    }
    xmin = std::min(xmin, x);
    xmax = std::max(xmax, x);
    ymin = std::min(ymin, y);
    ymax = std::max(ymax, y);
    zmin = std::min(zmin, z);
    zmax = std::max(zmax, z);
  }
};

// A small deterministic jitter in [0, 2) so that coordinates are not a
// perfectly regular grid (and never repeat a line's first point).
double Jitter(long long i, int k) {
  uint64_t h = static_cast<uint64_t>(i) * 0x9E3779B97F4A7C15ull + static_cast<uint64_t>(k) * 0xBF58476D1CE4E5B9ull;
  h ^= h >> 31;
  return static_cast<double>(h & 1023) / 512.0;
}

void PutBe(unsigned char* p, int32_t v) {
  uint32_t b = __builtin_bswap32(static_cast<uint32_t>(v));
  std::memcpy(p, &b, 4);
}

void Header(unsigned char* h, int shape_type, long long bytes, const Box& box) {
  std::memset(h, 0, kHeaderSize);
  PutBe(h, kFileCode);
  PutBe(h + 24, static_cast<int32_t>(bytes / 2));
  int32_t v = kVersion;
  std::memcpy(h + 28, &v, 4);
  v = shape_type;
  std::memcpy(h + 32, &v, 4);
  const double d[6] = {box.xmin, box.ymin, box.xmax, box.ymax, box.zmin, box.zmax};
  std::memcpy(h + 36, d, sizeof d);
}

}  // namespace

const char* KindName(MapKind kind) {
  switch (kind) {
    case MapKind::PolyLine: return "PolyLine";
    case MapKind::PolygonZ: return "PolygonZ";
    case MapKind::Point: return "Point";
  }
  return "?";
}

int KindShapeType(MapKind kind) {
  switch (kind) {
    case MapKind::PolyLine: return 3;
    case MapKind::PolygonZ: return 15;
    case MapKind::Point: return 1;
  }
  return 0;
}

void LinePoints(long long index, int points, double* xy) {
  const double bx = 400000.0 + static_cast<double>(index % 2000) * 150.0;
  const double by = 4400000.0 + static_cast<double>(index / 2000 % 4000) * 150.0;
  for (int k = 0; k < points; k++) {
    xy[2 * k] = bx + k * 9.375 + Jitter(index, k);
    xy[2 * k + 1] = by + k * 4.5 + ((k & 1) ? 3.0 : -3.0) + Jitter(index, k + 97);
  }
}

namespace {

int ContentBytes(const MapSpec& spec) {
  if (spec.kind == MapKind::Point) return 4 + 16;  // type, X, Y
  int bytes = 4 + 32 + 4 + 4 + 4 * spec.parts + 16 * spec.points;
  if (spec.kind == MapKind::PolygonZ) bytes += 16 + 8 * spec.points;
  return bytes;
}

}  // namespace

MapFiles PlanMap(const std::string& stem, const MapSpec& spec) {
  MapFiles out;
  out.stem = stem;
  out.shp = stem + ".shp";
  out.shx = stem + ".shx";
  out.records = spec.records;
  out.vertices = spec.records * (spec.kind == MapKind::Point ? 1 : spec.points);
  out.first_record_bytes = 8 + ContentBytes(spec);
  out.shp_bytes = kHeaderSize + spec.records * out.first_record_bytes;
  return out;
}

MapFiles WriteMap(const std::string& stem, const MapSpec& spec) {
  MapFiles out = PlanMap(stem, spec);
  Output shp(out.shp), shx(out.shx);
  unsigned char blank[kHeaderSize] = {0};
  shp.Bytes(blank, kHeaderSize);
  shx.Bytes(blank, kHeaderSize);

  const int n = spec.points;
  const int parts = spec.kind == MapKind::Point ? 0 : spec.parts;
  const bool has_z = spec.kind == MapKind::PolygonZ;
  const int content = ContentBytes(spec);

  // The rings of a polygon are circles of 24 distinct points plus the
  // closing one; the angles are computed once.
  const int ring = parts > 0 ? n / parts : n;
  std::vector<double> cosv(ring), sinv(ring);
  for (int k = 0; k < ring; k++) {
    const double a = 2.0 * M_PI * (k % (ring - 1 > 0 ? ring - 1 : 1)) / std::max(1, ring - 1);
    cosv[k] = std::cos(a);
    sinv[k] = std::sin(a);
  }

  Box all;
  std::vector<double> xy(2 * static_cast<size_t>(std::max(n, 1)));
  std::vector<double> z(static_cast<size_t>(std::max(n, 1)));
  for (long long i = 0; i < spec.records; i++) {
    Box box;
    switch (spec.kind) {
      case MapKind::Point:
        xy[0] = 400000.0 + static_cast<double>(i % 4000) * 37.5 + Jitter(i, 0);
        xy[1] = 4400000.0 + static_cast<double>(i / 4000 % 8000) * 37.5 + Jitter(i, 1);
        break;
      case MapKind::PolyLine:
        LinePoints(i, n, xy.data());
        break;
      case MapKind::PolygonZ: {
        const double cx = 400000.0 + static_cast<double>(i % 1000) * 300.0 + Jitter(i, 0);
        const double cy = 4400000.0 + static_cast<double>(i / 1000 % 4000) * 300.0 + Jitter(i, 1);
        for (int k = 0; k < n; k++) {
          const int p = k / ring, r = k % ring;
          const double radius = p == 0 ? 120.0 : 45.0;
          // Outer ring clockwise, holes counter-clockwise.
          xy[2 * k] = cx + radius * cosv[r];
          xy[2 * k + 1] = cy + (p == 0 ? -1.0 : 1.0) * radius * sinv[r];
          z[k] = 100.0 + static_cast<double>(i % 500) + 0.5 * r;
        }
        break;
      }
    }
    const int np = spec.kind == MapKind::Point ? 1 : n;
    for (int k = 0; k < np; k++) box.Add(xy[2 * k], xy[2 * k + 1], has_z ? z[k] : 0.0);
    all.Add(box.xmin, box.ymin, box.zmin);
    all.Add(box.xmax, box.ymax, box.zmax);

    const long long at = shp.Position();
    shx.Be32(static_cast<int32_t>(at / 2));
    shx.Be32(content / 2);
    shp.Be32(static_cast<int32_t>(i + 1));
    shp.Be32(content / 2);
    shp.Le32(KindShapeType(spec.kind));
    if (spec.kind == MapKind::Point) {
      shp.Bytes(xy.data(), 16);
      continue;
    }
    shp.Double(box.xmin);
    shp.Double(box.ymin);
    shp.Double(box.xmax);
    shp.Double(box.ymax);
    shp.Le32(parts);
    shp.Le32(n);
    for (int p = 0; p < parts; p++) shp.Le32(p * ring);
    shp.Bytes(xy.data(), 16 * static_cast<size_t>(n));
    if (has_z) {
      shp.Double(box.zmin);
      shp.Double(box.zmax);
      shp.Bytes(z.data(), 8 * static_cast<size_t>(n));
    }
  }

  const long long shp_bytes = shp.Position();
  const long long shx_bytes = shx.Position();
  if (shp_bytes != out.shp_bytes) throw std::runtime_error("map generator miscounted " + out.shp);
  shp.Flush();
  shx.Flush();
  unsigned char h[kHeaderSize];
  Header(h, KindShapeType(spec.kind), shp_bytes, all);
  shp.PatchAt(0, h, kHeaderSize);
  Header(h, KindShapeType(spec.kind), shx_bytes, all);
  shx.PatchAt(0, h, kHeaderSize);
  shp.Close();
  shx.Close();
  return out;
}

}  // namespace bench
