// Export.h - marks the few symbols the plug-in shows to its host.
#ifndef VARDA_PLUGIN_EXPORT_H
#define VARDA_PLUGIN_EXPORT_H

#define VARDA_EXPORT extern "C" __attribute__((visibility("default")))
// For data defined inside an extern "C" block (an initialised extern warns).
#define VARDA_EXPORT_DATA __attribute__((visibility("default")))

#endif
