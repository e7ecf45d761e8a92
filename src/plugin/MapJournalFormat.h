// MapJournalFormat.h - how the journal beside a map (<map>.shp.jnl) begins:
// enough for a tool to say what an interrupted session left, without the
// plug-in. Every number in the journal is little-endian.
//
// Layout:
//   header  (48 bytes): magic, class, created flag, size of the .shp and of
//           the .shx before the change, record count before it, CRC-32 of
//           the bytes before the CRC
//   pieces  : each a 24-byte head (offset, length, which file, CRC-32 of the
//           head) and, for kept bytes, the bytes themselves
//   closing mark (16 bytes): end magic, number of pieces, CRC-32 of the
//           header and of every piece head. Written only once everything
//           before it is on the disk.
//   entries (a run of appends only): each the record as the .shp holds it,
//           the header it leaves, and a CRC-32 of the entry.
#ifndef VARDA_PLUGIN_MAPJOURNALFORMAT_H
#define VARDA_PLUGIN_MAPJOURNALFORMAT_H

#include <cstdint>

namespace diario {

constexpr char kSufijo[] = ".jnl";
constexpr char kMagia[8] = {'V', 'R', 'D', 'J', 'N', 'L', '0', '1'};
// Overwrites the magic once the change it guarded is on the disk: such a
// journal is only left to be removed.
constexpr char kMagiaHecho[8] = {'V', 'R', 'D', 'J', 'D', 'O', 'N', 'E'};
constexpr char kMagiaFin[8] = {'V', 'R', 'D', 'J', 'E', 'N', 'D', '1'};

enum TClase : uint32_t {
  kDeshacer = 1,    // the bytes a replace or delete overwrites, to put back
  kAnyadidos = 2,   // a run of appends, to write (again) into the map
  kSustituye = 3,   // whole copies of both files (<name>.jnlcopy), to rename over the map
};

// What the copies of a change made on copies are called: the file's name
// and this suffix.
constexpr char kSufijoCopia[] = ".jnlcopy";

// Which file a piece is of. The copies stand for the whole file as the
// fresh ".bak" copies hold it, instead of its bytes.
enum TPieza : uint32_t { kShp = 0, kShx = 1, kCopiaShp = 2, kCopiaShx = 3 };

constexpr int kTamCabecera = 48;
constexpr int kTamPieza = 24;
constexpr int kTamFin = 16;
constexpr int kOffsetClase = 8;

}  // namespace diario

#endif
