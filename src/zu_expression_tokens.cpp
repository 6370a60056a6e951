// Evaluation of postfix tokens one by one, exactly as the formula language defines it, and
// the conversion of number texts. Evaluate falls back to this for tokens without a compiled
// program (zu_expression_program.cpp), and the compiler's tests measure programs against it.
#include <locale.h>
#include <stdlib.h>

#include <algorithm>
#include <climits>

#include "zu_expression_internal.h"

namespace zu_expression {
namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

locale_t CLocale() {
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  return c_locale;
}

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

}  // namespace

// Texts of the form digits[.digits] (all the lexer makes) have at most 7 digits: the integer
// mantissa and the power of ten are exact doubles, so one correctly rounded division gives
// exactly strtod's result. Other texts (tokens edited by the caller) go to strtod.
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

double SystemPow(double x, double y) {
  volatile double hidden = y;
  return std::pow(x, hidden);
}

// Arity checks use the operand counter, not the stack, so values lost to a full stack show
// as wrong results, not as errors. Every operation pops into the work value (the second of
// two operands) and the operand value (the first); a pop from the empty stack leaves them as
// the previous operation left them.
int RunTokens(const SToken* tokens, int count, const SVarOperand* vars, int var_count,
              double& result) {
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

}  // namespace zu_expression
