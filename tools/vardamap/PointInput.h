// PointInput.h - shapes typed or piped as text: one point a line, "x y" or
// "x y z", a blank line ending each shape, "#" starting a comment line.
#ifndef VARDAMAP_POINTINPUT_H
#define VARDAMAP_POINTINPUT_H

#include <istream>
#include <vector>

#include "Map.h"

namespace vardamap {

struct InputShape {
  int first_line = 0;  // where the shape starts, for messages
  std::vector<Point> points;
};

// Throws ToolError(kExitUsage) naming the line of the first malformed point.
// With `require_z` every point must carry a Z; with `each_point_a_shape`
// every point line is a shape of its own.
std::vector<InputShape> ReadShapes(std::istream& in, bool require_z, bool each_point_a_shape);

}  // namespace vardamap

#endif
