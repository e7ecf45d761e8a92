#include "plugin/ShapeReader.h"

#include <cstddef>
#include <cstring>
#include <new>

#include "core/Vector.h"
#include "plugin/ShapeFileLayout.h"
#include "string/DString.h"

TSearchParams Lee_Opciones(const char* opciones) {
  TSearchParams p;
  if (!opciones) return p;
  DString texto(opciones);
  // Only what stands before the first ";" is an option.
  if (texto.buffer()) {
    if (char* fin = std::strchr(texto.buffer(), ';')) *fin = 0;
  }
  DString clave, valor;
  texto.Separa_Por_Asignacion(clave, valor);
  if (clave.Strcmp("inpoint") != 0) return p;
  Vector<DString> palabras(5, 5, true);
  valor.Separa_En_Palabras(",", palabras, -1, false);
  if (palabras.numero != 2) return p;
  p.inpoint = true;
  p.x = palabras[0].atof(false);
  p.y = palabras[1].atof(false);
  return p;
}

TAtributosPorDefecto::TAtributosPorDefecto() { new (bytes) TLineAttributesPlugIn(); }
const TAtributosPorDefecto kAtributosPorDefecto;

namespace {

using shp::GetDouble;
using shp::GetInt;

// Storage for one delivered line record, filled from the defaults.
struct Atributos {
  alignas(TLineAttributesPlugIn) unsigned char bytes[sizeof(TLineAttributesPlugIn)];
  Atributos() { std::memcpy(bytes, kAtributosPorDefecto.bytes, sizeof bytes); }
  TLineAttributesPlugIn& operator*() { return *reinterpret_cast<TLineAttributesPlugIn*>(bytes); }
};

int Manejador(TReadVectorMapPlugIn* reader, TLineAttributesPlugIn& attr) {
  return reader->BeginLine ? reader->BeginLine(reader, &attr) : -1;
}

}  // namespace

TErrorRegistro Lee_Polilinea(TReadVectorMapPlugIn* reader, int tipo, const unsigned char* datos,
                             int len, int id, const TSearchParams& params) {
  if (len < shp::kPolyParts) return "its contents are too short for a line shape";
  const long long partes = GetInt(datos, shp::kPolyNumParts);
  const long long np = GetInt(datos, shp::kPolyNumPoints);
  if (partes < 0 || np < 0) return "it has a negative number of parts or points";
  const bool con_z = tipo == shp::kPolyLineZ || tipo == shp::kPolygonZ;
  const long long ini_puntos = shp::kPolyParts + 4 * partes;
  const long long ini_z = ini_puntos + 16 * np + 16;
  const long long necesario = con_z ? ini_z + 8 * np : ini_puntos + 16 * np;
  if (necesario > len) return "its numbers of parts and points do not fit its content length";
  if (np > 0 && partes < 1) return "it has points but no parts";
  for (long long i = 0; i < partes; i++) {
    int32_t ini = GetInt(datos, shp::kPolyParts + 4 * i);
    // A part may start right at the end of the points (an empty line); only
    // a start beyond them would point outside the record.
    if (ini < 0 || ini > np) return "a part starts outside its points";
  }

  if (params.inpoint) {
    const double xmin = GetDouble(datos, 0), ymin = GetDouble(datos, 8);
    const double xmax = GetDouble(datos, 16), ymax = GetDouble(datos, 24);
    if (!(xmin < params.x && params.x < xmax && ymin < params.y && params.y < ymax))
      return nullptr;
  }
  if (np < 1) return nullptr;
  // Every part of the record goes out as one line, from the first part on.
  const int s = GetInt(datos, shp::kPolyParts);
  const bool cerrada = tipo == shp::kPolygon || tipo == shp::kPolygonZ;

  Atributos a;
  TLineAttributesPlugIn& attr = *a;
  attr.id_bd = id;
  attr.flags = (cerrada ? 1 : 0) | (con_z ? 0 : 0x80);
  attr.num_puntos = static_cast<int>(np - s);
  try {
    int h = Manejador(reader, attr);
    if (!reader->AddPoint) return nullptr;
    TPuntoAlineado alineado;
    TVectorPointPlugIn& pt = alineado.pt;
    std::memset(&pt, 0, sizeof pt);
    pt.tamanyo = 40;
    pt.m = -1.0;
    // X and Y stand side by side in the file and in the point record.
    unsigned char* pxy = reinterpret_cast<unsigned char*>(&pt) + offsetof(TVectorPointPlugIn, x);
    const unsigned char* xy = datos + ini_puntos + 16LL * s;
    const int ultimo = static_cast<int>(np - 1);
    if (con_z) {
      const unsigned char* z = datos + ini_z + 8LL * s;
      for (int i = s; i <= ultimo; i++, xy += 16, z += 8) {
        CopiaCoordenadas(pxy, xy, 2);
        CopiaCoordenadas(reinterpret_cast<unsigned char*>(&pt.z), z, 1);
        reader->AddPoint(reader, h, &pt, i == ultimo ? 1 : 0);
      }
    } else {
      for (int i = s; i <= ultimo; i++, xy += 16) {
        CopiaCoordenadas(pxy, xy, 2);
        reader->AddPoint(reader, h, &pt, i == ultimo ? 1 : 0);
      }
    }
  } catch (...) {
    // Deliberate: a throwing callback ends this line only; points let it through.
  }
  return nullptr;
}

TErrorRegistro Lee_MultiPunto(TReadVectorMapPlugIn* reader, int, const unsigned char* datos,
                              int len, int id, const TSearchParams& params) {
  if (len < shp::kMultiPoints) return "its contents are too short for a multipoint";
  const long long np = GetInt(datos, shp::kMultiNumPoints);
  if (np < 0) return "it has a negative number of points";
  if (shp::kMultiPoints + 16 * np > len)
    return "its number of points does not fit its content length";
  if (params.inpoint || np < 1) return nullptr;
  // Only the first point of a multipoint reaches the host.
  Entrega_Punto(reader, id, datos + shp::kMultiPoints);
  return nullptr;
}

TErrorRegistro Lee_Punto(TReadVectorMapPlugIn* reader, int, const unsigned char* datos, int len,
                         int id, const TSearchParams& params) {
  if (len < 16) return "its contents are too short for a point";
  if (params.inpoint) return nullptr;
  Entrega_Punto(reader, id, datos);
  return nullptr;
}
