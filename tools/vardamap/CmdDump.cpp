// dump: every delivered line with its database id, flags, points and, when
// the map has a .dbf, its attributes; as text or as GeoJSON. Written shape
// by shape as the plug-in delivers them, so memory stays flat.
#include <cstdio>
#include <memory>

#include "Commands.h"
#include "Crs.h"
#include "Dbf.h"
#include "Errors.h"
#include "Format.h"
#include "Gdal.h"
#include "GeoJson.h"
#include "Map.h"
#include "Table.h"

namespace vardamap {

namespace {

using Json = nlohmann::ordered_json;

std::string JsonText(const Json& j) { return j.dump(-1, ' ', false, Json::error_handler_t::replace); }

void WriteTextShape(std::ostream& out, const Shape& s, const Json& row) {
  char flags[16];
  std::snprintf(flags, sizeof flags, "0x%02x", static_cast<unsigned>(s.flags));
  std::string text = "shape " + std::to_string(s.id) + " " + KindName(s.kind()) + (s.has_z() ? " z" : "") +
                     " flags=" + flags + " points=" + std::to_string(s.points.size()) + "\n";
  if (row.is_object())
    for (const auto& field : row.items()) text += "  | " + field.key() + " = " + JsonText(field.value()) + "\n";
  for (const Point& p : s.points) {
    text += "  " + Num(p.x) + " " + Num(p.y);
    if (s.has_z()) text += " " + Num(p.z);
    text += '\n';
  }
  out << text;
}

// The table to join, or null (with a warning) when there is none to read.
std::unique_ptr<AttributeTable> OpenTable(const std::string& path) {
  if (GdalVersion().empty()) {
    if (!DbfPathFor(path).empty()) Warn(path + ": attributes not read: this vardamap is built without GDAL");
    return nullptr;
  }
  try {
    std::unique_ptr<AttributeTable> table(new AttributeTable(path));
    if (table->present()) return table;
  } catch (const ToolError& e) {
    Warn(std::string(e.what()) + "; the shapes are written without attributes");
  }
  return nullptr;
}

// The transformation to WGS 84 longitude/latitude, or null when the
// coordinates are written as stored.
std::unique_ptr<ToWgs84> OpenTransform(const std::string& path) {
  if (GdalVersion().empty()) {
    Warn(path + ": coordinates written as stored: this vardamap is built without GDAL");
    return nullptr;
  }
  const MapCrs crs(path);
  if (!crs.present()) {
    Warn(path + ": no .prj names the coordinate system: coordinates written as stored");
    return nullptr;
  }
  if (!crs.usable())
    throw Failed(crs.prj() + ": " + crs.error() + " (give --keep-crs to write the coordinates as stored)");
  if (crs.epsg() == 4326) return nullptr;  // already longitude/latitude on WGS 84
  return std::unique_ptr<ToWgs84>(new ToWgs84(crs));
}

}  // namespace

int RunDump(const std::string& plugin_path, const DumpOptions& o, std::ostream& out) {
  std::string options;
  if (!o.inpoint.empty()) {
    double x, y;
    if (!ParsePair(o.inpoint, &x, &y))
      throw Usage("--inpoint expects two numbers as X,Y (got \"" + o.inpoint + "\")");
    options = "inpoint=" + Num(x) + "," + Num(y);
  }
  const bool geojson = o.format == "geojson";
  if (o.keep_crs && !geojson) throw Usage("--keep-crs goes with --format geojson");
  PlugIn plugin(plugin_path);
  Map map(plugin, o.map, false);
  std::unique_ptr<AttributeTable> table = OpenTable(o.map);
  std::unique_ptr<ToWgs84> to_wgs84 = geojson && !o.keep_crs ? OpenTransform(o.map) : nullptr;

  std::unique_ptr<OutputFile> file;
  if (!o.output.empty()) file.reset(new OutputFile(o.output));
  std::ostream& dest = file ? file->stream() : out;
  size_t count = 0;
  if (geojson) dest << "{\"type\":\"FeatureCollection\",\"features\":[";
  else dest << "# " << o.map << '\n';
  ReadOutcome read = map.Stream(options, "reading " + o.map, [&](Shape& s) {
    Json row = table ? table->Row(s.id) : Json(nullptr);
    if (geojson) {
      if (to_wgs84) to_wgs84->Apply(s.points);
      Json feature = table ? Json{{"type", "Feature"}, {"id", s.id}, {"properties", std::move(row)},
                                  {"geometry", GeometryOf(s)}}
                           : FeatureOf(s);
      dest << (count ? ",\n" : "\n") << JsonText(feature);
    } else {
      WriteTextShape(dest, s, row);
    }
    if (!dest) throw Failed("cannot write the output");
    ++count;
  });
  map.Close();
  if (geojson) dest << "\n]}\n";
  else dest << "# " << count << (count == 1 ? " shape\n" : " shapes\n");
  if (table && table->rows() != read.records)
    Warn(table->path() + " has " + std::to_string(table->rows()) + " rows but the map has " +
         std::to_string(read.records) + " records: attributes may belong to other shapes");
  dest.flush();
  if (!dest) throw Failed("cannot write the output");
  if (file) file->Commit();
  return kExitOk;
}

}  // namespace vardamap
