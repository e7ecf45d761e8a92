// ShapeFileLayout.h - the on-disk layout of the .shp main file and the .shx
// index, in one place for reading, writing and deleting.
//
// Integers marked big-endian in the format are read and written through the
// file layer in machine (little-endian) order and byte-reversed here.
#ifndef VARDA_PLUGIN_SHAPEFILELAYOUT_H
#define VARDA_PLUGIN_SHAPEFILELAYOUT_H

#include <cstdint>
#include <cstring>

namespace shp {

// Main file header (also the index header, but for its file length).
constexpr int kHeaderSize = 100;
constexpr int kHdrFileCode = 0;     // BE, 9994
constexpr int kHdrFileLength = 24;  // BE, in 16-bit words, header included
constexpr int kHdrVersion = 28;     // LE, 1000
constexpr int kHdrShapeType = 32;   // LE
constexpr int kHdrXmin = 36;
constexpr int kHdrYmin = 44;
constexpr int kHdrXmax = 52;
constexpr int kHdrYmax = 60;
// The Z range stands greatest first, against the published layout: the
// maps this plug-in writes have always been laid out so.
constexpr int kHdrZmaxSlot = 68;
constexpr int kHdrZminSlot = 76;
constexpr int kHdrCompared = 36;  // bytes of the two headers that must agree

constexpr int32_t kFileCode = 9994;
constexpr int32_t kVersion = 1000;

// Record header in the main file: record number and content length (BE).
constexpr int kRecordHeaderSize = 8;
// Index record: offset and content length of the main-file record (BE words).
constexpr int kIndexEntrySize = 8;

// Contents after the shape-type word.
constexpr int kPolyBox = 0;        // Xmin, Ymin, Xmax, Ymax
constexpr int kPolyNumParts = 32;
constexpr int kPolyNumPoints = 36;
constexpr int kPolyParts = 40;
constexpr int kMultiNumPoints = 32;
constexpr int kMultiPoints = 36;

enum ShapeType : int32_t {
  kNull = 0,
  kPoint = 1,
  kPolyLine = 3,
  kPolygon = 5,
  kMultiPoint = 8,
  kPointZ = 11,
  kPolyLineZ = 13,
  kPolygonZ = 15,
  kMultiPointZ = 18,
};

inline int32_t Reverse(int32_t v) {
  return static_cast<int32_t>(__builtin_bswap32(static_cast<uint32_t>(v)));
}

// Byte position of the index record of record number n (from 1).
inline long long IndexEntryPos(long long n) { return kHeaderSize + kIndexEntrySize * (n - 1); }

// Typed access to a byte image (the header image, a record buffer), in the
// machine's little-endian order; unaligned positions are fine.
inline int32_t GetInt(const unsigned char* p, long long off) {
  int32_t v;
  std::memcpy(&v, p + off, 4);
  return v;
}
inline void PutInt(unsigned char* p, long long off, int32_t v) { std::memcpy(p + off, &v, 4); }
inline double GetDouble(const unsigned char* p, long long off) {
  double v;
  std::memcpy(&v, p + off, 8);
  return v;
}
inline void PutDouble(unsigned char* p, long long off, double v) { std::memcpy(p + off, &v, 8); }
inline int32_t GetBigInt(const unsigned char* p, long long off) { return Reverse(GetInt(p, off)); }
inline void PutBigInt(unsigned char* p, long long off, int32_t v) { PutInt(p, off, Reverse(v)); }

}  // namespace shp

#endif
