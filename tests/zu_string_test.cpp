#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "zu_string.h"

namespace {

using S = CKAString;
const char* const kNull = nullptr;

// Allocation size, read through the fixed member layout (buffer, length, size).
int SizeOf(const CKAString& s) {
  struct {
    char* buffer;
    int length, size;
  } raw;
  std::memcpy(static_cast<void*>(&raw), static_cast<const void*>(&s), sizeof raw);
  return raw.size;
}

// "text|length counter" and "text|length counter|allocation size".
std::string Counted(const CKAString& s) {
  return std::string(s.GetBuf()) + "|" + std::to_string(s.GetLength());
}
std::string State(const CKAString& s) {
  return Counted(s) + "|" + std::to_string(SizeOf(s));
}

// The first N - 1 bytes of a literal, embedded NULs included.
template <size_t N>
std::string Lit(const char (&bytes)[N]) {
  return std::string(bytes, N - 1);
}

std::string Bytes(const CKAString& s, size_t n) {
  return std::string(s.GetBuf(), n);
}

struct StateCase {
  CKAString got;  // built in place: a copy would refit the allocation
  const char* state;
};

// One operation on a string, its result (operations without one give 0) and the state after.
struct Step {
  Step(std::function<int(S&)> f, int r, const char* s) : op(std::move(f)), result(r), state(s) {}
  Step(std::function<void(S&)> f, const char* s)
      : op([f](S& str) { return f(str), 0; }), result(0), state(s) {}
  std::function<int(S&)> op;
  int result;
  const char* state;
};

void RunSteps(const char* text, std::initializer_list<Step> steps) {
  CKAString s(text);
  int i = 0;
  for (const Step& step : steps) {
    EXPECT_EQ(step.op(s), step.result) << "step " << i;
    EXPECT_EQ(State(s), step.state) << "step " << i++;
  }
}

}  // namespace

TEST(CKAStringConstruct, BuildsDocumentedContents) {
  const StateCase cases[] = {{S(), "|0|1"},         {S('a', 3), "aaa|3|4"},   {S('a', 0), "a|1|2"},
                             {S('a', -5), "a|1|2"}, {S(kNull), "|0|1"},       {S(100), "|0|100"},
                             {S(-3), "|0|1"},       {S("hello"), "hello|5|6"}};
  for (const StateCase& c : cases) EXPECT_EQ(State(c.got), c.state);
  EXPECT_TRUE(S().IsEmpty());
}

TEST(CKAStringSize, RawSizeOperationsMakeTheCounterIncludeZeroBytes) {
  CKAString s("ab");
  s.SetSize(10);
  EXPECT_EQ(Bytes(s, 10), Lit("ab\0\0\0\0\0\0\0\0"));
  const CKAString copy(s);  // takes the counter as it stands
  EXPECT_EQ(State(copy), "ab|9|10");
  EXPECT_NE(copy.GetBuf(), s.GetBuf());
  RunSteps("ab", {{[](S& s) { s.SetSize(10); }, "ab|9|10"},
                  {[](S& s) { s.FreeExtra(); }, "ab|9|10"},  // the counter still reads 9
                  {[](S& s) { s = "abc"; }, "abc|3|10"},
                  {[](S& s) { s.SetSize(2); }, "a|1|2"},
                  {[](S& s) { s.SetSize(-4); }, "|0|1"}});
  RunSteps("ab", {{[](S& s) { s.AddNum(3); }, "ab|5|6"},
                  {[](S& s) { s.AddNum(-4); }, "a|1|6"},
                  {[](S& s) { s.AddNum(-10); }, "|0|6"}});  // below zero counts as zero
  CKAString t("ab");
  t.AddNum(3);
  EXPECT_EQ(Bytes(t, 6), Lit("ab\0\0\0\0"));
  t = "abc";
  t.AddNum(-2);
  t.AddNum(2);  // no reallocation: the bytes are left as they were
  EXPECT_EQ(Bytes(t, 4), Lit("a\0c\0"));
  t.ToUpper();  // the case loops run to the counter, past the NUL
  EXPECT_EQ(Bytes(t, 4), Lit("A\0C\0"));
  t.ToLower();
  EXPECT_EQ(Bytes(t, 4), Lit("a\0c\0"));
  t = "Hello, aB1 42";
  t.ToReverse();  // swaps case, keeps order
  EXPECT_STREQ(t.GetBuf(), "hELLO, Ab1 42");
}

TEST(CKAStringAssign, AssignsKeepingAllocationAndSelfAssignmentEmpties) {
  RunSteps("abcdef", {{[](S& s) { s = "xy"; }, "xy|2|7"},
                      {[](S& s) { s = kNull; }, "xy|2|7"},
                      {[](S& s) { s = "longer text"; }, "longer text|11|12"},
                      {[](S& s) { s = 'q'; }, "q|1|12"},
                      {[](S& s) { s = '\0'; }, "|1|12"},
                      {[](S& s) { s = S("other"); }, "other|5|12"},
                      {[](S& s) { s = *&s; }, "|0|12"},  // deliberate: self-assignment empties
                      {[](S& s) { s = "abcdef"; }, "abcdef|6|12"},
                      {[](S& s) { s = s.GetBuf() + 2; }, "cdef|4|12"},
                      {[](S& s) { s = s.GetBuf(); }, "|0|12"}});  // read after emptying
}

TEST(CKAStringAssign, AppendsAndGrowsTheCounterByTheOperandsCounter) {
  RunSteps("ab", {{[](S& s) { s += "cd"; }, "abcd|4|5"},
                  {[](S& s) { s += kNull; }, "abcd|4|5"},
                  {[](S& s) { s += 'e'; }, "abcde|5|6"},
                  {[](S& s) { s += S("fg"); }, "abcdefg|7|8"},
                  {[](S& s) { s += '\0'; }, "abcdefg|8|9"},
                  {[](S& s) { s = "abc"; }, "abc|3|9"},
                  {[](S& s) { s += s; }, "abcabc|6|9"},
                  {[](S& s) { s += s.GetBuf() + 4; }, "abcabcbc|8|9"}});
  CKAString raw("ab");
  raw.SetSize(10);
  CKAString x("x");
  x += raw;
  EXPECT_EQ(State(x), "xab|10|11");  // 1 + 9: the counter, not the text
  CKAString t(raw);
  t += "cd";  // the text continues at its terminator
  EXPECT_EQ(State(t), "abcd|11|12");
}

TEST(CKAStringConcat, CharPlusStringDropsTheChar) {  // deliberate asymmetry
  const CKAString ab("ab");
  const std::pair<CKAString, const char*> cases[] = {
      {'x' + ab, "ab"},   {ab + 'x', "abx"},  {ab + "cd", "abcd"}, {"cd" + ab, "cdab"},
      {ab + kNull, "ab"}, {kNull + ab, "ab"}, {ab + ab, "abab"}};
  for (const auto& c : cases) EXPECT_STREQ(c.first.GetBuf(), c.second);
}

TEST(CKAStringFind, FindsNthNonOverlappingOccurrence) {
  const std::tuple<bool, const char*, const char*, int, int, int> cases[] = {
      {false, "banana", "a", 1, 0, 1},     {false, "banana", "a", 3, 0, 5},
      {false, "banana", "a", 4, 0, -2},    {false, "banana", "a", 1, 6, -1},
      {false, "banana", "a", 1, -1, -1},   {false, "banana", "ana", 2, 0, -2},
      {false, "banana", "na", 1, 3, 4},    {false, "banana", kNull, 1, 0, -1},
      {false, "", "", 1, 0, -1},           {false, "abcABCabc", "abc", 1, 1, 6},
      {false, "abcABCabc", "", 3, 4, 4},   {true, "banana", "AN", 2, 0, 3},
      {true, "banana", kNull, 1, 0, -1},   {true, "abcABCabc", "abc", 2, 0, 3},
      {true, "abcABCabc", "ABC", 3, 0, 6}, {true, "abcABCabc", "x", 1, 0, -2},
      {true, "abcABCabc", "a", 1, 9, -1}};
  for (const auto& [noCase, text, pattern, nth, start, expected] : cases) {
    const CKAString s(text);
    EXPECT_EQ(noCase ? s.FindNoCase(pattern, nth, start) : s.Find(pattern, nth, start), expected)
        << text << " " << (pattern ? pattern : "(null)") << " " << nth << " " << start;
  }
  EXPECT_LT(CKAString("banana").Find("a", 0, 0), 0);
}

TEST(CKAStringFind, CountsNonOverlappingOccurrences) {
  const std::tuple<bool, const char*, const char*, int, int> cases[] = {
      {false, "aaaa", "aa", 0, 2},       {false, "aaaa", "a", 1, 3},
      {false, "aaaa", kNull, 0, 0},      {false, "aaaa", "", 0, 0},
      {false, "aaaa", "a", 5, 0},        {false, "aaaa", "a", -1, 0},
      {false, "abcABCabc", "abc", 0, 2}, {false, "abcABCabc", "abc", 9, 0},
      {true, "aBab", "AB", 0, 2},        {true, "aaaa", "", 0, 0},
      {true, "abcABCabc", "abc", 0, 3},  {true, "abcABCabc", kNull, 0, 0},
      {true, "abcABCabc", "a", 10, 0}};
  for (const auto& [noCase, text, pattern, start, expected] : cases) {
    const CKAString s(text);
    EXPECT_EQ(noCase ? s.GetStrCountNoCase(pattern, start) : s.GetStrCount(pattern, start),
              expected)
        << text << " " << (pattern ? pattern : "(null)") << " " << start;
  }
}

TEST(CKAStringEdit, ReplaceFindResumesBehindReplacementAndFitsExactly) {
  const std::tuple<const char*, const char*, const char*, int, const char*> cases[] = {
      {"aba", "a", "aa", 2, "aabaa|5|6"},
      {"aabaa", "aa", "", 2, "b|1|6"},
      {"aba", "", "x", 0, "aba|3|4"},
      {"aba", kNull, "x", 0, "aba|3|4"},
      {"aba", "a", kNull, 0, "aba|3|4"},
      {"abc", "z", "y", 0, "abc|3|4"},
      {"a-a-a", "-", "<->", 2, "a<->a<->a|9|10"},
      {"a--b--c", "--", "+", 2, "a+b+c|5|8"}};
  for (const auto& [text, find, repl, count, state] : cases) {
    CKAString s(text);
    EXPECT_EQ(s.ReplaceFind(find, repl, 7), count) << text;
    EXPECT_EQ(State(s), state) << text;
  }
  CKAString raw("xax");
  raw.SetSize(6);  // "xax" and two zero bytes counted by the length
  EXPECT_EQ(raw.ReplaceFind("a", "AAA", 0), 1);
  EXPECT_EQ(raw.GetLength(), 7);
  EXPECT_EQ(Bytes(raw, 8), Lit("xAAAx\0\0\0"));
  RunSteps("ab", {{[](S& s) { return s.ReplaceFind("b", s.GetBuf(), 0); }, 1, "aab|3|4"}});
}

TEST(CKAStringEdit, InsertsRemovesAndGuardsBadPositions) {
  RunSteps("abc", {{[](S& s) { return s.RemoveAt(1, 10); }, 0, "abc|3|4"},  // refused, not cut
                   {[](S& s) { return s.RemoveAt(-1, 1); }, 0, "abc|3|4"},
                   {[](S& s) { return s.RemoveAt(3, 1); }, 0, "abc|3|4"},
                   {[](S& s) { return s.RemoveAt(5, 0); }, 1, "abc|3|4"},
                   {[](S& s) { return s.RemoveAt(-7, 0); }, 1, "abc|3|4"},  // pos unchecked
                   {[](S& s) { return s.AddAt(4, "x"); }, 0, "abc|3|4"},
                   {[](S& s) { return s.AddAt(-1, "x"); }, 0, "abc|3|4"},
                   {[](S& s) { return s.AddAt(0, kNull); }, 0, "abc|3|4"},
                   {[](S& s) { return s.ReplaceAt(0, 1, kNull); }, 0, "abc|3|4"},
                   {[](S& s) { return s.ReplaceAt(1, 5, "x"); }, 0, "abc|3|4"},
                   {[](S& s) { return s.AddAt(3, "x"); }, 1, "abcx|4|5"},
                   {[](S& s) { return s.ReplaceAt(1, 2, "ZZZ"); }, 1, "aZZZx|5|6"}});
  RunSteps("abc", {{[](S& s) { return s.AddAt(1, s.GetBuf()); }, 1, "aabcbc|6|7"},  // aliasing
                   {[](S& s) { return s.ReplaceAt(0, 2, s.GetBuf() + 4); }, 1, "bcbcbc|6|7"},
                   {[](S& s) { return s.RemoveAt(0, 6); }, 1, "|0|7"}});
}

TEST(CKAStringAccess, ClampsIndexesForReadingAndWriting) {
  CKAString s("abc");
  s[1] = 'X';
  s.GetChar(-5) = 'Y';
  s[100] = 'Z';
  EXPECT_STREQ(s.GetBuf(), "YXZ");
  const CKAString& view = s;
  EXPECT_EQ(std::string({view.GetChar(-3), view[99], view[1], view.GetChar(3)}), "YZXZ");
  CKAString empty;
  EXPECT_EQ(static_cast<const CKAString&>(empty)[7], '\0');
  EXPECT_EQ(&empty.GetChar(7), empty.GetBuf());
}

TEST(CKAStringFormat, ProducesWholeOutputInAnExactFit) {
  RunSteps("keep",
           {{[](S& s) { s.Format(kNull); }, "keep|4|5"},
            {[](S& s) { s.Format("%d-%s", 42, "x"); }, "42-x|4|5"},
            {[](S& s) { s.Format("[%s|%s]", s.GetBuf(), s.GetBuf()); }, "[42-x|42-x]|11|12"},
            {[](S& s) { s.Format("ab%cde", 0); }, "ab|2|3"}});  // ends at the NUL
  for (int n : {2046, 2047, 2048, 2049, 5000}) {
    const std::string text(static_cast<size_t>(n), 'k');
    CKAString s;
    s.Format("<%s>", text.c_str());
    EXPECT_EQ(State(s), "<" + text + ">|" + std::to_string(n + 2) + "|" + std::to_string(n + 3));
  }
}

TEST(CKAStringConvert, ParsesNumbers) {
  const std::tuple<const char*, int, double> cases[] = {{"42", 42, 42.0},  {"  -17x", -17, -17.0},
                                                        {"3.75", 3, 3.75}, {"abc", 0, 0.0},
                                                        {"", 0, 0.0},      {"1e3", 1, 1000.0}};
  for (const auto& [text, asInt, asReal] : cases) {
    CKAString s(text);
    EXPECT_EQ(s.ToInt(), asInt) << text;
    EXPECT_EQ(s.ToReal(), asReal) << text;
  }
}

TEST(CKAStringSub, EdgeCasesGiveEmptyOrClampedExactFitStrings) {
  const CKAString s("abcdef"), abc("abc"), empty;
  CKAString raw("ab");
  raw.SetSize(6);  // substrings stop at the text's terminator
  const StateCase cases[] = {
      {s.Left(0), "|0|1"},      {s.Left(-2), "|0|1"},      {s.Left(99), "abcdef|6|7"},
      {s.Right(0), "|0|1"},     {s.Right(1), "f|1|2"},     {s.Mid(-1, 2), "|0|1"},
      {s.Mid(0, 0), "|0|1"},    {s.Mid(6, -1), "|0|1"},    {s.Mid(2, 2), "cd|2|3"},
      {s.Mid(4, 99), "ef|2|3"}, {s.Mid(0), "abcdef|6|7"},  {abc.Mid(1, -1), "bc|2|3"},
      {abc.Mid(3, 1), "|0|1"},  {abc.Right(5), "abc|3|4"}, {empty.Left(3), "|0|1"},
      {empty.Right(3), "|0|1"}, {empty.Mid(0, 1), "|0|1"}, {raw.Left(4), "ab|2|3"},
      {raw.Right(2), "|0|1"}};
  for (const StateCase& c : cases) EXPECT_EQ(State(c.got), c.state);
}

// Columns: text, TrimLeft, TrimRight, TrimAll. Vertical tab and form feed are no blanks.
TEST(CKAStringTrim, TrimRightNeverExaminesIndexZero) {
  const char* const cases[][4] = {{"", "", "", ""},
                                  {" ", "", " ", ""},
                                  {"   ", "", " ", ""},
                                  {"x", "x", "x", "x"},
                                  {"\t a b \r\n", "a b \r\n", "\t a b", "a b"},
                                  {"\va\v", "\va\v", "\va\v", "\va\v"},
                                  {"\fx\f", "\fx\f", "\fx\f", "\fx\f"},
                                  {"  x  ", "x  ", "  x", "x"},
                                  {"\r\n\tx", "x", "\r\n\tx", "x"},
                                  {"x \t\r\n", "x \t\r\n", "x", "x"},
                                  {" a  b ", "a  b ", " a  b", "a  b"}};
  void (CKAString::*const trims[])() = {&S::TrimLeft, &S::TrimRight, &S::TrimAll};
  for (const auto& c : cases) {
    for (int i = 0; i < 3; ++i) {
      CKAString s(c[0]);
      (s.*trims[i])();
      EXPECT_EQ(Counted(s), Counted(S(c[i + 1]))) << i << " \"" << c[0] << '"';
    }
  }
}

// Results in the order ==, !=, <, <=, >, >=. Bytes compare unsigned; null sorts lowest.
TEST(CKAStringCompare, AllOperatorsFollowStrcmp) {
  const char* const cases[][3] = {{"abc", "abc", "100101"}, {"abc", "abd", "011100"},
                                  {"abd", "abc", "010011"}, {"ab", "abc", "011100"},
                                  {"B", "a", "011100"},     {"", "", "100101"},
                                  {"\xe9", "a", "010011"},  {"", nullptr, "010011"}};
  for (const auto& c : cases) {
    CKAString s(c[0]);
    const auto all = [&s](auto r) {
      return std::string{"01"[s == r], "01"[s != r], "01"[s < r],
                         "01"[s <= r], "01"[s > r],  "01"[s >= r]};
    };
    EXPECT_EQ(all(c[1]), c[2]) << c[0];
    EXPECT_EQ(c[1] ? all(CKAString(c[1])) : c[2], c[2]) << c[0];
  }
}

// Columns: text, separator, the fields joined with '|'.
TEST(CKAStringSplit, MatchesWholeSeparatorAndDropsBlankFields) {
  const char* const cases[][3] = {{" a, ,b,, c ", ",", "a|b|c"},
                                  {"", ",", ""},
                                  {"a b", "", "a|b"},
                                  {"a::b:c::", "::", "a|b:c"},
                                  {"::a", "::", "a"},
                                  {"no separator", ",", "no separator"},
                                  {"  \t ", ",", ""},
                                  {",,,", ",", ""},
                                  {"x", "", "x"},
                                  {" a\tb ", "", "a|b"},
                                  {"a AND b and c", "AND", "a|b and c"}};
  for (const auto& c : cases) {
    std::string got;
    for (const CKAString& field : CKAString(c[0]).split(c[1]))
      got += (got.empty() ? "" : "|") + std::string(field.GetBuf());
    EXPECT_EQ(got, c[2]) << c[0];
  }
}
