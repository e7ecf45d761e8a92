#include "PlugInHost.h"

#include <dlfcn.h>

#include <cstring>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "common/HostLineAttributes.h"
#include "common/PlugInExports.h"

namespace bench {

PlugIn::PlugIn(const std::string& path) {
  std::string where = path.find('/') == std::string::npos ? "./" + path : path;
  handle_ = dlopen(where.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle_) {
    const char* why = dlerror();
    throw std::runtime_error("cannot load " + path + ": " + (why ? why : "unknown reason"));
  }
  host::PlugInExports api;
  if (const char* missing = api.Resolve(handle_)) {
    dlclose(handle_);
    throw std::runtime_error(std::string("the plug-in lacks the export ") + missing);
  }
  version_str_ = api.VersionStr;
  open = api.Open;
  read = api.Read;
  add = api.Add;
  del = api.Delete;
  close = api.Close;
  if (api.Version() != 4) {
    dlclose(handle_);
    throw std::runtime_error(path + " does not speak plug-in interface 4");
  }
  api.Init();
}

PlugIn::~PlugIn() { dlclose(handle_); }

namespace {

// The error sink keeps the last message; the record must come first.
struct Sink {
  TStringPlugIn record;
  std::string* text;
};
static_assert(std::is_standard_layout<Sink>::value, "the sink starts with its record");

void KeepText(TStringPlugIn* self, const char* text) {
  Sink* s = reinterpret_cast<Sink*>(self);
  if (!s->text->empty()) *s->text += " / ";
  *s->text += text ? text : "";
}

static_assert(std::is_standard_layout<HostReader>::value, "the reader starts with its record");

int32_t BeginLine(TReadVectorMapPlugIn* self, TLineAttributesPlugIn*) {
  Visit* v = reinterpret_cast<HostReader*>(self)->visit;
  return static_cast<int32_t>(v->lines++);
}

void AddPoint(TReadVectorMapPlugIn* self, int32_t, TVectorPointPlugIn* p, int32_t) {
  Visit* v = reinterpret_cast<HostReader*>(self)->visit;
  v->vertices++;
  v->sum += p->x + p->y + p->z;
}

// Progress as a host reports it: totals kept, never cancelled.
class Progress final : public TProgressPlugIn {
 public:
  void SetTotal(int32_t bytes) override { total_ = bytes; }
  void Advance(int32_t bytes) override { done_ += bytes; }
  bool IsCancelled() override { return false; }
  long long Done() const { return done_; }

 private:
  long long total_ = 0;
  long long done_ = 0;
};

}  // namespace

void InitHostReader(HostReader& reader, Visit& visit) {
  std::memset(&reader.record, 0, sizeof reader.record);
  reader.record.BeginLine = BeginLine;
  reader.record.AddPoint = AddPoint;
  reader.visit = &visit;
}

Attributes::Attributes() { host::LineAttributeDefaults(bytes_); }

HostMap::~HostMap() { Close(); }

bool HostMap::Open(const std::string& shp, bool create) {
  Sink sink{{KeepText}, &error_};
  std::memset(&map_, 0, sizeof map_);
  map_.crear = create ? 1 : 0;
  std::vector<char> path(shp.begin(), shp.end());
  path.push_back('\0');
  open_ = p_.open(path.data(), &map_, &sink.record) == 1;
  return open_;
}

bool HostMap::Read(Visit& visit) {
  Sink sink{{KeepText}, &error_};
  HostReader reader;
  InitHostReader(reader, visit);
  Progress progress;
  const bool ok = p_.read(&map_, &reader.record, &sink.record, &progress) == 1;
  progress_bytes_ = progress.Done();
  return ok;
}

bool HostMap::Delete(int32_t id) {
  Sink sink{{KeepText}, &error_};
  return p_.del(&map_, id, &sink.record) == 1;
}

bool HostMap::Add(int32_t id, int32_t flags, int32_t count, TVectorPointPlugIn* points) {
  Sink sink{{KeepText}, &error_};
  Attributes attr;
  attr.SetId(id);
  attr.get()->flags = flags;
  return p_.add(&map_, attr.get(), count, points, &sink.record) == 1;
}

void HostMap::Close() {
  if (open_) p_.close(&map_);
  open_ = false;
}

}  // namespace bench
