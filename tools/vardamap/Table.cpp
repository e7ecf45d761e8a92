#include "Table.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <unistd.h>

#include "Dbf.h"
#include "Errors.h"
#include "Gdal.h"

#ifdef VARDAMAP_WITH_GDAL
#include <ogrsf_frmts.h>
#endif

namespace vardamap {

namespace fs = std::filesystem;

#ifdef VARDAMAP_WITH_GDAL

struct AttributeTable::Open {
  GDALDataset* ds = nullptr;
  OGRLayer* layer = nullptr;
  ~Open() {
    if (ds) GDALClose(ds);
  }
};

AttributeTable::AttributeTable(const std::string& shp) : dbf_(DbfPathFor(shp)) {
  if (dbf_.empty()) return;
  InitGdal();
  // Opened beside the .shp, the table would bring the geometry with it:
  // links in a folder of their own show GDAL the table alone.
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/vardamap-table-XXXXXX";
  std::vector<char> buf(pattern.begin(), pattern.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data())) throw Failed(dbf_ + ": cannot make a work folder: " + std::strerror(errno));
  lone_ = buf.data();
  std::error_code ec;
  const fs::path link = fs::path(lone_) / fs::path(dbf_).filename();
  fs::create_symlink(fs::absolute(dbf_, ec), link, ec);
  const std::string cpg = SiblingPath(shp, ".cpg");
  if (!cpg.empty()) {
    fs::path to = link;
    to.replace_extension(fs::path(cpg).extension());
    fs::create_symlink(fs::absolute(cpg, ec), to, ec);
  }
  open_.reset(new Open);
  const char* drivers[] = {"ESRI Shapefile", nullptr};
  open_->ds = static_cast<GDALDataset*>(
      GDALOpenEx(link.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, drivers, nullptr, nullptr));
  if (!open_->ds || open_->ds->GetLayerCount() != 1) {
    const std::string why = GdalMessage("not a dBASE table");
    open_.reset();
    fs::remove_all(lone_, ec);
    throw Failed(dbf_ + ": the attribute table cannot be read (" + why + ")");
  }
  open_->layer = open_->ds->GetLayer(0);
  rows_ = open_->layer->GetFeatureCount(TRUE);
  OGRFeatureDefn* defn = open_->layer->GetLayerDefn();
  for (int i = 0; i < defn->GetFieldCount(); ++i) {
    OGRFieldDefn* f = defn->GetFieldDefn(i);
    fields_.push_back({f->GetNameRef(), OGRFieldDefn::GetFieldTypeName(f->GetType()), f->GetWidth(),
                       f->GetPrecision()});
  }
}

AttributeTable::~AttributeTable() {
  open_.reset();
  if (!lone_.empty()) {
    std::error_code ec;
    fs::remove_all(lone_, ec);
  }
}

nlohmann::ordered_json AttributeTable::Row(int id) {
  using Json = nlohmann::ordered_json;
  if (!open_ || id < 1 || id > rows_) return nullptr;
  OGRFeature* f = open_->layer->GetFeature(id - 1);
  if (!f) return nullptr;
  Json row = Json::object();
  for (int i = 0; i < f->GetFieldCount(); ++i) {
    const std::string& name = fields_[i].name;
    if (!f->IsFieldSetAndNotNull(i)) {
      row[name] = nullptr;
      continue;
    }
    switch (f->GetFieldDefnRef(i)->GetType()) {
      case OFTInteger:
        row[name] = f->GetFieldAsInteger(i);
        break;
      case OFTInteger64:
        row[name] = static_cast<long long>(f->GetFieldAsInteger64(i));
        break;
      case OFTReal:
        row[name] = f->GetFieldAsDouble(i);
        break;
      case OFTDate: {
        int y, m, d, h, mi, tz;
        float s;
        f->GetFieldAsDateTime(i, &y, &m, &d, &h, &mi, &s, &tz);
        char text[16];
        std::snprintf(text, sizeof text, "%04d-%02d-%02d", y, m, d);
        row[name] = text;
        break;
      }
      default:
        row[name] = f->GetFieldAsString(i);
    }
  }
  OGRFeature::DestroyFeature(f);
  return row;
}

#else

struct AttributeTable::Open {};

AttributeTable::AttributeTable(const std::string& shp) : dbf_(DbfPathFor(shp)) {
  if (!dbf_.empty()) NoGdal("reading " + dbf_);
}
AttributeTable::~AttributeTable() = default;
nlohmann::ordered_json AttributeTable::Row(int) { return nullptr; }

#endif

}  // namespace vardamap
