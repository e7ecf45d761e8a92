// ForwardWindow.h - reading a shapefile strictly forward in large blocks,
// for host programs that parse the files themselves: the field readers of
// the format's byte orders and a window that keeps the unread rest of a
// block when a record runs past its end.
#ifndef VARDA_TOOLS_FORWARDWINDOW_H
#define VARDA_TOOLS_FORWARDWINDOW_H

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

namespace host {

inline uint32_t Be32(const unsigned char* p) {
  uint32_t v;
  std::memcpy(&v, p, 4);
  return __builtin_bswap32(v);
}

inline int32_t Le32(const unsigned char* p) {
  int32_t v;
  std::memcpy(&v, p, 4);
  return v;
}

inline double LeDouble(const unsigned char* p) {
  double v;
  std::memcpy(&v, p, 8);
  return v;
}

// A window on an open file from its current offset on: Need(n) makes the
// next n bytes readable at Data(), with read() calls of `block` bytes.
class ForwardWindow {
 public:
  ForwardWindow(int fd, size_t block) : fd_(fd), block_(block), buf_(2 * block) {}

  // False at the end of the file (fewer than n bytes left) or on an error.
  bool Need(size_t n) {
    if (end_ - pos_ >= n) return true;
    std::memmove(buf_.data(), buf_.data() + pos_, end_ - pos_);
    end_ -= pos_;
    pos_ = 0;
    if (buf_.size() < n + block_) buf_.resize(n + block_);
    while (end_ < n) {
      const ssize_t got = ::read(fd_, buf_.data() + end_, block_);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) failed_ = true;
      if (got <= 0) return false;
      end_ += static_cast<size_t>(got);
    }
    return true;
  }
  const unsigned char* Data() const { return buf_.data() + pos_; }
  void Skip(size_t n) { pos_ += n; }
  bool Failed() const { return failed_; }

 private:
  int fd_;
  size_t block_;
  std::vector<unsigned char> buf_;
  size_t pos_ = 0, end_ = 0;
  bool failed_ = false;
};

}  // namespace host

#endif
