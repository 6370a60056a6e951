// Parameter-file costs: loading a file, looking values up, and one change (search plus the
// rewrite of the whole file). Files live in a temporary directory under /tmp.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "zu_para.h"

namespace {

constexpr int kSections = 10;

// A parameter file of nLines lines: kSections sections, each a header and its keys.
class ParaFile {
 public:
  explicit ParaFile(int nLines) {
    char tmpl[] = "/tmp/zu_para_bench.XXXXXX";
    if (mkdtemp(tmpl) != nullptr) m_dir = tmpl;
    m_path = m_dir + "/bench.ini";
    std::string text;
    const int nPerSection = nLines / kSections - 1;
    for (int s = 0; s < kSections; ++s) {
      text += "[Section" + std::to_string(s) + "]\n";
      for (int k = 0; k < nPerSection; ++k) {
        m_keys.push_back({"Section" + std::to_string(s), "key" + std::to_string(k)});
        text += m_keys.back().key + " = " + std::to_string(k) + "\n";
      }
    }
    FILE* f = std::fopen(m_path.c_str(), "w");
    if (f != nullptr) {
      std::fputs(text.c_str(), f);
      std::fclose(f);
    }
  }
  ~ParaFile() {
    std::remove(m_path.c_str());
    rmdir(m_dir.c_str());
  }
  struct Key {
    std::string section, key;
  };
  const char* Path() const { return m_path.c_str(); }
  const std::vector<Key>& Keys() const { return m_keys; }

 private:
  std::string m_dir;
  std::string m_path;
  std::vector<Key> m_keys;
};

void BM_Load(benchmark::State& state) {
  const ParaFile file(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    CKAPara para;
    benchmark::DoNotOptimize(para.SetFileName(file.Path()));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Load)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

// 1000 lookups spread over every key of a 1000-line file.
void BM_GetInt1000(benchmark::State& state) {
  const ParaFile file(1000);
  CKAPara para;
  para.SetFileName(file.Path());
  const std::vector<ParaFile::Key>& keys = file.Keys();
  for (auto _ : state) {
    for (int i = 0; i < 1000; ++i) {
      const ParaFile::Key& k = keys[static_cast<size_t>(i) % keys.size()];
      benchmark::DoNotOptimize(para.GetInt(k.section.c_str(), k.key.c_str(), -1, nullptr));
    }
  }
  state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(BM_GetInt1000)->Unit(benchmark::kMicrosecond);

// One SetInt on a key in the middle of a 1000-line file: search plus whole-file rewrite.
void BM_SetInt(benchmark::State& state) {
  const ParaFile file(1000);
  CKAPara para;
  para.SetFileName(file.Path());
  int n = 0;
  for (auto _ : state) benchmark::DoNotOptimize(para.SetInt("Section5", "key50", ++n));
}
BENCHMARK(BM_SetInt)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
