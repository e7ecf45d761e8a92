// ShpTools.h - runs independent shapefile readers (pyshp through a helper
// script, shpdump, ogrinfo) on a map and parses what they print, so that the
// module's files can be checked against other programs' reading of them.
#ifndef VARDA_TESTS_SHPTOOLS_H
#define VARDA_TESTS_SHPTOOLS_H

#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "support/ShpBuilder.h"

namespace shptest {

struct CommandResult {
  int status = -1;
  std::string out, err;
};

// Runs `cmd` through the shell; stdout and stderr are captured apart.
inline CommandResult RunCommand(const std::string& cmd) {
  CommandResult r;
  TempDir tmp;
  if (!tmp.ok()) return r;
  const std::string err_path = tmp / "stderr";
  FILE* p = popen((cmd + " 2>" + err_path).c_str(), "r");
  if (p) {
    char buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    int st = pclose(p);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  }
  r.err = tmp.Read("stderr");
  return r;
}

inline std::string Quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

inline bool HaveTool(const std::string& name) {
  return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

// The helper script beside this header.
inline std::string HelperScript() {
  std::string f = __FILE__;
  size_t slash = f.rfind('/');
  return (slash == std::string::npos ? std::string(".") : f.substr(0, slash)) + "/shp_coords.py";
}

// A Python that has pyshp, or "" (the distribution's first, whatever else
// comes first on the path).
inline const std::string& PythonWithPyshp() {
  static const std::string found = [] {
    for (const char* py : {"/usr/bin/python3", "python3"}) {
      CommandResult r = RunCommand(std::string(py) + " -c 'import shapefile' >/dev/null");
      if (r.status == 0) return std::string(py);
    }
    return std::string();
  }();
  return found;
}

// One shape as a reader reports it.
struct ToolShape {
  int id = 0, flags = 0, count = 0;  // helper output only
  std::vector<XYZ> pts;
};

// Parses the helper's output for one map.
inline std::vector<ToolShape> ParseHelper(const std::string& out) {
  std::vector<ToolShape> shapes;
  std::istringstream in(out);
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("S ", 0) == 0) {
      ToolShape s;
      std::sscanf(line.c_str(), "S %d %d %d", &s.id, &s.flags, &s.count);
      shapes.push_back(s);
    } else if (line.rfind("P ", 0) == 0 && !shapes.empty()) {
      XYZ p{0, 0, 0};
      std::istringstream ps(line.substr(2));
      std::string a, b, c;
      ps >> a >> b >> c;
      p.x = std::strtod(a.c_str(), nullptr);
      p.y = std::strtod(b.c_str(), nullptr);
      p.z = std::strtod(c.c_str(), nullptr);
      shapes.back().pts.push_back(p);
    }
  }
  return shapes;
}

// Numbers in a text, in order.
inline std::vector<double> NumbersIn(const std::string& s) {
  std::vector<double> v;
  const char* p = s.c_str();
  while (*p) {
    if (std::isdigit(static_cast<unsigned char>(*p)) || *p == '-' || *p == '+' || *p == '.') {
      char* end;
      double d = std::strtod(p, &end);
      if (end != p) {
        v.push_back(d);
        p = end;
        continue;
      }
    }
    p++;
  }
  return v;
}

// shpdump: "Shape:N (...)" then one "(x,y, z[, m])" line per vertex, "+ (" for
// the first vertex of each later part.
inline std::vector<ToolShape> ParseShpdump(const std::string& out) {
  std::vector<ToolShape> shapes;
  std::istringstream in(out);
  std::string line;
  while (std::getline(in, line)) {
    size_t i = line.find_first_not_of(' ');
    if (i == std::string::npos) continue;
    if (line.compare(i, 6, "Shape:") == 0) {
      shapes.emplace_back();
    } else if ((line[i] == '(' || line[i] == '+') && !shapes.empty()) {
      // "+" marks the first vertex of a later part.
      i = line.find('(', i);
      if (i == std::string::npos) continue;
      std::vector<double> n = NumbersIn(line.substr(i, line.find(')') - i));
      XYZ p{n.size() > 0 ? n[0] : 0, n.size() > 1 ? n[1] : 0, n.size() > 2 ? n[2] : 0};
      shapes.back().pts.push_back(p);
    }
  }
  return shapes;
}

// ogrinfo -al: one WKT geometry per feature; coordinates flattened in order.
inline std::vector<ToolShape> ParseOgrinfo(const std::string& out) {
  std::vector<ToolShape> shapes;
  std::istringstream in(out);
  std::string line;
  const char* kinds[] = {"POINT", "LINESTRING", "POLYGON", "MULTIPOINT", "MULTILINESTRING",
                         "MULTIPOLYGON"};
  while (std::getline(in, line)) {
    size_t i = line.find_first_not_of(' ');
    if (i == std::string::npos || i != 2) continue;
    bool geometry = false;
    for (const char* k : kinds) {
      std::string kk = k;
      if (line.compare(i, kk.size(), kk) == 0 && line.size() > i + kk.size() &&
          (line[i + kk.size()] == ' ' || line[i + kk.size()] == '('))
        geometry = true;
    }
    if (!geometry) continue;
    size_t open = line.find('(');
    if (open == std::string::npos) continue;
    const std::string head = line.substr(i, open - i);
    const int dim = head.find(" ZM") != std::string::npos ? 4
                    : (head.find(" Z") != std::string::npos || head.find(" M") != std::string::npos)
                        ? 3
                        : 2;
    std::vector<double> n = NumbersIn(line.substr(open));
    ToolShape s;
    for (size_t k = 0; k + dim <= n.size(); k += dim)
      s.pts.push_back({n[k], n[k + 1], dim >= 3 && head.find(" M") == std::string::npos ? n[k + 2] : 0});
    shapes.push_back(s);
  }
  return shapes;
}

// Equal up to the 15 significant digits the tools print.
inline bool Near(double a, double b) {
  return std::fabs(a - b) <= 1e-12 * std::fmax(1.0, std::fmax(std::fabs(a), std::fabs(b)));
}

inline bool NearXYZ(const std::vector<XYZ>& a, const std::vector<XYZ>& b, bool with_z) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); i++)
    if (!Near(a[i].x, b[i].x) || !Near(a[i].y, b[i].y) || (with_z && !Near(a[i].z, b[i].z)))
      return false;
  return true;
}

}  // namespace shptest

#endif
