// zustd expr: analyse and evaluate a formula with CKAExpression, once with values from the
// command line or for every row of a CSV file.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "cli.h"
#include "zu_expression.h"
#include "zu_string.h"

namespace zustd_cli {
namespace {

struct ExprArgs {
  std::string formula;
  std::vector<std::string> assignments;
  bool postfix = false;
  bool vars = false;
  std::string csv;
  std::optional<int> precision;
};

std::string AnalysisError(int code, CKAExpression& e) {
  if (code == -1) return "syntax error, or more than 65 variables";
  if (code != -4) return "analysis failed (" + std::to_string(code) + ")";
  // The lexer stopped after the character it could not read.
  CKAString text;
  e.GetExpression(text);
  const int at = std::max(e.m_nPos - 1, 0);
  const std::string rest = at < text.GetLength() ? std::string(text.GetBuf() + at) : "";
  return "cannot read the formula at character " + std::to_string(at + 1) + ": \"" + rest + "\"";
}

std::string EvaluationError(int code, const CKAExpression& e) {
  if (code == -2) return "SQRT, LOG or LN of a negative value";
  if (e.m_arPolish.m_nCount == 0) return "empty formula";
  return "operands and operators do not match (a negative number is written @3, and 2*(@3)), "
         "or ASIN/ACOS outside [-1, 1]";
}

constexpr int kSumCode = 24, kAveCode = 25, kMaxCode = 26, kMinCode = 28;

// The postfix tokens separated by blanks; the argument-list functions show their argument
// count, as in SUM(3).
std::string PostfixText(const CKAExpression& e) {
  std::string text;
  for (int i = 0; i < e.m_arPolish.m_nCount; ++i) {
    const CKAExpression::SToken& t = e.m_arPolish[i];
    if (!text.empty()) text += ' ';
    text += t.m_szName;
    const int type = t.m_nType;
    if (type == kSumCode || type == kAveCode || type == kMaxCode || type == kMinCode) {
      text += "(" + std::to_string(t.m_nParam) + ")";
    }
  }
  return text;
}

std::string VariableList(CKAExpression& e) {
  std::string text;
  for (int i = 1; i <= e.GetVarCount(); ++i) {
    CKAString name;
    e.GetVarName(i, name);
    text += std::to_string(i) + " " + name.GetBuf() + "\n";
  }
  return text;
}

// NAME=VALUE pairs into the formula's variables; bad input on failure (message printed).
int Assign(CKAExpression& e, const std::vector<std::string>& assignments) {
  for (const std::string& a : assignments) {
    const size_t eq = a.find('=');
    double value;
    if (eq == std::string::npos || eq == 0) {
      return Fail(kBadInput, "not NAME=VALUE: " + a);
    }
    const std::string name = a.substr(0, eq);
    if (!ParseDouble(a.substr(eq + 1), &value)) {
      return Fail(kBadInput, "not a number: " + a.substr(eq + 1) + " (for " + name + ")");
    }
    e.SetVarValue(name.c_str(), value);  // a name the formula does not use is ignored
  }
  return kOk;
}

int RunOnce(CKAExpression& e, const ExprArgs& a) {
  const int status = Assign(e, a.assignments);
  if (status != kOk) return status;
  double result = 0.0;
  const int code = e.Evaluate(result);
  if (code != 1) return Fail(kNotFound, EvaluationError(code, e));
  return WriteOut(FormatNumber(result, a.precision) + "\n") ? kOk : kBadInput;
}

// ---- CSV ----

// Fields of one CSV line split at commas outside double quotes; quotes stay in the fields.
std::vector<std::string> SplitCsv(const std::string& line) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (char c : line) {
    if (c == '"') quoted = !quoted;
    if (c == ',' && !quoted) {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

std::string Trim(const std::string& s) {
  const size_t b = s.find_first_not_of(" \t");
  if (b == std::string::npos) return "";
  return s.substr(b, s.find_last_not_of(" \t") + 1 - b);
}

// For each variable (index v - 1), its column; bad input when one has none or two.
int MapColumns(CKAExpression& e, const std::string& header, std::vector<size_t>* columns) {
  const std::vector<std::string> names = SplitCsv(header);
  const size_t none = names.size();
  columns->assign(static_cast<size_t>(e.GetVarCount()), none);
  for (size_t c = 0; c < names.size(); ++c) {
    const int v = e.FindVarID(Trim(names[c]).c_str());
    if (v < 1) continue;
    size_t& column = (*columns)[static_cast<size_t>(v - 1)];
    if (column != none) return Fail(kBadInput, "two columns name variable " + Trim(names[c]));
    column = c;
  }
  for (int v = 1; v <= e.GetVarCount(); ++v) {
    if ((*columns)[static_cast<size_t>(v - 1)] != none) continue;
    CKAString name;
    e.GetVarName(v, name);
    return Fail(kBadInput, std::string("the CSV header has no column ") + name.GetBuf());
  }
  return kOk;
}

// The result field of one data row; sets *status (kOk, kNotFound, kBadInput) for the row.
std::string EvaluateRow(CKAExpression& e, const std::string& line, long row,
                        const std::vector<size_t>& columns, const std::optional<int>& precision,
                        int* status) {
  const std::vector<std::string> fields = SplitCsv(line);
  for (size_t v = 0; v < columns.size(); ++v) {
    double value;
    const std::string field = columns[v] < fields.size() ? fields[columns[v]] : "";
    if (!ParseDouble(field, &value)) {
      *status =
          Fail(kBadInput, "line " + std::to_string(row) + ": not a number: \"" + field + "\"");
      return "";
    }
    e.SetVarValue(static_cast<int>(v + 1), value);
  }
  double result = 0.0;
  const int code = e.Evaluate(result);
  if (code == 1) {
    *status = kOk;
    return FormatNumber(result, precision);
  }
  *status = Fail(kNotFound, "line " + std::to_string(row) + ": " + EvaluationError(code, e));
  return "";
}

// Prints the header with a "result" column, then every row with its result (empty when the row
// could not be evaluated, with a message naming the line). The worst row decides the status.
int RunCsv(CKAExpression& e, const std::string& source, const std::optional<int>& precision) {
  std::FILE* in = source == "-" ? stdin : std::fopen(source.c_str(), "r");
  if (in == nullptr) return Fail(kBadInput, source + ": " + std::strerror(errno));
  int worst = kOk;
  std::vector<size_t> columns;
  std::string line, out;
  long row = 0;
  for (int c = 0; c != EOF;) {
    line.clear();
    while ((c = std::fgetc(in)) != EOF && c != '\n') line += static_cast<char>(c);
    if (c == EOF && line.empty()) break;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (++row == 1) {
      worst = MapColumns(e, line, &columns);
      if (worst != kOk) break;
      out = line + ",result\n";
    } else if (!line.empty()) {
      int status = kOk;
      out += line + "," + EvaluateRow(e, line, row, columns, precision, &status) + "\n";
      worst = std::max(worst, status);
    }
    if (out.size() > 65536 || c == EOF) {
      if (!WriteOut(out)) worst = kBadInput;
      out.clear();
    }
  }
  if (row == 0) worst = Fail(kBadInput, source + ": no CSV header");
  if (std::ferror(in)) worst = Fail(kBadInput, source + ": " + std::strerror(errno));
  if (in != stdin) std::fclose(in);
  return WriteOut(out) ? worst : kBadInput;
}

int Run(const ExprArgs& a) {
  CKAExpression e;
  const int code = e.Analysis(a.formula.c_str());
  if (code != 1) return Fail(kBadInput, AnalysisError(code, e));
  if (a.postfix || a.vars) {
    std::string out;
    if (a.postfix) out += PostfixText(e) + "\n";
    if (a.vars) out += VariableList(e);
    return WriteOut(out) ? kOk : kBadInput;
  }
  if (!a.csv.empty()) {
    if (!a.assignments.empty()) return Fail(kBadInput, "NAME=VALUE cannot be given with --csv");
    return RunCsv(e, a.csv, a.precision);
  }
  return RunOnce(e, a);
}

}  // namespace

void AddExprCommand(CLI::App& app, Tool& tool) {
  auto args = std::make_shared<ExprArgs>();
  ExprArgs* a = args.get();
  CLI::App* expr = app.add_subcommand(
      "expr", "Evaluate a formula (SIN(X)*2+Y ...); exit 1 when it cannot be evaluated");
  expr->add_option("FORMULA", a->formula, "The formula")->required();
  expr->add_option("NAME=VALUE", a->assignments, "Values of the formula's variables (default 0)");
  expr->add_flag("--postfix", a->postfix, "Print the postfix form instead of the result");
  expr->add_flag("--vars", a->vars, "List the variables, numbered from 1, instead of the result");
  expr->add_option("--csv", a->csv,
                   "Evaluate for every row of a CSV file (- for stdin) whose header names the "
                   "variables; prints the rows with a result column")
      ->type_name("FILE");
  AddPrecisionOption(expr, &a->precision);
  expr->callback([&tool, args] { tool.status = Run(*args); });
}

}  // namespace zustd_cli
