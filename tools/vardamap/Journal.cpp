#include "Journal.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "Commands.h"
#include "ShpHeader.h"

namespace vardamap {

namespace {

// The journal's layout. The tool links nothing of the plug-in, so these
// mirror the constants of src/plugin/MapJournalFormat.h (the plug-in's
// source of truth); every number in the file is little-endian.
constexpr char kMagic[8] = {'V', 'R', 'D', 'J', 'N', 'L', '0', '1'};
constexpr char kMagicDone[8] = {'V', 'R', 'D', 'J', 'D', 'O', 'N', 'E'};
constexpr char kMagicEnd[8] = {'V', 'R', 'D', 'J', 'E', 'N', 'D', '1'};
constexpr uint32_t kClassUndo = 1;
constexpr uint32_t kClassAppends = 2;
constexpr uint32_t kClassReplace = 3;
constexpr uint32_t kPieceShp = 0, kPieceShx = 1, kPieceCopyShp = 2, kPieceCopyShx = 3;
constexpr int kHeaderSize = 48;
constexpr int kPieceSize = 24;
constexpr int kEndSize = 16;

uint32_t Le32(const unsigned char* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
long long Le64(const unsigned char* p) {
  return static_cast<long long>(uint64_t(Le32(p)) | uint64_t(Le32(p + 4)) << 32);
}

// The reflected IEEE CRC-32 the journal's checks use.
uint32_t Crc32(uint32_t crc, const unsigned char* p, size_t n) {
  static uint32_t table[256];
  static bool ready = false;
  if (!ready) {
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t c = i;
      for (int k = 0; k < 8; ++k) c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
      table[i] = c;
    }
    ready = true;
  }
  crc = ~crc;
  for (size_t i = 0; i < n; ++i) crc = table[(crc ^ p[i]) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

class File {
 public:
  explicit File(const std::string& path) : f_(std::fopen(path.c_str(), "rb")) {}
  ~File() {
    if (f_) std::fclose(f_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  bool open() const { return f_ != nullptr; }
  bool Read(long long at, unsigned char* buf, size_t n) {
    return fseeko(f_, static_cast<off_t>(at), SEEK_SET) == 0 && std::fread(buf, 1, n, f_) == n;
  }

 private:
  FILE* f_;
};

}  // namespace

JournalFound InspectJournal(const std::string& shp_path) {
  JournalFound found;
  const std::string path = shp_path + ".jnl";
  const long long size = FileSize(path);
  if (size < 0) return found;
  found.path = path;
  found.kind = JournalFound::kCutShort;
  File f(path);
  unsigned char h[kHeaderSize];
  if (!f.open() || size < kHeaderSize || !f.Read(0, h, sizeof h)) return found;
  if (std::memcmp(h, kMagicDone, 8) == 0) {
    found.kind = JournalFound::kFinished;
    return found;
  }
  const uint32_t cls = Le32(h + 8);
  if (std::memcmp(h, kMagic, 8) != 0 || Crc32(0, h, 44) != Le32(h + 44) ||
      (cls != kClassUndo && cls != kClassAppends && cls != kClassReplace))
    return found;
  // The change was meant to touch the map only once the closing mark, which
  // counts the pieces and checks their heads, was written after them.
  uint32_t crc = Crc32(0, h, sizeof h);
  uint32_t pieces = 0;
  bool from_backup = false;
  for (long long pos = kHeaderSize; pos + kEndSize <= size;) {
    unsigned char p[kPieceSize];
    const size_t n = pos + kPieceSize <= size ? kPieceSize : kEndSize;
    if (!f.Read(pos, p, n)) return found;
    if (std::memcmp(p, kMagicEnd, 8) == 0) {
      if (Le32(p + 8) != pieces || Le32(p + 12) != crc) return found;
      if (cls == kClassAppends) {
        found.kind = JournalFound::kAppends;
        found.records_before = Le32(h + 32);
      } else if (cls == kClassReplace) {
        found.kind = JournalFound::kReplaced;
      } else {
        found.kind = from_backup ? JournalFound::kUndoBackup : JournalFound::kUndoKept;
      }
      return found;
    }
    if (n < kPieceSize || Crc32(0, p, 20) != Le32(p + 20)) return found;
    const long long length = Le64(p + 8);
    const uint32_t type = Le32(p + 16);
    if (length < 0 || type > kPieceCopyShx) return found;
    if (pieces == 0) from_backup = type == kPieceCopyShp || type == kPieceCopyShx;
    crc = Crc32(crc, p, sizeof p);
    ++pieces;
    pos += kPieceSize;
    if (type == kPieceShp || type == kPieceShx) pos += length;  // the kept bytes follow
  }
  return found;
}

std::string DescribeRecovery(const JournalFound& found, long long records) {
  const std::string name = BaseName(found.path);
  switch (found.kind) {
    case JournalFound::kUndoKept:
      return "an interrupted replace or delete was undone from " + name;
    case JournalFound::kUndoBackup:
      return "an interrupted first change was undone from the .bak copies";
    case JournalFound::kAppends:
      return "the appends of an interrupted session were written from " + name + ": records " +
             std::to_string(found.records_before + 1ull) + " to " + std::to_string(records);
    case JournalFound::kReplaced:
      return "a replace or delete that had finished on copies of the files was put in place "
             "of the map (" + name + ")";
    case JournalFound::kCutShort:
      return "an interrupted change that had not touched the map was discarded (" + name + ")";
    default:
      return "";
  }
}

}  // namespace vardamap
