// ShapeWriter.h - turning a host line into a shape record.
#ifndef VARDA_PLUGIN_SHAPEWRITER_H
#define VARDA_PLUGIN_SHAPEWRITER_H

#include <vector>

#include "VardaPlugIn.h"
#include "core/Vector.h"
#include "file/FicheroITV.h"

// The shape type a map takes from its first shape.
int Calcula_ShapeType(TLineAttributesPlugIn& line, int num_points, TVectorPointPlugIn* points);

// Writes the contents of one record (everything after its 8-byte header) at
// the current position of `out`.
void Guarda_Elemento(int shape_type, TLineAttributesPlugIn& line, int num_points,
                     TVectorPointPlugIn* points, TFicheroITV& out);

// The same contents appended to a byte buffer; returns their size in bytes.
int Compone_Elemento(int shape_type, int num_points, const TVectorPointPlugIn* points,
                     std::vector<unsigned char>& out);

// Calls f(i) with the index of the first point of each part, in order. A
// part closes when a point repeats the part's first point exactly (plain
// equality of doubles); the next point then starts a new part, unless the
// closing point is the last one.
template <class F>
void RecorrePartes(int num_points, const TVectorPointPlugIn* points, F f) {
  int s = 0;
  double x = 0.0, y = 0.0;
  for (int i = 0; i < num_points; i++) {
    if (i == s) {
      x = points[i].x;
      y = points[i].y;
      f(i);
    } else if (points[i].x == x && points[i].y == y && i != num_points - 1) {
      s = i + 1;
    }
  }
}

// The same part starts, into a Vector<int> (emptied first).
void Calcula_Partes(int num_points, TVectorPointPlugIn* points, Vector<int>& parts);

// Widens the six extremes by the points; the Z maximum comes before the
// minimum, as the header of the maps written here holds them.
void Incre_ExtremosS(int num_points, const TVectorPointPlugIn* points, bool& extent_set,
                     double& x_min, double& y_min, double& x_max, double& y_max, double& z_max,
                     double& z_min);

#endif
