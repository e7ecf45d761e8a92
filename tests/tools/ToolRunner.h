// ToolRunner.h - runs the vardamap binary as a user would and captures what
// it prints; temporary folders for the maps it writes.
#ifndef VARDA_TESTS_TOOLS_TOOLRUNNER_H
#define VARDA_TESTS_TOOLS_TOOLRUNNER_H

#include <string>
#include <utility>
#include <vector>

namespace vmtest {

struct Result {
  int code = -1;  // exit code; 128 + signal when killed
  std::string out, err;
};

// Runs vardamap with `args`, feeding `input` on standard input, with the
// extra environment variables `env` ("NAME=value").
Result Vardamap(const std::vector<std::string>& args, const std::string& input = "",
           const std::vector<std::string>& env = {});

// A fresh folder, removed with everything in it when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string ReadFile(const std::string& path);
bool FileExists(const std::string& path);
void CopyFile(const std::string& from, const std::string& to);
// Copies NAME.shp and NAME.shx of the corpus into `dir`; returns the .shp path.
std::string CopyCorpusMap(const std::string& name, const TempDir& dir);
std::string CorpusDir();
bool HaveCorpus();
std::vector<std::string> CorpusMaps();  // full paths of every .shp, sorted
// The first line of `text`, and how many lines it has.
int CountLines(const std::string& text);
bool HaveProgram(const std::string& name);

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
