// render: one or more maps drawn together into an SVG file (and a PNG).
// Each map is read twice, first for its box, then shape by shape into the
// picture, so memory follows the picture's size, not the maps'.
#include <cstdio>

#include "Commands.h"
#include "Errors.h"
#include "Map.h"
#include "Svg.h"

#ifdef VARDAMAP_WITH_RSVG
#include <cairo.h>
#include <librsvg/rsvg.h>
#endif

namespace vardamap {

namespace {

#ifdef VARDAMAP_WITH_RSVG
void WritePng(const std::string& svg, const std::string& png) {
  GError* error = nullptr;
  RsvgHandle* handle =
      rsvg_handle_new_from_data(reinterpret_cast<const guint8*>(svg.data()), svg.size(), &error);
  if (!handle) {
    std::string why = error ? error->message : "unknown error";
    if (error) g_error_free(error);
    throw Failed("cannot draw " + png + ": " + why);
  }
  gdouble w = 0, h = 0;
  if (!rsvg_handle_get_intrinsic_size_in_pixels(handle, &w, &h)) w = h = 800;
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, static_cast<int>(w), static_cast<int>(h));
  cairo_t* cr = cairo_create(surface);
  RsvgRectangle viewport{0, 0, w, h};
  const bool drawn = rsvg_handle_render_document(handle, cr, &viewport, &error);
  if (error) g_error_free(error);
  cairo_destroy(cr);
  // Written beside and renamed, like the SVG.
  const std::string tmp = png + ".tmp";
  const bool written = drawn && cairo_surface_write_to_png(surface, tmp.c_str()) == CAIRO_STATUS_SUCCESS;
  cairo_surface_destroy(surface);
  g_object_unref(handle);
  if (!written || std::rename(tmp.c_str(), png.c_str()) != 0) {
    std::remove(tmp.c_str());
    throw Failed("cannot write " + png);
  }
}
#else
void WritePng(const std::string&, const std::string&) { throw Usage("--png needs librsvg, and this vardamap is built without it"); }
#endif

}  // namespace

int RunRender(const std::string& plugin_path, const std::vector<std::string>& maps,
              const std::string& output, int size, const std::string& png, std::ostream& out) {
#ifndef VARDAMAP_WITH_RSVG
  if (!png.empty()) WritePng("", png);
#endif
  PlugIn plugin(plugin_path);
  Box box;
  std::vector<std::string> names;
  for (const std::string& path : maps) {
    Map map(plugin, path, false);
    box.Add(map.Stream("", "measuring " + path, [](Shape&) {}).box);
    names.push_back(BaseName(path));
  }
  SvgCanvas canvas(box, names, size);
  size_t shapes = 0;
  for (size_t i = 0; i < maps.size(); ++i) {
    Map map(plugin, maps[i], false);
    canvas.BeginLayer(i);
    map.Stream("", "drawing " + maps[i], [&](Shape& s) {
      canvas.Draw(s);
      ++shapes;
    });
    canvas.EndLayer();
  }
  const std::string svg = canvas.Finish();
  WriteFile(output, svg);
  if (!png.empty()) WritePng(svg, png);
  out << output << ": " << shapes << (shapes == 1 ? " shape" : " shapes") << " drawn\n";
  return kExitOk;
}

}  // namespace vardamap
