// dump: every delivered line with its database id, flags and points, as
// text or as GeoJSON.
#include <cstdio>

#include "Commands.h"
#include "Errors.h"
#include "Format.h"
#include "GeoJson.h"
#include "Map.h"

namespace vardamap {

namespace {

void WriteText(std::ostream& out, const std::string& path, const std::vector<Shape>& shapes) {
  out << "# " << path << ": " << shapes.size() << (shapes.size() == 1 ? " shape\n" : " shapes\n");
  std::string text;
  for (const Shape& s : shapes) {
    char flags[16];
    std::snprintf(flags, sizeof flags, "0x%02x", static_cast<unsigned>(s.flags));
    text = "shape " + std::to_string(s.id) + " " + KindName(s.kind()) + (s.has_z() ? " z" : "") +
           " flags=" + flags + " points=" + std::to_string(s.points.size()) + "\n";
    for (const Point& p : s.points) {
      text += "  " + Num(p.x) + " " + Num(p.y);
      if (s.has_z()) text += " " + Num(p.z);
      text += '\n';
    }
    out << text;
  }
}

}  // namespace

int RunDump(const std::string& plugin_path, const std::string& path, const std::string& inpoint,
            const std::string& format, std::ostream& out) {
  std::string options;
  if (!inpoint.empty()) {
    double x, y;
    if (!ParsePair(inpoint, &x, &y))
      throw Usage("--inpoint expects two numbers as X,Y (got \"" + inpoint + "\")");
    options = "inpoint=" + Num(x) + "," + Num(y);
  }
  PlugIn plugin(plugin_path);
  Map map(plugin, path, false);
  ReadOutcome read = map.ReadAll(options, "reading " + path);
  map.Close();
  if (format == "geojson")
    WriteFeatureCollection(out, read.shapes);
  else
    WriteText(out, path, read.shapes);
  out.flush();
  if (!out) throw Failed("cannot write the output");
  return kExitOk;
}

}  // namespace vardamap
