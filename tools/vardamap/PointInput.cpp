#include "PointInput.h"

#include <sstream>
#include <string>

#include "Errors.h"
#include "Format.h"

namespace vardamap {

std::vector<InputShape> ReadShapes(std::istream& in, bool require_z, bool each_point_a_shape) {
  std::vector<InputShape> shapes;
  bool open = false;
  std::string text;
  int line_no = 0;
  while (std::getline(in, text)) {
    ++line_no;
    if (!text.empty() && text.back() == '\r') text.pop_back();  // files from elsewhere
    // "x,y" as exported by many tools reads as well as "x y".
    std::string spaced = text;
    for (char& c : spaced)
      if (c == ',') c = ' ';
    std::istringstream words(spaced);
    std::vector<std::string> w;
    for (std::string s; words >> s;) w.push_back(s);
    if (w.empty()) {
      open = false;
      continue;
    }
    if (w[0][0] == '#') continue;
    auto bad = [&](const std::string& why) {
      return Usage("standard input, line " + std::to_string(line_no) + ": " + why + " (got \"" +
                   text + "\")");
    };
    if (w.size() < 2 || w.size() > 3) throw bad("expected \"x y\" or \"x y z\"");
    if (require_z && w.size() != 3) throw bad("--z asks for \"x y z\" on every line");
    Point p;
    if (!ParseDouble(w[0], &p.x)) throw bad("x is not a finite number");
    if (!ParseDouble(w[1], &p.y)) throw bad("y is not a finite number");
    if (w.size() == 3 && !ParseDouble(w[2], &p.z)) throw bad("z is not a finite number");
    if (!open || each_point_a_shape) {
      shapes.emplace_back();
      shapes.back().first_line = line_no;
      open = true;
    }
    shapes.back().points.push_back(p);
  }
  if (in.bad()) throw ToolError(kExitFailed, "cannot read standard input");
  return shapes;
}

}  // namespace vardamap
