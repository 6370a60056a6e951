#include "zu_time.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "test_util.h"

using zutest::SetTimeZone;

namespace {

class CKATimeTest : public ::testing::Test {
 protected:
  void SetUp() override { SetTimeZone("UTC0"); }
  static std::string Text(const CKATime& t, int format) { return t.ToString(format).GetBuf(); }
};

constexpr char kCentralEurope[] = "CET-1CEST,M3.5.0,M10.5.0/3";

}  // namespace

TEST_F(CKATimeTest, NumericSetTimeValidatesAndNormalises) {
  const struct {
    int f[6];
    const char* text;
  } good[] = {{{1970, 1, 1, 0, 0, 0}, "1970-01-01 00:00:00"},
              {{2024, 3, 9, 7, 5, 0}, "2024-03-09 07:05:00"},
              {{2023, 2, 31, 0, 0, 0}, "2023-03-03 00:00:00"}};  // carried into March
  const int bad[][6] = {{1969, 12, 31, 23, 59, 59}, {2023, 1, 1, 0, 60, 0}, {2023, 1, 1, 24, 0, 0},
                        {2023, 1, 1, 0, 0, 60},     {2023, 1, 1, -1, 0, 0}, {2023, 0, 1, 0, 0, 0},
                        {2023, 13, 1, 0, 0, 0},     {2023, 1, 0, 0, 0, 0},  {2023, 1, 32, 0, 0, 0}};
  for (const auto& c : good) {
    CKATime t;
    EXPECT_TRUE(t.SetTime(c.f[0], c.f[1], c.f[2], c.f[3], c.f[4], c.f[5])) << c.text;
    EXPECT_EQ(c.text, Text(t, 3));
  }
  for (const auto& f : bad) {
    CKATime t;
    ASSERT_TRUE(t.SetTime(static_cast<time_t>(12345)));
    EXPECT_FALSE(t.SetTime(f[0], f[1], f[2], f[3], f[4], f[5]))
        << f[0] << "-" << f[1] << "-" << f[2];
    EXPECT_EQ(12345, t.GetTime());  // unchanged
  }
}

TEST_F(CKATimeTest, FieldsAreTakenAsStandardTime) {
  SetTimeZone("CET-1");
  CKATime t;
  ASSERT_TRUE(t.SetTime(1970, 1, 1, 0, 0, 0));
  EXPECT_EQ(-3600, t.GetTime());  // east of UTC: negative, and still stored
  SetTimeZone(kCentralEurope);
  ASSERT_TRUE(t.SetTime(2024, 7, 1, 12, 0, 0));
  EXPECT_EQ(1719831600, t.GetTime());  // 11:00 UTC, not 10:00: no summer shift applied
  EXPECT_EQ(13, t.GetHour());          // reads back one shift later
  ASSERT_TRUE(t.SetTime("2024-07-01 12:00:00"));
  EXPECT_EQ(1719831600, t.GetTime());
}

TEST_F(CKATimeTest, TextSetTimeNormalisesUncheckedFieldsAndRefusesNull) {
  const std::pair<const char*, const char*> cases[] = {
      {"2023-01-01 00:60:00", "2023-01-01 01:00:00"},
      {"2023-01-01 10:75:00", "2023-01-01 11:15:00"},
      {"2024-03-09 07:05:00", "2024-03-09 07:05:00"},
      {"2024-03-09", "2024-03-09 00:00:00"},  // missing fields count as 0
      {"1999-12-31 23:59:60", "2000-01-01 00:00:00"},
  };
  for (const auto& c : cases) {
    CKATime t;
    EXPECT_TRUE(t.SetTime(c.first)) << c.first;
    EXPECT_EQ(c.second, Text(t, 3)) << c.first;
  }
  CKATime t;
  EXPECT_EQ(0, t.GetTime());
  EXPECT_TRUE(t.SetTime(static_cast<time_t>(77)));
  EXPECT_FALSE(t.SetTime(static_cast<const char*>(nullptr)));
  EXPECT_FALSE(t.SetTime(static_cast<time_t>(-5)));  // negative seconds are refused
  EXPECT_EQ(77, t.GetTime());
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
  CKATime t, epoch;
  ASSERT_TRUE(t.SetTime(2024, 3, 9, 7, 5, 0));
  // GetWeek is the day of the week (Saturday 6; 1970-01-01 was a Thursday).
  EXPECT_EQ((std::vector<int>{2024, 3, 9, 7, 5, 0, 6, 68, 1, 4, 0}),
            (std::vector<int>{t.GetYear(), t.GetMonth(), t.GetDay(), t.GetHour(), t.GetMinute(),
                              t.GetSecond(), t.GetWeek(), t.GetDayOfYear(), t.IsAM(),
                              epoch.GetWeek(), epoch.GetDayOfYear()}));
  STimeInfo info;
  info.wMilliseconds = 9;
  t.GetTime(info);
  EXPECT_EQ(2024, info.wYear);
  EXPECT_EQ(0, info.wMilliseconds);
  const std::vector<std::string> texts = {Text(t, 1), Text(t, 2), Text(t, 0), Text(t, 4),
                                          Text(t, -1)};
  EXPECT_EQ((std::vector<std::string>{"2024-03-09", "07:05:00", "", "", ""}), texts);
  t.AddTime(0, 5, 0, 0);
  EXPECT_FALSE(t.IsAM());
}

TEST_F(CKATimeTest, AddTimeWrapsLikeThirtyTwoBitArithmetic) {
  // days, hours, minutes, seconds -> change; 24856 days overflow 32 bits and wrap.
  const struct {
    int days, hours, minutes, seconds;
    long long delta;
  } cases[] = {{1, 0, 0, -86400, 0},  {0, 0, 0, 0, 0},    {1, 2, 3, 4, 93784},
               {-1, 0, 0, 0, -86400}, {0, -1, 61, 0, 60}, {24856, 0, 0, 0, -2147408896LL}};
  for (const auto& c : cases) {
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
  EXPECT_EQ((std::vector<int>{-1, 1, -36, -2160, -129600, 0}),
            (std::vector<int>{a.DaysTo(b), b.DaysTo(a), a.HoursTo(b), a.MinsTo(b), a.SecsTo(b),
                              a.WeeksTo(b)}));
  b.AddTime(6, 0, 0, 0);
  EXPECT_EQ(-1, a.WeeksTo(b));
}

TEST_F(CKATimeTest, ComparesSecondsAndTakesTheClock) {
  CKATime early, late;
  early.SetTime(static_cast<time_t>(10));
  late.SetTime(static_cast<time_t>(11));
  const CKATime same(early);
  EXPECT_TRUE(early == same && !(early != same) && early != late && early < late);
  EXPECT_TRUE(early <= same && !(early > late) && late > early && late >= early);
  EXPECT_FALSE(late <= early || early == late || late < early || early >= late);
  const time_t before = time(nullptr);
  late.SetCurrentTime();
  EXPECT_GE(late.GetTime(), before);
  EXPECT_LE(late.GetTime(), time(nullptr));
}

TEST_F(CKATimeTest, ConvertsConsistentlyFromSeveralThreads) {
  std::vector<int> mismatches(4, 0);
  zutest::RunThreads(4, [&mismatches](int i) {
    CKATime t;
    t.SetTime(static_cast<time_t>(86400 * 365 * (i + 1) + 3600 * i));
    const std::string expected = Text(t, 3);
    for (int n = 0; n < 2000; ++n) {
      if (Text(t, 3) != expected || t.GetHour() != i) ++mismatches[i];
    }
  });
  EXPECT_EQ(std::vector<int>(4, 0), mismatches);
}
