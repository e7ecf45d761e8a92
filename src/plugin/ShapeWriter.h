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

// The index of the first point of each part: a part closes when a point
// repeats the part's first point exactly.
void Calcula_Partes(int num_points, TVectorPointPlugIn* points, Vector<int>& parts);

// Widens the six extremes by the points; the Z maximum comes before the
// minimum, as the header of the maps written here holds them.
void Incre_ExtremosS(int num_points, const TVectorPointPlugIn* points, bool& extent_set,
                     double& x_min, double& y_min, double& x_max, double& y_max, double& z_max,
                     double& z_min);

#endif
