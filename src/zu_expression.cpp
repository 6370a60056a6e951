// CKAExpression: keyword dictionary, lexer, translation to postfix form through the precedence
// matrix, variable table and evaluation on a value stack.
#include "zu_expression.h"

#include <locale.h>
#include <stdlib.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

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
};

struct Keyword {
  const char* text;
  int code;
  int operands;
  int priority;
};

// The keyword dictionary's rows, in the order they are added (this fixes the chain order).
constexpr Keyword kKeywords[] = {
    {"#", kEnd, 0, 8},         {"@", kNegate, 1, 1},      {"+", kAdd, 2, 1},
    {"-", kSubtract, 2, 1},    {"*", kMultiply, 2, 2},    {"/", kDivide, 2, 2},
    {"^", kPower, 2, 3},       {"%", kRemainder, 2, 2},   {"MOD", kQuotient, 2, 2},
    {",", kComma, 0, 0},       {"(", kOpenRound, 0, 4},   {")", kCloseRound, 0, 5},
    {"[", kOpenSquare, 0, 4},  {"]", kCloseSquare, 0, 5}, {"C_PI", kNumber, 0, 0},
    {"C_E", kNumber, 0, 0},    {"AND", kAnd, 2, 6},       {"OR", kOr, 2, 6},
    {"NOT", kNot, 1, 6},       {">", kGreater, 2, 6},     {">=", kGreaterEqual, 2, 6},
    {"<", kLess, 2, 6},        {"<=", kLessEqual, 2, 6},  {"!=", kNotEqual, 2, 6},
    {"AVE", kAverage, 0, 7},   {"MAX", kMaximum, 0, 7},   {"MIN", kMinimum, 0, 7},
    {"SUM", kSum, 0, 7},       {"ABS", kAbs, 0, 7},       {"SIN", kSin, 1, 7},
    {"COS", kCos, 1, 7},       {"TAN", kTan, 1, 7},       {"ASIN", kAsin, 1, 7},
    {"ACOS", kAcos, 1, 7},     {"ATAN", kAtan, 1, 7},     {"SQRT", kSqrt, 1, 7},
    {"LOG", kLog, 1, 7},       {"LN", kLn, 1, 7},         {"EXP", kExp, 2, 7},  // 2 unused
    {"DTOR", kDegToRad, 1, 7}, {"RTOD", kRadToDeg, 1, 7}, {"CABS", kCabs, 2, 7},
    {"COSPHI", kCosPhi, 2, 7},
};
static_assert(sizeof(kKeywords) / sizeof(kKeywords[0]) == 43, "43 keywords");

// Precedence matrix: row = class of the operator on top of the stack, column = class of the
// incoming token. -1 push the incoming token; 1 move the top to the output and compare again;
// 0 discard the top (a matching pair); -2 syntax error. Reproduced value for value: its odd
// entries (left-associative "^", "((" moving the first bracket out) are the grammar.
constexpr int kClasses = 9;
constexpr int s_arPriority[kClasses * kClasses] = {
    -2, -2, -2, -2, -2, -2, -2, -2, -2,  // 0 operand, comma
    -2, 1,  -1, -1, -1, 1,  1,  -1, 1,   // 1 + - @
    -2, 1,  1,  -1, -1, 1,  1,  -1, 1,   // 2 * / % MOD
    -2, 1,  1,  1,  -1, 1,  1,  -1, 1,   // 3 ^
    -2, -1, -1, -1, 1,  0,  -1, -1, -2,  // 4 opening bracket
    -2, 1,  1,  1,  1,  1,  1,  1,  1,   // 5 closing bracket
    -2, -1, -1, -1, -1, 1,  1,  -1, 1,   // 6 logic and comparison
    -2, 1,  1,  1,  -1, 1,  1,  -2, 1,   // 7 function
    -2, -1, -1, -1, -1, -2, -1, -1, 0,   // 8 end marker
};

constexpr int kMaxVariables = 65;       // the 66th is refused
constexpr int kMaxGeneratedNames = 66;  // A1 .. A66 already force that refusal
constexpr int kStackSize = 128;         // values one evaluation holds at most

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}
bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}
bool IsNameStart(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) != 0;
}
bool IsNameChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}
char Upper(char c) {
  return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

bool IsListFunction(int code) {
  return code == kSum || code == kAverage || code == kMaximum || code == kMinimum || code == kAbs;
}

bool IsOperand(int code) {
  return code == kVariable || code == kNumber;
}

void CopyKind(const SToken& from, SToken& to) {
  to.m_nType = from.m_nType;
  to.m_nParam = from.m_nParam;
  to.m_nPriority = from.m_nPriority;
}

// Copies at most 7 characters of text into name and fills the rest of its 8 bytes with NUL.
void SetName(char (&name)[8], const char* text) {
  std::memset(name, 0, sizeof(name));
  std::memcpy(name, text, strnlen(text, sizeof(name) - 1));
}

SToken MakeToken(const char* text, int code, int operands, int priority) {
  SToken tok = {};
  SetName(tok.m_szName, text);
  tok.m_nType = code;
  tok.m_nParam = operands;
  tok.m_nPriority = priority;
  return tok;
}

// Collects characters for a token text: keeps the first 7 (the deliberate limit), counts all.
class TokenText {
 public:
  void Add(char c) {
    if (m_length < 7) m_text[m_length] = c;
    if (m_length < INT_MAX) ++m_length;
  }
  int Length() const { return m_length; }
  const char* Text() const { return m_text; }
  void Set(const char* text) { SetName(m_text, text); }
  void CopyTo(char (&name)[8]) const { std::memcpy(name, m_text, sizeof(name)); }

 private:
  char m_text[8] = {};
  int m_length = 0;
};

// ---- Number conversion ----

locale_t CLocale() {
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  return c_locale;
}

// strtod of a token text in the C locale. Texts of the form digits[.digits] (all the lexer
// makes) have at most 7 digits: the integer mantissa and the power of ten are exact doubles,
// so one correctly rounded division gives exactly strtod's result.
double ConvertNumber(const char (&name)[8]) {
  static constexpr double kPow10[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7};
  std::uint64_t mantissa = 0;
  int i = 0;
  int fraction = 0;
  for (; i < 8 && IsDigit(name[i]); ++i) mantissa = mantissa * 10 + (name[i] - '0');
  if (i > 0 && i < 8 && name[i] == '.') {
    for (++i; i < 8 && IsDigit(name[i]); ++i, ++fraction) {
      mantissa = mantissa * 10 + (name[i] - '0');
    }
  }
  if (i > 0 && i < 8 && name[i] == '\0') {
    const double value = static_cast<double>(mantissa);
    return fraction == 0 ? value : value / kPow10[fraction];
  }
  char text[9] = {};
  std::memcpy(text, name, 8);
  const locale_t c_locale = CLocale();
  return c_locale ? strtod_l(text, nullptr, c_locale) : std::strtod(text, nullptr);
}

// ---- Evaluation ----

// Conversion to a signed 32-bit integer rounding toward zero; values outside the range
// saturate and NaN gives 0, as the ARM conversion instruction does.
std::int32_t Trunc(double x) {
  if (!(x == x)) return 0;
  if (x >= 2147483647.0) return INT32_MAX;
  if (x <= -2147483648.0) return INT32_MIN;
  return static_cast<std::int32_t>(x);
}

// "MOD": the integer quotient, deliberately not the remainder; a zero divisor gives trunc(a).
double Quotient(double a, double b) {
  const std::int32_t q = Trunc(b);
  const std::int32_t n = Trunc(a);
  if (q == 0) return n;
  if (q == -1) return n == INT32_MIN ? INT32_MIN : -n;  // wraps as the hardware division does
  return n / q;
}

// "%": the integer remainder with the dividend's sign; a zero divisor gives 0.
double Remainder(double a, double b) {
  const std::int32_t q = Trunc(b);
  if (q == 0 || q == -1) return 0.0;
  return Trunc(a) % q;
}

// "/": a near-zero divisor gives 0 for a near-zero dividend and otherwise the deliberate
// substitute for infinity 9999999, positive whatever the signs.
double Divide(double a, double b) {
  if (std::fabs(b) >= 1e-18) return a / b;
  if (std::fabs(a) < 1e-18) return 0.0;
  return 9999999.0;
}

double CosPhi(double a, double b) {
  if (std::fabs(b) < 1e-18 && std::fabs(a) < 1e-18) return 0.0;
  return b / std::sqrt(b * b + a * a);
}

double Truth(bool b) {
  return b ? 1.0 : 0.0;
}

// The system's pow(x, 2.0). The exponent is hidden from the compiler, which would otherwise
// replace the call by x * x; that differs from pow for about one input in a thousand.
double SystemSquare(double x) {
  volatile double two = 2.0;
  return std::pow(x, two);
}

// pow(x, 2.0), without the call where its result is known to be x * x. The exact square is
// p + e with p = x * x rounded. e is computed from x = hi + lo, hi being x with the low 27
// bits of its significand cleared: hi * hi and hi * lo are exact, lo * lo is rounded by at
// most 2^-52 units (units in the last place of p), so the computed e is within 2^-50 units of
// the true one, whether or not the compiler fuses multiplications and additions. The
// system's pow (glibc) is within 0.54 units of the exact result (up to 0.509 seen on 300
// million inputs on x86-64 and 20 million on armhf), so when |e| <= 7/16 unit and p is
// not a power of two (both neighbours a whole unit away) pow cannot return anything but p:
// every other double is more than 9/16 unit from the exact square. Elsewhere (huge, tiny,
// zero, infinite or NaN x, or e near half a unit: about one input in eight) pow is called.
[[gnu::always_inline]] inline double Square(double x) {
  const double magnitude = std::fabs(x);
  if (!(magnitude >= 0x1p-400 && magnitude <= 0x1p400)) return SystemSquare(x);
  const double p = x * x;
  std::uint64_t bits;
  std::memcpy(&bits, &x, sizeof(bits));
  bits &= ~((std::uint64_t{1} << 27) - 1);
  double hi;
  std::memcpy(&hi, &bits, sizeof(hi));
  const double lo = x - hi;
  const double e = ((hi * hi - p) + 2.0 * hi * lo) + lo * lo;
  std::memcpy(&bits, &p, sizeof(bits));
  if ((bits & 0x000fffffffffffffULL) == 0) return SystemSquare(x);
  const std::uint64_t unit_bits = (bits & 0x7ff0000000000000ULL) - (52ULL << 52);
  double unit;  // the unit in the last place of p
  std::memcpy(&unit, &unit_bits, sizeof(unit));
  if (std::fabs(e) <= 0.4375 * unit) return p;
  return SystemSquare(x);
}

// ---- Operations, shared by evaluation and constant folding ----

bool IsUnaryCode(int code) {
  return code == kNegate || code == kNot || (code >= kDegToRad && code <= kAbs) || code == kLog ||
         code == kLn || code == kExp;
}

bool IsBinaryCode(int code) {
  return (code >= kAdd && code <= kOr) || (code >= kGreater && code <= kNotEqual) ||
         code == kCabs || code == kCosPhi;
}

bool IsListCode(int code) {
  return code == kSum || code == kAverage || code == kMaximum || code == kMinimum;
}

// ASIN and ACOS fail with -1 outside [-1, 1]; SQRT, LOG and LN fail with -2 below 0.
int CheckDomain(int code, double x) {
  if (code == kAsin || code == kAcos) return (x < -1.0 || x > 1.0) ? -1 : 1;
  if (code == kSqrt || code == kLog || code == kLn) return x < 0.0 ? -2 : 1;
  return 1;
}

bool CanFail(int code) {
  return code == kAsin || code == kAcos || code == kSqrt || code == kLog || code == kLn;
}

[[gnu::always_inline]] inline double ApplyUnary(int code, double x) {
  switch (code) {
    case kNegate:
      return -x;
    case kNot:
      return Truth(Trunc(x) == 0);
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
      return std::pow(a, b);
    case kQuotient:
      return Quotient(a, b);
    case kRemainder:
      return Remainder(a, b);
    case kAnd:
      return Truth(Trunc(a) != 0 && Trunc(b) != 0);
    case kOr:
      return Truth(Trunc(a) != 0 || Trunc(b) != 0);
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
double Accumulate(int code, double acc, double value) {
  if (code == kMaximum) return value > acc ? value : acc;
  if (code == kMinimum) return value < acc ? value : acc;
  return acc + value;
}

double FinishList(int code, double acc, int n) {
  if (code != kAverage) return acc;
  return n > 0 ? acc / n : 0.0;
}

// ---- Evaluation straight from the postfix tokens ----

// The 128-value stack of one evaluation. A push onto the full stack is lost and a pop from
// the empty stack leaves its target unchanged; neither is reported.
class ValueStack {
 public:
  void Push(double v) {
    if (m_count < kStackSize) m_values[m_count++] = v;
  }
  void Pop(double& v) {
    if (m_count > 0) v = m_values[--m_count];
  }

 private:
  double m_values[kStackSize];
  int m_count = 0;
};

// Evaluates the tokens one by one. Arity checks use the operand counter, not the stack, so
// values lost to a full stack show as wrong results, not as errors. Every operation pops into
// the work value (the second of two operands) and the operand value (the first); a pop from
// the empty stack leaves them as the previous operation left them.
[[gnu::noinline]] int RunPolish(const SToken* tokens, int count, const SVarOperand* vars,
                                int var_count, double& result) {
  ValueStack stack;
  int produced = 0;
  double work = 0.0;
  double operand = 0.0;
  for (const SToken* tok = tokens; tok != tokens + count; ++tok) {
    const int code = tok->m_nType;
    if (code == kNumber) {
      stack.Push(ConvertNumber(tok->m_szName));
      ++produced;
    } else if (code == kVariable) {
      const unsigned index = static_cast<unsigned>(tok->m_nParam) - 1u;
      if (index >= static_cast<unsigned>(var_count)) return -1;
      stack.Push(vars[index].m_dValue);
      ++produced;
    } else if (IsUnaryCode(code)) {
      if (produced < 1) return -1;
      stack.Pop(work);
      const int rc = CheckDomain(code, work);
      if (rc != 1) return rc;
      stack.Push(ApplyUnary(code, work));
    } else if (IsBinaryCode(code)) {
      if (produced < 2) return -1;
      stack.Pop(work);
      stack.Pop(operand);
      stack.Push(ApplyBinary(code, operand, work));
      --produced;
    } else if (IsListCode(code)) {
      const int n = tok->m_nParam;
      if (n > produced) return -1;
      stack.Pop(work);  // the accumulator starts with the last argument
      for (int i = 1; i < n; ++i) {
        stack.Pop(operand);
        work = Accumulate(code, work, operand);
      }
      work = FinishList(code, work, n);
      produced = static_cast<int>(std::min<long long>(1LL + produced - n, INT_MAX));
      stack.Push(work);
    } else {
      return -1;  // brackets, commas, the end marker and unknown codes are not evaluable
    }
  }
  if (produced != 1) return -1;
  stack.Pop(result);
  return 1;
}

// ---- Compiled form ----
//
// Analysis compiles a formula whose stack use is regular: every operator finds its operands,
// at most 128 values are pending, one value is left at the end, every argument count is at
// least 1 and every variable is registered. For such a formula the stack always holds exactly
// the values the operand counter counts, so the checks of RunPolish can never fire and are
// left out, and the formula is a tree. Operands (numbers and variables) are not pushed: each
// operation takes them directly, so A+B*C is two instructions, "top = B * C" and
// "top = A + top". Operations still run in the order of the tokens, so the first failing one
// decides the result code; only the reading of operands moves. Constant sub-expressions are
// folded with the very operations evaluation would perform (a failing operation is never
// folded), numbers are converted once, and "^ 2" squares without pow where that is exact.
//
// The program is kept in spare slots of the variable table behind the variables (so the
// object's layout is untouched): a header, a copy of the postfix tokens it was made from,
// then 16-byte instructions. Evaluate runs it only while m_arPolish still equals that copy
// and the variable count is unchanged; otherwise it evaluates the tokens themselves.

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
  X(Atan) X(Abs) X(Log) X(Ln) X(Exp) X(Square)
// clang-format on

enum BinaryForm : int { kVV, kVC, kCV, kTV, kTC, kVT, kCT, kST, kBinaryForms };
enum UnaryForm : int { kT, kV, kUnaryForms };

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
  kOpInvalid,  // also stands for every code beyond it
};
// clang-format on
#undef ZU_BINARY_ENUM
#undef ZU_UNARY_ENUM

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

// One instruction: 16 bytes. a and b are byte offsets of variable values from the start of
// the variable table; value is a number operand (it shares its place with b).
struct Instr {
  Op op;
  std::uint32_t a;
  std::uint32_t b;
  double value;
};
constexpr int kInstrBytes = 16;

constexpr int kMaxCompiledTokens = 4096;
constexpr char kProgramMark[8] = {'\x01', 'Z', 'U', 'P', 'R', 'O', 'G', '\x02'};

std::uint32_t ValueOffset(int index) {
  return static_cast<std::uint32_t>(index * sizeof(SVarOperand) + offsetof(SVarOperand, m_dValue));
}

class Compiler {
 public:
  // False when the tokens are not regular or name an unregistered variable.
  bool Compile(const SToken* tokens, int count, int var_count) {
    int pending = 0;
    for (const SToken* tok = tokens; tok != tokens + count; ++tok) {
      const int code = tok->m_nType;
      if (code == kNumber) {
        m_stack.push_back({kConst, 0, ConvertNumber(tok->m_szName)});
        ++pending;
      } else if (code == kVariable) {
        const unsigned index = static_cast<unsigned>(tok->m_nParam) - 1u;
        if (index >= static_cast<unsigned>(var_count)) return false;
        m_stack.push_back({kVar, ValueOffset(static_cast<int>(index)), 0.0});
        ++pending;
      } else if (IsUnaryCode(code) && pending >= 1) {
        Unary(code);
      } else if (IsBinaryCode(code) && pending >= 2) {
        Binary(Specialise(code));
        --pending;
      } else if (IsListCode(code) && tok->m_nParam >= 1 && tok->m_nParam <= pending) {
        if (!List(code, tok->m_nParam)) return false;
        pending -= tok->m_nParam - 1;
      } else {
        return false;
      }
      if (pending > kStackSize) return false;
    }
    if (pending != 1) return false;
    if (m_stack.back().kind != kComputed) Load(m_stack.back());
    m_code.push_back({kOpEnd, 0, 0, 0.0});
    return true;
  }

  const std::vector<Instr>& Code() const { return m_code; }

 private:
  enum Kind { kConst, kVar, kComputed };
  // A value of the formula: an operand not loaded yet, or one computed at run time.
  struct Value {
    Kind kind;
    std::uint32_t offset;  // kVar
    double value;          // kConst
  };

  // "^ 2" squares; "/" by a number that is not near zero is the plain division.
  int Specialise(int code) const {
    const Value& b = m_stack.back();
    if (b.kind != kConst) return code;
    if (code == kPower && b.value == 2.0) return kSquare;
    if (code == kDivide && std::fabs(b.value) >= 1e-18) return kQuotientOf;
    return code;
  }

  void Emit(Op op, std::uint32_t a, std::uint32_t b, double value) {
    m_code.push_back({op, a, b, value});
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
    } else if (x.kind == kConst) {
      Load(x);
      Emit(UnaryOp(code, kT), 0, 0, 0.0);
    } else {
      Emit(UnaryOp(code, kT), 0, 0, 0.0);
    }
    x = {kComputed, 0, 0.0};
  }

  // a is the first-written operand, b the second; when b is computed it is the top value.
  void Binary(int code) {
    const Value b = m_stack.back();
    m_stack.pop_back();
    Value& a = m_stack.back();
    if (code == kSquare) {  // b is the number 2
      Unary(kSquare);
      return;
    }
    if (a.kind == kConst && b.kind == kConst) {
      a.value = ApplyBinary(code, a.value, b.value);
      return;
    }
    if (a.kind == kComputed && b.kind == kComputed) {
      Emit(BinaryOp(code, kST), 0, 0, 0.0);
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

  // SUM, AVE, MAX, MIN of n operands: the accumulator starts with the last and takes the
  // others from the last but one to the first. Arguments computed at run time never occur in
  // analysed formulas and are not compiled.
  bool List(int code, int n) {
    const size_t first = m_stack.size() - static_cast<size_t>(n);
    for (size_t i = first; i < m_stack.size(); ++i) {
      if (m_stack[i].kind == kComputed) return false;
    }
    const int step = code == kMaximum ? kMaxAcc : code == kMinimum ? kMinAcc : kAdd;
    Load(m_stack.back());
    for (size_t i = m_stack.size() - 1; i-- > first;) {
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

void StoreInstr(unsigned char* to, const Instr& in) {
  std::memset(to, 0, kInstrBytes);
  const std::uint32_t op = in.op;
  std::memcpy(to, &op, 4);
  std::memcpy(to + 4, &in.a, 4);
  if (in.b != 0) {  // a second variable (offsets are never 0); else the number, if any
    std::memcpy(to + 8, &in.b, 4);
  } else {
    std::memcpy(to + 8, &in.value, 8);
  }
}

struct ProgramHeader {
  int tokens;  // postfix tokens it was compiled from
  int vars;    // registered variables then
  int slots;   // slots it occupies, the header included
};

int TokenCopySlots(int tokens) {
  return (tokens + 1) / 2;  // two 20-byte tokens fill one 40-byte slot
}

int InstrSlots(int instructions) {
  return (instructions * kInstrBytes + static_cast<int>(sizeof(SVarOperand)) - 1) /
         static_cast<int>(sizeof(SVarOperand));
}

// Compiles polish, when it is regular, into the spare slots of table behind its variables.
void StoreProgram(const CKAArray<SToken>& polish, CKAArray<SVarOperand>& table) {
  const int base = table.m_nCount;
  if (base < table.m_nSize) std::memset(table.m_pData[base].m_szName, 0, 8);  // an older mark
  const int count = polish.m_nCount;
  Compiler compiler;
  if (count < 1 || count > kMaxCompiledTokens || !compiler.Compile(polish.m_pData, count, base)) {
    return;
  }
  const int instructions = static_cast<int>(compiler.Code().size());
  const int copy = TokenCopySlots(count);
  const ProgramHeader header = {count, base, 1 + copy + InstrSlots(instructions)};
  const int needed = base + header.slots;
  if (needed > table.m_nSize) table.AddSize(needed - table.m_nSize);
  SVarOperand* slot = table.m_pData + base;
  std::memset(static_cast<void*>(slot), 0, (1 + copy) * sizeof(SVarOperand));
  std::memcpy(slot->m_szName, kProgramMark, sizeof(kProgramMark));
  std::memcpy(slot->m_szName + 8, &header, sizeof(header));
  std::memcpy(static_cast<void*>(slot + 1), polish.m_pData, count * sizeof(SToken));
  unsigned char* code = reinterpret_cast<unsigned char*>(slot + 1 + copy);
  for (int i = 0; i < instructions; ++i) {
    StoreInstr(code + i * kInstrBytes, compiler.Code()[i]);
  }
}

// The instructions compiled from polish as it stands, or null.
[[gnu::always_inline]] inline const unsigned char* FindProgram(const CKAArray<SToken>& polish,
                                                               const CKAArray<SVarOperand>& table) {
  const int base = table.m_nCount;
  if (base < 0 || base >= table.m_nSize || !table.m_pData) return nullptr;
  const SVarOperand* slot = table.m_pData + base;
  if (std::memcmp(slot->m_szName, kProgramMark, sizeof(kProgramMark)) != 0) return nullptr;
  ProgramHeader header;
  std::memcpy(&header, slot->m_szName + 8, sizeof(header));
  const int code = 1 + TokenCopySlots(header.tokens);
  if (header.tokens != polish.m_nCount || header.tokens < 1 || header.tokens > kMaxCompiledTokens ||
      header.vars != base || code >= header.slots || header.slots > table.m_nSize - base) {
    return nullptr;
  }
  // The whole copy is compared: an edited token of any kind sends evaluation to the tokens.
  if (std::memcmp(polish.m_pData, slot + 1, header.tokens * sizeof(SToken)) != 0) return nullptr;
  return reinterpret_cast<const unsigned char*>(slot + code);
}

std::uint32_t U32At(const unsigned char* p) {
  std::uint32_t v;
  std::memcpy(&v, p, sizeof(v));
  return v;
}

double F64At(const unsigned char* p) {
  double v;
  std::memcpy(&v, p, sizeof(v));
  return v;
}

// Runs a compiled program: each instruction jumps straight to the next one's code. The top
// value is held apart (in a register); below[d - 1] is the value under it.
int RunProgram(const unsigned char* ip, const SVarOperand* vars, double& result) {
  // clang-format off
  static const void* const kTargets[] = {
      &&L_End, &&L_LoadVar, &&L_LoadConst,
#define ZU_BINARY_TARGETS(name) \
      &&L_VV##name, &&L_VC##name, &&L_CV##name, &&L_TV##name, &&L_TC##name, &&L_VT##name, \
      &&L_CT##name, &&L_ST##name,
      ZU_BINARY_OPS(ZU_BINARY_TARGETS)
#define ZU_UNARY_TARGETS(name) &&L_T##name, &&L_V##name,
      ZU_UNARY_OPS(ZU_UNARY_TARGETS)
      &&L_Invalid,
  };
  // clang-format on
#undef ZU_BINARY_TARGETS
#undef ZU_UNARY_TARGETS
  static_assert(sizeof(kTargets) / sizeof(kTargets[0]) == kOpInvalid + 1, "one target per op");
  const char* values = reinterpret_cast<const char*>(vars);
  double below[kStackSize + 1];
  double top = 0.0;
  int depth = 0;
  int rc = 1;
  std::uint32_t op;
#define ZU_VAR(field) (*reinterpret_cast<const double*>(values + U32At(ip + (field))))
#define ZU_CONST F64At(ip + 8)
#define ZU_NEXT                                        \
  do {                                                 \
    ip += kInstrBytes;                                 \
    op = U32At(ip);                                    \
    goto* kTargets[op < kOpInvalid ? op : kOpInvalid]; \
  } while (0)
#define ZU_PUSH below[depth++] = top
  op = U32At(ip);
  goto* kTargets[op < kOpInvalid ? op : kOpInvalid];
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
#define ZU_BINARY_CODE(name)                                    \
  L_VV##name : {                                                \
    const double x = ZU_VAR(4);                                 \
    const double y = ZU_VAR(8);                                 \
    ZU_PUSH;                                                    \
    top = ApplyBinary(k##name, x, y);                           \
    ZU_NEXT;                                                    \
  }                                                             \
  L_VC##name : {                                                \
    const double x = ZU_VAR(4);                                 \
    ZU_PUSH;                                                    \
    top = ApplyBinary(k##name, x, ZU_CONST);                    \
    ZU_NEXT;                                                    \
  }                                                             \
  L_CV##name : {                                                \
    const double y = ZU_VAR(4);                                 \
    ZU_PUSH;                                                    \
    top = ApplyBinary(k##name, ZU_CONST, y);                    \
    ZU_NEXT;                                                    \
  }                                                             \
  L_TV##name : top = ApplyBinary(k##name, top, ZU_VAR(4));      \
  ZU_NEXT;                                                      \
  L_TC##name : top = ApplyBinary(k##name, top, ZU_CONST);       \
  ZU_NEXT;                                                      \
  L_VT##name : top = ApplyBinary(k##name, ZU_VAR(4), top);      \
  ZU_NEXT;                                                      \
  L_CT##name : top = ApplyBinary(k##name, ZU_CONST, top);       \
  ZU_NEXT;                                                      \
  L_ST##name : top = ApplyBinary(k##name, below[--depth], top); \
  ZU_NEXT;
  ZU_BINARY_OPS(ZU_BINARY_CODE)
#define ZU_UNARY_CODE(name)                                                             \
  L_V##name : ZU_PUSH;                                                                  \
  top = ZU_VAR(4);                                                                      \
  goto L_T##name;                                                                       \
  L_T##name : if (CanFail(k##name) && (rc = CheckDomain(k##name, top)) != 1) return rc; \
  top = ApplyUnary(k##name, top);                                                       \
  ZU_NEXT;
  ZU_UNARY_OPS(ZU_UNARY_CODE)
#undef ZU_BINARY_CODE
#undef ZU_UNARY_CODE
#undef ZU_VAR
#undef ZU_CONST
#undef ZU_NEXT
#undef ZU_PUSH
}

}  // namespace

CKADict<CKAExpression::SToken> CKAExpression::m_sTokenDict(64);
bool CKAExpression::m_bInitOK = false;

CKAExpression::CKAExpression()
    : m_nVarCount(0),
      m_strExpression(),
      m_nPos(-1),
      m_nLength(0),
      m_arPolish(),
      m_arVarOperand(),
      m_stackOperator(128) {
  // One-time, thread-safe filling of the shared dictionary.
  static const bool filled = [this] {
    InitTokenList();
    m_bInitOK = true;
    return true;
  }();
  (void)filled;
}

CKAExpression::~CKAExpression() = default;

int CKAExpression::InitTokenList() {
  for (const Keyword& k : kKeywords) {
    m_sTokenDict.Add(k.text, MakeToken(k.text, k.code, k.operands, k.priority));
  }
  return 1;
}

// ---- Lexer ----

int CKAExpression::GetNextToken(SToken& tok) {
  const int end = std::min(m_nLength, m_strExpression.GetLength());
  if (m_nPos < 0 || m_nPos >= end) return 0;
  tok.m_nType = -1;
  const char* text = m_strExpression.GetBuf();
  int pos = m_nPos;
  while (pos < end && IsBlank(text[pos])) ++pos;
  m_nPos = pos;
  if (pos >= end) return 0;

  TokenText work;
  SToken entry;
  if (IsNameStart(text[pos])) {
    for (; pos < end && IsNameChar(text[pos]); ++pos) work.Add(Upper(text[pos]));
    // Keywords have at most 6 characters; a longer name is always a variable.
    if (work.Length() > 7 || !m_sTokenDict.Find(work.Text(), entry)) {
      tok.m_nType = kVariable;  // operand count and class stay as they were
    } else {
      if (entry.m_nType == kNumber) {
        // The constants are carried as 7-character number texts, deliberately not full doubles.
        work.Set(std::strcmp(work.Text(), "C_PI") == 0 ? "3.14159" : "2.71828");
      }
      CopyKind(entry, tok);
    }
  } else if (IsDigit(text[pos])) {
    for (; pos < end && IsDigit(text[pos]); ++pos) work.Add(text[pos]);
    if (pos < end && text[pos] == '.') {
      for (work.Add(text[pos++]); pos < end && IsDigit(text[pos]); ++pos) work.Add(text[pos]);
    }
    tok.m_nType = kNumber;  // the class stays as it was
    tok.m_nParam = 0;
  } else {
    const char c = text[pos++];
    work.Add(c);
    if ((c == '>' || c == '<' || c == '!') && pos < end && text[pos] == '=') work.Add(text[pos++]);
    m_nPos = pos;
    if (!m_sTokenDict.Find(work.Text(), entry)) {
      tok.m_nType = -1;
      return 0;
    }
    CopyKind(entry, tok);
  }
  m_nPos = pos;
  work.CopyTo(tok.m_szName);
  return 1;
}

// ---- Translation ----

int CKAExpression::Analysis(const char* pszExpression) {
  if (!pszExpression) return -5;
  const char* own = m_strExpression.GetBuf();
  if (pszExpression >= own && pszExpression <= own + m_strExpression.GetLength()) {
    const CKAString copy(pszExpression);  // the text lives in our own buffer
    return Analysis(copy.GetBuf());
  }
  m_strExpression = pszExpression;
  m_strExpression.TrimAll();
  m_strExpression += "#";
  m_nLength = m_strExpression.GetLength();
  m_nPos = 0;
  m_arPolish.m_nCount = 0;
  m_arVarOperand.m_nCount = 0;
  m_nVarCount = 0;
  SToken discarded;
  while (m_stackOperator.Pop(discarded)) {
  }

  const int rc = ChangeToPolishForm();
  if (rc < 0 || (m_nPos + 1 >= m_nLength && GetVarOperand() <= 0)) {
    m_arPolish.m_nCount = 0;
    m_arVarOperand.m_nCount = 0;
    m_nVarCount = 0;
    return -1;
  }
  if (m_nPos + 1 < m_nLength) return -4;
  StoreProgram(m_arPolish, m_arVarOperand);
  return 1;
}

int CKAExpression::ChangeToPolishForm() {
  m_stackOperator.Push(MakeToken("#", kEnd, 0, 8));
  SToken tok = MakeToken("", -1, 0, 0);
  while (GetNextToken(tok)) {
    if (IsOperand(tok.m_nType)) {
      m_arPolish.AddBefore(m_arPolish.m_nCount, tok);
    } else if (IsListFunction(tok.m_nType)) {
      if (NoFixedParamProcess(tok) < 0) return -1;
    } else if (FixedParamProcess(tok) < 0) {
      return -1;
    }
  }
  return 1;
}

int CKAExpression::FixedParamProcess(SToken& tok) {
  // Once the top has moved to the output, a later error only drops tok: the result is 1
  // whatever the repeated comparison finds. Deliberate: it makes 1+2) and (1+2 valid.
  int failure = -1;
  for (;;) {
    const CKAStack<SToken>& stack = m_stackOperator;
    if (stack.m_nCount < 1 || stack.m_nTop < 0 || stack.m_nTop >= stack.m_nMaxSize) {
      return failure;
    }
    const int top = stack.m_pData[stack.m_nTop].m_nPriority;
    const int incoming = tok.m_nPriority;
    if (top < 0 || top >= kClasses || incoming < 0 || incoming >= kClasses) return failure;
    SToken moved;
    switch (s_arPriority[top * kClasses + incoming]) {
      case 0:
        m_stackOperator.Pop(moved);
        return 1;
      case 1:
        if (!m_stackOperator.Pop(moved)) return failure;
        m_arPolish.AddBefore(m_arPolish.m_nCount, moved);
        failure = 1;
        break;
      case -1:
        m_stackOperator.Push(tok);  // a full stack loses tok without an error
        return 1;
      default:
        return failure;
    }
  }
}

int CKAExpression::NoFixedParamProcess(SToken& tok) {
  SToken arg = tok;
  if (!GetNextToken(arg)) return -1;
  if (arg.m_nType == kOpenRound) {
    int n = 0;
    for (;;) {
      if (!GetNextToken(arg)) return -1;
      if (arg.m_nType == kComma) continue;
      if (arg.m_nType == kCloseRound) break;
      if (!IsOperand(arg.m_nType)) return -1;
      ++n;
      m_arPolish.AddBefore(m_arPolish.m_nCount, arg);
    }
    tok.m_nParam = n;
    m_arPolish.AddBefore(m_arPolish.m_nCount, tok);
    return 1;
  }
  if (arg.m_nType != kOpenSquare) return -1;
  if (!GetNextToken(arg) || arg.m_nType != kNumber) return -1;
  const int n = static_cast<int>(std::strtol(arg.m_szName, nullptr, 10));
  for (int i = 1; i <= std::min(n, kMaxGeneratedNames); ++i) {
    char name[16];
    std::snprintf(name, sizeof(name), "A%d", i);
    m_arPolish.AddBefore(m_arPolish.m_nCount, MakeToken(name, kVariable, 0, 0));
  }
  tok.m_nParam = n;
  m_arPolish.AddBefore(m_arPolish.m_nCount, tok);
  if (!GetNextToken(arg) || arg.m_nType != kCloseSquare) return -1;
  return 1;
}

// ---- Variables ----

int CKAExpression::AddVarOperand(SVarOperand* pVar) {
  if (!pVar || m_nVarCount > kMaxVariables - 1) return -1;
  pVar->m_szName[sizeof(pVar->m_szName) - 1] = '\0';
  for (char* p = pVar->m_szName; *p; ++p) *p = Upper(*p);
  pVar->m_dValue = 0.0;
  m_arVarOperand.AddBefore(m_arVarOperand.m_nCount, *pVar);
  m_nVarCount = m_arVarOperand.m_nCount;
  return m_nVarCount;
}

int CKAExpression::GetVarOperand() {
  for (int i = 0; i < m_arPolish.m_nCount; ++i) {
    SToken& tok = m_arPolish.m_pData[i];
    if (tok.m_nType != kVariable) continue;
    SVarOperand var = {};
    std::memcpy(var.m_szName, tok.m_szName, sizeof(tok.m_szName));
    var.m_szName[sizeof(tok.m_szName) - 1] = '\0';
    int id = FindVarID(var.m_szName);
    if (id <= 0) id = AddVarOperand(&var);
    if (id < 0) return 0;
    tok.m_nParam = id;
  }
  return 1;
}

int CKAExpression::FindVarID(const char* pszName) {
  if (!pszName) return -1;
  char name[sizeof(SVarOperand::m_szName)];
  size_t length = 0;
  for (; pszName[length] != '\0'; ++length) {
    if (length + 1 >= sizeof(name)) return -1;  // longer than any stored name
    name[length] = Upper(pszName[length]);
  }
  name[length] = '\0';
  const int count = std::min(m_nVarCount, m_arVarOperand.m_nCount);
  for (int i = 0; i < count; ++i) {
    if (std::strncmp(m_arVarOperand.m_pData[i].m_szName, name, sizeof(name)) == 0) return i + 1;
  }
  return -1;
}

int CKAExpression::GetVarCount() {
  return m_nVarCount;
}

int CKAExpression::GetVarName(int nIndex, CKAString& strName) {
  strName = " ";
  if (nIndex < 1 || nIndex > m_nVarCount || nIndex > m_arVarOperand.m_nCount) return -1;
  char name[sizeof(SVarOperand::m_szName) + 1] = {};
  std::memcpy(name, m_arVarOperand.m_pData[nIndex - 1].m_szName, sizeof(SVarOperand::m_szName));
  strName = name;
  return 1;
}

int CKAExpression::SetVarValue(int nIndex, double dValue) {
  if (nIndex < 1 || nIndex > m_nVarCount || nIndex > m_arVarOperand.m_nCount) return -1;
  m_arVarOperand.m_pData[nIndex - 1].m_dValue = dValue;
  return 1;
}

int CKAExpression::GetVarValue(int nIndex, double& dValue) {
  dValue = 0.0;
  if (nIndex < 1 || nIndex > m_nVarCount || nIndex > m_arVarOperand.m_nCount) return -1;
  dValue = m_arVarOperand.m_pData[nIndex - 1].m_dValue;
  return 1;
}

int CKAExpression::SetVarValue(const char* pszName, double dValue) {
  return SetVarValue(FindVarID(pszName), dValue);
}

int CKAExpression::GetVarValue(const char* pszName, double& dValue) {
  return GetVarValue(FindVarID(pszName), dValue);
}

int CKAExpression::GetExpression(CKAString& str) {
  str = m_strExpression;
  if (str.GetLength() > 0) str.RemoveAt(str.GetLength() - 1, 1);
  return 1;
}

// ---- Evaluation ----

int CKAExpression::Evaluate(double& dResult) {
  dResult = 0.0;
  const int count = m_arPolish.m_nCount;
  if (count < 1 || !m_arPolish.m_pData) return -1;
  double result = 0.0;
  int rc;
  const unsigned char* program = nullptr;
  if (m_nVarCount == m_arVarOperand.m_nCount) program = FindProgram(m_arPolish, m_arVarOperand);
  if (program) {
    rc = RunProgram(program, m_arVarOperand.m_pData, result);
  } else {
    const int vars = std::max(0, std::min(m_nVarCount, m_arVarOperand.m_nCount));
    rc = RunPolish(m_arPolish.m_pData, count, m_arVarOperand.m_pData, vars, result);
  }
  if (rc == 1) dResult = result;
  return rc;
}
