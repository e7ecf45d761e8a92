// GeoJson.h - shapes as a GeoJSON FeatureCollection: open lines become
// LineStrings, closed lines Polygons (or MultiPolygons when they hold more
// than one outer ring), points Points; the database id is kept as a property.
#ifndef VARDAMAP_GEOJSON_H
#define VARDAMAP_GEOJSON_H

#include <ostream>
#include <vector>

#include <nlohmann/json.hpp>

#include "Map.h"

namespace vardamap {

nlohmann::ordered_json GeometryOf(const Shape& shape);
nlohmann::ordered_json FeatureOf(const Shape& shape);

}  // namespace vardamap

#endif
