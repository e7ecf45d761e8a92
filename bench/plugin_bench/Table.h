// Table.h - the one table the benchmark prints: a row per measurement, with
// each target shown next to the number it judges and marked held or missed.
#ifndef VARDA_BENCH_TABLE_H
#define VARDA_BENCH_TABLE_H

#include <cstdio>
#include <string>
#include <vector>

namespace bench {

struct Target {
  std::string text;  // "<= 4", ">= 500 k/s"; empty: no target
  int held = -1;     // 1 held, 0 missed, -1 not judged (no value)
};

// A target of the form value <= limit or value >= limit.
Target AtMost(double value, double limit, const std::string& text);
Target AtLeast(double value, double limit, const std::string& text);

struct Row {
  std::string label;
  bool section = false;  // a heading line; only the label is printed
  std::string error;     // a failed measurement: printed instead of numbers
  std::string note;      // a row not measured, and why
  double seconds = -1;
  double ratio = -1;  // to the section's reference
  Target ratio_target;
  std::string rate;  // vertices or shapes per second, formatted
  Target rate_target;
  double vs_shapelib = -1;  // the plug-in's rate over shapelib's
  Target shapelib_target;
  double rss_mib = -1;  // peak resident growth while measured
  Target rss_target;
};

class Table {
 public:
  void Section(const std::string& label);
  void Add(const Row& row) { rows_.push_back(row); }
  void Print(FILE* out) const;
  int Held() const;
  int Missed() const;
  int Failed() const;

 private:
  std::vector<Row> rows_;
};

// "1,000,000"
std::string Thousands(long long n);
std::string Fixed(double v, int decimals);

}  // namespace bench

#endif
