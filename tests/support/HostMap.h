// HostMap.h - a test host for the SHP plug-in that talks to the built module
// only through dlopen and raw byte records.
//
// Every record the host passes (map, error sink, reader, progress object,
// line attributes, point arrays) is a byte buffer laid out by hand at the
// offsets of the binary contract, with function pointers copied in, so that a
// mistake in the shared header cannot hide a layout fault. Host-owned bytes
// are filled with a sentinel and checked after every call.
#ifndef VARDA_TESTS_HOSTMAP_H
#define VARDA_TESTS_HOSTMAP_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "support/PlugInHost.h"
#include "support/ShpBuilder.h"

namespace shptest {

constexpr unsigned char kSentinel = 0xA5;
constexpr size_t kP = sizeof(void*);

// Contract offsets of the map record.
constexpr size_t kMapWriteMode = 12;
constexpr size_t kMapCreate = 16;
constexpr size_t kMapIndex = 20;
constexpr size_t kMapPrivate = 28;
constexpr size_t kMapSize = 28 + kP;

// Contract offsets of the reader record: the fields after each pointer move
// with the pointer size.
constexpr size_t kRdBeginLine = 16;
constexpr size_t kRdAddPoint = 16 + kP;
constexpr size_t kRdHostBytes = 16 + 2 * kP;
constexpr size_t kRdOptions = 20 + 2 * kP;
constexpr size_t kRdSize = 20 + 3 * kP;

template <class F>
void PutPtr(Bytes& b, size_t off, F p) {
  static_assert(sizeof(F) == kP, "a pointer field holds one pointer");
  std::memcpy(&b.at(off), &p, kP);
}
inline void* GetPtr(const Bytes& b, size_t off) {
  void* p;
  std::memcpy(&p, &b.at(off), kP);
  return p;
}

// ---- the module's exports, resolved once per process.
struct PlugInApi {
  using OpenFn = int32_t (*)(char*, void*, void*);
  using ReadFn = int32_t (*)(void*, void*, void*, void*);
  using AddFn = int32_t (*)(void*, void*, int32_t, void*, void*);
  using DeleteFn = int32_t (*)(void*, int32_t, void*);
  using CloseFn = int32_t (*)(void*);

  OpenFn Open = nullptr;
  ReadFn Read = nullptr;
  AddFn Add = nullptr;
  DeleteFn Delete = nullptr;
  CloseFn Close = nullptr;
  const char** fmt_open = nullptr;
  const char** fmt_save = nullptr;
  std::string problem;  // empty when every export was found

  // The module stays loaded for the whole process, as a host keeps its
  // plug-ins: what it sets up when loaded is not the map functions' business.
  static const PlugInApi& Get() {
    static const PlugInHost* host = new PlugInHost;
    static PlugInApi api(*host);
    return api;
  }

 private:
  explicit PlugInApi(const PlugInHost& h) {
    if (!h.loaded()) {
      problem = "dlopen failed: " + h.error();
      return;
    }
    Open = h.fn<OpenFn>("VardaPlugIn_Open_Vector_Map");
    Read = h.fn<ReadFn>("VardaPlugIn_Read_Vector_Map3");
    Add = h.fn<AddFn>("VardaPlugIn_Add_Poliline_Vector_Map");
    Delete = h.fn<DeleteFn>("VardaPlugIn_Delete_Poliline_Vector_Map");
    Close = h.fn<CloseFn>("VardaPlugIn_Close_Vector_Map");
    fmt_open = static_cast<const char**>(h.sym("fmt_open"));
    fmt_save = static_cast<const char**>(h.sym("fmt_save"));
    if (!Open || !Read || !Add || !Delete || !Close || !fmt_open || !fmt_save)
      problem = "the module lacks one of the map exports or format pointers";
  }
};

// Callbacks receive the record's address; this finds the test object behind it.
template <class T>
std::map<const void*, T*>& Owners() {
  static std::map<const void*, T*> owners;
  return owners;
}
template <class T>
T* OwnerOf(const void* rec) {
  auto it = Owners<T>().find(rec);
  return it == Owners<T>().end() ? nullptr : it->second;
}

// ---- map record
class HostMap {
 public:
  explicit HostMap(bool create) : rec_(kMapSize, kSentinel) {
    PutLE32(rec_, kMapCreate, create ? 1 : 0);
  }
  void* rec() { return rec_.data(); }
  int32_t WriteMode() const { return GetLE32(rec_, kMapWriteMode); }
  int32_t CreateFlag() const { return GetLE32(rec_, kMapCreate); }
  int32_t IndexFlag() const { return GetLE32(rec_, kMapIndex); }
  void* Private() const { return GetPtr(rec_, kMapPrivate); }
  // Empty when the host's stretches (0-11, 24-27) still hold the sentinel.
  std::string Damage() const {
    for (size_t i = 0; i < 28; i++) {
      if (i >= 12 && i < 24) continue;
      if (rec_[i] != kSentinel) return "map record byte " + std::to_string(i) + " was written";
    }
    return "";
  }

 private:
  Bytes rec_;
};

// ---- error sink: SetStr at offset 0, host bytes after it.
class ErrorSink {
 public:
  ErrorSink() : rec_(kP + 12, kSentinel) {
    PutPtr(rec_, 0, &SetStr);
    Owners<ErrorSink>()[rec_.data()] = this;
  }
  ~ErrorSink() { Owners<ErrorSink>().erase(rec_.data()); }
  ErrorSink(const ErrorSink&) = delete;
  ErrorSink& operator=(const ErrorSink&) = delete;

  void* rec() { return rec_.data(); }
  std::string Last() const { return messages.empty() ? std::string() : messages.back(); }
  std::string All() const {
    std::string s;
    for (const std::string& m : messages) s += (s.empty() ? "" : " | ") + m;
    return s;
  }
  std::string Damage() const {
    if (GetPtr(rec_, 0) != reinterpret_cast<void*>(&SetStr)) return "error sink callback was changed";
    for (size_t i = kP; i < rec_.size(); i++)
      if (rec_[i] != kSentinel) return "error sink byte " + std::to_string(i) + " was written";
    return "";
  }

  std::vector<std::string> messages;
  int foreign_calls = 0;  // calls whose first argument was not this sink

 private:
  static void SetStr(void* self, const char* text) {
    ErrorSink* s = OwnerOf<ErrorSink>(self);
    if (!s) {
      for (auto& o : Owners<ErrorSink>()) o.second->foreign_calls++;
      return;
    }
    s->messages.push_back(text ? text : "<null text>");
  }
  Bytes rec_;
};

// ---- reader record and what it received.
struct GotPoint {
  int32_t size = 0;
  double x = 0, y = 0, z = 0, m = 0;
  int32_t handle = 0;
  int32_t last = 0;
  Bytes raw;  // the 40 bytes as handed over, for bit patterns a double may not keep
};

struct GotLine {
  Bytes attrs;  // the 196 bytes handed to BeginLine
  int32_t handle = 0;
  std::vector<GotPoint> points;
  int32_t Id() const { return GetLE32(attrs, 8); }
  int32_t Flags() const { return GetLE32(attrs, 20); }
  int32_t Count() const { return GetLE32(attrs, 40); }
};

// Thrown by the reader's callbacks when a test asks for it.
struct HostThrow {
  int id;
};

class Reader {
 public:
  explicit Reader(bool begin_line = true, bool add_point = true) : rec_(kRdSize, kSentinel) {
    PutPtr(rec_, kRdBeginLine, begin_line ? &BeginLine : nullptr);
    PutPtr(rec_, kRdAddPoint, add_point ? &AddPoint : nullptr);
    PutPtr(rec_, kRdOptions, static_cast<const char*>(nullptr));
    snapshot_ = rec_;
    Owners<Reader>()[rec_.data()] = this;
  }
  ~Reader() { Owners<Reader>().erase(rec_.data()); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  void SetOptions(const char* text) {
    if (text) {
      options_ = text;
      PutPtr(rec_, kRdOptions, options_.c_str());
    } else {
      PutPtr(rec_, kRdOptions, static_cast<const char*>(nullptr));
    }
    snapshot_ = rec_;
  }
  void Clear() {
    lines.clear();
    points.clear();
  }
  void* rec() { return rec_.data(); }
  std::string Damage() const {
    for (size_t i = 0; i < rec_.size(); i++)
      if (rec_[i] != snapshot_[i]) return "reader record byte " + std::to_string(i) + " was written";
    return "";
  }

  std::vector<GotLine> lines;
  std::vector<GotPoint> points;  // every AddPoint call, in order
  int throw_at_line_id = 0;      // BeginLine throws for the line with this database id
  int throw_at_point_call = 0;   // AddPoint throws on its n-th call (from 1)
  int foreign_calls = 0;         // calls whose first argument was not this reader

 private:
  static int32_t BeginLine(void* self, void* attrs) {
    Reader* r = OwnerOf<Reader>(self);
    if (!r) return -7;
    GotLine l;
    l.attrs.assign(static_cast<unsigned char*>(attrs), static_cast<unsigned char*>(attrs) + 196);
    l.handle = 7000 + static_cast<int32_t>(r->lines.size());
    r->lines.push_back(l);
    if (r->throw_at_line_id && l.Id() == r->throw_at_line_id) throw HostThrow{l.Id()};
    return l.handle;
  }
  static void AddPoint(void* self, int32_t handle, void* pt, int32_t last) {
    Reader* r = OwnerOf<Reader>(self);
    if (!r) return;
    Bytes b(static_cast<unsigned char*>(pt), static_cast<unsigned char*>(pt) + 40);
    GotPoint p;
    p.size = GetLE32(b, 0);
    p.x = GetF64(b, 4);
    p.y = GetF64(b, 12);
    p.z = GetF64(b, 20);
    p.m = GetF64(b, 28);
    p.handle = handle;
    p.last = last;
    p.raw = b;
    r->points.push_back(p);
    const size_t i = static_cast<size_t>(handle - 7000);
    if (handle >= 7000 && i < r->lines.size()) r->lines[i].points.push_back(p);
    if (r->throw_at_point_call && static_cast<int>(r->points.size()) == r->throw_at_point_call)
      throw HostThrow{-1};
  }

  Bytes rec_;
  Bytes snapshot_;
  std::string options_;
};

// ---- progress object: its first word points to a table of four functions
// SetTotal(self, int), Advance(self, int), (unused), IsCancelled(self). On
// i386 and x86-64 a virtual call passes the object as the first ordinary
// argument, so plain functions serve as the table's entries.
class Progress {
 public:
  struct Call {
    char what;  // 'T' SetTotal, 'A' Advance, 'C' IsCancelled, 'R' the unused slot
    int32_t value;
  };

  // The table is preceded, as a compiler lays out a table of virtual
  // functions, by the offset to the object's top (0) and its type's
  // identity, so that a module built with run-time type checks accepts it.
  Progress() : obj_(kP + 8, kSentinel), table_(6 * kP, 0) {
    PutPtr(table_, kP, static_cast<const void*>(&typeid(TProgressPlugIn)));
    PutPtr(table_, 2 * kP, &SetTotal);
    PutPtr(table_, 3 * kP, &Advance);
    PutPtr(table_, 4 * kP, &Reserved);
    PutPtr(table_, 5 * kP, &IsCancelled);
    PutPtr(obj_, 0, static_cast<void*>(table_.data() + 2 * kP));
    Owners<Progress>()[obj_.data()] = this;
  }
  ~Progress() { Owners<Progress>().erase(obj_.data()); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void* rec() { return obj_.data(); }
  int CountOf(char what) const {
    int n = 0;
    for (const Call& c : calls) n += c.what == what;
    return n;
  }
  std::string Damage() const {
    if (GetPtr(obj_, 0) != table_.data() + 2 * kP) return "progress table pointer was changed";
    for (size_t i = kP; i < obj_.size(); i++)
      if (obj_[i] != kSentinel) return "progress object byte " + std::to_string(i) + " was written";
    return "";
  }

  std::vector<Call> calls;
  int cancel_at = 0;  // IsCancelled answers true from its n-th call (from 1)

 private:
  static void SetTotal(void* self, int32_t v) { Log(self, 'T', v); }
  static void Advance(void* self, int32_t v) { Log(self, 'A', v); }
  static void Reserved(void* self) { Log(self, 'R', 0); }
  static bool IsCancelled(void* self) {
    Progress* p = Log(self, 'C', 0);
    return p && p->cancel_at && p->CountOf('C') >= p->cancel_at;
  }
  static Progress* Log(void* self, char what, int32_t v) {
    Progress* p = OwnerOf<Progress>(self);
    if (p) p->calls.push_back({what, v});
    return p;
  }

  Bytes obj_;
  Bytes table_;
};

// The defaults a line's attributes start from, as the host's header
// constructs them and as reading delivers them: every field but the id (8),
// the kind (20) and the point count (40), which reading fills in.
inline void ExpectDefaultAttributes(const Bytes& a) {
  const int ints[][2] = {{0, 196}, {4, 0},   {12, -1}, {16, -1}, {24, 0},  {28, 0},
                         {36, 0},  {44, 0},  {48, 0},  {56, -1}, {60, -1}, {64, -1},
                         {72, 1},  {76, 0},  {80, 0},  {92, -1}, {96, -1}, {100, 0}};
  for (const auto& f : ints) EXPECT_EQ(GetLE32(a, f[0]), f[1]) << "offset " << f[0];
  const auto f32 = [&](size_t off) {
    float v;
    std::memcpy(&v, &a.at(off), 4);
    return v;
  };
  for (size_t off : {52, 68}) EXPECT_EQ(f32(off), -1.0f) << "offset " << off;
  for (size_t off : {84, 88}) EXPECT_EQ(f32(off), -9999.0f) << "offset " << off;
  EXPECT_EQ(f32(32), 1.0f);
  EXPECT_EQ(a[108], 0);
  for (int i = 113; i < 153; i++) EXPECT_EQ(a[i], 0) << i;
  for (int i = 153; i < 185; i++) EXPECT_EQ(a[i], 0xFF) << i;
  EXPECT_EQ(a[185], 0);
}

// ---- records given to adding.

// A host array of points: 40 bytes each, size field, X, Y, Z, a host value
// at 28 and host-owned bytes 36-39.
inline Bytes PointArray(const std::vector<XYZ>& pts, int32_t size_field = 40) {
  Bytes b(40 * pts.size(), kSentinel);
  for (size_t i = 0; i < pts.size(); i++) {
    PutLE32(b, 40 * i, size_field);
    PutF64(b, 40 * i + 4, pts[i].x);
    PutF64(b, 40 * i + 12, pts[i].y);
    PutF64(b, 40 * i + 20, pts[i].z);
    PutF64(b, 40 * i + 28, 123.25);
  }
  return b;
}

// Line attributes as a host fills them: size, database id and kind; every
// other byte is the host's sentinel.
inline Bytes LineAttrs(int32_t flags, int32_t id) {
  Bytes b(196, kSentinel);
  PutLE32(b, 0, 196);
  PutLE32(b, 8, id);
  PutLE32(b, 20, flags);
  return b;
}

// ---- one map driven from open to close, every call checked for writes
// into host-owned bytes.
class MapSession {
 public:
  explicit MapSession(std::string path, bool create = false)
      : map(create), path_(std::move(path)) {}
  ~MapSession() {
    if (open_) Close();
  }
  MapSession(const MapSession&) = delete;
  MapSession& operator=(const MapSession&) = delete;

  const PlugInApi& api() const { return PlugInApi::Get(); }

  int Open() {
    std::vector<char> p(path_.begin(), path_.end());
    p.push_back('\0');
    int r = api().Open(p.data(), map.rec(), sink.rec());
    open_ = r == 1;
    Check("open");
    return r;
  }
  int Read(Reader& rd, Progress* pr = nullptr) {
    int r = api().Read(map.rec(), rd.rec(), sink.rec(), pr ? pr->rec() : nullptr);
    Check("read");
    if (!rd.Damage().empty()) ADD_FAILURE() << "read: " << rd.Damage();
    if (pr && !pr->Damage().empty()) ADD_FAILURE() << "read: " << pr->Damage();
    if (rd.foreign_calls) ADD_FAILURE() << "read: a callback got another first argument";
    return r;
  }
  int Read() {
    reader.Clear();
    return Read(reader);
  }
  // Opens the map and reads it into `reader`, as a host does before
  // changing it: 1 when both succeed.
  int OpenAndRead() { return Open() == 1 ? Read() : 0; }
  // Adds a line with the given kind and database id; on success `*new_id`
  // receives the id found at offset 8 afterwards.
  int Add(int32_t flags, const std::vector<XYZ>& pts, int32_t id = 0, int32_t* new_id = nullptr) {
    Bytes attrs = LineAttrs(flags, id);
    Bytes arr = PointArray(pts);
    int r = AddRaw(attrs, arr, static_cast<int32_t>(pts.size()));
    if (new_id) *new_id = GetLE32(attrs, 8);
    return r;
  }
  int AddRaw(Bytes& attrs, Bytes& arr, int32_t n) {
    const Bytes attrs_before = attrs, arr_before = arr;
    int r = api().Add(map.rec(), attrs.data(), n, arr.empty() ? nullptr : arr.data(), sink.rec());
    Check("add");
    for (size_t i = 0; i < attrs.size(); i++)
      if ((i < 8 || i > 11) && attrs[i] != attrs_before[i]) {
        ADD_FAILURE() << "add wrote line attribute byte " << i;
        break;
      }
    if (arr != arr_before) ADD_FAILURE() << "add wrote into the host's point array";
    return r;
  }
  int Delete(int32_t id) {
    int r = api().Delete(map.rec(), id, sink.rec());
    Check("delete");
    return r;
  }
  int Close() {
    int r = api().Close(map.rec());
    open_ = false;
    Check("close");
    return r;
  }

  HostMap map;
  ErrorSink sink;
  Reader reader;

 private:
  void Check(const char* call) {
    if (!map.Damage().empty()) ADD_FAILURE() << call << ": " << map.Damage();
    if (!sink.Damage().empty()) ADD_FAILURE() << call << ": " << sink.Damage();
    if (sink.foreign_calls) ADD_FAILURE() << call << ": SetStr got another first argument";
  }

  std::string path_;
  bool open_ = false;
};

// Points of a delivered line as plain coordinates.
inline std::vector<XYZ> CoordsOf(const GotLine& l) {
  std::vector<XYZ> v;
  for (const GotPoint& p : l.points) v.push_back({p.x, p.y, p.z});
  return v;
}

inline bool SameXYZ(const std::vector<XYZ>& a, const std::vector<XYZ>& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); i++)
    if (a[i].x != b[i].x || a[i].y != b[i].y || a[i].z != b[i].z) return false;
  return true;
}

inline std::string Show(const std::vector<XYZ>& v) {
  std::ostringstream os;
  os.precision(17);
  for (const XYZ& p : v) os << "(" << p.x << "," << p.y << "," << p.z << ")";
  return os.str();
}

// Base of the host-level tests: the module must load with all its map
// exports, and every test gets its own scratch folder.
class PlugInTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(PlugInApi::Get().problem.empty()) << PlugInApi::Get().problem;
    ASSERT_TRUE(dir.ok()) << "no scratch folder";
  }
  const PlugInApi& api() const { return PlugInApi::Get(); }
  TempDir dir;
};

inline std::vector<XYZ> Concat(std::initializer_list<std::vector<XYZ>> parts) {
  std::vector<XYZ> all;
  for (const auto& p : parts) all.insert(all.end(), p.begin(), p.end());
  return all;
}

}  // namespace shptest

#endif
