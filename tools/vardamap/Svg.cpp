#include "Svg.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "Format.h"

namespace vardamap {

namespace {

const char* const kColours[] = {"#1f6fb4", "#c0392b", "#2e8b3d", "#8e44ad", "#d35400", "#16819a"};
constexpr size_t kColourCount = sizeof kColours / sizeof kColours[0];
constexpr int kMargin = 24;
constexpr int kFooter = 36;      // the scale bar's row
constexpr int kLegendRow = 20;   // each row of the legend

struct Frame {
  double xmin, ymax, scale;
  double X(double x) const { return kMargin + (x - xmin) * scale; }
  double Y(double y) const { return kMargin + (ymax - y) * scale; }  // north up
};

std::string Fix(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.2f", v);
  return buf;
}

void PathOf(const std::vector<Point>& pts, const Frame& f, bool close, std::string& d) {
  for (size_t i = 0; i < pts.size(); ++i) {
    d += (i == 0 ? "M" : "L") + Fix(f.X(pts[i].x)) + " " + Fix(f.Y(pts[i].y));
    if (i + 1 < pts.size()) d += ' ';
  }
  if (close && !pts.empty()) d += "Z";
}

std::string Title(const Layer& layer, const Shape& s) {
  std::string t = layer.name + " #" + std::to_string(s.id) + " " + KindName(s.kind()) + ", " +
                  std::to_string(s.points.size()) + (s.points.size() == 1 ? " point" : " points");
  if (s.has_z() && !s.points.empty()) {
    auto [lo, hi] = std::minmax_element(s.points.begin(), s.points.end(),
                                        [](const Point& a, const Point& b) { return a.z < b.z; });
    t += ", z " + Num(lo->z) + " to " + Num(hi->z);
  }
  return "<title>" + XmlEscape(t) + "</title>";
}

void ShapeElement(const Layer& layer, const Shape& s, const Frame& f, const char* colour,
                  std::string& out) {
  const std::string id = " data-id=\"" + std::to_string(s.id) + "\"";
  if (s.is_point() || s.points.size() == 1) {
    const Point p = s.points.empty() ? Point{} : s.points[0];
    out += "    <circle class=\"point\"" + id + " cx=\"" + Fix(f.X(p.x)) + "\" cy=\"" +
           Fix(f.Y(p.y)) + "\" r=\"4.5\" fill=\"" + colour +
           "\" stroke=\"#ffffff\" stroke-width=\"1.2\">" + Title(layer, s) + "</circle>\n";
    return;
  }
  std::string d;
  if (s.is_closed()) {
    for (const std::vector<Point>& ring : SplitRings(s.points)) {
      if (!d.empty()) d += ' ';
      PathOf(ring, f, true, d);
    }
    out += "    <path class=\"area\"" + id + " d=\"" + d + "\" fill=\"" + colour +
           "\" fill-opacity=\"0.22\" fill-rule=\"evenodd\" stroke=\"" + colour +
           "\" stroke-width=\"1.2\" stroke-linejoin=\"round\">" + Title(layer, s) + "</path>\n";
    return;
  }
  PathOf(s.points, f, false, d);
  out += "    <path class=\"line\"" + id + " d=\"" + d + "\" fill=\"none\" stroke=\"" + colour +
         "\" stroke-width=\"" + (s.has_z() ? "2.4" : "1.6") +
         "\" stroke-linecap=\"round\" stroke-linejoin=\"round\"" +
         (s.has_z() ? " stroke-dasharray=\"6 3\"" : "") + ">" + Title(layer, s) + "</path>\n";
}

}  // namespace

double NiceLength(double target) {
  if (!(target > 0) || !std::isfinite(target)) return 1;
  const double p = std::pow(10.0, std::floor(std::log10(target)));
  const double m = target / p;
  return (m >= 5 ? 5 : m >= 2 ? 2 : 1) * p;
}

std::string XmlEscape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&apos;"; break;
      default:
        // Control characters are not allowed in XML 1.0 text.
        if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n') out += '?';
        else out += c;
    }
  }
  return out;
}

std::string RenderSvg(const std::vector<Layer>& layers, int size) {
  Box box;
  for (const Layer& l : layers) box.Add(BoxOf(l.shapes));
  if (box.empty) box.Add(Point{0, 0, 0});
  double w = box.xmax - box.xmin, h = box.ymax - box.ymin;
  // A single point or a straight line still gets a sensible frame: a
  // hundredth of the longer side, or a unit around a lone point.
  double floor_extent = std::max(w, h) * 0.01;
  if (!(floor_extent > 0)) floor_extent = 1;
  if (w < floor_extent) {
    box.xmin -= (floor_extent - w) / 2;
    w = floor_extent;
  }
  if (h < floor_extent) {
    box.ymin -= (floor_extent - h) / 2;
    h = floor_extent;
  }
  // A little room all round, so that nothing runs along the frame.
  box.xmin -= w * 0.03;
  box.ymin -= h * 0.03;
  w *= 1.06;
  h *= 1.06;
  box.xmax = box.xmin + w;
  box.ymax = box.ymin + h;
  const double scale = size / std::max(w, h);
  const Frame frame{box.xmin, box.ymax, scale};
  const int map_w = static_cast<int>(std::ceil(w * scale)), map_h = static_cast<int>(std::ceil(h * scale));
  const int W = std::max(map_w + 2 * kMargin, 360);
  // The legend runs left to right under the scale bar and wraps; text width
  // is estimated, as nothing here measures fonts.
  struct Entry {
    double x;
    int row;
  };
  std::vector<Entry> legend;
  {
    double x = kMargin;
    int row = 0;
    for (const Layer& l : layers) {
      const double width = 7.5 * static_cast<double>(l.name.size()) + 30;
      if (x > kMargin && x + width > W - kMargin) {
        x = kMargin;
        ++row;
      }
      legend.push_back(Entry{x, row});
      x += width;
    }
  }
  const int rows = legend.empty() ? 0 : legend.back().row + 1;
  const int H = map_h + 2 * kMargin + kFooter + rows * kLegendRow;

  std::string out;
  out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  out += "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(W) + "\" height=\"" +
         std::to_string(H) + "\" viewBox=\"0 0 " + std::to_string(W) + " " + std::to_string(H) +
         "\" font-family=\"sans-serif\" font-size=\"12\">\n";
  out += "  <rect x=\"0\" y=\"0\" width=\"" + std::to_string(W) + "\" height=\"" + std::to_string(H) +
         "\" fill=\"#fbfaf5\"/>\n";
  out += "  <rect x=\"" + std::to_string(kMargin) + "\" y=\"" + std::to_string(kMargin) +
         "\" width=\"" + std::to_string(map_w) + "\" height=\"" + std::to_string(map_h) +
         "\" fill=\"none\" stroke=\"#d8d4c8\"/>\n";

  size_t colour = 0;
  for (const Layer& l : layers) {
    const char* c = kColours[colour++ % kColourCount];
    out += "  <g class=\"layer\" data-map=\"" + XmlEscape(l.name) + "\">\n";
    // Areas first, so that lines and points on them stay visible.
    for (int pass = 0; pass < 3; ++pass)
      for (const Shape& s : l.shapes) {
        const int order = s.is_point() || s.points.size() == 1 ? 2 : s.is_closed() ? 0 : 1;
        if (order == pass) ShapeElement(l, s, frame, c, out);
      }
    out += "  </g>\n";
  }

  // North arrow in the top right corner of the map.
  const double nx = kMargin + map_w - 14, ny = kMargin + 8;
  out += "  <g class=\"north\"><path d=\"M" + Fix(nx) + " " + Fix(ny) + " L" + Fix(nx + 6) + " " +
         Fix(ny + 16) + " L" + Fix(nx) + " " + Fix(ny + 12) + " L" + Fix(nx - 6) + " " +
         Fix(ny + 16) + " Z\" fill=\"#333333\"/><text x=\"" + Fix(nx) + "\" y=\"" + Fix(ny + 30) +
         "\" text-anchor=\"middle\" font-weight=\"bold\">N</text></g>\n";

  // Scale bar in the bottom left corner: map units, or degrees when the
  // coordinates look geographic.
  const bool degrees = box.xmin >= -180 && box.xmax <= 180 && box.ymin >= -90 && box.ymax <= 90;
  const double length = NiceLength(w / 5);
  const double bar = length * scale;
  const double by = kMargin + map_h + 22;
  out += "  <g class=\"scale\"><path d=\"M" + Fix(kMargin) + " " + Fix(by - 5) + " V" + Fix(by) +
         " H" + Fix(kMargin + bar) + " V" + Fix(by - 5) +
         "\" fill=\"none\" stroke=\"#333333\" stroke-width=\"1.5\"/><text x=\"" +
         Fix(kMargin + bar + 8) + "\" y=\"" + Fix(by) + "\">" + Num(length) +
         (degrees ? " degrees (if geographic)" : " map units") + "</text></g>\n";

  // Legend: one swatch per map, in the colours of the layers.
  for (size_t i = 0; i < layers.size(); ++i) {
    const char* c = kColours[i % kColourCount];
    const double ly = by + 24 + legend[i].row * kLegendRow;
    out += "  <g class=\"legend\"><rect x=\"" + Fix(legend[i].x) + "\" y=\"" + Fix(ly - 10) +
           "\" width=\"10\" height=\"10\" fill=\"" + c + "\"/><text x=\"" + Fix(legend[i].x + 14) +
           "\" y=\"" + Fix(ly) + "\">" + XmlEscape(layers[i].name) + "</text></g>\n";
  }
  out += "</svg>\n";
  return out;
}

}  // namespace vardamap
