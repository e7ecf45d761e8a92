// render: one or more maps drawn together into an SVG file.
#include "Commands.h"
#include "Errors.h"
#include "Map.h"
#include "Svg.h"

namespace vardamap {

int RunRender(const std::string& plugin_path, const std::vector<std::string>& maps,
              const std::string& output, int size, std::ostream& out) {
  PlugIn plugin(plugin_path);
  std::vector<Layer> layers;
  size_t shapes = 0;
  for (const std::string& path : maps) {
    Map map(plugin, path, false);
    ReadOutcome read = map.ReadAll("", "reading " + path);
    shapes += read.shapes.size();
    layers.push_back(Layer{BaseName(path), std::move(read.shapes)});
  }
  WriteFile(output, RenderSvg(layers, size));
  out << output << ": " << shapes << (shapes == 1 ? " shape" : " shapes") << " drawn\n";
  return kExitOk;
}

}  // namespace vardamap
