// FaultDisk.h - a file system that wraps another (the disk or a MemoryDisk)
// and makes it misbehave on request, to test what the code above does when
// the operating system says no, or when the process dies half way:
//
// - Fail: the n-th operation of a kind (counted over all files, or over one
//   file name) fails with a chosen error number, once or from then on.
// - Crash: after so many bytes (or write calls) have gone through, every
//   later write, truncation, sync, removal and rename is dropped but
//   reported as done, as a killed process leaves its files. A write that
//   crosses the limit is torn: only its bytes below the limit land.
// - Log: every write (file, offset, bytes), truncation, sync, creation,
//   removal, rename and folder sync that reached the wrapped file system, in
//   order, so that AfterPowerLoss() can rebuild the files as a power cut
//   would leave them.
//
// Install it with ScopedFileSystem (MemoryDisk.h). Not locked.
#ifndef VARDA_TESTS_SUPPORT_FAULTDISK_H
#define VARDA_TESTS_SUPPORT_FAULTDISK_H

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "file/SistemaFicheros.h"

class FaultDisk : public TSistemaFicheros {
 public:
  using Bytes = std::vector<unsigned char>;

  // Kinds of operation that can be made to fail. kSync covers Flush,
  // Sincroniza and SincronizaCarpeta; kClose counts only the closes of files
  // opened for writing (closing a file that was only read loses nothing).
  enum Op { kOpen, kWrite, kSync, kSeek, kClose, kTruncate, kRemove, kRename, kNumOps };

  struct Event {
    enum Kind { kCreate, kWrite, kTruncate, kSync, kSyncFolder, kRemove, kRename };
    Kind kind;
    std::string name;      // the file (the folder's file for kSyncFolder)
    int file = 0;          // which file: stays with it across renames
    long long offset = 0;  // kWrite
    Bytes bytes;           // kWrite
    long long size = 0;    // kTruncate
    std::string to;        // kRename
  };

  explicit FaultDisk(TSistemaFicheros& inner) : inner_(inner) {}
  FaultDisk(const FaultDisk&) = delete;
  FaultDisk& operator=(const FaultDisk&) = delete;

  // The n-th operation (from 1) of kind `op` fails with `error`; with `name`,
  // only operations on that file count (the full name, or the part after its
  // last "/"). With `from_then_on`, every later one fails as well.
  void Fail(Op op, int n, int error, const std::string& name = std::string(),
            bool from_then_on = false);
  void CrashAfterBytes(long long n) { crash_bytes_ = n; }
  void CrashAfterWrites(int n) { crash_writes_ = n; }
  bool Crashed() const { return crashed_; }

  // Operations of kind `op` seen so far, failed ones included.
  int Count(Op op) const { return counts_[op]; }
  // Failures injected so far, and the file the last one struck.
  int Injected() const { return injected_; }
  const std::string& InjectedInto() const { return injected_into_; }
  const std::vector<Event>& Log() const { return log_; }
  // Forgets failures, crash, counts and log.
  void Reset();

  TFicheroITV_Base* NuevoBackend(const TStringNomFitx& nombre, int modo) override;
  TTipo Tipo(const char* nombre) override { return inner_.Tipo(nombre); }
  long long Tamanyo(const char* nombre) override { return inner_.Tamanyo(nombre); }
  bool Borra(const char* nombre) override;
  bool Renombra(const char* de, const char* a) override;
  bool SincronizaCarpeta(const char* nombre) override;

  // ---- used by the backends
  TSistemaFicheros& inner() { return inner_; }
  // Counts an operation of `op` on `name`; the error number to fail it
  // with, or 0.
  int Check(Op op, const std::string& name);
  // How many of `n` bytes a write may still pass before the crash (n when
  // there is no crash coming); sets the crash when the limit is reached.
  long long Pass(long long n);
  // The file under `name` (a new one when `created`).
  int FileOf(const std::string& name, bool created);
  void Note(Event e) { log_.push_back(std::move(e)); }

 private:
  struct Rule {
    Op op;
    int n;
    int error;
    std::string name;
    bool from_then_on;
    int seen;
  };

  template <class Call>
  bool FolderOp(Op op, Event::Kind kind, const char* name, const char* to, Call call);

  TSistemaFicheros& inner_;
  std::vector<Rule> rules_;
  int counts_[kNumOps] = {};
  int injected_ = 0;
  std::string injected_into_;
  long long crash_bytes_ = -1;
  int crash_writes_ = -1;
  long long bytes_ = 0;
  int writes_ = 0;
  bool crashed_ = false;
  std::vector<Event> log_;
  std::map<std::string, int> files_;
  int next_file_ = 1;
};

using FileImages = std::map<std::string, FaultDisk::Bytes>;

// Indices of the log's events that a power cut may lose: a write or
// truncation with no later sync of its file, a creation, removal or rename
// with no later sync of its folder.
std::vector<size_t> Volatile(const std::vector<FaultDisk::Event>& log);

// The files as a power cut after the last logged event leaves them: starting
// from `before` (name -> bytes, as the files were when the log began), every
// durable event is applied in order, and of the volatile ones only those
// whose indices are in `keep`.
FileImages AfterPowerLoss(const FileImages& before, const std::vector<FaultDisk::Event>& log,
                          const std::set<size_t>& keep = {});

// Calls `check` with the files as a power cut leaves them at every point of
// the log (before its first event, after each one), for every combination
// of the events that were volatile at that point; past 10 of them, for the
// combinations that keep them in order up to some event and none after.
// The text says which point and which events were kept.
void ForEachPowerCut(const FileImages& before, const std::vector<FaultDisk::Event>& log,
                     const std::function<void(const FileImages&, const std::string&)>& check);

#endif
