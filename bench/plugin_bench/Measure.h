// Measure.h - timing, peak resident memory, and the plain file operations
// that the plug-in's numbers are held against.
#ifndef VARDA_BENCH_MEASURE_H
#define VARDA_BENCH_MEASURE_H

#include <functional>
#include <string>
#include <vector>

namespace bench {

// Which clock every Probe reports: wall time (the default) or the CPU time,
// user and system, of the process, which a busy machine disturbs far less.
void UseCpuClock(bool cpu);
bool UsingCpuClock();

// One timed stretch. Begin resets the kernel's resident high-water mark to
// the current resident size, so End sees the peak of this stretch alone.
class Probe {
 public:
  // False when /proc/self/clear_refs cannot be written (memory then unknown).
  static bool MemoryAvailable();
  void Begin();
  void End();
  double Seconds() const { return end_ - start_; }
  // Peak resident size during the stretch over the size at Begin, in MiB;
  // negative when unknown.
  double PeakDeltaMiB() const;

 private:
  double start_ = 0, end_ = 0;
  long long base_kib_ = -1, peak_kib_ = -1;
};

struct Stats {
  bool ok = true;
  std::string error;
  std::vector<double> seconds;  // the kept runs
  double median = 0.0;
  double peak_mib = -1.0;  // the largest delta over all runs, the warm-up one included
};

// Runs `body` once to warm the caches (discarded), then `runs` more times.
// The body calls Begin and End around the part to be timed and returns false
// with a message on failure, which ends the series.
using Body = std::function<bool(Probe&, std::string&)>;
Stats Repeat(int runs, const Body& body);

double Median(std::vector<double> v);

// Reads a file to its end in 64 KiB blocks; the bytes read, -1 on failure.
long long ReadLoop(const std::string& path);
// Copies a file in 1 MiB blocks. With `flush` the copy is also flushed to
// disk, so that later timed work does not share the disk with its write-back.
bool CopyFile(const std::string& from, const std::string& to, std::string& error,
              bool flush = true);
// Moves the bytes from `from` to the end of the file by `shift` bytes with
// pread/pwrite in 1 MiB blocks: towards the start (negative; the freed end is
// zeroed) or towards the end (positive; the gap is filled). With `sync` the
// file's data is then flushed to disk (fdatasync) before it is closed.
bool TailMove(const std::string& path, long long from, long long shift, std::string& error,
              bool sync = false);
long long FileSize(const std::string& path);
void RemoveFile(const std::string& path);

}  // namespace bench

#endif
