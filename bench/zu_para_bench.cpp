// Parameter-file costs: loading a file, looking values up, and one change (search plus the
// rewrite of the whole file). Files live in a temporary directory under $TMPDIR (or /tmp):
// point TMPDIR at the file system whose cost matters, since a change syncs to the disk.
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
    const char* base = getenv("TMPDIR");
    std::string tmpl = std::string(base != nullptr && *base != '\0' ? base : "/tmp");
    tmpl += "/zu_para_bench.XXXXXX";
    if (mkdtemp(&tmpl[0]) != nullptr) m_dir = tmpl;
    m_path = m_dir + "/bench.ini";
    std::string text;
    const int nPerSection = nLines / kSections - 1;
    for (int s = 0; s < kSections; ++s) {
      m_lines.push_back("[Section" + std::to_string(s) + "]");
      for (int k = 0; k < nPerSection; ++k) {
        m_keys.push_back({"Section" + std::to_string(s), "key" + std::to_string(k)});
        m_lines.push_back(m_keys.back().key + " = " + std::to_string(k));
      }
    }
    for (const std::string& line : m_lines) text += line + "\n";
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
  const std::vector<std::string>& Lines() const { return m_lines; }

 private:
  std::string m_dir;
  std::string m_path;
  std::vector<Key> m_keys;
  std::vector<std::string> m_lines;
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
BENCHMARK(BM_SetInt)->Unit(benchmark::kMicrosecond)->UseRealTime();

// The same change written the way the library once did it, for comparison: the file is
// truncated and rewritten in place through stdio, with no sync (a kill or a full disk
// then leaves it empty or cut short).
void BM_SetIntInPlaceUnsafe(benchmark::State& state) {
  const ParaFile file(1000);
  CKAPara para;
  para.SetFileName(file.Path());
  std::vector<std::string> lines = file.Lines();
  const int index = para.SearchLine("Section5", "key50");
  int n = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(para.SearchLine("Section5", "key50"));
    lines[static_cast<size_t>(index)] = "key50 =" + std::to_string(++n);
    FILE* f = std::fopen(file.Path(), "w+");
    if (f == nullptr) continue;
    for (const std::string& line : lines) {
      std::fputs(line.c_str(), f);
      std::fputc('\n', f);
    }
    std::fclose(f);
  }
}
BENCHMARK(BM_SetIntInPlaceUnsafe)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
