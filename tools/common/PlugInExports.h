// PlugInExports.h - the plug-in's exports as a host program resolves them by
// name from the library it opened with dlopen.
#ifndef VARDA_TOOLS_PLUGINEXPORTS_H
#define VARDA_TOOLS_PLUGINEXPORTS_H

#include <dlfcn.h>

#include <cstring>

#include "VardaPlugIn.h"

namespace host {

struct PlugInExports {
  VardaPlugIn_Version_t Version = nullptr;
  VardaPlugIn_VersionPriv_t VersionPriv = nullptr;
  VardaPlugIn_Init_t Init = nullptr;
  VardaPlugIn_GetTipoArchivos_t GetTipoArchivos = nullptr;
  VardaPlugIn_VersionStr_t VersionStr = nullptr;
  VardaPlugIn_Open_Vector_Map_t Open = nullptr;
  VardaPlugIn_Read_Vector_Map3_t Read = nullptr;
  VardaPlugIn_Add_Poliline_Vector_Map_t Add = nullptr;
  VardaPlugIn_Delete_Poliline_Vector_Map_t Delete = nullptr;
  VardaPlugIn_Close_Vector_Map_t Close = nullptr;

  // Resolves every export; returns the name of the first one missing, or
  // null when all are there.
  const char* Resolve(void* handle) {
    const char* missing = nullptr;
    auto get = [handle, &missing](const char* name, auto& fn) {
      if (missing) return;
      void* s = dlsym(handle, name);
      static_assert(sizeof fn == sizeof s, "function and data pointers differ in size");
      if (s)
        std::memcpy(&fn, &s, sizeof fn);  // dlsym hands functions out as void*
      else
        missing = name;
    };
    get("VardaPlugIn_Version", Version);
    get("VardaPlugIn_VersionPriv", VersionPriv);
    get("VardaPlugIn_Init", Init);
    get("VardaPlugIn_GetTipoArchivos", GetTipoArchivos);
    get("VardaPlugIn_VersionStr", VersionStr);
    get("VardaPlugIn_Open_Vector_Map", Open);
    get("VardaPlugIn_Read_Vector_Map3", Read);
    get("VardaPlugIn_Add_Poliline_Vector_Map", Add);
    get("VardaPlugIn_Delete_Poliline_Vector_Map", Delete);
    get("VardaPlugIn_Close_Vector_Map", Close);
    return missing;
  }
};

}  // namespace host

#endif
