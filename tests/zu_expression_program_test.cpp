#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "zu_expression_internal.h"

namespace {

using namespace zu_expression;

// Tokens and a table of variables, with the program stored behind them. The text is postfix:
// "v2" is variable 2, "SUM:3" SUM over 3 operands, "_" code 27, else a number or keyword.
struct Formula {
  CKAArray<SToken> polish;
  CKAArray<SVarOperand> table;
  Formula(const std::string& text, std::vector<double> values, bool store = true) {
    static const std::string kCodes =
        " # @ + - * / ^ MOD % AND OR NOT > >= < <= != v 0 ( ) [ ] , SUM AVE MAX _ MIN _ DTOR "
        "RTOD SQRT SIN COS TAN ASIN ACOS ATAN ABS CABS COSPHI LOG LN EXP ";
    std::istringstream in(text);
    for (std::string piece; in >> piece;) {
      SToken tok = {};
      std::strncpy(tok.m_szName, piece.c_str(), 7);
      const size_t colon = piece[0] == 'v' ? 0 : std::min(piece.find(':'), piece.size());
      const std::string key =
          std::strchr("0123456789", piece[0]) ? "0" : piece.substr(0, colon ? colon : 1);
      tok.m_nType = std::count(kCodes.begin(), kCodes.begin() + kCodes.find(" " + key + " "), ' ');
      if (colon < piece.size()) tok.m_nParam = std::stoi(piece.substr(colon + 1));
      polish.AddBefore(polish.m_nCount, tok);
    }
    for (double v : values) table.AddBefore(table.m_nCount, SVarOperand{"X", v});
    if (store) StoreProgram(polish, table);
  }
  std::string List() { return ListProgram(polish.m_pData, polish.m_nCount, 3); }
  int Evaluate(double& v) { return EvaluatePolish(polish, table.m_nCount, table, v); }
  int EvaluateWide(double& v) { return EvaluatePolishWide(polish, table.m_nCount, table, v); }
  int Reference(double& v) {  // v stays as it is on failure
    return RunTokens(polish.m_pData, polish.m_nCount, table.m_pData, table.m_nCount, v);
  }
};

TEST(ExpressionCompiler, FusesChainsAndFoldsOrLeavesToTheTokens) {
  std::string deep = "1";  // 129 values pending at once
  for (int i = 0; i < 128; ++i) deep = "1 " + deep + " +";
  // clang-format off
  const std::string cases[][2] = {
      {"v1 v2 * v2 v3 * + v3 2 / -",  // fused pairs
       "VV Multiply v1 v2\nXVV Add(Multiply) v2 v3\nXVC Subtract(QuotientOf) v3 2\nEnd\n"},
      {"v1 2 3 4 * + * 7 / v2 +", "VC Multiply v1 14\nTCV QuotientOf,Add 7 v2\nEnd\n"},
      {"v1 v2 v3 v1 v2 SUM:5 5 /",  // chains
       "VV Add v2 v1\nTVV Add,Add v3 v2\nTVC Add,QuotientOf v1 5\nEnd\n"},
      {"v1 2 ^ v2 0.5 ^ + v3 3 ^ -", "V Square v1\nXV Add(Root) v2\nXV Subtract(Cube) v3\nEnd\n"},
      {"v1 0 /", "VC Divide v1 0\nEnd\n"},  // a divisor near zero is checked
      {"1 0 / 4 @ SQRT +", "LoadConst -4\nT Sqrt\nCT Add 9999999\nEnd\n"},  // failures kept
      {deep.substr(2, deep.size() - 4), "LoadConst 128\nEnd\n"}, {deep, ""}, {"1 +", ""},
      {"1 2", ""}, {"v4", ""}, {"v0", ""}, {"1 SUM:2", ""}, {"1 _", ""}, {"v1 v2 + SUM:1", ""},
  };
  // clang-format on
  for (const auto& c : cases) EXPECT_EQ(Formula(c[0], {}, false).List(), c[1]) << c[0];
}

// Square, Cube and Root give pow(x, 2), pow(x, 3) and pow(x, 0.5) bit for bit, and so do the
// squares and cubes with a fused multiply-add where the processor has it.
TEST(ExpressionExactPower, EqualsTheSystemPowerFunction) {
  // clang-format off
  std::vector<double> xs = {-0.0, 3.0, 1e-300, -1e300, -HUGE_VAL, std::nan(""), 0x1.fffffffffffffp0,
      0x1.6a09e667f3bccp0, 0x1.0000000800000p0, 0x1.fffffffffffffp1, 0x1.0000000000001p2,
      // squares that round to a power of two, and the ends of the ranges with their own limits
      0x1.6a09e667f3bcdp0, 0x1.6a09e667f3bcbp-20, 0x1.6a09e667f3bcdp70, 0x1p8,
      0x1.fffffffffffffp7, 0x1p-8, 0x1.fffffffffffffp-9, 0x1.fffffffffffffp63, 0x1p64};
  // clang-format on
  std::mt19937_64 rng(7);
  for (std::uint64_t i = 0, bits = rng(); i < 600000; ++i, bits = rng()) {
    if (i % 4 != 3) bits = (bits & 0x800fffffffffffffULL) | ((953 + (bits >> 52) % 140) << 52);
    std::memcpy(&xs.emplace_back(), &bits, sizeof bits);  // mostly moderate magnitudes
    if (i % 8 == 1) xs.back() = static_cast<double>(bits % 2000001) / 1000.0 - 1000.0;
  }
  static volatile double two = 2.0, three = 3.0, half = 0.5;  // keeps pow a call
  const bool fused = HasWideCheck();
  for (double x : xs) {
    const double results[] = {Square(x),          Cube(x),          Root(x), std::pow(x, two),
                              std::pow(x, three), std::pow(x, half)};
    ASSERT_EQ(std::memcmp(results, results + 3, 3 * sizeof x), 0) << x;
    if (fused) {
      const double with_fma[] = {FusedSquare(x), FusedCube(x)};
      ASSERT_EQ(std::memcmp(with_fma, results + 3, 2 * sizeof x), 0) << x;
    }
  }
}

// A square that only pow can tell (x * x is one unit off), in each form of instruction that
// squares: the program gives pow's bits.
TEST(ExpressionProgram, CallsPowForASquareOnlyPowCanTell) {
  const double x = 0x1.91b107835496cp+0;
  static volatile double two = 2.0, square = x * x;
  ASSERT_NE(std::pow(x, two), square);  // pow is one unit above x * x
  for (const char* text : {"v1 2 ^ v2 2 ^ +", "v2 2 ^ v1 2 ^ +", "v1 v2 - 2 ^"}) {
    Formula f(text, {x, 0.0});
    double program = 0, tokens = 1;
    ASSERT_EQ(f.Reference(tokens), 1);
    ASSERT_EQ(f.Evaluate(program), 1);
    EXPECT_EQ(program, tokens) << text;
    if (HasWideCheck()) {
      ASSERT_EQ(f.EvaluateWide(program), 1);
      EXPECT_EQ(program, tokens) << text;
    }
  }
}

const char* const kPieces[] = {
    "v1",  "v2",    "v3",    "0",   "1",    "2",      "0.5",   "1e2",  // operands
    "@",   "NOT",   "SQRT",  "SIN", "ASIN", "ABS",    "LOG",   "LN",    "EXP",   "DTOR", "2 ^",
    "3 ^", "0.5 ^", "SUM:1", "+",   "-",    "*",      "/",     "^",     "MOD",   "%",    "AND",
    "OR",  ">",     "<=",    "!=",  "CABS", "COSPHI", "SUM:3", "AVE:3", "MAX:3", "MIN:3"};

// A random formula in postfix form; with `wild`, a piece of any kind may stand anywhere.
std::string RandomTree(std::mt19937& rng, int depth, bool wild) {
  const unsigned pick = rng() % 8;
  const auto piece = [&](unsigned at, unsigned n) { return std::string(kPieces[at + rng() % n]); };
  if (wild && pick == 7) return piece(0, 40);
  if (depth == 0 || pick < 2) return piece(0, 8);
  if (pick == 2) return RandomTree(rng, depth - 1, wild) + " " + piece(8, 14);
  if (pick == 3) return piece(0, 8) + " " + piece(0, 8) + " " + piece(0, 8) + " " + piece(36, 4);
  const std::string a = RandomTree(rng, depth - 1, wild);
  return a + " " + RandomTree(rng, depth - 1, wild) + " " + piece(22, 14);
}

// The stored program, or the fallback where none is stored, gives the token evaluator's bits.
TEST(ExpressionProgram, GivesTheTokenEvaluatorsResults) {
  std::mt19937 rng(11);
  const bool wide = HasWideCheck();
  int compiled = 0;
  for (int i = 0; i < 40000; ++i) {
    const std::string text = RandomTree(rng, 5, i % 2);
    Formula f(text, {rng() % 9 - 4.0, (rng() % 1000 - 500.0) / 64, std::ldexp(rng(), -31) - 1.0});
    double program = 1, tokens = 0;
    ASSERT_EQ(f.Evaluate(program), f.Reference(tokens)) << text;
    ASSERT_EQ(std::memcmp(&program, &tokens, sizeof tokens), 0) << text << " " << program;
    if (wide) {
      ASSERT_EQ(f.EvaluateWide(program), f.Reference(tokens)) << text;
      ASSERT_EQ(std::memcmp(&program, &tokens, sizeof tokens), 0) << text << " " << program;
    }
    compiled += !f.List().empty();
  }
  EXPECT_GT(compiled, 15000);
}

// Whatever the length of the formula and wherever the edit, a token changed after the
// program was stored is noticed by both builds of the check: the result is the token
// evaluator's, not the program's.
TEST(ExpressionProgram, NoticesAnEditedTokenAtEveryPositionOfEveryLength) {
  const bool wide = HasWideCheck();
  for (int count = 1; count <= 21; ++count) {
    std::string text = count % 2 ? "v1" : "v1 @";
    for (int n = count % 2 ? 1 : 2; n < count; n += 2) text += " 2 +";
    Formula f(text, {1.5, 4.0});
    double original = 0, edited = 0, tokens = 0;
    ASSERT_EQ(f.Evaluate(original), 1);
    for (int i = 0; i < count; ++i) {
      SToken& tok = f.polish.m_pData[i];
      const SToken kept = tok;
      if (tok.m_nType == kNumber) tok.m_szName[0] = '3';
      if (tok.m_nType == kVariable) tok.m_nParam = 2;
      if (tok.m_nType == kAdd) tok.m_nType = kSubtract;
      if (tok.m_nType == kNegate) tok.m_nType = kAbs;
      ASSERT_EQ(f.Evaluate(edited), f.Reference(tokens));
      EXPECT_TRUE(edited == tokens && edited != original) << text << ", token " << i;
      if (wide) {
        ASSERT_EQ(f.EvaluateWide(edited), f.Reference(tokens));
        EXPECT_TRUE(edited == tokens && edited != original) << text << ", wide, token " << i;
      }
      // The same edit made to the program's copy of the tokens (behind the header slot) goes
      // unnoticed: the program itself ran, with the original result.
      unsigned char* copy =
          reinterpret_cast<unsigned char*>(f.table.m_pData + f.table.m_nCount + 1) + 20 * i;
      const SToken edit = tok;
      std::memcpy(copy, &edit, sizeof(edit));
      ASSERT_EQ(f.Evaluate(edited), 1);
      EXPECT_EQ(edited, original) << text << ", token " << i;
      if (wide) {
        ASSERT_EQ(f.EvaluateWide(edited), 1);
        EXPECT_EQ(edited, original) << text << ", wide, token " << i;
      }
      std::memcpy(copy, &kept, sizeof(kept));
      tok = kept;
    }
  }
}

}  // namespace
