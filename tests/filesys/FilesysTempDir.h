// FilesysTempDir.h - a private scratch folder for one test, removed with all
// its contents (permissions restored first) when the test ends.
#ifndef VARDA_TESTS_FILESYS_TEMPDIR_H
#define VARDA_TESTS_FILESYS_TEMPDIR_H

#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
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
    nftw(path_.c_str(), &restore, 16, FTW_PHYS);
    nftw(path_.c_str(), &remove_entry, 16, FTW_DEPTH | FTW_PHYS);
  }
  FilesysTempDir(const FilesysTempDir&) = delete;
  FilesysTempDir& operator=(const FilesysTempDir&) = delete;

  bool ok() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& rel) const { return path_ + "/" + rel; }

  // Writes `data` to the file `rel` (folders must exist).
  bool Write(const std::string& rel, const std::string& data) const {
    FILE* f = std::fopen((*this / rel).c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(data.data(), 1, data.size(), f) == data.size();
    return std::fclose(f) == 0 && ok;
  }
  std::string Read(const std::string& rel) const {
    std::string r;
    FILE* f = std::fopen((*this / rel).c_str(), "rb");
    if (!f) return r;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) r.append(buf, n);
    std::fclose(f);
    return r;
  }
  bool MakeDir(const std::string& rel) const { return mkdir((*this / rel).c_str(), 0755) == 0; }
  bool Exists(const std::string& rel) const {
    struct stat st;
    return lstat((*this / rel).c_str(), &st) == 0;
  }

 private:
  static int restore(const char* p, const struct stat* st, int type, struct FTW*) {
    if (type == FTW_D || type == FTW_DNR) chmod(p, (st->st_mode & 07777) | 0700);
    return 0;
  }
  static int remove_entry(const char* p, const struct stat*, int, struct FTW*) {
    std::remove(p);
    return 0;
  }
  std::string path_;
};

#endif
