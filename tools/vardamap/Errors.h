// Errors.h - how a command ends when it cannot go on: one line of text and
// the exit code that goes with it.
#ifndef VARDAMAP_ERRORS_H
#define VARDAMAP_ERRORS_H

#include <stdexcept>
#include <string>

namespace vardamap {

enum ExitCode {
  kExitOk = 0,
  kExitFailed = 1,      // the plug-in refused or failed, or a file is unusable
  kExitUsage = 2,       // wrong arguments or malformed input
  kExitCancelled = 130  // stopped by Ctrl-C (or the cancellation testing aid)
};

class ToolError : public std::runtime_error {
 public:
  ToolError(int code, const std::string& message) : std::runtime_error(message), code_(code) {}
  int code() const { return code_; }

 private:
  int code_;
};

inline ToolError Failed(const std::string& message) { return ToolError(kExitFailed, message); }
inline ToolError Usage(const std::string& message) { return ToolError(kExitUsage, message); }
inline ToolError Cancelled() { return ToolError(kExitCancelled, "the read was cancelled"); }

}  // namespace vardamap

#endif
