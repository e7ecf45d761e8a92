#include "PlugIn.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>

#include "Errors.h"
#include "common/HostLineAttributes.h"

#ifndef VARDAMAP_INSTALLED_PLUGIN
#define VARDAMAP_INSTALLED_PLUGIN "/usr/local/lib/varda/VardaPlugIn_SHP.so"
#endif

namespace vardamap {

namespace {

const char kPlugInFile[] = "VardaPlugIn_SHP.so";
constexpr int32_t kInterfaceVersion = 4;

std::string ExecutableDir() {
  char buf[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  if (n <= 0) return "";
  buf[n] = '\0';
  std::string exe(buf);
  size_t slash = exe.rfind('/');
  return slash == std::string::npos ? std::string(".") : exe.substr(0, slash);
}

bool Exists(const std::string& path) { return access(path.c_str(), R_OK) == 0; }

}  // namespace

std::vector<std::string> PlugInCandidates() {
  std::vector<std::string> out;
  const std::string dir = ExecutableDir();
  if (!dir.empty()) {
    out.push_back(dir + "/../" + kPlugInFile);            // build/<preset>/tools/..
    out.push_back(dir + "/" + kPlugInFile);               // beside the executable
    out.push_back(dir + "/../lib/varda/" + kPlugInFile);  // <prefix>/bin/..
  }
  out.push_back(VARDAMAP_INSTALLED_PLUGIN);
  return out;
}

std::string DefaultPlugInPath() {
  for (const std::string& c : PlugInCandidates())
    if (Exists(c)) return c;
  return "";
}

PlugIn::PlugIn(const std::string& path) : path_(path) {
  if (path_.empty()) {
    path_ = DefaultPlugInPath();
    if (path_.empty()) {
      std::string where;
      for (const std::string& c : PlugInCandidates()) where += (where.empty() ? "" : ", ") + c;
      throw Failed(std::string("cannot find ") + kPlugInFile + " (looked at " + where +
                   "); name it with --plugin PATH");
    }
  }
  // A name without a slash would make dlopen search the library path instead.
  std::string open_path = path_.find('/') == std::string::npos ? "./" + path_ : path_;
  dlerror();
  handle_ = dlopen(open_path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle_) {
    const char* why = dlerror();
    throw Failed("cannot load the plug-in " + path_ + ": " + (why ? why : "unknown reason"));
  }
  if (const char* missing = Resolve(handle_))
    throw Failed("the plug-in " + path_ + " does not export " + missing);

  const int32_t version = Version();
  if (version != kInterfaceVersion) {
    throw Failed("the plug-in " + path_ + " speaks interface version " + std::to_string(version) +
                 ", this host needs " + std::to_string(kInterfaceVersion));
  }
  Init();
}

// The plug-in stays loaded until the process ends, as in a host: what its
// static initialisers set up at load time lives as long as the process.
PlugIn::~PlugIn() = default;

namespace {

void CollectText(TStringPlugIn* self, const char* text) {
  // The sink is the first member of ErrorSink, so the two addresses agree.
  ErrorSink* sink = reinterpret_cast<ErrorSink*>(self);
  try {
    sink->messages->push_back(text ? text : "");
  } catch (...) {
    // Out of memory while keeping a message: the call's result still tells.
  }
}

template <typename T>
void Put(unsigned char* bytes, size_t offset, T value) {
  std::memcpy(bytes + offset, &value, sizeof value);
}

}  // namespace

static_assert(std::is_standard_layout<ErrorSink>::value, "the sink must start with its record");

ErrorSink::ErrorSink(std::vector<std::string>* out) : messages(out) { record.SetStr = CollectText; }

std::string ErrorSink::Join(const std::vector<std::string>& messages) {
  std::string line;
  for (const std::string& m : messages) {
    if (m.empty()) continue;
    if (!line.empty()) line += " / ";
    line += m;
  }
  return line;
}

LineAttributes::LineAttributes() { host::LineAttributeDefaults(bytes_); }

int32_t LineAttributes::database_id() const {
  int32_t id;
  std::memcpy(&id, bytes_ + offsetof(TLineAttributesPlugIn, id_bd), sizeof id);
  return id;
}

void LineAttributes::set_database_id(int32_t id) {
  Put<int32_t>(bytes_, offsetof(TLineAttributesPlugIn, id_bd), id);
}

void LineAttributes::set_flags(int32_t flags) {
  Put<int32_t>(bytes_, offsetof(TLineAttributesPlugIn, flags), flags);
}

}  // namespace vardamap
