#include "support/MemoryDisk.h"

#include <cerrno>
#include <cstring>

#include "file/FicheroITV.h"
#include "file/FicheroITVBase.h"
#include "file/FicheroITVStdio.h"
#include "filesys/StringNomFitx.h"
#include "string/DString.h"

namespace {

// Far above any test's files, far below what would exhaust memory.
constexpr long long kMaxFileSize = 1LL << 30;

// One open file of the memory disk, with the disk backend's rules: a read
// that meets the end of the data fails with no error number and sets eof
// until the next seek or write; an appending backend writes at the end.
class MemoryBackend : public TFicheroITV_Base {
 public:
  explicit MemoryBackend(MemoryDisk& disk) : disk_(disk) {}

  bool Abre(const TStringNomFitx& name, int& mode, DString* err) override {
    DString str_modo;
    TFicheroITV_stdio::Calcula_str_stdio(mode, str_modo);  // throws on a bad mode
    file_.reset();
    const char kind = str_modo.c_str()[0];
    const bool update = str_modo.c_str()[1] == '+';
    error_ = 0;
    at_end_ = false;
    if (kind == 'r')
      file_ = disk_.Find(name.c_str());
    else
      file_ = disk_.FindOrCreate(name.c_str());
    if (!file_) {
      error_ = kind == 'r' ? ENOENT : errno;
      TFicheroITV::ComposeStringError(err, (mode & MODO_ESCRIBIR) != 0, name, nullptr);
      errno = error_;
      return false;
    }
    if (kind == 'w') file_->data.clear();
    readable_ = kind == 'r' || update;
    writable_ = kind != 'r' || update;
    append_ = kind == 'a';
    // A write-only append file starts at its end; one that may also read
    // starts at 0 for its reads.
    pos_ = append_ && !update ? Size() : 0;
    return true;
  }

  bool Cierra(DString*) override {
    file_.reset();
    at_end_ = false;
    return true;
  }

  bool Abierto() const override { return file_ != nullptr; }

  bool LeeBytes(void* buf, int n) override {
    if (!file_ || !readable_) return Fail(EBADF);
    if (n < 0) return Fail(EINVAL);
    const long long size = Size();
    const long long avail = pos_ < size ? size - pos_ : 0;
    const long long done = n < avail ? n : avail;
    if (done > 0) std::memcpy(buf, file_->data.data() + pos_, static_cast<size_t>(done));
    pos_ += done;
    if (done == n) return true;
    at_end_ = true;
    error_ = 0;
    return false;
  }

  bool GuardaBytes(const void* buf, int n) override {
    if (!file_ || !writable_) return Fail(EBADF);
    if (n < 0) return Fail(EINVAL);
    at_end_ = false;
    if (append_) pos_ = Size();
    // A file past the limit fails as on a disk whose limit it is.
    if (pos_ + n > kMaxFileSize) return Fail(EFBIG);
    const size_t end = static_cast<size_t>(pos_) + static_cast<size_t>(n);
    if (end > file_->data.size()) file_->data.resize(end);  // a gap reads as zeros
    if (n > 0) std::memcpy(file_->data.data() + pos_, buf, static_cast<size_t>(n));
    pos_ += n;
    return true;
  }

  bool Posicionate64(long long pos) override {
    if (!file_) return Fail(EBADF);
    if (pos < 0) return Fail(EINVAL);
    at_end_ = false;
    pos_ = pos;
    return true;
  }

  bool eof() override { return !file_ || at_end_; }
  long long PosActual64() override { return file_ ? pos_ : 0; }
  long long FileSize64() override { return file_ ? Size() : 0; }
  int Flush() override { return 0; }
  int Errno() const override { return error_; }
  bool Sincroniza() override { return file_ ? true : Fail(EBADF); }

  bool Trunca(long long length) override {
    if (!file_) return Fail(EBADF);
    if (length < 0 || !writable_) return Fail(EINVAL);
    if (length > kMaxFileSize) return Fail(EFBIG);
    file_->data.resize(static_cast<size_t>(length));
    return true;
  }

 private:
  long long Size() const { return static_cast<long long>(file_->data.size()); }
  bool Fail(int e) {
    error_ = e;
    errno = e;
    return false;
  }

  MemoryDisk& disk_;
  std::shared_ptr<MemoryDisk::File> file_;
  long long pos_ = 0;
  bool readable_ = false, writable_ = false, append_ = false;
  bool at_end_ = false;
  int error_ = 0;
};

bool Fails(int e) {
  errno = e;
  return false;
}

}  // namespace

TFicheroITV_Base* MemoryDisk::NuevoBackend(const TStringNomFitx&, int) {
  return new MemoryBackend(*this);
}

TSistemaFicheros::TTipo MemoryDisk::Tipo(const char* nombre) {
  return nombre && Find(nombre) ? kRegular : kNoExiste;
}

long long MemoryDisk::Tamanyo(const char* nombre) {
  std::shared_ptr<File> f = nombre ? Find(nombre) : nullptr;
  if (!f) {
    errno = ENOENT;
    return -1;
  }
  return static_cast<long long>(f->data.size());
}

bool MemoryDisk::Borra(const char* nombre) {
  if (!nombre || !Find(nombre)) return Fails(ENOENT);
  if (read_only_) return Fails(EACCES);
  files_.erase(nombre);
  return true;
}

bool MemoryDisk::Renombra(const char* de, const char* a) {
  if (!de || !a || !Find(de)) return Fails(ENOENT);
  if (read_only_) return Fails(EACCES);
  if (std::strcmp(de, a) == 0) return true;
  files_[a] = files_[de];
  files_.erase(de);
  return true;
}

bool MemoryDisk::SincronizaCarpeta(const char*) { return true; }

std::shared_ptr<MemoryDisk::File> MemoryDisk::Find(const std::string& name) const {
  auto it = files_.find(name);
  return it == files_.end() ? nullptr : it->second;
}

std::shared_ptr<MemoryDisk::File> MemoryDisk::FindOrCreate(const std::string& name) {
  if (std::shared_ptr<File> f = Find(name)) return f;
  if (read_only_) {
    errno = EACCES;
    return nullptr;
  }
  std::shared_ptr<File> f = std::make_shared<File>();
  files_[name] = f;
  return f;
}

void MemoryDisk::Put(const std::string& name, const Bytes& bytes) {
  std::shared_ptr<File> f = std::make_shared<File>();
  f->data = bytes;
  files_[name] = f;
}

void MemoryDisk::Put(const std::string& name, const std::string& bytes) {
  Put(name, Bytes(bytes.begin(), bytes.end()));
}

MemoryDisk::Bytes MemoryDisk::Get(const std::string& name) const {
  std::shared_ptr<File> f = Find(name);
  return f ? f->data : Bytes();
}

std::string MemoryDisk::GetString(const std::string& name) const {
  const Bytes b = Get(name);
  return std::string(b.begin(), b.end());
}

std::vector<std::string> MemoryDisk::Names() const {
  std::vector<std::string> names;
  for (const auto& f : files_) names.push_back(f.first);
  return names;
}

std::map<std::string, MemoryDisk::Bytes> MemoryDisk::Files() const {
  std::map<std::string, Bytes> all;
  for (const auto& f : files_) all[f.first] = f.second->data;
  return all;
}
