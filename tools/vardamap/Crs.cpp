#include "Crs.h"

#include <fstream>
#include <sstream>

#include "Dbf.h"
#include "Errors.h"
#include "Gdal.h"

#ifdef VARDAMAP_WITH_GDAL
#include <ogr_spatialref.h>
#endif

namespace vardamap {

#ifdef VARDAMAP_WITH_GDAL

namespace {

OGRSpatialReference* Srs(void* p) { return static_cast<OGRSpatialReference*>(p); }

}  // namespace

MapCrs::MapCrs(const std::string& shp) : prj_(SiblingPath(shp, ".prj")) {
  if (prj_.empty()) return;
  InitGdal();
  std::ifstream in(prj_, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  if (!in && !in.eof()) {
    error_ = "cannot be read";
    return;
  }
  // The .prj holds ESRI's dialect of WKT, possibly over several lines.
  std::vector<std::string> lines;
  std::istringstream split(text.str());
  for (std::string line; std::getline(split, line);) lines.push_back(line);
  std::vector<const char*> argv;
  for (const std::string& l : lines) argv.push_back(l.c_str());
  argv.push_back(nullptr);
  auto* srs = new OGRSpatialReference;
  srs->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  if (lines.empty() || srs->importFromESRI(const_cast<char**>(argv.data())) != OGRERR_NONE || srs->IsEmpty()) {
    error_ = GdalMessage("PROJ cannot read it");
    delete srs;
    return;
  }
  // As other GIS programs do: adopt the registered system the text stands
  // for, so that names, codes and transformations agree with theirs.
  if (OGRSpatialReference* match = srs->FindBestMatch(90, "EPSG")) {
    delete srs;
    srs = match;
    srs->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  }
  srs_ = srs;
  usable_ = true;
  const char* name = srs->GetName();
  name_ = name ? name : "unnamed";
  const char* auth = srs->GetAuthorityName(nullptr);
  const char* code = srs->GetAuthorityCode(nullptr);
  if (auth && code && std::string(auth) == "EPSG") epsg_ = std::atoi(code);
}

MapCrs::~MapCrs() { delete Srs(srs_); }

ToWgs84::ToWgs84(const MapCrs& from) {
  OGRSpatialReference wgs84;
  wgs84.SetWellKnownGeogCS("WGS84");
  wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  transform_ = OGRCreateCoordinateTransformation(Srs(from.handle()), &wgs84);
  if (!transform_)
    throw Failed(from.prj() + ": no transformation to WGS 84 is known (" +
                 GdalMessage("PROJ found none") + ")");
}

ToWgs84::~ToWgs84() { OGRCoordinateTransformation::DestroyCT(static_cast<OGRCoordinateTransformation*>(transform_)); }

void ToWgs84::Apply(std::vector<Point>& points) {
  const size_t n = points.size();
  if (n == 0) return;
  x_.resize(n), y_.resize(n), z_.resize(n);
  for (size_t i = 0; i < n; ++i) x_[i] = points[i].x, y_[i] = points[i].y, z_[i] = points[i].z;
  std::vector<int> ok(n, 0);
  auto* t = static_cast<OGRCoordinateTransformation*>(transform_);
  if (!t->Transform(n, x_.data(), y_.data(), z_.data(), ok.data()))
    for (int good : ok)
      if (!good) throw Failed("a point cannot be moved to WGS 84 longitude/latitude");
  for (size_t i = 0; i < n; ++i) points[i].x = x_[i], points[i].y = y_[i], points[i].z = z_[i];
}

#else

MapCrs::MapCrs(const std::string& shp) : prj_(SiblingPath(shp, ".prj")) {
  if (!prj_.empty()) error_ = "not read: this vardamap is built without GDAL";
}
MapCrs::~MapCrs() = default;
ToWgs84::ToWgs84(const MapCrs&) { NoGdal("reprojection"); }
ToWgs84::~ToWgs84() = default;
void ToWgs84::Apply(std::vector<Point>&) {}

#endif

std::string MapCrs::Describe() const {
  if (!present()) return "none (no .prj)";
  if (!usable_) return "unreadable .prj: " + error_;
  return name_ + (epsg_ ? " (EPSG " + std::to_string(epsg_) + ")" : "");
}

}  // namespace vardamap
