// Benchmarks of the text units: CKAString search, replace, split, Format, and base64.
// The "OneAtATime" and "LinearScan" cases are the straightforward algorithms written with
// the public interface, as a reference for the single-pass and table-driven versions.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "zu_std.h"
#include "zu_string.h"

namespace {

std::string Words(int n) {
  std::string text;
  for (int i = 0; i < n; ++i) text += "key" + std::to_string(i) + " = value, ";
  return text;
}

void BM_ReplaceFind(benchmark::State& state) {
  const std::string text = Words(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    CKAString s(text.c_str());
    benchmark::DoNotOptimize(s.ReplaceFind(" = ", "==", 0));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_ReplaceFind)->Arg(100)->Arg(1000);

void BM_ReplaceFindOneAtATime(benchmark::State& state) {
  const std::string text = Words(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    CKAString s(text.c_str());
    int pos = 0;
    for (const char* hit; (hit = std::strstr(s.GetBuf() + pos, " = ")) != nullptr;) {
      const int at = static_cast<int>(hit - s.GetBuf());
      pos = at + 2;
      s.ReplaceAt(at, 3, "==");
    }
    benchmark::DoNotOptimize(s.GetBuf());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_ReplaceFindOneAtATime)->Arg(100)->Arg(1000);

void BM_FindNoCase(benchmark::State& state) {
  const CKAString s(Words(1000).c_str());
  for (auto _ : state) benchmark::DoNotOptimize(s.FindNoCase("KEY999 ", 1, 0));
}
BENCHMARK(BM_FindNoCase);

void BM_Split(benchmark::State& state) {
  const CKAString s(Words(static_cast<int>(state.range(0))).c_str());
  const CKAString sep(",");
  for (auto _ : state) benchmark::DoNotOptimize(s.split(sep).size());
}
BENCHMARK(BM_Split)->Arg(1000);

void BM_FormatLong(benchmark::State& state) {
  const std::string arg(static_cast<size_t>(state.range(0)), 'x');
  for (auto _ : state) {
    CKAString s;
    s.Format("%s:%d", arg.c_str(), 42);
    benchmark::DoNotOptimize(s.GetBuf());
  }
}
BENCHMARK(BM_FormatLong)->Arg(100)->Arg(10000);

void BM_AppendChar(benchmark::State& state) {
  for (auto _ : state) {
    CKAString s;
    for (int i = 0; i < state.range(0); ++i) s += 'a';  // exact fit: one allocation each
    benchmark::DoNotOptimize(s.GetBuf());
  }
}
BENCHMARK(BM_AppendChar)->Arg(1000);

std::string EncodedBlock(int bytes) {
  std::vector<unsigned char> in(static_cast<size_t>(bytes));
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<unsigned char>(i * 7);
  std::vector<char> out(in.size() / 3 * 4 + 5);
  CZUBase64().base64_encode(in.data(), out.data(), bytes);
  return out.data();
}

void BM_Base64Decode(benchmark::State& state) {
  const std::string text = EncodedBlock(static_cast<int>(state.range(0)));
  std::vector<unsigned char> out(text.size());
  for (auto _ : state)
    benchmark::DoNotOptimize(CZUBase64().base64_decode(text.c_str(), out.data()));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Base64Decode)->Arg(4096);

unsigned LinearValue(char c) {
  for (unsigned i = 0; i < 64; ++i) {
    if (CZUBase64::base64char[i] == c) return i;
  }
  return 255;
}

int LinearScanDecode(const char* in, unsigned char* out) {
  int n = 0;
  for (; *in != '\0'; in += 4) {
    const unsigned c0 = LinearValue(in[0]), c1 = LinearValue(in[1]);
    out[n++] = static_cast<unsigned char>((c0 << 2) | ((c1 >> 4) & 3));
    if (in[2] == '=') break;
    const unsigned c2 = LinearValue(in[2]);
    out[n++] = static_cast<unsigned char>((c1 << 4) | ((c2 >> 2) & 15));
    if (in[3] == '=') break;
    out[n++] = static_cast<unsigned char>((c2 << 6) | (LinearValue(in[3]) & 63));
  }
  return n;
}

void BM_Base64DecodeLinearScan(benchmark::State& state) {
  const std::string text = EncodedBlock(static_cast<int>(state.range(0)));
  std::vector<unsigned char> out(text.size());
  for (auto _ : state) benchmark::DoNotOptimize(LinearScanDecode(text.c_str(), out.data()));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Base64DecodeLinearScan)->Arg(4096);

void BM_Base64Encode(benchmark::State& state) {
  std::vector<unsigned char> in(static_cast<size_t>(state.range(0)), 0x5a);
  std::vector<char> out(in.size() / 3 * 4 + 5);
  for (auto _ : state) {
    CZUBase64().base64_encode(in.data(), out.data(), static_cast<int>(in.size()));
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Base64Encode)->Arg(4096);

}  // namespace

BENCHMARK_MAIN();
