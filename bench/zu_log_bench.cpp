#include "zu_log.h"

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <string>

namespace {

// A scratch SYSTEMHOME for the whole run, removed at exit.
struct ScratchHome {
  ScratchHome() {
    char pattern[] = "/tmp/zu_log_bench.XXXXXX";
    if (mkdtemp(pattern) != nullptr) path = pattern;
    setenv("SYSTEMHOME", path.c_str(), 1);
  }
  ~ScratchHome() { std::filesystem::remove_all(path); }
  std::string path;
};

ScratchHome& Home() {
  static ScratchHome home;
  return home;
}

constexpr const char* kText = "sensor 17 reading 1234.5 accepted";

// Whole entries through the file: open, lock, read the header and the end of the file, append,
// rewrite the header, close. The run crosses the rotation at 20000 entries when it is long
// enough, as a real log does.
void BM_LogAdd(benchmark::State& state) {
  Home();
  CKALog log;
  if (!log.SetProcName("bench_add")) {
    state.SkipWithError("SetProcName failed");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(log.Add(kText));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LogAdd)->UseRealTime();

// The producers' side of CKALogThread: lock, copy, append. The thread is not started, so the
// queue only grows; the fixed iteration count bounds its memory.
std::unique_ptr<CKALogThread> g_queue;

void MakeQueue(const benchmark::State&) {
  g_queue.reset(new CKALogThread);
}
void DropQueue(const benchmark::State&) {
  g_queue.reset();
}  // no thread: safe to destroy

void BM_AddLog(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(g_queue->AddLog(kText));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_AddLog)
    ->Setup(MakeQueue)
    ->Teardown(DropQueue)
    ->Iterations(200000)
    ->Threads(1)
    ->Threads(2)
    ->Threads(4)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
