// Temps.h - calendar date and time values held field by field.
#ifndef VARDA_TIME_TEMPS_H
#define VARDA_TIME_TEMPS_H

#include <ctime>

// A calendar date and time: day, month, year, hour, minute and seconds with
// their fraction. The fields are public and may hold values out of range
// until Normalizate carries them upwards. All fields zero is the null time.
class TTemps {
 public:
  TTemps() = default;
  // Two-digit years are completed: below 50 (negative ones too) means 20xx,
  // 50 to 99 means 19xx. Other years are taken as they are.
  TTemps(int year, int month, int day, int hour, int minute, int second);
  TTemps(const TTemps&) = default;
  TTemps& operator=(const TTemps&) = default;
  virtual ~TTemps() = default;

  // Only there so that the derived classes can be told apart at run time.
  virtual void ParaSerPolimorfico() {}

  // Days of a month; February has 29 in every year divisible by 4 (no
  // century rule). -1 for a month outside 1 to 12.
  static int Dias_del_Mes(int month, int year);

  // Carries overflowing fields upwards. The result carries no meaning.
  int Normalizate();

  bool Es_Valido() const;
  bool Es_NULL() const;

  bool operator<(const TTemps& o) const;
  bool operator>(const TTemps& o) const;
  bool operator<=(const TTemps& o) const;
  bool operator>=(const TTemps& o) const;
  bool operator==(const TTemps& o) const;
  bool operator!=(const TTemps& o) const;

  // Copies day, month and year of t; the time of day is kept.
  void Set_Fecha(const TTemps& t);
  void Lee_tm(const tm& t);
  // The UTC broken-down time of t.
  void Lee_time_t(const time_t& t);

  // Seconds since 1970-01-01 00:00 UTC, the fields being read as UTC.
  double Segs1970() const;
  void SetSegs1970(double s);

  // Current local time, whole seconds.
  void Set_Ahora();

  int day = 0;
  int month = 0;
  int year = 0;
  int hour = 0;
  int minute = 0;
  float seconds = 0.0f;
};

bool Mismo_Dia(const TTemps& a, const TTemps& b);

// A time whose fields are meant in UTC.
class TTempsUTC : public TTemps {
 public:
  using TTemps::TTemps;
  TTempsUTC() = default;
  // Current UTC time with the microseconds of the clock as a fraction.
  void Set_Ahora();
};

// A time whose fields are meant in local time.
class TTempsLocal : public TTemps {
 public:
  using TTemps::TTemps;
  TTempsLocal() = default;
  void Set_Ahora();
};

#endif
