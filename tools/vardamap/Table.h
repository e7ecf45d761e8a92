// Table.h - reading a map's attribute table (.dbf): its fields, its row
// count, and the typed values of the row of each record, as UTF-8.
#ifndef VARDAMAP_TABLE_H
#define VARDAMAP_TABLE_H

#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace vardamap {

struct FieldInfo {
  std::string name;
  std::string type;  // OGR's name: String, Integer, Integer64, Real, Date, ...
  int width = 0, precision = 0;
};

class AttributeTable {
 public:
  // Opens the .dbf beside `shp`, if any. Throws ToolError(kExitFailed) when
  // one exists but cannot be read, ToolError(kExitUsage) when one exists
  // and the build has no GDAL.
  explicit AttributeTable(const std::string& shp);
  ~AttributeTable();
  AttributeTable(const AttributeTable&) = delete;
  AttributeTable& operator=(const AttributeTable&) = delete;

  bool present() const { return !dbf_.empty(); }
  const std::string& path() const { return dbf_; }
  long long rows() const { return rows_; }
  const std::vector<FieldInfo>& fields() const { return fields_; }
  // The row of database id `id` (row id - 1) as field name -> typed value
  // (null for empty fields); null when the table has no such row.
  nlohmann::ordered_json Row(int id);

 private:
  struct Open;
  std::string dbf_, lone_;
  long long rows_ = 0;
  std::vector<FieldInfo> fields_;
  std::unique_ptr<Open> open_;
};

}  // namespace vardamap

#endif
