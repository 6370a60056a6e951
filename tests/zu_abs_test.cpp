#include <gtest/gtest.h>

#include <climits>
#include <limits>

#include "zu_abs.h"

// Zero within 1e-05 at both ends and NaN has no sign; JABS keeps its odd results.
TEST(JABS, SignToleranceAndOddResults) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(isZeroDigit(0.00001) && isZeroDigit(-0.00001) && isZeroDigit(0.000001f));
  EXPECT_TRUE(isPositiveDigit(0.0000101) && isNegativeDigit(-0.0000101) && !isZeroDigit(1L));
  EXPECT_FALSE(isZeroDigit(nan) || isPositiveDigit(nan) || isNegativeDigit(nan));
  EXPECT_EQ(JABS(-0.000005), -0.000005);                        // tiny negatives are kept
  EXPECT_EQ(JABS(static_cast<unsigned short>(40000)), -25536);  // read as signed
  EXPECT_EQ(JABS(ULONG_MAX), 1UL);                              // read as signed, then negated
  EXPECT_EQ(JABS(static_cast<short>(-32768)), -32768);
  EXPECT_TRUE(JABS(-2.5f) == 2.5f && JABS(-7) == 7 && JABS(INT_MIN) == INT_MIN);
}
