// Format.h - numbers as text: the shortest form that reads back to the same
// double, so that every output of the tool can be compared exactly.
#ifndef VARDAMAP_FORMAT_H
#define VARDAMAP_FORMAT_H

#include <string>

namespace vardamap {

std::string Num(double value);
// Parses a whole, finite double; false on anything else ("", "1x", "nan").
bool ParseDouble(const std::string& text, double* out);
// "x,y" into two finite doubles.
bool ParsePair(const std::string& text, double* x, double* y);

}  // namespace vardamap

#endif
