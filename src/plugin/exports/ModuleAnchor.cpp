// The shared module is made of the whole plug-in and support libraries (see
// the build); this unit only gives the module target a source of its own.
// What the host may see is fixed by VardaPlugIn_SHP.map.
