// Internals of the formula evaluator shared by its sources: the token codes, the meaning of
// every operation (used alike by the token-by-token evaluation, the compiled programs and
// constant folding, so that all three give the same bits), the token evaluator and the
// compiled-program interface (zu_expression_program.cpp).
// Everything here is pure: functions read their arguments only.
#ifndef ZUSTD_ZU_EXPRESSION_INTERNAL_H
#define ZUSTD_ZU_EXPRESSION_INTERNAL_H

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "zu_expression.h"

namespace zu_expression {

using SToken = CKAExpression::SToken;
using SVarOperand = CKAExpression::SVarOperand;

static_assert(sizeof(SToken) == 20, "SToken is part of the binary interface");
static_assert(sizeof(SVarOperand) == 40, "SVarOperand is part of the binary interface");

// Token codes. No token has code 27 or 29.
enum TokenCode : int {
  kEnd = 0,
  kNegate = 1,
  kAdd = 2,
  kSubtract = 3,
  kMultiply = 4,
  kDivide = 5,
  kPower = 6,
  kQuotient = 7,   // "MOD"
  kRemainder = 8,  // "%"
  kAnd = 9,
  kOr = 10,
  kNot = 11,
  kGreater = 12,
  kGreaterEqual = 13,
  kLess = 14,
  kLessEqual = 15,
  kNotEqual = 16,
  kVariable = 17,
  kNumber = 18,
  kOpenRound = 19,
  kCloseRound = 20,
  kOpenSquare = 21,
  kCloseSquare = 22,
  kComma = 23,
  kSum = 24,
  kAverage = 25,
  kMaximum = 26,
  kMinimum = 28,
  kDegToRad = 30,
  kRadToDeg = 31,
  kSqrt = 32,
  kSin = 33,
  kCos = 34,
  kTan = 35,
  kAsin = 36,
  kAcos = 37,
  kAtan = 38,
  kAbs = 39,
  kCabs = 40,
  kCosPhi = 41,
  kLog = 42,
  kLn = 43,
  kExp = 44,
  // Operations of the compiled form only; no token carries these codes.
  kSquare = 45,      // x ^ 2
  kMaxAcc = 46,      // one more argument of MAX
  kMinAcc = 47,      // one more argument of MIN
  kQuotientOf = 48,  // a / b where b is known to be at least 1e-18 in magnitude
  kCube = 49,        // x ^ 3
  kRoot = 50,        // x ^ 0.5
};

constexpr int kStackSize = 128;  // values one evaluation holds at most

// ---- Number conversion ----

// strtod of a token text (up to 8 bytes, NUL-terminated or not) in the C locale.
double ConvertNumber(const char (&name)[8]);

// ---- The meaning of each operation ----

[[gnu::always_inline]] inline double Truth(bool b) {
  return b ? 1.0 : 0.0;
}

// Conversion to a signed 32-bit integer rounding toward zero; values outside the range
// saturate and NaN gives 0, as the ARM conversion instruction does.
[[gnu::always_inline]] inline std::int32_t Trunc(double x) {
  if (!(x == x)) return 0;
  if (x >= 2147483647.0) return INT32_MAX;
  if (x <= -2147483648.0) return INT32_MIN;
  return static_cast<std::int32_t>(x);
}

// Trunc(x) != 0, which holds exactly when |x| >= 1 (NaN gives false on both sides).
[[gnu::always_inline]] inline bool IsTrue(double x) {
  return std::fabs(x) >= 1.0;
}

// "MOD": the integer quotient, deliberately not the remainder; a zero divisor gives trunc(a).
[[gnu::always_inline]] inline double Quotient(double a, double b) {
  const std::int32_t q = Trunc(b);
  const std::int32_t n = Trunc(a);
  if (q == 0) return n;
  if (q == -1) return n == INT32_MIN ? INT32_MIN : -n;  // wraps as the hardware division does
  return n / q;
}

// "%": the integer remainder with the dividend's sign; a zero divisor gives 0.
[[gnu::always_inline]] inline double Remainder(double a, double b) {
  const std::int32_t q = Trunc(b);
  if (q == 0 || q == -1) return 0.0;
  return Trunc(a) % q;
}

// "/": a near-zero divisor gives 0 for a near-zero dividend and otherwise the deliberate
// substitute for infinity 9999999, positive whatever the signs.
[[gnu::always_inline]] inline double Divide(double a, double b) {
  if (std::fabs(b) >= 1e-18) return a / b;
  if (std::fabs(a) < 1e-18) return 0.0;
  return 9999999.0;
}

[[gnu::always_inline]] inline double CosPhi(double a, double b) {
  if (std::fabs(b) < 1e-18 && std::fabs(a) < 1e-18) return 0.0;
  return b / std::sqrt(b * b + a * a);
}

// The system's pow(x, y), with y hidden from the compiler, which would otherwise replace
// pow(x, 2.0) by x * x or pow(x, 0.5) by sqrt(x); those differ from pow for some inputs.
double SystemPow(double x, double y);

// pow(x, 2), pow(x, 3) and pow(x, 0.5) computed without the call where the result is known
// to be pow's (the exact-power rule, zu_expression_program.cpp); pow is called otherwise.
double Square(double x);
double Cube(double x);
double Root(double x);
// The same with a fused multiply-add: call them only when HasWideCheck() is true.
double FusedSquare(double x);
double FusedCube(double x);

// ASIN and ACOS fail with -1 outside [-1, 1]; SQRT, LOG and LN fail with -2 below 0.
inline int CheckDomain(int code, double x) {
  if (code == kAsin || code == kAcos) return (x < -1.0 || x > 1.0) ? -1 : 1;
  if (code == kSqrt || code == kLog || code == kLn) return x < 0.0 ? -2 : 1;
  return 1;
}

inline bool CanFail(int code) {
  return code == kAsin || code == kAcos || code == kSqrt || code == kLog || code == kLn;
}

inline bool IsUnaryCode(int code) {
  return code == kNegate || code == kNot || (code >= kDegToRad && code <= kAbs) || code == kLog ||
         code == kLn || code == kExp;
}

inline bool IsBinaryCode(int code) {
  return (code >= kAdd && code <= kOr) || (code >= kGreater && code <= kNotEqual) ||
         code == kCabs || code == kCosPhi;
}

inline bool IsListCode(int code) {
  return code == kSum || code == kAverage || code == kMaximum || code == kMinimum;
}

[[gnu::always_inline]] inline double ApplyUnary(int code, double x) {
  switch (code) {
    case kNegate:
      return -x;
    case kNot:
      return Truth(!IsTrue(x));
    case kDegToRad:
      return x * 0.017453292519944444;  // 3.14159265359 / 180
    case kRadToDeg:
      return x * 57.29577951307855;  // 180 / 3.14159265359
    case kSqrt:
      return std::sqrt(x);
    case kSin:
      return std::sin(x);
    case kCos:
      return std::cos(x);
    case kTan:
      return std::tan(x);
    case kAsin:
      return std::asin(x);
    case kAcos:
      return std::acos(x);
    case kAtan:
      return std::atan(x);
    case kAbs:  // one operand, whatever argument count the token carries
      return std::fabs(x);
    case kLog:  // natural logarithm: LOG and LN are deliberately swapped
      return std::log(x);
    case kLn:  // base-10 logarithm
      return std::log10(x);
    case kSquare:
      return Square(x);
    case kCube:
      return Cube(x);
    case kRoot:
      return Root(x);
    default:  // EXP: one operand, although the keyword carries 2
      return std::exp(x);
  }
}

// a is the operand written first, b the one written second.
[[gnu::always_inline]] inline double ApplyBinary(int code, double a, double b) {
  switch (code) {
    case kAdd:
      return a + b;
    case kSubtract:
      return a - b;
    case kMultiply:
      return a * b;
    case kDivide:
      return Divide(a, b);
    case kPower:
      return SystemPow(a, b);
    case kQuotient:
      return Quotient(a, b);
    case kRemainder:
      return Remainder(a, b);
    case kAnd:
      return Truth(IsTrue(a)) * Truth(IsTrue(b));  // no branch on the data: it is random
    case kOr: {                                    // 0 or 1 each: exact arithmetic
      const double x = Truth(IsTrue(a)), y = Truth(IsTrue(b));
      return x + y - x * y;
    }
    case kGreater:
      return Truth(a > b);
    case kGreaterEqual:
      return Truth(a >= b);
    case kLess:
      return Truth(a < b);
    case kLessEqual:
      return Truth(a <= b);
    case kNotEqual:
      return Truth(!(a == b));
    case kCabs:
      return std::sqrt(b * b + a * a);
    case kQuotientOf:
      return a / b;
    case kMaxAcc:  // a is the accumulator: replaced only by a strictly greater value
      return b > a ? b : a;
    case kMinAcc:
      return b < a ? b : a;
    default:
      return CosPhi(a, b);
  }
}

// One more argument of SUM, AVE, MAX or MIN: MAX and MIN replace the accumulator only by a
// strictly greater or smaller value.
inline double Accumulate(int code, double acc, double value) {
  if (code == kMaximum) return value > acc ? value : acc;
  if (code == kMinimum) return value < acc ? value : acc;
  return acc + value;
}

inline double FinishList(int code, double acc, int n) {
  if (code != kAverage) return acc;
  return n > 0 ? acc / n : 0.0;
}

// ---- Evaluation ----

// Evaluates count postfix tokens one by one on a 128-value stack, as the formula language
// defines it; variable k (1..var_count) is vars[k - 1]. Returns Evaluate's result code and
// sets result only on success.
int RunTokens(const SToken* tokens, int count, const SVarOperand* vars, int var_count,
              double& result);

// Evaluate: the compiled program that Analysis stored behind the variables of table when it
// still matches polish and var_count, else RunTokens. result is 0.0 unless 1 is returned.
int EvaluatePolish(const CKAArray<SToken>& polish, int var_count,
                   const CKAArray<SVarOperand>& table, double& result);

// True when this processor runs the build of Evaluate that compares the tokens 32 bytes at a
// time and computes exact powers with a fused multiply-add (x86-64 with AVX2 and FMA).
// EvaluatePolishWide is that build; call it only when this is true.
bool HasWideCheck();
int EvaluatePolishWide(const CKAArray<SToken>& polish, int var_count,
                       const CKAArray<SVarOperand>& table, double& result);

// Compiles polish, if its stack use is regular, and stores the program in the spare slots of
// table behind its m_nCount variables (growing its storage when needed).
void StoreProgram(const CKAArray<SToken>& polish, CKAArray<SVarOperand>& table);

// The instructions the compiler makes of count tokens with var_count variables, one per
// line ("VC Multiply v1 14"), or "" when the tokens are not compiled. For tests.
std::string ListProgram(const SToken* tokens, int count, int var_count);

}  // namespace zu_expression

#endif  // ZUSTD_ZU_EXPRESSION_INTERNAL_H
