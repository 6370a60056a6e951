// zu_abs: sign tests with a tolerance and JABS.
#include "zu_abs.h"

namespace {

constexpr double kTolerance = 0.00001;

bool Positive(double x) {
  return x > kTolerance;
}
bool Negative(double x) {
  return x < -kTolerance;
}
bool Zero(double x) {
  return x >= -kTolerance && x <= kTolerance;
}  // false for NaN

// Two's-complement negation without signed overflow: the most negative value maps to itself.
template <typename Signed, typename Unsigned>
Signed WrappingAbs(Signed x) {
  if (x >= 0) return x;
  return static_cast<Signed>(static_cast<Unsigned>(0) - static_cast<Unsigned>(x));
}

}  // namespace

bool isPositiveDigit(float x) {
  return Positive(x);
}
bool isPositiveDigit(double x) {
  return Positive(x);
}
bool isPositiveDigit(long x) {
  return Positive(static_cast<double>(x));
}

bool isNegativeDigit(float x) {
  return Negative(x);
}
bool isNegativeDigit(double x) {
  return Negative(x);
}
bool isNegativeDigit(long x) {
  return Negative(static_cast<double>(x));
}

bool isZeroDigit(float x) {
  return Zero(x);
}
bool isZeroDigit(double x) {
  return Zero(x);
}
bool isZeroDigit(long x) {
  return Zero(static_cast<double>(x));
}

short JABS(short x) {
  return WrappingAbs<short, unsigned short>(x);
}

short JABS(unsigned short x) {
  return static_cast<short>(x);
}  // reads as signed: kept

int JABS(int x) {
  return WrappingAbs<int, unsigned int>(x);
}

unsigned int JABS(unsigned int x) {
  return x;
}

long JABS(long x) {
  return WrappingAbs<long, unsigned long>(x);
}

unsigned long JABS(unsigned long x) {
  // Read as signed: values with the top bit set come back negated, kept on purpose.
  return static_cast<unsigned long>(WrappingAbs<long, unsigned long>(static_cast<long>(x)));
}

float JABS(float x) {
  return isNegativeDigit(x) ? -x : x;
}

double JABS(double x) {
  return isNegativeDigit(x) ? -x : x;
}
