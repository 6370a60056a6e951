#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <string>

#include "zu_array.h"
#include "zu_string.h"

// Growth by one slot while small, then by half rounded down; an index outside the elements
// gives slot 0, and an array without slots a detached default value.
TEST(CKAArray, GrowsClampsIndexesAndResizesSafely) {
  CKAArray<int> a;
  std::string sizes = std::to_string(a.m_nSize) + " " + std::to_string(a.m_nGrowBy);
  for (int i = 0; i < 28; ++i)
    if (a.AddBefore(i, i + 1) && a.m_nSize == i + 1) sizes += " " + std::to_string(i + 1);
  EXPECT_EQ(sizes, "0 50 1 2 3 4 6 9 13 19 28");
  EXPECT_TRUE(a[27] == 28 && a[28] == 1 && a[-1] == 1 && a[INT_MIN] == 1);
  EXPECT_TRUE(a.RemoveAt(27) && a.AddSize(2));  // growing copies every slot, 27 included
  EXPECT_TRUE(a.m_pData[27] == 28 && a.m_nCount == 27 && a.AddSize(-3));
  a.m_nGrowBy = 0;  // a step that rounds to nothing still grows by one
  EXPECT_TRUE(a.AddBefore(27, 9) && a.m_nSize == 28 && a.AddSize(-26) && a.m_nCount == 2);
  EXPECT_THROW(a.AddSize(INT_MAX), std::bad_array_new_length);
  EXPECT_TRUE(a[1] == 2 && a.AddSize(-100) && !a.m_pData && !a.m_nSize && !a.m_nCount);
  a[0] = 5;
  EXPECT_EQ(a[3], 0);
}

// CKAString elements own heap text (run under ASan), also when inserting one of the array's own.
TEST(CKAArray, InsertsItsOwnElementsRefusesBadPositionsAndCopiesDeeply) {
  CKAArray<CKAString> a, copy;
  for (const char* s : {"a", "b", "c", "d"}) a.AddBefore(a.m_nCount, s);
  EXPECT_TRUE(a.AddBefore(0, a[3]) && a.AddBefore(2, a[2]));
  EXPECT_FALSE(a.AddBefore(7, "x") || a.AddBefore(-1, "x") || a.RemoveAt(6) || a.RemoveAt(-1));
  EXPECT_TRUE(a.RemoveAt(0) && a.m_nCount == 5);
  copy = a;
  copy[0] = "A";
  std::string slots;  // both arrays: the vacated last slot keeps a copy of the last element
  for (int i = 0; i < 6; ++i)
    slots += std::string(a.m_pData[i].GetBuf()) + copy.m_pData[i].GetBuf();
  EXPECT_EQ(slots, "aAbbbbccddd");
}
