// ShpBuilder.h - byte-level composition of .shp/.shx images for tests, so that
// a well-formed map is a few lines and a damaged one a one-line edit of it;
// plus file helpers and a byte comparison that says where two images differ.
#ifndef VARDA_TESTS_SHPBUILDER_H
#define VARDA_TESTS_SHPBUILDER_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "support/TempDir.h"

namespace shptest {

using Bytes = std::vector<unsigned char>;

// ---- byte access: little-endian as the file stores it, big-endian fields
// swapped by hand so that the test never depends on the code under test.
inline void PutLE32(Bytes& b, size_t off, int32_t v) {
  uint32_t u = static_cast<uint32_t>(v);
  for (int i = 0; i < 4; i++) b.at(off + i) = static_cast<unsigned char>(u >> (8 * i));
}
inline void PutBE32(Bytes& b, size_t off, int32_t v) {
  uint32_t u = static_cast<uint32_t>(v);
  for (int i = 0; i < 4; i++) b.at(off + i) = static_cast<unsigned char>(u >> (24 - 8 * i));
}
inline void PutF64(Bytes& b, size_t off, double v) {
  uint64_t u;
  std::memcpy(&u, &v, 8);
  for (int i = 0; i < 8; i++) b.at(off + i) = static_cast<unsigned char>(u >> (8 * i));
}
inline int32_t GetLE32(const Bytes& b, size_t off) {
  uint32_t u = 0;
  for (int i = 0; i < 4; i++) u |= static_cast<uint32_t>(b.at(off + i)) << (8 * i);
  return static_cast<int32_t>(u);
}
inline int32_t GetBE32(const Bytes& b, size_t off) {
  uint32_t u = 0;
  for (int i = 0; i < 4; i++) u |= static_cast<uint32_t>(b.at(off + i)) << (24 - 8 * i);
  return static_cast<int32_t>(u);
}
inline double GetF64(const Bytes& b, size_t off) {
  uint64_t u = 0;
  for (int i = 0; i < 8; i++) u |= static_cast<uint64_t>(b.at(off + i)) << (8 * i);
  double v;
  std::memcpy(&v, &u, 8);
  return v;
}
inline void AddLE32(Bytes& b, int32_t v) {
  b.resize(b.size() + 4);
  PutLE32(b, b.size() - 4, v);
}
inline void AddBE32(Bytes& b, int32_t v) {
  b.resize(b.size() + 4);
  PutBE32(b, b.size() - 4, v);
}
inline void AddF64(Bytes& b, double v) {
  b.resize(b.size() + 8);
  PutF64(b, b.size() - 8, v);
}
inline void Append(Bytes& b, const Bytes& more) { b.insert(b.end(), more.begin(), more.end()); }

struct XYZ {
  double x, y, z;
};

// ---- record contents, starting with the shape-type word.

// Point (1) or, with Z and M, PointZ (11).
inline Bytes PointContent(int type, double x, double y, double z = 0.0, double m = 0.0) {
  Bytes b;
  AddLE32(b, type);
  AddF64(b, x);
  AddF64(b, y);
  if (type == 11) {
    AddF64(b, z);
    AddF64(b, m);
  }
  return b;
}

// The extent of a set of points as a map header keeps it.
struct Extent {
  double x0 = 0, y0 = 0, x1 = 0, y1 = 0, zmax = 0, zmin = 0;
  explicit Extent(const std::vector<XYZ>& pts) {
    for (size_t i = 0; i < pts.size(); i++) {
      const XYZ& p = pts[i];
      if (i == 0 || p.x < x0) x0 = p.x;
      if (i == 0 || p.y < y0) y0 = p.y;
      if (i == 0 || p.x > x1) x1 = p.x;
      if (i == 0 || p.y > y1) y1 = p.y;
      if (i == 0 || p.z > zmax) zmax = p.z;
      if (i == 0 || p.z < zmin) zmin = p.z;
    }
  }
};

inline void AddBox(Bytes& b, const std::vector<XYZ>& pts) {
  const Extent e(pts);
  AddF64(b, e.x0);
  AddF64(b, e.y0);
  AddF64(b, e.x1);
  AddF64(b, e.y1);
}

// Z range, least first as published (or greatest first, as the plug-in
// writes it), then one Z per point.
inline void AddZ(Bytes& b, const std::vector<XYZ>& pts, bool greatest_first = false) {
  const Extent e(pts);
  AddF64(b, greatest_first ? e.zmax : e.zmin);
  AddF64(b, greatest_first ? e.zmin : e.zmax);
  for (const XYZ& p : pts) AddF64(b, p.z);
}

// MultiPoint (8) or MultiPointZ (18).
inline Bytes MultiPointContent(int type, const std::vector<XYZ>& pts) {
  Bytes b;
  AddLE32(b, type);
  AddBox(b, pts);
  AddLE32(b, static_cast<int32_t>(pts.size()));
  for (const XYZ& p : pts) {
    AddF64(b, p.x);
    AddF64(b, p.y);
  }
  if (type == 18) AddZ(b, pts);
  return b;
}

// PolyLine/Polygon (3, 5) or their Z variants (13, 15).
inline Bytes PolyContent(int type, const std::vector<int>& parts, const std::vector<XYZ>& pts,
                         bool z_greatest_first = false) {
  Bytes b;
  AddLE32(b, type);
  AddBox(b, pts);
  AddLE32(b, static_cast<int32_t>(parts.size()));
  AddLE32(b, static_cast<int32_t>(pts.size()));
  for (int s : parts) AddLE32(b, s);
  for (const XYZ& p : pts) {
    AddF64(b, p.x);
    AddF64(b, p.y);
  }
  if (type == 13 || type == 15) AddZ(b, pts, z_greatest_first);
  return b;
}

// Any type with `extra` zero bytes after the type word.
inline Bytes RawContent(int type, size_t extra) {
  Bytes b;
  AddLE32(b, type);
  b.resize(b.size() + extra, 0);
  return b;
}

// The contents the plug-in writes for a shape of `type`: points keep only
// the first point (PointZ adds its Z and an M of 0); lines and areas carry
// their box, the given part starts, X/Y pairs and, for 13 and 15, the Z range
// greatest first followed by one Z per point.
inline Bytes WrittenContent(int type, const std::vector<int>& parts,
                            const std::vector<XYZ>& pts) {
  if (type == 1 || type == 11) return PointContent(type, pts.at(0).x, pts.at(0).y, pts.at(0).z, 0.0);
  return PolyContent(type, parts, pts, true);
}

// Byte offsets inside a polyline content (from the shape-type word).
constexpr size_t kPolyNumParts = 36;
constexpr size_t kPolyNumPoints = 40;
constexpr size_t kPolyParts = 44;

struct ShpImage {
  Bytes shp, shx;
  // Byte offset of record k (from 1) in the .shp, as the index says.
  size_t RecordPos(int k) const { return 2 * static_cast<size_t>(GetBE32(shx, IndexPos(k))); }
  static size_t IndexPos(int k) { return 100 + 8 * static_cast<size_t>(k - 1); }
};

// A map image: header fields, then records numbered from 1 in order; every
// index entry and both file lengths follow from the records.
class ShpBuilder {
 public:
  explicit ShpBuilder(int file_type) : type_(file_type) {}

  ShpBuilder& Box(double x0, double y0, double x1, double y1) {
    box_[0] = x0, box_[1] = y0, box_[2] = x1, box_[3] = y1;
    return *this;
  }
  ShpBuilder& ZSlots(double at68, double at76) {
    z_[0] = at68, z_[1] = at76;
    return *this;
  }
  ShpBuilder& Record(const Bytes& content) {
    records_.push_back(content);
    return *this;
  }
  // A 32-bit zero after the last record, counted in the file length.
  ShpBuilder& EndMark(bool on = true) {
    end_mark_ = on;
    return *this;
  }
  // Non-zero bytes in the unused header words and the M range, which must be
  // kept as they are by every change.
  ShpBuilder& MarkUnusedWords(bool on = true) {
    mark_unused_ = on;
    return *this;
  }

  ShpImage Build() const {
    ShpImage img;
    img.shp = Header();
    img.shx = Header();
    for (size_t i = 0; i < records_.size(); i++) {
      const Bytes& c = records_[i];
      AddBE32(img.shx, static_cast<int32_t>(img.shp.size() / 2));
      AddBE32(img.shx, static_cast<int32_t>(c.size() / 2));
      AddBE32(img.shp, static_cast<int32_t>(i + 1));
      AddBE32(img.shp, static_cast<int32_t>(c.size() / 2));
      Append(img.shp, c);
    }
    if (end_mark_) AddBE32(img.shp, 0);
    PutBE32(img.shp, 24, static_cast<int32_t>(img.shp.size() / 2));
    PutBE32(img.shx, 24, static_cast<int32_t>(img.shx.size() / 2));
    return img;
  }

 private:
  Bytes Header() const {
    Bytes h(100, 0);
    PutBE32(h, 0, 9994);
    if (mark_unused_)
      for (int w = 0; w < 5; w++) PutBE32(h, 4 + 4 * w, 0x01020300 + w);
    PutLE32(h, 28, 1000);
    PutLE32(h, 32, type_);
    for (int i = 0; i < 4; i++) PutF64(h, 36 + 8 * i, box_[i]);
    PutF64(h, 68, z_[0]);
    PutF64(h, 76, z_[1]);
    if (mark_unused_) {
      PutF64(h, 84, -77.5);
      PutF64(h, 92, 77.5);
    }
    return h;
  }

  int type_;
  double box_[4] = {0, 0, 0, 0};
  double z_[2] = {0, 0};
  bool end_mark_ = false;
  bool mark_unused_ = false;
  std::vector<Bytes> records_;
};

// A PolyLine map (one part per record) as another program would write it:
// no end mark, the header box over `box_pts`, and values in the unused header
// words and the M range that every change must keep.
inline ShpImage PolyLinesImage(const std::vector<std::vector<XYZ>>& records,
                               const std::vector<XYZ>& box_pts) {
  const Extent e(box_pts);
  ShpBuilder b(3);
  b.MarkUnusedWords().Box(e.x0, e.y0, e.x1, e.y1);
  for (const auto& r : records) b.Record(PolyContent(3, {0}, r));
  return b.Build();
}

inline Bytes Zeros(size_t n) { return Bytes(n, 0); }
inline Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// ---- files

inline bool WriteFile(const std::string& path, const Bytes& b) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  bool ok = b.empty() || std::fwrite(b.data(), 1, b.size(), f) == b.size();
  return std::fclose(f) == 0 && ok;
}

inline Bytes ReadFile(const std::string& path) {
  Bytes r;
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return r;
  unsigned char buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) r.insert(r.end(), buf, buf + n);
  std::fclose(f);
  return r;
}

inline bool FileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// Writes both files of `img` into `dir` as <stem>.shp and <stem>.shx;
// returns the .shp path.
inline std::string PutMap(const TempDir& dir, const std::string& stem, const ShpImage& img,
                          bool with_shx = true) {
  const std::string shp = dir / (stem + ".shp");
  WriteFile(shp, img.shp);
  if (with_shx) WriteFile(dir / (stem + ".shx"), img.shx);
  return shp;
}

inline std::string ShxOf(const std::string& shp_path) {
  return shp_path.substr(0, shp_path.size() - 3) + "shx";
}

// ---- comparison with a readable account of the differences.

inline std::string HexLine(const Bytes& b, size_t from, size_t to) {
  std::string s;
  char t[4];
  for (size_t i = from; i < to; i++) {
    if (i < b.size()) {
      std::snprintf(t, sizeof t, "%02x ", b[i]);
      s += t;
    } else {
      s += "-- ";
    }
  }
  return s;
}

inline ::testing::AssertionResult SameBytes(const Bytes& expected, const Bytes& actual) {
  const size_t n = expected.size() > actual.size() ? expected.size() : actual.size();
  std::vector<size_t> rows;  // 16-byte rows holding a difference
  size_t diffs = 0;
  for (size_t i = 0; i < n; i++) {
    bool same = i < expected.size() && i < actual.size() && expected[i] == actual[i];
    if (same) continue;
    diffs++;
    size_t row = i / 16 * 16;
    if (rows.empty() || rows.back() != row) rows.push_back(row);
  }
  if (diffs == 0) return ::testing::AssertionSuccess();
  std::ostringstream os;
  os << "byte images differ: expected " << expected.size() << " bytes, actual " << actual.size()
     << " bytes, " << diffs << " differing byte(s)\n";
  size_t shown = 0;
  for (size_t row : rows) {
    if (++shown > 12) {
      os << "  ... (" << rows.size() - 12 << " more rows)\n";
      break;
    }
    char off[32];
    std::snprintf(off, sizeof off, "%6zu", row);
    os << "  " << off << " expected " << HexLine(expected, row, row + 16) << "\n";
    os << "         actual   " << HexLine(actual, row, row + 16) << "\n";
  }
  return ::testing::AssertionFailure() << os.str();
}

// Both files of the map at `shp` hold `img`, byte for byte.
inline ::testing::AssertionResult SameMap(const ShpImage& img, const std::string& shp) {
  ::testing::AssertionResult r = SameBytes(img.shp, ReadFile(shp));
  if (r) r = SameBytes(img.shx, ReadFile(ShxOf(shp)));
  return r;
}

}  // namespace shptest

#endif
