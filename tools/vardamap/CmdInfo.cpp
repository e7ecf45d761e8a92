// info, check and --version: what a map or the plug-in says about itself.
#include <cstdio>
#include <map>
#include <memory>

#include "Commands.h"
#include "Crs.h"
#include "Dbf.h"
#include "Errors.h"
#include "Format.h"
#include "Gdal.h"
#include "Map.h"
#include "Progress.h"
#include "ShpHeader.h"
#include "Table.h"

namespace vardamap {

namespace {

void Row(std::ostream& out, const char* name, const std::string& value) {
  char label[24];
  std::snprintf(label, sizeof label, "%-14s", name);
  out << label << value << '\n';
}

std::string Bytes(long long n) {
  return n < 0 ? std::string("missing") : std::to_string(n) + (n == 1 ? " byte" : " bytes");
}

std::string Plural(size_t n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string ShapeSummary(const std::vector<Shape>& shapes, size_t vertices) {
  size_t lines = 0, areas = 0, points = 0, with_z = 0;
  for (const Shape& s : shapes) {
    if (s.is_point()) ++points;
    else if (s.is_closed()) ++areas;
    else ++lines;
    if (s.has_z()) ++with_z;
  }
  std::string text = Plural(shapes.size(), "shape", "shapes") + " delivered";
  std::string parts;
  auto add = [&](size_t n, const char* one, const char* many) {
    if (!n) return;
    parts += (parts.empty() ? "" : ", ") + Plural(n, one, many);
  };
  add(lines, "line", "lines");
  add(areas, "closed line", "closed lines");
  add(points, "point", "points");
  add(with_z, "with Z", "with Z");
  if (!parts.empty()) text += ": " + parts;
  return text + "; " + Plural(vertices, "vertex", "vertices");
}

// The coordinate system and the attribute table; `records` is -1 when the
// plug-in did not count them all.
void WriteGisRows(std::ostream& out, const std::string& path, int records) {
  if (GdalVersion().empty()) {
    const bool any = !SiblingPath(path, ".prj").empty() || !DbfPathFor(path).empty();
    if (any) Row(out, "attributes", "not read: this vardamap is built without GDAL");
    return;
  }
  Row(out, "coordinates", MapCrs(path).Describe());
  std::unique_ptr<AttributeTable> table;
  try {
    table.reset(new AttributeTable(path));
  } catch (const ToolError& e) {
    Row(out, "attributes", e.what());
    return;
  }
  if (!table->present()) {
    Row(out, "attributes", "none (no .dbf)");
    return;
  }
  std::string rows = Plural(table->fields().size(), "field", "fields") + ", " +
                     Plural(static_cast<size_t>(table->rows()), "row", "rows") + " in " + BaseName(table->path());
  if (records >= 0 && table->rows() != records) {
    const std::string differ = "the .dbf has " + std::to_string(table->rows()) + " rows but the map has " +
                               std::to_string(records) + " records: its rows do not match the shapes";
    rows += " (" + std::to_string(records) + " records: they differ)";
    Warn(path + ": " + differ);
  }
  Row(out, "attributes", rows);
  for (const FieldInfo& f : table->fields()) {
    char line[160];
    std::snprintf(line, sizeof line, "  %-12s %s (%d.%d)", f.name.c_str(), f.type.c_str(), f.width, f.precision);
    out << line << '\n';
  }
}

}  // namespace

int RunVersion(const std::string& plugin_path, std::ostream& out) {
  PlugIn plugin(plugin_path);
  out << "vardamap " << VARDAMAP_VERSION << '\n';
  out << "plug-in       " << plugin.path() << '\n';
  out << "version text  " << plugin.VersionStr() << '\n';
  out << "interface     " << plugin.Version() << " (private " << plugin.VersionPriv() << ")\n";
  out << "file types    " << plugin.GetTipoArchivos() << '\n';
  const std::string gdal = GdalVersion();
  out << "gdal          " << (gdal.empty() ? "none (built without GDAL)" : gdal) << '\n';
  return kExitOk;
}

int RunInfo(const std::string& plugin_path, const std::string& path, std::ostream& out) {
  PlugIn plugin(plugin_path);
  Map map(plugin, path, false, false);
  Progress progress("reading " + path);
  ReadOutcome read = map.Read("", &progress, false);
  if (read.cancelled) throw Cancelled();
  const ShpHeader h = ReadShpHeader(path);
  const std::string index = IndexPathFor(path);

  Row(out, "map", path);
  if (!map.recovered().empty()) Row(out, "recovered", map.recovered());
  if (!h.present) {
    Row(out, "header", "shorter than the 100-byte shapefile header");
  } else {
    Row(out, "shape type", std::to_string(h.shape_type) + " " + ShapeTypeName(h.shape_type));
    if (h.file_code != 9994 || h.version != 1000)
      Row(out, "header", "file code " + std::to_string(h.file_code) + ", version " +
                             std::to_string(h.version) + " (expected 9994 and 1000)");
    Row(out, "bounding box", "x " + Num(h.xmin) + " to " + Num(h.xmax) + ", y " + Num(h.ymin) +
                                 " to " + Num(h.ymax));
    if (ShapeTypeHasZ(h.shape_type)) {
      // Which of the two slots holds the least depends on who wrote the
      // file; the range is the same either way.
      double lo = h.z_a < h.z_b ? h.z_a : h.z_b, hi = h.z_a < h.z_b ? h.z_b : h.z_a;
      Row(out, "z range", Num(lo) + " to " + Num(hi));
    }
  }
  Row(out, "records", std::to_string(read.records) + (read.ok ? "" : " before the plug-in stopped"));
  Row(out, "shapes", ShapeSummary(read.shapes, read.vertices));
  const Box& box = read.box;
  if (!box.empty)
    Row(out, "shapes' box", "x " + Num(box.xmin) + " to " + Num(box.xmax) + ", y " +
                                Num(box.ymin) + " to " + Num(box.ymax));
  std::string shp_size = Bytes(FileSize(path));
  if (h.present) shp_size += " (header says " + Bytes(h.length_bytes) + ")";
  Row(out, ".shp", shp_size);
  long long shx_size = FileSize(index);
  std::string shx = Bytes(shx_size);
  if (shx_size >= 100)
    shx += ", " + Plural(static_cast<size_t>((shx_size - 100) / 8), "entry", "entries");
  Row(out, ".shx", shx + (map.index_found() ? ", index found" : ", no index: records not checked"));
  WriteGisRows(out, path, read.ok ? read.records : -1);
  if (read.ok) {
    Row(out, "plug-in", "accepts the map");
    return kExitOk;
  }
  std::string why = ErrorSink::Join(read.messages);
  Row(out, "plug-in", "refuses the map: " + (why.empty() ? std::string("no reason given") : why));
  out.flush();
  throw Failed(path + ": " + (why.empty() ? "the plug-in refused the map" : why));
}

int RunCheck(const std::string& plugin_path, const std::string& path, std::ostream& out) {
  PlugIn plugin(plugin_path);
  Map map(plugin, path, false);
  ReadOutcome read = map.ReadAll("", "checking " + path, false);
  out << path << ": accepted, " << Plural(static_cast<size_t>(read.records), "record", "records")
      << ", " << Plural(read.shapes.size(), "shape", "shapes") << " delivered"
      << (map.index_found() ? "" : " (no index: records not checked)") << '\n';
  return kExitOk;
}

}  // namespace vardamap
