// MapIO.h - reads, writes and moves in a map's files whose every result is
// checked. On failure the text for the host names the file and the system's
// reason, e.g. "Error: cannot write roads.shp: No space left on device.", and
// the caller ends its operation with it.
#ifndef VARDA_PLUGIN_MAPIO_H
#define VARDA_PLUGIN_MAPIO_H

#include "file/FicheroITV.h"
#include "string/DString.h"

namespace mapio {

// "Error: cannot <verbo> <file>: <reason>." with the reason of `errnum`, or
// `sin_errno` when the system gave none (a short read at the end of a file).
DString Mensaje(const char* verbo, const char* fichero, int errnum,
                const char* sin_errno = "the file ends before the data");

bool Lee(TFicheroITV& f, long long pos, void* buf, long long n, DString& msg);
bool Escribe(TFicheroITV& f, long long pos, const void* buf, long long n, DString& msg);
// At the file's current position.
bool EscribeAqui(TFicheroITV& f, const void* buf, long long n, DString& msg);
bool Situa(TFicheroITV& f, long long pos, DString& msg);
// n zero bytes from pos.
bool Ceros(TFicheroITV& f, long long pos, long long n, DString& msg);
// The bytes from `desde` up to `fin` shifted by `d` (freed bytes at the end
// become zeros); every block read and written is checked.
bool Mueve(TFicheroITV& f, long long desde, long long d, long long fin, DString& msg);
// The same move, with the bytes read from `origen` (the file as it was) and
// written into `f`, a copy of it that holds every byte the move leaves.
bool MueveDesde(TFicheroITV& origen, TFicheroITV& f, long long desde, long long d, long long fin,
                DString& msg);
bool Vuelca(TFicheroITV& f, DString& msg);

}  // namespace mapio

#endif
