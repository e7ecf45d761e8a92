// FilesysTempDir.h - a private scratch folder for one test, removed with all
// its contents (permissions restored first) when the test ends.
#ifndef VARDA_TESTS_FILESYS_TEMPDIR_H
#define VARDA_TESTS_FILESYS_TEMPDIR_H

#include <ftw.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>

class FilesysTempDir {
 public:
  FilesysTempDir() {
    const char* base = std::getenv("VARDA_TEST_TMP");
    std::string b = base && *base ? base : "/tmp";
    mkdir(b.c_str(), 0777);  // may already exist
    std::string tmpl = b + "/filesys-XXXXXX";
    if (mkdtemp(&tmpl[0])) path_ = tmpl;
  }
  ~FilesysTempDir() {
    if (path_.empty()) return;
    // Folders made read-only by a test must be writable again to be emptied.
    nftw(path_.c_str(), [](const char* p, const struct stat* st, int type, FTW*) {
      if (type == FTW_D) chmod(p, (st->st_mode & 07777) | 0700);
      return 0;
    }, 16, FTW_PHYS);
    nftw(path_.c_str(), [](const char* p, const struct stat*, int, FTW*) {
      return std::remove(p), 0;
    }, 16, FTW_DEPTH | FTW_PHYS);
  }
  FilesysTempDir(const FilesysTempDir&) = delete;
  FilesysTempDir& operator=(const FilesysTempDir&) = delete;

  bool ok() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& rel) const { return path_ + "/" + rel; }

  bool Write(const std::string& rel, const std::string& data) const {
    std::ofstream f(*this / rel, std::ios::binary);
    return static_cast<bool>(f << data) && static_cast<bool>(f.flush());
  }
  std::string Read(const std::string& rel) const {
    std::ifstream f(*this / rel, std::ios::binary);
    std::ostringstream r;
    r << f.rdbuf();
    return r.str();
  }
  // Creates each entry in order: a name ending in "/" is a folder, any other
  // a file holding "x".
  bool Make(std::initializer_list<const char*> entries) const {
    for (std::string e : entries) {
      if (!(e.back() == '/' ? MakeDir(e) : Write(e, "x"))) return false;
    }
    return true;
  }
  bool MakeDir(const std::string& rel) const { return mkdir((*this / rel).c_str(), 0755) == 0; }
  bool Exists(const std::string& rel) const {
    struct stat st;
    return lstat((*this / rel).c_str(), &st) == 0;
  }

 private:
  std::string path_;
};

#endif
