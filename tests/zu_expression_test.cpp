#include "zu_expression.h"

#include <dlfcn.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using SToken = CKAExpression::SToken;

// The postfix token texts, separated by single blanks.
std::string Postfix(const CKAExpression& e) {
  std::string out;
  for (int i = 0; i < e.m_arPolish.m_nCount; ++i) {
    const char* name = e.m_arPolish.m_pData[i].m_szName;
    out += (i > 0 ? " " : "") + std::string(name, strnlen(name, 8));
  }
  return out;
}

// Values given to whichever of these variables a formula uses.
void SetInputs(CKAExpression& e) {
  const struct {
    const char* name;
    double value;
  } inputs[] = {{"A", 2},    {"B", 5},  {"C", 3},  {"X", 0.5},
                {"Y", -1.5}, {"A1", 1}, {"A2", 2}, {"A3", 3}};
  for (const auto& in : inputs) e.SetVarValue(in.name, in.value);
}

double Eval(CKAExpression& e, int expected_rc = 1) {
  double v = -123.0;
  EXPECT_EQ(e.Evaluate(v), expected_rc);
  return v;
}

const double kPi = 3.14159;

// Declared first: the first objects of the process are constructed on several threads at
// once, and the shared keyword dictionary must still be filled exactly once.
TEST(CKAExpressionDictionary, ConcurrentFirstConstructionFillsOnce) {
  std::vector<std::thread> threads;
  std::vector<int> results(8, 0);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &results] {
      CKAExpression e;
      double v = 0;
      if (e.Analysis("SIN(0)+SUM(1,2)*2") == 1 && e.Evaluate(v) == 1 && v == 6.0) results[t] = 1;
    });
  }
  for (auto& th : threads) th.join();
  for (int r : results) EXPECT_EQ(r, 1);
  EXPECT_TRUE(CKAExpression::m_bInitOK);
  EXPECT_EQ(CKAExpression::m_sTokenDict.GetCount(), 43);
  EXPECT_EQ(CKAExpression::m_sTokenDict.m_nHashSize, 64u);
}

TEST(CKAExpressionDictionary, HoldsEveryKeywordWithItsCodeOperandsAndClass) {
  CKAExpression e;
  const struct {
    const char* text;
    int code, operands, cls;
  } rows[] = {{"#", 0, 0, 8},     {"@", 1, 1, 1},     {"+", 2, 2, 1},      {"-", 3, 2, 1},
              {"*", 4, 2, 2},     {"/", 5, 2, 2},     {"^", 6, 2, 3},      {"%", 8, 2, 2},
              {"MOD", 7, 2, 2},   {",", 23, 0, 0},    {"(", 19, 0, 4},     {")", 20, 0, 5},
              {"[", 21, 0, 4},    {"]", 22, 0, 5},    {"C_PI", 18, 0, 0},  {"C_E", 18, 0, 0},
              {"AND", 9, 2, 6},   {"OR", 10, 2, 6},   {"NOT", 11, 1, 6},   {">", 12, 2, 6},
              {">=", 13, 2, 6},   {"<", 14, 2, 6},    {"<=", 15, 2, 6},    {"!=", 16, 2, 6},
              {"AVE", 25, 0, 7},  {"MAX", 26, 0, 7},  {"MIN", 28, 0, 7},   {"SUM", 24, 0, 7},
              {"ABS", 39, 0, 7},  {"SIN", 33, 1, 7},  {"COS", 34, 1, 7},   {"TAN", 35, 1, 7},
              {"ASIN", 36, 1, 7}, {"ACOS", 37, 1, 7}, {"ATAN", 38, 1, 7},  {"SQRT", 32, 1, 7},
              {"LOG", 42, 1, 7},  {"LN", 43, 1, 7},   {"EXP", 44, 2, 7},   {"DTOR", 30, 1, 7},
              {"RTOD", 31, 1, 7}, {"CABS", 40, 2, 7}, {"COSPHI", 41, 2, 7}};
  ASSERT_EQ(sizeof(rows) / sizeof(rows[0]), 43u);
  for (const auto& row : rows) {
    SToken tok = {};
    ASSERT_TRUE(CKAExpression::m_sTokenDict.Find(row.text, tok)) << row.text;
    EXPECT_STREQ(tok.m_szName, row.text);
    EXPECT_EQ(tok.m_nType, row.code) << row.text;
    EXPECT_EQ(tok.m_nParam, row.operands) << row.text;
    EXPECT_EQ(tok.m_nPriority, row.cls) << row.text;
  }
  SToken tok = {};
  EXPECT_FALSE(CKAExpression::m_sTokenDict.Find("sin", tok));  // keys are upper case
  EXPECT_FALSE(CKAExpression::m_sTokenDict.Find("=", tok));
}

// ---- Lexer ----

// The tokens as "text:code", separated by single blanks.
std::string Lex(const char* text) {
  CKAExpression e;
  e.m_strExpression = text;
  e.m_nLength = e.m_strExpression.GetLength();
  e.m_nPos = 0;
  std::string out;
  SToken tok = {};
  while (e.GetNextToken(tok) == 1) {
    out += (out.empty() ? "" : " ") + (tok.m_szName + (":" + std::to_string(tok.m_nType)));
  }
  return out;
}

TEST(CKAExpressionLexer, CutsTextIntoTokens) {
  // clang-format off
  const char* cases[][2] = {
      {"x1+Y#", "X1:17 +:2 Y:17 #:0"}, {"c_pi", "3.14159:18"}, {"C_E", "2.71828:18"},
      {"12.5.3", "12.5:18"}, {"ABCDEFGHIJ", "ABCDEFG:17"}, {"1234567.5", "1234567:18"},
      {"1.", "1.:18"}, {"   \t #", "#:0"}, {"<>", "<:14 >:12"}, {"> =", ">:12"},
      {">=<=!=", ">=:13 <=:15 !=:16"}, {"sin Sin SIN", "SIN:33 SIN:33 SIN:33"},
      {"a_1 _b", "A_1:17"},  // a name cannot start with an underscore
      {"MOD mod2 COSPHI", "MOD:7 MOD2:17 COSPHI:41"}, {"[SUM]", "[:21 SUM:24 ]:22"},
      {".5", ""}, {"\xe9", ""},
  };
  // clang-format on
  for (const auto& c : cases) EXPECT_EQ(Lex(c[0]), c[1]) << c[0];
}

TEST(CKAExpressionLexer, StopsAtAnUnknownCharacterAndNeverReadsBeforeAnalysis) {
  CKAExpression e;
  SToken tok = {};
  EXPECT_EQ(e.GetNextToken(tok), 0);  // nothing analysed
  e.m_nPos = -5;
  e.m_nLength = 1000;  // longer than the text: the text's own length bounds the reading
  EXPECT_EQ(e.GetNextToken(tok), 0);
  e.m_strExpression = "1=2";
  e.m_nLength = 3;
  e.m_nPos = 0;
  EXPECT_EQ(e.GetNextToken(tok), 1);
  EXPECT_EQ(e.GetNextToken(tok), 0);
  EXPECT_EQ(tok.m_nType, -1);
  EXPECT_EQ(e.m_nPos, 2);  // behind the unknown character
  EXPECT_EQ(e.GetNextToken(tok), 1);
  EXPECT_EQ(e.GetNextToken(tok), 0);
}

// ---- Analysis and evaluation ----

struct Case {
  const char* text;
  int rc;               // Analysis
  const char* postfix;  // token texts of m_arPolish
  int eval_rc;          // Evaluate
  double value;         // with A=2, B=5, C=3, X=0.5, Y=-1.5, A1..A3 = 1..3
};

void Check(const Case& c) {
  CKAExpression e;
  EXPECT_EQ(e.Analysis(c.text), c.rc) << c.text;
  EXPECT_EQ(Postfix(e), c.postfix) << c.text;
  SetInputs(e);
  double v = -123.0;
  EXPECT_EQ(e.Evaluate(v), c.eval_rc) << c.text;
  if (std::isnan(c.value)) {
    EXPECT_TRUE(std::isnan(v)) << c.text;
  } else {
    EXPECT_EQ(v, c.value) << c.text;
  }
}

TEST(CKAExpressionAnalysis, ArithmeticPrecedenceAndGrammarPeculiarities) {
  // clang-format off
  const Case cases[] = {
      {"1+2*3", 1, "1 2 3 * +", 1, 7}, {"A+B*C", 1, "A B C * +", 1, 17},
      {"(A+B)*(A-B)/C", 1, "A B + A B - * C /", 1, (2.0 + 5) * (2.0 - 5) / 3},
      {"2^3^2", 1, "2 3 ^ 2 ^", 1, 64},  // "^" is left-associative
      {"10-4-3", 1, "10 4 - 3 -", 1, 3}, {"@2^2", 1, "2 2 ^ @", 1, -4},  // "@" binds like "+", "-"
      {"@3", 1, "3 @", 1, -3}, {"2*(@3)", 1, "2 3 @ *", 1, -6}, {"2*@3", 1, "2 * 3 @", -1, 0},
      {"-3", 1, "3 -", -1, 0},  // a leading "-" is the two-operand minus
      {"3-", 1, "3 -", -1, 0}, {"1+", 1, "1 +", -1, 0}, {"2 3", 1, "2 3", -1, 0},
      {"  1 +\t2  ", 1, "1 2 +", 1, 3},
      {"A*(2+3*4)/7+B", 1, "A 2 3 4 * + * 7 / B +", 1, 2.0 * 14 / 7 + 5},
      {"(7*A+6)*A*A*A+5*A*A+4*A+3", 1, "7 A * 6 + A * A * A * 5 A * A * + 4 A * + 3 +", 1, 191},
      {"1234567.5*2", 1, "1234567 2 *", 1, 2469134},  // 7-character limit
      {"C_PI*2", 1, "3.14159 2 *", 1, kPi * 2}, {"c_e", 1, "2.71828", 1, 2.71828},
      {"((A))", -1, "", -1, 0},  // an opening bracket right after another moves it out
      {"(1+(2))", 1, "1 2 +", 1, 3}, {"(1+2)*3", 1, "1 2 + 3 *", 1, 9},
      {"1+2)", 1, "1 2 +", 1, 3},  // the unmatched ")" is dropped
      {"(1+2", 1, "1 2 +", 1, 3}, {"1)", -1, "", -1, 0}, {"(1", -1, "", -1, 0},
      {"(1+2]", 1, "1 2 +", 1, 3},  // bracket kinds are not matched
      {"[1+2]*2", 1, "1 2 + 2 *", 1, 6},
      {"5=", 1, "5", 1, 5},  // an unknown last character is not reported
      {"A+B$", 1, "A B", -1, 0}, {"1+\xe9", 1, "1", 1, 1}, {"1+2=", 1, "1 2", -1, 0},
      {"1+2=3", -4, "1 2", -1, 0}, {"12.5.3", -4, "12.5", 1, 12.5}, {"1\n+2", -4, "1", 1, 1},
      {"1#2", -1, "", -1, 0}, {"#", -1, "", -1, 0}, {"", 1, "", -1, 0}, {"   ", 1, "", -1, 0},
      {"1<>2", 1, "1 < 2 >", -1, 0}, {"1>=1", 1, "1 1 >=", 1, 1},
      {"A>1 AND B<2", 1, "A 1 > B AND 2 <", 1, 1},  // one class, left-associative
      {"NOT 0 OR 0", 1, "0 NOT 0 OR", 1, 1},
      {"(A<B)*X+(A>=B)*Y", 1, "A B < X * A B >= Y * +", 1, 0.5},
      {"SIN X+1", 1, "X SIN 1 +", 1, std::sin(0.5) + 1},
      {"SIN(X)*2+Y", 1, "X SIN 2 * Y +", 1, std::sin(0.5) * 2 - 1.5}, {"SIN COS X", -1, "", -1, 0},
      {"CABS 3 4", 1, "3 4 CABS", 1, 5}, {"3 CABS 4", 1, "3 4 CABS", 1, 5},
      {"CABS(3)(4)", 1, "3 4 CABS", 1, 5},
      {"CABS(3,4)", -1, "", -1, 0},  // a comma outside an argument list
      {"1,2", -1, "", -1, 0},
  };
  // clang-format on
  for (const Case& c : cases) Check(c);
}

TEST(CKAExpressionAnalysis, ArgumentListFunctions) {
  // clang-format off
  const Case cases[] = {
      {"SUM(1,2,3)", 1, "1 2 3 SUM", 1, 6}, {"AVE(1,2,3)", 1, "1 2 3 AVE", 1, 2},
      {"AVE()", 1, "AVE", 1, 0}, {"SUM()", 1, "SUM", 1, 0}, {"MAX(1,3,2)", 1, "1 3 2 MAX", 1, 3},
      {"MIN(3,1,2)", 1, "3 1 2 MIN", 1, 1}, {"SUM(A B)", 1, "A B SUM", 1, 7},  // commas optional
      {"SUM(,A,,B,)", 1, "A B SUM", 1, 7}, {"SUM(A,B)*2", 1, "A B SUM 2 *", 1, 14},
      {"SUM(A,B,C,X,Y)/5", 1, "A B C X Y SUM 5 /", 1, (-1.5 + 0.5 + 3 + 5 + 2) / 5},
      {"SUM(1+2)", -1, "", -1, 0},  // plain operands only
      {"SUM(@1)", -1, "", -1, 0}, {"SUM(1,2", -1, "", -1, 0}, {"SUM 1", -1, "", -1, 0},
      {"SUM", -1, "", -1, 0}, {"ABS(Y)", 1, "Y ABS", 1, 1.5},
      {"ABS(1,2)", 1, "1 2 ABS", -1, 0},  // ABS takes one operand whatever it is given
      {"ABS()", 1, "ABS", -1, 0}, {"SUM[3]", 1, "A1 A2 A3 SUM", 1, 6},
      {"AVE[3]*2", 1, "A1 A2 A3 AVE 2 *", 1, 4}, {"SUM[0]", 1, "SUM", 1, 0},
      {"SUM[2.9]", 1, "A1 A2 SUM", 1, 3}, {"SUM[C_PI]", 1, "A1 A2 A3 SUM", 1, 6},
      {"SUM[-1]", -1, "", -1, 0}, {"SUM[3", -1, "", -1, 0}, {"SUM[A]", -1, "", -1, 0},
      {"SUM(1)SUM(2)+", 1, "1 SUM 2 SUM +", 1, 3},
      {"2+SUM()", 1, "2 SUM +", 1, 2},  // SUM() re-pushes the top; "+" then pops only one
  };
  // clang-format on
  for (const Case& c : cases) Check(c);
}

TEST(CKAExpressionEvaluate, FunctionResultsAndFailures) {
  // clang-format off
  const Case cases[] = {
      {"7 MOD 2", 1, "7 2 MOD", 1, 3},  // the quotient, deliberately
      {"7 % 2", 1, "7 2 %", 1, 1}, {"(@7) % 2", 1, "7 @ 2 %", 1, -1},
      {"(@7) MOD 2", 1, "7 @ 2 MOD", 1, -3}, {"7 MOD 0", 1, "7 0 MOD", 1, 7},
      {"7 % 0", 1, "7 0 %", 1, 0}, {"7.9 MOD 2.9", 1, "7.9 2.9 MOD", 1, 3},
      {"1/0", 1, "1 0 /", 1, 9999999}, {"(@1)/0", 1, "1 @ 0 /", 1, 9999999},
      {"@1/0", 1, "1 0 / @", 1, -9999999}, {"0/0", 1, "0 0 /", 1, 0},
      {"1/3", 1, "1 3 /", 1, 1.0 / 3}, {"LOG(1)", 1, "1 LOG", 1, 0},  // natural
      {"LOG(C_E)", 1, "2.71828 LOG", 1, std::log(2.71828)},
      {"LN(100)", 1, "100 LN", 1, 2},  // base 10
      {"LN(0)", 1, "0 LN", 1, -INFINITY}, {"LOG(@1)", 1, "1 @ LOG", -2, 0},
      {"LN(@1)", 1, "1 @ LN", -2, 0}, {"SQRT(16)", 1, "16 SQRT", 1, 4},
      {"SQRT(@4)", 1, "4 @ SQRT", -2, 0},
      {"SQRT(@1)+", 1, "1 @ SQRT +", -2, 0},  // the first failure met decides
      {"ASIN(1)", 1, "1 ASIN", 1, std::asin(1.0)}, {"ASIN(2)", 1, "2 ASIN", -1, 0},
      {"ACOS(@2)", 1, "2 @ ACOS", -1, 0}, {"ACOS(1)", 1, "1 ACOS", 1, 0},
      {"ATAN(1)", 1, "1 ATAN", 1, std::atan(1.0)},
      {"SIN(1)+COS(1)+TAN(1)", 1, "1 SIN 1 COS + 1 TAN +", 1,
       std::sin(1.0) + std::cos(1.0) + std::tan(1.0)},
      {"DTOR(180)", 1, "180 DTOR", 1, 180 * 0.017453292519944444},
      {"RTOD(1)", 1, "1 RTOD", 1, 57.29577951307855}, {"EXP(1)", 1, "1 EXP", 1, std::exp(1.0)},
      {"COSPHI 3 4", 1, "3 4 COSPHI", 1, 0.8}, {"COSPHI 0 0", 1, "0 0 COSPHI", 1, 0},
      {"CABS A B", 1, "A B CABS", 1, std::sqrt(29.0)}, {"0.5 AND 1", 1, "0.5 1 AND", 1, 0},
      {"2 AND 1", 1, "2 1 AND", 1, 1}, {"0.5 OR 1", 1, "0.5 1 OR", 1, 1},
      {"0 OR 0.9", 1, "0 0.9 OR", 1, 0}, {"NOT 0.5", 1, "0.5 NOT", 1, 1},
      {"NOT 3", 1, "3 NOT", 1, 0}, {"1.5 != 1.5", 1, "1.5 1.5 !=", 1, 0},
      {"1 != 2", 1, "1 2 !=", 1, 1}, {"2 <= 2", 1, "2 2 <=", 1, 1}, {"2 < 2", 1, "2 2 <", 1, 0},
      {"3 > 2", 1, "3 2 >", 1, 1},
      {"SQRT(A^2+B^2)", 1, "A 2 ^ B 2 ^ + SQRT", 1, std::sqrt(std::pow(2.0, 2) + std::pow(5.0, 2))},
      {"(@1)^0.5", 1, "1 @ 0.5 ^", 1, std::nan("")},
  };
  // clang-format on
  for (const Case& c : cases) Check(c);
}

TEST(CKAExpressionEvaluate, NaNComparisonsAndTruncationOutsideTheIntegerRange) {
  CKAExpression e;
  const struct {
    const char* text;
    double in, out;
  } cases[] = {
      // clang-format off
      {"X>1", NAN, 0}, {"X>=1", NAN, 0}, {"X<1", NAN, 0}, {"X<=1", NAN, 0}, {"X!=X", NAN, 1},
      {"NOT(X!=1)", NAN, 0}, {"X MOD 1", 1e12, INT_MAX}, {"X MOD 1", -1e12, INT_MIN},
      {"X MOD 1", NAN, 0}, {"X MOD 1", -2.9, -2},
      {"X MOD (@1) + X % (@1)", -3e9, INT_MIN},  // INT_MIN / -1 wraps as the hardware does
      // clang-format on
  };
  for (const auto& c : cases) {
    ASSERT_EQ(e.Analysis(c.text), 1);
    e.SetVarValue("X", c.in);
    EXPECT_EQ(Eval(e), c.out) << c.text << " " << c.in;
  }
}

TEST(CKAExpressionEvaluate, NumbersMatchStrtodBitForBit) {
  std::mt19937 rng(12345);
  CKAExpression e;
  for (int i = 0; i < 3000; ++i) {
    std::string text;
    const int digits = 1 + static_cast<int>(rng() % 7);
    const int point = static_cast<int>(rng() % (digits + 1));
    for (int d = 0; d < digits; ++d) {
      if (d == point && d > 0) text += '.';
      text += static_cast<char>('0' + rng() % 10);
    }
    ASSERT_EQ(e.Analysis(text.c_str()), 1) << text;
    const double v = Eval(e);
    const double expected = std::strtod(text.substr(0, 7).c_str(), nullptr);
    EXPECT_EQ(std::memcmp(&v, &expected, sizeof v), 0) << text;
  }
}

// Formulas are compiled at Analysis; a token changed in place afterwards (here only its
// class, which evaluation ignores) makes Evaluate run the tokens themselves. Both ways must
// give the same result code and the same bits.
TEST(CKAExpressionEvaluate, CompiledAndTokenByTokenEvaluationAgree) {
  const std::string all =
      "A|B|X|1|2.5|0|@|+|-|*|/|^|MOD|%|AND|OR|NOT|>|<=|!=|SIN|EXP|SQRT|LOG|ASIN|CABS|COSPHI|ABS(X)|"
      "(|)|C_PI|SUM(A,B,1)|MAX(X,2)|AVE(A)|MIN(0 B)|2|^ 2|/ 3|B ^ 2|1E|A*B";
  std::vector<std::string> pieces;
  for (size_t at = 0, bar; at <= all.size(); at = bar + 1) {
    bar = std::min(all.find('|', at), all.size());
    pieces.push_back(all.substr(at, bar - at));
  }
  const int n = static_cast<int>(pieces.size());
  std::mt19937 rng(99);
  CKAExpression e;
  int compared = 0;
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    const int length = 1 + static_cast<int>(rng() % 12);
    for (int k = 0; k < length; ++k) text += pieces[rng() % n] + " ";
    if (e.Analysis(text.c_str()) != 1 || e.m_arPolish.m_nCount == 0) continue;
    e.SetVarValue("A", static_cast<double>(rng() % 7) - 3);
    e.SetVarValue("B", (static_cast<double>(rng() % 1000) - 500) / 64);
    e.SetVarValue("X", std::ldexp(static_cast<double>(rng()), -30) - 2.0);
    double compiled = 0;
    const int rc = e.Evaluate(compiled);
    e.m_arPolish.m_pData[0].m_nPriority ^= 0x100;
    double plain = 0;
    ASSERT_EQ(e.Evaluate(plain), rc) << text;
    ASSERT_EQ(std::memcmp(&compiled, &plain, sizeof plain), 0) << text << compiled << " " << plain;
    ++compared;
  }
  EXPECT_GT(compared, 2000);
}

// "^ 2" squares without calling pow where that is exact; it must still give pow's bits.
TEST(CKAExpressionEvaluate, SquareGivesExactlyThePowerFunctionsResult) {
  CKAExpression e;
  ASSERT_EQ(e.Analysis("X^2"), 1);
  volatile double two = 2.0;  // keeps the compiler from turning pow into a multiplication
  std::mt19937_64 rng(2);
  for (int i = 0; i < 400000; ++i) {
    std::uint64_t bits = rng();
    if (i % 2) bits = (bits & 0x800fffffffffffffULL) | ((1023 - 450 + (bits >> 52) % 900) << 52);
    double x;
    std::memcpy(&x, &bits, sizeof x);
    if (i % 4 == 2) x = static_cast<double>(bits % 20000001) / 1000.0 - 10000.0;
    e.SetVarValue(1, x);
    double v = 0;
    ASSERT_EQ(e.Evaluate(v), 1);
    const double expected = std::pow(x, two);
    ASSERT_EQ(std::memcmp(&v, &expected, sizeof v), 0) << x;
  }
}

// Tokens changed in place after Analysis are evaluated as they stand.
TEST(CKAExpressionEvaluate, HonoursTokensChangedAfterAnalysis) {
  CKAExpression e;
  ASSERT_EQ(e.Analysis("1.5+2"), 1);
  std::strcpy(e.m_arPolish.m_pData[0].m_szName, "2.25");
  std::strcpy(e.m_arPolish.m_pData[1].m_szName, "1e2");  // not a form the lexer makes
  EXPECT_EQ(Eval(e), 102.25);
  for (int code : {0, 19, 20, 21, 22, 23, 27, 29, 45, -1}) {  // not evaluable
    e.m_arPolish.m_pData[2].m_nType = code;
    EXPECT_EQ(Eval(e, -1), 0.0) << code;
  }
  ASSERT_EQ(e.Analysis("X"), 1);
  e.m_arPolish.m_pData[0].m_nParam = 2;  // not a registered variable number
  Eval(e, -1);
  ASSERT_EQ(e.Analysis("SUM(1,2)"), 1);
  e.m_arPolish.m_pData[2].m_nParam = 3;  // more arguments than operands
  Eval(e, -1);
}

// ---- Variables ----

// Result code and name of GetVarName, as "rc:name".
std::string VarName(CKAExpression& e, int index) {
  CKAString name("junk");
  const int rc = e.GetVarName(index, name);
  return std::to_string(rc) + ":" + name.GetBuf();
}

// Result code and value of GetVarValue by name or by number, as "rc:value".
template <class Key>
std::string VarValue(CKAExpression& e, Key key) {
  double v = 7;
  const int rc = e.GetVarValue(key, v);
  return std::to_string(rc) + ":" + std::to_string(v);
}

TEST(CKAExpressionVariables, NumberedInOrderOfFirstOccurrenceAndFoundByNameOrNumber) {
  CKAExpression e;
  ASSERT_EQ(e.Analysis("X*Y+X"), 1);
  EXPECT_EQ(e.GetVarCount(), 2);
  const std::vector<std::string> names = {"-1: ", "1:X", "1:Y", "-1: "};  // a blank when refused
  for (int i = 0; i < 4; ++i) EXPECT_EQ(VarName(e, i), names[i]);
  for (int i : {0, 1, 3}) EXPECT_EQ(e.m_arPolish.m_pData[i].m_nParam, i == 1 ? 2 : 1);
  EXPECT_EQ(e.m_arPolish.m_pData[2].m_nType, 4);
  const int ids[] = {e.FindVarID("y"), e.FindVarID("Z"), e.FindVarID(nullptr),
                     e.FindVarID(std::string(100, 'X').c_str())};
  EXPECT_EQ(std::vector<int>(ids, ids + 4), std::vector<int>({2, -1, -1, -1}));
  EXPECT_EQ(VarValue(e, "x"), "1:0.000000");  // 0.0 when registered
  const int set[] = {
      e.SetVarValue("x", 3),   e.SetVarValue(2, 4),
      e.SetVarValue(3, 1.0),   e.SetVarValue(0, 1.0),
      e.SetVarValue("Z", 1.0), e.SetVarValue(static_cast<const char*>(nullptr), 1.0)};
  EXPECT_EQ(std::vector<int>(set, set + 6), std::vector<int>({1, 1, -1, -1, -1, -1}));
  EXPECT_EQ(VarValue(e, "Q"), "-1:0.000000");
  EXPECT_EQ(VarValue(e, 5), "-1:0.000000");
  EXPECT_EQ(VarValue(e, 1), "1:3.000000");
  EXPECT_EQ(Eval(e), 15.0);
  e.SetVarValue(1, 1);
  EXPECT_EQ(Eval(e), 5.0);
}

// Binaries built against earlier headers call the library's exported setter; it must behave
// as the inline one does.
TEST(CKAExpressionVariables, ExportedSetterBehavesAsTheInlineOne) {
  using Setter = int (*)(CKAExpression*, int, double);
  const auto exported =
      reinterpret_cast<Setter>(dlsym(RTLD_DEFAULT, "_ZN13CKAExpression11SetVarValueEid"));
  ASSERT_NE(exported, nullptr);
  CKAExpression e;
  ASSERT_EQ(e.Analysis("X-Y"), 1);
  for (int index : {-1, 0, 3, INT_MIN}) EXPECT_EQ(exported(&e, index, 9.0), -1);
  EXPECT_EQ(exported(&e, 1, 5.0), 1);
  EXPECT_EQ(exported(&e, 2, 1.5), 1);
  EXPECT_EQ(Eval(e), 3.5);
  e.m_nVarCount = 1;  // both bounds hold: the count and the table
  EXPECT_EQ(exported(&e, 2, 1.0), -1);
  EXPECT_EQ(e.SetVarValue(2, 1.0), -1);
  e.m_nVarCount = 2;
}

TEST(CKAExpressionVariables, LongNamesAreCutAndReanalysisForgetsOldVariables) {
  CKAExpression e;
  ASSERT_EQ(e.Analysis("pressure1 + PRESSUR"), 1);
  EXPECT_EQ(e.GetVarCount(), 1);
  EXPECT_EQ(e.SetVarValue("Pressur", 2), 1);
  EXPECT_EQ(e.FindVarID("PRESSURE1"), -1);  // the stored name has 7 characters
  EXPECT_EQ(Eval(e), 4.0);
  ASSERT_EQ(e.Analysis("A+B"), 1);
  e.SetVarValue("A", 5);
  e.SetVarValue("B", 6);
  ASSERT_EQ(e.Analysis("B*2+C"), 1);
  EXPECT_EQ(e.GetVarCount(), 2);
  EXPECT_EQ(e.FindVarID("B"), 1);
  EXPECT_EQ(e.FindVarID("A"), -1);
  EXPECT_EQ(Eval(e), 0.0);  // values not set again are 0.0
}

// One Analysis after another on one object: result code, postfix tokens, variable count, and
// Evaluate's result code (values 0.0).
TEST(CKAExpressionVariables, AnalysisFailuresLeaveTheDocumentedState) {
  CKAExpression e;
  const struct {
    const char* text;
    int rc;
    const char* postfix;
    int vars, eval_rc;
  } steps[] = {
      // clang-format off
      {nullptr, -5, "", 0, -1}, {"X+1", 1, "X 1 +", 1, 1},
      {nullptr, -5, "X 1 +", 1, 1},  // nothing changes
      {"X+Y=Z", -4, "X Y", 0, -1},   // partial postfix kept, no variables
      {"X+(Y", -1, "", 0, -1}, {"(X+Y", 1, "X Y +", 2, 1}, {"(X", -1, "", 0, -1},
      {"SUM[65]", 1, "", 65, 1},     // postfix not compared for this one
      {"SUM[70]", -1, "", 0, -1},    // the 66th variable is refused: back to the empty state
      {"SUM[9999999]", -1, "", 0, -1},
      // clang-format on
  };
  for (const auto& s : steps) {
    EXPECT_EQ(e.Analysis(s.text), s.rc) << (s.text ? s.text : "null");
    if (s.vars != 65) {
      EXPECT_EQ(Postfix(e), s.postfix);
    }
    EXPECT_EQ(e.GetVarCount(), s.vars);
    EXPECT_EQ(e.m_arVarOperand.m_nCount, s.vars);
    Eval(e, s.eval_rc);
  }
  ASSERT_EQ(e.Analysis("SUM[65]"), 1);
  EXPECT_EQ(e.FindVarID("A65"), 65);
  EXPECT_EQ(e.m_arPolish.m_pData[65].m_nParam, 65);
  EXPECT_EQ(e.Analysis("SUM[9999999] 1=2"), -4);
  EXPECT_EQ(e.m_arPolish.m_pData[66].m_nParam, 9999999);  // the count given is kept
  CKAExpression::SVarOperand var = {"abc", 4.5};
  CKAExpression fresh;
  EXPECT_EQ(fresh.AddVarOperand(&var), 1);
  EXPECT_STREQ(var.m_szName, "ABC");  // the caller's record changes too
  EXPECT_EQ(var.m_dValue, 0.0);
  EXPECT_EQ(fresh.AddVarOperand(nullptr), -1);
}

TEST(CKAExpressionText, GetExpressionReturnsTheTrimmedText) {
  CKAExpression e;
  CKAString s("junk");
  EXPECT_EQ(e.GetExpression(s), 1);
  EXPECT_TRUE(s == "");
  ASSERT_EQ(e.Analysis(" \t A + 1 \r\n"), 1);
  EXPECT_EQ(e.GetExpression(s), 1);
  EXPECT_TRUE(s == "A + 1");
  EXPECT_EQ(e.m_nLength, 6);
  ASSERT_EQ(e.Analysis(e.m_strExpression.GetBuf()), -1);  // its own text, "#" included
  EXPECT_EQ(e.GetExpression(s), 1);
  EXPECT_TRUE(s == "A + 1#");
}

// ---- Bad input ----

void ExpectResultCodes(CKAExpression& e, const std::string& text) {
  const int rc = e.Analysis(text.c_str());
  EXPECT_TRUE(rc == 1 || rc == -1 || rc == -4) << rc;
  double v;
  const int eval_rc = e.Evaluate(v);
  EXPECT_TRUE(eval_rc == 1 || eval_rc == -1 || eval_rc == -2) << eval_rc;
}

TEST(CKAExpressionBadInput, HugeDeepAndLongTexts) {
  CKAExpression e;
  std::string sum = "1";
  for (int i = 0; i < 350000; ++i) sum += "+1";  // about 1 MB
  ASSERT_EQ(e.Analysis(sum.c_str()), 1);
  EXPECT_EQ(Eval(e), 350001.0);
  ExpectResultCodes(e, std::string(1 << 20, 'Z'));
  ExpectResultCodes(e, std::string(10000, '(') + "1" + std::string(10000, ')'));
  ExpectResultCodes(e, "(" + std::string(10000, '@') + "1)");
  ExpectResultCodes(e, std::string(10000, '@') + "1");
  std::string pow = "2", list = "SUM(", plain, mixed = "SUM(";
  for (int i = 0; i < 10000; ++i) pow += "^1", list += "1,", plain += "7 ", mixed += "X ";
  ExpectResultCodes(e, pow);
  ASSERT_EQ(e.Analysis((list + "1)").c_str()), 1);
  Eval(e);  // values beyond 128 pending are lost, not reported
  ASSERT_EQ(e.Analysis(plain.c_str()), 1);
  Eval(e, -1);
  ASSERT_EQ(e.Analysis((mixed + ")").c_str()), 1);
  EXPECT_EQ(e.GetVarCount(), 1);
  e.SetVarValue("X", 0.5);
  Eval(e);
}

TEST(CKAExpressionBadInput, ReusedObjectSurvivesManyMalformedAndRandomTexts) {
  CKAExpression e;
  for (int i = 0; i < 300; ++i) EXPECT_EQ(e.Analysis("((("), -1);
  EXPECT_LE(e.m_stackOperator.m_nCount, 128);
  ASSERT_EQ(e.Analysis("(1+2)*3"), 1);
  EXPECT_EQ(Eval(e), 9.0);
  std::mt19937 rng(4711);
  const std::string alphabet = "()[]+-*/^@%,#<>=! \tABXYSUMAVEMINCOSQRTLOGNDabs0123456789.";
  for (int i = 0; i < 4000; ++i) {
    std::string text;
    const int length = static_cast<int>(rng() % 40);
    for (int k = 0; k < length; ++k) {
      text += i % 2 == 0 ? static_cast<char>(1 + rng() % 255) : alphabet[rng() % alphabet.size()];
    }
    ExpectResultCodes(e, text);
  }
}

}  // namespace
