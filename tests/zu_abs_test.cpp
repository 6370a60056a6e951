#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>

#include "zu_abs.h"

TEST(SignTests, UseToleranceOfOneHundredThousandth) {
  struct Case {
    double x;
    bool positive, negative, zero;
  };
  const Case cases[] = {
      {0.0, false, false, true},        {0.00001, false, false, true},
      {-0.00001, false, false, true},   {0.0000101, true, false, false},
      {-0.0000101, false, true, false}, {2.5, true, false, false},
      {-2.5, false, true, false},       {0.000005, false, false, true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(isPositiveDigit(c.x), c.positive) << c.x;
    EXPECT_EQ(isNegativeDigit(c.x), c.negative) << c.x;
    EXPECT_EQ(isZeroDigit(c.x), c.zero) << c.x;
  }
}

TEST(SignTests, FloatAndLongOverloads) {
  EXPECT_TRUE(isPositiveDigit(0.5f));
  EXPECT_TRUE(isNegativeDigit(-0.5f));
  EXPECT_TRUE(isZeroDigit(0.000001f));
  EXPECT_TRUE(isZeroDigit(0L));
  EXPECT_FALSE(isZeroDigit(1L));
  EXPECT_TRUE(isPositiveDigit(1L));
  EXPECT_FALSE(isPositiveDigit(0L));
  EXPECT_TRUE(isNegativeDigit(-1L));
  EXPECT_FALSE(isNegativeDigit(0L));
}

TEST(SignTests, NaNIsNothing) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(isPositiveDigit(nan));
  EXPECT_FALSE(isNegativeDigit(nan));
  EXPECT_FALSE(isZeroDigit(nan));
  EXPECT_FALSE(isZeroDigit(std::numeric_limits<float>::quiet_NaN()));
}

TEST(JABS, IntegerOverloads) {
  EXPECT_EQ(JABS(static_cast<short>(-5)), 5);
  EXPECT_EQ(JABS(static_cast<short>(-32768)), -32768);
  EXPECT_EQ(JABS(static_cast<unsigned short>(65535)), -1);
  EXPECT_EQ(JABS(static_cast<unsigned short>(40000)), -25536);
  EXPECT_EQ(JABS(-7), 7);
  EXPECT_EQ(JABS(INT_MIN), INT_MIN);
  EXPECT_EQ(JABS(4294967295u), 4294967295u);
  EXPECT_EQ(JABS(-9L), 9L);
  EXPECT_EQ(JABS(LONG_MIN), LONG_MIN);
  EXPECT_EQ(JABS(ULONG_MAX), 1UL);
  EXPECT_EQ(JABS(5UL), 5UL);
}

TEST(JABS, FloatingOverloadsKeepTinyNegatives) {
  EXPECT_EQ(JABS(-0.000005), -0.000005);
  EXPECT_EQ(JABS(-2.5), 2.5);
  EXPECT_EQ(JABS(2.5), 2.5);
  EXPECT_EQ(JABS(-2.5f), 2.5f);
  EXPECT_EQ(JABS(-0.000005f), -0.000005f);
}
