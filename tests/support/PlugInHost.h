// PlugInHost.h - loads the built plug-in with dlopen, as the host does, and
// resolves its exports by name.
#ifndef VARDA_TESTS_PLUGINHOST_H
#define VARDA_TESTS_PLUGINHOST_H

#include <dlfcn.h>

#include <string>

#include "VardaPlugIn.h"

class PlugInHost {
 public:
  explicit PlugInHost(const char* path = VARDA_PLUGIN_PATH) {
    handle_ = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!handle_) error_ = dlerror();
  }
  ~PlugInHost() {
    if (handle_) dlclose(handle_);
  }
  PlugInHost(const PlugInHost&) = delete;
  PlugInHost& operator=(const PlugInHost&) = delete;

  bool loaded() const { return handle_ != nullptr; }
  const std::string& error() const { return error_; }
  void* sym(const char* name) const { return handle_ ? dlsym(handle_, name) : nullptr; }
  template <class F>
  F fn(const char* name) const {
    return reinterpret_cast<F>(sym(name));
  }

 private:
  void* handle_ = nullptr;
  std::string error_;
};

#endif
