// The identification exports and the exported message formats.
#include "VardaPlugIn.h"
#include "plugin/exports/Export.h"

// Replaceable by the host: read at the moment a message is composed.
extern "C" {
VARDA_EXPORT_DATA const char* fmt_open = "Error: File %s not found.";
VARDA_EXPORT_DATA const char* fmt_save = "Error: Cannot open %s for saving.";
}

namespace {
const char kTipoArchivos[] = "6|SHP Vector Maps|shp|";
const char kVersionStr[] = "VardaGPS SHP & E00 Plug-In, version 1.02";
}  // namespace

VARDA_EXPORT int32_t VardaPlugIn_Version() { return 4; }
VARDA_EXPORT int32_t VardaPlugIn_VersionPriv() { return 1; }
VARDA_EXPORT int32_t VardaPlugIn_Init() { return 1; }
VARDA_EXPORT const char* VardaPlugIn_GetTipoArchivos() { return kTipoArchivos; }
VARDA_EXPORT const char* VardaPlugIn_VersionStr() { return kVersionStr; }
