#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <string>

#include "test_util.h"
#include "zu_array.h"
#include "zu_string.h"

namespace {

using zutest::Text;

// "result: elements in use/slots", e.g. "1: 7,8/9"; slots beyond the count are not read.
template <class T>
std::string After(bool result, const CKAArray<T>& a) {
  std::string out = result ? "1: " : "0: ";
  for (int i = 0; i < a.m_nCount; ++i) out += (i ? "," : "") + Text(a.m_pData[i]);
  return out + "/" + std::to_string(a.m_nSize);
}

template <class T>
CKAArray<T> Filled(std::initializer_list<T> values) {
  CKAArray<T> a;
  for (const T& v : values) a.AddBefore(a.m_nCount, v);
  return a;
}

}  // namespace

TEST(CKAArray, GrowsOneSlotAtATimeThenByHalf) {
  CKAArray<int> a;
  EXPECT_EQ(a.m_pData, nullptr);
  EXPECT_EQ(a.m_nGrowBy, 50);
  EXPECT_EQ(After(true, a), "1: /0");
  std::string sizes = "0", five;
  for (int i = 0, last = 0; i < 28; ++i) {
    ASSERT_TRUE(a.AddBefore(i, i));
    if (a.m_nSize != last) sizes += " " + Text(last = a.m_nSize);
    if (i == 4) five = After(true, a);
  }
  EXPECT_EQ(sizes, "0 1 2 3 4 6 9 13 19 28");
  EXPECT_EQ(five, "1: 0,1,2,3,4/6");
  EXPECT_EQ(a[27], 27);
  CKAArray<int> flat = Filled({1, 2, 3});
  flat.m_nGrowBy = 0;  // a step that rounds to nothing still grows by one
  EXPECT_EQ(After(flat.AddBefore(3, 4), flat), "1: 1,2,3,4/4");
}

TEST(CKAArray, AddBeforeAndRemoveAtShiftAndRefuseBadPositions) {
  CKAArray<int> a = Filled({2, 4});
  EXPECT_EQ(After(a.AddBefore(0, 1), a), "1: 1,2,4/3");
  EXPECT_EQ(After(a.AddBefore(2, 3), a), "1: 1,2,3,4/4");
  EXPECT_EQ(After(a.AddBefore(4, 5), a), "1: 1,2,3,4,5/6");
  EXPECT_EQ(After(a.AddBefore(6, 9), a), "0: 1,2,3,4,5/6");
  EXPECT_EQ(After(a.AddBefore(-1, 9), a), "0: 1,2,3,4,5/6");
  EXPECT_EQ(After(a.RemoveAt(1), a), "1: 1,3,4,5/6");
  EXPECT_EQ(a.m_pData[4], 5);  // the vacated slot keeps a copy of the last element
  EXPECT_EQ(After(a.RemoveAt(4), a), "0: 1,3,4,5/6");
  EXPECT_EQ(After(a.RemoveAt(-1), a), "0: 1,3,4,5/6");
  EXPECT_EQ(After(a.RemoveAt(3), a), "1: 1,3,4/6");
  CKAArray<int> one = Filled({5});
  EXPECT_EQ(After(one.RemoveAt(0), one), "1: /1");
  EXPECT_EQ(After(one.RemoveAt(0), one), "0: /1");
  CKAArray<int> full = Filled({10, 20, 30, 40});  // an element of the array itself, on growth
  EXPECT_EQ(After(full.AddBefore(0, full[3]), full), "1: 40,10,20,30,40/6");
  EXPECT_EQ(After(full.AddBefore(1, full[4]), full), "1: 40,40,10,20,30,40/6");
}

TEST(CKAArray, AddSizeCopiesEverySlotShrinksFreesAndThrowsBeyondIntRange) {
  CKAArray<int> a = Filled({1, 2, 3, 4});
  a.RemoveAt(3);  // slot 3 still holds 4
  EXPECT_EQ(After(a.AddSize(10), a), "1: 1,2,3/14");
  EXPECT_EQ(a.m_pData[3], 4);
  EXPECT_EQ(After(a.AddSize(0), a), "1: 1,2,3/14");
  EXPECT_EQ(After(a.AddSize(-12), a), "1: 1,2/2");
  EXPECT_EQ(After(a.AddSize(-2), a), "1: /0");
  EXPECT_EQ(a.m_pData, nullptr);
  EXPECT_EQ(After(a.AddBefore(0, 9), a), "1: 9/1");
  EXPECT_EQ(After(a.AddSize(-100), a), "1: /0");
  EXPECT_EQ(a.m_pData, nullptr);
  CKAArray<int> one = Filled({1});
  EXPECT_THROW(one.AddSize(INT_MAX), std::bad_array_new_length);
  EXPECT_EQ(After(true, one), "1: 1/1");
}

TEST(CKAArray, IndexOutsideRangeYieldsSlotZero) {
  CKAArray<int> a = Filled({11, 22, 33});
  const CKAArray<int>& view = a;
  std::string got;
  for (int i : {0, 2, 3, -1, 1000, INT_MIN}) got += Text(a[i]) + "," + Text(view[i]) + " ";
  EXPECT_EQ(got, "11,11 33,33 11,11 11,11 11,11 11,11 ");
  a[-5] = 44;
  EXPECT_EQ(a.m_pData[0], 44);
  CKAArray<int> none;  // no slot at all: a detached default value, never the null block
  none[0] = 5;
  EXPECT_EQ(none[3], 0);
  EXPECT_EQ(After(true, none), "1: /0");
  EXPECT_EQ(Text(CKAArray<CKAString>()[0]), "");
}

TEST(CKAArray, CopiesAreDeepAndIndependent) {
  CKAArray<int> a = Filled({1, 2});
  a.m_nGrowBy = 70;
  CKAArray<int> copy(a);
  copy[0] = 100;
  EXPECT_EQ(After(true, a), "1: 1,2/2");
  EXPECT_EQ(After(true, copy), "1: 100,2/2");
  EXPECT_EQ(copy.m_nGrowBy, 70);
  CKAArray<int> assigned;
  assigned = a;
  assigned = *&assigned;  // self-assignment, written so compilers do not flag it
  EXPECT_EQ(After(true, assigned), "1: 1,2/2");
  EXPECT_NE(assigned.m_pData, a.m_pData);
  assigned = CKAArray<int>();
  EXPECT_EQ(After(true, assigned), "1: /0");
}

// CKAString elements own heap text: every shift, growth and copy must copy it once (the
// suite runs under AddressSanitizer).
TEST(CKAArrayOfCKAString, ShiftsGrowsAndCopiesTexts) {
  CKAArray<CKAString> lines = Filled<CKAString>({"a", "b", "c", "d"});
  EXPECT_EQ(After(lines.AddBefore(0, lines[3]), lines), "1: d,a,b,c,d/6");
  EXPECT_EQ(After(lines.AddBefore(2, lines[2]), lines), "1: d,a,b,b,c,d/6");
  EXPECT_EQ(After(lines.RemoveAt(0), lines), "1: a,b,b,c,d/6");
  EXPECT_STREQ(lines.m_pData[5].GetBuf(), "d");
  EXPECT_STREQ(lines[7].GetBuf(), "a");
  lines.AddSize(20);
  EXPECT_EQ(After(true, lines), "1: a,b,b,c,d/26");
  CKAArray<CKAString> copy(lines);
  copy[0] = "changed";
  EXPECT_STREQ(lines[0].GetBuf(), "a");
  lines = copy;
  lines.AddSize(2 - lines.m_nSize);
  EXPECT_EQ(After(true, lines), "1: changed,b/2");
}
