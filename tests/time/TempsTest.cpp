#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <limits>

#include "time/Temps.h"

namespace {

struct F {
  int y, mo, d, h, mi;
  float s;
};

TTemps Make(const F& f) {
  TTemps t(f.y, f.mo, f.d, f.h, f.mi, 0);
  t.seconds = f.s;
  return t;
}

::testing::AssertionResult Fields(const TTemps& t, const F& f) {
  if (t.year == f.y && t.month == f.mo && t.day == f.d && t.hour == f.h && t.minute == f.mi &&
      t.seconds == f.s)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << t.year << "-" << t.month << "-" << t.day << " "
                                       << t.hour << ":" << t.minute << ":" << t.seconds;
}

TEST(TTemps, TwoDigitYearsAndMonthLengths) {
  EXPECT_EQ(TTemps(49, 1, 1, 0, 0, 0).year, 2049);
  EXPECT_EQ(TTemps(50, 1, 1, 0, 0, 0).year, 1950);
  EXPECT_EQ(TTemps(-1, 1, 1, 0, 0, 0).year, 1999);
  EXPECT_EQ(TTemps(100, 1, 1, 0, 0, 0).year, 100);
  EXPECT_FALSE(TTemps(100, 1, 1, 0, 0, 0).Es_Valido());

  const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  for (int m = 1; m <= 12; ++m) EXPECT_EQ(TTemps::Dias_del_Mes(m, 2009), days[m - 1]) << m;
  // Every fourth year is leap, centuries included.
  for (int y : {1900, 2000, 2008, 2100}) EXPECT_EQ(TTemps::Dias_del_Mes(2, y), 29) << y;
  for (int m : {0, -2, 13}) EXPECT_EQ(TTemps::Dias_del_Mes(m, 2008), -1) << m;
}

TEST(TTemps, NormalizateCarriesInItsOwnOrder) {
  const struct {
    F in, out;
  } cases[] = {
      {{2009, 12, 31, 23, 59, 60.5f}, {2010, 1, 1, 0, 0, 0.5f}},
      {{2008, 2, 28, 25, 0, 0}, {2008, 2, 29, 1, 0, 0}},
      {{2009, 2, 28, 25, 0, 0}, {2009, 3, 1, 1, 0, 0}},
      {{2010, 6, 15, 10, 58, 125.5f}, {2010, 6, 15, 11, 0, 5.5f}},
      {{2010, 6, 15, 10, 150, 0}, {2010, 6, 15, 12, 30, 0}},
      {{2010, 6, 15, 10, -5, 0}, {2010, 6, 15, 10, -5, 0}},  // negative minutes stay
      // An exact negative multiple of 24 ends as hour 24 of the day before.
      {{2010, 3, 10, -24, 0, 0}, {2010, 3, 8, 24, 0, 0}},
      {{2010, 3, 10, -25, 0, 0}, {2010, 3, 8, 23, 0, 0}},
      {{2008, 3, 1, -1, 0, 0}, {2008, 2, 29, 23, 0, 0}},
      {{2010, 1, 1, -1, 30, 0}, {2009, 12, 31, 23, 30, 0}},
      // The current month's length serves for the whole carry.
      {{2010, 1, 62, 0, 0, 0}, {2010, 2, 31, 0, 0, 0}},
      {{2010, 12, 32, 0, 0, 0}, {2011, 1, 1, 0, 0, 0}},
      {{2010, 4, 31, 0, 0, 0}, {2010, 5, 1, 0, 0, 0}},
      // Days below 1 borrow one month only.
      {{2008, 3, 0, 0, 0, 0}, {2008, 2, 29, 0, 0, 0}},
      {{2008, 3, -40, 0, 0, 0}, {2008, 2, -11, 0, 0, 0}},
      // A month outside 1 to 12 has the length -1, and the steps use it all
      // the same.
      {{2010, 25, 5, 0, 0, 0}, {2011, 9, 1, 0, 0, 0}},
  };
  for (const auto& c : cases) {
    TTemps t = Make(c.in);
    t.Normalizate();
    EXPECT_TRUE(Fields(t, c.out)) << c.in.y << "-" << c.in.mo << "-" << c.in.d << " " << c.in.h;
  }
  // So the null time becomes 1 January of the year 0.
  TTemps null_time;
  null_time.Normalizate();
  EXPECT_TRUE(Fields(null_time, {0, 1, 1, 0, 0, 0}));
  // Absurd values must not overflow.
  TTemps big = Make({2010, 1, 1, 0, std::numeric_limits<int>::max(), 1e30f});
  big.Normalizate();
  EXPECT_TRUE(big.minute >= 0 && big.minute <= 59 && big.hour >= 0 && big.hour <= 23);
}

TEST(TTemps, ValidityNullAndOrder) {
  EXPECT_TRUE(TTemps(2010, 4, 31, 0, 0, 0).Es_Valido());  // month length not checked
  EXPECT_TRUE(Make({1900, 1, 1, 23, 59, 60.0f}).Es_Valido());
  for (const F& f : std::initializer_list<F>{{2010, 13, 1, 0, 0, 0}, {2010, 0, 1, 0, 0, 0},
                                             {2010, 1, 0, 0, 0, 0}, {2010, 1, 32, 0, 0, 0},
                                             {2010, 1, 1, 24, 0, 0}, {2010, 1, 1, -1, 0, 0},
                                             {2010, 1, 1, 0, 60, 0}, {1899, 1, 1, 0, 0, 0},
                                             {2010, 1, 1, 0, 0, 60.01f}, {2010, 1, 1, 0, 0, -0.01f},
                                             {2010, 1, 1, 0, 0, std::nanf("")}})
    EXPECT_FALSE(Make(f).Es_Valido()) << f.y << "-" << f.mo << "-" << f.d << " " << f.h;

  TTemps null;
  EXPECT_TRUE(null.Es_NULL());
  null.seconds = 0.0005f;
  EXPECT_TRUE(null.Es_NULL());
  null.seconds = 0.002f;
  EXPECT_FALSE(null.Es_NULL());

  TTemps base = Make({2010, 6, 15, 12, 30, 10.5f});
  // Each candidate has an earlier field smaller and all later ones larger.
  for (const F& f : std::initializer_list<F>{{2009, 12, 31, 23, 59, 59}, {2010, 5, 31, 23, 59, 59},
                                             {2010, 6, 14, 23, 59, 59}, {2010, 6, 15, 11, 59, 59},
                                             {2010, 6, 15, 12, 29, 59}, {2010, 6, 15, 12, 30, 10.25f}}) {
    TTemps e = Make(f);
    EXPECT_TRUE(e < base && e <= base && base > e && base >= e && e != base) << f.y << f.mo << f.d;
    EXPECT_FALSE(e > base || e >= base || e == base);
  }
  TTemps same = Make({2010, 6, 15, 12, 30, 10.5f});
  EXPECT_TRUE(same == base && same <= base && same >= base && !(same < base));
  EXPECT_FALSE(Make({2010, 6, 15, 12, 30, 10.5f + 1e-5f}) == base);  // exact seconds

  EXPECT_TRUE(Mismo_Dia(base, Make({2010, 6, 15, 0, 1, 2})));
  EXPECT_FALSE(Mismo_Dia(base, Make({2010, 6, 16, 12, 30, 10.5f})));
  same.Set_Fecha(Make({1999, 12, 31, 9, 9, 9}));
  EXPECT_TRUE(Fields(same, {1999, 12, 31, 12, 30, 10.5f}));
}

TEST(TTemps, BrokenDownTimesAndSecondsSince1970) {
  tm b{};
  b.tm_sec = 7, b.tm_min = 8, b.tm_hour = 9, b.tm_mday = 29, b.tm_mon = 1, b.tm_year = 108;
  TTemps t;
  t.Lee_tm(b);
  EXPECT_TRUE(Fields(t, {2008, 2, 29, 9, 8, 7}));
  time_t leap_day = 951782400;
  t.Lee_time_t(leap_day);
  EXPECT_TRUE(Fields(t, {2000, 2, 29, 0, 0, 0}));

  t.SetSegs1970(0.25);
  EXPECT_TRUE(Fields(t, {1970, 1, 1, 0, 0, 0.25f}));
  EXPECT_DOUBLE_EQ(t.Segs1970(), 0.25);
  // Before 1970 the fraction stays positive and the value comes back.
  t.SetSegs1970(-0.75);
  EXPECT_TRUE(Fields(t, {1969, 12, 31, 23, 59, 59.25f}));
  EXPECT_DOUBLE_EQ(t.Segs1970(), -0.75);
  t.SetSegs1970(951868799.75);
  EXPECT_TRUE(Fields(t, {2000, 2, 29, 23, 59, 59.75f}));
  for (double v : {1234567890.5, 951868799.75, 86399.5, 1e9 + 0.125, 2147483647.5}) {
    t.SetSegs1970(v);
    EXPECT_DOUBLE_EQ(t.Segs1970(), v) << v;
  }
  EXPECT_DOUBLE_EQ(TTemps(2009, 2, 13, 23, 31, 30).Segs1970(), 1234567890.0);
  // Out-of-range fields are carried by the C library.
  EXPECT_DOUBLE_EQ(TTemps(2010, 1, 32, 0, 0, 0).Segs1970(), TTemps(2010, 2, 1, 0, 0, 0).Segs1970());
  // Seconds no clock can hold leave the value alone.
  TTemps kept(2010, 1, 2, 3, 4, 5);
  kept.SetSegs1970(std::numeric_limits<double>::quiet_NaN());
  kept.SetSegs1970(1e300);
  EXPECT_TRUE(Fields(kept, {2010, 1, 2, 3, 4, 5}));
}

TEST(TTemps, ClockReadingsAndScales) {
  time_t before = time(nullptr);
  TTempsUTC utc;
  EXPECT_TRUE(utc.Es_NULL());
  utc.Set_Ahora();
  time_t after = time(nullptr);
  // The fraction comes from a second reading, so it may run one second on.
  EXPECT_GE(utc.Segs1970(), static_cast<double>(before));
  EXPECT_LT(utc.Segs1970(), static_cast<double>(after) + 2.0);
  TTempsLocal local;
  local.Set_Ahora();
  EXPECT_TRUE(local.Es_Valido());
  EXPECT_EQ(local.seconds, std::floor(local.seconds));
}

}  // namespace
