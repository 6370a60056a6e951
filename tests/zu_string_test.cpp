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

TEST(CKAStringSub, LeftRightMid) {
  const CKAString s("abc");
  EXPECT_EQ(Text(s.Mid(1, -1)), "bc");
  EXPECT_EQ(Text(s.Mid(3, 1)), "");
  EXPECT_EQ(Text(s.Right(5)), "abc");
  EXPECT_EQ(Text(s.Left(2)), "ab");
  EXPECT_EQ(Text(s.Right(2)), "bc");
}

TEST(CKAStringTrim, TrimsBlanksPeculiarly) {
  CKAString spaces("   ");
  spaces.TrimRight();
  EXPECT_EQ(Text(spaces), " ");
  CKAString all("   ");
  all.TrimAll();
  EXPECT_EQ(Text(all), "");
  CKAString mixed("\t a b \r\n");
  mixed.TrimAll();
  EXPECT_EQ(Text(mixed), "a b");
  CKAString vt("\va\v");
  vt.TrimAll();
  EXPECT_EQ(Text(vt), "\va\v");
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

TEST(CKAStringCompare, NullIsLowerThanEverything) {
  CKAString a("a");
  EXPECT_TRUE(a > kNull);
  EXPECT_FALSE(a == kNull);
  EXPECT_TRUE(a == "a");
  EXPECT_TRUE(a < "b");
}

TEST(CKAStringSplit, DropsEmptyTrimmedFields) {
  EXPECT_EQ(Texts(CKAString(" a, ,b,, c ").split(",")), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_TRUE(CKAString("").split(",").empty());
  EXPECT_EQ(Texts(CKAString("a b").split("")), (std::vector<std::string>{"a", "b"}));
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
