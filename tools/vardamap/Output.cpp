// Output.cpp - warnings and files written by the commands.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Commands.h"
#include "Errors.h"

namespace vardamap {

void Warn(const std::string& text) { std::fprintf(stderr, "vardamap: warning: %s\n", text.c_str()); }

void WriteFile(const std::string& path, const std::string& text) {
  // Written beside the target and renamed, so that a failed write never
  // leaves half a picture where a good one stood.
  const std::string tmp = path + ".tmp";
  FILE* f = std::fopen(tmp.c_str(), "wb");
  if (!f) throw Failed("cannot write " + path + ": " + std::strerror(errno));
  bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  ok = (std::fclose(f) == 0) && ok;
  if (!ok || std::rename(tmp.c_str(), path.c_str()) != 0) {
    int e = errno;
    std::remove(tmp.c_str());
    throw Failed("cannot write " + path + ": " + std::strerror(e));
  }
}

OutputFile::OutputFile(const std::string& path, bool open_stream) : path_(path) {
  const size_t slash = path.rfind('/');
  tmp_ = path.substr(0, slash == std::string::npos ? 0 : slash + 1) + ".vardamap-part-" +
         BaseName(path);
  if (!open_stream) {
    std::remove(tmp_.c_str());
    return;
  }
  out_.reset(new std::ofstream(tmp_, std::ios::binary | std::ios::trunc));
  if (!*out_) throw Failed("cannot write " + path + ": " + std::strerror(errno));
}

OutputFile::~OutputFile() {
  out_.reset();
  if (!done_) std::remove(tmp_.c_str());
}

std::ostream& OutputFile::stream() { return *out_; }

void OutputFile::Commit() {
  if (out_) out_->close();
  if ((out_ && !*out_) || std::rename(tmp_.c_str(), path_.c_str()) != 0)
    throw Failed("cannot write " + path_ + ": " + std::strerror(errno));
  done_ = true;
}

std::string BaseName(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace vardamap
