// FileTestDir.h - a temporary folder for the file layer's tests, removed with
// everything in it when the fixture goes.
#ifndef VARDA_TESTS_FILE_FILETESTDIR_H
#define VARDA_TESTS_FILE_FILETESTDIR_H

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

class FileTestDir {
 public:
  FileTestDir() {
    const char* base = std::getenv("VARDA_TEST_TMP");
    std::string raiz = base && *base ? base : "/tmp";
    ::mkdir(raiz.c_str(), 0755);
    std::string plantilla = raiz + "/file-XXXXXX";
    if (::mkdtemp(&plantilla[0])) dir = plantilla;
  }
  ~FileTestDir() {
    if (dir.empty()) return;
    if (DIR* d = ::opendir(dir.c_str())) {
      while (dirent* e = ::readdir(d)) {
        std::string n = e->d_name;
        if (n != "." && n != "..") ::remove((dir + "/" + n).c_str());
      }
      ::closedir(d);
    }
    ::rmdir(dir.c_str());
  }
  FileTestDir(const FileTestDir&) = delete;
  FileTestDir& operator=(const FileTestDir&) = delete;

  bool ok() const { return !dir.empty(); }
  std::string Path(const std::string& rel) const { return dir + "/" + rel; }

  bool Write(const std::string& rel, const std::string& data) const {
    FILE* f = std::fopen(Path(rel).c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(data.data(), 1, data.size(), f) == data.size();
    return std::fclose(f) == 0 && ok;
  }
  std::string Read(const std::string& rel) const {
    std::string r;
    FILE* f = std::fopen(Path(rel).c_str(), "rb");
    if (!f) return r;
    char b[4096];
    size_t n;
    while ((n = std::fread(b, 1, sizeof b, f)) > 0) r.append(b, n);
    std::fclose(f);
    return r;
  }
  bool Exists(const std::string& rel) const {
    struct stat st;
    return ::stat(Path(rel).c_str(), &st) == 0;
  }

 private:
  std::string dir;
};

// Bytes 0, 1, 2, ... wrapping at 251 so that no span boundary repeats a
// pattern of a power of two.
inline std::string Pattern(size_t n) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; i++) s[i] = static_cast<char>(i % 251);
  return s;
}

#endif
