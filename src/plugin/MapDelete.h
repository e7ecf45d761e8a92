// MapDelete.h - deletion of one record, as the delete export does it.
#ifndef VARDA_PLUGIN_MAPDELETE_H
#define VARDA_PLUGIN_MAPDELETE_H

#include "VardaPlugIn.h"

class TPrivateDataSHP;

// Size of the blocks in which the tail of the main file moves.
constexpr int kBloqueBorrado = 1 << 20;

// Deletes record k (checked to be within 1 .. record count) of a map already
// in write mode. Later records normally are renumbered while the tail moves
// through memory in blocks of `bloque` bytes; with `literal`, or when they are
// not in file order, the tail is moved first and the records renumbered one by
// one. Both give the same files, messages and result.
int BorraRegistro(TPrivateDataSHP& d, int k, TStringPlugIn* err, int bloque, bool literal);

#endif
