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
  int s = 0;
  double x = 0.0, y = 0.0;
  for (int i = 0; i < num_points; i++) {
    if (i == s) {
      x = points[i].x;
      y = points[i].y;
      parts.Anyade(i, -1);
    } else if (points[i].x == x && points[i].y == y) {
      if (i != num_points - 1) s = i + 1;
    }
  }
}

void Incre_ExtremosS(int num_points, const TVectorPointPlugIn* points, bool& extent_set,
                     double& x_min, double& y_min, double& x_max, double& y_max, double& z_max,
                     double& z_min) {
  for (int i = 0; i < num_points; i++) {
    const TVectorPointPlugIn& p = points[i];
    if (!extent_set) {
      x_min = x_max = p.x;
      y_min = y_max = p.y;
      z_min = z_max = p.z;
      extent_set = true;
      continue;
    }
    if (p.x < x_min) x_min = p.x;
    if (p.y < y_min) y_min = p.y;
    if (p.z < z_min) z_min = p.z;
    if (p.x > x_max) x_max = p.x;
    if (p.y > y_max) y_max = p.y;
    if (p.z > z_max) z_max = p.z;
  }
}

namespace {

class Escritor {
 public:
  explicit Escritor(std::vector<unsigned char>& out) : out_(out) {}
  void Int(int32_t v) { Pon(&v, 4); }
  void Double(double v) { Pon(&v, 8); }
  void Pon(const void* p, size_t n) {
    const size_t at = out_.size();
    out_.resize(at + n);
    std::memcpy(out_.data() + at, p, n);
  }

 private:
  std::vector<unsigned char>& out_;
};

}  // namespace

int Compone_Elemento(int shape_type, int num_points, const TVectorPointPlugIn* points,
                     std::vector<unsigned char>& out) {
  const size_t inicio = out.size();
  Escritor w(out);
  w.Int(shape_type);
  if (shape_type == shp::kPoint || shape_type == shp::kPointZ) {
    // Only the first point is written, whatever the number of points.
    w.Double(points[0].x);
    w.Double(points[0].y);
    if (shape_type == shp::kPointZ) {
      w.Double(points[0].z);
      w.Double(0.0);
    }
    return static_cast<int>(out.size() - inicio);
  }
  bool set = false;
  double xmin = 0, ymin = 0, xmax = 0, ymax = 0, zmax = 0.0, zmin = 0.0;
  Incre_ExtremosS(num_points, points, set, xmin, ymin, xmax, ymax, zmax, zmin);
  Vector<int> partes(100, 100, true);
  Calcula_Partes(num_points, const_cast<TVectorPointPlugIn*>(points), partes);
  out.reserve(out.size() + 44 + 4 * partes.numero + 24 * num_points + 16);
  w.Double(xmin);
  w.Double(ymin);
  w.Double(xmax);
  w.Double(ymax);
  w.Int(partes.numero);
  w.Int(num_points);
  for (int i = 0; i < partes.numero; i++) w.Int(partes[i]);
  for (int i = 0; i < num_points; i++) {
    w.Double(points[i].x);
    w.Double(points[i].y);
  }
  if (shape_type > 9) {
    // The Z range goes maximum first, like the header's.
    w.Double(zmax);
    w.Double(zmin);
    for (int i = 0; i < num_points; i++) w.Double(points[i].z);
  }
  return static_cast<int>(out.size() - inicio);
}

void Guarda_Elemento(int shape_type, TLineAttributesPlugIn&, int num_points,
                     TVectorPointPlugIn* points, TFicheroITV& out) {
  // Assembled in memory and written in one run: the bytes are the same as
  // field by field, without a call per field.
  std::vector<unsigned char> contenido;
  int n = Compone_Elemento(shape_type, num_points, points, contenido);
  out.PonTokenBin(contenido.data(), n, nullptr, -1);
}
