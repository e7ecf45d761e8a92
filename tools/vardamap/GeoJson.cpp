#include "GeoJson.h"

#include <algorithm>
#include <cmath>

namespace vardamap {

namespace {

using Json = nlohmann::ordered_json;
using Ring = std::vector<Point>;

Json Position(const Point& p, bool z) {
  Json a = Json::array({p.x, p.y});
  if (z) a.push_back(p.z);
  return a;
}

Json Positions(const std::vector<Point>& pts, bool z) {
  Json a = Json::array();
  for (const Point& p : pts) a.push_back(Position(p, z));
  return a;
}

// Twice the signed area; negative for a clockwise ring (with Y pointing up).
double SignedArea2(const Ring& r) {
  double a = 0;
  for (size_t i = 0; i + 1 < r.size(); ++i) a += r[i].x * r[i + 1].y - r[i + 1].x * r[i].y;
  return a;
}

bool Inside(const Point& p, const Ring& r) {
  bool in = false;
  for (size_t i = 0, j = r.size() - 1; i < r.size(); j = i++) {
    if ((r[i].y > p.y) != (r[j].y > p.y) &&
        p.x < (r[j].x - r[i].x) * (p.y - r[i].y) / (r[j].y - r[i].y) + r[i].x)
      in = !in;
  }
  return in;
}

// Holes are the rings that lie inside an odd number of others; each goes to
// the smallest outer ring that holds it. Containment decides rather than
// the winding, since files written by careless tools get the winding wrong.
Json PolygonGeometry(const Shape& shape) {
  std::vector<Ring> rings = SplitRings(shape.points);
  for (Ring& r : rings)
    if (r.front().x != r.back().x || r.front().y != r.back().y) r.push_back(r.front());
  // A stray point or two after the last ring (a repeated closing point) is
  // no ring: GeoJSON wants four positions at least.
  if (rings.size() > 1)
    rings.erase(std::remove_if(rings.begin(), rings.end(), [](const Ring& r) { return r.size() < 4; }),
                rings.end());
  if (rings.empty()) rings = SplitRings(shape.points);
  const bool z = shape.has_z();
  if (rings.size() == 1)
    return Json{{"type", "Polygon"}, {"coordinates", Json::array({Positions(rings[0], z)})}};

  const size_t n = rings.size();
  std::vector<double> area(n);
  std::vector<Box> box(n);
  for (size_t i = 0; i < n; ++i) {
    area[i] = std::fabs(SignedArea2(rings[i]));
    for (const Point& p : rings[i]) box[i].Add(p);
  }
  auto contains = [&](size_t outer, size_t inner) {
    const Point& p = rings[inner].front();
    return outer != inner && p.x >= box[outer].xmin && p.x <= box[outer].xmax &&
           p.y >= box[outer].ymin && p.y <= box[outer].ymax && Inside(p, rings[outer]);
  };
  std::vector<bool> is_hole(n, false);
  for (size_t i = 0; i < n; ++i) {
    int depth = 0;
    for (size_t j = 0; j < n; ++j)
      if (contains(j, i)) ++depth;
    is_hole[i] = depth % 2 == 1;
  }
  std::vector<size_t> outers;
  std::vector<std::vector<size_t>> holes_of(n);
  for (size_t i = 0; i < n; ++i)
    if (!is_hole[i]) outers.push_back(i);
  for (size_t i = 0; i < n; ++i) {
    if (!is_hole[i]) continue;
    size_t best = n;
    for (size_t o : outers)
      if (contains(o, i) && (best == n || area[o] < area[best])) best = o;
    if (best == n) {
      // A hole of holes only: let it stand as an outer ring of its own.
      outers.push_back(i);
      continue;
    }
    holes_of[best].push_back(i);
  }
  Json polygons = Json::array();
  for (size_t o : outers) {
    Json poly = Json::array({Positions(rings[o], z)});
    for (size_t h : holes_of[o]) poly.push_back(Positions(rings[h], z));
    polygons.push_back(std::move(poly));
  }
  if (polygons.size() == 1) return Json{{"type", "Polygon"}, {"coordinates", polygons[0]}};
  return Json{{"type", "MultiPolygon"}, {"coordinates", polygons}};
}

}  // namespace

Json GeometryOf(const Shape& shape) {
  if (shape.points.empty()) return nullptr;
  // A one-point line has no valid LineString form; a Point keeps its place.
  if (shape.is_point() || shape.points.size() == 1)
    return Json{{"type", "Point"}, {"coordinates", Position(shape.points[0], shape.has_z())}};
  if (shape.is_closed()) return PolygonGeometry(shape);
  return Json{{"type", "LineString"}, {"coordinates", Positions(shape.points, shape.has_z())}};
}

Json FeatureOf(const Shape& shape) {
  return Json{{"type", "Feature"},
              {"id", shape.id},
              {"properties", {{"id", shape.id}, {"kind", KindName(shape.kind())}, {"flags", shape.flags}}},
              {"geometry", GeometryOf(shape)}};
}
}  // namespace vardamap
