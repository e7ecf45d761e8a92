// ShapelibDriver.h - the same reading and writing done through shapelib, the
// common C library for shapefiles, for a column of comparison. Built only
// when the library was found for the target architecture.
#ifndef VARDA_BENCH_SHAPELIB_DRIVER_H
#define VARDA_BENCH_SHAPELIB_DRIVER_H

#include <string>

#include "PlugInHost.h"

namespace bench {

bool ShapelibBuilt();
bool ShapelibHasFastMode();

// Reads every object of stem.shp and visits every vertex. False with a
// message when the files cannot be opened.
bool ShapelibRead(const std::string& stem, bool fast_mode, Visit& visit, std::string& error);

// Opens stem.shp for update (untimed part); the handle is kept opaque.
void* ShapelibOpenForUpdate(const std::string& stem, std::string& error);
// Creates a new PolyLine pair at stem.
void* ShapelibCreateLines(const std::string& stem, std::string& error);
// Appends one PolyLine of `count` X, Y pairs; false on a write failure.
bool ShapelibAppendLine(void* handle, int count, const double* x, const double* y);
void ShapelibClose(void* handle);

}  // namespace bench

#endif
