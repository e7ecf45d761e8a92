#include "Table.h"

#include <cmath>

namespace bench {

namespace {

constexpr int kLabel = 52;

std::string Judged(const Target& t) {
  if (t.text.empty()) return "";
  if (t.held < 0) return t.text + " n/a";
  return t.text + (t.held ? " held" : " MISSED");
}

std::string Num(double v, int decimals) { return v < 0 ? "" : Fixed(v, decimals); }

// Seconds with about four significant digits, so that quick runs show too.
std::string Seconds(double v) {
  if (v < 0) return "";
  return Fixed(v, v < 0.001 ? 6 : v < 0.1 ? 5 : 3);
}

int Count(const std::vector<Row>& rows, int held) {
  int n = 0;
  for (const Row& r : rows)
    for (const Target* t : {&r.ratio_target, &r.rate_target, &r.shapelib_target, &r.rss_target})
      if (!t->text.empty() && t->held == held) n++;
  return n;
}

}  // namespace

Target AtMost(double value, double limit, const std::string& text) {
  return Target{text, value < 0 ? -1 : (value <= limit ? 1 : 0)};
}

Target AtLeast(double value, double limit, const std::string& text) {
  return Target{text, value < 0 ? -1 : (value >= limit ? 1 : 0)};
}

std::string Thousands(long long n) {
  std::string digits = std::to_string(n < 0 ? -n : n), out;
  for (size_t i = 0; i < digits.size(); i++) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return n < 0 ? "-" + out : out;
}

std::string Fixed(double v, int decimals) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
  return buf;
}

void Table::Section(const std::string& label) {
  Row r;
  r.label = label;
  r.section = true;
  rows_.push_back(r);
}

void Table::Print(FILE* out) const {
  std::fprintf(out, "%-*s %9s %7s %-13s %13s %-16s %7s %-12s %7s %-12s\n", kLabel, "measurement",
               "seconds", "x ref", "target", "rate", "target", "x shplib", "target", "RSS MiB",
               "target");
  std::string rule(kLabel + 9 + 7 + 13 + 13 + 16 + 7 + 12 + 7 + 12 + 9, '-');
  std::fprintf(out, "%s\n", rule.c_str());
  for (const Row& r : rows_) {
    if (r.section) {
      std::fprintf(out, "%s\n", r.label.c_str());
      continue;
    }
    if (!r.note.empty()) {
      std::fprintf(out, "%-*s %s\n", kLabel, r.label.c_str(), r.note.c_str());
      continue;
    }
    if (!r.error.empty()) {
      std::fprintf(out, "%-*s FAILED: %s\n", kLabel, r.label.c_str(), r.error.c_str());
      continue;
    }
    std::fprintf(out, "%-*s %9s %7s %-13s %13s %-16s %7s %-12s %7s %-12s\n", kLabel,
                 r.label.c_str(), Seconds(r.seconds).c_str(), Num(r.ratio, 2).c_str(),
                 Judged(r.ratio_target).c_str(), r.rate.c_str(), Judged(r.rate_target).c_str(),
                 Num(r.vs_shapelib, 2).c_str(), Judged(r.shapelib_target).c_str(),
                 Num(r.rss_mib, 1).c_str(), Judged(r.rss_target).c_str());
  }
}

int Table::Held() const { return Count(rows_, 1); }
int Table::Missed() const { return Count(rows_, 0); }

int Table::Failed() const {
  int n = 0;
  for (const Row& r : rows_)
    if (!r.section && !r.error.empty()) n++;
  return n;
}

}  // namespace bench
