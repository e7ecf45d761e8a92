// Svg.h - draws maps as an SVG picture: lines as strokes, closed lines
// filled lightly (holes left open), points as dots, north up, a scale bar
// and a legend underneath. Every delivered shape is one element carrying its
// database id in a data-id attribute.
#ifndef VARDAMAP_SVG_H
#define VARDAMAP_SVG_H

#include <string>
#include <utility>
#include <vector>

#include "Map.h"

namespace vardamap {

struct Layer {
  std::string name;  // shown in the legend and the shapes' tooltips
  std::vector<Shape> shapes;
};

// `size` is the longer side of the map area in pixels.
std::string RenderSvg(const std::vector<Layer>& layers, int size);

// The same picture drawn shape by shape, for maps too large to hold: its
// size follows the pixels, not the map. Vertices closer than half a pixel
// are merged and shapes smaller than a pixel become one dot (one a pixel).
class SvgCanvas {
 public:
  // `box` holds every shape to be drawn; `names` are the layers, in order.
  SvgCanvas(Box box, const std::vector<std::string>& names, int size);
  void BeginLayer(size_t index);
  void Draw(const Shape& shape);
  void EndLayer();
  std::string Finish();

 private:
  std::vector<std::string> names_;
  std::vector<std::pair<double, int>> legend_;  // x and row of each entry
  Box box_;
  double w_ = 0, scale_ = 1;
  int map_w_ = 0, map_h_ = 0, W_ = 0;
  std::string out_;
  size_t layer_ = 0;
  std::string passes_[3];  // areas, lines, points of the current layer
  std::string dots_;
  size_t dot_count_ = 0;
  size_t dots_in_path_ = 0;
  std::vector<bool> taken_;  // pixels that have a dot already
};

// A round length (1, 2 or 5 times a power of ten) near `target`.
double NiceLength(double target);
std::string XmlEscape(const std::string& text);

}  // namespace vardamap

#endif
