// Progress.h - the host's progress object: a bar on standard error while a
// map is read, and cancellation by Ctrl-C through the plug-in's question.
#ifndef VARDAMAP_PROGRESS_H
#define VARDAMAP_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

#include "VardaPlugIn.h"

namespace vardamap {

// Ctrl-C sets a flag that the progress object reports to the plug-in; a
// second Ctrl-C ends the program at once.
void InstallInterruptHandler();
bool Interrupted();

class Progress final : public TProgressPlugIn {
 public:
  // `label` names what is read (shown before the bar).
  explicit Progress(std::string label);
  ~Progress();

  void SetTotal(int32_t bytes) override;
  void Advance(int32_t bytes) override;
  bool IsCancelled() override;

  // Makes the plug-in stop at its next question, for a reason of the host's
  // own (not counted as a cancellation).
  void Stop() { stopped_ = true; }
  // Clears the bar (or ends its line when it is not drawn in place).
  void Finish();
  // How many records the plug-in counted: it asks once after each.
  int records() const { return questions_; }
  bool cancelled() const { return cancelled_; }

 private:
  void Draw(bool final_state);

  std::string label_;
  bool enabled_ = false;   // drawing at all
  bool in_place_ = false;  // on a terminal: redraw one line
  long long cancel_after_ = -1;
  long long total_ = 0;
  long long done_ = 0;
  int questions_ = 0;
  bool cancelled_ = false;
  bool stopped_ = false;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point last_draw_;
};

// "[#####.....]  42%  3.1 MB/s  0:03 left" for `done` of `total` bytes after
// `seconds`; `width` is the number of cells of the bar.
std::string FormatProgress(long long done, long long total, double seconds, int width);

}  // namespace vardamap

#endif
