// ToolRunner.h - runs the vardamap binary as a user would and captures what
// it prints; helpers for the maps it reads and writes.
#ifndef VARDA_TESTS_TOOLS_TOOLRUNNER_H
#define VARDA_TESTS_TOOLS_TOOLRUNNER_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/TempDir.h"

namespace vmtest {

struct Result {
  int code = -1;  // exit code; 128 + signal when killed
  std::string out, err;
};

// Runs vardamap with `args`, feeding `input` on standard input, with the
// extra environment variables `env` ("NAME=value").
Result Vardamap(const std::vector<std::string>& args, const std::string& input = "",
           const std::vector<std::string>& env = {});
// Runs any program (`argv[0]` a path, or a name looked up in /usr/bin and
// /bin) the same way.
Result RunProgram(std::vector<std::string> argv, const std::string& input = "",
           const std::vector<std::string>& env = {});

std::string ReadFile(const std::string& path);
bool FileExists(const std::string& path);
void CopyFile(const std::string& from, const std::string& to);
// Copies NAME.shp and NAME.shx of the corpus into `dir`; returns the .shp path.
std::string CopyCorpusMap(const std::string& name, const TempDir& dir);
std::string CorpusDir();
bool HaveCorpus();
// ../shared/corpus-gis: maps with their .dbf and .prj.
std::string GisCorpusDir();
bool HaveGisCorpus();
// Copies NAME.shp, .shx, .dbf and .prj (writable) into `dir`; returns the .shp path.
std::string CopyGisMap(const std::string& name, const TempDir& dir);
// False for a build without GDAL (its --version says so).
bool VardamapHasGdal();
std::vector<std::string> CorpusMaps();  // full paths of every .shp, sorted
int CountLines(const std::string& text);
// `r` failed with `code` and one line on standard error, from vardamap and
// holding `text`.
void ExpectOneLineError(const Result& r, int code, const std::string& text);
// How often `what` occurs in `text`.
size_t Count(const std::string& text, const std::string& what);
bool HaveProgram(const std::string& name);
// The files and folders in `dir`, by name.
std::vector<std::string> Entries(const std::string& dir);
// Every position of a GeoJSON geometry's "coordinates", in order.
void Flatten(const nlohmann::json& coords, std::vector<std::vector<double>>& out);

// One delivered shape as `vardamap dump` prints it.
struct DumpShape {
  int id = 0;
  std::string kind;
  bool z = false;
  unsigned flags = 0;
  std::vector<std::vector<double>> points;  // x, y[, z]
};
std::vector<DumpShape> ParseDump(const std::string& text);

}  // namespace vmtest

#endif
