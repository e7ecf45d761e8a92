// TempDir.h - the scratch folder of every test: a fresh folder under
// $VARDA_TEST_TMP (or /tmp), removed with everything in it when the object
// goes, folders a test made read-only included.
#ifndef VARDA_TESTS_SUPPORT_TEMPDIR_H
#define VARDA_TESTS_SUPPORT_TEMPDIR_H

#include <ftw.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <string>

class TempDir {
 public:
  TempDir() {
    const char* base = std::getenv("VARDA_TEST_TMP");
    const std::string root = base && *base ? base : "/tmp";
    std::error_code ec;
    std::filesystem::create_directories(root, ec);
    std::string tmpl = root + "/varda-XXXXXX";
    if (::mkdtemp(&tmpl[0])) path_ = tmpl;
  }
  ~TempDir() {
    if (path_.empty()) return;
    // A folder without write or search permission cannot be emptied.
    ::nftw(path_.c_str(), [](const char* p, const struct stat* st, int type, FTW*) {
      if (type == FTW_D || type == FTW_DNR) ::chmod(p, (st->st_mode & 07777) | 0700);
      return 0;
    }, 16, FTW_PHYS);
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // False when no folder could be made; every test checks it first.
  bool ok() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& rel) const { return path_ + "/" + rel; }

  bool Write(const std::string& rel, const std::string& data) const {
    FILE* f = std::fopen((*this / rel).c_str(), "wb");
    if (!f) return false;
    const bool ok = data.empty() || std::fwrite(data.data(), 1, data.size(), f) == data.size();
    return std::fclose(f) == 0 && ok;
  }
  // The whole file, or "" when it cannot be read.
  std::string Read(const std::string& rel) const {
    std::string r;
    FILE* f = std::fopen((*this / rel).c_str(), "rb");
    if (!f) return r;
    char b[65536];
    size_t n;
    while ((n = std::fread(b, 1, sizeof b, f)) > 0) r.append(b, n);
    std::fclose(f);
    return r;
  }
  // Anything under that name, a dangling link included.
  bool Exists(const std::string& rel) const {
    struct stat st;
    return ::lstat((*this / rel).c_str(), &st) == 0;
  }
  bool MakeDir(const std::string& rel) const { return ::mkdir((*this / rel).c_str(), 0755) == 0; }
  // Creates each entry in order: a name ending in "/" is a folder, any other
  // a file holding "x".
  bool Make(std::initializer_list<const char*> entries) const {
    for (std::string e : entries)
      if (!(e.back() == '/' ? MakeDir(e) : Write(e, "x"))) return false;
    return true;
  }

 private:
  std::string path_;
};

// Bytes 0, 1, 2, ... wrapping at 251, so that no block boundary of a power of
// two meets a repeat of the pattern: a byte moved to the wrong place shows.
inline std::string Pattern(size_t n) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; i++) s[i] = static_cast<char>(i % 251);
  return s;
}

#endif
