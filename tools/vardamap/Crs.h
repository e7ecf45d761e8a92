// Crs.h - a map's coordinate system, from the .prj beside it, and the
// transformation of its points to WGS 84 longitude/latitude.
#ifndef VARDAMAP_CRS_H
#define VARDAMAP_CRS_H

#include <memory>
#include <string>
#include <vector>

#include "Map.h"

namespace vardamap {

class MapCrs {
 public:
  // Reads the .prj of `shp`, if any; never throws for a bad one (see error()).
  explicit MapCrs(const std::string& shp);
  ~MapCrs();
  MapCrs(const MapCrs&) = delete;
  MapCrs& operator=(const MapCrs&) = delete;

  bool present() const { return !prj_.empty(); }  // a .prj exists
  bool usable() const { return usable_; }
  const std::string& prj() const { return prj_; }
  const std::string& error() const { return error_; }  // why a present .prj is unusable
  const std::string& name() const { return name_; }
  int epsg() const { return epsg_; }  // 0 when none is identified
  // "NAD27 (EPSG 4267)", "none (no .prj)" or "unreadable .prj: WHY".
  std::string Describe() const;

  // The coordinate system as OGR holds it (an OGRSpatialReference), or null.
  void* handle() const { return srs_; }

 private:
  std::string prj_, error_, name_;
  int epsg_ = 0;
  bool usable_ = false;
  void* srs_ = nullptr;
};

// Moves points from a map's system to WGS 84 longitude/latitude (x = lon).
class ToWgs84 {
 public:
  // Throws ToolError(kExitFailed) when PROJ knows no way between them.
  explicit ToWgs84(const MapCrs& from);
  ~ToWgs84();
  ToWgs84(const ToWgs84&) = delete;
  ToWgs84& operator=(const ToWgs84&) = delete;
  // Throws ToolError(kExitFailed) when a point cannot be moved.
  void Apply(std::vector<Point>& points);

 private:
  void* transform_ = nullptr;
  std::vector<double> x_, y_, z_;
};

}  // namespace vardamap

#endif
