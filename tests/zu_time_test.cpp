#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "zu_time.h"

namespace {

class CKATimeTest : public ::testing::Test {
 protected:
  void SetUp() override { UseZone("UTC0"); }
  static void UseZone(const char* tz) {
    setenv("TZ", tz, 1);
    tzset();
  }
  static std::string Text(const CKATime& t, int format) { return t.ToString(format).GetBuf(); }
};

constexpr char kCentralEurope[] = "CET-1CEST,M3.5.0,M10.5.0/3";

}  // namespace

TEST_F(CKATimeTest, NumericSetTimeValidatesAndNormalises) {
  struct Case {
    int y, mo, d, h, mi, s;
    bool ok;
    const char* text;
  };
  const Case cases[] = {
      {1970, 1, 1, 0, 0, 0, true, "1970-01-01 00:00:00"},
      {2024, 3, 9, 7, 5, 0, true, "2024-03-09 07:05:00"},
      {2023, 2, 31, 0, 0, 0, true, "2023-03-03 00:00:00"},  // carried into March
      {1969, 12, 31, 23, 59, 59, false, nullptr},
      {2023, 1, 1, 0, 60, 0, false, nullptr},
      {2023, 1, 1, 24, 0, 0, false, nullptr},
      {2023, 1, 1, 0, 0, 60, false, nullptr},
      {2023, 1, 1, -1, 0, 0, false, nullptr},
      {2023, 0, 1, 0, 0, 0, false, nullptr},
      {2023, 13, 1, 0, 0, 0, false, nullptr},
      {2023, 1, 0, 0, 0, 0, false, nullptr},
      {2023, 1, 32, 0, 0, 0, false, nullptr},
  };
  for (const Case& c : cases) {
    CKATime t;
    ASSERT_TRUE(t.SetTime(static_cast<time_t>(12345)));
    EXPECT_EQ(c.ok, t.SetTime(c.y, c.mo, c.d, c.h, c.mi, c.s)) << c.y << "-" << c.mo << "-" << c.d;
    if (c.ok) {
      EXPECT_EQ(c.text, Text(t, 3));
    } else {
      EXPECT_EQ(12345, t.GetTime());  // unchanged
    }
  }
}

TEST_F(CKATimeTest, FieldsAreTakenAsStandardTime) {
  UseZone("CET-1");
  CKATime t;
  ASSERT_TRUE(t.SetTime(1970, 1, 1, 0, 0, 0));
  EXPECT_EQ(-3600, t.GetTime());  // east of UTC: negative, and still stored
  UseZone(kCentralEurope);
  ASSERT_TRUE(t.SetTime(2024, 7, 1, 12, 0, 0));
  EXPECT_EQ(1719831600, t.GetTime());  // 11:00 UTC, not 10:00: no summer shift applied
  EXPECT_EQ(13, t.GetHour());          // reads back one shift later
  ASSERT_TRUE(t.SetTime("2024-07-01 12:00:00"));
  EXPECT_EQ(1719831600, t.GetTime());
}

TEST_F(CKATimeTest, TextSetTimeNormalisesUncheckedFields) {
  struct Case {
    const char* in;
    const char* text;
  };
  const Case cases[] = {
      {"2023-01-01 00:60:00", "2023-01-01 01:00:00"},
      {"2023-01-01 10:75:00", "2023-01-01 11:15:00"},
      {"2024-03-09 07:05:00", "2024-03-09 07:05:00"},
      {"2024-03-09", "2024-03-09 00:00:00"},  // missing fields count as 0
      {"1999-12-31 23:59:60", "2000-01-01 00:00:00"},
  };
  for (const Case& c : cases) {
    CKATime t;
    EXPECT_TRUE(t.SetTime(c.in)) << c.in;
    EXPECT_EQ(c.text, Text(t, 3)) << c.in;
  }
  CKATime t;
  t.SetTime(static_cast<time_t>(77));
  EXPECT_FALSE(t.SetTime(static_cast<const char*>(nullptr)));
  EXPECT_EQ(77, t.GetTime());
}

TEST_F(CKATimeTest, SecondsSetTimeRefusesNegative) {
  CKATime t;
  EXPECT_EQ(0, t.GetTime());
  EXPECT_TRUE(t.SetTime(static_cast<time_t>(100)));
  EXPECT_FALSE(t.SetTime(static_cast<time_t>(-5)));
  EXPECT_EQ(100, t.GetTime());
  EXPECT_TRUE(t.SetTime(static_cast<time_t>(0)));
  EXPECT_EQ(0, t.GetTime());
}

TEST_F(CKATimeTest, YearTwoThousandThirtyEightBoundary) {
  CKATime t;
  ASSERT_TRUE(t.SetTime(2038, 1, 19, 3, 14, 7));
  EXPECT_EQ(2147483647, t.GetTime());
  EXPECT_EQ("2038-01-19 03:14:07", Text(t, 3));
  const bool wide = sizeof(time_t) > 4;
  // One second later cannot be held by a 32-bit time_t (32-bit ARM).
  EXPECT_EQ(wide, t.SetTime(2038, 1, 19, 3, 14, 8));
  EXPECT_EQ(wide, t.SetTime("2038-01-19 03:14:08"));
  EXPECT_EQ(wide ? "2038-01-19 03:14:08" : "2038-01-19 03:14:07", Text(t, 3));
}

TEST_F(CKATimeTest, GettersAndFormats) {
  CKATime t;
  ASSERT_TRUE(t.SetTime(2024, 3, 9, 7, 5, 0));
  EXPECT_EQ(2024, t.GetYear());
  EXPECT_EQ(3, t.GetMonth());
  EXPECT_EQ(9, t.GetDay());
  EXPECT_EQ(7, t.GetHour());
  EXPECT_EQ(5, t.GetMinute());
  EXPECT_EQ(0, t.GetSecond());
  EXPECT_TRUE(t.IsAM());
  EXPECT_EQ(6, t.GetWeek());  // Saturday: the day of the week
  EXPECT_EQ(68, t.GetDayOfYear());
  STimeInfo info;
  info.wMilliseconds = 9;
  t.GetTime(info);
  EXPECT_EQ(2024, info.wYear);
  EXPECT_EQ(0, info.wMilliseconds);
  EXPECT_EQ("2024-03-09", Text(t, 1));
  EXPECT_EQ("07:05:00", Text(t, 2));
  EXPECT_EQ("", Text(t, 0));
  EXPECT_EQ("", Text(t, 4));
  EXPECT_EQ("", Text(t, -1));
  t.AddTime(0, 5, 0, 0);
  EXPECT_FALSE(t.IsAM());
  CKATime epoch;
  EXPECT_EQ(4, epoch.GetWeek());  // 1970-01-01 was a Thursday
  EXPECT_EQ(0, epoch.GetDayOfYear());
}

TEST_F(CKATimeTest, AddTimeWrapsLikeThirtyTwoBitArithmetic) {
  struct Case {
    int days, hours, minutes, seconds;
    long long delta;
  };
  const Case cases[] = {
      {1, 0, 0, -86400, 0},
      {0, 0, 0, 0, 0},
      {1, 2, 3, 4, 93784},
      {-1, 0, 0, 0, -86400},
      {0, -1, 61, 0, 60},
      {24856, 0, 0, 0, -2147408896LL},  // 24856 days overflow 32 bits and wrap
  };
  for (const Case& c : cases) {
    CKATime t;
    t.SetTime(static_cast<time_t>(1000000000));
    t.AddTime(c.days, c.hours, c.minutes, c.seconds);
    EXPECT_EQ(1000000000LL + c.delta, static_cast<long long>(t.GetTime())) << c.days;
  }
}

TEST_F(CKATimeTest, DifferencesTruncateTowardZero) {
  CKATime a, b;
  a.SetTime(static_cast<time_t>(1000000000));
  b = a;
  b.AddTime(1, 12, 0, 0);  // a is 36 hours before b
  EXPECT_EQ(-1, a.DaysTo(b));
  EXPECT_EQ(1, b.DaysTo(a));
  EXPECT_EQ(-36, a.HoursTo(b));
  EXPECT_EQ(-2160, a.MinsTo(b));
  EXPECT_EQ(-129600, a.SecsTo(b));
  EXPECT_EQ(0, a.WeeksTo(b));
  b.AddTime(6, 0, 0, 0);
  EXPECT_EQ(-1, a.WeeksTo(b));
}

TEST_F(CKATimeTest, ComparesSeconds) {
  CKATime early, late;
  early.SetTime(static_cast<time_t>(10));
  late.SetTime(static_cast<time_t>(11));
  const CKATime same(early);
  EXPECT_TRUE(early == same);
  EXPECT_FALSE(early != same);
  EXPECT_TRUE(early != late);
  EXPECT_TRUE(early < late);
  EXPECT_TRUE(early <= same);
  EXPECT_FALSE(early > late);
  EXPECT_TRUE(late > early);
  EXPECT_TRUE(late >= early);
  EXPECT_FALSE(late <= early);
}

TEST_F(CKATimeTest, SetCurrentTimeTakesTheClock) {
  CKATime t;
  const time_t before = time(nullptr);
  t.SetCurrentTime();
  EXPECT_GE(t.GetTime(), before);
  EXPECT_LE(t.GetTime(), time(nullptr));
}

TEST_F(CKATimeTest, ConvertsConsistentlyFromSeveralThreads) {
  std::vector<std::thread> threads;
  std::vector<int> mismatches(4, 0);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i, &mismatches] {
      CKATime t;
      t.SetTime(static_cast<time_t>(86400 * 365 * (i + 1) + 3600 * i));
      const std::string expected = Text(t, 3);
      for (int n = 0; n < 2000; ++n) {
        if (Text(t, 3) != expected || t.GetHour() != i) ++mismatches[i];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::vector<int>(4, 0), mismatches);
}
