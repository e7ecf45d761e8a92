// MapRead.h - reading a map on behalf of a change.
#ifndef VARDA_PLUGIN_MAPREAD_H
#define VARDA_PLUGIN_MAPREAD_H

#include "VardaPlugIn.h"

class TPrivateDataSHP;

// A change needs the header, the length and the record count that reading
// loads. When the host changes an existing map it has not read (or whose
// read a callback left by throwing), the map is read first, delivering
// nothing. False when that read refused the map; its message has gone out.
bool LeeAntesDeCambiar(TPrivateDataSHP& d, TStringPlugIn* err);

#endif
