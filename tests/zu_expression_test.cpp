#include "zu_expression.h"

#include <dlfcn.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string Postfix(const CKAExpression& e) {
  std::string out;
  for (int i = 0; i < e.m_arPolish.m_nCount; ++i)
    out += (i > 0 ? " " : "") + std::string(e.m_arPolish.m_pData[i].m_szName);
  return out;
}

// Declared first: eight threads construct the process's first objects at once (the shared
// keyword dictionary filled once); each analyses the texts in turn and checks the result code,
// postfix form, and Evaluate's result code and value with A=2, B=3, A1..A3 = 2..4 set by name.
// A new text forgets the old variables and values; after -4 the partial postfix stays.
TEST(CKAExpression, PostfixFormsResultsAndStatesOfTheLanguagesPeculiarities) {
  // clang-format off
  const struct { const char* text; int rc; const char* postfix; int eval_rc; double value; }
  cases[] = {
      {nullptr, -5, "", -1, 0}, {"A+B*3", 1, "A B 3 * +", 1, 11}, {nullptr, -5, "A B 3 * +", 1, 11},
      {"Y*3", 1, "Y 3 *", 1, 0}, {"(Y*3)=3", -4, "Y 3 *", -1, 0},
      {"SIN A+1", 1, "A SIN 1 +", 1, std::sin(2.0) + 1}, {"2^3^2", 1, "2 3 ^ 2 ^", 1, 64},
      {"pressure1*C_PI", 1, "PRESSUR 3.14159 *", 1, 0}, {"A>1 AND B<2", 1, "A 1 > B AND 2 <", 1, 1},
      {"@2^2", 1, "2 2 ^ @", 1, -4}, {"(1+2]", 1, "1 2 +", 1, 3}, {"1+2=3", -4, "1 2", -1, 0},
      {"1+2)", 1, "1 2 +", 1, 3}, {"1+2=", 1, "1 2", -1, 0}, {"((A))", -1, "", -1, 0},
      {"-3", 1, "3 -", -1, 0}, {"1)", -1, "", -1, 0}, {"5=", 1, "5", 1, 5},
      {"(@9999999*999) MOD (@1)", 1, "9999999 999 * @ 1 @ MOD", 1, INT_MIN},
      {"DTOR(180)", 1, "180 DTOR", 1, 180 * 0.017453292519944444}, {"2+SUM()", 1, "2 SUM +", 1, 2},
      {"LOG(C_E)", 1, "2.71828 LOG", 1, std::log(2.71828)}, {"COSPHI 3 4", 1, "3 4 COSPHI", 1, 0.8},
      {"AVE[C_PI]*2", 1, "A1 A2 A3 AVE 2 *", 1, 6}, {"(@1)^0.5>=0", 1, "1 @ 0.5 ^ 0 >=", 1, 0},
      {"(@1)^0.5!=0", 1, "1 @ 0.5 ^ 0 !=", 1, 1}, {"SQRT(@1)+", 1, "1 @ SQRT +", -2, 0},
      {"(@1)/0", 1, "1 @ 0 /", 1, 9999999}, {"SUM(,A,,B,)", 1, "A B SUM", 1, 5},
      {"0.5 AND 1", 1, "0.5 1 AND", 1, 0}, {"LN(0)", 1, "0 LN", 1, -INFINITY},
      {"3 CABS 4", 1, "3 4 CABS", 1, 5}, {"ABS(1,2)", 1, "1 2 ABS", -1, 0},
      {"7 MOD 2", 1, "7 2 MOD", 1, 3}, {"7 MOD 0", 1, "7 0 MOD", 1, 7}, {"SUM[66]", -1, "", -1, 0},
      {"ASIN(2)", 1, "2 ASIN", -1, 0}, {"LN(100)", 1, "100 LN", 1, 2}, {"CABS(3,4)", -1, "", -1, 0},
      {"SUM[65]", 1, nullptr, 1, 9}, {"0/0", 1, "0 0 /", 1, 0},
  };
  // clang-format on
  std::vector<std::thread> threads(8);
  for (std::thread& thread : threads) {
    thread = std::thread([&cases] {
      CKAExpression e;
      for (const auto& c : cases) {
        EXPECT_EQ(e.Analysis(c.text), c.rc) << (c.text ? c.text : "null");
        EXPECT_EQ(Postfix(e), c.postfix ? c.postfix : Postfix(e)) << c.text;
        e.SetVarValue("A", 2), e.SetVarValue("B", 3);
        for (int k = 1; k <= 3; ++k) e.SetVarValue(("A" + std::to_string(k)).c_str(), k + 1);
        double v = -123.0;
        EXPECT_EQ(e.Evaluate(v), c.eval_rc) << (c.text ? c.text : "null");
        EXPECT_EQ(v, c.value) << (c.text ? c.text : "null");
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(CKAExpression::m_sTokenDict.GetCount(), 43);
}

// Binaries built against older headers call the exported setter: it behaves as the inline one.
TEST(CKAExpression, ExportedSetterBehavesAsTheInlineOne) {
  const auto exported = reinterpret_cast<int (*)(CKAExpression*, int, double)>(
      dlsym(RTLD_DEFAULT, "_ZN13CKAExpression11SetVarValueEid"));
  ASSERT_NE(exported, nullptr);
  CKAExpression e;
  ASSERT_EQ(e.Analysis("X-Y"), 1);
  for (int index : {-1, 0, 3, INT_MIN}) EXPECT_EQ(exported(&e, index, 9.0), -1);
  EXPECT_EQ(exported(&e, 1, 5.0) + exported(&e, 2, 1.5), 2);
  double v = 0;
  EXPECT_EQ(e.Evaluate(v), 1);
  EXPECT_EQ(v, 3.5);
  EXPECT_EQ(e.SetVarValue(static_cast<const char*>(nullptr), 1.0), -1);
}

// AND, OR and NOT count a value as true when its magnitude is at least 1 (NaN is false), and
// give exactly 1.0 or +0.0, whether compiled or run token by token (an edited token).
TEST(CKAExpression, LogicTakesMagnitudesOfOneAsTrueAndGivesOneOrPositiveZero) {
  const double values[] = {0.0, -0.0, 0.5, -1.0, 2.0, NAN, -INFINITY};
  for (const char* text : {"A AND B", "A OR B", "NOT(A)"}) {
    for (bool edited : {false, true}) {
      CKAExpression e;
      ASSERT_EQ(e.Analysis(text), 1);
      if (edited) e.m_arPolish.m_pData[0].m_szName[0] = 'Q';  // A's text: unread, yet compared
      for (double a : values) {
        for (double b : values) {
          e.SetVarValue(1, a);
          e.SetVarValue(2, b);
          const bool ta = std::fabs(a) >= 1, tb = std::fabs(b) >= 1;
          const bool truth = text[2] == 'A' ? ta && tb : text[2] == 'O' ? ta || tb : !ta;
          double v = -1;
          ASSERT_EQ(e.Evaluate(v), 1);
          EXPECT_TRUE(v == (truth ? 1.0 : 0.0) && !std::signbit(v)) << text << " " << a << " " << b;
        }
      }
    }
  }
}

// Huge, deep (more than 128 pending values) and random texts get documented result codes.
TEST(CKAExpression, HugeDeepAndRandomTexts) {
  CKAExpression e;
  std::string sum = "1", pow = "2", list = "SUM(", plain;
  for (int i = 0; i < 350000; ++i) sum += "+1";  // about 1 MB
  for (int i = 0; i < 10000; ++i) pow += "^1", list += "1,", plain += "7 ";
  const std::string deep = std::string(10000, '(') + "1" + std::string(10000, ')');
  std::vector<std::string> texts = {
      sum, pow, list + ")", plain, deep, std::string(1 << 20, 'Z'), std::string(10000, '@') + "1"};
  std::mt19937 rng(4711);
  const std::string alphabet = "()[]+-*/^@%,#<>=! \tABXYSUMAVEMINCOSQRTLOGNDabs0123456789.";
  for (int i = 0; i < 4000; ++i) {
    texts.emplace_back(rng() % 40, ' ');
    for (char& c : texts.back()) c = i % 2 ? alphabet[rng() % alphabet.size()] : 1 + rng() % 255;
  }
  for (const std::string& text : texts) {
    double v;
    const int rc = e.Analysis(text.c_str()), eval_rc = e.Evaluate(v);
    EXPECT_TRUE((rc == 1 || rc == -1 || rc == -4) && eval_rc >= -2 && eval_rc != 0) << text;
  }
}

}  // namespace
