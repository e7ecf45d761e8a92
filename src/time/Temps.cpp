#include "time/Temps.h"

#include <sys/time.h>

#include <climits>
#include <cmath>

namespace {

// Field arithmetic is done wide and brought back into int range, so that
// absurd field values end as absurd values instead of overflowing.
int clamp_int(long long v) {
  if (v > INT_MAX) return INT_MAX;
  if (v < INT_MIN) return INT_MIN;
  return static_cast<int>(v);
}

}  // namespace

TTemps::TTemps(int year_, int month_, int day_, int hour_, int minute_, int second_)
    : day(day_), month(month_), year(year_), hour(hour_), minute(minute_),
      seconds(static_cast<float>(second_)) {
  if (year < 50)
    year = clamp_int(static_cast<long long>(year) + 2000);
  else if (year < 100)
    year += 1900;
}

int TTemps::Dias_del_Mes(int month, int year) {
  switch (month) {
    case 1: case 3: case 5: case 7: case 8: case 10: case 12:
      return 31;
    case 4: case 6: case 9: case 11:
      return 30;
    case 2:
      return year % 4 == 0 ? 29 : 28;
    default:
      return -1;
  }
}

int TTemps::Normalizate() {
  // Seconds into minutes. The quotient is taken in double so that a huge
  // seconds value cannot overflow the conversion.
  if (seconds >= 60.0f && std::isfinite(seconds)) {
    double k = std::trunc(static_cast<double>(seconds) / 60.0);
    if (k > INT_MAX) k = INT_MAX;
    minute = clamp_int(static_cast<long long>(minute) + static_cast<long long>(k));
    seconds = static_cast<float>(static_cast<double>(seconds) - 60.0 * k);
  }
  // Minutes into hours; negative minutes are left alone.
  if (minute > 59) {
    hour = clamp_int(static_cast<long long>(hour) + minute / 60);
    minute %= 60;
  }
  // Hours into days, both ways. A negative multiple of 24 ends as hour 24 of
  // the day before, which callers expect.
  if (hour > 23) {
    day = clamp_int(static_cast<long long>(day) + hour / 24);
    hour %= 24;
  }
  if (hour < 0) {
    day = clamp_int(static_cast<long long>(day) + hour / 24 - 1);
    hour = hour % 24 + 24;
  }
  // Days into months: the length of the current month serves for the whole
  // carry, however many months it spans. Deliberately also for a month
  // outside 1 to 12, whose length is -1: the null time becomes 1 January of
  // the year 0.
  const long long d = Dias_del_Mes(month, year);
  if (day >= d + 1) {
    const long long dias = static_cast<long long>(day) - 1;
    month = clamp_int(static_cast<long long>(month) + dias / d);
    day = clamp_int(dias % d + 1);
  }
  // Days below 1 borrow one month, only one.
  if (day < 1) {
    if (month == 1) {
      month = 12;
      year = clamp_int(static_cast<long long>(year) - 1);
    } else {
      month = clamp_int(static_cast<long long>(month) - 1);
    }
    day = clamp_int(static_cast<long long>(day) + Dias_del_Mes(month, year));
  }
  // Months into years.
  if (month >= 13) {
    year = clamp_int(static_cast<long long>(year) + (month - 1) / 12);
    month = (month - 1) % 12 + 1;
  }
  return 0;
}

bool TTemps::Es_Valido() const {
  return hour >= 0 && hour <= 23 && minute >= 0 && minute <= 59 &&
         seconds >= 0.0f && seconds <= 60.0f && day >= 1 && day <= 31 &&
         month >= 1 && month <= 12 && year >= 1900;
}

bool TTemps::Es_NULL() const {
  return hour == 0 && minute == 0 && day == 0 && month == 0 && year == 0 &&
         std::fabs(seconds) < 0.001f;
}

bool TTemps::operator<(const TTemps& o) const {
  if (year != o.year) return year < o.year;
  if (month != o.month) return month < o.month;
  if (day != o.day) return day < o.day;
  if (hour != o.hour) return hour < o.hour;
  if (minute != o.minute) return minute < o.minute;
  return seconds < o.seconds;
}

bool TTemps::operator>(const TTemps& o) const { return o < *this; }
bool TTemps::operator<=(const TTemps& o) const { return *this < o || *this == o; }
bool TTemps::operator>=(const TTemps& o) const { return o < *this || *this == o; }

bool TTemps::operator==(const TTemps& o) const {
  return year == o.year && month == o.month && day == o.day && hour == o.hour &&
         minute == o.minute && seconds == o.seconds;
}

bool TTemps::operator!=(const TTemps& o) const { return !(*this == o); }

bool Mismo_Dia(const TTemps& a, const TTemps& b) {
  return a.day == b.day && a.month == b.month && a.year == b.year;
}

void TTemps::Set_Fecha(const TTemps& t) {
  day = t.day;
  month = t.month;
  year = t.year;
}

void TTemps::Lee_tm(const tm& t) {
  seconds = static_cast<float>(t.tm_sec);
  minute = t.tm_min;
  hour = t.tm_hour;
  day = t.tm_mday;
  month = t.tm_mon + 1;
  year = clamp_int(static_cast<long long>(t.tm_year) + 1900);
}

void TTemps::Lee_time_t(const time_t& t) {
  tm b;
  // A time beyond what the C library can break down leaves the value as it was.
  if (gmtime_r(&t, &b)) Lee_tm(b);
}

double TTemps::Segs1970() const {
  tm b{};
  double whole = std::isfinite(seconds) ? std::trunc(static_cast<double>(seconds)) : 0.0;
  b.tm_sec = static_cast<int>(whole);
  b.tm_min = minute;
  b.tm_hour = hour;
  b.tm_mday = day;
  b.tm_mon = month - 1;
  b.tm_year = clamp_int(static_cast<long long>(year) - 1900);
  b.tm_isdst = 0;
  double fraction = std::isfinite(seconds) ? static_cast<double>(seconds) - whole : 0.0;
  return static_cast<double>(timegm(&b)) + fraction;
}

void TTemps::SetSegs1970(double s) {
  if (!std::isfinite(s)) return;
  // The whole part is taken downwards, so that a moment before 1970 keeps a
  // fraction between 0 and 1 and comes back unchanged through Segs1970.
  double whole = std::floor(s);
  time_t t = static_cast<time_t>(whole);
  if (static_cast<double>(t) != whole) return;  // outside time_t
  tm b;
  if (!gmtime_r(&t, &b)) return;
  Lee_tm(b);
  seconds += static_cast<float>(s - whole);
}

void TTemps::Set_Ahora() {
  time_t now = time(nullptr);
  tm b;
  if (localtime_r(&now, &b)) Lee_tm(b);
}

void TTempsLocal::Set_Ahora() { TTemps::Set_Ahora(); }

void TTempsUTC::Set_Ahora() {
  time_t now = time(nullptr);
  tm b;
  if (gmtime_r(&now, &b)) Lee_tm(b);
  // A separate reading for the fraction; the two readings are not matched,
  // so the fraction may belong to the next second.
  timeval tv;
  if (gettimeofday(&tv, nullptr) == 0)
    seconds += static_cast<float>(tv.tv_usec) / 1e6f;
}
