// EditRun.h - one map driven through the plug-in's linked functions with host
// records laid out as a host lays them, for the tests that put a fault disk
// under the map: every call's result, messages, the failures injected into it
// and whether the simulated crash had struck when it returned.
#ifndef VARDA_TESTS_SUPPORT_EDITRUN_H
#define VARDA_TESTS_SUPPORT_EDITRUN_H

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "VardaPlugIn.h"
#include "support/FaultDisk.h"
#include "support/HostMap.h"
#include "support/ShpBuilder.h"

namespace shptest {

inline std::vector<XYZ> Line(int n, double at) {
  std::vector<XYZ> v;
  for (int i = 0; i < n; i++) v.push_back({at + i, at - i, 0});
  return v;
}

inline std::string BaseName(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// What one call of the scenario answered.
struct Outcome {
  std::string call;
  int result = 0;
  std::vector<std::string> messages;  // for closing: what it printed
  int injected = 0;                   // failures injected during the call
  std::string into;                   // the file the last of them struck
  bool after_failure = false;         // the closing after a failed call
  bool crashed = false;               // the fault disk had crashed when the call returned
  size_t log_size = 0;                // the fault disk's log when the call returned
};

// Once a call fails the scenario's later calls are not made, but an open map
// is still closed.
class EditRun {
 public:
  // `faults`, when given, tells which call met an injected failure. Without
  // `points` reading hands over the lines but not their points (no AddPoint
  // callback): quick on maps of megabytes.
  EditRun(const FaultDisk* faults, std::string path, bool create, bool points = true)
      : faults_(faults), map_(create), reader_(true, points), path_(std::move(path)) {}
  ~EditRun() {
    if (open_) Close();
  }

  void Open() {
    Call("open", [&] {
      std::vector<char> p(path_.begin(), path_.end());
      p.push_back('\0');
      const int r = VardaPlugIn_Open_Vector_Map(p.data(), Map(), Sink());
      open_ = r == 1;
      return r;
    });
  }
  void Read() {
    Call("read", [&] { return VardaPlugIn_Read_Vector_Map3(Map(), Rd(), Sink(), nullptr); });
  }
  void Add(int n, int32_t id) {
    Call("add " + std::to_string(n) + " points as " + std::to_string(id), [&] {
      Bytes attrs = LineAttrs(0, id);
      Bytes pts = PointArray(Line(n, 100 + id));
      return VardaPlugIn_Add_Poliline_Vector_Map(
          Map(), reinterpret_cast<TLineAttributesPlugIn*>(attrs.data()), n,
          reinterpret_cast<TVectorPointPlugIn*>(pts.data()), Sink());
    });
  }
  void Delete(int32_t id) {
    Call("delete " + std::to_string(id),
         [&] { return VardaPlugIn_Delete_Poliline_Vector_Map(Map(), id, Sink()); });
  }
  void Close() {
    if (!open_) return;
    const bool after_failure = failed_;
    failed_ = false;  // closing is made in any case
    Call("close", [&] {
      open_ = false;
      ::testing::internal::CaptureStderr();
      const int r = VardaPlugIn_Close_Vector_Map(Map());
      closing_text_ = ::testing::internal::GetCapturedStderr();
      return r;
    });
    outcomes.back().after_failure = after_failure;
  }

  std::vector<Outcome> outcomes;
  const Reader& reader() const { return reader_; }
  // Called after every call that was made, with what it answered.
  std::function<void(const Outcome&)> after_call;

 private:
  TVectorMapPlugIn* Map() { return static_cast<TVectorMapPlugIn*>(map_.rec()); }
  TStringPlugIn* Sink() { return static_cast<TStringPlugIn*>(sink_.rec()); }
  TReadVectorMapPlugIn* Rd() { return static_cast<TReadVectorMapPlugIn*>(reader_.rec()); }

  void Call(const std::string& name, const std::function<int()>& call) {
    if (failed_) return;
    Outcome o;
    o.call = name;
    const int injected = faults_ ? faults_->Injected() : 0;
    const size_t messages = sink_.messages.size();
    closing_text_.clear();
    o.result = call();
    if (faults_) {
      o.injected = faults_->Injected() - injected;
      o.into = faults_->InjectedInto();
      o.crashed = faults_->Crashed();
      o.log_size = faults_->Log().size();
    }
    o.messages.assign(sink_.messages.begin() + static_cast<long>(messages), sink_.messages.end());
    if (!closing_text_.empty()) o.messages.push_back(closing_text_);
    if (o.result != 1) failed_ = true;
    outcomes.push_back(o);
    if (after_call) after_call(outcomes.back());
  }

  const FaultDisk* faults_;
  HostMap map_;
  ErrorSink sink_;
  Reader reader_;
  std::string path_;
  std::string closing_text_;
  bool open_ = false;
  bool failed_ = false;
};

inline std::string Show(const std::vector<Outcome>& outcomes) {
  std::string s;
  for (const Outcome& o : outcomes) {
    s += "\n  " + o.call + " -> " + std::to_string(o.result);
    if (o.injected) s += " (failure injected into " + o.into + ")";
    for (const std::string& m : o.messages) s += "\n    \"" + m + "\"";
  }
  return s;
}

// One message that names `file` and the reason of `error`.
inline void CheckMessage(const Outcome& o, const std::string& file, int error,
                         const std::vector<Outcome>& all) {
  EXPECT_EQ(o.result, 0) << "the failure went unreported" << Show(all);
  ASSERT_EQ(o.messages.size(), 1u) << Show(all);
  EXPECT_NE(o.messages[0].find(file), std::string::npos) << "no file name" << Show(all);
  EXPECT_NE(o.messages[0].find(std::strerror(error)), std::string::npos) << "no reason" << Show(all);
}

// The call that met the injected failure (null when none did), checked:
// every call before it succeeded, and it failed naming the file the failure
// struck (a temporary file or the map's journal by the name of the file it
// stands for) and the reason.
inline const Outcome* CheckReported(const std::vector<Outcome>& got, int error) {
  size_t i = 0;
  while (i < got.size() && got[i].injected == 0) i++;
  if (i == got.size()) return nullptr;
  for (size_t j = 0; j < i; j++) EXPECT_EQ(got[j].result, 1) << Show(got);
  std::string file = BaseName(got[i].into);
  for (const char* stand_in : {".$$$", ".jnl"})
    if (file.size() > 4 && file.compare(file.size() - 4, 4, stand_in) == 0) file.resize(file.size() - 4);
  CheckMessage(got[i], file, error, got);
  return &got[i];
}

// The backups of `shp` among `files` are absent or the original files.
inline void CheckBackups(const FileImages& files, const std::string& shp, const ShpImage& original,
                         const std::string& what) {
  for (const auto& bak : {std::make_pair(shp + ".bak", &original.shp),
                          std::make_pair(ShxOf(shp) + ".bak", &original.shx)}) {
    auto it = files.find(bak.first);
    if (it != files.end()) {
      EXPECT_TRUE(SameBytes(*bak.second, it->second)) << what << ": " << bak.first;
    }
  }
}

}  // namespace shptest

#endif
