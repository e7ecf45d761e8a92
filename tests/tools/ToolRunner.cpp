#include "ToolRunner.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

// vardamap runs as a child of the tests; under the leak checker it must not
// fail for caches that system libraries keep until exit.
namespace {
const bool kSupresionesFugas = [] {
  return ::setenv("LSAN_OPTIONS", "suppressions=" VARDA_LSAN_SUPP, 0) == 0;
}();
}  // namespace

extern char** environ;

namespace vmtest {

namespace fs = std::filesystem;

namespace {
// `name` in the usual program folders, or "" when none has it.
std::string FindProgram(const std::string& name) {
  for (const char* dir : {"/usr/bin/", "/bin/", "/usr/local/bin/"})
    if (access((dir + name).c_str(), X_OK) == 0) return dir + name;
  return "";
}
}  // namespace

std::string ReadFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

bool FileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

void CopyFile(const std::string& from, const std::string& to) {
  fs::copy_file(from, to, fs::copy_options::overwrite_existing);
}

Result Vardamap(const std::vector<std::string>& args, const std::string& input,
           const std::vector<std::string>& env) {
  std::vector<std::string> argv_s{VARDAMAP_BIN};
  argv_s.insert(argv_s.end(), args.begin(), args.end());
  return RunProgram(argv_s, input, env);
}

Result RunProgram(std::vector<std::string> argv_s, const std::string& input, const std::vector<std::string>& env) {
  TempDir io;
  if (!io.ok()) throw std::runtime_error("no scratch folder");
  const std::string in = io / "stdin", out = io / "stdout", err = io / "stderr";
  std::ofstream(in, std::ios::binary) << input;
  if (argv_s.empty()) throw std::runtime_error("no program to run");
  const std::string found = argv_s[0].find('/') == std::string::npos ? FindProgram(argv_s[0]) : "";
  if (!found.empty()) argv_s[0] = found;
  std::vector<std::string> env_s;
  for (char** e = environ; *e; ++e) {
    // The tests decide on cancellation and the progress bar themselves.
    if (std::strncmp(*e, "VARDAMAP_", 9) != 0) env_s.push_back(*e);
  }
  env_s.insert(env_s.end(), env.begin(), env.end());
  auto pointers = [](std::vector<std::string>& strings) {
    std::vector<char*> p;
    for (std::string& s : strings) p.push_back(s.data());
    p.push_back(nullptr);
    return p;
  };
  std::vector<char*> argv = pointers(argv_s), envp = pointers(env_s);

  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  posix_spawn_file_actions_addopen(&fa, 0, in.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&fa, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&fa, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t pid;
  int rc = posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&fa);
  if (rc != 0) throw std::runtime_error(std::string("cannot start ") + argv[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  Result r;
  r.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  r.out = ReadFile(out);
  r.err = ReadFile(err);
  return r;
}

std::string CorpusDir() { return VARDA_CORPUS_DIR; }

std::string GisCorpusDir() { return std::string(VARDA_CORPUS_DIR) + "-gis"; }

bool HaveGisCorpus() { return FileExists(GisCorpusDir() + "/nc.dbf"); }

std::string CopyGisMap(const std::string& name, const TempDir& dir) {
  for (const char* ext : {".shp", ".shx", ".dbf", ".prj"}) {
    const std::string from = GisCorpusDir() + "/" + name + ext;
    if (!FileExists(from)) continue;
    CopyFile(from, dir / (name + ext));
    fs::permissions(dir / (name + ext), fs::perms::owner_write, fs::perm_options::add);
  }
  return dir / (name + ".shp");
}

bool VardamapHasGdal() {
  static const int has = Vardamap({"--version"}).out.find("\ngdal          none") == std::string::npos;
  return has != 0;
}

bool HaveCorpus() { return FileExists(CorpusDir() + "/pline.shp"); }

std::vector<std::string> CorpusMaps() {
  std::vector<std::string> maps;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(CorpusDir(), ec))
    if (e.path().extension() == ".shp") maps.push_back(e.path().string());
  std::sort(maps.begin(), maps.end());
  return maps;
}

std::string CopyCorpusMap(const std::string& name, const TempDir& dir) {
  for (const char* ext : {".shp", ".shx"}) CopyFile(CorpusDir() + "/" + name + ext, dir / (name + ext));
  return dir / (name + ".shp");
}

int CountLines(const std::string& text) { return static_cast<int>(Count(text, "\n")); }

void ExpectOneLineError(const Result& r, int code, const std::string& text) {
  EXPECT_EQ(r.code, code) << r.err;
  EXPECT_EQ(CountLines(r.err), 1) << r.err;
  EXPECT_EQ(r.err.rfind("vardamap: ", 0), 0u) << r.err;
  EXPECT_NE(r.err.find(text), std::string::npos) << r.err;
}

size_t Count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

bool HaveProgram(const std::string& name) { return !FindProgram(name).empty(); }

std::vector<std::string> Entries(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dir)) names.push_back(e.path().filename().string());
  return names;
}

void Flatten(const nlohmann::json& coords, std::vector<std::vector<double>>& out) {
  if (coords.is_array() && !coords.empty() && coords[0].is_number()) {
    out.push_back(coords.get<std::vector<double>>());
    return;
  }
  for (const nlohmann::json& c : coords) Flatten(c, out);
}

std::vector<DumpShape> ParseDump(const std::string& text) {
  std::vector<DumpShape> shapes;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    // Attribute lines ("  | NAME = value") are not points.
    if (line.empty() || line[0] == '#' || line.rfind("  |", 0) == 0) continue;
    std::istringstream words(line);
    if (line[0] != ' ') {
      // shape ID KIND [z] flags=0xNN points=N
      DumpShape s;
      std::string word;
      words >> word >> s.id >> s.kind;
      while (words >> word) {
        if (word == "z") s.z = true;
        else if (word.rfind("flags=", 0) == 0) s.flags = std::stoul(word.substr(6), nullptr, 16);
      }
      shapes.push_back(s);
      continue;
    }
    std::vector<double> p;
    for (std::string v; words >> v;) p.push_back(std::strtod(v.c_str(), nullptr));
    if (!shapes.empty()) shapes.back().points.push_back(p);
  }
  return shapes;
}

}  // namespace vmtest
