#include "support/FaultDisk.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "file/FicheroITV.h"
#include "file/FicheroITVBase.h"
#include "file/FicheroITVStdio.h"
#include "filesys/StringNomFitx.h"
#include "string/DString.h"

namespace {

// A backend of the wrapped file system with the fault disk between it and
// the file object. After the crash, a file the process would create or
// truncate is not touched: the backend then swallows everything (`sink_`).
class FaultBackend : public TFicheroITV_Base {
 public:
  FaultBackend(FaultDisk& disk, TFicheroITV_Base* inner) : disk_(disk), inner_(inner) {}
  ~FaultBackend() override { delete inner_; }

  bool Abre(const TStringNomFitx& name, int& mode, DString* err) override {
    DString str_modo;
    TFicheroITV_stdio::Calcula_str_stdio(mode, str_modo);  // throws on a bad mode
    const char kind = str_modo.c_str()[0];
    name_ = name.c_str();
    sink_ = false;
    error_ = 0;
    if (const int e = disk_.Crashed() ? 0 : disk_.Check(FaultDisk::kOpen, name_)) {
      Fail(e);
      TFicheroITV::ComposeStringError(err, (mode & MODO_ESCRIBIR) != 0, name, nullptr);
      return false;
    }
    const bool existed = disk_.inner().Tipo(name_.c_str()) == TSistemaFicheros::kRegular;
    const bool creates = kind != 'r' && !existed;
    const bool truncates = kind == 'w' && existed;
    if (disk_.Crashed() && (creates || truncates)) {
      sink_ = true;
      sink_pos_ = 0;
      return true;
    }
    append_ = kind == 'a';
    writable_ = kind != 'r' || str_modo.c_str()[1] == '+';
    if (!inner_->Abre(name, mode, err)) return FailInner();
    file_ = disk_.FileOf(name_, creates);
    if (creates) disk_.Note(Event(FaultDisk::Event::kCreate));
    if (truncates) disk_.Note(Event(FaultDisk::Event::kTruncate));
    return true;
  }

  bool Cierra(DString* err) override {
    if (sink_) {
      sink_ = false;
      return true;
    }
    if (!inner_->Abierto()) return inner_->Cierra(err);
    // A close that fails still lets the descriptor go.
    const int e = disk_.Crashed() || !writable_ ? 0 : disk_.Check(FaultDisk::kClose, name_);
    if (!e) return inner_->Cierra(err) || FailInner();
    inner_->Cierra(nullptr);
    if (err)
      TFicheroITV::ComposeStringError(err, true, TStringNomFitx(name_.c_str()), std::strerror(e));
    return Fail(e);
  }

  bool Abierto() const override { return sink_ || inner_->Abierto(); }

  bool LeeBytes(void* buf, int n) override {
    if (sink_) return n == 0 || Fail(0);
    return inner_->LeeBytes(buf, n) || FailInner();
  }

  bool GuardaBytes(const void* buf, int n) override {
    if (sink_) {
      sink_pos_ += n;
      return true;
    }
    if (!inner_->Abierto() || n < 0) return inner_->GuardaBytes(buf, n) || FailInner();
    if (!disk_.Crashed())
      if (const int e = disk_.Check(FaultDisk::kWrite, name_)) return Fail(e);
    const long long offset = append_ ? inner_->FileSize64() : inner_->PosActual64();
    const long long pass = disk_.Pass(n);
    if (pass > 0) {
      if (!inner_->GuardaBytes(buf, static_cast<int>(pass))) return FailInner();
      FaultDisk::Event w = Event(FaultDisk::Event::kWrite);
      w.offset = offset;
      const unsigned char* p = static_cast<const unsigned char*>(buf);
      w.bytes.assign(p, p + pass);
      disk_.Note(std::move(w));
    }
    // What the crash dropped still moves the position, as if written.
    if (pass < n && !append_) inner_->Posicionate64(inner_->PosActual64() + (n - pass));
    return true;
  }

  bool Posicionate64(long long pos) override {
    if (sink_) {
      if (pos < 0) return Fail(EINVAL);
      sink_pos_ = pos;
      return true;
    }
    if (!disk_.Crashed() && inner_->Abierto())
      if (const int e = disk_.Check(FaultDisk::kSeek, name_)) return Fail(e);
    return inner_->Posicionate64(pos) || FailInner();
  }

  bool eof() override { return sink_ || inner_->eof(); }
  long long PosActual64() override { return sink_ ? sink_pos_ : inner_->PosActual64(); }
  long long FileSize64() override { return sink_ ? 0 : inner_->FileSize64(); }

  int Flush() override {
    if (sink_ || disk_.Crashed()) return 0;
    if (inner_->Abierto())
      if (const int e = disk_.Check(FaultDisk::kSync, name_)) {
        Fail(e);
        return -1;
      }
    const int r = inner_->Flush();
    if (r != 0) FailInner();
    return r;
  }

  bool Sincroniza() override {
    if (sink_ || disk_.Crashed()) return true;
    if (inner_->Abierto())
      if (const int e = disk_.Check(FaultDisk::kSync, name_)) return Fail(e);
    if (!inner_->Sincroniza()) return FailInner();
    disk_.Note(Event(FaultDisk::Event::kSync));
    return true;
  }

  bool Trunca(long long length) override {
    if (sink_ || disk_.Crashed()) return true;
    if (inner_->Abierto())
      if (const int e = disk_.Check(FaultDisk::kTruncate, name_)) return Fail(e);
    if (!inner_->Trunca(length)) return FailInner();
    FaultDisk::Event t = Event(FaultDisk::Event::kTruncate);
    t.size = length;
    disk_.Note(std::move(t));
    return true;
  }

  void* GetFilePointer() override { return sink_ ? nullptr : inner_->GetFilePointer(); }
  bool SetEndOfFile() override { return sink_ ? true : inner_->SetEndOfFile(); }
  bool AceptasRandomPos() override { return sink_ || inner_->AceptasRandomPos(); }
  int Errno() const override { return error_; }

 private:
  FaultDisk::Event Event(FaultDisk::Event::Kind kind) const {
    FaultDisk::Event e;
    e.kind = kind;
    e.name = name_;
    e.file = file_;
    return e;
  }
  bool Fail(int e) {
    error_ = e;
    if (e) errno = e;
    return false;
  }
  bool FailInner() { return Fail(inner_->Errno()); }

  FaultDisk& disk_;
  TFicheroITV_Base* inner_;
  std::string name_;
  int file_ = 0;
  bool append_ = false;
  bool writable_ = false;
  bool sink_ = false;
  long long sink_pos_ = 0;
  int error_ = 0;
};

bool Fails(int e) {
  errno = e;
  return false;
}

bool NameMatches(const std::string& rule, const std::string& name) {
  if (rule.empty() || rule == name) return true;
  return name.size() > rule.size() && name.compare(name.size() - rule.size(), rule.size(), rule) == 0 &&
         name[name.size() - rule.size() - 1] == '/';
}

std::string FolderOf(const std::string& name) {
  const size_t slash = name.find_last_of('/');
  return slash == std::string::npos ? "." : name.substr(0, slash == 0 ? 1 : slash);
}

}  // namespace

void FaultDisk::Fail(Op op, int n, int error, const std::string& name, bool from_then_on) {
  rules_.push_back(Rule{op, n, error, name, from_then_on, 0});
}

void FaultDisk::Reset() {
  rules_.clear();
  for (int& c : counts_) c = 0;
  injected_ = 0;
  injected_into_.clear();
  crash_bytes_ = -1;
  crash_writes_ = -1;
  bytes_ = 0;
  writes_ = 0;
  crashed_ = false;
  log_.clear();
  files_.clear();
}

int FaultDisk::Check(Op op, const std::string& name) {
  counts_[op]++;
  int error = 0;
  for (Rule& r : rules_) {
    if (r.op != op || !NameMatches(r.name, name)) continue;
    r.seen++;
    if (!error && (r.seen == r.n || (r.from_then_on && r.seen > r.n))) error = r.error;
  }
  if (error) {
    injected_++;
    injected_into_ = name;
  }
  return error;
}

long long FaultDisk::Pass(long long n) {
  if (crashed_) return 0;
  if (crash_writes_ == 0 || crash_bytes_ == 0) {
    crashed_ = true;
    return 0;
  }
  long long pass = n;
  if (crash_bytes_ > 0 && crash_bytes_ - bytes_ <= n) {
    pass = crash_bytes_ - bytes_;
    crashed_ = true;
  }
  bytes_ += pass;
  if (crash_writes_ > 0 && ++writes_ >= crash_writes_) crashed_ = true;
  return pass;
}

int FaultDisk::FileOf(const std::string& name, bool created) {
  auto it = files_.find(name);
  if (!created && it != files_.end()) return it->second;
  files_[name] = next_file_;
  return next_file_++;
}

TFicheroITV_Base* FaultDisk::NuevoBackend(const TStringNomFitx& nombre, int modo) {
  return new FaultBackend(*this, inner_.NuevoBackend(nombre, modo));
}

// Removals, renames and folder syncs: dropped after the crash, failed on
// request, logged when done.
template <class Call>
bool FaultDisk::FolderOp(Op op, Event::Kind kind, const char* name, const char* to, Call call) {
  if (crashed_) return true;
  if (!name || (kind == Event::kRename && !to)) return call();
  if (const int e = Check(op, name)) return Fails(e);
  if (!call()) return false;
  Event ev;
  ev.kind = kind;
  ev.name = name;
  if (kind != Event::kSyncFolder) {
    ev.file = FileOf(name, false);
    files_.erase(name);
  }
  if (kind == Event::kRename) {
    ev.to = to;
    files_[to] = ev.file;
  }
  Note(std::move(ev));
  return true;
}

bool FaultDisk::Borra(const char* nombre) {
  return FolderOp(kRemove, Event::kRemove, nombre, nullptr, [&] { return inner_.Borra(nombre); });
}

bool FaultDisk::Renombra(const char* de, const char* a) {
  return FolderOp(kRename, Event::kRename, de, a, [&] { return inner_.Renombra(de, a); });
}

bool FaultDisk::SincronizaCarpeta(const char* nombre) {
  return FolderOp(kSync, Event::kSyncFolder, nombre, nullptr,
                  [&] { return inner_.SincronizaCarpeta(nombre); });
}

namespace {

bool SyncedLater(const std::vector<FaultDisk::Event>& log, size_t i) {
  const FaultDisk::Event& e = log[i];
  if (e.kind == FaultDisk::Event::kSync || e.kind == FaultDisk::Event::kSyncFolder) return true;
  const bool data = e.kind == FaultDisk::Event::kWrite || e.kind == FaultDisk::Event::kTruncate;
  // A rename needs the folders of both names synced.
  bool from = false, to = e.kind != FaultDisk::Event::kRename;
  for (size_t j = i + 1; j < log.size(); j++) {
    const FaultDisk::Event& s = log[j];
    if (data) {
      if (s.kind == FaultDisk::Event::kSync && s.file == e.file) return true;
    } else if (s.kind == FaultDisk::Event::kSyncFolder) {
      from = from || FolderOf(s.name) == FolderOf(e.name);
      to = to || FolderOf(s.name) == FolderOf(e.to);
      if (from && to) return true;
    }
  }
  return false;
}

}  // namespace

std::vector<size_t> Volatile(const std::vector<FaultDisk::Event>& log) {
  std::vector<size_t> v;
  for (size_t i = 0; i < log.size(); i++)
    if (!SyncedLater(log, i)) v.push_back(i);
  return v;
}

FileImages AfterPowerLoss(const FileImages& before, const std::vector<FaultDisk::Event>& log,
                          const std::set<size_t>& keep) {
  using Data = std::shared_ptr<FaultDisk::Bytes>;
  std::map<std::string, Data> original, folder;
  for (const auto& f : before) original[f.first] = std::make_shared<FaultDisk::Bytes>(f.second);
  folder = original;
  // The log's files, bound at their first event to what they were then:
  // a new file for a creation, else the file the name held before the log.
  std::map<int, Data> files;
  std::vector<size_t> lost = Volatile(log);
  const std::set<size_t> volatile_events(lost.begin(), lost.end());
  for (size_t i = 0; i < log.size(); i++) {
    const FaultDisk::Event& e = log[i];
    Data& d = files[e.file];
    if (!d && e.kind != FaultDisk::Event::kSync && e.kind != FaultDisk::Event::kSyncFolder) {
      auto it = original.find(e.name);
      d = e.kind != FaultDisk::Event::kCreate && it != original.end()
              ? it->second
              : std::make_shared<FaultDisk::Bytes>();
    }
    if (volatile_events.count(i) && !keep.count(i)) continue;
    switch (e.kind) {
      case FaultDisk::Event::kCreate:
        folder[e.name] = d;
        break;
      case FaultDisk::Event::kWrite:
        if (d->size() < static_cast<size_t>(e.offset) + e.bytes.size())
          d->resize(static_cast<size_t>(e.offset) + e.bytes.size());
        std::copy(e.bytes.begin(), e.bytes.end(), d->begin() + e.offset);
        break;
      case FaultDisk::Event::kTruncate:
        d->resize(static_cast<size_t>(e.size));
        break;
      case FaultDisk::Event::kRemove:
        folder.erase(e.name);
        break;
      case FaultDisk::Event::kRename: {
        auto it = folder.find(e.name);
        if (it == folder.end() || e.name == e.to) break;
        Data moved = it->second;
        folder.erase(it);
        folder[e.to] = moved;
        break;
      }
      default:
        break;
    }
  }
  FileImages after;
  for (const auto& f : folder) after[f.first] = *f.second;
  return after;
}

void ForEachPowerCut(const FileImages& before, const std::vector<FaultDisk::Event>& log,
                     const std::function<void(const FileImages&, const std::string&)>& check) {
  for (size_t end = 0; end <= log.size(); end++) {
    const std::vector<FaultDisk::Event> prefix(log.begin(), log.begin() + end);
    const std::vector<size_t> v = Volatile(prefix);
    std::vector<std::set<size_t>> choices;
    if (v.size() <= 10) {
      for (unsigned bits = 0; bits < (1u << v.size()); bits++) {
        std::set<size_t> keep;
        for (size_t i = 0; i < v.size(); i++)
          if (bits & (1u << i)) keep.insert(v[i]);
        choices.push_back(keep);
      }
    } else {
      for (size_t n = 0; n <= v.size(); n++) choices.emplace_back(v.begin(), v.begin() + n);
    }
    for (const std::set<size_t>& keep : choices) {
      std::string what = "power cut after " + std::to_string(end) + " of " +
                         std::to_string(log.size()) + " events, volatile ones kept:";
      for (size_t i : keep) what += " " + std::to_string(i);
      check(AfterPowerLoss(before, prefix, keep), what);
    }
  }
}
