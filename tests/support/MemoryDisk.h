// MemoryDisk.h - a file system held in memory, for tests and the fuzz target:
// installed through the file system seam, it serves every file object of the
// process from byte vectors keyed by name, with the open modes of the disk
// backend ("r", "r+", "w", "w+", "a", "a+").
//
// Like the disk, a file that is removed or renamed while open stays usable
// through the backends that have it open. Not locked: one thread at a time.
#ifndef VARDA_TESTS_SUPPORT_MEMORYDISK_H
#define VARDA_TESTS_SUPPORT_MEMORYDISK_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "file/SistemaFicheros.h"

class MemoryDisk : public TSistemaFicheros {
 public:
  using Bytes = std::vector<unsigned char>;

  MemoryDisk() = default;
  MemoryDisk(const MemoryDisk&) = delete;
  MemoryDisk& operator=(const MemoryDisk&) = delete;

  TFicheroITV_Base* NuevoBackend(const TStringNomFitx& nombre, int modo) override;
  TTipo Tipo(const char* nombre) override;
  long long Tamanyo(const char* nombre) override;
  bool Borra(const char* nombre) override;
  bool Renombra(const char* de, const char* a) override;
  // Nothing is lost in memory: always true.
  bool SincronizaCarpeta(const char* nombre) override;

  // The test's side: creates or replaces a file, reads one back.
  void Put(const std::string& name, const Bytes& bytes);
  void Put(const std::string& name, const std::string& bytes);
  bool Exists(const std::string& name) const { return files_.count(name) != 0; }
  // The file's bytes; empty when there is no such file.
  Bytes Get(const std::string& name) const;
  std::string GetString(const std::string& name) const;
  // Every file name, sorted.
  std::vector<std::string> Names() const;
  // Every file as name -> bytes.
  std::map<std::string, Bytes> Files() const;
  void Clear() { files_.clear(); }

  // As a folder without write permission: no file can be created, removed
  // or renamed (EACCES); files already there can still be opened and changed.
  void SetReadOnly(bool on) { read_only_ = on; }
  bool ReadOnly() const { return read_only_; }

  // Shared with the backends: a file stays alive while one has it open.
  struct File {
    Bytes data;
  };
  std::shared_ptr<File> Find(const std::string& name) const;
  // The file under `name`, created empty when missing; null (errno EACCES)
  // when it is missing and the disk is read-only.
  std::shared_ptr<File> FindOrCreate(const std::string& name);

 private:
  std::map<std::string, std::shared_ptr<File>> files_;
  bool read_only_ = false;
};

// Installs a file system for the life of the object, and puts back the one
// it replaced.
class ScopedFileSystem {
 public:
  explicit ScopedFileSystem(TSistemaFicheros& s) : before_(CambiaSistemaFicheros(&s)) {}
  ~ScopedFileSystem() { CambiaSistemaFicheros(before_); }
  ScopedFileSystem(const ScopedFileSystem&) = delete;
  ScopedFileSystem& operator=(const ScopedFileSystem&) = delete;

 private:
  TSistemaFicheros* before_;
};

#endif
