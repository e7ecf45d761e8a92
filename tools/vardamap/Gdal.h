// Gdal.h - what the tool asks of GDAL/OGR, and how a build without it says
// no. GDAL is linked into the x86-64 build only (VARDAMAP_WITH_GDAL); the
// commands that need it answer with exit 2 elsewhere.
#ifndef VARDAMAP_GDAL_H
#define VARDAMAP_GDAL_H

#include <string>

namespace vardamap {

// "3.6.2", or "" when this build has no GDAL.
std::string GdalVersion();
// Throws ToolError(kExitUsage) saying that `what` needs GDAL.
[[noreturn]] void NoGdal(const std::string& what);

#ifdef VARDAMAP_WITH_GDAL
// Registers the drivers once and routes GDAL's own messages away from the
// terminal: the tool reports them itself, in its own words.
void InitGdal();
// The last message GDAL gave, or `fallback` when it gave none.
std::string GdalMessage(const std::string& fallback);
#endif

}  // namespace vardamap

#endif
