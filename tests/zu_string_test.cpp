#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "zu_string.h"

namespace {

// The documented layout: buffer, length counter, allocation size.
struct PlainString {
  char* m_pBuffer;
  int m_nLength;
  int m_nSize;
};
static_assert(sizeof(CKAString) == sizeof(PlainString), "CKAString layout");

PlainString Raw(const CKAString& s) {
  PlainString raw;
  std::memcpy(&raw, &s, sizeof raw);
  return raw;
}

int SizeOf(const CKAString& s) {
  return Raw(s).m_nSize;
}

std::string Text(const CKAString& s) {
  return s.GetBuf();
}

std::vector<std::string> Texts(const std::vector<CKAString>& v) {
  std::vector<std::string> out;
  for (const CKAString& s : v) out.push_back(s.GetBuf());
  return out;
}

const char* const kNull = nullptr;

}  // namespace

TEST(CKAStringLayout, MembersInDocumentedOrder) {
  CKAString s("abc");
  const PlainString raw = Raw(s);
  EXPECT_EQ(raw.m_pBuffer, s.GetBuf());
  EXPECT_EQ(raw.m_nLength, 3);
  EXPECT_EQ(raw.m_nSize, 4);
}

TEST(CKAStringConstruct, BuildsDocumentedContents) {
  CKAString empty;
  EXPECT_EQ(Text(empty), "");
  EXPECT_EQ(empty.GetLength(), 0);
  EXPECT_EQ(SizeOf(empty), 1);
  EXPECT_TRUE(empty.IsEmpty());

  EXPECT_EQ(Text(CKAString('a', 3)), "aaa");
  EXPECT_EQ(SizeOf(CKAString('a', 3)), 4);
  EXPECT_EQ(Text(CKAString('a', 0)), "a");
  EXPECT_EQ(Text(CKAString('a', -5)), "a");
  EXPECT_EQ(CKAString('a', -5).GetLength(), 1);

  EXPECT_EQ(Text(CKAString(kNull)), "");
  EXPECT_EQ(CKAString(kNull).GetLength(), 0);
  EXPECT_EQ(SizeOf(CKAString("hello")), 6);

  CKAString reserved(100);
  EXPECT_EQ(Text(reserved), "");
  EXPECT_EQ(reserved.GetLength(), 0);
  EXPECT_EQ(SizeOf(reserved), 100);
  EXPECT_EQ(SizeOf(CKAString(-3)), 1);
}

TEST(CKAStringConstruct, CopyTakesLengthCounterAndFitsIt) {
  CKAString s("ab");
  s.SetSize(10);
  CKAString copy(s);
  EXPECT_EQ(Text(copy), "ab");
  EXPECT_EQ(copy.GetLength(), 9);
  EXPECT_EQ(SizeOf(copy), 10);
  EXPECT_NE(copy.GetBuf(), s.GetBuf());
}

TEST(CKAStringSize, SetSizeMakesLengthCountTheZeroBytes) {
  CKAString s("ab");
  s.SetSize(10);
  EXPECT_EQ(s.GetLength(), 9);
  EXPECT_EQ(SizeOf(s), 10);
  EXPECT_EQ(Text(s), "ab");
  for (int i = 2; i < 10; ++i) EXPECT_EQ(s.GetBuf()[i], '\0') << i;
  s.FreeExtra();  // the counter still reads 9, so the 10 bytes stay
  EXPECT_EQ(SizeOf(s), 10);
  EXPECT_EQ(s.GetLength(), 9);

  CKAString t("abc");
  t.SetSize(2);
  EXPECT_EQ(Text(t), "a");
  EXPECT_EQ(t.GetLength(), 1);
  t.SetSize(-4);
  EXPECT_EQ(Text(t), "");
  EXPECT_EQ(SizeOf(t), 1);
  EXPECT_EQ(t.GetLength(), 0);
}

TEST(CKAStringSize, AddNumGrowsExactFitWithZeros) {
  CKAString s("ab");
  s.AddNum(3);
  EXPECT_EQ(s.GetLength(), 5);
  EXPECT_EQ(SizeOf(s), 6);
  EXPECT_EQ(std::memcmp(s.GetBuf(), "ab\0\0\0\0", 6), 0);
  s.AddNum(-4);
  EXPECT_EQ(s.GetLength(), 1);
  EXPECT_EQ(SizeOf(s), 6);
  EXPECT_EQ(Text(s), "a");
  s.AddNum(-10);  // below zero counts as zero
  EXPECT_EQ(s.GetLength(), 0);
  EXPECT_EQ(Text(s), "");
}

TEST(CKAStringSize, AddNumWithoutReallocationKeepsBytes) {
  CKAString s("abc");
  s.AddNum(-2);
  s.AddNum(2);
  EXPECT_EQ(s.GetLength(), 3);
  EXPECT_EQ(std::memcmp(s.GetBuf(), "a\0c\0", 4), 0);
}

TEST(CKAStringAssign, SelfAssignmentEmpties) {
  CKAString s("abc");
  CKAString& alias = s;
  s = alias;
  EXPECT_EQ(Text(s), "");
  EXPECT_EQ(s.GetLength(), 0);
}

TEST(CKAStringAssign, AssignsTextsAndCharacters) {
  CKAString s("xyz");
  s = "hello";
  EXPECT_EQ(Text(s), "hello");
  EXPECT_EQ(s.GetLength(), 5);
  s = kNull;
  EXPECT_EQ(Text(s), "hello");
  s = 'q';
  EXPECT_EQ(Text(s), "q");
  EXPECT_EQ(s.GetLength(), 1);
  s = '\0';
  EXPECT_EQ(Text(s), "");
  EXPECT_EQ(s.GetLength(), 1);
  CKAString other("other");
  s = other;
  EXPECT_EQ(Text(s), "other");
  EXPECT_EQ(s.GetLength(), 5);
}

TEST(CKAStringAssign, AppendsTextsAndCharacters) {
  CKAString s("ab");
  s += "cd";
  s += kNull;
  s += 'e';
  s += CKAString("fg");
  EXPECT_EQ(Text(s), "abcdefg");
  EXPECT_EQ(s.GetLength(), 7);
  EXPECT_EQ(SizeOf(s), 8);
  s += '\0';
  EXPECT_EQ(Text(s), "abcdefg");
  EXPECT_EQ(s.GetLength(), 8);
}

TEST(CKAStringAssign, AppendToItselfDoublesText) {
  CKAString s("abc");
  CKAString& alias = s;
  s += alias;
  EXPECT_EQ(Text(s), "abcabc");
  EXPECT_EQ(s.GetLength(), 6);
  s += s.GetBuf() + 4;
  EXPECT_EQ(Text(s), "abcabcbc");
}

TEST(CKAStringConcat, CharPlusStringDropsTheChar) {
  CKAString ab("ab");
  EXPECT_EQ(Text('x' + ab), "ab");
  EXPECT_EQ(Text(ab + 'x'), "abx");
  EXPECT_EQ(Text(ab + "cd"), "abcd");
  EXPECT_EQ(Text("cd" + ab), "cdab");
  EXPECT_EQ(Text(ab + kNull), "ab");
  EXPECT_EQ(Text(kNull + ab), "ab");
  EXPECT_EQ(Text(ab + ab), "abab");
}

TEST(CKAStringFind, FindsNthNonOverlappingOccurrence) {
  const CKAString s("banana");
  EXPECT_EQ(s.Find("a", 1, 0), 1);
  EXPECT_EQ(s.Find("a", 3, 0), 5);
  EXPECT_EQ(s.Find("a", 4, 0), -2);
  EXPECT_EQ(s.Find("a", 1, 6), -1);
  EXPECT_EQ(s.Find("a", 1, -1), -1);
  EXPECT_EQ(s.Find("ana", 2, 0), -2);
  EXPECT_EQ(s.Find("na", 1, 3), 4);
  EXPECT_EQ(s.Find(nullptr, 1, 0), -1);
  EXPECT_LT(s.Find("a", 0, 0), 0);
  EXPECT_EQ(CKAString().Find("", 1, 0), -1);
  EXPECT_EQ(s.FindNoCase("AN", 2, 0), 3);
  EXPECT_EQ(s.FindNoCase(nullptr, 1, 0), -1);
}

TEST(CKAStringFind, CountsNonOverlappingOccurrences) {
  const CKAString s("aaaa");
  EXPECT_EQ(s.GetStrCount("aa", 0), 2);
  EXPECT_EQ(s.GetStrCount("a", 1), 3);
  EXPECT_EQ(s.GetStrCount(nullptr, 0), 0);
  EXPECT_EQ(s.GetStrCount("", 0), 0);
  EXPECT_EQ(s.GetStrCount("a", 5), 0);
  EXPECT_EQ(s.GetStrCount("a", -1), 0);
  EXPECT_EQ(CKAString("aBab").GetStrCountNoCase("AB", 0), 2);
  EXPECT_EQ(s.GetStrCountNoCase("", 0), 0);
}

TEST(CKAStringEdit, ReplaceFindResumesBehindReplacement) {
  CKAString s("aba");
  EXPECT_EQ(s.ReplaceFind("a", "aa", 0), 2);
  EXPECT_EQ(Text(s), "aabaa");
  EXPECT_EQ(s.GetLength(), 5);
  EXPECT_EQ(s.ReplaceFind("", "x", 0), 0);
  EXPECT_EQ(s.ReplaceFind(nullptr, "x", 0), 0);
  EXPECT_EQ(s.ReplaceFind("a", nullptr, 0), 0);
  EXPECT_EQ(s.ReplaceFind("aa", "", 0), 2);
  EXPECT_EQ(Text(s), "b");
}

TEST(CKAStringEdit, InsertsAndRemoves) {
  CKAString s("abc");
  EXPECT_FALSE(s.RemoveAt(1, 10));
  EXPECT_EQ(Text(s), "abc");
  EXPECT_TRUE(s.RemoveAt(5, 0));
  EXPECT_TRUE(s.AddAt(3, "x"));
  EXPECT_EQ(Text(s), "abcx");
  EXPECT_FALSE(s.AddAt(5, "x"));
  EXPECT_TRUE(s.ReplaceAt(1, 2, "ZZZ"));
  EXPECT_EQ(Text(s), "aZZZx");
  EXPECT_EQ(s.GetLength(), 5);
}

TEST(CKAStringCase, ToReverseSwapsCase) {
  CKAString s("aB1");
  s.ToReverse();
  EXPECT_EQ(Text(s), "Ab1");
}

TEST(CKAStringAccess, ClampsIndexes) {
  const CKAString s("abc");
  EXPECT_EQ(s.GetChar(-3), 'a');
  EXPECT_EQ(s.GetChar(99), 'c');
  EXPECT_EQ(CKAString().GetChar(5), '\0');
}

TEST(CKAStringFormat, FormatsExactFit) {
  CKAString s("keep");
  const char* noFormat = nullptr;
  s.Format(noFormat);
  EXPECT_EQ(Text(s), "keep");
  s.Format("%d-%s", 42, "x");
  EXPECT_EQ(Text(s), "42-x");
  EXPECT_EQ(SizeOf(s), 5);
  EXPECT_EQ(s.GetLength(), 4);
}

TEST(CKAStringFormat, LongOutputIsProducedWhole) {
  const std::string big(5000, 'q');
  CKAString s;
  s.Format("<%s>", big.c_str());
  EXPECT_EQ(Text(s), "<" + big + ">");
  EXPECT_EQ(s.GetLength(), 5002);
  EXPECT_EQ(SizeOf(s), 5003);
}

TEST(CKAStringAssign, AssignKeepsLargerAllocation) {
  CKAString s("abcdef");
  s = "xy";
  EXPECT_EQ(Text(s), "xy");
  EXPECT_EQ(SizeOf(s), 7);  // Empty keeps the allocation; no reallocation for less
  s = "longer text";
  EXPECT_EQ(SizeOf(s), 12);
}

TEST(CKAStringAssign, PointerIntoOwnBufferIsReadAfterEmptying) {
  CKAString s("abcdef");
  s = s.GetBuf() + 2;
  EXPECT_EQ(Text(s), "cdef");
  EXPECT_EQ(s.GetLength(), 4);
  s = s.GetBuf();  // its first byte reads NUL once emptied, like self-assignment
  EXPECT_EQ(Text(s), "");
}

TEST(CKAStringAssign, AppendingRawBufferGrowsCounterByItsCounter) {
  CKAString raw("ab");
  raw.SetSize(10);
  CKAString s("x");
  s += raw;
  EXPECT_EQ(Text(s), "xab");
  EXPECT_EQ(s.GetLength(), 10);  // 1 + 9: the counter, not the text
  CKAString t(raw);
  t += "cd";  // strcat semantics: the text continues at its terminator
  EXPECT_EQ(Text(t), "abcd");
  EXPECT_EQ(t.GetLength(), 11);
}

TEST(CKAStringEdit, GuardsBadPositionsAndAliasing) {
  CKAString s("abc");
  EXPECT_FALSE(s.AddAt(-1, "x"));
  EXPECT_FALSE(s.AddAt(0, nullptr));
  EXPECT_FALSE(s.RemoveAt(-1, 1));
  EXPECT_FALSE(s.RemoveAt(3, 1));
  EXPECT_TRUE(s.RemoveAt(-7, 0));  // count below 1: pos unchecked
  EXPECT_FALSE(s.ReplaceAt(0, 1, nullptr));
  EXPECT_FALSE(s.ReplaceAt(1, 5, "x"));
  EXPECT_EQ(Text(s), "abc");
  EXPECT_TRUE(s.AddAt(1, s.GetBuf()));
  EXPECT_EQ(Text(s), "aabcbc");
  EXPECT_TRUE(s.ReplaceAt(0, 2, s.GetBuf() + 4));
  EXPECT_EQ(Text(s), "bcbcbc");
  EXPECT_TRUE(s.RemoveAt(0, 6));
  EXPECT_EQ(Text(s), "");
  EXPECT_EQ(s.GetLength(), 0);
}

TEST(CKAStringEdit, ReplaceFindSizesLikeOneAtATime) {
  CKAString grow("a-a-a");
  EXPECT_EQ(grow.ReplaceFind("-", "<->", 7), 2);
  EXPECT_EQ(Text(grow), "a<->a<->a");
  EXPECT_EQ(SizeOf(grow), 10);  // exact fit once the text outgrows the buffer

  CKAString shrink("a--b--c");
  EXPECT_EQ(shrink.ReplaceFind("--", "+", 0), 2);
  EXPECT_EQ(Text(shrink), "a+b+c");
  EXPECT_EQ(SizeOf(shrink), 8);  // no reallocation when the result fits

  CKAString raw("xax");
  raw.SetSize(6);  // "xax" and two zero bytes counted by the length
  EXPECT_EQ(raw.ReplaceFind("a", "AAA", 0), 1);
  EXPECT_EQ(raw.GetLength(), 7);
  EXPECT_EQ(std::memcmp(raw.GetBuf(), "xAAAx\0\0\0", 8), 0);

  CKAString self("ab");
  EXPECT_EQ(self.ReplaceFind("b", self.GetBuf(), 0), 1);
  EXPECT_EQ(Text(self), "aab");
  EXPECT_EQ(CKAString("abc").ReplaceFind("z", "y", 0), 0);
}

TEST(CKAStringFind, SearchesTextFromStartAndCountsNoCase) {
  const CKAString s("abcABCabc");
  EXPECT_EQ(s.Find("abc", 1, 1), 6);
  EXPECT_EQ(s.Find("", 3, 4), 4);
  EXPECT_EQ(s.FindNoCase("abc", 2, 0), 3);
  EXPECT_EQ(s.FindNoCase("ABC", 3, 0), 6);
  EXPECT_EQ(s.FindNoCase("x", 1, 0), -2);
  EXPECT_EQ(s.FindNoCase("a", 1, 9), -1);
  EXPECT_EQ(s.GetStrCount("abc", 0), 2);
  EXPECT_EQ(s.GetStrCount("abc", 9), 0);
  EXPECT_EQ(s.GetStrCountNoCase("abc", 0), 3);
  EXPECT_EQ(s.GetStrCountNoCase(nullptr, 0), 0);
  EXPECT_EQ(s.GetStrCountNoCase("a", 10), 0);
}

TEST(CKAStringCase, LoopsRunToTheLengthCounter) {
  CKAString s("abc");
  s.AddNum(-2);  // "a", with "c" left behind the terminator
  s.AddNum(2);   // counter 3 again without reallocation: "a\0c"
  s.ToUpper();
  EXPECT_EQ(std::memcmp(s.GetBuf(), "A\0C", 4), 0);
  s.ToLower();
  EXPECT_EQ(std::memcmp(s.GetBuf(), "a\0c", 4), 0);
  CKAString mixed("Hello, World 42");
  mixed.ToReverse();
  EXPECT_EQ(Text(mixed), "hELLO, wORLD 42");
}

TEST(CKAStringConvert, ParsesNumbers) {
  struct Case {
    const char* text;
    int asInt;
    double asReal;
  };
  const Case cases[] = {
      {"42", 42, 42.0}, {"  -17x", -17, -17.0}, {"3.75", 3, 3.75},
      {"abc", 0, 0.0},  {"", 0, 0.0},           {"1e3", 1, 1000.0},
  };
  for (const Case& c : cases) {
    CKAString s(c.text);
    EXPECT_EQ(s.ToInt(), c.asInt) << c.text;
    EXPECT_EQ(s.ToReal(), c.asReal) << c.text;
  }
}

TEST(CKAStringSub, EdgeCasesGiveEmptyOrClampedStrings) {
  const CKAString s("abcdef");
  struct Case {
    CKAString got;
    const char* expected;
  };
  const Case cases[] = {
      {s.Left(0), ""},
      {s.Left(-2), ""},
      {s.Left(99), "abcdef"},
      {s.Right(0), ""},
      {s.Right(1), "f"},
      {s.Mid(-1, 2), ""},
      {s.Mid(0, 0), ""},
      {s.Mid(6, -1), ""},
      {s.Mid(2, 2), "cd"},
      {CKAString("abc").Mid(1, -1), "bc"},
      {CKAString("abc").Mid(3, 1), ""},
      {CKAString("abc").Right(5), "abc"},
      {s.Mid(4, 99), "ef"},
      {s.Mid(0), "abcdef"},
      {CKAString().Left(3), ""},
      {CKAString().Right(3), ""},
      {CKAString().Mid(0, 1), ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Text(c.got), c.expected);
    EXPECT_EQ(c.got.GetLength(), static_cast<int>(std::strlen(c.expected)));
    EXPECT_EQ(SizeOf(c.got), c.got.GetLength() + 1);
  }
  CKAString raw("ab");
  raw.SetSize(6);  // substrings stop at the text's terminator
  EXPECT_EQ(Text(raw.Left(4)), "ab");
  EXPECT_EQ(raw.Left(4).GetLength(), 2);
  EXPECT_EQ(raw.Right(2).GetLength(), 0);
}

TEST(CKAStringTrim, TrimLeftAndRightAlone) {
  struct Case {
    const char* text;
    const char* left;
    const char* right;
    const char* all;
  };
  const Case cases[] = {
      {"", "", "", ""},
      {" ", "", " ", ""},
      {"   ", "", " ", ""},  // TrimRight never examines index 0
      {"\t a b \r\n", "a b \r\n", "\t a b", "a b"},
      {"\va\v", "\va\v", "\va\v", "\va\v"},  // vertical tab is no blank
      {"x", "x", "x", "x"},
      {"  x  ", "x  ", "  x", "x"},
      {"\r\n\tx", "x", "\r\n\tx", "x"},
      {"x \t\r\n", "x \t\r\n", "x", "x"},
      {"\fx\f", "\fx\f", "\fx\f", "\fx\f"},
      {" a  b ", "a  b ", " a  b", "a  b"},
  };
  for (const Case& c : cases) {
    CKAString left(c.text), right(c.text), all(c.text);
    left.TrimLeft();
    right.TrimRight();
    all.TrimAll();
    EXPECT_EQ(Text(left), c.left) << '"' << c.text << '"';
    EXPECT_EQ(Text(right), c.right) << '"' << c.text << '"';
    EXPECT_EQ(Text(all), c.all) << '"' << c.text << '"';
    EXPECT_EQ(all.GetLength(), static_cast<int>(std::strlen(c.all)));
  }
}

TEST(CKAStringAccess, ReferenceWritesTheClampedByte) {
  CKAString s("abc");
  s[1] = 'X';
  s.GetChar(-5) = 'Y';
  s[100] = 'Z';
  EXPECT_EQ(Text(s), "YXZ");
  const CKAString& view = s;
  EXPECT_EQ(view[1], 'X');
  EXPECT_EQ(view[-1], 'Y');
  EXPECT_EQ(view.GetChar(3), 'Z');
  CKAString empty;
  EXPECT_EQ(empty[7], '\0');
  EXPECT_EQ(&empty.GetChar(7), empty.GetBuf());
}

TEST(CKAStringCompare, AllOperatorsFollowStrcmp) {
  struct Case {
    const char* left;
    const char* right;  // null: the null right operand
    bool eq, ne, lt, le, gt, ge;
  };
  const Case cases[] = {
      {"abc", "abc", true, false, false, true, false, true},
      {"abc", "abd", false, true, true, true, false, false},
      {"abd", "abc", false, true, false, false, true, true},
      {"ab", "abc", false, true, true, true, false, false},
      {"B", "a", false, true, true, true, false, false},  // case-sensitive byte order
      {"", "", true, false, false, true, false, true},
      {"\xe9", "a", false, true, false, false, true, true},  // bytes compare unsigned
      {"", nullptr, false, true, false, false, true, true},
  };
  for (const Case& c : cases) {
    CKAString s(c.left);
    EXPECT_EQ(s == c.right, c.eq) << c.left;
    EXPECT_EQ(s != c.right, c.ne) << c.left;
    EXPECT_EQ(s < c.right, c.lt) << c.left;
    EXPECT_EQ(s <= c.right, c.le) << c.left;
    EXPECT_EQ(s > c.right, c.gt) << c.left;
    EXPECT_EQ(s >= c.right, c.ge) << c.left;
    if (c.right == nullptr) continue;
    const CKAString other(c.right);
    EXPECT_EQ(s == other, c.eq) << c.left;
    EXPECT_EQ(s != other, c.ne) << c.left;
    EXPECT_EQ(s < other, c.lt) << c.left;
    EXPECT_EQ(s <= other, c.le) << c.left;
    EXPECT_EQ(s > other, c.gt) << c.left;
    EXPECT_EQ(s >= other, c.ge) << c.left;
  }
}

TEST(CKAStringSplit, MatchesWholeSeparator) {
  struct Case {
    const char* text;
    const char* sep;
    std::vector<std::string> fields;
  };
  const Case cases[] = {
      {" a, ,b,, c ", ",", {"a", "b", "c"}},
      {"", ",", {}},
      {"a b", "", {"a", "b"}},
      {"a::b:c::", "::", {"a", "b:c"}},
      {"::a", "::", {"a"}},
      {"no separator", ",", {"no separator"}},
      {"  \t ", ",", {}},
      {",,,", ",", {}},
      {"x", "", {"x"}},
      {" a\tb ", "", {"a", "b"}},
      {"a AND b and c", "AND", {"a", "b and c"}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Texts(CKAString(c.text).split(c.sep)), c.fields) << c.text;
  }
}

TEST(CKAStringFormat, ArgumentsMayPointIntoTheString) {
  CKAString s("abc");
  s.Format("[%s|%s]", s.GetBuf(), s.GetBuf());
  EXPECT_EQ(Text(s), "[abc|abc]");
}

TEST(CKAStringFormat, BoundaryLengthsAndEmbeddedNul) {
  for (int n : {2046, 2047, 2048, 2049}) {
    CKAString s;
    s.Format("%s", std::string(static_cast<size_t>(n), 'k').c_str());
    EXPECT_EQ(s.GetLength(), n);
    EXPECT_EQ(SizeOf(s), n + 1);
    EXPECT_EQ(s.GetBuf()[n - 1], 'k');
  }
  CKAString nul;
  nul.Format("ab%cde", 0);  // the text ends at the first NUL
  EXPECT_EQ(Text(nul), "ab");
  EXPECT_EQ(nul.GetLength(), 2);
  EXPECT_EQ(SizeOf(nul), 3);
}
