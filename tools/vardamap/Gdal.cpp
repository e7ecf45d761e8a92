#include "Gdal.h"

#include "Errors.h"

#ifdef VARDAMAP_WITH_GDAL
#include <cpl_error.h>
#include <gdal.h>
#endif

namespace vardamap {

void NoGdal(const std::string& what) {
  throw Usage(what + " needs GDAL, and this vardamap is built without GDAL (the x86-64 build has it)");
}

#ifdef VARDAMAP_WITH_GDAL

std::string GdalVersion() { return GDALVersionInfo("RELEASE_NAME"); }

void InitGdal() {
  static bool done = false;
  if (done) return;
  done = true;
  CPLSetErrorHandler(CPLQuietErrorHandler);
  GDALAllRegister();
}

std::string GdalMessage(const std::string& fallback) {
  const char* text = CPLGetLastErrorMsg();
  std::string message = text && *text ? text : fallback;
  CPLErrorReset();
  return message;
}

#else

std::string GdalVersion() { return ""; }

#endif

}  // namespace vardamap
