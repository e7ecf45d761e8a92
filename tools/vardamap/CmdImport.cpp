// import: features of any vector file OGR reads (GPX, KML, GeoJSON,
// GeoPackage, ...) added to a map through the plug-in's add export, with
// their attributes as rows of the map's .dbf.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unistd.h>

#include "Commands.h"
#include "Crs.h"
#include "Dbf.h"
#include "Errors.h"
#include "Format.h"
#include "Gdal.h"
#include "Map.h"
#include "Progress.h"
#include "ShpHeader.h"

#ifdef VARDAMAP_WITH_GDAL
#include <ogrsf_frmts.h>
#endif

namespace vardamap {

#ifdef VARDAMAP_WITH_GDAL

namespace {

int KindOfGeometry(OGRwkbGeometryType type) {
  switch (wkbFlatten(type)) {
    case wkbPoint: case wkbMultiPoint: return kKindPoint;
    case wkbLineString: case wkbMultiLineString: return kKindLine;
    case wkbPolygon: case wkbMultiPolygon: return kKindPolygon;
    default: return -1;
  }
}

const char* KindWords(int kind) {
  switch (kind) {
    case kKindPoint: return "points (waypoints)";
    case kKindLine: return "lines (tracks or routes)";
    default: return "polygons";
  }
}

void Append(const OGRSimpleCurve* curve, std::vector<Point>& out) {
  for (int i = 0; i < curve->getNumPoints(); ++i)
    out.push_back(Point{curve->getX(i), curve->getY(i), curve->getZ(i)});
}

void AppendRing(const OGRLinearRing* ring, std::vector<Point>& out) {
  const size_t start = out.size();
  Append(ring, out);
  if (out.size() > start && (out.back().x != out[start].x || out.back().y != out[start].y))
    out.push_back(out[start]);
}

// The shapes a geometry becomes: one per part of a multi-line or multi-point,
// one for all the rings of a (multi-)polygon.
std::vector<std::vector<Point>> ShapesOf(const OGRGeometry* g) {
  std::vector<std::vector<Point>> shapes;
  switch (wkbFlatten(g->getGeometryType())) {
    case wkbPoint: {
      auto* p = g->toPoint();
      if (!p->IsEmpty()) shapes.push_back({Point{p->getX(), p->getY(), p->getZ()}});
      break;
    }
    case wkbLineString:
      shapes.emplace_back();
      Append(g->toLineString(), shapes.back());
      break;
    case wkbPolygon: case wkbMultiPolygon: {
      shapes.emplace_back();
      auto add_polygon = [&](const OGRPolygon* poly) {
        for (const OGRLinearRing* ring : *poly) AppendRing(ring, shapes.back());
      };
      if (wkbFlatten(g->getGeometryType()) == wkbPolygon) add_polygon(g->toPolygon());
      else
        for (const OGRPolygon* poly : *g->toMultiPolygon()) add_polygon(poly);
      break;
    }
    case wkbMultiLineString: case wkbMultiPoint:
      for (const OGRGeometry* part : *g->toGeometryCollection())
        for (auto& s : ShapesOf(part)) shapes.push_back(std::move(s));
      break;
    default:
      break;
  }
  std::vector<std::vector<Point>> kept;
  for (auto& s : shapes)
    if (!s.empty()) kept.push_back(std::move(s));
  return kept;
}

struct Source {
  GDALDataset* ds = nullptr;
  std::vector<OGRLayer*> layers;
  ~Source() {
    if (ds) GDALClose(ds);
  }
};

// Makes an empty .dbf beside `shp` with the fields of `layers` (first
// seen wins); returns false when they have none.
bool CreateTable(const std::string& shp, const std::vector<OGRLayer*>& layers) {
  OGRFeatureDefn fields("rows");
  for (OGRLayer* l : layers) {
    OGRFeatureDefn* d = l->GetLayerDefn();
    for (int i = 0; i < d->GetFieldCount(); ++i)
      if (fields.GetFieldIndex(d->GetFieldDefn(i)->GetNameRef()) < 0) fields.AddFieldDefn(d->GetFieldDefn(i));
  }
  if (fields.GetFieldCount() == 0) return false;
  std::string dbf = shp.substr(0, shp.size() - 4) + ".dbf";
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("ESRI Shapefile");
  // A path ending in .dbf makes a lone table, and no .shp beside it.
  GDALDataset* ds = driver ? driver->Create(dbf.c_str(), 0, 0, 0, GDT_Unknown, nullptr) : nullptr;
  OGRLayer* layer = nullptr;
  if (ds) {
    char** lco = CSLSetNameValue(nullptr, "ENCODING", "UTF-8");
    layer = ds->CreateLayer(BaseName(dbf).substr(0, BaseName(dbf).size() - 4).c_str(), nullptr, wkbNone, lco);
    CSLDestroy(lco);
  }
  for (int i = 0; layer && i < fields.GetFieldCount(); ++i) {
    OGRFieldDefn f(fields.GetFieldDefn(i));
    // dBASE has no 64-bit integers or times: keep the digits as text.
    if (f.GetType() == OFTInteger64 || f.GetType() == OFTDateTime || f.GetType() == OFTTime ||
        f.GetType() == OFTStringList || f.GetType() == OFTIntegerList || f.GetType() == OFTRealList)
      f.SetType(OFTString);
    if (f.GetType() == OFTString && (f.GetWidth() == 0 || f.GetWidth() > 254)) f.SetWidth(254);
    if (layer->CreateField(&f) != OGRERR_NONE) layer = nullptr;
  }
  const std::string why = GdalMessage("the driver refused");
  if (ds) GDALClose(ds);
  if (!layer) throw Failed("cannot make " + dbf + ": " + why);
  return true;
}

// The import's bar, in bytes of the input: the first pass (taking stock of
// the features) fills its first half, the adding pass its second. OGR tells
// no read position, so a feature counts for its share of the file.
class ImportBar {
 public:
  ImportBar(Progress& progress, long long input_bytes) : progress_(progress) {
    bytes_ = std::max(1LL, input_bytes);
    // The plug-in's progress interface counts in 32 bits.
    while (2 * bytes_ / scale_ > INT_MAX) scale_ *= 2;
    progress_.SetTotal(static_cast<int32_t>(2 * bytes_ / scale_));
  }
  // Moves to `fraction` (0..1) of pass `pass` (0 or 1).
  void At(int pass, double fraction) {
    const long long target = static_cast<long long>((pass + std::min(1.0, fraction)) * bytes_ / scale_);
    if (target > sent_) progress_.Advance(static_cast<int32_t>(target - sent_));
    sent_ = std::max(sent_, target);
  }
  // The same question the plug-in asks after each record: Ctrl-C, or the
  // testing aid's count.
  bool Cancelled() { return progress_.IsCancelled(); }

 private:
  Progress& progress_;
  long long bytes_ = 1, scale_ = 1, sent_ = 0;
};

// Files of a new map that this import made, removed again unless it ends well.
class NewMapFiles {
 public:
  explicit NewMapFiles(const std::string& shp) {
    const std::string stem = shp.substr(0, shp.size() - 4);
    for (const char* ext : {".shp", ".shx", ".dbf", ".prj", ".cpg"})
      if (access((stem + ext).c_str(), F_OK) != 0) made_.push_back(stem + ext);
  }
  ~NewMapFiles() {
    if (!kept_)
      for (const std::string& f : made_) std::remove(f.c_str());
  }
  void Keep() { kept_ = true; }

 private:
  std::vector<std::string> made_;
  bool kept_ = false;
};

}  // namespace

int RunImport(const std::string& plugin_path, const ImportOptions& o, std::ostream& out) {
  InitGdal();
  if (o.map.size() < 5 || o.map.compare(o.map.size() - 4, 4, ".shp") != 0)
    throw Usage("the map to import into must be a .shp file (got " + o.map + ")");
  const bool exists = access(o.map.c_str(), F_OK) == 0;
  if (o.create && exists) throw Usage(o.map + " exists already; leave out --create to add to it");
  if (!o.create && !exists) throw Usage(o.map + " does not exist; give --create to make it");

  Source src;
  src.ds = static_cast<GDALDataset*>(
      GDALOpenEx(o.input.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, nullptr, nullptr, nullptr));
  if (!src.ds) throw Failed(o.input + ": OGR cannot open it (" + GdalMessage("no driver reads it") + ")");
  const bool gpx = std::string(src.ds->GetDriverName()) == "GPX";
  for (int i = 0; i < src.ds->GetLayerCount(); ++i) {
    OGRLayer* l = src.ds->GetLayer(i);
    // GPX repeats every track and route point in layers of their own.
    const std::string name = l->GetName();
    if (gpx && (name == "track_points" || name == "route_points")) continue;
    src.layers.push_back(l);
  }

  // The kind the map stores, or for a new map the first the input has.
  int kind = o.kind.empty() ? -1 : o.kind == "polygon" ? kKindPolygon : o.kind == "point" ? kKindPoint : kKindLine;
  if (exists) {
    const int stored = KindOfShapeType(ReadShpHeader(o.map).shape_type);
    if (stored >= 0 && kind >= 0 && stored != kind)
      throw Usage(o.map + " holds " + KindName(stored) + "s; it cannot take --kind " + o.kind);
    if (stored >= 0) kind = stored;
  }
  // One bar for the whole command; the existing map's own read, between
  // the two passes, shows its own.
  Progress progress("importing " + o.input);
  VSIStatBufL st;
  ImportBar bar(progress, VSIStatL(o.input.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : 0);
  auto cancelled = [](const std::string& what) { return ToolError(kExitCancelled, "cancelled " + what); };
  long long known = 0;  // features the drivers can count without reading
  for (OGRLayer* l : src.layers) {
    const GIntBig n = l->GetFeatureCount(FALSE);
    if (n < 0) {
      known = -1;
      break;
    }
    known += n;
  }
  size_t count[4] = {0, 0, 0, 0};
  long long total = 0;  // features read in the first pass
  for (size_t i = 0; i < src.layers.size(); ++i) {
    OGRLayer* l = src.layers[i];
    l->ResetReading();
    for (OGRFeature* f; (f = l->GetNextFeature()) != nullptr; OGRFeature::DestroyFeature(f)) {
      ++total;
      if (known > 0) bar.At(0, static_cast<double>(total) / known);
      if (bar.Cancelled()) {
        OGRFeature::DestroyFeature(f);
        throw cancelled("while reading " + o.input + "; nothing was changed");
      }
      if (const OGRGeometry* g = f->GetGeometryRef()) {
        const int k = KindOfGeometry(g->getGeometryType());
        if (k >= 0) ++count[k];
      }
    }
    if (known <= 0) bar.At(0, static_cast<double>(i + 1) / src.layers.size());
  }
  bar.At(0, 1.0);
  if (kind < 0) {
    for (int k : {kKindLine, kKindPolygon, kKindPoint})
      if (count[k]) {
        kind = k;
        break;
      }
    if (kind < 0) throw Usage(o.input + " holds no points, lines or polygons to import");
  }
  if (!count[kind])
    throw Usage(o.input + " has no " + KindWords(kind) + " to import" +
                (exists ? " into " + o.map : std::string()) + "; nothing was changed");
  const size_t skipped = count[0] + count[1] + count[3] - count[kind];

  // Coordinates go into the map's system: its .prj's, or WGS 84 for a new map.
  std::unique_ptr<MapCrs> target_crs(exists ? new MapCrs(o.map) : nullptr);
  if (target_crs && target_crs->present() && !target_crs->usable())
    throw Failed(target_crs->prj() + ": " + target_crs->error() + "; nothing was changed");
  OGRSpatialReference wgs84;
  wgs84.SetWellKnownGeogCS("WGS84");
  wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  const OGRSpatialReference* target =
      !exists ? &wgs84
              : (target_crs->usable() ? static_cast<const OGRSpatialReference*>(target_crs->handle()) : nullptr);

  PlugIn plugin(plugin_path);
  // A new map is all or nothing: an error or Ctrl-C removes what was made.
  std::unique_ptr<NewMapFiles> made(exists ? nullptr : new NewMapFiles(o.map));
  if (!exists) {
    char* wkt = nullptr;
    const char* options[] = {"FORMAT=WKT1_ESRI", nullptr};
    wgs84.exportToWkt(&wkt, options);
    WriteFile(o.map.substr(0, o.map.size() - 4) + ".prj", wkt ? wkt : "");
    CPLFree(wkt);
    if (!CreateTable(o.map, src.layers)) Warn(o.input + " has no attributes: " + o.map + " gets no .dbf");
  }
  Map map(plugin, o.map, !exists);
  // The plug-in learns the record count and the file's length by reading:
  // the map it adds to must have been read through the same opening, or the
  // new records overwrite the first ones.
  const int records = exists ? map.ReadAll("", "reading " + o.map, false).records : 0;
  DbfKeeper rows(o.map, records, {});
  if (!rows.active() && exists) Warn(o.map + " has no .dbf: the features' attributes are left out");

  size_t added = 0, features = 0, split = 0;
  auto finish = [&]() {
    map.Close();
    rows.Commit();
  };
  long long read = 0;  // features of the second pass, of `total`
  try {
    for (OGRLayer* l : src.layers) {
      std::unique_ptr<OGRCoordinateTransformation> transform;
      const OGRSpatialReference* from = l->GetSpatialRef();
      if (from && target && !from->IsSame(target)) {
        OGRSpatialReference source(*from);
        source.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        transform.reset(OGRCreateCoordinateTransformation(&source, target));
        if (!transform) throw Failed(o.input + ": no transformation to the map's coordinate system is known");
      } else if (!from && target && exists) {
        Warn(o.input + ": layer " + l->GetName() + " names no coordinate system: taken as the map's own");
      }
      l->ResetReading();
      for (OGRFeature* raw; (raw = l->GetNextFeature()) != nullptr;) {
        std::unique_ptr<OGRFeature, void (*)(OGRFeature*)> f(raw, OGRFeature::DestroyFeature);
        bar.At(1, static_cast<double>(++read) / std::max(1LL, total));
        if (bar.Cancelled())
          throw cancelled(made ? "before " + o.map + " was complete: it was not made"
                               : "after adding " + std::to_string(added) + (added == 1 ? " shape" : " shapes") +
                                     " to " + o.map + " (kept, each with its .dbf row)");
        OGRGeometry* g = f->GetGeometryRef();
        if (!g || KindOfGeometry(g->getGeometryType()) != kind) continue;
        if (transform && g->transform(transform.get()) != OGRERR_NONE)
          throw Failed(o.input + ": a feature cannot be moved into the map's coordinate system");
        std::vector<AttrValue> values;
        for (int i = 0; i < f->GetFieldCount(); ++i)
          if (f->IsFieldSetAndNotNull(i)) values.push_back({f->GetFieldDefnRef(i)->GetNameRef(), f->GetFieldAsString(i)});
        std::vector<std::vector<Point>> shapes = ShapesOf(g);
        if (shapes.size() > 1) ++split;
        ++features;
        for (const std::vector<Point>& pts : shapes) {
          const int32_t id = map.Add(kind, pts, 0);
          rows.Added(id, values);
          ++added;
        }
      }
    }
  } catch (const ToolError&) {
    // In an existing map what was added stays, with its rows; a new map is
    // removed whole (the uncommitted table copy goes with the keeper).
    if (!made) finish();
    throw;
  }
  finish();
  bar.At(1, 1.0);
  progress.Finish();
  if (made) made->Keep();
  if (split)
    Warn(std::to_string(split) + (split == 1 ? " feature had" : " features had") +
         " several parts: each part became a shape of its own, with the feature's attributes");
  if (skipped)
    Warn(std::to_string(skipped) + " features of other kinds were left out: the map holds " + KindName(kind) + "s");
  out << added << (added == 1 ? " shape" : " shapes") << " from " << features
      << (features == 1 ? " feature" : " features") << " added to " << o.map << '\n';
  return kExitOk;
}

#else

int RunImport(const std::string&, const ImportOptions&, std::ostream&) { NoGdal("import"); }

#endif

}  // namespace vardamap
