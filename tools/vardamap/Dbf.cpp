#include "Dbf.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <unistd.h>

#include "Errors.h"
#include "Format.h"
#include "Gdal.h"

#ifdef VARDAMAP_WITH_GDAL
#include <ogrsf_frmts.h>
#endif

namespace vardamap {

namespace fs = std::filesystem;

std::string SiblingPath(const std::string& shp, const std::string& ext) {
  const fs::path base(shp);
  std::string upper = ext;
  std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
  for (const std::string& e : {ext, upper}) {
    fs::path p = base;
    p.replace_extension(e);
    std::error_code ec;
    if (fs::is_regular_file(p, ec)) return p.string();
  }
  return "";
}

std::string DbfPathFor(const std::string& shp) { return SiblingPath(shp, ".dbf"); }

std::vector<AttrValue> ParseAttrs(const std::vector<std::string>& texts) {
  std::vector<AttrValue> out;
  for (const std::string& t : texts) {
    const size_t eq = t.find('=');
    if (eq == std::string::npos || eq == 0)
      throw Usage("--attr expects NAME=VALUE (got \"" + t + "\")");
    out.push_back({t.substr(0, eq), t.substr(eq + 1)});
  }
  return out;
}

#ifdef VARDAMAP_WITH_GDAL

struct DbfKeeper::Staged {
  std::string copy;
  GDALDataset* ds = nullptr;
  OGRLayer* layer = nullptr;
  ~Staged() {
    if (ds) GDALClose(ds);
  }
};

namespace {

bool IsWholeNumber(const std::string& text) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  std::strtoll(text.c_str(), &end, 10);
  return errno == 0 && *end == '\0';
}

void CopyInto(const std::string& from, const std::string& to, const std::string& dbf) {
  std::error_code ec;
  if (!fs::copy_file(from, to, fs::copy_options::overwrite_existing, ec))
    throw Failed(dbf + ": cannot copy " + from + " aside (" + ec.message() +
                 "), so its rows cannot be kept in step; nothing was changed");
}

// Sets the fields `values` name (without regard to case; names the table
// lacks are left out); an empty value empties its field.
void SetValues(OGRFeature& f, const std::vector<AttrValue>& values) {
  for (const AttrValue& a : values) {
    const int i = f.GetFieldIndex(a.name.c_str());
    if (i < 0) continue;
    if (a.value.empty()) f.SetFieldNull(i);
    else f.SetField(i, a.value.c_str());
  }
}

}  // namespace

DbfKeeper::DbfKeeper(const std::string& shp, int records, const std::vector<AttrValue>& attrs)
    : dbf_(DbfPathFor(shp)), attrs_(attrs) {
  if (dbf_.empty()) {
    if (!attrs_.empty()) throw Usage(shp + " has no .dbf to hold --attr values");
    return;
  }
  InitGdal();
  const std::string refuse = "; nothing was changed";
  // The copy sits beside the map so that it can replace the .dbf in one rename.
  std::string pattern = (fs::path(dbf_).parent_path() / ".vardamap-dbf-XXXXXX").string();
  if (fs::path(dbf_).parent_path().empty()) pattern = ".vardamap-dbf-XXXXXX";
  std::vector<char> buf(pattern.begin(), pattern.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data()))
    throw Failed(dbf_ + ": cannot make a work folder beside it (" + std::strerror(errno) +
                 "), so its rows cannot be kept in step" + refuse);
  staging_ = buf.data();
  try {
    Stage(shp, records);
  } catch (...) {
    // A constructor that throws gets no destructor: clean up here.
    staged_.reset();
    std::error_code ec;
    fs::remove_all(staging_, ec);
    throw;
  }
}

void DbfKeeper::Stage(const std::string& shp, int records) {
  const std::string refuse = "; nothing was changed";
  staged_.reset(new Staged);
  // Alone in its folder, the table is opened as a layer without geometry.
  staged_->copy = (fs::path(staging_) / fs::path(dbf_).filename()).string();
  CopyInto(dbf_, staged_->copy, dbf_);
  const std::string cpg = SiblingPath(shp, ".cpg");
  if (!cpg.empty()) {
    fs::path to = fs::path(staged_->copy);
    to.replace_extension(fs::path(cpg).extension());
    CopyInto(cpg, to.string(), dbf_);
  }
  const char* drivers[] = {"ESRI Shapefile", nullptr};
  staged_->ds = static_cast<GDALDataset*>(
      GDALOpenEx(staged_->copy.c_str(), GDAL_OF_VECTOR | GDAL_OF_UPDATE, drivers, nullptr, nullptr));
  if (!staged_->ds || staged_->ds->GetLayerCount() != 1)
    throw Failed(dbf_ + ": the attribute table cannot be read (" +
                 GdalMessage("not a dBASE table") + ")" + refuse);
  staged_->layer = staged_->ds->GetLayer(0);
  const GIntBig rows = staged_->layer->GetFeatureCount(TRUE);
  if (rows != records)
    throw Failed(dbf_ + ": the attribute table has " + std::to_string(rows) + " rows but the map has " +
                 std::to_string(records) + " records, so the rows cannot be kept in step" + refuse);
  // Rows marked deleted still stand for their record; packing the table
  // would remove them and shift every row after them.
  GIntBig live = 0;
  staged_->layer->ResetReading();
  for (OGRFeature* f; (f = staged_->layer->GetNextFeature()) != nullptr; ++live) OGRFeature::DestroyFeature(f);
  if (live != rows)
    throw Failed(dbf_ + ": " + std::to_string(rows - live) +
                 " of its rows are marked deleted, so the rows cannot be kept in step" + refuse);

  OGRFeatureDefn* defn = staged_->layer->GetLayerDefn();
  for (const AttrValue& a : attrs_) {
    const int i = defn->GetFieldIndex(a.name.c_str());
    if (i < 0) throw Usage("--attr " + a.name + ": " + dbf_ + " has no such field");
    const OGRFieldType type = defn->GetFieldDefn(i)->GetType();
    double number;
    if ((type == OFTInteger || type == OFTInteger64) && !a.value.empty() && !IsWholeNumber(a.value))
      throw Usage("--attr " + a.name + ": the field holds whole numbers (got \"" + a.value + "\")");
    if (type == OFTReal && !a.value.empty() && !ParseDouble(a.value, &number))
      throw Usage("--attr " + a.name + ": the field holds numbers (got \"" + a.value + "\")");
  }
}

void DbfKeeper::AppendRow(int id, const std::vector<AttrValue>& values) {
  OGRLayer* layer = staged_->layer;
  auto fail = [&](const std::string& why) {
    throw Failed(dbf_ + ": the records were changed but the attribute table could not be (" + why +
                 "); its rows no longer match the records");
  };
  // Appended records are numbered after the last row, in order.
  if (layer->GetFeatureCount(TRUE) != id - 1) fail("row " + std::to_string(id) + " is out of order");
  OGRFeature f(layer->GetLayerDefn());
  SetValues(f, values);
  if (layer->CreateFeature(&f) != OGRERR_NONE) fail(GdalMessage("row not added"));
}

void DbfKeeper::Added(int id, const std::vector<AttrValue>& row) {
  if (active()) AppendRow(id, row);
}

DbfKeeper::~DbfKeeper() {
  staged_.reset();
  if (!staging_.empty()) {
    std::error_code ec;
    fs::remove_all(staging_, ec);
  }
}

void DbfKeeper::Commit() {
  if (!active()) return;
  const std::string failed = ": the records were changed but the attribute table could not be (";
  auto fail = [&](const std::string& why) {
    throw Failed(dbf_ + failed + why + "); its rows no longer match the records");
  };
  OGRLayer* layer = staged_->layer;
  auto set_attrs = [&](OGRFeature& f) { SetValues(f, attrs_); };
  if (!deleted_.empty()) {
    for (int id : deleted_)
      if (layer->DeleteFeature(id - 1) != OGRERR_NONE) fail(GdalMessage("row not deleted"));
    CPLErrorReset();
    const std::string repack = std::string("REPACK ") + layer->GetName();
    staged_->ds->ExecuteSQL(repack.c_str(), nullptr, nullptr);
    if (CPLGetLastErrorType() >= CE_Failure) fail(GdalMessage("rows not removed"));
  }
  std::vector<int> added = added_;
  std::sort(added.begin(), added.end());
  for (int id : added) {
    AppendRow(id, attrs_);
  }
  if (!attrs_.empty()) {
    for (int id : replaced_) {
      OGRFeature* f = layer->GetFeature(id - 1);
      if (!f) fail(GdalMessage("row " + std::to_string(id) + " not found"));
      set_attrs(*f);
      const OGRErr e = layer->SetFeature(f);
      OGRFeature::DestroyFeature(f);
      if (e != OGRERR_NONE) fail(GdalMessage("row not changed"));
    }
  }
  GDALDataset* ds = staged_->ds;
  staged_->ds = nullptr;
  CPLErrorReset();
  GDALClose(ds);
  if (CPLGetLastErrorType() >= CE_Failure) fail(GdalMessage("the table could not be written"));
  if (std::rename(staged_->copy.c_str(), dbf_.c_str()) != 0) fail(std::strerror(errno));
}

#else

struct DbfKeeper::Staged {};

DbfKeeper::DbfKeeper(const std::string& shp, int, const std::vector<AttrValue>& attrs)
    : dbf_(DbfPathFor(shp)), attrs_(attrs) {
  // Changing the records without their rows would scramble the table.
  if (!dbf_.empty()) NoGdal("keeping " + dbf_ + " in step with the records");
  if (!attrs_.empty()) NoGdal("--attr");
}

DbfKeeper::~DbfKeeper() = default;

void DbfKeeper::Commit() {}

void DbfKeeper::Added(int, const std::vector<AttrValue>&) {}

#endif

}  // namespace vardamap
