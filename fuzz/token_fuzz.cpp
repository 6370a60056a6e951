// Fuzz target: CKAToken with arbitrary texts and delimiter sets (null, empty, long, repeated
// bytes), restarted in the middle of scans. Every token must equal the one a plain reference
// split gives: the maximal runs of bytes outside the set, in order, none empty.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "zu_string.h"
#include "zu_token.h"

namespace {

// The delimiter bytes CKAToken honours: the default set for null, else the first distinct
// bytes that fit its fixed array.
std::string EffectiveSet(const char* delimiters) {
  if (delimiters == nullptr) return " \t\n";
  std::string set;
  for (const char* p = delimiters; *p != '\0'; ++p) {
    if (set.find(*p) == std::string::npos && set.size() + 1 < CKAToken::kDelimiterCapacity)
      set += *p;
  }
  return set;
}

std::vector<std::string> ReferenceSplit(const std::string& text, const std::string& set) {
  std::vector<std::string> tokens;
  std::string cur;
  for (char c : text) {
    if (set.find(c) != std::string::npos) {
      if (!cur.empty()) tokens.push_back(cur);
      cur.clear();
    } else {
      cur += c;
    }
  }
  if (!cur.empty()) tokens.push_back(cur);
  return tokens;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  CKAToken token;
  CKAToken* scan = &token;
  CKAToken other(nullptr, nullptr);
  CKAString value("unchanged");
  FUZZ_CHECK(!other.GetToken(value) && value == "unchanged");
  while (!in.Empty()) {
    bool null_text = in.Pick(8) == 0, null_set = in.Pick(4) == 0;
    std::string text = in.Text(in.Bool() ? 40 : 400);
    std::string set = in.Text(in.Bool() ? 4 : 100);
    const char* t = null_text ? nullptr : text.c_str();
    const char* d = null_set ? nullptr : set.c_str();
    scan = in.Bool() ? &token : &other;
    scan->SetString(t, d);
    std::vector<std::string> want =
        ReferenceSplit(null_text ? std::string() : text, EffectiveSet(d));
    // Take some of the tokens, then possibly restart with a new text.
    size_t take = in.Pick(4) == 0 ? in.Pick(4) : want.size() + 1;
    for (size_t i = 0; i < take; ++i) {
      CKAString before(value);
      bool got = scan->GetToken(value);
      if (i < want.size()) {
        FUZZ_CHECK(got);
        FUZZ_CHECK(std::string(value.GetBuf()) == want[i]);
      } else {
        FUZZ_CHECK(!got);
        FUZZ_CHECK(std::string(value.GetBuf()) == before.GetBuf());
      }
    }
  }
  return 0;
}
