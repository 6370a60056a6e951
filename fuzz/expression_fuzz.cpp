// Fuzz target: CKAExpression. The input is a formula text (up to its first NUL), then the
// values of its variables and two more texts analysed again on the same object. Analysis,
// every accessor and Evaluate must return one of their documented codes.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_input.h"
#include "zu_expression.h"
#include "zu_string.h"

namespace {

void Run(CKAExpression& expr, const std::string& text, FuzzInput& in) {
  int r = expr.Analysis(text.c_str());
  FUZZ_CHECK(r == 1 || r == -1 || r == -4);
  const int count = expr.GetVarCount();
  FUZZ_CHECK(count >= 0 && count <= 65);
  if (r != 1) FUZZ_CHECK(count == 0);
  CKAString name;
  for (int i = 0; i <= count + 1; ++i) {
    int got = expr.GetVarName(i, name);
    FUZZ_CHECK(got == ((i >= 1 && i <= count) ? 1 : -1));
    if (got == 1) FUZZ_CHECK(expr.FindVarID(name.GetBuf()) == i);
    expr.SetVarValue(i, in.Double());
    double v = 1.0;
    expr.GetVarValue(i, v);
  }
  std::string lookup = in.Text(10);
  expr.SetVarValue(lookup.c_str(), in.Double());
  double v = 0.0;
  expr.GetVarValue(lookup.c_str(), v);
  CKAString shown;
  FUZZ_CHECK(expr.GetExpression(shown) == 1);
  double result = 0.0;
  int e = expr.Evaluate(result);
  FUZZ_CHECK(e == 1 || e == -1 || e == -2);
  if (r != 1 && r != -4) FUZZ_CHECK(e == -1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const uint8_t* nul = static_cast<const uint8_t*>(std::memchr(data, 0, size));
  const size_t text_size = nul != nullptr ? static_cast<size_t>(nul - data) : size;
  const std::string first(reinterpret_cast<const char*>(data), text_size);
  FuzzInput in(data + text_size, size - text_size);
  in.Byte();  // the terminator
  CKAExpression expr;
  double result = 0.0;
  FUZZ_CHECK(expr.Evaluate(result) == -1);
  FUZZ_CHECK(expr.Analysis(nullptr) == -5);
  Run(expr, first, in);
  // The rest of the input (after the values) is analysed again on the same object, which
  // keeps whatever a malformed first text left on the operator stack.
  std::string second = in.Text(255);
  Run(expr, second, in);
  // Many analyses on one object: what malformed texts leave on the operator stack piles up
  // until the stack is full.
  for (unsigned i = 0, n = in.Pick(200); i < n; ++i) expr.Analysis(second.c_str());
  Run(expr, in.Rest(), in);
  return 0;
}
