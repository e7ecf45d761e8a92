#include "ShapelibDriver.h"

#ifdef VARDA_BENCH_HAVE_SHAPELIB
#include <shapefil.h>
#endif

namespace bench {

#ifdef VARDA_BENCH_HAVE_SHAPELIB

bool ShapelibBuilt() { return true; }

bool ShapelibHasFastMode() {
#ifdef VARDA_BENCH_SHAPELIB_FASTMODE
  return true;
#else
  return false;
#endif
}

bool ShapelibRead(const std::string& stem, bool fast_mode, Visit& visit, std::string& error) {
  SHPHandle h = SHPOpen(stem.c_str(), "rb");
  if (!h) {
    error = "SHPOpen failed on " + stem;
    return false;
  }
#ifdef VARDA_BENCH_SHAPELIB_FASTMODE
  if (fast_mode) SHPSetFastModeReadObject(h, 1);
#else
  (void)fast_mode;
#endif
  int count = 0, type = 0;
  SHPGetInfo(h, &count, &type, nullptr, nullptr);
  bool ok = true;
  for (int i = 0; i < count; i++) {
    SHPObject* o = SHPReadObject(h, i);
    if (!o) {
      error = "SHPReadObject failed on record " + std::to_string(i + 1);
      ok = false;
      break;
    }
    visit.lines++;
    const double* x = o->padfX;
    const double* y = o->padfY;
    const double* z = o->padfZ;
    if (z) {
      for (int k = 0; k < o->nVertices; k++) visit.sum += x[k] + y[k] + z[k];
    } else {
      for (int k = 0; k < o->nVertices; k++) visit.sum += x[k] + y[k] + 0.0;
    }
    visit.vertices += o->nVertices;
    SHPDestroyObject(o);  // in fast mode this only hands the object back
  }
  SHPClose(h);
  return ok;
}

void* ShapelibOpenForUpdate(const std::string& stem, std::string& error) {
  SHPHandle h = SHPOpen(stem.c_str(), "r+b");
  if (!h) error = "SHPOpen for update failed on " + stem;
  return h;
}

void* ShapelibCreateLines(const std::string& stem, std::string& error) {
  SHPHandle h = SHPCreate(stem.c_str(), SHPT_ARC);
  if (!h) error = "SHPCreate failed on " + stem;
  return h;
}

bool ShapelibAppendLine(void* handle, int count, const double* x, const double* y) {
  SHPObject* o = SHPCreateSimpleObject(SHPT_ARC, count, x, y, nullptr);
  if (!o) return false;
  const int id = SHPWriteObject(static_cast<SHPHandle>(handle), -1, o);
  SHPDestroyObject(o);
  return id >= 0;
}

void ShapelibClose(void* handle) {
  if (handle) SHPClose(static_cast<SHPHandle>(handle));
}

#else  // built without shapelib

bool ShapelibBuilt() { return false; }
bool ShapelibHasFastMode() { return false; }
bool ShapelibRead(const std::string&, bool, Visit&, std::string& error) {
  error = "built without shapelib";
  return false;
}
void* ShapelibOpenForUpdate(const std::string&, std::string& error) {
  error = "built without shapelib";
  return nullptr;
}
void* ShapelibCreateLines(const std::string&, std::string& error) {
  error = "built without shapelib";
  return nullptr;
}
bool ShapelibAppendLine(void*, int, const double*, const double*) { return false; }
void ShapelibClose(void*) {}

#endif

}  // namespace bench
