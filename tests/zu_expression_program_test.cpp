// The formula evaluator's internals, driven directly: the compiler's instruction listings
// (folding, fused operands, the power and division forms), the exact-power rule against the
// system's pow, the stored program against the token evaluator, and what Evaluate does when
// the tokens change under a stored program.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "zu_expression_internal.h"

namespace {

using namespace zu_expression;

// Postfix tokens from a compact text: "v2" is variable 2, a number is a number, "SUM:3" is
// SUM over 3 arguments, "?27" a token with code 27; anything else an operator or function.
std::vector<SToken> Tokens(const std::string& text) {
  static const std::map<std::string, int> kCodes = {
      {"#", 0},    {"@", 1},    {"+", 2},     {"-", 3},     {"*", 4},     {"/", 5},
      {"^", 6},    {"MOD", 7},  {"%", 8},     {"AND", 9},   {"OR", 10},   {"NOT", 11},
      {">", 12},   {">=", 13},  {"<", 14},    {"<=", 15},   {"!=", 16},   {"(", 19},
      {",", 23},   {"SUM", 24}, {"AVE", 25},  {"MAX", 26},  {"MIN", 28},  {"SQRT", 32},
      {"SIN", 33}, {"COS", 34}, {"ASIN", 36}, {"ABS", 39},  {"CABS", 40}, {"COSPHI", 41},
      {"LOG", 42}, {"LN", 43},  {"EXP", 44},  {"DTOR", 30}, {"RTOD", 31}, {"TAN", 35}};
  std::vector<SToken> out;
  std::istringstream in(text);
  for (std::string piece; in >> piece;) {
    SToken tok = {};
    std::strncpy(tok.m_szName, piece.c_str(), 7);
    const size_t colon = piece.find(':');
    if (piece[0] == 'v' && piece.size() > 1) {
      tok.m_nType = kVariable;
      tok.m_nParam = std::stoi(piece.substr(1));
    } else if (piece[0] >= '0' && piece[0] <= '9') {
      tok.m_nType = kNumber;
    } else if (piece[0] == '?') {
      tok.m_nType = std::stoi(piece.substr(1));
    } else {
      tok.m_nType = kCodes.at(piece.substr(0, colon));
      if (colon != std::string::npos) tok.m_nParam = std::stoi(piece.substr(colon + 1));
    }
    out.push_back(tok);
  }
  return out;
}

std::string List(const std::string& text, int vars = 3) {
  const std::vector<SToken> t = Tokens(text);
  return ListProgram(t.data(), static_cast<int>(t.size()), vars);
}

TEST(ExpressionCompiler, ListsFusedFoldedAndSpecialisedInstructions) {
  // clang-format off
  const char* cases[][2] = {
      {"v1 v2 v3 * +", "VV Multiply v2 v3\nVT Add v1\nEnd\n"},                  // A+B*C
      {"v1 v2 + v1 v2 - * v3 /",                                                // (A+B)*(A-B)/C
       "VV Add v1 v2\nXVV Multiply(Subtract) v1 v2\nTV Divide v3\nEnd\n"},
      {"v1 v2 * v2 v3 * + v3 2 / -",                                            // fused pairs
       "VV Multiply v1 v2\nXVV Add(Multiply) v2 v3\nXVC Subtract(QuotientOf) v3 2\nEnd\n"},
      {"v1 v2 * v2 v3 / +", "VV Multiply v1 v2\nXVV Add(Divide) v2 v3\nEnd\n"},
      {"v1 v2 * v2 v3 MOD +", "VV Multiply v1 v2\nVV Quotient v2 v3\nST Add\nEnd\n"},
      {"v1 SIN v2 v3 - *", "V Sin v1\nXVV Multiply(Subtract) v2 v3\nEnd\n"},
      {"v1 v2 - 2 v3 * +", "VV Subtract v1 v2\nCV Multiply 2 v3\nST Add\nEnd\n"},  // CV is not
      {"v1 2 3 4 * + * 7 / v2 +",                                               // A*(2+3*4)/7+B
       "VC Multiply v1 14\nTCV QuotientOf,Add 7 v2\nEnd\n"},
      {"v1 v2 v3 v1 v2 SUM:5 5 /",                                              // chains
       "VV Add v2 v1\nTVV Add,Add v3 v2\nTVC Add,QuotientOf v1 5\nEnd\n"},
      {"v1 v2 + v3 / v1 *", "VV Add v1 v2\nTVV Divide,Multiply v3 v1\nEnd\n"},
      {"v1 v2 + 2 * 3 -", "VV Add v1 v2\nTC Multiply 2\nTC Subtract 3\nEnd\n"},  // two numbers
      {"v1 v2 + v3 < v1 +", "VV Add v1 v2\nTV Less v3\nTV Add v1\nEnd\n"},
      {"2 v1 -", "CV Subtract 2 v1\nEnd\n"}, {"v1 0.5 -", "VC Subtract v1 0.5\nEnd\n"},
      {"v1 2 ^ v2 2 ^ + SQRT", "V Square v1\nXV Add(Square) v2\nT Sqrt\nEnd\n"},
      {"v1 3 ^ v2 0.5 ^ -", "V Cube v1\nXV Subtract(Root) v2\nEnd\n"},
      {"v1 3 ^ v2 2 ^ /", "V Cube v1\nV Square v2\nST Divide\nEnd\n"},
      {"v1 2.5 ^ 3 v2 ^ *", "VC Power v1 2.5\nCV Power 3 v2\nST Multiply\nEnd\n"},
      {"v1 v2 + 2 ^", "VV Add v1 v2\nT Square\nEnd\n"},
      {"v1 0 /", "VC Divide v1 0\nEnd\n"},                  // a divisor near zero is checked
      {"1 0 /", "LoadConst 9999999\nEnd\n"},                // folded with the division rule
      {"9 SQRT 2 ^ 1 @ +", "LoadConst 8\nEnd\n"},
      {"4 @ SQRT", "LoadConst -4\nT Sqrt\nEnd\n"},          // a failing operation is kept
      {"2 ASIN", "LoadConst 2\nT Asin\nEnd\n"}, {"v2", "LoadVar v2\nEnd\n"},
      {"7", "LoadConst 7\nEnd\n"}, {"v1 SIN", "V Sin v1\nEnd\n"},
      {"v1 v2 v3 SUM:3", "VV Add v3 v2\nTV Add v1\nEnd\n"}, {"v2 SUM:1", "LoadVar v2\nEnd\n"},
      {"v1 2 AVE:2", "CV Add 2 v1\nTC QuotientOf 2\nEnd\n"},
      {"v1 v2 MAX:2 v3 1 MIN:2 -",
       "VV MaxAcc v2 v1\nCV MinAcc 1 v3\nST Subtract\nEnd\n"},
      {"1 2 SUM:2", "LoadConst 3\nEnd\n"}, {"v1 2 MIN:2", "CV MinAcc 2 v1\nEnd\n"},
      {"v1 v2 < v3 AND NOT", "VV Less v1 v2\nTV And v3\nT Not\nEnd\n"},
      {"v1 v2 CABS v1 v2 COSPHI !=", "VV Cabs v1 v2\nVV CosPhi v1 v2\nST NotEqual\nEnd\n"},
      // Not compiled: left to the token evaluator.
      {"1 +", ""}, {"1 2", ""}, {"v4", ""}, {"v0", ""}, {"SUM:0", ""}, {"1 SUM:2", ""},
      {"1 2 ( +", ""}, {"1 ?27", ""}, {"1 #", ""}, {"", ""}, {"v1 v2 + SUM:1", ""},
  };
  // clang-format on
  for (const auto& c : cases) EXPECT_EQ(List(c[0]), c[1]) << c[0];
  std::string deep;  // 129 values pending at once
  for (int i = 0; i < 129; ++i) deep += "1 ";
  for (int i = 0; i < 128; ++i) deep += "+ ";
  EXPECT_EQ(List(deep), "");
  EXPECT_EQ(List(deep.substr(2, deep.size() - 4)), "LoadConst 128\nEnd\n");
}

// pow(x, 2), pow(x, 3) and pow(x, 0.5) bit for bit, whichever way the rule takes.
TEST(ExpressionExactPower, EqualsTheSystemPowerFunction) {
  std::mt19937_64 rng(7);
  const auto check = [](double x) {
    const double results[] = {Square(x), Cube(x), Root(x)};
    const double exponents[] = {2.0, 3.0, 0.5};
    for (int k = 0; k < 3; ++k) {
      const double expected = SystemPow(x, exponents[k]);
      ASSERT_EQ(std::memcmp(&results[k], &expected, sizeof expected), 0)
          << x << " ^ " << exponents[k];
    }
  };
  for (double x : std::vector<double>{0.0,
                                      -0.0,
                                      1.0,
                                      -1.0,
                                      2.0,
                                      0.5,
                                      4.0,
                                      3.0,
                                      1e-300,
                                      -1e300,
                                      0x1p-64,
                                      0x1p64,
                                      0x1.0000000000001p64,
                                      0x1.fffffffffffffp-65,
                                      INFINITY,
                                      -INFINITY,
                                      NAN,
                                      1.4142135623730951,
                                      0x1.6a09e667f3bccp0,  // squares beside a power of two
                                      0x1.fffffffffffffp0,
                                      0x1.0000000000001p0,
                                      0x1.0000000800000p0,  // a square just past a whole unit
                                      0x1.fffffffffffffp1,  // roots beside a power of two
                                      0x1.0000000000001p2,
                                      1e-20,
                                      123456789.0}) {
    check(x);
  }
  for (int i = 0; i < 600000; ++i) {
    std::uint64_t bits = rng();
    // Mostly moderate magnitudes (where the rule applies), some anywhere.
    if (i % 4 != 3)
      bits = (bits & 0x800fffffffffffffULL) | ((1023 - 70 + (bits >> 52) % 140) << 52);
    double x;
    std::memcpy(&x, &bits, sizeof x);
    if (i % 8 == 1) x = static_cast<double>(bits % 2000001) / 1000.0 - 1000.0;
    check(x);
  }
}

// A variable table of n variables with the given values, and tokens in a CKAArray.
struct Formula {
  CKAArray<SToken> polish;
  CKAArray<SVarOperand> table;
  Formula(const std::string& text, std::vector<double> values) {
    for (const SToken& t : Tokens(text)) polish.AddBefore(polish.m_nCount, t);
    for (double v : values) {
      SVarOperand var = {"X", v};
      table.AddBefore(table.m_nCount, var);
    }
  }
  int Evaluate(double& v) { return EvaluatePolish(polish, table.m_nCount, table, v); }
  int Reference(double& v) {
    v = 0.0;
    return RunTokens(polish.m_pData, polish.m_nCount, table.m_pData, table.m_nCount, v);
  }
};

void ExpectSameAsTokens(Formula& f, const std::string& text) {
  double compiled = 1, plain = 2;
  const int rc = f.Evaluate(compiled);
  ASSERT_EQ(rc, f.Reference(plain)) << text;
  ASSERT_EQ(std::memcmp(&compiled, &plain, sizeof plain), 0) << text << " " << compiled;
}

// A random well-formed formula in postfix form.
std::string RandomTree(std::mt19937& rng, int depth) {
  static const char* const kOperands[] = {"v1", "v2", "v3", "0", "1", "2", "0.5", "1e2"};
  static const char* const kUnary[] = {"@",  "NOT", "SQRT", "SIN", "ASIN", "ABS",  "LOG",
                                       "LN", "EXP", "DTOR", "2 ^", "3 ^",  "0.5 ^"};
  static const char* const kBinary[] = {"+",   "-",  "*", "/",  "^",  "MOD",  "%",
                                        "AND", "OR", ">", "<=", "!=", "CABS", "COSPHI"};
  const unsigned pick = rng() % 8;
  if (depth == 0 || pick < 2) return kOperands[rng() % 8];
  if (pick == 2) return RandomTree(rng, depth - 1) + " " + kUnary[rng() % 13];
  if (pick == 3) {
    static const char* const kLists[] = {"SUM:", "AVE:", "MAX:", "MIN:"};
    const int n = 1 + static_cast<int>(rng() % 4);
    std::string out;
    for (int i = 0; i < n; ++i) out += std::string(kOperands[rng() % 8]) + " ";
    return out + kLists[rng() % 4] + std::to_string(n);
  }
  return RandomTree(rng, depth - 1) + " " + RandomTree(rng, depth - 1) + " " + kBinary[rng() % 14];
}

// Random postfix texts, well formed or not: the stored program (or the fallback for those
// not compiled) gives the token evaluator's result code and bits.
TEST(ExpressionProgram, GivesTheTokenEvaluatorsResults) {
  const std::vector<std::string> pieces = {
      "v1",    "v2",    "v3",     "0",   "1",   "2",     "3",    "0.5",  "2.5",   "@",
      "+",     "-",     "*",      "/",   "^",   "MOD",   "%",    "AND",  "OR",    "NOT",
      ">",     ">=",    "<",      "<=",  "!=",  "SQRT",  "SIN",  "COS",  "TAN",   "ASIN",
      "ABS",   "CABS",  "COSPHI", "LOG", "LN",  "EXP",   "DTOR", "RTOD", "SUM:2", "AVE:3",
      "MAX:2", "MIN:3", "SUM:1",  "2 ^", "3 ^", "0.5 ^", "v1 v2"};
  std::mt19937 rng(11);
  int compiled = 0;
  for (int i = 0; i < 40000; ++i) {
    std::string text = i % 2 ? RandomTree(rng, 5) : "";
    for (int k = i % 2 ? 0 : 1 + static_cast<int>(rng() % 10); k > 0; --k) {
      text += pieces[rng() % pieces.size()] + " ";
    }
    const double values[] = {static_cast<double>(rng() % 9) - 4,
                             (static_cast<double>(rng() % 1000) - 500) / 64,
                             std::ldexp(static_cast<double>(rng()), -31) - 1.0};
    Formula f(text, {values[0], values[1], values[2]});
    StoreProgram(f.polish, f.table);
    EXPECT_EQ(f.table.m_nCount, 3);
    ExpectSameAsTokens(f, text);
    if (!List(text).empty()) ++compiled;
  }
  EXPECT_GT(compiled, 15000);
}

// The program behind the table is what runs while the tokens are unchanged; once a token
// changes, the tokens as they stand are evaluated; undoing the change restores the program.
// Whatever the length of the formula and wherever the edit, a changed token is noticed: its
// result is the token evaluator's, not the program's.
TEST(ExpressionProgram, NoticesAnEditedTokenAtEveryPositionOfEveryLength) {
  for (int count = 1; count <= 21; ++count) {
    std::string text = count % 2 ? "v1" : "v1 @";
    for (int n = count % 2 ? 1 : 2; n < count; n += 2) text += " 2 +";
    Formula f(text, {1.5, 4.0});
    StoreProgram(f.polish, f.table);
    ASSERT_EQ(f.polish.m_nCount, count);
    double original = 0;
    ASSERT_EQ(f.Evaluate(original), 1);
    for (int i = 0; i < count; ++i) {
      SToken& tok = f.polish.m_pData[i];
      const SToken kept = tok;
      if (tok.m_nType == kNumber) tok.m_szName[0] = '3';
      if (tok.m_nType == kVariable) tok.m_nParam = 2;
      if (tok.m_nType == kAdd) tok.m_nType = kSubtract;
      if (tok.m_nType == kNegate) tok.m_nType = kAbs;
      double edited = 0, tokens = 0;
      ASSERT_EQ(f.Evaluate(edited), 1);
      ASSERT_EQ(f.Reference(tokens), 1);
      EXPECT_EQ(edited, tokens) << text << ", token " << i;
      EXPECT_NE(edited, original) << text << ", token " << i;
      tok = kept;
    }
  }
}

TEST(ExpressionProgram, RunsOnlyWhileTheTokensMatchItsCopy) {
  Formula f("v1 2.5 *", {4.0});
  StoreProgram(f.polish, f.table);
  ASSERT_GT(f.table.m_nSize, 1);
  double v = 0;
  ASSERT_EQ(f.Evaluate(v), 1);
  EXPECT_EQ(v, 10.0);
  // Plant a different constant in the stored instruction: the program, not the tokens, ran.
  unsigned char* bytes = reinterpret_cast<unsigned char*>(f.table.m_pData + 1);
  const double planted = 3.0, original = 2.5;
  unsigned char* constant = nullptr;
  for (int i = 0; i + 8 <= (f.table.m_nSize - 1) * 40; i += 8) {
    if (std::memcmp(bytes + i, &original, 8) == 0) constant = bytes + i;
  }
  ASSERT_NE(constant, nullptr);
  std::memcpy(constant, &planted, 8);
  ASSERT_EQ(f.Evaluate(v), 1);
  EXPECT_EQ(v, 12.0);
  // A changed text, code or count: the tokens are evaluated.
  f.polish.m_pData[1].m_szName[0] = '3';
  ASSERT_EQ(f.Evaluate(v), 1);
  EXPECT_EQ(v, 14.0);  // 4 * 3.5
  f.polish.m_pData[1].m_szName[0] = '2';
  f.polish.m_pData[2].m_nType = 2;  // "+"
  ASSERT_EQ(f.Evaluate(v), 1);
  EXPECT_EQ(v, 6.5);
  f.polish.m_pData[2].m_nType = 4;
  f.polish.m_pData[0].m_nParam = 9;
  EXPECT_EQ(f.Evaluate(v), -1);
  f.polish.m_pData[0].m_nParam = 1;
  // The text of a variable changed: the tokens are evaluated, alike.
  f.polish.m_pData[0].m_szName[0] = '?';
  ASSERT_EQ(f.Evaluate(v), 1);
  EXPECT_EQ(v, 10.0);
  f.polish.m_pData[0].m_szName[0] = 'v';
  // The precedence class, which evaluation does not read, may change.
  f.polish.m_pData[2].m_nPriority = 99;
  ASSERT_EQ(f.Evaluate(v), 1);
  EXPECT_EQ(v, 12.0);  // the planted program again
  // In a longer formula, the text of its last number and the code of its last token count.
  Formula g("v1 1 + 2 * 3 + 4 * 5 + 6 * 7 -", {1.0});
  StoreProgram(g.polish, g.table);
  ASSERT_EQ(g.Evaluate(v), 1);
  EXPECT_EQ(v, ((((1.0 + 1) * 2 + 3) * 4 + 5) * 6) - 7);
  g.polish.m_pData[13].m_szName[0] = '9';
  ASSERT_EQ(g.Evaluate(v), 1);
  EXPECT_EQ(v, ((((1.0 + 1) * 2 + 3) * 4 + 5) * 6) - 9);
  g.polish.m_pData[13].m_szName[0] = '7';
  g.polish.m_pData[14].m_nType = 2;
  ASSERT_EQ(g.Evaluate(v), 1);
  EXPECT_EQ(v, ((((1.0 + 1) * 2 + 3) * 4 + 5) * 6) + 7);
  // A variable count that differs from the table's, or a table that lost a variable.
  EXPECT_EQ(EvaluatePolish(f.polish, 0, f.table, v), -1);
  f.table.m_nCount = 0;
  EXPECT_EQ(EvaluatePolish(f.polish, 0, f.table, v), -1);
  EXPECT_EQ(v, 0.0);
}

TEST(ExpressionProgram, StorageGrowsTheTableAndKeepsItsVariables) {
  Formula f("v1 v2 + v1 *", {1.5, 2.0});
  const int size_before = f.table.m_nSize;
  StoreProgram(f.polish, f.table);
  EXPECT_EQ(f.table.m_nCount, 2);
  EXPECT_GT(f.table.m_nSize, size_before);
  EXPECT_EQ(f.table.m_pData[0].m_dValue, 1.5);
  EXPECT_EQ(f.table.m_pData[1].m_dValue, 2.0);
  double v = 0;
  ASSERT_EQ(f.Evaluate(v), 1);
  EXPECT_EQ(v, 5.25);
  // Tokens that do not compile erase an older program's mark; evaluation still works.
  f.polish.m_nCount = 2;
  StoreProgram(f.polish, f.table);
  EXPECT_EQ(f.Evaluate(v), -1);
  f.polish.m_nCount = 5;
  EXPECT_EQ(f.Evaluate(v), 1);  // tokens as they stand
  EXPECT_EQ(v, 5.25);
}

}  // namespace
