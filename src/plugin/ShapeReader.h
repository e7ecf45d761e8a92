// ShapeReader.h - delivery of the shapes of a map to the host's reader.
#ifndef VARDA_PLUGIN_SHAPEREADER_H
#define VARDA_PLUGIN_SHAPEREADER_H

#include "VardaPlugIn.h"

// The "inpoint" filter of one read call: only line shapes whose bounding box
// strictly contains (x, y) are delivered, and no point shapes.
struct TSearchParams {
  bool inpoint = false;
  double x = 0.0;
  double y = 0.0;
};

// Builds the filter from the reader's options text ("inpoint=x,y;...").
TSearchParams Lee_Opciones(const char* opciones);

// What a shape reader found wrong with a record's contents; null when the
// record was delivered (or filtered out) normally.
using TErrorRegistro = const char*;

// One reader per shape family. `datos` holds the record contents after the
// shape-type word (`len` bytes); `id` is the database id to deliver.
TErrorRegistro Lee_Polilinea(TReadVectorMapPlugIn* reader, int tipo, const unsigned char* datos,
                             int len, int id, const TSearchParams& params);
TErrorRegistro Lee_MultiPunto(TReadVectorMapPlugIn* reader, int tipo, const unsigned char* datos,
                              int len, int id, const TSearchParams& params);
TErrorRegistro Lee_Punto(TReadVectorMapPlugIn* reader, int tipo, const unsigned char* datos,
                         int len, int id, const TSearchParams& params);

#endif
