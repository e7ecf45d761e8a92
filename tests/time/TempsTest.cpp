#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <limits>

#include "time/Temps.h"

namespace {

TTemps Make(int y, int mo, int d, int h, int mi, float s) {
  TTemps t(y, mo, d, h, mi, 0);
  t.seconds = s;
  return t;
}

void ExpectFields(const TTemps& t, int y, int mo, int d, int h, int mi, float s) {
  EXPECT_EQ(t.year, y);
  EXPECT_EQ(t.month, mo);
  EXPECT_EQ(t.day, d);
  EXPECT_EQ(t.hour, h);
  EXPECT_EQ(t.minute, mi);
  EXPECT_FLOAT_EQ(t.seconds, s);
}

TEST(TTemps, TwoDigitYearsMeanNineteenFiftyToTwentyFortyNine) {
  EXPECT_EQ(TTemps(7, 3, 1, 0, 0, 0).year, 2007);
  EXPECT_EQ(TTemps(0, 1, 1, 0, 0, 0).year, 2000);
  EXPECT_EQ(TTemps(49, 1, 1, 0, 0, 0).year, 2049);
  EXPECT_EQ(TTemps(50, 1, 1, 0, 0, 0).year, 1950);
  EXPECT_EQ(TTemps(75, 1, 1, 0, 0, 0).year, 1975);
  EXPECT_EQ(TTemps(99, 1, 1, 0, 0, 0).year, 1999);
  EXPECT_EQ(TTemps(-1, 1, 1, 0, 0, 0).year, 1999);
  EXPECT_EQ(TTemps(1987, 1, 1, 0, 0, 0).year, 1987);
  TTemps hundred(100, 1, 1, 0, 0, 0);
  EXPECT_EQ(hundred.year, 100);
  EXPECT_FALSE(hundred.Es_Valido());
  ExpectFields(TTemps(2010, 5, 6, 7, 8, 9), 2010, 5, 6, 7, 8, 9.0f);
}

TEST(TTemps, DaysOfTheMonthCountEveryFourthYearAsLeap) {
  const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  for (int m = 1; m <= 12; ++m) EXPECT_EQ(TTemps::Dias_del_Mes(m, 2009), days[m - 1]) << m;
  EXPECT_EQ(TTemps::Dias_del_Mes(2, 2008), 29);
  EXPECT_EQ(TTemps::Dias_del_Mes(2, 1900), 29);
  EXPECT_EQ(TTemps::Dias_del_Mes(2, 2100), 29);
  EXPECT_EQ(TTemps::Dias_del_Mes(2, 2000), 29);
  EXPECT_EQ(TTemps::Dias_del_Mes(0, 2008), -1);
  EXPECT_EQ(TTemps::Dias_del_Mes(-2, 2008), -1);
  EXPECT_EQ(TTemps::Dias_del_Mes(13, 2008), -1);
}

TEST(TTempsNormalizate, LeapSecondAtNewYearCarriesIntoTheNextYear) {
  TTemps t = Make(2009, 12, 31, 23, 59, 60.5f);
  t.Normalizate();
  ExpectFields(t, 2010, 1, 1, 0, 0, 0.5f);
  EXPECT_TRUE(t.Es_Valido());
}

TEST(TTempsNormalizate, HourPastMidnightOnTheTwentyEighthOfFebruary) {
  TTemps leap = Make(2008, 2, 28, 25, 0, 0);
  leap.Normalizate();
  ExpectFields(leap, 2008, 2, 29, 1, 0, 0);
  // No century rule: 2100 has a 29 February too.
  TTemps century = Make(2100, 2, 28, 25, 0, 0);
  century.Normalizate();
  ExpectFields(century, 2100, 2, 29, 1, 0, 0);
  TTemps common = Make(2009, 2, 28, 25, 0, 0);
  common.Normalizate();
  ExpectFields(common, 2009, 3, 1, 1, 0, 0);
}

TEST(TTempsNormalizate, SecondsAndMinutesCarryUpwards) {
  TTemps t = Make(2010, 6, 15, 10, 58, 125.5f);
  t.Normalizate();
  ExpectFields(t, 2010, 6, 15, 11, 0, 5.5f);
  TTemps m = Make(2010, 6, 15, 10, 150, 0);
  m.Normalizate();
  ExpectFields(m, 2010, 6, 15, 12, 30, 0);
  // Negative minutes are not borrowed from the hour.
  TTemps neg = Make(2010, 6, 15, 10, -5, 0);
  neg.Normalizate();
  ExpectFields(neg, 2010, 6, 15, 10, -5, 0);
}

TEST(TTempsNormalizate, NegativeHoursBorrowDays) {
  // An exact negative multiple of 24 ends as hour 24 of the day before.
  TTemps t = Make(2010, 3, 10, -24, 0, 0);
  t.Normalizate();
  ExpectFields(t, 2010, 3, 8, 24, 0, 0);
  TTemps t25 = Make(2010, 3, 10, -25, 0, 0);
  t25.Normalizate();
  ExpectFields(t25, 2010, 3, 8, 23, 0, 0);
  // Across the start of a month into a leap February.
  TTemps feb = Make(2008, 3, 1, -1, 0, 0);
  feb.Normalizate();
  ExpectFields(feb, 2008, 2, 29, 23, 0, 0);
  // Across the start of the year.
  TTemps ny = Make(2010, 1, 1, -1, 30, 0);
  ny.Normalizate();
  ExpectFields(ny, 2009, 12, 31, 23, 30, 0);
}

TEST(TTempsNormalizate, DaysCarryWithTheLengthOfTheCurrentMonth) {
  // The length of January serves for the whole carry.
  TTemps t = Make(2010, 1, 62, 0, 0, 0);
  t.Normalizate();
  ExpectFields(t, 2010, 2, 31, 0, 0, 0);
  TTemps dec = Make(2010, 12, 32, 0, 0, 0);
  dec.Normalizate();
  ExpectFields(dec, 2011, 1, 1, 0, 0, 0);
  TTemps apr = Make(2010, 4, 31, 0, 0, 0);
  apr.Normalizate();
  ExpectFields(apr, 2010, 5, 1, 0, 0, 0);
}

TEST(TTempsNormalizate, DaysBelowOneBorrowOnlyOneMonth) {
  TTemps t = Make(2010, 1, 0, 12, 0, 0);
  t.Normalizate();
  ExpectFields(t, 2009, 12, 31, 12, 0, 0);
  TTemps mar = Make(2008, 3, 0, 0, 0, 0);
  mar.Normalizate();
  ExpectFields(mar, 2008, 2, 29, 0, 0, 0);
  // Forty days back borrow only February's 29 days.
  TTemps far = Make(2008, 3, -40, 0, 0, 0);
  far.Normalizate();
  ExpectFields(far, 2008, 2, -11, 0, 0, 0);
}

TEST(TTempsNormalizate, MonthsCarryIntoYears) {
  TTemps t = Make(2010, 25, 5, 0, 0, 0);
  t.Normalizate();
  ExpectFields(t, 2012, 1, 5, 0, 0, 0);
  TTemps twelve = Make(2010, 12, 5, 0, 0, 0);
  twelve.Normalizate();
  ExpectFields(twelve, 2010, 12, 5, 0, 0, 0);
}

TEST(TTempsNormalizate, AbsurdFieldsDoNotOverflow) {
  TTemps t = Make(2010, 1, 1, 0, std::numeric_limits<int>::max(), 1e30f);
  t.Normalizate();
  EXPECT_GE(t.minute, 0);
  EXPECT_LE(t.minute, 59);
  EXPECT_GE(t.hour, 0);
  EXPECT_LE(t.hour, 23);
  TTemps n = Make(2010, 1, 1, 0, 0, std::numeric_limits<float>::infinity());
  n.Normalizate();
  EXPECT_TRUE(std::isinf(n.seconds));
}

TEST(TTemps, ValidityChecksRangesButNotTheMonthLength) {
  EXPECT_TRUE(TTemps(2010, 4, 31, 0, 0, 0).Es_Valido());
  EXPECT_FALSE(TTemps(2010, 13, 1, 0, 0, 0).Es_Valido());
  EXPECT_FALSE(TTemps(2010, 0, 1, 0, 0, 0).Es_Valido());
  EXPECT_FALSE(TTemps(2010, 1, 0, 0, 0, 0).Es_Valido());
  EXPECT_FALSE(TTemps(2010, 1, 32, 0, 0, 0).Es_Valido());
  EXPECT_FALSE(TTemps(2010, 1, 1, 24, 0, 0).Es_Valido());
  EXPECT_FALSE(TTemps(2010, 1, 1, -1, 0, 0).Es_Valido());
  EXPECT_FALSE(TTemps(2010, 1, 1, 0, 60, 0).Es_Valido());
  EXPECT_FALSE(TTemps(2010, 1, 1, 0, -1, 0).Es_Valido());
  EXPECT_FALSE(TTemps(1899, 1, 1, 0, 0, 0).Es_Valido());
  EXPECT_TRUE(TTemps(1900, 1, 1, 23, 59, 0).Es_Valido());
  EXPECT_TRUE(Make(2010, 1, 1, 0, 0, 60.0f).Es_Valido());
  EXPECT_FALSE(Make(2010, 1, 1, 0, 0, 60.01f).Es_Valido());
  EXPECT_FALSE(Make(2010, 1, 1, 0, 0, -0.01f).Es_Valido());
  EXPECT_FALSE(Make(2010, 1, 1, 0, 0, std::nanf("")).Es_Valido());
}

TEST(TTemps, NullTimeToleratesTinySeconds) {
  TTemps t;
  EXPECT_TRUE(t.Es_NULL());
  t.seconds = 0.0005f;
  EXPECT_TRUE(t.Es_NULL());
  t.seconds = -0.0005f;
  EXPECT_TRUE(t.Es_NULL());
  t.seconds = 0.002f;
  EXPECT_FALSE(t.Es_NULL());
  EXPECT_TRUE(TTempsUTC().Es_NULL());
  EXPECT_TRUE(TTempsLocal().Es_NULL());
  EXPECT_FALSE(TTemps(2000, 0, 0, 0, 0, 0).Es_NULL());
}

TEST(TTemps, ComparisonGoesFromYearDownToSeconds) {
  TTemps base = Make(2010, 6, 15, 12, 30, 10.5f);
  // Each later field is larger in `a` but an earlier one is smaller.
  TTemps a = Make(2009, 12, 31, 23, 59, 59.0f);
  EXPECT_TRUE(a < base);
  EXPECT_TRUE(Make(2010, 5, 31, 23, 59, 59.0f) < base);
  EXPECT_TRUE(Make(2010, 6, 14, 23, 59, 59.0f) < base);
  EXPECT_TRUE(Make(2010, 6, 15, 11, 59, 59.0f) < base);
  EXPECT_TRUE(Make(2010, 6, 15, 12, 29, 59.0f) < base);
  EXPECT_TRUE(Make(2010, 6, 15, 12, 30, 10.25f) < base);
  TTemps same = Make(2010, 6, 15, 12, 30, 10.5f);
  EXPECT_TRUE(same == base);
  EXPECT_FALSE(same != base);
  EXPECT_TRUE(same <= base);
  EXPECT_TRUE(same >= base);
  EXPECT_FALSE(same < base);
  EXPECT_FALSE(same > base);
  TTemps later = Make(2010, 6, 15, 12, 30, 10.75f);
  EXPECT_TRUE(later > base);
  EXPECT_TRUE(later >= base);
  EXPECT_FALSE(later <= base);
  EXPECT_TRUE(later != base);
  // Equality of the seconds is exact.
  TTemps close = Make(2010, 6, 15, 12, 30, 10.5f + 1e-5f);
  EXPECT_FALSE(close == base);
}

TEST(TTemps, SameDayAndDateCopy) {
  TTemps a = Make(2010, 6, 15, 1, 2, 3);
  TTemps b = Make(2010, 6, 15, 22, 40, 50);
  EXPECT_TRUE(Mismo_Dia(a, b));
  b.day = 16;
  EXPECT_FALSE(Mismo_Dia(a, b));
  a.Set_Fecha(Make(1999, 12, 31, 9, 9, 9));
  ExpectFields(a, 1999, 12, 31, 1, 2, 3);
}

TEST(TTemps, BrokenDownTimes) {
  tm b{};
  b.tm_sec = 7;
  b.tm_min = 8;
  b.tm_hour = 9;
  b.tm_mday = 29;
  b.tm_mon = 1;
  b.tm_year = 108;
  TTemps t;
  t.Lee_tm(b);
  ExpectFields(t, 2008, 2, 29, 9, 8, 7);
  time_t leap_day = 951782400;  // 2000-02-29 00:00:00 UTC
  t.Lee_time_t(leap_day);
  ExpectFields(t, 2000, 2, 29, 0, 0, 0);
  time_t epoch = 0;
  t.Lee_time_t(epoch);
  ExpectFields(t, 1970, 1, 1, 0, 0, 0);
}

TEST(TTempsSegs1970, FractionsSurviveTheRoundTrip) {
  TTemps t;
  t.SetSegs1970(0.25);
  ExpectFields(t, 1970, 1, 1, 0, 0, 0.25f);
  EXPECT_DOUBLE_EQ(t.Segs1970(), 0.25);

  EXPECT_DOUBLE_EQ(TTemps(2009, 2, 13, 23, 31, 30).Segs1970(), 1234567890.0);
  const double values[] = {1234567890.5, 951868799.75, 86399.5, 1e9 + 0.125, 2147483647.5};
  for (double v : values) {
    TTemps r;
    r.SetSegs1970(v);
    EXPECT_TRUE(r.Es_Valido()) << v;
    EXPECT_DOUBLE_EQ(r.Segs1970(), v) << v;
  }
  TTemps leap;
  leap.SetSegs1970(951868799.75);  // the last quarter second of 29 February 2000
  ExpectFields(leap, 2000, 2, 29, 23, 59, 59.75f);
  if (sizeof(time_t) >= 8) {
    TTemps far;
    far.SetSegs1970(4102444800.25);  // 2100-01-01
    ExpectFields(far, 2100, 1, 1, 0, 0, 0.25f);
    EXPECT_DOUBLE_EQ(far.Segs1970(), 4102444800.25);
  }
}

TEST(TTempsSegs1970, SecondsOutsideTheClockLeaveTheValueAlone) {
  TTemps t(2010, 1, 2, 3, 4, 5);
  t.SetSegs1970(std::numeric_limits<double>::quiet_NaN());
  t.SetSegs1970(1e300);
  ExpectFields(t, 2010, 1, 2, 3, 4, 5);
}

TEST(TTempsSegs1970, MomentsBefore1970KeepAPositiveFraction) {
  TTemps t;
  t.SetSegs1970(-0.75);
  ExpectFields(t, 1969, 12, 31, 23, 59, 59.25f);
  EXPECT_DOUBLE_EQ(t.Segs1970(), -0.75);
}

TEST(TTempsSegs1970, FieldsOutOfRangeAreReadAsCarried) {
  // The C library carries the fields itself: the 32nd of January is 1 February.
  EXPECT_DOUBLE_EQ(TTemps(2010, 1, 32, 0, 0, 0).Segs1970(),
                   TTemps(2010, 2, 1, 0, 0, 0).Segs1970());
  TTemps t = Make(1970, 1, 1, 0, 0, 1.5f);
  EXPECT_DOUBLE_EQ(t.Segs1970(), 1.5);
}

TEST(TTemps, ClockReadings) {
  time_t before = time(nullptr);
  TTempsUTC utc;
  utc.Set_Ahora();
  time_t after = time(nullptr);
  EXPECT_TRUE(utc.Es_Valido());
  // The two readings of the clock are not matched, so the fraction may
  // push the value one second past the second that was read.
  EXPECT_GE(utc.Segs1970(), static_cast<double>(before));
  EXPECT_LT(utc.Segs1970(), static_cast<double>(after) + 2.0);

  TTempsLocal local;
  local.Set_Ahora();
  EXPECT_TRUE(local.Es_Valido());
  EXPECT_EQ(local.seconds, std::floor(local.seconds));
  TTemps plain;
  plain.Set_Ahora();
  EXPECT_TRUE(plain.Es_Valido());
}

TEST(TTemps, DerivedScalesCanBeToldApart) {
  TTempsUTC utc(2010, 1, 1, 0, 0, 0);
  TTempsLocal local(10, 1, 1, 0, 0, 0);
  EXPECT_EQ(local.year, 2010);
  TTemps* p = &utc;
  EXPECT_NE(dynamic_cast<TTempsUTC*>(p), nullptr);
  EXPECT_EQ(dynamic_cast<TTempsLocal*>(p), nullptr);
  p->ParaSerPolimorfico();
  EXPECT_TRUE(utc == local);
}

}  // namespace
