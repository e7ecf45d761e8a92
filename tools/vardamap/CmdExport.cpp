// export: a map with its attributes into another vector format, written by
// OGR shape by shape; the geometry still comes from the plug-in.
#include <algorithm>
#include <cctype>
#include <memory>

#include "Commands.h"
#include "Crs.h"
#include "Errors.h"
#include "Gdal.h"
#include "GeoJson.h"
#include "Map.h"
#include "Table.h"

#ifdef VARDAMAP_WITH_GDAL
#include <ogr_api.h>
#include <ogrsf_frmts.h>
#endif

namespace vardamap {

#ifdef VARDAMAP_WITH_GDAL

namespace {

struct Target {
  const char* driver;
  bool wgs84;  // the format knows longitude/latitude only (or should carry it)
};

Target TargetFor(const std::string& out) {
  std::string ext = out.substr(out.rfind('.') == std::string::npos ? out.size() : out.rfind('.'));
  std::transform(ext.begin(), ext.end(), ext.begin(), ::tolower);
  if (ext == ".geojson" || ext == ".json") return {"GeoJSON", true};
  if (ext == ".gpx") return {"GPX", true};
  if (ext == ".kml") return {"KML", true};
  if (ext == ".gpkg") return {"GPKG", false};
  if (ext == ".csv") return {"CSV", false};
  throw Usage("cannot tell the format of " + out + " from its extension (.geojson, .gpx, .kml, .gpkg or .csv)");
}

OGRFieldType FieldType(const std::string& name) {
  if (name == "Integer") return OFTInteger;
  if (name == "Integer64") return OFTInteger64;
  if (name == "Real") return OFTReal;
  if (name == "Date") return OFTDate;
  return OFTString;
}

struct Dataset {
  GDALDataset* ds = nullptr;
  ~Dataset() {
    if (ds) GDALClose(ds);
  }
};

}  // namespace

int RunExport(const std::string& plugin_path, const std::string& path, const std::string& output,
              bool keep_crs, std::ostream& out) {
  const Target target = TargetFor(output);
  InitGdal();
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(target.driver);
  if (!driver) throw Failed(std::string("this GDAL has no ") + target.driver + " driver");
  PlugIn plugin(plugin_path);
  Map map(plugin, path, false);
  AttributeTable table(path);
  const MapCrs crs(path);
  if (crs.present() && !crs.usable())
    throw Failed(crs.prj() + ": " + crs.error());
  const bool to_wgs84 = target.wgs84 && !keep_crs && crs.usable() && crs.epsg() != 4326;
  if (target.wgs84 && !crs.present())
    Warn(path + ": no .prj names the coordinate system: coordinates written as stored");
  std::unique_ptr<ToWgs84> transform(to_wgs84 ? new ToWgs84(crs) : nullptr);
  OGRSpatialReference wgs84;
  wgs84.SetWellKnownGeogCS("WGS84");
  wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  const OGRSpatialReference* srs =
      target.wgs84 && !keep_crs && crs.usable() ? &wgs84 : static_cast<const OGRSpatialReference*>(crs.handle());

  // Written under a temporary name; the file appears only when complete.
  OutputFile file(output, false);
  Dataset data;
  const bool gpx = std::string(target.driver) == "GPX";
  char** dsco = nullptr;
  if (gpx) dsco = CSLSetNameValue(dsco, "GPX_USE_EXTENSIONS", "YES");
  data.ds = driver->Create(file.temporary().c_str(), 0, 0, 0, GDT_Unknown, dsco);
  CSLDestroy(dsco);
  if (!data.ds) throw Failed("cannot write " + output + ": " + GdalMessage("the driver refused"));

  std::string layer_name = BaseName(path);
  layer_name = layer_name.substr(0, layer_name.rfind('.'));
  // GPX keeps points as waypoints and lines as tracks, each in a layer of its own.
  OGRLayer* layers[2] = {nullptr, nullptr};
  auto layer_for = [&](bool point) -> OGRLayer* {
    OGRLayer*& layer = layers[point ? 0 : 1];
    if (layer) return layer;
    char** lco = nullptr;
    if (std::string(target.driver) == "CSV") lco = CSLSetNameValue(lco, "GEOMETRY", "AS_WKT");
    const std::string name = gpx ? (point ? "waypoints" : "tracks") : layer_name;
    const OGRwkbGeometryType type = gpx ? (point ? wkbPoint : wkbMultiLineString) : wkbUnknown;
    layer = data.ds->CreateLayer(name.c_str(), const_cast<OGRSpatialReference*>(srs), type, lco);
    CSLDestroy(lco);
    if (!layer) throw Failed("cannot write " + output + ": " + GdalMessage("no layer"));
    for (const FieldInfo& f : table.fields()) {
      OGRFieldDefn defn(f.name.c_str(), FieldType(f.type));
      defn.SetWidth(f.width);
      defn.SetPrecision(f.precision);
      if (layer->CreateField(&defn) != OGRERR_NONE)
        throw Failed("cannot write " + output + ": field " + f.name + ": " + GdalMessage("refused"));
    }
    return layer;
  };

  size_t written = 0;
  map.Stream("", "exporting " + path, [&](Shape& s) {
    if (s.points.empty()) return;
    if (transform) transform->Apply(s.points);
    OGRGeometryH g = OGR_G_CreateGeometryFromJson(GeometryOf(s).dump().c_str());
    if (!g) throw Failed(path + ": shape " + std::to_string(s.id) + " has no geometry OGR accepts");
    OGRGeometry* geometry = OGRGeometry::FromHandle(g);
    const bool point = wkbFlatten(geometry->getGeometryType()) == wkbPoint;
    if (gpx && !point) geometry = OGRGeometryFactory::forceToMultiLineString(geometry);
    OGRLayer* layer = layer_for(point);
    OGRFeature feature(layer->GetLayerDefn());
    feature.SetGeometryDirectly(geometry);
    if (table.present()) {
      const nlohmann::ordered_json row = table.Row(s.id);
      if (row.is_object()) {
        int i = 0;
        for (const auto& v : row.items()) {
          const int at = feature.GetFieldIndex(table.fields()[i++].name.c_str());
          if (at < 0 || v.value().is_null()) continue;
          if (v.value().is_string()) feature.SetField(at, v.value().get<std::string>().c_str());
          else if (v.value().is_number_integer()) feature.SetField(at, static_cast<GIntBig>(v.value().get<long long>()));
          else feature.SetField(at, v.value().get<double>());
        }
      }
    }
    if (layer->CreateFeature(&feature) != OGRERR_NONE)
      throw Failed("cannot write " + output + ": shape " + std::to_string(s.id) + ": " + GdalMessage("refused"));
    ++written;
  });
  map.Close();
  if (!written) layer_for(false);  // an empty map still makes a readable file
  GDALDataset* ds = data.ds;
  data.ds = nullptr;
  CPLErrorReset();
  GDALClose(ds);
  if (CPLGetLastErrorType() >= CE_Failure) throw Failed("cannot write " + output + ": " + GdalMessage("close failed"));
  file.Commit();
  out << output << ": " << written << (written == 1 ? " shape" : " shapes") << " written as " << target.driver
      << '\n';
  return kExitOk;
}

#else

int RunExport(const std::string&, const std::string&, const std::string&, bool, std::ostream&) {
  NoGdal("export");
}

#endif

}  // namespace vardamap
