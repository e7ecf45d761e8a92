// Floor.h - the least work that reading a map for a host takes, done with no
// library: the bound under the plug-in's read time that no reader can beat.
#ifndef VARDA_BENCH_FLOOR_H
#define VARDA_BENCH_FLOOR_H

#include <string>

#include "VardaPlugIn.h"

namespace bench {

// Blocks of the floor's read() calls.
constexpr long long kFloorBlock = 256 << 10;

// Reads the .shp strictly forward with read() in kFloorBlock blocks, without
// the index, and parses every record as a host-facing reader must: for each
// shape a line-attribute record copied from the defaults and given its id,
// flags and point count, then BeginLine; each vertex copied into one 40-byte
// point record and handed to AddPoint, both called through the reader
// record's pointers. Takes the shape types of the benchmark's maps (Point,
// PolyLine, PolygonZ and their kin) and stops at an end mark. Returns the
// records delivered, or -1 with a message for a record it cannot parse.
long long ParseFloor(const std::string& shp, TReadVectorMapPlugIn* reader, std::string& error);

}  // namespace bench

#endif
