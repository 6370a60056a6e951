#include "zu_expression.h"

#include <dlfcn.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

// The postfix token texts, separated by single blanks.
std::string Postfix(const CKAExpression& e) {
  std::string out;
  for (int i = 0; i < e.m_arPolish.m_nCount; ++i) {
    const char* name = e.m_arPolish.m_pData[i].m_szName;
    out += (i > 0 ? " " : "") + std::string(name, strnlen(name, 8));
  }
  return out;
}

double Eval(CKAExpression& e, int expected_rc = 1) {
  double v = -123.0;
  EXPECT_EQ(e.Evaluate(v), expected_rc);
  return v;
}

// Declared first: the first objects of the process are constructed on several threads at
// once, and the shared keyword dictionary must still be filled exactly once.
TEST(CKAExpression, ConcurrentFirstConstructionFillsTheDictionaryOnce) {
  std::vector<int> ok(8, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &ok] {
      CKAExpression e;
      double v = 0;
      ok[t] = e.Analysis("SIN(0)+SUM(1,2)*2") == 1 && e.Evaluate(v) == 1 && v == 6.0;
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(ok, std::vector<int>(8, 1));
  EXPECT_EQ(CKAExpression::m_sTokenDict.GetCount(), 43);
}

TEST(CKAExpression, PostfixFormsAndResultsOfTheLanguagesPeculiarities) {
  const struct {
    const char* text;
    int rc;               // Analysis
    const char* postfix;  // token texts of m_arPolish
    int eval_rc;          // Evaluate
    double value;         // with A=2, B=5, X=0.5, A1..A3 = 1..3
  } cases[] = {
      // clang-format off
      {"A+B*3", 1, "A B 3 * +", 1, 17}, {"2^3^2", 1, "2 3 ^ 2 ^", 1, 64},  // "^" left-associative
      {"@2^2", 1, "2 2 ^ @", 1, -4},  // "@" binds like "+"
      {"-3", 1, "3 -", -1, 0},  // a leading "-" is the two-operand minus
      {"1234567.5*2", 1, "1234567 2 *", 1, 2469134}, {"C_PI*2", 1, "3.14159 2 *", 1, 3.14159 * 2},
      {"((A))", -1, "", -1, 0},  // an opening bracket right after another moves it out
      {"1+2)", 1, "1 2 +", 1, 3}, {"1)", -1, "", -1, 0}, {"(1+2]", 1, "1 2 +", 1, 3},
      {"5=", 1, "5", 1, 5}, {"1+2=", 1, "1 2", -1, 0},  // an unknown last character is not seen
      {"1+2=3", -4, "1 2", -1, 0}, {"12.5.3", -4, "12.5", 1, 12.5}, {"1<>2", 1, "1 < 2 >", -1, 0},
      {"A>1 AND B<2", 1, "A 1 > B AND 2 <", 1, 1},  // one class, left-associative
      {"SIN X+1", 1, "X SIN 1 +", 1, std::sin(0.5) + 1}, {"3 CABS 4", 1, "3 4 CABS", 1, 5},
      {"CABS(3)(4)", 1, "3 4 CABS", 1, 5}, {"CABS(3,4)", -1, "", -1, 0},
      {"SUM(,A,,B,)", 1, "A B SUM", 1, 7}, {"SUM(1+2)", -1, "", -1, 0},
      {"ABS(1,2)", 1, "1 2 ABS", -1, 0}, {"2+SUM()", 1, "2 SUM +", 1, 2},
      {"AVE[3]*2", 1, "A1 A2 A3 AVE 2 *", 1, 4}, {"SUM[C_PI]", 1, "A1 A2 A3 SUM", 1, 6},
      {"7 MOD 2", 1, "7 2 MOD", 1, 3}, {"7 MOD 0", 1, "7 0 MOD", 1, 7},  // the quotient
      {"(@9999999*999) MOD (@1)", 1, "9999999 999 * @ 1 @ MOD", 1, INT_MIN},  // saturates, wraps
      {"1/0", 1, "1 0 /", 1, 9999999}, {"@1/0", 1, "1 0 / @", 1, -9999999}, {"0/0", 1, "0 0 /", 1, 0},
      {"LOG(C_E)", 1, "2.71828 LOG", 1, std::log(2.71828)}, {"LN(100)", 1, "100 LN", 1, 2},
      {"LN(0)", 1, "0 LN", 1, -INFINITY}, {"SQRT(@1)+", 1, "1 @ SQRT +", -2, 0},
      {"ASIN(2)", 1, "2 ASIN", -1, 0}, {"0.5 AND 1", 1, "0.5 1 AND", 1, 0},
      {"COSPHI 3 4", 1, "3 4 COSPHI", 1, 0.8}, {"DTOR(180)", 1, "180 DTOR", 1, 180 * 0.017453292519944444},
      {"(@1)^0.5>=0", 1, "1 @ 0.5 ^ 0 >=", 1, 0}, {"(@1)^0.5!=0", 1, "1 @ 0.5 ^ 0 !=", 1, 1},
      {"NOT (@1)^0.5", 1, "1 @ 0.5 ^ NOT", 1, 1},  // NaN truncates to 0
      // clang-format on
  };
  for (const auto& c : cases) {
    CKAExpression e;
    EXPECT_EQ(e.Analysis(c.text), c.rc) << c.text;
    EXPECT_EQ(Postfix(e), c.postfix) << c.text;
    const std::pair<const char*, double> inputs[] = {{"A", 2},  {"B", 5},  {"X", 0.5},
                                                     {"A1", 1}, {"A2", 2}, {"A3", 3}};
    for (const auto& in : inputs) e.SetVarValue(in.first, in.second);
    EXPECT_EQ(Eval(e, c.eval_rc), c.value) << c.text;
  }
}

TEST(CKAExpression, VariablesCutTo7CharactersAndForgottenOnReanalysis) {
  CKAExpression e;
  ASSERT_EQ(e.Analysis("Y*pressure1+PRESSUR"), 1);
  EXPECT_EQ(e.GetVarCount(), 2);
  CKAString name("junk");
  EXPECT_EQ(e.GetVarName(3, name), -1);
  EXPECT_TRUE(name == " ");  // a blank when refused
  EXPECT_EQ(e.SetVarValue(static_cast<const char*>(nullptr), 1.0), -1);
  EXPECT_EQ(e.SetVarValue("y", 3), 1);
  EXPECT_EQ(e.SetVarValue(2, 4), 1);
  EXPECT_EQ(Eval(e), 16.0);
  ASSERT_EQ(e.Analysis("PRESSUR*2+Y"), 1);
  EXPECT_EQ(Eval(e), 0.0);  // values not set again are 0.0
}

// Binaries built against earlier headers call the library's exported setter; it must behave
// as the inline one does.
TEST(CKAExpression, ExportedSetterBehavesAsTheInlineOne) {
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

// One Analysis after another on one object: result code, postfix tokens (null: not compared),
// variable count, and Evaluate's result code with all values 0.0.
TEST(CKAExpression, AnalysisFailuresLeaveTheDocumentedState) {
  CKAExpression e;
  const struct {
    const char* text;
    int rc;
    const char* postfix;
    int vars, eval_rc;
  } steps[] = {
      // clang-format off
      {nullptr, -5, "", 0, -1}, {"X*2", 1, "X 2 *", 1, 1},
      {nullptr, -5, "X 2 *", 1, 1},   // nothing changes
      {"(X*2)=3", -4, "X 2 *", 0, -1},  // partial postfix kept, no variables
      {"X+(Y", -1, "", 0, -1}, {"SUM[65]", 1, nullptr, 65, 1},
      {"SUM[66]", -1, "", 0, -1},     // the 66th variable is refused: back to the empty state
      // clang-format on
  };
  for (const auto& s : steps) {
    EXPECT_EQ(e.Analysis(s.text), s.rc) << (s.text ? s.text : "null");
    EXPECT_EQ(Postfix(e), s.postfix ? s.postfix : Postfix(e));
    EXPECT_EQ(e.GetVarCount(), s.vars);
    EXPECT_EQ(e.m_arVarOperand.m_nCount, s.vars);
    Eval(e, s.eval_rc);
  }
}

void ExpectResultCodes(CKAExpression& e, const std::string& text) {
  const int rc = e.Analysis(text.c_str());
  EXPECT_TRUE(rc == 1 || rc == -1 || rc == -4) << rc;
  double v;
  const int eval_rc = e.Evaluate(v);
  EXPECT_TRUE(eval_rc == 1 || eval_rc == -1 || eval_rc == -2) << eval_rc;
}

TEST(CKAExpression, HugeDeepAndRandomTexts) {
  CKAExpression e;
  CKAExpression::SToken tok = {};
  e.m_nPos = -5;
  e.m_nLength = 1000;  // longer than the text: the text's own length bounds the reading
  EXPECT_EQ(e.GetNextToken(tok), 0);
  std::string sum = "1", pow = "2", list = "SUM(", plain;
  for (int i = 0; i < 350000; ++i) sum += "+1";  // about 1 MB
  ASSERT_EQ(e.Analysis(sum.c_str()), 1);
  EXPECT_EQ(Eval(e), 350001.0);
  for (int i = 0; i < 10000; ++i) pow += "^1", list += "1,", plain += "7 ";
  ASSERT_EQ(e.Analysis((list + "1)").c_str()), 1);
  Eval(e);  // values beyond 128 pending are lost, not reported
  ASSERT_EQ(e.Analysis(plain.c_str()), 1);
  Eval(e, -1);
  for (const std::string& text : {std::string(1 << 20, 'Z'), std::string(10000, '@') + "1", pow,
                                  std::string(10000, '(') + "1" + std::string(10000, ')')}) {
    ExpectResultCodes(e, text);
  }
  std::mt19937 rng(4711);
  const std::string alphabet = "()[]+-*/^@%,#<>=! \tABXYSUMAVEMINCOSQRTLOGNDabs0123456789.";
  for (int i = 0; i < 4000; ++i) {
    std::string text(rng() % 40, ' ');
    for (char& c : text) c = i % 2 ? alphabet[rng() % alphabet.size()] : 1 + rng() % 255;
    ExpectResultCodes(e, text);
  }
}

}  // namespace
