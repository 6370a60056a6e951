#include "zu_string.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

using S = CKAString;

// "text|length counter|allocation size", the size read through the fixed member layout.
static std::string State(const CKAString& s) {
  int size;
  std::memcpy(&size, reinterpret_cast<const char*>(&s) + sizeof(char*) + sizeof(int), sizeof size);
  return std::string(s.GetBuf()) + "|" + std::to_string(s.GetLength()) + "|" + std::to_string(size);
}

TEST(CKAString, EditsGiveExactTextCounterAndAllocation) {
  const char* const null = nullptr;
  // A string made from a text, one operation, then its result (0 if none) and its state.
  const std::tuple<const char*, std::function<int(S&)>, const char*> cases[] = {
      {"abcdef", [](S& s) { return s = "xy", 0; }, "0 xy|2|7"},  // allocation kept
      {"abcdef", [](S& s) { return s = *&s, 0; }, "0 |0|7"},  // deliberate: self-assignment empties
      {"abcdef", [](S& s) { return s = s.GetBuf() + 2, 0; }, "0 cdef|4|7"},
      {"ab", [](S& s) { return s.SetSize(10), 0; }, "0 ab|9|10"},  // the counter holds the NULs
      {"ab", [](S& s) { return s.AddNum(-10), 0; }, "0 |0|3"},
      {"ab", [](S& s) { return s.SetSize(10), s += "cd", 0; }, "0 abcd|11|12"},  // counter += 2
      {"ab", [](S& s) { return s += '\0', 0; }, "0 ab|3|4"},
      {"abc", [](S& s) { return s += s, 0; }, "0 abcabc|6|7"},
      {"aba", [](S& s) { return s.ReplaceFind("a", "aa", 0); }, "2 aabaa|5|6"},
      {"a--b--c", [](S& s) { return s.ReplaceFind("--", "+", 0); }, "2 a+b+c|5|8"},
      {"ab", [](S& s) { return s.ReplaceFind("b", s.GetBuf(), 0); }, "1 aab|3|4"},
      {"abc", [](S& s) { return s.RemoveAt(1, 10); }, "0 abc|3|4"},  // refused, not cut
      {"abc", [](S& s) { return s.RemoveAt(-7, 0); }, "1 abc|3|4"},
      {"abc", [](S& s) { return s.AddAt(4, "x"); }, "0 abc|3|4"},
      {"abc", [=](S& s) { return s.AddAt(0, null); }, "0 abc|3|4"},
      {"abc", [](S& s) { return s.AddAt(1, s.GetBuf()); }, "1 aabcbc|6|7"},
      {"abc", [](S& s) { return s.ReplaceAt(1, 2, "ZZZ"); }, "1 aZZZ|4|5"},
      {"keep", [=](S& s) { return s.Format(null), 0; }, "0 keep|4|5"},
      {"42", [](S& s) { return s.Format("[%s|%s]", s.GetBuf(), s.GetBuf()), 0; }, "0 [42|42]|7|8"},
      {"", [](S& s) { return s.Format("ab%cde", 0), 0; }, "0 ab|2|3"},
      {"aB1", [](S& s) { return s.ToReverse(), 0; }, "0 Ab1|3|4"},  // kept: swaps case
      {"abc", [](S& s) { return s[100] = 'Z', s.GetChar(-5) = 'Y', 0; }, "0 YbZ|3|4"},
      {" ", [](S& s) { return s.TrimRight(), 0; }, "0  |1|2"},  // index 0 is never examined
      {" \t a b \r\n", [](S& s) { return s.TrimAll(), 0; }, "0 a b|3|10"},
      {"\va\f", [](S& s) { return s.TrimAll(), 0; }, "0 \va\f|3|4"},  // no blanks
  };
  for (const auto& [text, op, expected] : cases) {
    CKAString s(text);
    const int result = op(s);
    EXPECT_EQ(std::to_string(result) + " " + State(s), expected) << text;
  }
  EXPECT_STREQ(('x' + S("ab")).GetBuf(), "ab");  // deliberate: the char is dropped
  EXPECT_EQ(State(S('a', 0)), "a|1|2");
}

TEST(CKAString, SubstringsAndFormatFitExactlyFindSkipsOverlaps) {
  const CKAString s("abcdef");
  EXPECT_EQ((std::vector<std::string>{State(s.Left(-2)), State(s.Left(99)), State(s.Mid(4, 99))}),
            (std::vector<std::string>{"|0|1", "abcdef|6|7", "ef|2|3"}));
  for (int n : {2047, 2048, 5000}) {
    const std::string text(static_cast<size_t>(n), 'k');
    CKAString f;
    f.Format("<%s>", text.c_str());
    EXPECT_EQ(State(f), "<" + text + ">|" + std::to_string(n + 2) + "|" + std::to_string(n + 3));
  }
  const CKAString t("abcABCabc");
  EXPECT_EQ((std::vector<int>{5, -2, -1, -1, 6, 3, -2, 2, 3, 0}),
            (std::vector<int>{S("banana").Find("a", 3, 0), S("banana").Find("ana", 2, 0),
                              S("banana").Find("a", 1, 6), S("banana").Find(nullptr, 1, 0),
                              t.Find("abc", 1, 1), t.FindNoCase("abc", 2, 0),
                              t.FindNoCase("x", 1, 0), S("aaaa").GetStrCount("aa", 0),
                              t.GetStrCountNoCase("abc", 0), t.GetStrCount("", 0)}));
}

// Results in the order ==, !=, <, <=, >, >=. Bytes compare unsigned; null sorts lowest.
TEST(CKAString, ComparesLikeStrcmpAndSplitsAtWholeSeparators) {
  const char* const cases[][3] = {
      {"abc", "abd", "011100"}, {"\xe9", "a", "010011"}, {"", 0, "010011"}};
  for (const auto& c : cases) {
    CKAString s(c[0]);
    const char* r = c[1];
    EXPECT_EQ(std::string({"01"[s == r], "01"[s != r], "01"[s < r], "01"[s <= r], "01"[s > r],
                           "01"[s >= r]}),
              c[2])
        << c[0];
  }
  const char* const splits[][3] = {
      {" a, ,b,, c ", ",", "a|b|c|"}, {"a::b:c::", "::", "a|b:c|"}, {" a\tb ", "", "a|b|"}};
  for (const auto& c : splits) {
    std::string got;
    for (const CKAString& field : CKAString(c[0]).split(c[1]))
      got += field.GetBuf() + std::string("|");
    EXPECT_EQ(got, c[2]) << c[0];
  }
}
