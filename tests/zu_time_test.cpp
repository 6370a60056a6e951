#include "zu_time.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_util.h"

TEST(CKATime, SetTimeValidatesFieldsNormalisesTextAndTakesStandardTime) {
  zutest::SetTimeZone("UTC0");
  const int bad[][6] = {{1969, 12, 31, 23, 59, 59}, {2023, 1, 1, 24, 0, 0}, {2023, 13, 1, 0, 0, 0},
                        {2023, 1, 1, 0, 60, 0},     {2023, 1, 0, 0, 0, 0},  {2023, 1, 1, 0, 0, -1}};
  CKATime t;
  t.SetTime(time_t{77});
  for (const auto& f : bad) EXPECT_FALSE(t.SetTime(f[0], f[1], f[2], f[3], f[4], f[5])) << f[0];
  EXPECT_FALSE(t.SetTime(static_cast<const char*>(nullptr)) || t.SetTime(time_t{-5}));
  EXPECT_EQ(77, t.GetTime());  // refusals leave the time unchanged
  EXPECT_TRUE(t.SetTime(2023, 2, 31, 0, 0, 0) && t.GetTime() == 1677801600);  // into March
  EXPECT_TRUE(t.SetTime("1999-12-31 23:60:60") && t.GetTime() == 946684860);  // unchecked text
  EXPECT_TRUE(t.SetTime(2038, 1, 19, 3, 14, 7) && t.GetTime() == 2147483647);
  EXPECT_EQ(sizeof(time_t) > 4, t.SetTime(2038, 1, 19, 3, 14, 8));  // past a 32-bit time_t
  zutest::SetTimeZone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_TRUE(t.SetTime(2024, 7, 1, 12, 0, 0) && t.GetTime() == 1719831600);  // deliberate
  EXPECT_STREQ("2024-07-01 13:00:00", t.ToString(3).GetBuf());                // but one on output
  EXPECT_EQ(1, t.GetWeek());  // kept: the day of the week, Monday
}

TEST(CKATime, ArithmeticWrapsAtThirtyTwoBitsAndDifferencesTruncate) {
  CKATime a, b;
  a.SetTime(static_cast<time_t>(1000000000));
  b = a;
  a.AddTime(24856, 0, 0, 0);  // the day count overflows 32 bits and wraps
  EXPECT_EQ(1000000000LL - 2147408896LL, static_cast<long long>(a.GetTime()));
  a = b;
  b.AddTime(1, 12, 0, 0);
  EXPECT_EQ((std::vector<int>{-1, 1, -36, -129600, 0}),
            (std::vector<int>{a.DaysTo(b), b.DaysTo(a), a.HoursTo(b), a.SecsTo(b), a.WeeksTo(b)}));
}

TEST(CKATime, ConvertsConsistentlyFromSeveralThreads) {
  std::vector<int> mismatches(4, 0);
  zutest::RunThreads(4, [&mismatches](int i) {
    CKATime t;
    t.SetTime(static_cast<time_t>(86400 * 365 * (i + 1) + 3600 * i));
    const std::string expected = t.ToString(3).GetBuf();
    for (int n = 0; n < 2000; ++n) mismatches[i] += expected != t.ToString(3).GetBuf();
  });
  EXPECT_EQ(std::vector<int>(4, 0), mismatches);
}
