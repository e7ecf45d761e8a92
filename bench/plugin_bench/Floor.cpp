#include "Floor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "common/ForwardWindow.h"
#include "common/HostLineAttributes.h"

namespace bench {

namespace {

using host::Be32;
using host::Le32;
using host::LeDouble;

struct Delivery {
  TReadVectorMapPlugIn* reader;
  unsigned char defaults[host::kLineAttributesSize];
  alignas(8) unsigned char attr_bytes[host::kLineAttributesSize];
  TVectorPointPlugIn point;

  TLineAttributesPlugIn* Begin(int32_t id, int32_t flags, int32_t points, int32_t& handle) {
    std::memcpy(attr_bytes, defaults, sizeof attr_bytes);
    TLineAttributesPlugIn* a = reinterpret_cast<TLineAttributesPlugIn*>(attr_bytes);
    a->id_bd = id;
    a->flags = flags;
    a->num_puntos = points;
    handle = reader->BeginLine ? reader->BeginLine(reader, a) : -1;
    return a;
  }
  void Point(int32_t handle, double x, double y, double z, bool last) {
    point.x = x;
    point.y = y;
    point.z = z;
    if (reader->AddPoint) reader->AddPoint(reader, handle, &point, last ? 1 : 0);
  }
};

// One record's contents (shape type word first); false when its counts do
// not fit its length or the floor does not take its type.
bool Deliver(Delivery& d, int32_t id, const unsigned char* c, size_t len, const char*& why) {
  const int32_t type = Le32(c);
  int32_t handle;
  switch (type) {
    case 1:
    case 11:
      if (len < 20) break;
      d.Begin(id, 3, 1, handle);
      d.Point(handle, LeDouble(c + 4), LeDouble(c + 12), 0.0, true);
      return true;
    case 3:
    case 5:
    case 13:
    case 15: {
      if (len < 44) break;
      const bool has_z = type > 9;
      const long long parts = Le32(c + 36), points = Le32(c + 40);
      const long long xy_at = 44 + 4 * parts, z_at = 60 + 4 * parts + 16 * points;
      if (parts < 0 || points < 0 || xy_at + 16 * points > static_cast<long long>(len) ||
          (has_z && z_at + 8 * points > static_cast<long long>(len)))
        break;
      if (points < 1) return true;
      const long long first = parts > 0 ? Le32(c + 44) : 0;
      if (first < 0 || first >= points) break;
      const int32_t flags = (type == 5 || type == 15 ? 1 : 0) | (has_z ? 0 : 0x80);
      d.Begin(id, flags, static_cast<int32_t>(points - first), handle);
      const unsigned char* xy = c + xy_at;
      const unsigned char* z = c + z_at;
      for (long long i = first; i < points; i++)
        d.Point(handle, LeDouble(xy + 16 * i), LeDouble(xy + 16 * i + 8),
                has_z ? LeDouble(z + 8 * i) : 0.0, i == points - 1);
      return true;
    }
    default:
      why = "its shape type is not one the floor reads";
      return false;
  }
  why = "its counts do not fit its length";
  return false;
}

}  // namespace

long long ParseFloor(const std::string& shp, TReadVectorMapPlugIn* reader, std::string& error) {
  const int fd = ::open(shp.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    error = "cannot open " + shp + ": " + std::strerror(errno);
    return -1;
  }
  Delivery d;
  d.reader = reader;
  host::LineAttributeDefaults(d.defaults);
  std::memset(&d.point, 0, sizeof d.point);
  d.point.tamanyo = 40;
  d.point.m = -1.0;

  host::ForwardWindow w(fd, kFloorBlock);
  long long records = 0;
  if (!w.Need(100)) {
    error = shp + " is shorter than its header";
    records = -1;
  } else {
    w.Skip(100);
    // Up to the end of the file or an end mark (record number 0).
    while (w.Need(8) && Be32(w.Data()) != 0) {
      const uint64_t len = 2ull * Be32(w.Data() + 4);
      const char* why = len > (1u << 30) ? "it is longer than the floor takes"
                                         : "it is cut short by the end of the file";
      if (len < 4 || len > (1u << 30) || !w.Need(8 + len) ||
          !Deliver(d, static_cast<int32_t>(records + 1), w.Data() + 8, len, why)) {
        error = "record " + std::to_string(records + 1) + " of " + shp + ": " + why;
        records = -1;
        break;
      }
      w.Skip(8 + len);
      records++;
    }
  }
  if (records >= 0 && w.Failed()) {
    error = "cannot read " + shp + ": " + std::strerror(errno);
    records = -1;
  }
  ::close(fd);
  return records;
}

}  // namespace bench
