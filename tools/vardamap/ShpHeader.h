// ShpHeader.h - the main-file header as it stands on disk, read directly for
// display (the plug-in does not hand it to a host).
#ifndef VARDAMAP_SHPHEADER_H
#define VARDAMAP_SHPHEADER_H

#include <cstdint>
#include <string>

namespace vardamap {

struct ShpHeader {
  bool present = false;  // the file has at least 100 bytes
  int32_t file_code = 0;
  long long length_bytes = 0;  // the header's file length, in bytes
  int32_t version = 0;
  int32_t shape_type = 0;
  double xmin = 0, ymin = 0, xmax = 0, ymax = 0;
  double z_a = 0, z_b = 0;  // the two Z bounds, in file order
  double m_min = 0, m_max = 0;
};

// Reads the first 100 bytes of `path`; `present` is false when the file is
// shorter or cannot be read.
ShpHeader ReadShpHeader(const std::string& path);
// The size of a file in bytes, or -1 when it does not exist.
long long FileSize(const std::string& path);
// The name of the index beside a main file: its extension replaced by "shx".
std::string IndexPathFor(const std::string& shp_path);
// "PolyLineZ" and so on; "unknown" for numbers outside the format.
std::string ShapeTypeName(int32_t type);
bool ShapeTypeHasZ(int32_t type);

}  // namespace vardamap

#endif
