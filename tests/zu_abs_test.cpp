#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <string>

#include "zu_abs.h"

TEST(SignTests, UseToleranceOfOneHundredThousandthBothEndsZero) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    double x;
    const char* signs;  // isPositiveDigit, isNegativeDigit, isZeroDigit
  } cases[] = {{0.0, "001"},       {0.00001, "001"},    {-0.00001, "001"},
               {0.0000101, "100"}, {-0.0000101, "010"}, {2.5, "100"},
               {-2.5, "010"},      {0.000005, "001"},   {nan, "000"}};
  for (const auto& c : cases) {
    const std::string got = {"01"[isPositiveDigit(c.x)], "01"[isNegativeDigit(c.x)],
                             "01"[isZeroDigit(c.x)]};
    EXPECT_EQ(got, c.signs) << c.x;
  }
  EXPECT_TRUE(isPositiveDigit(0.5f));
  EXPECT_TRUE(isNegativeDigit(-0.5f));
  EXPECT_TRUE(isZeroDigit(0.000001f));
  EXPECT_FALSE(isZeroDigit(std::numeric_limits<float>::quiet_NaN()));
  const std::string longs = {"01"[isZeroDigit(0L)],      "01"[isZeroDigit(1L)],
                             "01"[isPositiveDigit(1L)],  "01"[isPositiveDigit(0L)],
                             "01"[isNegativeDigit(-1L)], "01"[isNegativeDigit(0L)]};
  EXPECT_EQ(longs, "101010");
}

TEST(JABS, IntegerOverloadsKeepTheirOddResults) {
  EXPECT_EQ(JABS(static_cast<short>(-5)), 5);
  EXPECT_EQ(JABS(static_cast<short>(-32768)), -32768);
  EXPECT_EQ(JABS(static_cast<unsigned short>(65535)), -1);  // deliberate: read as signed
  EXPECT_EQ(JABS(static_cast<unsigned short>(40000)), -25536);
  EXPECT_EQ(JABS(-7), 7);
  EXPECT_EQ(JABS(INT_MIN), INT_MIN);
  EXPECT_EQ(JABS(4294967295u), 4294967295u);
  EXPECT_EQ(JABS(-9L), 9L);
  EXPECT_EQ(JABS(LONG_MIN), LONG_MIN);
  EXPECT_EQ(JABS(ULONG_MAX), 1UL);  // deliberate: read as signed, then negated
  EXPECT_EQ(JABS(5UL), 5UL);
}

TEST(JABS, FloatingOverloadsKeepTinyNegatives) {
  EXPECT_EQ(JABS(-0.000005), -0.000005);
  EXPECT_EQ(JABS(-2.5), 2.5);
  EXPECT_EQ(JABS(2.5), 2.5);
  EXPECT_EQ(JABS(-2.5f), 2.5f);
  EXPECT_EQ(JABS(-0.000005f), -0.000005f);
}
