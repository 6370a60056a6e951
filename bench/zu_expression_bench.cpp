// Formula evaluator benchmark: CKAExpression::Evaluate and Analysis on typical formulas and,
// when muparser is available, the same formulas through muparser on the same variable values.
// Heap allocations are counted by replacing the global operator new. After the runs a table
// gives the throughput ratio per formula (muparser time / zustd time, above 1 = zustd faster)
// and the geometric mean.
#include <benchmark/benchmark.h>

#include <time.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <new>
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

#if defined(ZUSTD_HAVE_MUPARSER)
// The comparison tables come from paired measurements rather than from the runs above: for
// each formula, rounds alternate a batch through zustd and a batch through muparser (in
// turn first), each timed in CPU time of this thread, so that load from other processes
// falls on both sides alike. Per formula the table gives the median batch times and the
// median of the per-round ratios; the summary line their geometric mean.
double ThreadNs() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return t.tv_sec * 1e9 + t.tv_nsec;
}

template <class F>
double TimeBatch(F&& f, int n) {
  const double start = ThreadNs();
  for (int i = 0; i < n; ++i) f();
  return (ThreadNs() - start) / n;
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

struct Paired {
  double ours, theirs, ratio;
};

template <class Ours, class Theirs>
Paired Pair(Ours&& ours, Theirs&& theirs, int batch, int rounds) {
  std::vector<double> a, b, r;
  TimeBatch(ours, batch);
  TimeBatch(theirs, batch);
  for (int i = 0; i < rounds; ++i) {
    double x, y;
    if (i % 2 == 0) {
      x = TimeBatch(ours, batch);
      y = TimeBatch(theirs, batch);
    } else {
      y = TimeBatch(theirs, batch);
      x = TimeBatch(ours, batch);
    }
    a.push_back(x);
    b.push_back(y);
    r.push_back(y / x);
  }
  return {Median(a), Median(b), Median(r)};
}

void PrintTable(const char* title, bool setup, int rounds) {
  std::printf(
      "\n%s (CPU ns per call, medians of %d paired rounds; ratio = muparser / zustd, "
      "above 1: zustd faster)\n| formula | zustd | muparser | ratio |\n|---|---:|---:|---:|\n",
      title, rounds);
  double log_sum = 0;
  double worst = 1e300;
  for (const Formula& f : kFormulas) {
    CKAExpression e;
    e.Analysis(f.zustd);
    SetInputs(e);
    mu::Parser p;
    MuInputs in;
    in.Define(p);
    p.SetExpr(f.muparser);
    double v = 0;
    Paired m;
    if (setup) {
      m = Pair(
          [&] {
            e.Analysis(f.zustd);
            SetInputs(e);
            e.Evaluate(v);
            benchmark::DoNotOptimize(v);
          },
          [&] {
            p.SetExpr(f.muparser);
            v = p.Eval();
            benchmark::DoNotOptimize(v);
          },
          2000, rounds);
    } else {
      m = Pair(
          [&] {
            e.Evaluate(v);
            benchmark::DoNotOptimize(v);
          },
          [&] {
            v = p.Eval();
            benchmark::DoNotOptimize(v);
          },
          50000, rounds);
    }
    std::printf("| `%s` | %.1f | %.1f | %.2f |\n", f.zustd, m.ours, m.theirs, m.ratio);
    log_sum += std::log(m.ratio);
    worst = std::min(worst, m.ratio);
  }
  std::printf("| geometric mean (lowest %.2f) | | | %.2f |\n", worst,
              std::exp(log_sum / kFormulaCount));
}
#endif

// Heap allocations made by Evaluate, over every formula.
void PrintAllocations() {
  long long evaluations = 0;
  long long allocations = 0;
  for (const Formula& f : kFormulas) {
    CKAExpression e;
    e.Analysis(f.zustd);
    SetInputs(e);
    double v = 0;
    const long long start = g_allocations.load();
    for (int i = 0; i < 1000; ++i, ++evaluations) e.Evaluate(v);
    allocations += g_allocations.load() - start;
  }
  std::printf("\nHeap allocations: %lld in %lld calls of Evaluate\n", allocations, evaluations);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
#if defined(ZUSTD_HAVE_MUPARSER)
  if (!ResultsAgree()) return 1;
#endif
  benchmark::RunSpecifiedBenchmarks();
  PrintAllocations();
#if defined(ZUSTD_HAVE_MUPARSER)
  const char* rounds_text = std::getenv("ZU_BENCH_ROUNDS");
  const int rounds = rounds_text ? std::max(1, std::atoi(rounds_text)) : 41;
  PrintTable("Evaluation", false, rounds);
  PrintTable("Set-up to the first value (Analysis vs SetExpr + Eval)", true, rounds);
#else
  std::printf("\nmuparser not found: no comparison table.\n");
#endif
  benchmark::Shutdown();
  return 0;
}
