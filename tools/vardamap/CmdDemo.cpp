// demo: a small town made with the plug-in itself, read back and drawn.
// A shapefile holds one shape type, chosen by its first shape, so the town
// is four maps: roads, areas (a lake with an island, a park with a pond),
// places and a hiking trail with heights.
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "Commands.h"
#include "Errors.h"
#include "Map.h"
#include "ShpHeader.h"
#include "Svg.h"

namespace vardamap {

namespace {

constexpr double kPi = 3.14159265358979323846;

struct DemoShape {
  const char* name;
  std::vector<Point> points;
};

struct DemoMap {
  const char* file;
  int32_t flags;
  std::vector<DemoShape> shapes;
};

// An irregular ring around (cx, cy); clockwise for outer rings and
// anticlockwise for holes, as shapefiles expect. Closed on its first point.
std::vector<Point> Ring(double cx, double cy, double r, int n, bool clockwise, double wobble) {
  std::vector<Point> pts;
  for (int i = 0; i < n; ++i) {
    const double a = (clockwise ? -1 : 1) * 2 * kPi * i / n;
    const double rr = r * (1 + wobble * std::sin(3 * a) + wobble / 2 * std::cos(5 * a));
    pts.push_back(Point{std::round(cx + rr * std::cos(a)), std::round(cy + rr * std::sin(a)), 0});
  }
  pts.push_back(pts.front());
  return pts;
}

std::vector<Point> Join(std::vector<Point> a, const std::vector<Point>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// In drawing order: areas underneath, then lines, then places on top.
std::vector<DemoMap> Town() {
  // Metric coordinates of a made-up town, in the style of a UTM zone.
  const double X = 430000, Y = 4580000;
  auto P = [&](double x, double y, double z = 0) { return Point{X + x, Y + y, z}; };
  std::vector<Point> park = {P(300, 600), P(300, 1000), P(650, 1000), P(650, 600), P(300, 600)};
  std::vector<Point> pond = {P(420, 720), P(540, 720), P(540, 860), P(420, 860), P(420, 720)};
  return {
      {"areas.shp",
       kKindPolygon,
       {{"Lake (with an island)", Join(Ring(X + 1550, Y + 1200, 260, 18, true, 0.12),
                                       Ring(X + 1580, Y + 1220, 70, 7, false, 0.1))},
        {"Park (with a pond)", Join(park, pond)}}},
      {"roads.shp",
       kKindLine,
       {{"Main Street", {P(200, 400), P(800, 450), P(1400, 420), P(1900, 500)}},
        {"North Road", {P(800, 450), P(850, 900), P(780, 1300), P(900, 1600)}},
        {"Lake Road", {P(1400, 420), P(1500, 800), P(1750, 960), P(1900, 1300)}},
        {"Ring Road", {P(200, 400), P(300, 150), P(900, 50), P(1500, 150), P(1900, 500)}}}},
      {"trail_z.shp",
       kKindLine,
       {{"Hill trail (with heights)",
         {P(650, 950, 121.5), P(700, 1150, 128), P(600, 1350, 140.2), P(500, 1500, 156.8),
          P(420, 1620, 171), P(380, 1700, 184.5)}}}},
      {"places.shp",
       kKindPoint,
       {{"Town hall", {P(820, 480)}},
        {"Station", {P(1380, 380)}},
        {"School", {P(870, 950)}},
        {"Lighthouse", {P(1580, 1220)}},
        {"Boat hire", {P(1330, 1060)}}}},
  };
}

void MakeDirectories(const std::string& dir) {
  std::string path;
  size_t pos = 0;
  while (pos != std::string::npos) {
    pos = dir.find('/', pos + 1);
    path = dir.substr(0, pos);
    if (path.empty()) continue;
    if (mkdir(path.c_str(), 0777) != 0 && errno != EEXIST)
      throw Failed("cannot create the folder " + path + ": " + std::strerror(errno));
  }
  struct stat st;
  if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
    throw Failed(dir + " is not a folder");
}

}  // namespace

int RunDemo(const std::string& plugin_path, const std::string& dir_in, std::ostream& out) {
  const std::string dir = dir_in.empty() ? std::string("vardamap-demo") : dir_in;
  MakeDirectories(dir);
  PlugIn plugin(plugin_path);
  const std::vector<DemoMap> town = Town();

  out << "Writing the demo maps with " << plugin.VersionStr() << " into " << dir << "/\n";
  for (const DemoMap& m : town) {
    const std::string path = dir + "/" + m.file;
    // A fresh start each time: the maps are the demo's own.
    std::remove(path.c_str());
    std::remove(IndexPathFor(path).c_str());
    Map map(plugin, path, true);
    for (const DemoShape& s : m.shapes) {
      int32_t id = map.Add(m.flags, s.points, 0);
      out << "  " << m.file << " #" << id << "  " << s.name << '\n';
    }
    map.Close();
  }

  out << "Reading them back:\n";
  std::vector<Layer> layers;
  for (const DemoMap& m : town) {
    const std::string path = dir + "/" + m.file;
    Map map(plugin, path, false);
    ReadOutcome read = map.ReadAll("", "reading " + path);
    size_t vertices = 0;
    for (const Shape& s : read.shapes) vertices += s.points.size();
    const ShpHeader h = ReadShpHeader(path);
    char line[160];
    std::snprintf(line, sizeof line, "  %-12s %-10s %zu shape%s, %zu points, %lld bytes\n", m.file,
                  ShapeTypeName(h.shape_type).c_str(), read.shapes.size(),
                  read.shapes.size() == 1 ? "" : "s", vertices, FileSize(path));
    out << line;
    layers.push_back(Layer{m.file, std::move(read.shapes)});
  }
  const std::string svg = dir + "/demo.svg";
  WriteFile(svg, RenderSvg(layers, 800));
  out << "The picture is in " << svg << " (open it in a web browser).\n";
  return kExitOk;
}

}  // namespace vardamap
