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

// Vertices closer than half a pixel to the last one drawn add nothing the
// eye can see: they are merged, the last vertex always kept.
void PathOf(const std::vector<Point>& pts, const Frame& f, bool close, std::string& d) {
  double lx = 0, ly = 0;
  for (size_t i = 0; i < pts.size(); ++i) {
    const double x = f.X(pts[i].x), y = f.Y(pts[i].y);
    if (i > 0 && i + 1 < pts.size() && std::fabs(x - lx) < 0.5 && std::fabs(y - ly) < 0.5) continue;
    if (i > 0) d += ' ';
    d += (i == 0 ? "M" : "L") + Fix(x) + " " + Fix(y);
    lx = x, ly = y;
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

SvgCanvas::SvgCanvas(Box box, const std::vector<std::string>& names, int size) : names_(names) {
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
  box_ = box;
  w_ = w;
  scale_ = size / std::max(w, h);
  map_w_ = static_cast<int>(std::ceil(w * scale_));
  map_h_ = static_cast<int>(std::ceil(h * scale_));
  W_ = std::max(map_w_ + 2 * kMargin, 360);
  // The legend runs left to right under the scale bar and wraps; text width
  // is estimated, as nothing here measures fonts.
  double x = kMargin;
  int row = 0;
  for (const std::string& name : names_) {
    const double width = 7.5 * static_cast<double>(name.size()) + 30;
    if (x > kMargin && x + width > W_ - kMargin) {
      x = kMargin;
      ++row;
    }
    legend_.push_back({x, row});
    x += width;
  }
  const int rows = legend_.empty() ? 0 : legend_.back().second + 1;
  const int H = map_h_ + 2 * kMargin + kFooter + rows * kLegendRow;

  out_ += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  out_ += "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(W_) + "\" height=\"" +
          std::to_string(H) + "\" viewBox=\"0 0 " + std::to_string(W_) + " " + std::to_string(H) +
          "\" font-family=\"sans-serif\" font-size=\"12\">\n";
  out_ += "  <rect x=\"0\" y=\"0\" width=\"" + std::to_string(W_) + "\" height=\"" + std::to_string(H) +
          "\" fill=\"#fbfaf5\"/>\n";
  out_ += "  <rect x=\"" + std::to_string(kMargin) + "\" y=\"" + std::to_string(kMargin) +
          "\" width=\"" + std::to_string(map_w_) + "\" height=\"" + std::to_string(map_h_) +
          "\" fill=\"none\" stroke=\"#d8d4c8\"/>\n";
}

void SvgCanvas::BeginLayer(size_t index) {
  layer_ = index;
  for (std::string& p : passes_) p.clear();
  dots_.clear();
  dot_count_ = 0;
  dots_in_path_ = 0;
  taken_.assign(static_cast<size_t>(map_w_ + 1) * static_cast<size_t>(map_h_ + 1), false);
}

void SvgCanvas::Draw(const Shape& s) {
  if (s.points.empty()) return;
  const Frame frame{box_.xmin, box_.ymax, scale_};
  const Layer layer{names_[layer_], {}};
  const char* c = kColours[layer_ % kColourCount];
  const bool point = s.is_point() || s.points.size() == 1;
  if (!point) {
    Box b;
    for (const Point& p : s.points) b.Add(p);
    if ((b.xmax - b.xmin) * scale_ < 1 && (b.ymax - b.ymin) * scale_ < 1) {
      // Smaller than a pixel: one dot, and one dot a pixel at most.
      const long px = std::lround(frame.X(b.xmin) - kMargin), py = std::lround(frame.Y(b.ymax) - kMargin);
      const size_t at = static_cast<size_t>(std::clamp(py, 0L, static_cast<long>(map_h_))) * (map_w_ + 1) +
                        static_cast<size_t>(std::clamp(px, 0L, static_cast<long>(map_w_)));
      ++dot_count_;
      if (taken_[at]) return;
      taken_[at] = true;
      // Dots go in paths of a thousand, which renderers take in their stride.
      if (++dots_in_path_ > 1000) {
        dots_ += "\" stroke=\"" + std::string(c) + "\" stroke-width=\"1.5\" stroke-linecap=\"round\"/>\n    <path d=\"";
        dots_in_path_ = 1;
      }
      dots_ += "M" + std::to_string(px + kMargin) + " " + std::to_string(py + kMargin) + "h0";
      return;
    }
  }
  ShapeElement(layer, s, frame, c, passes_[point ? 2 : s.is_closed() ? 0 : 1]);
}

void SvgCanvas::EndLayer() {
  const char* c = kColours[layer_ % kColourCount];
  out_ += "  <g class=\"layer\" data-map=\"" + XmlEscape(names_[layer_]) + "\">\n";
  // Areas first, so that lines and points on them stay visible.
  out_ += passes_[0];
  out_ += passes_[1];
  if (!dots_.empty())
    out_ += "    <g class=\"dots\"><title>" + std::to_string(dot_count_) +
            " shapes smaller than a pixel</title>\n    <path d=\"" + dots_ + "\" stroke=\"" + c +
            "\" stroke-width=\"1.5\" stroke-linecap=\"round\"/></g>\n";
  out_ += passes_[2];
  out_ += "  </g>\n";
  for (std::string& p : passes_) std::string().swap(p);
  std::string().swap(dots_);
}

std::string SvgCanvas::Finish() {
  const double w = w_, scale = scale_;
  const int map_w = map_w_, map_h = map_h_;
  const Box& box = box_;
  std::string& out = out_;
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
  for (size_t i = 0; i < names_.size(); ++i) {
    const char* c = kColours[i % kColourCount];
    const double ly = by + 24 + legend_[i].second * kLegendRow;
    out += "  <g class=\"legend\"><rect x=\"" + Fix(legend_[i].first) + "\" y=\"" + Fix(ly - 10) +
           "\" width=\"10\" height=\"10\" fill=\"" + c + "\"/><text x=\"" + Fix(legend_[i].first + 14) +
           "\" y=\"" + Fix(ly) + "\">" + XmlEscape(names_[i]) + "</text></g>\n";
  }
  out += "</svg>\n";
  return std::move(out);
}

std::string RenderSvg(const std::vector<Layer>& layers, int size) {
  Box box;
  std::vector<std::string> names;
  for (const Layer& l : layers) {
    box.Add(BoxOf(l.shapes));
    names.push_back(l.name);
  }
  SvgCanvas canvas(box, names, size);
  for (size_t i = 0; i < layers.size(); ++i) {
    canvas.BeginLayer(i);
    for (const Shape& s : layers[i].shapes) canvas.Draw(s);
    canvas.EndLayer();
  }
  return canvas.Finish();
}

}  // namespace vardamap
