#include "MapFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "common/ForwardWindow.h"

namespace large {

namespace {

constexpr int kHeader = 100;
constexpr int kPolyLine = 3;
constexpr size_t kBlock = 4 << 20;

[[noreturn]] void Fail(const std::string& what, const std::string& path) {
  throw std::runtime_error(what + " " + path + ": " + std::strerror(errno));
}

void PutBe32(unsigned char* p, uint32_t v) {
  v = __builtin_bswap32(v);
  std::memcpy(p, &v, 4);
}
void PutLe32(unsigned char* p, int32_t v) { std::memcpy(p, &v, 4); }
void PutDouble(unsigned char* p, double v) { std::memcpy(p, &v, 8); }
using host::Be32;
using host::Le32;
using host::LeDouble;

struct Box {
  bool set = false;
  double xmin = 0, ymin = 0, xmax = 0, ymax = 0;
  void Add(double x0, double y0, double x1, double y1) {
    if (!set) {
      xmin = x0, ymin = y0, xmax = x1, ymax = y1;
      set = true;
      return;
    }
    xmin = std::min(xmin, x0);
    ymin = std::min(ymin, y0);
    xmax = std::max(xmax, x1);
    ymax = std::max(ymax, y1);
  }
  // The box of a PolyLine record from its contents.
  void AddRecord(const unsigned char* content) {
    Add(LeDouble(content + 4), LeDouble(content + 12), LeDouble(content + 20),
        LeDouble(content + 28));
  }
  bool Covers(const unsigned char* content) const {
    return xmin <= LeDouble(content + 4) && ymin <= LeDouble(content + 12) &&
           xmax >= LeDouble(content + 20) && ymax >= LeDouble(content + 28);
  }
};

// The main file header; the .shx takes the same bytes but its own length.
void Header(unsigned char* h, long long file_bytes, const Box& box) {
  std::memset(h, 0, kHeader);
  PutBe32(h, 9994);
  PutBe32(h + 24, static_cast<uint32_t>(file_bytes / 2));
  PutLe32(h + 28, 1000);
  PutLe32(h + 32, kPolyLine);
  PutDouble(h + 36, box.xmin);
  PutDouble(h + 44, box.ymin);
  PutDouble(h + 52, box.xmax);
  PutDouble(h + 60, box.ymax);
}

class File {
 public:
  File(const std::string& path, int flags) : path_(path) {
    fd_ = ::open(path.c_str(), flags | O_CLOEXEC, 0644);
    if (fd_ < 0) Fail("cannot open", path);
  }
  ~File() {
    if (fd_ >= 0) ::close(fd_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  void WriteAt(const void* p, size_t n, long long at) {
    const unsigned char* s = static_cast<const unsigned char*>(p);
    while (n > 0) {
      const ssize_t w = ::pwrite(fd_, s, n, at);
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) Fail("cannot write", path_);
      s += w;
      n -= static_cast<size_t>(w);
      at += w;
    }
  }
  // Up to n bytes at `at`; fewer only at the end of the file.
  size_t ReadAt(void* p, size_t n, long long at) {
    unsigned char* d = static_cast<unsigned char*>(p);
    size_t got = 0;
    while (got < n) {
      const ssize_t r = ::pread(fd_, d + got, n - got, at + static_cast<long long>(got));
      if (r < 0 && errno == EINTR) continue;
      if (r < 0) Fail("cannot read", path_);
      if (r == 0) break;
      got += static_cast<size_t>(r);
    }
    return got;
  }
  int fd() const { return fd_; }
  long long Size() const {
    struct stat st;
    if (::fstat(fd_, &st) != 0) Fail("cannot stat", path_);
    return static_cast<long long>(st.st_size);
  }
  void Close() {
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) Fail("cannot close", path_);
  }

 private:
  std::string path_;
  int fd_ = -1;
};

// Sequential output in large blocks from the end of the 100-byte header.
class Output {
 public:
  explicit Output(const std::string& path) : file_(path, O_WRONLY | O_CREAT | O_TRUNC) {
    buf_.reserve(kBlock);
  }
  void Bytes(const void* p, size_t n) {
    const unsigned char* s = static_cast<const unsigned char*>(p);
    buf_.insert(buf_.end(), s, s + n);
    if (buf_.size() >= kBlock) Flush();
  }
  void Be32(uint32_t v) {
    unsigned char b[4];
    PutBe32(b, v);
    Bytes(b, 4);
  }
  // Leaves the next n bytes a hole of the sparse file.
  void Skip(long long n) {
    if (n == 0) return;
    Flush();
    at_ += n;
  }
  long long Position() const { return at_ + static_cast<long long>(buf_.size()); }
  void Finish(const unsigned char* header) {
    Flush();
    file_.WriteAt(header, kHeader, 0);
    file_.Close();
  }

 private:
  void Flush() {
    file_.WriteAt(buf_.data(), buf_.size(), at_);
    at_ += static_cast<long long>(buf_.size());
    buf_.clear();
  }
  File file_;
  std::vector<unsigned char> buf_;
  long long at_ = kHeader;
};

// A map written record by record, the headers last.
class MapWriter {
 public:
  explicit MapWriter(const std::string& stem) : shp_(stem + ".shp"), shx_(stem + ".shx") {}
  // A record of `content_bytes` whose first `given` bytes are `content`,
  // the rest left as a hole.
  void Record(const unsigned char* content, size_t given, long long content_bytes) {
    const uint32_t words = static_cast<uint32_t>(content_bytes / 2);
    shx_.Be32(static_cast<uint32_t>(shp_.Position() / 2));  // only the low 32 bits survive
    shx_.Be32(words);
    shp_.Be32(++number_);
    shp_.Be32(words);
    shp_.Bytes(content, given);
    shp_.Skip(content_bytes - static_cast<long long>(given));
    box_.AddRecord(content);
  }
  void Record(const std::vector<unsigned char>& content) {
    Record(content.data(), content.size(), static_cast<long long>(content.size()));
  }
  // Writes both headers and closes the files; returns the .shp size.
  long long Finish() {
    const long long shp_bytes = shp_.Position();
    unsigned char h[kHeader];
    Header(h, shp_bytes, box_);
    shp_.Finish(h);
    Header(h, shx_.Position(), box_);
    shx_.Finish(h);
    return shp_bytes;
  }

 private:
  Output shp_, shx_;
  Box box_;
  uint32_t number_ = 0;
};

}  // namespace

void PatternPoints(uint32_t seed, int points, double* xy) {
  const double x0 = 1000.0 + static_cast<double>(seed % 4096);
  const double y0 = 2000.0 + static_cast<double>(seed / 4096);
  for (int k = 0; k < points; k++) {
    xy[2 * k] = x0 + k * 0.0078125;
    xy[2 * k + 1] = y0 + (k % 2) * 0.5;
  }
}

void PolyLineContent(uint32_t seed, int points, std::vector<unsigned char>& out) {
  std::vector<double> xy(2 * static_cast<size_t>(points));
  PatternPoints(seed, points, xy.data());
  out.assign(48 + 16 * static_cast<size_t>(points), 0);
  unsigned char* c = out.data();
  Box box;
  for (int k = 0; k < points; k++) box.Add(xy[2 * k], xy[2 * k + 1], xy[2 * k], xy[2 * k + 1]);
  PutLe32(c, kPolyLine);
  PutDouble(c + 4, box.xmin);
  PutDouble(c + 12, box.ymin);
  PutDouble(c + 20, box.xmax);
  PutDouble(c + 28, box.ymax);
  PutLe32(c + 36, 1);
  PutLe32(c + 40, points);
  PutLe32(c + 44, 0);
  std::memcpy(c + 48, xy.data(), 16 * static_cast<size_t>(points));
}

void WriteMap(const std::string& stem, long long records) {
  MapWriter map(stem);
  std::vector<unsigned char> content;
  for (long long n = 1; n <= records; n++) {
    PolyLineContent(static_cast<uint32_t>(n), kOriginalPoints, content);
    map.Record(content);
  }
  map.Finish();
}

std::vector<std::string> CheckMap(const std::string& stem, const std::vector<Expected>& records) {
  constexpr size_t kMaxFaults = 8;
  std::vector<std::string> faults;
  auto fault = [&](const std::string& what) {
    if (faults.size() < kMaxFaults) faults.push_back(what);
    return faults.size() >= kMaxFaults;
  };
  File shp(stem + ".shp", O_RDONLY), shx(stem + ".shx", O_RDONLY);
  const long long n = static_cast<long long>(records.size());
  long long expected_bytes = kHeader;
  for (const Expected& e : records) expected_bytes += 8 + 48 + 16LL * e.points;

  // Headers: the same image in both files but for the length, each length
  // (in 16-bit words, 32 bits unsigned) the file's own.
  unsigned char hp[kHeader] = {0}, hx[kHeader] = {0};
  if (shp.ReadAt(hp, kHeader, 0) < kHeader || shx.ReadAt(hx, kHeader, 0) < kHeader)
    return {"a header is cut short"};
  if (Be32(hp) != 9994 || Le32(hp + 28) != 1000 || Le32(hp + 32) != kPolyLine)
    fault("the .shp header has file code " + std::to_string(Be32(hp)) + ", version " +
          std::to_string(Le32(hp + 28)) + ", shape type " + std::to_string(Le32(hp + 32)));
  if (std::memcmp(hp, hx, 24) != 0 || std::memcmp(hp + 28, hx + 28, kHeader - 28) != 0)
    fault("the .shp and .shx headers differ beyond their lengths");
  const long long shp_bytes = 2LL * Be32(hp + 24), shx_bytes = 2LL * Be32(hx + 24);
  if (shp_bytes != expected_bytes)
    fault(".shp header length " + std::to_string(shp_bytes) + " bytes, the records take " +
          std::to_string(expected_bytes));
  if (shx_bytes != kHeader + 8 * n)
    fault(".shx header length " + std::to_string(shx_bytes) + " bytes, " + std::to_string(n) +
          " entries take " + std::to_string(kHeader + 8 * n));
  const long long shp_size = shp.Size();
  if (shp_size < expected_bytes)
    fault(".shp is " + std::to_string(shp_size) + " bytes long, shorter than its records");
  if (shx.Size() < kHeader + 8 * n) fault(".shx is shorter than its entries");
  if (!faults.empty()) return faults;

  std::vector<unsigned char> index(static_cast<size_t>(8 * n));
  shx.ReadAt(index.data(), index.size(), kHeader);
  Box header_box;
  header_box.Add(LeDouble(hp + 36), LeDouble(hp + 44), LeDouble(hp + 52), LeDouble(hp + 60));

  // Records from the end of the header on, read forward in large blocks.
  host::ForwardWindow w(shp.fd(), kBlock);
  w.Need(kHeader);
  w.Skip(kHeader);
  long long at = kHeader;
  std::vector<unsigned char> want;
  for (long long j = 1; j <= n; j++) {
    const std::string rec = "record " + std::to_string(j) + " (at byte " + std::to_string(at) + ")";
    if (!w.Need(8)) {
      fault(rec + ": the file ends before its header");
      break;
    }
    const uint32_t number = Be32(w.Data()), words = Be32(w.Data() + 4);
    const uint32_t ix_offset = Be32(&index[8 * (j - 1)]), ix_words = Be32(&index[8 * (j - 1) + 4]);
    // Each fault is listed; the walk stops once there are enough.
    if (2LL * ix_offset != at && fault(rec + ": the index gives offset " + std::to_string(2LL * ix_offset))) break;
    if (ix_words != words &&
        fault(rec + ": content length " + std::to_string(words) + " words, the index says " + std::to_string(ix_words)))
      break;
    if (number != static_cast<uint32_t>(j) && fault(rec + ": numbered " + std::to_string(number))) break;
    const Expected& e = records[static_cast<size_t>(j - 1)];
    PolyLineContent(e.seed, e.points, want);
    if (2ull * words != want.size()) {
      fault(rec + ": " + std::to_string(2ull * words) + " content bytes, " +
            std::to_string(want.size()) + " expected (seed " + std::to_string(e.seed) + ", " +
            std::to_string(e.points) + " points)");
      break;  // the walk cannot go on from a wrong length
    }
    if (!w.Need(8 + want.size())) {
      fault(rec + ": cut short by the end of the file");
      break;
    }
    const unsigned char* c = w.Data() + 8;
    const bool same = std::memcmp(c, want.data(), want.size()) == 0;
    if (!same && fault(rec + ": contents differ from seed " + std::to_string(e.seed) + " with " +
                       std::to_string(e.points) + " points"))
      break;
    if (same && !header_box.Covers(c) && fault(rec + ": its box lies outside the header's")) break;
    w.Skip(8 + want.size());
    at += 8 + static_cast<long long>(want.size());
  }
  if (!faults.empty()) return faults;

  // Whatever lies between the counted end and the physical end was freed by
  // moving records towards the start and must be zeros.
  std::vector<unsigned char> tail(kBlock);
  for (long long from = expected_bytes; from < shp_size;) {
    const size_t got = shp.ReadAt(tail.data(), tail.size(), from);
    if (got == 0) break;
    for (size_t i = 0; i < got; i++) {
      if (tail[i]) {
        fault(".shp has a non-zero byte at " + std::to_string(from + static_cast<long long>(i)) +
              ", after its counted end at " + std::to_string(expected_bytes));
        return faults;
      }
    }
    from += static_cast<long long>(got);
  }
  return faults;
}

long long WriteOversizedMap(const std::string& stem) {
  constexpr int kSmall = 1000;             // records before and after the hole
  constexpr long long kHuge = 70000000;    // points in each record of the hole
  constexpr int kHugeRecords = 4;
  MapWriter map(stem);
  std::vector<unsigned char> content;
  auto small_records = [&](uint32_t first_seed) {
    for (int i = 0; i < kSmall; i++) {
      PolyLineContent(first_seed + static_cast<uint32_t>(i), kOriginalPoints, content);
      map.Record(content);
    }
  };
  small_records(1);
  for (int i = 0; i < kHugeRecords; i++) {
    // Only the type and the counts are written; the box and the points are
    // the zeros of the hole.
    unsigned char counts[48] = {0};
    PutLe32(counts, kPolyLine);
    PutLe32(counts + 36, 1);
    PutLe32(counts + 40, static_cast<int32_t>(kHuge));
    map.Record(counts, sizeof counts, 48 + 16 * kHuge);
  }
  small_records(kSmall + 1);
  return map.Finish();
}

}  // namespace large
