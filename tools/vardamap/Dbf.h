// Dbf.h - the attribute table (.dbf) beside a map: its row i belongs to
// record i + 1 of the .shp, so every change to the records must be made to
// the rows too, or each later shape silently takes its neighbour's
// attributes in every other GIS program.
#ifndef VARDAMAP_DBF_H
#define VARDAMAP_DBF_H

#include <memory>
#include <string>
#include <vector>

namespace vardamap {

// The .dbf beside `shp` (same stem, .dbf or .DBF), or "" when there is none.
std::string DbfPathFor(const std::string& shp);
// The file beside `shp` with extension `ext` (given in lower case; the
// upper-case spelling is tried too), or "" when there is none.
std::string SiblingPath(const std::string& shp, const std::string& ext);

struct AttrValue {
  std::string name, value;
};
// "NAME=VALUE" texts of --attr; throws ToolError(kExitUsage) on one without '='.
std::vector<AttrValue> ParseAttrs(const std::vector<std::string>& texts);

// Keeps the .dbf of one map in step with an edit. The table is checked and
// copied aside before the plug-in changes anything; the row changes are made
// on that copy once the records' changes are known, and it replaces the
// .dbf in one rename. GDAL only ever sees the lone copy, never the .shp.
class DbfKeeper {
 public:
  // `records` is the map's record count before the change. Throws
  // ToolError (nothing changed yet) when the table is unreadable, its row
  // count differs from `records`, an --attr names no field or holds a
  // value its field cannot take, or the build has no GDAL.
  DbfKeeper(const std::string& shp, int records, const std::vector<AttrValue>& attrs);
  ~DbfKeeper();
  DbfKeeper(const DbfKeeper&) = delete;
  DbfKeeper& operator=(const DbfKeeper&) = delete;

  // False when the map has no .dbf: there is nothing to keep in step.
  bool active() const { return !dbf_.empty(); }
  const std::string& path() const { return dbf_; }

  void Deleted(int id) { deleted_.push_back(id); }
  void Added(int id) { added_.push_back(id); }
  // An added record whose row takes `row` (fields matched by name, without
  // regard to case; names the table lacks are left out) instead of --attr.
  // The row is written to the copy at once, so that long imports keep no
  // rows in memory; only appends may come before Commit() then.
  void Added(int id, const std::vector<AttrValue>& row);
  void Replaced(int id) { replaced_.push_back(id); }
  // Makes the row changes and puts the table in place. Throws
  // ToolError(kExitFailed) when that fails; the old table is then left.
  void Commit();

 private:
  struct Staged;
  // Copies the table aside and checks it.
  void Stage(const std::string& shp, int records);
  std::string dbf_;
  std::string staging_;  // folder beside the map holding the copy
  std::vector<AttrValue> attrs_;
  std::vector<int> deleted_, added_, replaced_;
  // Writes the row of appended record `id`, or throws ToolError(kExitFailed).
  void AppendRow(int id, const std::vector<AttrValue>& values);
  std::unique_ptr<Staged> staged_;
};

}  // namespace vardamap

#endif
