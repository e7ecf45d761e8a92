// Svg.h - draws maps as an SVG picture: lines as strokes, closed lines
// filled lightly (holes left open), points as dots, north up, a scale bar
// and a legend underneath. Every delivered shape is one element carrying its
// database id in a data-id attribute.
#ifndef VARDAMAP_SVG_H
#define VARDAMAP_SVG_H

#include <string>
#include <vector>

#include "Map.h"

namespace vardamap {

struct Layer {
  std::string name;  // shown in the legend and the shapes' tooltips
  std::vector<Shape> shapes;
};

// `size` is the longer side of the map area in pixels.
std::string RenderSvg(const std::vector<Layer>& layers, int size);

// A round length (1, 2 or 5 times a power of ten) near `target`.
double NiceLength(double target);
std::string XmlEscape(const std::string& text);

}  // namespace vardamap

#endif
