// Formula evaluator benchmark: CKAExpression::Evaluate and Analysis on typical formulas and,
// when muparser is available, the same formulas through muparser on the same variable values.
// Heap allocations are counted by replacing the global operator new. After the runs a table
// gives the throughput ratio per formula (muparser time / zustd time, above 1 = zustd faster)
// and the geometric mean.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "zu_expression.h"

#if defined(ZUSTD_HAVE_MUPARSER)
#include <muParser.h>
#endif

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

struct Formula {
  const char* zustd;
  const char* muparser;
};

const Formula kFormulas[] = {
    {"A+B*C", "A+B*C"},
    {"(A+B)*(A-B)/C", "(A+B)*(A-B)/C"},
    {"SQRT(A^2+B^2)", "sqrt(A^2+B^2)"},
    {"SIN(X)*2+Y", "sin(X)*2+Y"},
    {"SQRT(2-SIN(2*A)+COS(3.14159/B)/3)", "sqrt(2-sin(2*A)+cos(3.14159/B)/3)"},
    {"EXP(0-0.5*(X-A)*(X-A)/(B*B))/(B*2.50662)", "exp(0-0.5*(X-A)*(X-A)/(B*B))/(B*2.50662)"},
    {"(7*A+6)*A*A*A+5*A*A+4*A+3", "(7*A+6)*A*A*A+5*A*A+4*A+3"},
    {"A*(2+3*4)/7+B", "A*(2+3*4)/7+B"},
    {"(A<B)*X+(A>=B)*Y", "(A<B)*X+(A>=B)*Y"},
    {"SUM(A,B,C,X,Y)/5", "sum(A,B,C,X,Y)/5"},
};
constexpr int kFormulaCount = sizeof(kFormulas) / sizeof(kFormulas[0]);

struct Input {
  const char* name;
  double value;
};
const Input kInputs[] = {{"A", 1.7}, {"B", 2.3}, {"C", 0.9}, {"X", 0.4}, {"Y", -1.2}};

void SetInputs(CKAExpression& e) {
  for (const Input& in : kInputs) e.SetVarValue(in.name, in.value);
}

void BM_Evaluate(benchmark::State& state) {
  CKAExpression e;
  if (e.Analysis(kFormulas[state.range(0)].zustd) != 1) state.SkipWithError("Analysis failed");
  SetInputs(e);
  double v = 0;
  const long long before = g_allocations.load();
  for (auto _ : state) {
    e.Evaluate(v);
    benchmark::DoNotOptimize(v);
  }
  state.counters["allocs/eval"] = benchmark::Counter(
      static_cast<double>(g_allocations.load() - before) / static_cast<double>(state.iterations()));
  state.SetLabel(kFormulas[state.range(0)].zustd);
}

// Set-up to the first value: Analysis, the variables set by name, one Evaluate.
void BM_Analysis(benchmark::State& state) {
  CKAExpression e;
  double v = 0;
  for (auto _ : state) {
    e.Analysis(kFormulas[state.range(0)].zustd);
    SetInputs(e);
    e.Evaluate(v);
    benchmark::DoNotOptimize(v);
  }
  state.SetLabel(kFormulas[state.range(0)].zustd);
}

BENCHMARK(BM_Evaluate)->DenseRange(0, kFormulaCount - 1);
BENCHMARK(BM_Analysis)->DenseRange(0, kFormulaCount - 1);

#if defined(ZUSTD_HAVE_MUPARSER)
struct MuInputs {
  double values[sizeof(kInputs) / sizeof(kInputs[0])];
  void Define(mu::Parser& p) {
    for (size_t i = 0; i < sizeof(kInputs) / sizeof(kInputs[0]); ++i) {
      values[i] = kInputs[i].value;
      p.DefineVar(kInputs[i].name, &values[i]);
    }
  }
};

void BM_MuParserEval(benchmark::State& state) {
  mu::Parser p;
  MuInputs in;
  in.Define(p);
  p.SetExpr(kFormulas[state.range(0)].muparser);
  double v = p.Eval();
  for (auto _ : state) {
    v = p.Eval();
    benchmark::DoNotOptimize(v);
  }
  state.SetLabel(kFormulas[state.range(0)].muparser);
}

// Set-up to the first value: SetExpr and the first Eval (muparser parses lazily).
void BM_MuParserSetup(benchmark::State& state) {
  mu::Parser p;
  MuInputs in;
  in.Define(p);
  double v = 0;
  for (auto _ : state) {
    p.SetExpr(kFormulas[state.range(0)].muparser);
    v = p.Eval();
    benchmark::DoNotOptimize(v);
  }
  state.SetLabel(kFormulas[state.range(0)].muparser);
}

BENCHMARK(BM_MuParserEval)->DenseRange(0, kFormulaCount - 1);
BENCHMARK(BM_MuParserSetup)->DenseRange(0, kFormulaCount - 1);

// Both evaluators must agree within 1e-12 relative before any timing means something.
bool ResultsAgree() {
  bool ok = true;
  for (const Formula& f : kFormulas) {
    CKAExpression e;
    double ours = 0;
    const int rc = e.Analysis(f.zustd);
    SetInputs(e);
    const int eval_rc = e.Evaluate(ours);
    mu::Parser p;
    MuInputs in;
    in.Define(p);
    double theirs = 0;
    try {
      p.SetExpr(f.muparser);
      theirs = p.Eval();
    } catch (const mu::Parser::exception_type& ex) {
      std::fprintf(stderr, "muparser rejects %s: %s\n", f.muparser, ex.GetMsg().c_str());
      ok = false;
      continue;
    }
    const double scale = std::max(std::fabs(theirs), 1e-300);
    if (rc != 1 || eval_rc != 1 || std::fabs(ours - theirs) / scale > 1e-12) {
      std::fprintf(stderr, "results differ for %s: %.17g (rc %d/%d) vs %.17g\n", f.zustd, ours, rc,
                   eval_rc, theirs);
      ok = false;
    }
  }
  return ok;
}
#endif

// Keeps the adjusted real time of every run for the comparison table.
class TableReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    // The median of repeated runs when --benchmark_repetitions is given, else the one run.
    for (const Run& run : runs) {
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      const std::string name = run.run_name.str();
      if (median || (run.run_type == Run::RT_Iteration && !medians_.count(name))) {
        times_[name] = run.GetAdjustedCPUTime();
        if (median) medians_.insert(name);
      }
    }
  }

  double Time(const char* bench, int i) const {
    const auto it = times_.find(std::string(bench) + "/" + std::to_string(i));
    return it == times_.end() ? 0.0 : it->second;
  }

 private:
  std::map<std::string, double> times_;
  std::set<std::string> medians_;
};

void PrintTable(const TableReporter& r, const char* title, const char* ours, const char* theirs) {
  std::printf("\n%s (CPU ns; ratio = muparser / zustd, above 1: zustd faster)\n", title);
  std::printf("| formula | zustd | muparser | ratio |\n|---|---:|---:|---:|\n");
  double log_sum = 0;
  double worst = 1e300;
  int n = 0;
  for (int i = 0; i < kFormulaCount; ++i) {
    const double a = r.Time(ours, i);
    const double b = r.Time(theirs, i);
    if (a <= 0 || b <= 0) continue;
    std::printf("| `%s` | %.1f | %.1f | %.2f |\n", kFormulas[i].zustd, a, b, b / a);
    log_sum += std::log(b / a);
    worst = std::min(worst, b / a);
    ++n;
  }
  if (n > 0)
    std::printf("| geometric mean (lowest %.2f) | | | %.2f |\n", worst, std::exp(log_sum / n));
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
#if defined(ZUSTD_HAVE_MUPARSER)
  if (!ResultsAgree()) return 1;
#endif
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
#if defined(ZUSTD_HAVE_MUPARSER)
  PrintTable(reporter, "Evaluation", "BM_Evaluate", "BM_MuParserEval");
  PrintTable(reporter, "Set-up to the first value (Analysis vs SetExpr + Eval)", "BM_Analysis",
             "BM_MuParserSetup");
#else
  std::printf("\nmuparser not found: no comparison table.\n");
#endif
  benchmark::Shutdown();
  return 0;
}
