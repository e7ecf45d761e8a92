#include "ShpHeader.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

namespace vardamap {

namespace {

int32_t BigEndian(const unsigned char* p) {
  return static_cast<int32_t>((uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) |
                              (uint32_t(p[2]) << 8) | uint32_t(p[3]));
}

int32_t LittleEndian(const unsigned char* p) {
  return static_cast<int32_t>((uint32_t(p[3]) << 24) | (uint32_t(p[2]) << 16) |
                              (uint32_t(p[1]) << 8) | uint32_t(p[0]));
}

double Double(const unsigned char* p) {
  // Files are little-endian, and so is every machine this tool builds for.
  double d;
  std::memcpy(&d, p, sizeof d);
  return d;
}

}  // namespace

ShpHeader ReadShpHeader(const std::string& path) {
  ShpHeader h;
  unsigned char b[100];
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return h;
  size_t n = std::fread(b, 1, sizeof b, f);
  std::fclose(f);
  if (n != sizeof b) return h;
  h.present = true;
  h.file_code = BigEndian(b);
  h.length_bytes = 2LL * BigEndian(b + 24);
  h.version = LittleEndian(b + 28);
  h.shape_type = LittleEndian(b + 32);
  h.xmin = Double(b + 36);
  h.ymin = Double(b + 44);
  h.xmax = Double(b + 52);
  h.ymax = Double(b + 60);
  h.z_a = Double(b + 68);
  h.z_b = Double(b + 76);
  h.m_min = Double(b + 84);
  h.m_max = Double(b + 92);
  return h;
}

long long FileSize(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return -1;
  return static_cast<long long>(st.st_size);
}

std::string IndexPathFor(const std::string& shp_path) {
  size_t slash = shp_path.rfind('/');
  size_t dot = shp_path.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
    return shp_path + ".shx";
  return shp_path.substr(0, dot) + ".shx";
}

std::string ShapeTypeName(int32_t type) {
  switch (type) {
    case 0: return "Null";
    case 1: return "Point";
    case 3: return "PolyLine";
    case 5: return "Polygon";
    case 8: return "MultiPoint";
    case 11: return "PointZ";
    case 13: return "PolyLineZ";
    case 15: return "PolygonZ";
    case 18: return "MultiPointZ";
    case 21: return "PointM";
    case 23: return "PolyLineM";
    case 25: return "PolygonM";
    case 28: return "MultiPointM";
    case 31: return "MultiPatch";
    default: return "unknown";
  }
}

bool ShapeTypeHasZ(int32_t type) {
  return type == 11 || type == 13 || type == 15 || type == 18 || type == 31;
}

}  // namespace vardamap
