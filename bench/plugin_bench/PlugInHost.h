// PlugInHost.h - drives VardaPlugIn_SHP.so the way a host does: loaded with
// dlopen, every call through the exports and the records of VardaPlugIn.h.
#ifndef VARDA_BENCH_PLUGIN_HOST_H
#define VARDA_BENCH_PLUGIN_HOST_H

#include <string>

#include "VardaPlugIn.h"

namespace bench {

class PlugIn {
 public:
  // Throws std::runtime_error when the library or one of its exports is missing.
  explicit PlugIn(const std::string& path);
  ~PlugIn();
  PlugIn(const PlugIn&) = delete;
  PlugIn& operator=(const PlugIn&) = delete;

  std::string VersionText() const { return version_str_(); }

  VardaPlugIn_Open_Vector_Map_t open = nullptr;
  VardaPlugIn_Read_Vector_Map3_t read = nullptr;
  VardaPlugIn_Add_Poliline_Vector_Map_t add = nullptr;
  VardaPlugIn_Delete_Poliline_Vector_Map_t del = nullptr;
  VardaPlugIn_Close_Vector_Map_t close = nullptr;

 private:

  void* handle_ = nullptr;
  VardaPlugIn_VersionStr_t version_str_ = nullptr;
};

// What the reader callbacks saw: every vertex is visited and summed, so the
// delivery cannot be skipped by the compiler and two readers can be compared.
struct Visit {
  long long lines = 0;
  long long vertices = 0;
  double sum = 0.0;
};

// The reader record the benchmark hands to the plug-in: its BeginLine and
// AddPoint count and sum into `visit`. The parse floor calls the same two.
struct HostReader {
  TReadVectorMapPlugIn record;
  Visit* visit;
};
void InitHostReader(HostReader& reader, Visit& visit);

// Line attributes as the host fills them. Their constructor lives inside the
// plug-in and is not exported, so the record is built here byte by byte.
class Attributes {
 public:
  Attributes();
  TLineAttributesPlugIn* get() { return reinterpret_cast<TLineAttributesPlugIn*>(bytes_); }
  void SetId(int32_t id) { get()->id_bd = id; }
  int32_t Id() { return get()->id_bd; }

 private:
  alignas(8) unsigned char bytes_[sizeof(TLineAttributesPlugIn)];
};

// One map on the plug-in, from open to close. Every failure keeps the
// plug-in's message; Ok() false after any call that returned 0.
class HostMap {
 public:
  explicit HostMap(PlugIn& p) : p_(p) {}
  ~HostMap();
  HostMap(const HostMap&) = delete;
  HostMap& operator=(const HostMap&) = delete;

  bool Open(const std::string& shp, bool create);
  bool Read(Visit& visit);
  bool Delete(int32_t id);
  // Appends (id 0) or replaces record `id`; the points have stride 40.
  bool Add(int32_t id, int32_t flags, int32_t count, TVectorPointPlugIn* points);
  void Close();

  const std::string& Error() const { return error_; }
  long long ProgressBytes() const { return progress_bytes_; }

 private:
  PlugIn& p_;
  TVectorMapPlugIn map_{};
  bool open_ = false;
  std::string error_;
  long long progress_bytes_ = 0;
};

}  // namespace bench

#endif
