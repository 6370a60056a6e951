// Compiled programs of formulas: the compiler, the program's storage behind the variable
// table, and the interpreter that runs it.
//
// Design note.
// - What is compiled. Analysis compiles a formula whose stack use is regular: every operator
//   finds its operands, at most 128 values are pending, one value is left at the end, every
//   argument count is at least 1 and every variable is registered. For such a formula the
//   value stack always holds exactly the values the operand counter counts, so none of the
//   token evaluator's checks can fire and they are left out, and the formula is a tree.
//   Operands (numbers and variables) are not pushed: each operation takes them in place, so
//   A+B*C is two instructions, "top = B * C" and "top = A + top", and an arithmetic operation
//   on two operands in place is fused with the one that combines its result with the value
//   below (A*B+C*D is "top = A * B", "top = top + C * D"), as is a power of a variable
//   (A^2+B^2 is "top = A ^ 2", "top = top + B ^ 2"), and two arithmetic operations in a row
//   on the top become one ("top = (top + C) / X"). Operations still run in the
//   order of the tokens, so the first failing one decides the result code; only the reading
//   of operands moves. Constant sub-expressions are folded with the very functions evaluation
//   uses (a failing operation is never folded), numbers are converted once, "/" by a number
//   not near zero is a plain division, and "^ 2", "^ 3", "^ 0.5" use the exact-power rule
//   below. Anything else (the rest of the formulas, which fail or misuse the stack) is left
//   to the token evaluator, RunTokens.
// - Where it lives. The object's layout is fixed, so the program lives in spare slots of the
//   variable table m_arVarOperand, behind its m_nCount variables: a header slot, a copy of the
//   bytes of every postfix token it was made from, then 16-byte instructions. Nothing outside
//   the object owns memory, copying or destroying the object needs no care, and the program
//   is found in constant time from the table.
// - How it is validated. Evaluate runs the program only when the header (a mark, the token
//   count and the variable count it was made for) matches the object, the table's storage
//   still holds the whole program, and the tokens equal their copy: the first 16 bytes of
//   each (text, code and count, all that evaluation reads), or on x86-64 processors with AVX2
//   and FMA all their bytes, 32 at a time. Loads bound this comparison, and 32-byte loads need
//   fewer; that build also squares with a fused multiply-add (below), and the dynamic linker
//   picks the build of Evaluate once (an indirect function). Finding and checking the
//   program ends in tail calls only, and programs that call no function run in an
//   interpreter that needs no saved registers, so the fixed cost per Evaluate stays small.
//   Setting a variable costs no call at all: the header defines SetVarValue inline.
// - When a caller edits m_arPolish (a public member), the copy no longer matches, and Evaluate
//   evaluates the tokens as they stand with RunTokens, which gives the result the formula
//   language defines for them; the program is not touched, so undoing the edit makes it
//   valid again. A new Analysis replaces it.
//
// The exact-power rule. pow(x, 2) is not always x * x (about one input in a thousand
// differs), nor pow(x, 0.5) sqrt(x). glibc's pow is within 0.511 units in the last place
// (ULP) of the exact result plus |y ln x| * 1.5 * 2^-15 ULP from its logarithm (its stated
// bounds: exp 0.511 ULP, log 1.5 * 2^-68 relative); on 60 million inputs it was never beyond
// 0.508. So when the exact result lies closer to a double p than 0.5 ULP less pow's excess
// (the limits below, lower for large and tiny arguments, whose logarithm is larger), and p's
// other neighbour is a whole unit away, pow cannot return anything but p. The rule finds the
// distance of p to the exact result exactly: for squares with a fused multiply-add where the
// processor has one, else, and for square roots, from the product of the integer significands
// (64-bit integer arithmetic on every target), for cubes in double-double arithmetic (exact to
// about 2^-48 ULP, with a fused multiply-add where there is one), and calls pow in every other
// case (about one square in 42 and one root or cube in 40 between 2^-8 and 2^8, one square in
// 31 beyond, and out-of-range, zero, infinite or NaN arguments).
#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <vector>

#include "zu_expression_internal.h"

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define ZU_WIDE_CHECK 1  // a second build for processors with AVX2 and FMA
#endif

namespace zu_expression {
namespace {

// ---- The exact-power rule ----

// How close to a double p the exact result must lie, in ULP, for pow to return p: 0.5 less
// pow's worst excess, 0.011 + |y ln x| * 1.5 * 2^-15, with a margin. Near: |x| in [2^-8, 2^8)
// (|ln x| < 5.55); far: in [2^-64, 2^64) (|ln x| < 44.4); beyond, pow is called.
constexpr double kSquareNear = 0.488;  // y = 2: excess below 0.01151
constexpr double kSquareFar = 0.484;   // below 0.01507
constexpr double kCubeNear = 0.4875;   // y = 3: below 0.01177
constexpr double kCubeFar = 0.482;     // below 0.01710
constexpr double kRootUnits = 0.4875;  // y = 0.5, near or far: below 0.01202

std::uint64_t Bits(double x) {
  std::uint64_t b;
  std::memcpy(&b, &x, sizeof(b));
  return b;
}

double FromBits(std::uint64_t b) {
  double x;
  std::memcpy(&x, &b, sizeof(x));
  return x;
}

constexpr std::uint64_t kSignificand = 0x000fffffffffffffULL;
constexpr std::uint64_t kImplicitBit = 1ULL << 52;

// True when the exact value p + error lies within units ULP of p (a normal double) and p is
// not a power of two, whose lower neighbour is only half a unit away.
bool IsExact(double p, double error, double units) {
  const std::uint64_t bits = Bits(p);
  if ((bits & kSignificand) == 0) return false;
  const double unit = FromBits((bits & 0x7ff0000000000000ULL) - (52ULL << 52));
  return std::fabs(error) <= units * unit;
}

#ifdef ZU_WIDE_CHECK
// a * b - c and a * b + c, rounded once, on x86-64 processors with FMA only. In assembly: the
// instruction is not part of the baseline the library is compiled for.
[[gnu::always_inline]] inline double FusedMultiplySubtract(double a, double b, double c) {
  asm("vfmsub231sd %2, %1, %0" : "+x"(c) : "x"(a), "xm"(b));
  return c;
}

[[gnu::always_inline]] inline double FusedMultiplyAdd(double a, double b, double c) {
  asm("vfmadd231sd %2, %1, %0" : "+x"(c) : "x"(a), "xm"(b));
  return c;
}

// lo <= x < hi, for x >= 0 or NaN and powers of two lo < hi: one unsigned comparison.
bool Within(double x, double lo, double hi) {
  return Bits(x) - Bits(lo) < Bits(hi) - Bits(lo);
}
#endif

// The rounding error of a * b (a * b - fl(a * b)): one fused multiply-add where the target
// has it (kFused: this x86-64 processor has it), else by halves.
template <bool kFused>
[[gnu::always_inline]] inline double ProductError(double a, double b, double product) {
#ifdef ZU_WIDE_CHECK
  if (kFused) return FusedMultiplySubtract(a, b, product);
#endif
#ifdef __FP_FAST_FMA
  return std::fma(a, b, -product);
#else
  // x with the low 27 bits of its significand cleared: products of two such halves are exact.
  const auto High = [](double x) { return FromBits(Bits(x) & ~((std::uint64_t{1} << 27) - 1)); };
  const double ah = High(a), al = a - ah, bh = High(b), bl = b - bh;
  return (((ah * bh - product) + ah * bl) + al * bh) + al * bl;
#endif
}

// x's biased exponent.
unsigned Exponent(std::uint64_t bits) {
  return static_cast<unsigned>((bits << 1) >> 53);  // the sign shifted out
}

// 2^-64 <= |x| < 2^64: the biased exponent e lies in [959, 1087).
bool InRange(unsigned e) {
  return e - 959 < 128;  // unsigned: also false below 959
}

// 2^-8 <= |x| < 2^8.
bool IsNear(unsigned e) {
  return e - 1015 < 16;
}

// units ULP as a 64-bit fraction of one ULP, rounded down.
constexpr std::uint64_t Fraction(double units) {
  return static_cast<std::uint64_t>(units * 0x1p64);
}

// The square of x's 53-bit significand m has 105 or 106 bits; p = x * x keeps the top 53, so
// the low 64 bits of m * m hold the 52 or 53 bits rounded off: t / 2^64 is the part of a ULP
// (of the exact square's own binade) by which the exact square exceeds the double below it.
// p is the nearer of that double and the next. When p is a power of two reached by rounding
// up, its other neighbour is two ULP of that binade away, so no further check is needed.
[[gnu::always_inline]] inline bool SquareWithin(std::uint64_t bits, std::uint64_t limit) {
  const std::uint64_t m = (bits & kSignificand) | kImplicitBit;
  const unsigned kept = m >= 0x16a09e667f3bcdULL ? 11 : 12;  // m * m >= 2^105: 53 dropped
  const std::uint64_t t = (m * m) << kept;
  return t + limit <= 2 * limit;  // t <= limit or t >= 2^64 - limit, in one comparison
}

// With a fused multiply-add, e = x * x - p exactly (p normal), and p + e * (0.5 / units)
// rounds back to p exactly when |e| is within units ULP of p; when p is a power of two and e
// negative, the ULP below p is half as large, and so is the distance that rounds back: the
// limit applies in the exact square's own binade either way. Near: p in [2^-16, 2^16).
[[gnu::always_inline]] inline bool FusedSquareWithin(double x, double p) {
#ifdef ZU_WIDE_CHECK
  double scale;
  if (Within(p, 0x1p-16, 0x1p16)) {
    scale = 0.5 / kSquareNear;
  } else if (Within(p, 0x1p-128, 0x1p128)) {
    scale = 0.5 / kSquareFar;
  } else {
    return false;
  }
  return FusedMultiplyAdd(FusedMultiplySubtract(x, x, p), scale, p) == p;
#else
  (void)x, (void)p;
  return false;
#endif
}

// True when pow(x, 2) is p = x * x.
template <bool kFused>
[[gnu::always_inline]] inline bool IsExactSquare(double x, double p) {
  if (kFused) return FusedSquareWithin(x, p);
  const std::uint64_t bits = Bits(x);
  const unsigned e = Exponent(bits);
  if (IsNear(e)) return SquareWithin(bits, Fraction(kSquareNear));
  return InRange(e) && SquareWithin(bits, Fraction(kSquareFar));
}

template <bool kFused>
[[gnu::always_inline]] inline double ExactSquare(double x) {
  const double p = x * x;
  return IsExactSquare<kFused>(x, p) ? p : SystemPow(x, 2.0);
}

template <bool kFused>
[[gnu::always_inline]] inline double ExactCube(double x) {
  const unsigned e = Exponent(Bits(x));
  if (!InRange(e)) return SystemPow(x, 3.0);
  const double square = x * x;
  const double square_error = ProductError<kFused>(x, x, square);
  const double p = square * x;
  // x^3 = square * x + square_error * x; round it once more to the nearest double.
  const double error = ProductError<kFused>(square, x, p) + square_error * x;
  const double nearest = p + error;
  if (IsExact(nearest, error - (nearest - p), IsNear(e) ? kCubeNear : kCubeFar)) return nearest;
  return SystemPow(x, 3.0);
}

// s = sqrt(x) is correctly rounded; with u the unit in the last place of s and ms its
// significand, x = s * s + r * u * u for an integer r (|r| <= ms + 1), and the exact root is
// s + r / (2 ms) units (to 2^-50 units): within kRootUnits (0.4875) when 40 |r| <= 39 ms.
[[gnu::always_inline]] inline double ExactRoot(double x) {
  const std::uint64_t bits = Bits(x);
  const double s = std::sqrt(x);
  const std::uint64_t root = Bits(s);
  if (InRange(Exponent(bits)) && (bits >> 63) == 0 && (root & kSignificand) != 0) {
    const std::uint64_t mx = (bits & kSignificand) | kImplicitBit;
    const std::uint64_t ms = (root & kSignificand) | kImplicitBit;
    const int shift = static_cast<int>((bits >> 52) & 0x7ff) -
                      2 * static_cast<int>((root >> 52) & 0x7ff) + 1075;  // 51 to 54
    // Modulo 2^64, which holds r exactly as a signed value.
    const std::uint64_t r = (mx << shift) - ms * ms;
    const std::uint64_t magnitude = r >> 63 ? 0 - r : r;
    static_assert(kRootUnits * 80 == 39, "40 |r| <= 39 ms is |r| / (2 ms) <= kRootUnits");
    if (magnitude * 40 <= ms * 39) return s;
  }
  return SystemPow(x, 0.5);
}

// ApplyUnary, with the exact-power rule in place rather than called.
template <bool kFused>
[[gnu::always_inline]] inline double ApplyUnaryHere(int code, double x) {
  if (code == kSquare) return ExactSquare<kFused>(x);
  if (code == kCube) return ExactCube<kFused>(x);
  if (code == kRoot) return ExactRoot(x);
  return ApplyUnary(code, x);
}

}  // namespace

double Square(double x) {
  return ExactSquare<false>(x);
}

double Cube(double x) {
  return ExactCube<false>(x);
}

double Root(double x) {
  return ExactRoot(x);
}

double FusedSquare(double x) {
  return ExactSquare<true>(x);
}

double FusedCube(double x) {
  return ExactCube<true>(x);
}

namespace {

// ---- Instructions ----

// Every operation exists in the forms below; the operand letters: V a variable, C a number,
// T the value on top of the stack, S the value below it. Forms that start with an operand
// (VV, VC, CV, and the unary V) first push the top to make room.
// clang-format off
#define ZU_BINARY_OPS(X)                                                                      \
  X(Add) X(Subtract) X(Multiply) X(Divide) X(Power) X(Quotient) X(Remainder) X(And) X(Or)    \
  X(Greater) X(GreaterEqual) X(Less) X(LessEqual) X(NotEqual) X(Cabs) X(CosPhi) X(MaxAcc)     \
  X(MinAcc) X(QuotientOf)
#define ZU_UNARY_OPS(X)                                                                       \
  X(Negate) X(Not) X(DegToRad) X(RadToDeg) X(Sqrt) X(Sin) X(Cos) X(Tan) X(Asin) X(Acos)      \
  X(Atan) X(Abs) X(Log) X(Ln) X(Exp) X(Square) X(Cube) X(Root)
// Pairs fused into one instruction, X(outer, inner): "top = top outer (v inner w)" in the forms
// XVV and XVC, where the inner operation alone would push the top and the outer one, in its
// ST form, pop it again (A*B+C*D is two instructions, not three).
#define ZU_FUSED_WITH(X, outer)                                                          \
  X(outer, Add) X(outer, Subtract) X(outer, Multiply) X(outer, QuotientOf) X(outer, Divide)
#define ZU_FUSED_OPS(X)                                                                  \
  ZU_FUSED_WITH(X, Add) ZU_FUSED_WITH(X, Subtract) ZU_FUSED_WITH(X, Multiply)            \
  ZU_FUSED_WITH(X, QuotientOf) ZU_FUSED_WITH(X, Divide)
// Chains of two operations on the top, X(first, second): "top = (top first x) second y" in the
// forms TVV, TVC and TCV, where each alone would be a TV or TC instruction (SUM(A,B,C) and
// A*7+B are one instruction fewer).
#define ZU_CHAINED_WITH(X, first)                                                        \
  X(first, Add) X(first, Subtract) X(first, Multiply) X(first, QuotientOf) X(first, Divide)
#define ZU_CHAINED_OPS(X)                                                                \
  ZU_CHAINED_WITH(X, Add) ZU_CHAINED_WITH(X, Subtract) ZU_CHAINED_WITH(X, Multiply)      \
  ZU_CHAINED_WITH(X, QuotientOf) ZU_CHAINED_WITH(X, Divide)
// Powers of a variable fused with the operation that takes them from the top, X(outer,
// inner): "top = top outer inner(v)" in the form XV (A^2+B^2 is two instructions, not three).
#define ZU_POWER_WITH(X, outer) X(outer, Square) X(outer, Cube) X(outer, Root)
#define ZU_POWER_OPS(X)                                                                  \
  ZU_POWER_WITH(X, Add) ZU_POWER_WITH(X, Subtract) ZU_POWER_WITH(X, Multiply)
// clang-format on

enum BinaryForm : int { kVV, kVC, kCV, kTV, kTC, kVT, kCT, kST, kBinaryForms };
enum UnaryForm : int { kT, kV, kUnaryForms };
constexpr const char* kBinaryFormNames[] = {"VV", "VC", "CV", "TV", "TC", "VT", "CT", "ST"};
constexpr const char* kUnaryFormNames[] = {"T", "V"};

// clang-format off
enum Op : std::uint32_t {
  kOpEnd,
  kOpLoadVar,
  kOpLoadConst,
#define ZU_BINARY_ENUM(name) \
  kOpVV##name, kOpVC##name, kOpCV##name, kOpTV##name, kOpTC##name, kOpVT##name, kOpCT##name, \
  kOpST##name,
  ZU_BINARY_OPS(ZU_BINARY_ENUM)
#define ZU_UNARY_ENUM(name) kOpT##name, kOpV##name,
  ZU_UNARY_OPS(ZU_UNARY_ENUM)
#define ZU_FUSED_ENUM(outer, inner) kOpXVV##outer##inner, kOpXVC##outer##inner,
  ZU_FUSED_OPS(ZU_FUSED_ENUM)
#define ZU_CHAINED_ENUM(first, second) \
  kOpTVV##first##second, kOpTVC##first##second, kOpTCV##first##second,
  ZU_CHAINED_OPS(ZU_CHAINED_ENUM)
#define ZU_POWER_ENUM(outer, inner) kOpXV##outer##inner,
  ZU_POWER_OPS(ZU_POWER_ENUM)
  kOpInvalid,  // also stands for every code beyond it
};
// clang-format on
#undef ZU_BINARY_ENUM
#undef ZU_UNARY_ENUM
#undef ZU_FUSED_ENUM
#undef ZU_CHAINED_ENUM
#undef ZU_POWER_ENUM
constexpr int kOpFirstUnary = kOpTNegate;
constexpr int kOpFirstFused = kOpXVVAddAdd;
constexpr int kOpFirstChained = kOpTVVAddAdd;
constexpr int kOpFirstPower = kOpXVAddSquare;
enum ChainedForm : int { kTVV, kTVC, kTCV, kChainedForms };
constexpr const char* kChainedFormNames[] = {"TVV", "TVC", "TCV"};

Op BinaryOp(int code, BinaryForm form) {
  switch (code) {
#define ZU_BINARY_CASE(name) \
  case k##name:              \
    return static_cast<Op>(kOpVV##name + form);
    ZU_BINARY_OPS(ZU_BINARY_CASE)
#undef ZU_BINARY_CASE
  }
  return kOpInvalid;
}

Op UnaryOp(int code, UnaryForm form) {
  switch (code) {
#define ZU_UNARY_CASE(name) \
  case k##name:             \
    return static_cast<Op>(kOpT##name + form);
    ZU_UNARY_OPS(ZU_UNARY_CASE)
#undef ZU_UNARY_CASE
  }
  return kOpInvalid;
}

// The fused instruction for outer applied to the result of a VV or VC instruction of inner, or
// kOpInvalid.
Op FusedOp(int outer, int inner, int form) {
  if (form != kVV && form != kVC) return kOpInvalid;
#define ZU_FUSED_CASE(o, i) \
  if (outer == k##o && inner == k##i) return form == kVV ? kOpXVV##o##i : kOpXVC##o##i;
  ZU_FUSED_OPS(ZU_FUSED_CASE)
#undef ZU_FUSED_CASE
  return kOpInvalid;
}

// The chained instruction for first and then second on the top, or kOpInvalid.
Op ChainedOp(int first, int second, ChainedForm form) {
#define ZU_CHAINED_CASE(f, s) \
  if (first == k##f && second == k##s) return static_cast<Op>(kOpTVV##f##s + form);
  ZU_CHAINED_OPS(ZU_CHAINED_CASE)
#undef ZU_CHAINED_CASE
  return kOpInvalid;
}

// The instruction for outer applied to the top and the power inner of a variable, or
// kOpInvalid.
Op PowerOp(int outer, int inner) {
#define ZU_POWER_CASE(o, i) \
  if (outer == k##o && inner == k##i) return kOpXV##o##i;
  ZU_POWER_OPS(ZU_POWER_CASE)
#undef ZU_POWER_CASE
  return kOpInvalid;
}

// Operations that call a function of the system's math library.
constexpr bool CallsOut(int code) {
  return code == kPower || code == kSquare || code == kCube || code == kRoot ||
         (code >= kSin && code <= kAtan) || code == kLog || code == kLn || code == kExp;
}

// The operation an instruction performs.
int OpCode(Op op) {
  static const int kCodes[] = {
#define ZU_BINARY_CODES(name) \
  k##name, k##name, k##name, k##name, k##name, k##name, k##name, k##name,
#define ZU_UNARY_CODES(name) k##name, k##name,
#define ZU_FUSED_CODES(outer, inner) k##outer, k##outer,
#define ZU_CHAINED_CODES(first, second) k##second, k##second, k##second,
#define ZU_POWER_CODES(outer, inner) k##inner,  // the power decides whether it calls out
      kEnd, kVariable, kNumber,
      ZU_BINARY_OPS(ZU_BINARY_CODES) ZU_UNARY_OPS(ZU_UNARY_CODES) ZU_FUSED_OPS(ZU_FUSED_CODES)
          ZU_CHAINED_OPS(ZU_CHAINED_CODES) ZU_POWER_OPS(ZU_POWER_CODES)
#undef ZU_BINARY_CODES
#undef ZU_UNARY_CODES
#undef ZU_FUSED_CODES
#undef ZU_CHAINED_CODES
#undef ZU_POWER_CODES
  };
  static_assert(sizeof(kCodes) / sizeof(kCodes[0]) == kOpInvalid, "one code per operation");
  return op < kOpInvalid ? kCodes[op] : kEnd;
}

// One instruction: 16 bytes. a and b are byte offsets of variable values from the start of
// the variable table; value is a number operand (it shares its place with b).
struct Instr {
  Op op;
  std::uint32_t a;
  std::uint32_t b;
  double value;
};
constexpr int kInstrBytes = 16;
constexpr unsigned kOpSpace = 512;  // a power of two above every operation
constexpr int kMaxCompiledTokens = 4096;

std::uint32_t ValueOffset(int index) {
  return static_cast<std::uint32_t>(index * sizeof(SVarOperand) + offsetof(SVarOperand, m_dValue));
}

// ---- The compiler ----

class Compiler {
 public:
  // False when the tokens are not regular or name an unregistered variable.
  bool Compile(const SToken* tokens, int count, int var_count) {
    if (count < 1 || count > kMaxCompiledTokens) return false;
    int pending = 0;
    for (const SToken* tok = tokens; tok != tokens + count; ++tok) {
      if (!Step(*tok, var_count, pending) || pending > kStackSize) return false;
    }
    if (pending != 1) return false;
    if (m_stack.back().kind != kComputed) Load(m_stack.back());
    m_code.push_back({kOpEnd, 0, 0, 0.0});
    return true;
  }

  const std::vector<Instr>& Code() const { return m_code; }

  // True when no instruction calls a function.
  bool IsLeaf() const {
    for (const Instr& in : m_code) {
      if (CallsOut(OpCode(in.op))) return false;
    }
    return true;
  }

 private:
  enum Kind { kConst, kVar, kComputed };
  // A value of the formula: an operand not loaded yet, or one computed at run time.
  struct Value {
    Kind kind;
    std::uint32_t offset;  // kVar
    double value;          // kConst
  };

  bool Step(const SToken& tok, int var_count, int& pending) {
    const int code = tok.m_nType;
    if (code == kNumber) {
      m_stack.push_back({kConst, 0, ConvertNumber(tok.m_szName)});
      ++pending;
    } else if (code == kVariable) {
      const unsigned index = static_cast<unsigned>(tok.m_nParam) - 1u;
      if (index >= static_cast<unsigned>(var_count)) return false;
      m_stack.push_back({kVar, ValueOffset(static_cast<int>(index)), 0.0});
      ++pending;
    } else if (IsUnaryCode(code) && pending >= 1) {
      Unary(code);
    } else if (IsBinaryCode(code) && pending >= 2) {
      Binary(Specialise(code));
      --pending;
    } else if (IsListCode(code) && tok.m_nParam >= 1 && tok.m_nParam <= pending) {
      if (!List(code, tok.m_nParam)) return false;
      pending -= tok.m_nParam - 1;
    } else {
      return false;
    }
    return true;
  }

  // "^" by 2, 3 or 0.5 is a power operation of its own; "/" by a number that is not near
  // zero is the plain division.
  int Specialise(int code) const {
    const Value& b = m_stack.back();
    if (b.kind != kConst) return code;
    if (code == kPower && b.value == 2.0) return kSquare;
    if (code == kPower && b.value == 3.0) return kCube;
    if (code == kPower && b.value == 0.5) return kRoot;
    if (code == kDivide && std::fabs(b.value) >= 1e-18) return kQuotientOf;
    return code;
  }

  void Emit(Op op, std::uint32_t a, std::uint32_t b, double value) {
    if (!Chain(op, a, value)) m_code.push_back({op, a, b, value});
  }

  // The form (kTV or kTC) and operation of a binary instruction on the top and one operand, or
  // false.
  static bool OnTop(Op op, int& form, int& code) {
    if (op < kOpVVAdd || op >= kOpFirstUnary) return false;
    form = (op - kOpVVAdd) % kBinaryForms;
    code = OpCode(op);
    return form == kTV || form == kTC;
  }

  // When op (a TV or TC instruction) follows another one, makes the last instruction do both.
  // Two numbers do not fit one instruction. True when chained.
  bool Chain(Op op, std::uint32_t a, double value) {
    int form, code, last_form, last_code;
    if (m_code.empty() || !OnTop(op, form, code)) return false;
    Instr& last = m_code.back();
    if (!OnTop(last.op, last_form, last_code) || (form == kTC && last_form == kTC)) return false;
    const ChainedForm chained = last_form == kTC ? kTCV : form == kTC ? kTVC : kTVV;
    const Op fused = ChainedOp(last_code, code, chained);
    if (fused == kOpInvalid) return false;
    last.op = fused;
    if (chained == kTVV) last.b = a;
    if (chained == kTVC) last.value = value;
    if (chained == kTCV) last.a = a;  // the number stays in value
    return true;
  }

  void Load(const Value& v) {
    if (v.kind == kVar) Emit(kOpLoadVar, v.offset, 0, 0.0);
    if (v.kind == kConst) Emit(kOpLoadConst, 0, 0, v.value);
  }

  void Unary(int code) {
    Value& x = m_stack.back();
    if (x.kind == kConst && (!CanFail(code) || CheckDomain(code, x.value) == 1)) {
      x.value = ApplyUnary(code, x.value);
      return;
    }
    if (x.kind == kVar) {
      Emit(UnaryOp(code, kV), x.offset, 0, 0.0);
    } else {
      if (x.kind == kConst) Load(x);
      Emit(UnaryOp(code, kT), 0, 0, 0.0);
    }
    x = {kComputed, 0, 0.0};
  }

  // a is the first-written operand, b the second; when b is computed it is the top value.
  void Binary(int code) {
    const Value b = m_stack.back();
    m_stack.pop_back();
    Value& a = m_stack.back();
    if (code == kSquare || code == kCube || code == kRoot) {  // b is the exponent
      Unary(code);
      return;
    }
    if (a.kind == kConst && b.kind == kConst) {
      a.value = ApplyBinary(code, a.value, b.value);
      return;
    }
    if (a.kind == kComputed && b.kind == kComputed) {
      if (!Fuse(code)) Emit(BinaryOp(code, kST), 0, 0, 0.0);
    } else if (a.kind == kComputed) {
      Emit(BinaryOp(code, b.kind == kVar ? kTV : kTC), b.offset, 0, b.value);
    } else if (b.kind == kComputed) {
      Emit(BinaryOp(code, a.kind == kVar ? kVT : kCT), a.offset, 0, a.value);
    } else if (a.kind == kVar && b.kind == kVar) {
      Emit(BinaryOp(code, kVV), a.offset, b.offset, 0.0);
    } else if (a.kind == kVar) {
      Emit(BinaryOp(code, kVC), a.offset, 0, b.value);
    } else {
      Emit(BinaryOp(code, kCV), b.offset, 0, a.value);
    }
    a = {kComputed, 0, 0.0};
  }

  // When the last instruction computed the top (b) from operands in place, pushing the value
  // below it (a), makes it also apply code to a and b. True when fused.
  bool Fuse(int code) {
    if (m_code.empty()) return false;
    Instr& last = m_code.back();
    if (last.op >= kOpFirstUnary && last.op < kOpFirstFused &&
        (last.op - kOpFirstUnary) % 2 == kV) {
      const Op power = PowerOp(code, OpCode(last.op));
      if (power != kOpInvalid) last.op = power;
      return power != kOpInvalid;
    }
    if (last.op < kOpVVAdd || last.op >= kOpFirstUnary) return false;
    const Op fused = FusedOp(code, OpCode(last.op), (last.op - kOpVVAdd) % kBinaryForms);
    if (fused == kOpInvalid) return false;
    last.op = fused;
    return true;
  }

  // SUM, AVE, MAX, MIN of n operands: the accumulator starts with the last and takes the
  // others from the last but one to the first. Arguments computed at run time never occur in
  // analysed formulas and are not compiled.
  bool List(int code, int n) {
    const size_t first = m_stack.size() - static_cast<size_t>(n);
    for (size_t i = first; i < m_stack.size(); ++i) {
      if (m_stack[i].kind == kComputed) return false;
    }
    const int step = code == kMaximum ? kMaxAcc : code == kMinimum ? kMinAcc : kAdd;
    size_t next = m_stack.size() - 1;  // the accumulator starts with the last argument
    if (n == 1) {
      Load(m_stack[next]);
    } else {  // the first step takes both its operands in place
      const Value acc = m_stack[next--];
      const Value& v = m_stack[next];
      if (acc.kind == kVar && v.kind == kVar) Emit(BinaryOp(step, kVV), acc.offset, v.offset, 0.0);
      if (acc.kind == kVar && v.kind == kConst) Emit(BinaryOp(step, kVC), acc.offset, 0, v.value);
      if (acc.kind == kConst && v.kind == kVar) Emit(BinaryOp(step, kCV), v.offset, 0, acc.value);
      if (acc.kind == kConst && v.kind == kConst)
        Emit(kOpLoadConst, 0, 0, ApplyBinary(step, acc.value, v.value));
    }
    for (size_t i = next; i-- > first;) {
      const Value& v = m_stack[i];
      Emit(BinaryOp(step, v.kind == kVar ? kTV : kTC), v.offset, 0, v.value);
    }
    if (code == kAverage) Emit(BinaryOp(kQuotientOf, kTC), 0, 0, static_cast<double>(n));
    m_stack.resize(first + 1);
    m_stack.back() = {kComputed, 0, 0.0};
    return true;
  }

  std::vector<Value> m_stack;
  std::vector<Instr> m_code;
};

// ---- Storage behind the variable table ----

constexpr std::uint32_t kProgramMark = 0x025a5501;  // "\x01UZ\x02": no text has these bytes

// The first slot behind the variables. A copy of the tokens' bytes follows it, then the
// instructions.
struct Header {
  std::uint32_t mark;   // kProgramMark once the program is complete
  std::int32_t tokens;  // the number of tokens it was compiled from
  std::int32_t vars;    // the number of variables registered then
  std::int32_t end;     // the table size it needs: vars + the slots it occupies
  std::int32_t leaf;    // 1 when no instruction calls a function
  std::int32_t code;    // offset of the first instruction from the header, in bytes
};
static_assert(sizeof(Header) <= sizeof(SVarOperand), "the header fits one slot");

int Slots(long long bytes) {
  return static_cast<int>((bytes + static_cast<long long>(sizeof(SVarOperand)) - 1) /
                          static_cast<long long>(sizeof(SVarOperand)));
}

constexpr int kHeadBytes = 16;  // the part of a token evaluation reads
static_assert(offsetof(SToken, m_nParam) + sizeof(int) == kHeadBytes, "text, code, count");
constexpr int kTokenBytes = sizeof(SToken);

// Bytes 0-1 are the operation (the interpreter dispatches on it), bytes 4-7 the first
// variable's offset, bytes 8-15 the second variable's offset or the number.
void StoreInstr(unsigned char* to, const Instr& in) {
  std::memset(to, 0, kInstrBytes);
  const std::uint16_t op = static_cast<std::uint16_t>(in.op);
  std::memcpy(to, &op, sizeof(op));
  std::memcpy(to + 4, &in.a, 4);
  if (in.b != 0) {  // a second variable (offsets are never 0); else the number, if any
    std::memcpy(to + 8, &in.b, 4);
  } else {
    std::memcpy(to + 8, &in.value, 8);
  }
}

std::int32_t I32At(const unsigned char* p) {
  std::int32_t v;
  std::memcpy(&v, p, sizeof(v));
  return v;
}

std::uint32_t U32At(const unsigned char* p) {
  std::uint32_t v;
  std::memcpy(&v, p, sizeof(v));
  return v;
}

// True when the first 16 bytes of every token (text, code and count: all that evaluation reads)
// equal their copy behind the header; the precedence class may differ. Up to 8 tokens take no
// loop.
[[gnu::always_inline]] inline bool SameTokens(const SToken* tokens, int count,
                                              const unsigned char* slot) {
  typedef std::uint64_t Piece __attribute__((vector_size(16)));
  const unsigned char* live = reinterpret_cast<const unsigned char*>(tokens);
  const unsigned char* copy = slot + sizeof(SVarOperand);
  const auto differ = [&](int i) {
    Piece a, b;
    std::memcpy(&a, live + i * kTokenBytes, sizeof(a));
    std::memcpy(&b, copy + i * kTokenBytes, sizeof(b));
    return a ^ b;
  };
  const int last = count - 1;  // count >= 1
  Piece diff = differ(0) | differ(last);
  if (count > 2) diff |= differ(1) | differ(last - 1);
  if (count > 4) diff |= differ(2) | differ(last - 2) | differ(3) | differ(last - 3);
  for (int i = 4; i < last - 3; ++i) diff |= differ(i);
  return (diff[0] | diff[1]) == 0;
}

#ifdef ZU_WIDE_CHECK
// True when all bytes of the tokens equal their copy, compared 32 bytes (1.6 tokens) at a time:
// fewer loads, which bound the comparison. Up to 6 tokens take no loop. A changed precedence
// class alone sends evaluation to the tokens too, which give the same result.
[[gnu::target("avx2"), gnu::always_inline]] inline bool SameTokensWide(const SToken* tokens,
                                                                       int count,
                                                                       const unsigned char* slot) {
  const unsigned char* live = reinterpret_cast<const unsigned char*>(tokens);
  const unsigned char* copy = slot + sizeof(SVarOperand);
  const size_t n = static_cast<size_t>(count) * kTokenBytes;
  if (n < 32) {  // one token
    const __m128i d = _mm_or_si128(
        _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(live)),
                      _mm_loadu_si128(reinterpret_cast<const __m128i*>(copy))),
        _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(live + n - 16)),
                      _mm_loadu_si128(reinterpret_cast<const __m128i*>(copy + n - 16))));
    return _mm_testz_si128(d, d);
  }
#define ZU_DIFFER(at)                                                                 \
  _mm256_xor_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(live + (at))), \
                   _mm256_loadu_si256(reinterpret_cast<const __m256i*>(copy + (at))))
  __m256i d = _mm256_or_si256(ZU_DIFFER(0), ZU_DIFFER(n - 32));
  if (n > 64) {
    d = _mm256_or_si256(d, _mm256_or_si256(ZU_DIFFER(32), ZU_DIFFER(n - 64)));
    for (size_t at = 64; at + 64 < n; at += 32) d = _mm256_or_si256(d, ZU_DIFFER(at));
  }
#undef ZU_DIFFER
  return _mm256_testz_si256(d, d);
}
#endif

// The header of a program compiled from tokens like polish (their bytes still to be
// compared), or null; leaf tells whether the program calls no function.
[[gnu::always_inline]] inline const unsigned char* FindProgram(const CKAArray<SToken>& polish,
                                                               int var_count,
                                                               const CKAArray<SVarOperand>& table,
                                                               bool& leaf,
                                                               const unsigned char*& ip) {
  const int base = table.m_nCount;
  // One unsigned comparison also refuses a negative count.
  if (base != var_count || static_cast<unsigned>(base) >= static_cast<unsigned>(table.m_nSize)) {
    return nullptr;
  }
  const unsigned char* slot = reinterpret_cast<const unsigned char*>(table.m_pData + base);
  if (U32At(slot + offsetof(Header, mark)) != kProgramMark ||
      I32At(slot + offsetof(Header, tokens)) != polish.m_nCount ||
      I32At(slot + offsetof(Header, vars)) != base) {
    return nullptr;
  }
  // The storage may have shrunk since (CKAArray::AddSize with a negative count).
  if (I32At(slot + offsetof(Header, end)) > table.m_nSize) return nullptr;
  leaf = I32At(slot + offsetof(Header, leaf)) == 1;
  ip = slot + I32At(slot + offsetof(Header, code));
  return slot;
}

// ---- The interpreter ----

// The operation of the instruction at p: 9 bits, so that any bytes give a valid target.
unsigned OpAt(const unsigned char* p) {
  std::uint16_t v;
  std::memcpy(&v, p, sizeof(v));
  return v & (kOpSpace - 1);
}

double F64At(const unsigned char* p) {
  double v;
  std::memcpy(&v, p, sizeof(v));
  return v;
}

[[gnu::noinline]] int RunPolish(const CKAArray<SToken>& polish, int var_count,
                                const CKAArray<SVarOperand>& table, double& result) {
  if (polish.m_nCount < 1 || !polish.m_pData) return -1;
  const int vars = std::max(0, std::min(var_count, table.m_nCount));
  return RunTokens(polish.m_pData, polish.m_nCount, table.m_pData, vars, result);
}

// Runs a compiled program: each instruction jumps straight to the next one's code. The top
// value is held apart (in a register); *(sp - 1) is the value under it. The variant for
// programs that call no function (kLeaf) keeps everything in registers that need no saving.
// kFused: the processor has a fused multiply-add (x86-64 with AVX2 and FMA).
template <bool kLeaf, bool kFused>
[[gnu::noinline]] int RunProgram(const unsigned char* ip, const char* values, double& result) {
  // clang-format off
  static const void* const kTargets[] = {
      &&L_End, &&L_LoadVar, &&L_LoadConst,
#define ZU_BINARY_TARGETS(name) \
      &&L_VV##name, &&L_VC##name, &&L_CV##name, &&L_TV##name, &&L_TC##name, &&L_VT##name, \
      &&L_CT##name, &&L_ST##name,
      ZU_BINARY_OPS(ZU_BINARY_TARGETS)
#define ZU_UNARY_TARGETS(name) &&L_T##name, &&L_V##name,
      ZU_UNARY_OPS(ZU_UNARY_TARGETS)
#define ZU_FUSED_TARGETS(outer, inner) &&L_XVV##outer##inner, &&L_XVC##outer##inner,
      ZU_FUSED_OPS(ZU_FUSED_TARGETS)
#define ZU_CHAINED_TARGETS(first, second) \
      &&L_TVV##first##second, &&L_TVC##first##second, &&L_TCV##first##second,
      ZU_CHAINED_OPS(ZU_CHAINED_TARGETS)
#define ZU_POWER_TARGETS(outer, inner) &&L_XV##outer##inner,
      ZU_POWER_OPS(ZU_POWER_TARGETS)
#define ZU_INVALID4 &&L_Invalid, &&L_Invalid, &&L_Invalid, &&L_Invalid,
#define ZU_INVALID16 ZU_INVALID4 ZU_INVALID4 ZU_INVALID4 ZU_INVALID4
#define ZU_INVALID64 ZU_INVALID16 ZU_INVALID16 ZU_INVALID16 ZU_INVALID16
      ZU_INVALID64 ZU_INVALID64 ZU_INVALID16 ZU_INVALID16 ZU_INVALID16 ZU_INVALID4 ZU_INVALID4
      &&L_Invalid, &&L_Invalid, &&L_Invalid,
  };
  // clang-format on
#undef ZU_BINARY_TARGETS
#undef ZU_UNARY_TARGETS
#undef ZU_FUSED_TARGETS
#undef ZU_CHAINED_TARGETS
#undef ZU_POWER_TARGETS
#undef ZU_INVALID4
#undef ZU_INVALID16
#undef ZU_INVALID64
  // One target for every value of the operation's 9 bits.
  static_assert(kOpInvalid < kOpSpace, "operations fit 9 bits");
  static_assert(sizeof(kTargets) / sizeof(kTargets[0]) == kOpSpace, "one target per value");
  double below[kStackSize + 1];
  double* sp = below;
  double top = 0.0;
  int rc = 1;
#define ZU_VAR(field) (*reinterpret_cast<const double*>(values + U32At(ip + (field))))
#define ZU_CONST F64At(ip + 8)
#define ZU_NEXT               \
  do {                        \
    ip += kInstrBytes;        \
    goto* kTargets[OpAt(ip)]; \
  } while (0)
#define ZU_PUSH *sp++ = top
  goto* kTargets[OpAt(ip)];
L_End:
  result = top;
  return 1;
L_Invalid:
  return -1;
L_LoadVar:
  ZU_PUSH;
  top = ZU_VAR(4);
  ZU_NEXT;
L_LoadConst:
  ZU_PUSH;
  top = ZU_CONST;
  ZU_NEXT;
#define ZU_GUARD(name) \
  if (kLeaf && CallsOut(k##name)) goto L_Invalid
#define ZU_BINARY_CODE(name)                  \
  L_VV##name : {                              \
    ZU_GUARD(name);                           \
    const double x = ZU_VAR(4);               \
    const double y = ZU_VAR(8);               \
    ZU_PUSH;                                  \
    top = ApplyBinary(k##name, x, y);         \
    ZU_NEXT;                                  \
  }                                           \
  L_VC##name : {                              \
    ZU_GUARD(name);                           \
    const double x = ZU_VAR(4);               \
    ZU_PUSH;                                  \
    top = ApplyBinary(k##name, x, ZU_CONST);  \
    ZU_NEXT;                                  \
  }                                           \
  L_CV##name : {                              \
    ZU_GUARD(name);                           \
    const double y = ZU_VAR(4);               \
    ZU_PUSH;                                  \
    top = ApplyBinary(k##name, ZU_CONST, y);  \
    ZU_NEXT;                                  \
  }                                           \
  L_TV##name : ZU_GUARD(name);                \
  top = ApplyBinary(k##name, top, ZU_VAR(4)); \
  ZU_NEXT;                                    \
  L_TC##name : ZU_GUARD(name);                \
  top = ApplyBinary(k##name, top, ZU_CONST);  \
  ZU_NEXT;                                    \
  L_VT##name : ZU_GUARD(name);                \
  top = ApplyBinary(k##name, ZU_VAR(4), top); \
  ZU_NEXT;                                    \
  L_CT##name : ZU_GUARD(name);                \
  top = ApplyBinary(k##name, ZU_CONST, top);  \
  ZU_NEXT;                                    \
  L_ST##name : ZU_GUARD(name);                \
  top = ApplyBinary(k##name, *--sp, top);     \
  ZU_NEXT;
  ZU_BINARY_OPS(ZU_BINARY_CODE)
#define ZU_UNARY_CODE(name)                                                 \
  L_V##name : ZU_GUARD(name);                                               \
  ZU_PUSH;                                                                  \
  top = ZU_VAR(4);                                                          \
  goto L_T##name;                                                           \
  L_T##name : ZU_GUARD(name);                                               \
  if (CanFail(k##name) && (rc = CheckDomain(k##name, top)) != 1) return rc; \
  top = ApplyUnaryHere<kFused>(k##name, top);                               \
  ZU_NEXT;
  ZU_UNARY_OPS(ZU_UNARY_CODE)
#define ZU_FUSED_CODE(outer, inner)                               \
  L_XVV##outer##inner : {                                         \
    const double x = ApplyBinary(k##inner, ZU_VAR(4), ZU_VAR(8)); \
    top = ApplyBinary(k##outer, top, x);                          \
    ZU_NEXT;                                                      \
  }                                                               \
  L_XVC##outer##inner : {                                         \
    const double x = ApplyBinary(k##inner, ZU_VAR(4), ZU_CONST);  \
    top = ApplyBinary(k##outer, top, x);                          \
    ZU_NEXT;                                                      \
  }
  ZU_FUSED_OPS(ZU_FUSED_CODE)
#define ZU_CHAINED_CODE(first, second)                                                  \
  L_TVV##first##second                                                                  \
      : top = ApplyBinary(k##second, ApplyBinary(k##first, top, ZU_VAR(4)), ZU_VAR(8)); \
  ZU_NEXT;                                                                              \
  L_TVC##first##second                                                                  \
      : top = ApplyBinary(k##second, ApplyBinary(k##first, top, ZU_VAR(4)), ZU_CONST);  \
  ZU_NEXT;                                                                              \
  L_TCV##first##second                                                                  \
      : top = ApplyBinary(k##second, ApplyBinary(k##first, top, ZU_CONST), ZU_VAR(4));  \
  ZU_NEXT;
  ZU_CHAINED_OPS(ZU_CHAINED_CODE)
#define ZU_POWER_CODE(outer, inner)                                              \
  L_XV##outer##inner : ZU_GUARD(inner);                                          \
  top = ApplyBinary(k##outer, top, ApplyUnaryHere<kFused>(k##inner, ZU_VAR(4))); \
  ZU_NEXT;
  ZU_POWER_OPS(ZU_POWER_CODE)
#undef ZU_POWER_CODE
#undef ZU_CHAINED_CODE
#undef ZU_FUSED_CODE
#undef ZU_BINARY_CODE
#undef ZU_UNARY_CODE
#undef ZU_GUARD
#undef ZU_VAR
#undef ZU_CONST
#undef ZU_NEXT
#undef ZU_PUSH
}

}  // namespace

// Runs the program found at slot when the tokens still match it (same), else the tokens.
// Only tail calls: no registers to save before the program runs.
template <bool kFused>
[[gnu::always_inline]] inline int RunChecked(const unsigned char* slot, bool same, bool leaf,
                                             const unsigned char* ip,
                                             const CKAArray<SToken>& polish, int var_count,
                                             const CKAArray<SVarOperand>& table, double& result) {
  // An edited token sends evaluation to the tokens.
  if (!slot || !same) return RunPolish(polish, var_count, table, result);
  const char* values = reinterpret_cast<const char*>(table.m_pData);
  return leaf ? RunProgram<true, kFused>(ip, values, result)
              : RunProgram<false, kFused>(ip, values, result);
}

[[gnu::always_inline]] inline int EvaluateHere(const CKAArray<SToken>& polish, int var_count,
                                               const CKAArray<SVarOperand>& table, double& result) {
  result = 0.0;  // first: result may be one of the variables
  bool leaf = false;
  const unsigned char* ip = nullptr;
  const unsigned char* slot = FindProgram(polish, var_count, table, leaf, ip);
  const bool same = slot && SameTokens(polish.m_pData, polish.m_nCount, slot);
  return RunChecked<false>(slot, same, leaf, ip, polish, var_count, table, result);
}

#ifdef ZU_WIDE_CHECK
[[gnu::target("avx2"), gnu::always_inline]] inline int EvaluateHereWide(
    const CKAArray<SToken>& polish, int var_count, const CKAArray<SVarOperand>& table,
    double& result) {
  result = 0.0;  // first: result may be one of the variables
  bool leaf = false;
  const unsigned char* ip = nullptr;
  const unsigned char* slot = FindProgram(polish, var_count, table, leaf, ip);
  const bool same = slot && SameTokensWide(polish.m_pData, polish.m_nCount, slot);
  _mm256_zeroupper();  // the interpreter uses no 256-bit register: no transition penalty
  return RunChecked<true>(slot, same, leaf, ip, polish, var_count, table, result);
}
#endif

// The two builds of CKAExpression::Evaluate.
int EvaluateNarrow(CKAExpression* self, double& result) {
  return EvaluateHere(self->m_arPolish, self->m_nVarCount, self->m_arVarOperand, result);
}

#ifdef ZU_WIDE_CHECK
[[gnu::target("avx2")]] int EvaluateWide(CKAExpression* self, double& result) {
  return EvaluateHereWide(self->m_arPolish, self->m_nVarCount, self->m_arVarOperand, result);
}
#endif

namespace {

// The name of an operation, for listings.
const char* OpName(Op op, const char** form) {
  static const char* const kNames[] = {
#define ZU_BINARY_NAMES(name) #name, #name, #name, #name, #name, #name, #name, #name,
#define ZU_UNARY_NAMES(name) #name, #name,
#define ZU_FUSED_NAMES(outer, inner) #outer "(" #inner ")", #outer "(" #inner ")",
#define ZU_CHAINED_NAMES(first, second) #first "," #second, #first "," #second, #first "," #second,
#define ZU_POWER_NAMES(outer, inner) #outer "(" #inner ")",
      "End", "LoadVar", "LoadConst",
      ZU_BINARY_OPS(ZU_BINARY_NAMES) ZU_UNARY_OPS(ZU_UNARY_NAMES) ZU_FUSED_OPS(ZU_FUSED_NAMES)
          ZU_CHAINED_OPS(ZU_CHAINED_NAMES) ZU_POWER_OPS(ZU_POWER_NAMES)
#undef ZU_BINARY_NAMES
#undef ZU_UNARY_NAMES
#undef ZU_FUSED_NAMES
#undef ZU_CHAINED_NAMES
#undef ZU_POWER_NAMES
  };
  *form = "";
  if (op >= kOpVVAdd && op < kOpFirstUnary) {
    *form = kBinaryFormNames[(op - kOpVVAdd) % kBinaryForms];
  } else if (op >= kOpFirstUnary && op < kOpFirstFused) {
    *form = kUnaryFormNames[(op - kOpFirstUnary) % 2];
  } else if (op >= kOpFirstFused && op < kOpFirstChained) {
    *form = (op - kOpFirstFused) % 2 ? "XVC" : "XVV";
  } else if (op >= kOpFirstChained && op < kOpFirstPower) {
    *form = kChainedFormNames[(op - kOpFirstChained) % kChainedForms];
  } else if (op >= kOpFirstPower && op < kOpInvalid) {
    *form = "XV";
  }
  return op < kOpInvalid ? kNames[op] : "Invalid";
}

std::string Operand(const char* form, int at, const Instr& in) {
  const char letter = form[at];
  if (letter != 'V' && letter != 'C') return "";
  char text[40];
  if (letter == 'C') {
    std::snprintf(text, sizeof(text), " %.17g", in.value);
  } else {
    const bool second = std::strchr(form, 'V') != form + at;  // the form's second variable
    const std::uint32_t offset = second ? in.b : in.a;
    std::snprintf(text, sizeof(text), " v%u",
                  static_cast<unsigned>(offset / sizeof(SVarOperand) + 1));
  }
  return text;
}

}  // namespace

void StoreProgram(const CKAArray<SToken>& polish, CKAArray<SVarOperand>& table) {
  const int base = table.m_nCount;
  if (base < table.m_nSize) std::memset(table.m_pData[base].m_szName, 0, 8);  // an older mark
  Compiler compiler;
  if (!compiler.Compile(polish.m_pData, polish.m_nCount, base)) return;
  const int count = polish.m_nCount;
  const long long code =
      static_cast<long long>(sizeof(SVarOperand)) *
      (1 + Slots(static_cast<long long>(count) * kTokenBytes));  // kMaxCompiledTokens bounds it
  const int instructions = static_cast<int>(compiler.Code().size());
  const int slots = Slots(code + static_cast<long long>(instructions) * kInstrBytes);
  const Header header = {kProgramMark,
                         count,
                         base,
                         base + slots,
                         compiler.IsLeaf() ? 1 : 0,
                         static_cast<std::int32_t>(code)};
  if (header.end > table.m_nSize && !table.AddSize(header.end - table.m_nSize)) return;
  unsigned char* slot = reinterpret_cast<unsigned char*>(table.m_pData + base);
  std::memset(slot, 0, static_cast<size_t>(slots) * sizeof(SVarOperand));
  const unsigned char* tokens = reinterpret_cast<const unsigned char*>(polish.m_pData);
  std::memcpy(slot + sizeof(SVarOperand), tokens, static_cast<size_t>(count) * kTokenBytes);
  for (int i = 0; i < instructions; ++i) {
    StoreInstr(slot + code + i * kInstrBytes, compiler.Code()[i]);
  }
  std::memcpy(slot, &header, sizeof(header));  // the mark last: the program is complete
}

std::string ListProgram(const SToken* tokens, int count, int var_count) {
  Compiler compiler;
  if (!compiler.Compile(tokens, count, var_count)) return "";
  std::string out;
  for (const Instr& in : compiler.Code()) {
    const char* form;
    const char* name = OpName(in.op, &form);
    out += std::string(form) + (*form ? " " : "") + name;
    if (in.op == kOpLoadVar) out += Operand("V", 0, in);
    if (in.op == kOpLoadConst) out += Operand("C", 0, in);
    for (int at = 0; form[at]; ++at) out += Operand(form, at, in);
    out += "\n";
  }
  return out;
}

int EvaluatePolish(const CKAArray<SToken>& polish, int var_count,
                   const CKAArray<SVarOperand>& table, double& result) {
  return EvaluateHere(polish, var_count, table, result);
}

bool HasWideCheck() {
#ifdef ZU_WIDE_CHECK
  __builtin_cpu_init();  // the resolver may run before any constructor
  return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
#else
  return false;
#endif
}

#ifdef ZU_WIDE_CHECK
[[gnu::target("avx2")]] int EvaluatePolishWide(const CKAArray<SToken>& polish, int var_count,
                                               const CKAArray<SVarOperand>& table, double& result) {
  return EvaluateHereWide(polish, var_count, table, result);
}
#else
int EvaluatePolishWide(const CKAArray<SToken>& polish, int var_count,
                       const CKAArray<SVarOperand>& table, double& result) {
  return EvaluateHere(polish, var_count, table, result);
}
#endif

}  // namespace zu_expression

// Here rather than with the rest of the object: the program runs without a further jump.
#ifdef ZU_WIDE_CHECK
// The dynamic linker asks once which build this processor runs: Evaluate is an indirect
// function, declared in assembly because C++ has no out-of-class form for it.
extern "C" {
typedef int ZuEvaluate(CKAExpression*, double&);
[[gnu::visibility("hidden"), gnu::used]] ZuEvaluate* zu_resolve_evaluate() {
  return zu_expression::HasWideCheck() ? zu_expression::EvaluateWide
                                       : zu_expression::EvaluateNarrow;
}
}
asm(".globl _ZN13CKAExpression8EvaluateERd\n"
    ".type _ZN13CKAExpression8EvaluateERd, @gnu_indirect_function\n"
    ".set _ZN13CKAExpression8EvaluateERd, zu_resolve_evaluate\n");
#else
int CKAExpression::Evaluate(double& dResult) {
  return zu_expression::EvaluateNarrow(this, dResult);
}
#endif
