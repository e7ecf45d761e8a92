// ShapeReader.h - delivery of the shapes of a map to the host's reader.
#ifndef VARDA_PLUGIN_SHAPEREADER_H
#define VARDA_PLUGIN_SHAPEREADER_H

#include <cstddef>
#include <cstring>

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

// The constructor's defaults of a line-attribute record, built once when the
// module loads: every delivered shape starts from a byte copy of them.
struct TAtributosPorDefecto {
  alignas(TLineAttributesPlugIn) unsigned char bytes[sizeof(TLineAttributesPlugIn)] = {};
  TAtributosPorDefecto();
};
extern const TAtributosPorDefecto kAtributosPorDefecto;

// Storage for a point record whose doubles start on 8-byte boundaries (the
// record itself, packed, only asks for 4): a host's 8-byte loads of X, Y and
// Z then take them straight from the stores just made, which some processors
// cannot do for a store that is not 8-byte aligned.
struct TPuntoAlineado {
  alignas(8) unsigned char antes[4];
  TVectorPointPlugIn pt;
};
static_assert(offsetof(TPuntoAlineado, pt) == 4, "the point's X at 8 bytes from an 8-byte boundary");

// Copies coordinates byte for byte. An x87 host (i386) reads each of them
// with one 64-bit load, which cannot take its bytes from two 32-bit stores
// still in flight and waits for them to reach the cache; so on i386 each
// coordinate is moved with one 64-bit store, through the FPU's integer load
// and store, which are exact for every bit pattern (no NaN is changed).
inline void CopiaCoordenadas(unsigned char* destino, const unsigned char* origen, int n) {
#if defined(__i386__) && !defined(__SSE2__)
  for (int i = 0; i < n; i++) {
    long double t;
    __asm__("fildll %1" : "=t"(t) : "m"(*reinterpret_cast<const long long*>(origen + 8 * i)));
    __asm__("fistpll %0" : "=m"(*reinterpret_cast<long long*>(destino + 8 * i)) : "t"(t) : "st");
  }
#else
  std::memcpy(destino, origen, 8 * static_cast<size_t>(n));
#endif
}

// Delivers one point shape (flags 3, one point: the X and Y at `xy`, Z 0.0)
// with fresh records. Inline so that a walk over a point map pays no call of
// its own per record; the coordinates are read after BeginLine, straight from
// the contents, as a host reader would.
// Deliberate: unlike lines, an exception from a callback goes on to the host.
inline void Entrega_Punto(TReadVectorMapPlugIn* reader, int id, const unsigned char* xy) {
  alignas(TLineAttributesPlugIn) unsigned char bytes[sizeof(TLineAttributesPlugIn)];
  std::memcpy(bytes, kAtributosPorDefecto.bytes, sizeof bytes);
  TLineAttributesPlugIn& attr = *reinterpret_cast<TLineAttributesPlugIn*>(bytes);
  attr.id_bd = id;
  attr.flags = 3;
  attr.num_puntos = 1;
  const int32_t h = reader->BeginLine ? reader->BeginLine(reader, &attr) : -1;
  if (!reader->AddPoint) return;
  // Each field is stored once, none overlapping another: the host's loads
  // of X, Y and Z each find the one store that holds them.
  TPuntoAlineado alineado;
  TVectorPointPlugIn& pt = alineado.pt;
  pt.tamanyo = 40;
  CopiaCoordenadas(reinterpret_cast<unsigned char*>(&pt.x), xy, 2);
  pt.z = 0.0;
  pt.m = -1.0;
  std::memset(pt.host_36, 0, sizeof pt.host_36);
  reader->AddPoint(reader, h, &pt, 1);
}

#endif
