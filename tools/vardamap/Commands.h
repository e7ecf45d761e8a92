// Commands.h - one function per command; each returns the exit code or
// throws ToolError. Normal output goes to `out` (standard output).
#ifndef VARDAMAP_COMMANDS_H
#define VARDAMAP_COMMANDS_H

#include <fstream>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace vardamap {

struct AddOptions {
  std::string map;
  bool create = false;
  std::string kind = "line";
  int id = 0;  // 0: append
  bool z = false;
  std::vector<std::string> attrs;  // NAME=VALUE for the new rows of the .dbf
};

struct ImportOptions {
  std::string input, map;
  bool create = false;
  std::string kind;  // "" for the map's own, or the input's first
};

struct DumpOptions {
  std::string map;
  std::string inpoint;
  std::string format = "text";
  std::string output;     // "" for standard output
  bool keep_crs = false;  // GeoJSON in the map's own system
};

// A file written under a temporary name beside its place and renamed there
// by Commit(); removed when the object goes uncommitted, so that an error or
// Ctrl-C never leaves half a file.
class OutputFile {
 public:
  // Throws ToolError(kExitFailed). Without `open_stream` the caller writes
  // the temporary file itself (stream() is then not to be used).
  explicit OutputFile(const std::string& path, bool open_stream = true);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  std::ostream& stream();
  void Commit();  // throws ToolError(kExitFailed)
  // The temporary name, for writers that open the file themselves.
  const std::string& temporary() const { return tmp_; }

 private:
  std::string path_, tmp_;
  std::unique_ptr<std::ofstream> out_;
  bool done_ = false;
};

// `plugin` is the --plugin path ("" for the default search).
int RunVersion(const std::string& plugin, std::ostream& out);
int RunInfo(const std::string& plugin, const std::string& map, std::ostream& out);
int RunDump(const std::string& plugin, const DumpOptions& options, std::ostream& out);
// `png` ("" for none) is a PNG of the same picture.
int RunRender(const std::string& plugin, const std::vector<std::string>& maps,
              const std::string& output, int size, const std::string& png, std::ostream& out);
int RunAdd(const std::string& plugin, const AddOptions& options, std::istream& in, std::ostream& out);
int RunDelete(const std::string& plugin, const std::string& map, std::vector<int> ids,
              std::ostream& out);
// The format from OUT's extension: .geojson, .gpx, .kml, .gpkg or .csv.
int RunExport(const std::string& plugin, const std::string& map, const std::string& output,
              bool keep_crs, std::ostream& out);
int RunImport(const std::string& plugin, const ImportOptions& options, std::ostream& out);
int RunCheck(const std::string& plugin, const std::string& map, std::ostream& out);
int RunDemo(const std::string& plugin, const std::string& dir, std::ostream& out);

// Prints "vardamap: warning: TEXT" on standard error.
void Warn(const std::string& text);
// Writes `text` to `path`, or throws ToolError(kExitFailed).
void WriteFile(const std::string& path, const std::string& text);
// The last component of a path.
std::string BaseName(const std::string& path);

}  // namespace vardamap

#endif
