// add and delete: changing a map through the plug-in.
#include <algorithm>
#include <memory>
#include <unistd.h>

#include "Commands.h"
#include "Dbf.h"
#include "Errors.h"
#include "Map.h"
#include "PointInput.h"
#include "Progress.h"
#include "ShpHeader.h"

namespace vardamap {

namespace {

int32_t FlagsOfKind(const std::string& kind) {
  if (kind == "polygon") return kKindPolygon;
  if (kind == "point") return kKindPoint;
  return kKindLine;
}

// Closes the last ring when the input left it open; the rings before it
// are closed by definition (that is where they end).
void CloseLastRing(std::vector<Point>& pts) {
  const std::vector<Point> last = SplitRings(pts).back();
  if (last.size() < 2 || last.front().x != last.back().x || last.front().y != last.back().y)
    pts.push_back(last.front());
}

}  // namespace

int RunAdd(const std::string& plugin_path, const AddOptions& o, std::istream& in, std::ostream& out) {
  const int32_t flags = FlagsOfKind(o.kind);
  if (o.id != 0 && o.create)
    throw Usage("--id replaces a record of an existing map; it cannot go with --create");
  if (o.create && access(o.map.c_str(), F_OK) == 0)
    throw Usage(o.map + " exists already; leave out --create to add to it");

  std::vector<InputShape> shapes = ReadShapes(in, o.z, flags == kKindPoint);
  if (shapes.empty())
    throw Usage("no points on standard input: give one point a line as \"x y [z]\", "
                "a blank line after each shape");
  if (o.id != 0 && shapes.size() != 1)
    throw Usage("--id replaces one record: give exactly one shape (got " +
                std::to_string(shapes.size()) + ")");
  if (flags == kKindPolygon) {
    for (InputShape& s : shapes) {
      if (s.points.size() < 3)
        throw Usage("standard input, line " + std::to_string(s.first_line) +
                    ": a polygon needs at least 3 points");
      // Rings are closed where they come back to their start; the last one
      // is closed here when the input left it open.
      CloseLastRing(s.points);
    }
  }

  const std::vector<AttrValue> attrs = ParseAttrs(o.attrs);
  PlugIn plugin(plugin_path);
  std::unique_ptr<DbfKeeper> rows;
  if (o.create) rows.reset(new DbfKeeper(o.map, 0, attrs));
  Map map(plugin, o.map, o.create);
  int32_t file_type = 0;
  if (!o.create) {
    // The plug-in learns the record count and file length by reading; a map
    // must be read before it is changed.
    ReadOutcome read = map.ReadAll("", "reading " + o.map, false);
    if (o.id > read.records)
      throw Failed(o.map + ": there is no record " + std::to_string(o.id) + " to replace (the map has " +
                   std::to_string(read.records) + ")");
    file_type = ReadShpHeader(o.map).shape_type;
    rows.reset(new DbfKeeper(o.map, read.records, attrs));
  }
  const int stored_kind = KindOfShapeType(file_type);
  if (stored_kind >= 0 && stored_kind != flags)
    Warn(o.map + " holds " + ShapeTypeName(file_type) + " shapes: the " + KindName(flags) +
         (shapes.size() == 1 ? " is" : "s are") + " stored as " + ShapeTypeName(file_type));
  const bool has_z = std::any_of(shapes.begin(), shapes.end(), [](const InputShape& s) {
    return std::any_of(s.points.begin(), s.points.end(), [](const Point& p) { return p.z != 0; });
  });
  if (file_type == 0 && has_z && !(shapes[0].points[0].z > 2.0))
    Warn("the first point's Z is not above 2.0, so the map is made without Z and every Z is dropped");
  else if (stored_kind >= 0 && has_z && !ShapeTypeHasZ(file_type))
    Warn(o.map + " has no Z: the Z values are dropped");

  int added = 0;
  try {
    for (const InputShape& s : shapes) {
      if (Interrupted())
        throw ToolError(kExitCancelled, "cancelled after adding " + std::to_string(added) + " of " +
                                            std::to_string(shapes.size()) + " shapes");
      int32_t id = map.Add(flags, s.points, o.id);
      if (o.id != 0) rows->Replaced(id);
      else rows->Added(id);
      out << id << '\n';
      ++added;
    }
  } catch (const ToolError&) {
    // The shapes added so far stay: their rows must follow them.
    map.Close();
    out.flush();
    rows->Commit();
    throw;
  }
  map.Close();
  out.flush();
  rows->Commit();
  return kExitOk;
}

int RunDelete(const std::string& plugin_path, const std::string& path, std::vector<int> ids,
              std::ostream& out) {
  // Highest first: deleting a record renumbers those after it, so this order
  // keeps every id the user read from the map pointing at the same shape.
  std::sort(ids.begin(), ids.end(), std::greater<int>());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  PlugIn plugin(plugin_path);
  Map map(plugin, path, false);
  ReadOutcome read = map.ReadAll("", "reading " + path, false);
  DbfKeeper rows(path, read.records, {});
  std::vector<int> done;
  for (int id : ids) {
    auto so_far = [&]() {
      if (done.empty()) return std::string("; nothing was deleted");
      std::string list;
      for (int d : done) list += (list.empty() ? "" : ", ") + std::to_string(d);
      return "; already deleted: " + list;
    };
    if (Interrupted()) {
      map.Close();
      rows.Commit();
      throw ToolError(kExitCancelled, "cancelled" + so_far());
    }
    try {
      for (const std::string& w : map.Delete(id)) Warn(path + ": record " + std::to_string(id) + ": " + w);
    } catch (const ToolError& e) {
      std::string extra = id > read.records ? " (the map has " + std::to_string(read.records) + " records)" : "";
      map.Close();
      rows.Commit();
      throw ToolError(e.code(), e.what() + extra + so_far());
    }
    rows.Deleted(id);
    done.push_back(id);
    out << "deleted " << id << '\n';
  }
  map.Close();
  out.flush();
  rows.Commit();
  return kExitOk;
}

}  // namespace vardamap
