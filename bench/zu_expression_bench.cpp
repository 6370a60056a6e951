// Formula evaluator benchmark, in the way applications call CKAExpression: Analysis once,
// then for every new set of inputs SetVarValue(number, value) for each variable of the
// formula and Evaluate(result). 1024 input sets are cycled; A, B, C lie in [1, 2], X in
// [0.05, 1.05], Y in [0, 1].
//
// Before any timing every formula is evaluated on every input set and compared bit for bit
// (result code and value) with a reference evaluator written here, which runs the postfix
// tokens one by one exactly as the formula language defines them (pow for "^", the division
// rule, truncation, the failure codes). The peers are checked to compute the same formula
// (within 1e-12 relative), so that the comparison is between like and like.
//
// The comparison table comes from paired rounds in one thread: each round times one batch of
// every contender (zustd, muparser, fparser after Optimize(), the formula compiled as C++),
// in an order that rotates from round to round, in CPU time of this thread, so that load
// from other processes falls on all of them alike. Per formula the table gives the median
// batch time per evaluation and the median of the per-round ratios. Heap allocations are
// counted by replacing the global operator new.
//
// ZU_BENCH_ROUNDS (default 41) sets the number of rounds. Google Benchmark's own runs of the
// zustd calling pattern (BM_*) come first; --benchmark_filter=none skips them.
#include <benchmark/benchmark.h>
#include <muParser.h>
#include <time.h>
#include <fparser.hh>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "zu_expression.h"

namespace {
std::atomic<long long> g_allocations{0};
}

// The replaced global new and delete below pair malloc with free; GCC cannot see that they
// replace each other and warns about the pairing.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t size) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete[](void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  std::free(p);
}

namespace {

// One input set, by name.
struct In {
  double A, B, C, X, Y;
};

struct Formula {
  const char* zustd;
  const char* muparser;
  const char* fparser;
  double (*native)(const In&);
};

// clang-format off
const Formula kFormulas[] = {
    {"A+B*C", "A+B*C", "A+B*C",
     [](const In& v) { return v.A + v.B * v.C; }},
    {"(A+B)*(A-B)/C", "(A+B)*(A-B)/C", "(A+B)*(A-B)/C",
     [](const In& v) { return (v.A + v.B) * (v.A - v.B) / v.C; }},
    {"SQRT(A^2+B^2)", "sqrt(A^2+B^2)", "sqrt(A^2+B^2)",
     [](const In& v) { return std::sqrt(std::pow(v.A, 2) + std::pow(v.B, 2)); }},
    {"SIN(X)*2+Y", "sin(X)*2+Y", "sin(X)*2+Y",
     [](const In& v) { return std::sin(v.X) * 2 + v.Y; }},
    {"SQRT(2-SIN(2*A)+COS(3.14159/B)/3)", "sqrt(2-sin(2*A)+cos(3.14159/B)/3)",
     "sqrt(2-sin(2*A)+cos(3.14159/B)/3)",
     [](const In& v) { return std::sqrt(2 - std::sin(2 * v.A) + std::cos(3.14159 / v.B) / 3); }},
    {"EXP(0-0.5*(X-A)*(X-A)/(B*B))/(B*2.50662)", "exp(0-0.5*(X-A)*(X-A)/(B*B))/(B*2.50662)",
     "exp(0-0.5*(X-A)*(X-A)/(B*B))/(B*2.50662)",
     [](const In& v) {
       return std::exp(0 - 0.5 * (v.X - v.A) * (v.X - v.A) / (v.B * v.B)) / (v.B * 2.50662);
     }},
    {"(7*A+6)*A*A*A+5*A*A+4*A+3", "(7*A+6)*A*A*A+5*A*A+4*A+3", "(7*A+6)*A*A*A+5*A*A+4*A+3",
     [](const In& v) { return (7 * v.A + 6) * v.A * v.A * v.A + 5 * v.A * v.A + 4 * v.A + 3; }},
    {"A*(2+3*4)/7+B", "A*(2+3*4)/7+B", "A*(2+3*4)/7+B",
     [](const In& v) { return v.A * (2 + 3 * 4) / 7 + v.B; }},
    {"(A<B)*X+(A>=B)*Y", "(A<B)*X+(A>=B)*Y", "(A<B)*X+(A>=B)*Y",
     [](const In& v) { return (v.A < v.B) * v.X + (v.A >= v.B) * v.Y; }},
    {"SUM(A,B,C,X,Y)/5", "sum(A,B,C,X,Y)/5", "(A+B+C+X+Y)/5",
     [](const In& v) { return (v.A + v.B + v.C + v.X + v.Y) / 5; }},
    // More shapes: divisions, long sums of products, nested functions, logic, lists, powers.
    {"A/B+C/X-Y/A", "A/B+C/X-Y/A", "A/B+C/X-Y/A",
     [](const In& v) { return v.A / v.B + v.C / v.X - v.Y / v.A; }},
    {"A*B+B*C+C*X+X*Y+Y*A+A*C+B*X+C*Y", "A*B+B*C+C*X+X*Y+Y*A+A*C+B*X+C*Y",
     "A*B+B*C+C*X+X*Y+Y*A+A*C+B*X+C*Y",
     [](const In& v) {
       return v.A * v.B + v.B * v.C + v.C * v.X + v.X * v.Y + v.Y * v.A + v.A * v.C + v.B * v.X +
              v.C * v.Y;
     }},
    {"SQRT(LOG(A+B)*EXP(COS(X)))", "sqrt(ln(A+B)*exp(cos(X)))", "sqrt(log(A+B)*exp(cos(X)))",
     [](const In& v) { return std::sqrt(std::log(v.A + v.B) * std::exp(std::cos(v.X))); }},
    {"(A>B) AND (X<Y) OR (NOT(C>=1.5))", "(A>B) && (X<Y) || (C<1.5)",
     "(A>B) & (X<Y) | !(C>=1.5)",
     [](const In& v) { return ((v.A > v.B) && (v.X < v.Y)) || !(v.C >= 1.5) ? 1.0 : 0.0; }},
    {"MAX(A,B,C,X,Y)-MIN(A,B,C,X,Y)", "max(A,B,C,X,Y)-min(A,B,C,X,Y)",
     "max(max(max(max(A,B),C),X),Y)-min(min(min(min(A,B),C),X),Y)",
     [](const In& v) {
       return std::max({v.A, v.B, v.C, v.X, v.Y}) - std::min({v.A, v.B, v.C, v.X, v.Y});
     }},
    {"A^3-2*B^2+X^0.5", "A^3-2*B^2+X^0.5", "A^3-2*B^2+X^0.5",
     [](const In& v) { return std::pow(v.A, 3) - 2 * std::pow(v.B, 2) + std::pow(v.X, 0.5); }},
    {"(A-X)*(A-X)+(B-Y)*(B-Y)", "(A-X)*(A-X)+(B-Y)*(B-Y)", "(A-X)*(A-X)+(B-Y)*(B-Y)",
     [](const In& v) { return (v.A - v.X) * (v.A - v.X) + (v.B - v.Y) * (v.B - v.Y); }},
    {"A*X", "A*X", "A*X", [](const In& v) { return v.A * v.X; }},
    {"A^2.5+B^1.5", "A^2.5+B^1.5", "A^2.5+B^1.5",
     [](const In& v) { return std::pow(v.A, 2.5) + std::pow(v.B, 1.5); }},
};
// clang-format on
constexpr int kFormulaCount = sizeof(kFormulas) / sizeof(kFormulas[0]);
constexpr int kSets = 1024;

std::vector<In> MakeInputs() {
  std::mt19937_64 rng(20261124);
  std::uniform_real_distribution<double> abc(1.0, 2.0), x(0.05, 1.05), y(0.0, 1.0);
  std::vector<In> sets(kSets);
  for (In& s : sets) s = {abc(rng), abc(rng), abc(rng), x(rng), y(rng)};
  return sets;
}
const std::vector<In> kInputs = MakeInputs();

double ByName(const In& in, const char* name) {
  switch (name[0]) {
    case 'A':
      return in.A;
    case 'B':
      return in.B;
    case 'C':
      return in.C;
    case 'X':
      return in.X;
    default:
      return in.Y;
  }
}

// One formula analysed by zustd, with its variables in zustd's numbering and the input sets
// laid out in that order (vars values per set).
struct Prepared {
  CKAExpression expr;
  std::string names;  // "A,B,C" in variable-number order
  int vars = 0;
  std::vector<double> values;

  explicit Prepared(const Formula& f) {
    if (expr.Analysis(f.zustd) != 1) return;
    vars = expr.GetVarCount();
    std::vector<std::string> var_names;
    for (int i = 1; i <= vars; ++i) {
      CKAString name;
      expr.GetVarName(i, name);
      var_names.push_back(name.GetBuf());
      names += (i > 1 ? "," : "") + var_names.back();
    }
    for (const In& in : kInputs) {
      for (const std::string& n : var_names) values.push_back(ByName(in, n.c_str()));
    }
  }
  const double* Set(int i) const { return values.data() + static_cast<size_t>(i) * vars; }
};

// ---- The reference: the postfix tokens evaluated one by one ----

std::int32_t Trunc(double x) {
  if (std::isnan(x)) return 0;
  if (x >= 2147483647.0) return INT32_MAX;
  if (x <= -2147483648.0) return INT32_MIN;
  return static_cast<std::int32_t>(x);
}

double Binary(int code, double a, double b) {
  const auto truth = [](bool t) { return t ? 1.0 : 0.0; };
  const std::int64_t q = Trunc(b), n = Trunc(a);
  switch (code) {
    case 2:
      return a + b;
    case 3:
      return a - b;
    case 4:
      return a * b;
    case 5:
      return std::fabs(b) >= 1e-18 ? a / b : std::fabs(a) < 1e-18 ? 0.0 : 9999999.0;
    case 6:
      return std::pow(a, b);
    case 7:
      return q == 0 ? n : static_cast<double>(static_cast<std::int32_t>(n / q));
    case 8:
      return q == 0 ? 0.0 : static_cast<double>(n % q);
    case 9:
      return truth(n != 0 && q != 0);
    case 10:
      return truth(n != 0 || q != 0);
    case 12:
      return truth(a > b);
    case 13:
      return truth(a >= b);
    case 14:
      return truth(a < b);
    case 15:
      return truth(a <= b);
    case 16:
      return truth(!(a == b));
    case 40:
      return std::sqrt(b * b + a * a);
    default:  // 41 COSPHI
      return std::fabs(b) < 1e-18 && std::fabs(a) < 1e-18 ? 0.0 : b / std::sqrt(b * b + a * a);
  }
}

// Result code of a one-operand operation; x becomes its result.
int Unary(int code, double& x) {
  if ((code == 36 || code == 37) && (x < -1.0 || x > 1.0)) return -1;
  if ((code == 32 || code == 42 || code == 43) && x < 0.0) return -2;
  switch (code) {
    case 1:
      x = -x;
      break;
    case 11:
      x = Trunc(x) == 0 ? 1.0 : 0.0;
      break;
    case 30:
      x = x * 0.017453292519944444;
      break;
    case 31:
      x = x * 57.29577951307855;
      break;
    case 32:
      x = std::sqrt(x);
      break;
    case 33:
      x = std::sin(x);
      break;
    case 34:
      x = std::cos(x);
      break;
    case 35:
      x = std::tan(x);
      break;
    case 36:
      x = std::asin(x);
      break;
    case 37:
      x = std::acos(x);
      break;
    case 38:
      x = std::atan(x);
      break;
    case 39:
      x = std::fabs(x);
      break;
    case 42:
      x = std::log(x);
      break;
    case 43:
      x = std::log10(x);
      break;
    default:
      x = std::exp(x);
      break;  // 44
  }
  return 1;
}

int Reference(CKAExpression& e, double& result) {
  result = 0.0;
  std::vector<double> stack;
  const auto push = [&](double v) {
    if (stack.size() < 128) stack.push_back(v);
  };
  const auto pop = [&](double& v) {
    if (!stack.empty()) v = stack.back(), stack.pop_back();
  };
  if (e.m_arPolish.m_nCount < 1) return -1;
  int produced = 0;
  double work = 0.0, operand = 0.0;
  for (int i = 0; i < e.m_arPolish.m_nCount; ++i) {
    const CKAExpression::SToken& tok = e.m_arPolish.m_pData[i];
    const int code = tok.m_nType;
    if (code == 18) {
      char text[9] = {};
      std::memcpy(text, tok.m_szName, 8);
      push(std::strtod(text, nullptr));
      ++produced;
    } else if (code == 17) {
      double v;
      if (e.GetVarValue(tok.m_nParam, v) < 0) return -1;
      push(v);
      ++produced;
    } else if (code == 1 || code == 11 || (code >= 30 && code <= 39) || code >= 42) {
      if (code > 44 || produced < 1) return -1;
      pop(work);
      const int rc = Unary(code, work);
      if (rc != 1) return rc;
      push(work);
    } else if ((code >= 2 && code <= 16 && code != 11) || code == 40 || code == 41) {
      if (produced < 2) return -1;
      pop(work);
      pop(operand);
      push(Binary(code, operand, work));
      --produced;
    } else if (code == 24 || code == 25 || code == 26 || code == 28) {
      const int n = tok.m_nParam;
      if (n > produced) return -1;
      pop(work);
      for (int k = 1; k < n; ++k) {
        pop(operand);
        if (code == 26)
          work = operand > work ? operand : work;
        else if (code == 28)
          work = operand < work ? operand : work;
        else
          work += operand;
      }
      if (code == 25) work = n > 0 ? work / n : 0.0;
      produced = produced - n + 1;
      push(work);
    } else {
      return -1;
    }
  }
  if (produced != 1) return -1;
  pop(result);
  return 1;
}

// ---- The contenders, each evaluating one input set per call ----

struct MuParser {
  mu::Parser parser;
  std::vector<double> bound;
  MuParser(const Formula& f, const Prepared& p) : bound(p.vars) {
    for (int i = 0; i < p.vars; ++i) {
      CKAString name;
      const_cast<CKAExpression&>(p.expr).GetVarName(i + 1, name);
      parser.DefineVar(name.GetBuf(), &bound[i]);
    }
    parser.SetExpr(f.muparser);
  }
  double Eval(const double* set) {
    for (size_t i = 0; i < bound.size(); ++i) bound[i] = set[i];
    return parser.Eval();
  }
};

struct FParser {
  FunctionParser parser;
  bool ok;
  FParser(const Formula& f, const Prepared& p) {
    ok = parser.Parse(f.fparser, p.names) < 0;
    parser.Optimize();
  }
};

// Checks every formula on every input set. False (with a message) on any difference.
bool CheckResults() {
  bool ok = true;
  for (const Formula& f : kFormulas) {
    Prepared p(f);
    MuParser mu(f, p);
    FParser fp(f, p);
    if (p.vars == 0 || !fp.ok) {
      std::fprintf(stderr, "%s: not accepted by zustd or fparser\n", f.zustd);
      ok = false;
      continue;
    }
    for (int s = 0; s < kSets && ok; ++s) {
      for (int i = 0; i < p.vars; ++i) p.expr.SetVarValue(i + 1, p.Set(s)[i]);
      double ours = 0, reference = 0;
      const int rc = p.expr.Evaluate(ours);
      const int reference_rc = Reference(p.expr, reference);
      if (rc != reference_rc || std::memcmp(&ours, &reference, sizeof ours) != 0) {
        std::fprintf(stderr, "%s, set %d: %d %.17g, reference %d %.17g\n", f.zustd, s, rc, ours,
                     reference_rc, reference);
        ok = false;
      }
      const double peers[] = {mu.Eval(p.Set(s)), fp.parser.Eval(p.Set(s)), f.native(kInputs[s])};
      for (double peer : peers) {
        if (std::fabs(peer - ours) > 1e-12 * std::max(1.0, std::fabs(ours))) {
          std::fprintf(stderr, "%s, set %d: peers differ: %.17g %.17g %.17g, zustd %.17g\n",
                       f.zustd, s, peers[0], peers[1], peers[2], ours);
          ok = false;
          break;
        }
      }
    }
  }
  return ok;
}

// ---- Google Benchmark runs of the zustd calling pattern ----

void BM_SetAndEvaluate(benchmark::State& state) {
  Prepared p(kFormulas[state.range(0)]);
  int s = 0;
  double v = 0;
  const long long before = g_allocations.load();
  for (auto _ : state) {
    const double* set = p.Set(s);
    for (int i = 0; i < p.vars; ++i) p.expr.SetVarValue(i + 1, set[i]);
    p.expr.Evaluate(v);
    benchmark::DoNotOptimize(v);
    s = (s + 1) & (kSets - 1);
  }
  state.counters["allocs"] = benchmark::Counter(static_cast<double>(g_allocations.load() - before) /
                                                static_cast<double>(state.iterations()));
  state.SetLabel(kFormulas[state.range(0)].zustd);
}

// Set-up to the first value: Analysis, the variables set by number, one Evaluate.
void BM_Analysis(benchmark::State& state) {
  Prepared p(kFormulas[state.range(0)]);
  double v = 0;
  for (auto _ : state) {
    p.expr.Analysis(kFormulas[state.range(0)].zustd);
    for (int i = 0; i < p.vars; ++i) p.expr.SetVarValue(i + 1, p.Set(0)[i]);
    p.expr.Evaluate(v);
    benchmark::DoNotOptimize(v);
  }
  state.SetLabel(kFormulas[state.range(0)].zustd);
}

BENCHMARK(BM_SetAndEvaluate)->DenseRange(0, kFormulaCount - 1);
BENCHMARK(BM_Analysis)->DenseRange(0, kFormulaCount - 1);

// ---- Paired rounds ----

double ThreadNs() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

// Runs the contenders (each a batch of n calls) in rounds whose order rotates. Returns, per
// contender, the median time per call and the median of its per-round time ratio to
// contender 0.
struct Medians {
  std::vector<double> ns;     // per contender
  std::vector<double> ratio;  // per contender: its time / contender 0's time
};

Medians PairedRounds(std::vector<std::function<void()>>& batches, int n, int rounds) {
  const size_t k = batches.size();
  std::vector<std::vector<double>> times(k), ratios(k);
  for (auto& b : batches) b();  // warm-up
  for (int r = 0; r < rounds; ++r) {
    std::vector<double> t(k);
    for (size_t j = 0; j < k; ++j) {
      const size_t c = (j + static_cast<size_t>(r)) % k;
      const double start = ThreadNs();
      batches[c]();
      t[c] = (ThreadNs() - start) / n;
    }
    for (size_t c = 0; c < k; ++c) {
      times[c].push_back(t[c]);
      ratios[c].push_back(t[c] / t[0]);
    }
  }
  Medians m;
  for (size_t c = 0; c < k; ++c) {
    m.ns.push_back(Median(times[c]));
    m.ratio.push_back(Median(ratios[c]));
  }
  return m;
}

void PrintEvaluationTable(int rounds) {
  constexpr int kBatch = 4 * kSets;
  std::printf(
      "\nSetVarValue for each variable + Evaluate, %d input sets cycled (CPU ns per call, "
      "medians of %d paired rounds of %d calls; x = peer time / zustd time, above 1: zustd "
      "faster)\n| formula | zustd | muparser | fparser | C++ | x muparser | x fparser | "
      "x C++ |\n|---|---:|---:|---:|---:|---:|---:|---:|\n",
      kSets, rounds, kBatch);
  double log_mu = 0, log_fp = 0, log_native = 0, worst = 1e300;
  for (const Formula& f : kFormulas) {
    Prepared p(f);
    MuParser mu(f, p);
    FParser fp(f, p);
    std::vector<std::function<void()>> batches = {
        [&] {
          double v = 0;
          for (int i = 0; i < kBatch; ++i) {
            const double* set = p.Set(i & (kSets - 1));
            for (int k = 0; k < p.vars; ++k) p.expr.SetVarValue(k + 1, set[k]);
            p.expr.Evaluate(v);
            benchmark::DoNotOptimize(v);
          }
        },
        [&] {
          for (int i = 0; i < kBatch; ++i) {
            double v = mu.Eval(p.Set(i & (kSets - 1)));
            benchmark::DoNotOptimize(v);
          }
        },
        [&] {
          for (int i = 0; i < kBatch; ++i) {
            double v = fp.parser.Eval(p.Set(i & (kSets - 1)));
            benchmark::DoNotOptimize(v);
          }
        },
        [&] {
          for (int i = 0; i < kBatch; ++i) {
            const In* in = &kInputs[static_cast<size_t>(i & (kSets - 1))];
            benchmark::DoNotOptimize(in);  // keeps the loads in the loop
            double v = f.native(*in);
            benchmark::DoNotOptimize(v);
          }
        },
    };
    const Medians m = PairedRounds(batches, kBatch, rounds);
    std::printf("| `%s` | %.1f | %.1f | %.1f | %.1f | %.2f | %.2f | %.2f |\n", f.zustd, m.ns[0],
                m.ns[1], m.ns[2], m.ns[3], m.ratio[1], m.ratio[2], m.ratio[3]);
    log_mu += std::log(m.ratio[1]);
    log_fp += std::log(m.ratio[2]);
    log_native += std::log(m.ratio[3]);
    worst = std::min(worst, m.ratio[1]);
  }
  std::printf("| geometric mean (lowest x muparser %.2f) | | | | | %.2f | %.2f | %.2f |\n", worst,
              std::exp(log_mu / kFormulaCount), std::exp(log_fp / kFormulaCount),
              std::exp(log_native / kFormulaCount));
}

void PrintSetupTable(int rounds) {
  constexpr int kBatch = 500;
  std::printf(
      "\nSet-up to the first value: Analysis + SetVarValue + Evaluate against muparser's "
      "SetExpr + Eval (CPU ns per call, medians of %d paired rounds; x = muparser / zustd)\n"
      "| formula | zustd | muparser | x muparser |\n|---|---:|---:|---:|\n",
      rounds);
  double log_sum = 0, worst = 1e300;
  for (const Formula& f : kFormulas) {
    Prepared p(f);
    MuParser mu(f, p);
    std::vector<std::function<void()>> batches = {
        [&] {
          double v = 0;
          for (int i = 0; i < kBatch; ++i) {
            p.expr.Analysis(f.zustd);
            for (int k = 0; k < p.vars; ++k) p.expr.SetVarValue(k + 1, p.Set(0)[k]);
            p.expr.Evaluate(v);
            benchmark::DoNotOptimize(v);
          }
        },
        [&] {
          for (int i = 0; i < kBatch; ++i) {
            mu.parser.SetExpr(f.muparser);
            double v = mu.Eval(p.Set(0));
            benchmark::DoNotOptimize(v);
          }
        },
    };
    const Medians m = PairedRounds(batches, kBatch, rounds);
    std::printf("| `%s` | %.0f | %.0f | %.1f |\n", f.zustd, m.ns[0], m.ns[1], m.ratio[1]);
    log_sum += std::log(m.ratio[1]);
    worst = std::min(worst, m.ratio[1]);
  }
  std::printf("| geometric mean (lowest %.1f) | | | %.1f |\n", worst,
              std::exp(log_sum / kFormulaCount));
}

// How often squaring by x * x, as the peers do, differs from pow(x, 2), which "^" means.
void PrintSquareDifferences() {
  std::mt19937_64 rng(2);
  std::uniform_real_distribution<double> abc(1.0, 2.0);
  volatile double two = 2.0;  // keeps the compiler from turning pow into a multiplication
  constexpr long kDraws = 10000000;
  long differ = 0;
  for (long i = 0; i < kDraws; ++i) {
    const double x = abc(rng);
    differ += std::pow(x, two) != x * x;
  }
  std::printf("\nx * x differs from pow(x, 2) for %ld of %ld random x in [1, 2]\n", differ, kDraws);
}

// Heap allocations made by Evaluate, over every formula and input set.
void PrintAllocations() {
  long long evaluations = 0, allocations = 0;
  for (const Formula& f : kFormulas) {
    Prepared p(f);
    double v = 0;
    const long long start = g_allocations.load();
    for (int s = 0; s < kSets; ++s, ++evaluations) {
      for (int i = 0; i < p.vars; ++i) p.expr.SetVarValue(i + 1, p.Set(s)[i]);
      p.expr.Evaluate(v);
    }
    allocations += g_allocations.load() - start;
  }
  std::printf("\nHeap allocations: %lld in %lld calls of SetVarValue and Evaluate\n", allocations,
              evaluations);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  if (!CheckResults()) return 1;
  std::printf("Every formula gives the reference's result code and bits on all %d input sets.\n",
              kSets);
  benchmark::RunSpecifiedBenchmarks();
  PrintAllocations();
  PrintSquareDifferences();
  const char* rounds_text = std::getenv("ZU_BENCH_ROUNDS");
  const int rounds = rounds_text ? std::max(1, std::atoi(rounds_text)) : 41;
  PrintEvaluationTable(rounds);
  PrintSetupTable(rounds);
  benchmark::Shutdown();
  return 0;
}
