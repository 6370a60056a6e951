// zu_abs: sign tests with a tolerance and the JABS absolute-value overloads.
// The sign tests compare the argument, converted to double, with the tolerance 1e-05; JABS
// of float and double use them, so tiny negative values come back unchanged.
// All functions are stateless and safe to call from any thread.
#ifndef ZUSTD_ZU_ABS_H
#define ZUSTD_ZU_ABS_H

#include "zu_export.h"

// True when x > 1e-05 (strictly); false for NaN. For long: x >= 1.
ZUSTD_API bool isPositiveDigit(float x);
ZUSTD_API bool isPositiveDigit(double x);
ZUSTD_API bool isPositiveDigit(long x);
// True when x < -1e-05 (strictly); false for NaN. For long: x <= -1.
ZUSTD_API bool isNegativeDigit(float x);
ZUSTD_API bool isNegativeDigit(double x);
ZUSTD_API bool isNegativeDigit(long x);
// True when -1e-05 <= x <= 1e-05 (both ends included); false for NaN. For long: x == 0.
ZUSTD_API bool isZeroDigit(float x);
ZUSTD_API bool isZeroDigit(double x);
ZUSTD_API bool isZeroDigit(long x);

// -x for negative x, else x, as a 16-bit value: -32768 stays -32768.
ZUSTD_API short JABS(short x);
// x unchanged but read as a signed 16-bit value (40000 gives -25536): kept on purpose.
ZUSTD_API short JABS(unsigned short x);
// -x for negative x, else x; INT_MIN wraps to itself.
ZUSTD_API int JABS(int x);
// x unchanged.
ZUSTD_API unsigned int JABS(unsigned int x);
// -x for negative x, else x; LONG_MIN wraps to itself.
ZUSTD_API long JABS(long x);
// x read as a signed long, negated when that is negative: all bits set gives 1. The
// asymmetry with JABS(unsigned int) is kept on purpose.
ZUSTD_API unsigned long JABS(unsigned long x);
// -x when isNegativeDigit(x), else x: values in [-1e-05, 0) come back negative.
ZUSTD_API float JABS(float x);
ZUSTD_API double JABS(double x);

#endif  // ZUSTD_ZU_ABS_H
