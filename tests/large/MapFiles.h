// MapFiles.h - large PolyLine maps written and checked straight on disk,
// without the plug-in: the generator that makes them, the independent
// checker that judges what the plug-in left, and the map too large for the
// format's 32-bit lengths.
#ifndef VARDA_LARGE_MAPFILES_H
#define VARDA_LARGE_MAPFILES_H

#include <cstdint>
#include <string>
#include <vector>

namespace large {

// The points of every shape come from a seed: X rises strictly along the
// line (so no point returns to the first and the line stays one part), Y
// follows the seed; every value is exact in binary. An original record n
// of a written map has seed n and kOriginalPoints points.
constexpr int kOriginalPoints = 60;
void PatternPoints(uint32_t seed, int points, double* xy);

// The contents of a PolyLine record of the pattern (everything after the
// 8-byte record header), as the plug-in writes it for a one-part line.
void PolyLineContent(uint32_t seed, int points, std::vector<unsigned char>& out);

// What one record of a map should hold.
struct Expected {
  uint32_t seed;
  int points;
};

// Writes STEM.shp and STEM.shx with `records` original records in large
// blocks; a header box over all of them. Throws std::runtime_error.
void WriteMap(const std::string& stem, long long records);

// Checks STEM.shp against STEM.shx and `records`, with no help from the
// plug-in: headers (code, version, type, equal images, lengths in words),
// every index entry against its record header, consecutive record numbers,
// each record's bytes, the box covering every record, nothing but zeros
// after the counted end. Returns the faults found (empty: sound); stops
// listing after a few.
std::vector<std::string> CheckMap(const std::string& stem, const std::vector<Expected>& records);

// A map whose real size (about 4.5 GB) is beyond what the header's length
// in 16-bit words can state as a signed 32-bit number: small records at
// the start and beyond 4 GiB, four records of 70 million points between
// them left as a hole of the sparse file. The index is exact except that
// its offsets and the header lengths keep only their low 32 bits, as a
// writer that wrapped them would leave them. Returns the .shp size.
long long WriteOversizedMap(const std::string& stem);

}  // namespace large

#endif
