#include "Measure.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace bench {

namespace {

bool use_cpu_clock = false;

double Now() {
  timespec ts;
  clock_gettime(use_cpu_clock ? CLOCK_PROCESS_CPUTIME_ID : CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

bool ClearRefs() {
  int fd = ::open("/proc/self/clear_refs", O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok = ::write(fd, "5", 1) == 1;
  ::close(fd);
  return ok;
}

// One "VmXXX:   1234 kB" line of /proc/self/status, in KiB; -1 if absent.
long long StatusKiB(const char* key) {
  int fd = ::open("/proc/self/status", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  char buf[4096];
  ssize_t n = ::read(fd, buf, sizeof buf - 1);
  ::close(fd);
  if (n <= 0) return -1;
  buf[n] = '\0';
  const char* at = std::strstr(buf, key);
  if (!at) return -1;
  return std::strtoll(at + std::strlen(key), nullptr, 10);
}

std::string Why(const char* what, const std::string& path) {
  return std::string(what) + " " + path + ": " + std::strerror(errno);
}

bool FullPread(int fd, unsigned char* p, size_t n, long long at) {
  while (n > 0) {
    ssize_t r = ::pread(fd, p, n, at);
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) return false;
    p += r;
    n -= static_cast<size_t>(r);
    at += r;
  }
  return true;
}

bool FullPwrite(int fd, const unsigned char* p, size_t n, long long at) {
  while (n > 0) {
    ssize_t w = ::pwrite(fd, p, n, at);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return false;
    p += w;
    n -= static_cast<size_t>(w);
    at += w;
  }
  return true;
}

}  // namespace

void UseCpuClock(bool cpu) { use_cpu_clock = cpu; }
bool UsingCpuClock() { return use_cpu_clock; }

bool Probe::MemoryAvailable() { return ClearRefs() && StatusKiB("VmHWM:") >= 0; }

void Probe::Begin() {
  // Freed heap memory stays resident and would hide a stretch that allocates
  // again what an earlier one freed; hand it back first.
  malloc_trim(0);
  base_kib_ = ClearRefs() ? StatusKiB("VmRSS:") : -1;
  start_ = Now();
}

void Probe::End() {
  end_ = Now();
  peak_kib_ = base_kib_ >= 0 ? StatusKiB("VmHWM:") : -1;
}

double Probe::PeakDeltaMiB() const {
  if (base_kib_ < 0 || peak_kib_ < 0) return -1.0;
  return static_cast<double>(std::max(0LL, peak_kib_ - base_kib_)) / 1024.0;
}

double Median(std::vector<double> v) {
  if (v.empty()) return 0.0;
  std::sort(v.begin(), v.end());
  const size_t m = v.size() / 2;
  return v.size() % 2 ? v[m] : 0.5 * (v[m - 1] + v[m]);
}

Stats Repeat(int runs, const Body& body) {
  Stats s;
  for (int r = 0; r <= runs; r++) {
    Probe probe;
    if (!body(probe, s.error)) {
      s.ok = false;
      if (s.error.empty()) s.error = "failed";
      return s;
    }
    // Memory counts from the warm-up run on: it is the one that meets every
    // first-time allocation. Times count only after it.
    s.peak_mib = std::max(s.peak_mib, probe.PeakDeltaMiB());
    if (r == 0) continue;
    s.seconds.push_back(probe.Seconds());
  }
  s.median = Median(s.seconds);
  return s;
}

long long ReadLoop(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  static unsigned char block[64 * 1024];
  long long total = 0;
  for (;;) {
    ssize_t n = ::read(fd, block, sizeof block);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      total = -1;
      break;
    }
    if (n == 0) break;
    total += n;
  }
  ::close(fd);
  return total;
}

bool CopyFile(const std::string& from, const std::string& to, std::string& error, bool flush) {
  int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) {
    error = Why("cannot open", from);
    return false;
  }
  int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (out < 0) {
    error = Why("cannot create", to);
    ::close(in);
    return false;
  }
  static unsigned char block[1 << 20];
  bool ok = true;
  for (;;) {
    ssize_t n = ::read(in, block, sizeof block);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      error = Why("cannot read", from);
      ok = false;
      break;
    }
    if (n == 0) break;
    size_t done = 0;
    while (done < static_cast<size_t>(n)) {
      ssize_t w = ::write(out, block + done, static_cast<size_t>(n) - done);
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) {
        error = Why("cannot write", to);
        ok = false;
        break;
      }
      done += static_cast<size_t>(w);
    }
    if (!ok) break;
  }
  if (ok && flush && ::fdatasync(out) != 0) {
    error = Why("cannot flush", to);
    ok = false;
  }
  ::close(in);
  if (::close(out) != 0 && ok) {
    error = Why("cannot close", to);
    ok = false;
  }
  return ok;
}

bool TailMove(const std::string& path, long long from, long long shift, std::string& error,
              bool sync) {
  int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) {
    error = Why("cannot open", path);
    return false;
  }
  struct stat st;
  if (::fstat(fd, &st) != 0 || from + shift < 0 || from > st.st_size || shift > (1 << 20) ||
      shift < -(1 << 20)) {
    error = "bad tail move on " + path;
    ::close(fd);
    return false;
  }
  const long long end = st.st_size;
  constexpr long long kBlock = 1 << 20;
  static unsigned char block[kBlock];
  bool ok = true;
  if (shift < 0) {
    for (long long a = from; ok && a < end; a += kBlock) {
      const size_t n = static_cast<size_t>(std::min(kBlock, end - a));
      ok = FullPread(fd, block, n, a) && FullPwrite(fd, block, n, a + shift);
    }
    std::memset(block, 0, static_cast<size_t>(-shift));
    ok = ok && FullPwrite(fd, block, static_cast<size_t>(-shift), end + shift);
  } else if (shift > 0) {
    // From the end backwards, so that no block overwrites bytes not yet moved.
    for (long long b = end; ok && b > from; b -= kBlock) {
      const long long a = std::max(from, b - kBlock);
      const size_t n = static_cast<size_t>(b - a);
      ok = FullPread(fd, block, n, a) && FullPwrite(fd, block, n, a + shift);
    }
    std::memset(block, 0, static_cast<size_t>(shift));
    ok = ok && FullPwrite(fd, block, static_cast<size_t>(shift), from);
  }
  if (!ok) error = Why("cannot move the tail of", path);
  if (ok && sync && ::fdatasync(fd) != 0) {
    error = Why("cannot flush", path);
    ok = false;
  }
  if (::close(fd) != 0 && ok) {
    error = Why("cannot close", path);
    ok = false;
  }
  return ok;
}

long long FileSize(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

void RemoveFile(const std::string& path) { ::unlink(path.c_str()); }

}  // namespace bench
