#include "Progress.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vardamap {

namespace {

volatile sig_atomic_t g_interrupted = 0;

void OnInterrupt(int) { g_interrupted = 1; }

// Testing aid: VARDAMAP_CANCEL_AFTER=N answers "cancel" from the plug-in's
// N-th question on, i.e. once N records have been read.
long long CancelAfterFromEnvironment() {
  const char* v = std::getenv("VARDAMAP_CANCEL_AFTER");
  if (!v || !*v) return -1;
  char* end = nullptr;
  long long n = std::strtoll(v, &end, 10);
  if (*end != '\0' || n < 0) return -1;
  return n;
}

}  // namespace

void InstallInterruptHandler() {
  struct sigaction sa;
  std::memset(&sa, 0, sizeof sa);
  sa.sa_handler = OnInterrupt;
  sigemptyset(&sa.sa_mask);
  // The first Ctrl-C asks for a clean stop; the handler then reverts to the
  // default so that a second one ends a stuck program.
  sa.sa_flags = SA_RESETHAND;
  sigaction(SIGINT, &sa, nullptr);
}

bool Interrupted() { return g_interrupted != 0; }

std::string FormatProgress(long long done, long long total, double seconds, int width) {
  if (total <= 0) total = 1;
  if (done > total) done = total;
  if (done < 0) done = 0;
  const double fraction = static_cast<double>(done) / static_cast<double>(total);
  const int filled = static_cast<int>(fraction * width);
  std::string bar = "[" + std::string(filled, '#') + std::string(width - filled, '.') + "]";
  char tail[96];
  const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0.0;
  if (rate > 0 && done < total) {
    long long left = static_cast<long long>(static_cast<double>(total - done) / rate + 0.5);
    std::snprintf(tail, sizeof tail, " %3d%%  %.1f MB/s  %lld:%02lld left",
                  static_cast<int>(fraction * 100), rate / 1e6, left / 60, left % 60);
  } else {
    std::snprintf(tail, sizeof tail, " %3d%%  %.1f MB/s", static_cast<int>(fraction * 100),
                  rate / 1e6);
  }
  return bar + tail;
}

Progress::Progress(std::string label) : label_(std::move(label)) {
  cancel_after_ = CancelAfterFromEnvironment();
  // Testing aid: VARDAMAP_PROGRESS=always draws even when standard error is
  // no terminal (then one line at the end), =never never draws.
  const char* mode = std::getenv("VARDAMAP_PROGRESS");
  if (mode && std::strcmp(mode, "always") == 0) {
    enabled_ = true;
    in_place_ = isatty(STDERR_FILENO) != 0;
  } else if (mode && std::strcmp(mode, "never") == 0) {
    enabled_ = false;
  } else {
    enabled_ = in_place_ = isatty(STDERR_FILENO) != 0;
  }
  start_ = last_draw_ = std::chrono::steady_clock::now();
}

Progress::~Progress() { Finish(); }

void Progress::SetTotal(int32_t bytes) {
  total_ = bytes;
  done_ = 0;
  start_ = last_draw_ = std::chrono::steady_clock::now();
}

void Progress::Advance(int32_t bytes) {
  if (bytes > 0) done_ += bytes;
  if (!enabled_ || !in_place_) return;
  auto now = std::chrono::steady_clock::now();
  // Short reads show nothing; long ones redraw a few times a second.
  if (now - start_ < std::chrono::milliseconds(300)) return;
  if (drawn_ && now - last_draw_ < std::chrono::milliseconds(100)) return;
  last_draw_ = now;
  Draw(false);
}

bool Progress::IsCancelled() {
  ++questions_;
  if (Interrupted() || (cancel_after_ >= 0 && questions_ >= cancel_after_)) cancelled_ = true;
  return cancelled_ || stopped_;
}

void Progress::Draw(bool final_state) {
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  std::string line = label_ + " " + FormatProgress(done_, total_, seconds, 30);
  if (final_state && cancelled_) line += "  cancelled";
  if (in_place_)
    std::fprintf(stderr, "\r%s\033[K", line.c_str());
  else
    std::fprintf(stderr, "%s\n", line.c_str());
  std::fflush(stderr);
  drawn_ = true;
}

void Progress::Finish() {
  if (!enabled_) return;
  if (in_place_) {
    if (drawn_) {
      std::fputs("\r\033[K", stderr);
      std::fflush(stderr);
    }
  } else {
    Draw(true);
  }
  enabled_ = false;
}

}  // namespace vardamap
