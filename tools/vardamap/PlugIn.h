// PlugIn.h - loads VardaPlugIn_SHP.so with dlopen and wraps its exports and
// host records. Nothing here links against the plug-in's own code: every call
// goes through the exported C functions, exactly as a host makes them.
#ifndef VARDAMAP_PLUGIN_H
#define VARDAMAP_PLUGIN_H

#include <string>
#include <vector>

#include "VardaPlugIn.h"
#include "common/PlugInExports.h"

namespace vardamap {

// The exports resolved from one loaded plug-in.
class PlugIn : public host::PlugInExports {
 public:
  // Loads the plug-in at `path` (or, when empty, the one found by
  // DefaultPlugInPath). Throws ToolError when it cannot be loaded, lacks an
  // export or speaks another interface version.
  explicit PlugIn(const std::string& path);
  ~PlugIn();
  PlugIn(const PlugIn&) = delete;
  PlugIn& operator=(const PlugIn&) = delete;

  const std::string& path() const { return path_; }

 private:

  std::string path_;
  void* handle_ = nullptr;
};

// The places where the plug-in is looked for when no --plugin is given, in
// order: beside the build's tools folder, beside the executable, and the
// installed lib/varda folders.
std::vector<std::string> PlugInCandidates();
// The first candidate that exists, or "" when there is none.
std::string DefaultPlugInPath();

// The host's error sink: collects every text the plug-in hands over.
struct ErrorSink {
  TStringPlugIn record;  // must stay first: the plug-in only sees this
  std::vector<std::string>* messages;

  explicit ErrorSink(std::vector<std::string>* out);
  // All collected messages joined into one line.
  static std::string Join(const std::vector<std::string>& messages);
};

// A line-attribute record filled with the defaults a host gives a new line.
// The record's constructor lives inside the plug-in and is not exported, so
// the bytes are written here directly into raw, suitably aligned storage.
class LineAttributes {
 public:
  LineAttributes();
  TLineAttributesPlugIn* get() { return reinterpret_cast<TLineAttributesPlugIn*>(bytes_); }
  int32_t database_id() const;
  void set_database_id(int32_t id);
  void set_flags(int32_t flags);
  const unsigned char* bytes() const { return bytes_; }

 private:
  alignas(TLineAttributesPlugIn) unsigned char bytes_[sizeof(TLineAttributesPlugIn)];
};

}  // namespace vardamap

#endif
