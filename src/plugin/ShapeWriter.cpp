#include "plugin/ShapeWriter.h"

#include <cstring>

#include "plugin/ShapeFileLayout.h"

int Calcula_ShapeType(TLineAttributesPlugIn& line, int num_points, TVectorPointPlugIn* points) {
  // Only the first point's Z decides, however many points there are.
  const bool con_z = num_points > 0 && points[0].z > 2.0;
  switch (line.flags) {
    case 1:
      return con_z ? shp::kPolygonZ : shp::kPolygon;
    case 3:
      return con_z ? shp::kPointZ : shp::kPoint;
    case 0:
      return con_z ? shp::kPolyLineZ : shp::kPolyLine;
    default:
      // Only the exact kinds are recognised; anything else, the flag 0x80
      // included, makes a line with Z.
      return shp::kPolyLineZ;
  }
}

void Calcula_Partes(int num_points, TVectorPointPlugIn* points, Vector<int>& parts) {
  parts.Vacia(parts.propietario);
  RecorrePartes(num_points, points, [&parts](int i) { parts.Anyade(i, -1); });
}

void Incre_ExtremosS(int num_points, const TVectorPointPlugIn* points, bool& extent_set,
                     double& x_min, double& y_min, double& x_max, double& y_max, double& z_max,
                     double& z_min) {
  if (num_points < 1) return;
  int i = 0;
  if (!extent_set) {
    x_min = x_max = points[0].x;
    y_min = y_max = points[0].y;
    z_min = z_max = points[0].z;
    extent_set = true;
    i = 1;
  }
  // Worked on locals: the references could alias the points, which would
  // make every comparison a store and a reload.
  double x0 = x_min, y0 = y_min, z0 = z_min, x1 = x_max, y1 = y_max, z1 = z_max;
  for (; i < num_points; i++) {
    const TVectorPointPlugIn& p = points[i];
    if (p.x < x0) x0 = p.x;
    if (p.y < y0) y0 = p.y;
    if (p.z < z0) z0 = p.z;
    if (p.x > x1) x1 = p.x;
    if (p.y > y1) y1 = p.y;
    if (p.z > z1) z1 = p.z;
  }
  x_min = x0;
  y_min = y0;
  z_min = z0;
  x_max = x1;
  y_max = y1;
  z_max = z1;
}

namespace {

// Writes little-endian values one after the other into a buffer whose size
// was reserved beforehand.
class Escritor {
 public:
  explicit Escritor(unsigned char* p) : p_(p) {}
  void Int(int32_t v) { Pon(&v, 4); }
  void Double(double v) { Pon(&v, 8); }
  void Pon(const void* v, size_t n) {
    std::memcpy(p_, v, n);
    p_ += n;
  }

 private:
  unsigned char* p_;
};

}  // namespace

int Compone_Elemento(int shape_type, int num_points, const TVectorPointPlugIn* points,
                     std::vector<unsigned char>& out) {
  const size_t inicio = out.size();
  if (shape_type == shp::kPoint || shape_type == shp::kPointZ) {
    // Only the first point is written, whatever the number of points.
    const bool z = shape_type == shp::kPointZ;
    out.resize(inicio + (z ? 36 : 20));
    Escritor w(out.data() + inicio);
    w.Int(shape_type);
    w.Double(points[0].x);
    w.Double(points[0].y);
    if (z) {
      w.Double(points[0].z);
      w.Double(0.0);
    }
    return static_cast<int>(out.size() - inicio);
  }
  bool set = false;
  double xmin = 0, ymin = 0, xmax = 0, ymax = 0, zmax = 0.0, zmin = 0.0;
  Incre_ExtremosS(num_points, points, set, xmin, ymin, xmax, ymax, zmax, zmin);
  // One pass counts the parts so that the record is sized once; a second
  // writes their starts.
  int num_partes = 0;
  RecorrePartes(num_points, points, [&num_partes](int) { num_partes++; });
  const bool con_z = shape_type > 9;
  const size_t bytes = 44 + 4 * static_cast<size_t>(num_partes) +
                       16 * static_cast<size_t>(num_points) +
                       (con_z ? 16 + 8 * static_cast<size_t>(num_points) : 0);
  out.resize(inicio + bytes);
  Escritor w(out.data() + inicio);
  w.Int(shape_type);
  w.Double(xmin);
  w.Double(ymin);
  w.Double(xmax);
  w.Double(ymax);
  w.Int(num_partes);
  w.Int(num_points);
  RecorrePartes(num_points, points, [&w](int i) { w.Int(i); });
  for (int i = 0; i < num_points; i++) {
    w.Double(points[i].x);
    w.Double(points[i].y);
  }
  if (con_z) {
    // The Z range goes maximum first, like the header's.
    w.Double(zmax);
    w.Double(zmin);
    for (int i = 0; i < num_points; i++) w.Double(points[i].z);
  }
  return static_cast<int>(bytes);
}

void Guarda_Elemento(int shape_type, TLineAttributesPlugIn&, int num_points,
                     TVectorPointPlugIn* points, TFicheroITV& out) {
  // Assembled in memory and written in one run: the bytes are the same as
  // field by field, without a call per field.
  std::vector<unsigned char> contenido;
  int n = Compone_Elemento(shape_type, num_points, points, contenido);
  out.PonTokenBin(contenido.data(), n, nullptr, -1);
}
