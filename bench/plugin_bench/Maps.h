// Maps.h - writes the benchmark's shapefiles straight from a generator.
//
// The maps are made here rather than taken from elsewhere so that every run
// measures the same bytes on every machine. The writer streams: it keeps one
// record and two output buffers in memory whatever the map's size.
#ifndef VARDA_BENCH_MAPS_H
#define VARDA_BENCH_MAPS_H

#include <string>

namespace bench {

enum class MapKind { PolyLine, PolygonZ, Point };

struct MapSpec {
  MapKind kind;
  long long records;
  int points;  // per record
  int parts;   // per record (1 for points and lines)
};

// A written map: both file names and what a reader must find in it.
struct MapFiles {
  std::string stem;  // path without extension
  std::string shp;
  std::string shx;
  long long records = 0;
  long long vertices = 0;   // points delivered when every record is read
  long long shp_bytes = 0;
  long long first_record_bytes = 0;  // record header included
};

const char* KindName(MapKind kind);
// Shape type number of the kind in the .shp header.
int KindShapeType(MapKind kind);

// What WriteMap will produce, without writing anything.
MapFiles PlanMap(const std::string& stem, const MapSpec& spec);

// Writes stem.shp and stem.shx. Throws std::runtime_error when the disk
// refuses; a partly written pair is left for the caller's folder clean-up.
MapFiles WriteMap(const std::string& stem, const MapSpec& spec);

// The 16 points of the index-th line of the generator's PolyLine pattern,
// as X, Y pairs; also used for shapes that are appended.
void LinePoints(long long index, int points, double* xy);

}  // namespace bench

#endif
