// CKAExpression: keyword dictionary, lexer, translation to postfix form through the precedence
// matrix, variable table and evaluation on a value stack.
#include "zu_expression.h"

#include <locale.h>
#include <stdlib.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

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

constexpr int kMaxVariables = 65;        // the 66th is refused
constexpr int kMaxGeneratedNames = 66;   // A1 .. A66 already force that refusal
constexpr int kMaxCachedNumbers = 1024;  // numbers converted at Analysis time

// A cached number sits in a spare slot of the variable table behind the variables: its first
// 8 name bytes are the token text, the next 8 this marker, so no variable record is taken
// for a cached number.
constexpr char kNumberMark[8] = {'\x01', '#', 'n', 'u', 'm', '\x01', '\0', '\0'};

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

bool IsCachedNumber(const SVarOperand& slot, const SToken& tok) {
  return std::memcmp(slot.m_szName, tok.m_szName, 8) == 0 &&
         std::memcmp(slot.m_szName + 8, kNumberMark, 8) == 0;
}

void CacheNumber(SVarOperand& slot, const SToken& tok) {
  std::memset(slot.m_szName, 0, sizeof(slot.m_szName));
  std::memcpy(slot.m_szName, tok.m_szName, 8);
  std::memcpy(slot.m_szName + 8, kNumberMark, 8);
  slot.m_dValue = ConvertNumber(tok.m_szName);
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

// What one evaluation reads besides the tokens: the variable values and the numbers
// converted at Analysis time.
struct Operands {
  const SVarOperand* vars;
  int var_count;
  const SVarOperand* cache;
  int cache_count;
};

[[gnu::noinline]] double ConvertUncached(const SToken& tok) {
  return ConvertNumber(tok.m_szName);
}

// Runs the postfix tokens on a 128-value stack whose top value is held apart (in a register),
// so that each result feeds the next operation without a round trip through memory. A push
// onto the full stack is lost and a pop from the empty stack leaves its target unchanged;
// neither is reported. Arity checks use the operand counter, not the stack. Every operation
// pops into the work value (the second of two operands) and the operand value (the first).
// One function with plain locals keeps all of this state in registers.
int RunPolish(const SToken* tok, const SToken* end, const Operands& in, double& result) {
  double below[129];  // stack element k - 1 at index k; index 0 is never a value
  double top = 0.0;
  int size = 0;
  int produced = 0;
  int numbers = 0;
  double work = 0.0;
  double operand = 0.0;

  auto push = [&](double v) {
    if (size >= 128) return;
    below[size++] = top;
    top = v;
  };
  auto pop = [&](double& v) {
    if (size < 1) return;
    v = top;
    top = below[--size];
  };
  auto unary = [&](auto f) {
    if (produced < 1) return false;
    if (size > 0) {
      work = top;
      top = f(work);
    } else {
      push(f(work));
    }
    return true;
  };
  auto binary = [&](auto f) {
    if (produced < 2) return false;
    --produced;
    if (size > 1) {
      work = top;
      operand = below[--size];
      top = f(operand, work);
    } else {
      pop(work);
      pop(operand);
      push(f(operand, work));
    }
    return true;
  };
  // ASIN and ACOS fail with -1 outside [-1, 1]; SQRT, LOG and LN fail with -2 below 0.
  auto checked = [&](int code, auto f) {
    if (produced < 1) return -1;
    pop(work);
    if (code == kAsin || code == kAcos) {
      if (work < -1.0 || work > 1.0) return -1;
    } else if (work < 0.0) {
      return -2;
    }
    push(f(work));
    return 1;
  };
  // SUM, AVE, MAX, MIN over the last n operands; the accumulator starts with the last one.
  auto list = [&](int code, int n) {
    if (n > produced) return false;
    pop(work);
    for (int i = 1; i < n; ++i) {
      pop(operand);
      if (code == kMaximum) {
        if (operand > work) work = operand;
      } else if (code == kMinimum) {
        if (operand < work) work = operand;
      } else {
        work += operand;
      }
    }
    if (code == kAverage) work = n > 0 ? work / n : 0.0;
    produced = static_cast<int>(std::min<long long>(1LL + produced - n, INT_MAX));
    push(work);
    return true;
  };

  for (; tok != end; ++tok) {
    bool ok = true;
    int rc = 1;
    switch (tok->m_nType) {
      case kNumber: {
        const int k = numbers++;
        const bool cached = k < in.cache_count && IsCachedNumber(in.cache[k], *tok);
        push(cached ? in.cache[k].m_dValue : ConvertUncached(*tok));
        ++produced;
        break;
      }
      case kVariable: {
        const unsigned index = static_cast<unsigned>(tok->m_nParam) - 1u;
        if (index >= static_cast<unsigned>(in.var_count)) return -1;
        push(in.vars[index].m_dValue);
        ++produced;
        break;
      }
      case kNegate:
        ok = unary([](double x) { return -x; });
        break;
      case kAdd:
        ok = binary([](double a, double b) { return a + b; });
        break;
      case kSubtract:
        ok = binary([](double a, double b) { return a - b; });
        break;
      case kMultiply:
        ok = binary([](double a, double b) { return a * b; });
        break;
      case kDivide:
        ok = binary(Divide);
        break;
      case kPower:
        ok = binary([](double a, double b) { return std::pow(a, b); });
        break;
      case kQuotient:
        ok = binary(Quotient);
        break;
      case kRemainder:
        ok = binary(Remainder);
        break;
      case kAnd:
        ok = binary([](double a, double b) { return Truth(Trunc(a) != 0 && Trunc(b) != 0); });
        break;
      case kOr:
        ok = binary([](double a, double b) { return Truth(Trunc(a) != 0 || Trunc(b) != 0); });
        break;
      case kNot:
        ok = unary([](double x) { return Truth(Trunc(x) == 0); });
        break;
      case kGreater:
        ok = binary([](double a, double b) { return Truth(a > b); });
        break;
      case kGreaterEqual:
        ok = binary([](double a, double b) { return Truth(a >= b); });
        break;
      case kLess:
        ok = binary([](double a, double b) { return Truth(a < b); });
        break;
      case kLessEqual:
        ok = binary([](double a, double b) { return Truth(a <= b); });
        break;
      case kNotEqual:
        ok = binary([](double a, double b) { return Truth(!(a == b)); });
        break;
      case kSum:
      case kAverage:
      case kMaximum:
      case kMinimum:
        ok = list(tok->m_nType, tok->m_nParam);
        break;
      case kDegToRad:
        ok = unary([](double x) { return x * 0.017453292519944444; });  // 3.14159265359/180
        break;
      case kRadToDeg:
        ok = unary([](double x) { return x * 57.29577951307855; });  // 180/3.14159265359
        break;
      case kSqrt:
        rc = checked(kSqrt, [](double x) { return std::sqrt(x); });
        break;
      case kSin:
        ok = unary([](double x) { return std::sin(x); });
        break;
      case kCos:
        ok = unary([](double x) { return std::cos(x); });
        break;
      case kTan:
        ok = unary([](double x) { return std::tan(x); });
        break;
      case kAsin:
        rc = checked(kAsin, [](double x) { return std::asin(x); });
        break;
      case kAcos:
        rc = checked(kAcos, [](double x) { return std::acos(x); });
        break;
      case kAtan:
        ok = unary([](double x) { return std::atan(x); });
        break;
      case kAbs:  // one operand, whatever argument count the token carries
        ok = unary([](double x) { return std::fabs(x); });
        break;
      case kCabs:
        ok = binary([](double a, double b) { return std::sqrt(b * b + a * a); });
        break;
      case kCosPhi:
        ok = binary(CosPhi);
        break;
      case kLog:  // natural logarithm: LOG and LN are deliberately swapped
        rc = checked(kLog, [](double x) { return std::log(x); });
        break;
      case kLn:  // base-10 logarithm
        rc = checked(kLn, [](double x) { return std::log10(x); });
        break;
      case kExp:  // one operand, although the keyword carries 2
        ok = unary([](double x) { return std::exp(x); });
        break;
      default:  // brackets, commas, the end marker and unknown codes are not evaluable
        return -1;
    }
    if (!ok) return -1;
    if (rc != 1) return rc;
  }
  if (produced != 1) return -1;
  pop(result);
  return 1;
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
  // Numbers are converted once here; Evaluate finds them behind the variables.
  const int base = m_arVarOperand.m_nCount;
  int numbers = 0;
  for (int i = 0; i < m_arPolish.m_nCount && numbers < kMaxCachedNumbers; ++i) {
    if (m_arPolish.m_pData[i].m_nType == kNumber) ++numbers;
  }
  if (numbers > 0 && base + numbers > m_arVarOperand.m_nSize) {
    m_arVarOperand.AddSize(base + numbers - m_arVarOperand.m_nSize);
  }
  SVarOperand* slot = m_arVarOperand.m_pData + base;
  for (int i = 0; i < m_arPolish.m_nCount && slot != m_arVarOperand.m_pData + base + numbers; ++i) {
    if (m_arPolish.m_pData[i].m_nType == kNumber) CacheNumber(*slot++, m_arPolish.m_pData[i]);
  }
  return m_nPos + 1 < m_nLength ? -4 : 1;
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
  const int vars = std::max(0, std::min(m_nVarCount, m_arVarOperand.m_nCount));
  const int cached = std::min(m_arVarOperand.m_nSize - vars, kMaxCachedNumbers);
  const Operands in = {m_arVarOperand.m_pData, vars, m_arVarOperand.m_pData + vars,
                       std::max(cached, 0)};
  double result = 0.0;
  const int rc = RunPolish(m_arPolish.m_pData, m_arPolish.m_pData + count, in, result);
  if (rc == 1) dResult = result;
  return rc;
}
