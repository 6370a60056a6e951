#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>
#include <vector>

#include "zu_array.h"
#include "zu_string.h"

namespace {

struct SPoint {
  int x;
  int y;
};

// The documented member layout: block pointer, count, size, growth percentage.
struct SArrayLayout {
  int* pData;
  int nCount;
  int nSize;
  int nGrowBy;
};
static_assert(sizeof(CKAArray<int>) == sizeof(SArrayLayout), "CKAArray layout");
static_assert(offsetof(CKAArray<int>, m_nCount) == offsetof(SArrayLayout, nCount), "m_nCount");
static_assert(offsetof(CKAArray<int>, m_nSize) == offsetof(SArrayLayout, nSize), "m_nSize");
static_assert(offsetof(CKAArray<int>, m_nGrowBy) == offsetof(SArrayLayout, nGrowBy), "m_nGrowBy");

std::vector<int> Contents(const CKAArray<int>& array) {
  return std::vector<int>(array.m_pData, array.m_pData + array.m_nCount);
}

CKAArray<int> Filled(std::vector<int> values) {
  CKAArray<int> array;
  for (int v : values) array.AddBefore(array.m_nCount, v);
  return array;
}

TEST(CKAArray, StartsEmptyWithGrowthOfFiftyPercent) {
  CKAArray<int> array;
  EXPECT_EQ(array.m_pData, nullptr);
  EXPECT_EQ(array.m_nCount, 0);
  EXPECT_EQ(array.m_nSize, 0);
  EXPECT_EQ(array.m_nGrowBy, 50);
}

TEST(CKAArray, AppendingGrowsOneSlotAtATimeThenByHalf) {
  CKAArray<int> array;
  std::vector<int> sizes{array.m_nSize};
  for (int i = 0; i < 28; ++i) {
    ASSERT_TRUE(array.AddBefore(i, i));
    if (array.m_nSize != sizes.back()) sizes.push_back(array.m_nSize);
  }
  EXPECT_EQ(sizes, (std::vector<int>{0, 1, 2, 3, 4, 6, 9, 13, 19, 28}));
  EXPECT_EQ(array.m_nCount, 28);
  EXPECT_EQ(array[27], 27);
}

TEST(CKAArray, FiveAppendsLeaveSizeSixCountFive) {
  CKAArray<int> array = Filled({1, 2, 3, 4, 5});
  EXPECT_EQ(array.m_nSize, 6);
  EXPECT_EQ(array.m_nCount, 5);
}

TEST(CKAArray, TinyGrowthPercentageStillGrows) {
  CKAArray<int> array = Filled({1, 2, 3});
  array.m_nGrowBy = 0;
  ASSERT_TRUE(array.AddBefore(3, 4));
  EXPECT_EQ(array.m_nSize, 4);
  EXPECT_EQ(Contents(array), (std::vector<int>{1, 2, 3, 4}));
}

TEST(CKAArray, AddBeforeInsertsAtFrontMiddleAndEnd) {
  CKAArray<int> array = Filled({2, 4});
  EXPECT_TRUE(array.AddBefore(0, 1));
  EXPECT_TRUE(array.AddBefore(2, 3));
  EXPECT_TRUE(array.AddBefore(4, 5));
  EXPECT_EQ(Contents(array), (std::vector<int>{1, 2, 3, 4, 5}));
}

TEST(CKAArray, AddBeforeOutsideRangeChangesNothing) {
  CKAArray<int> array = Filled({7, 8});
  const int size = array.m_nSize;
  EXPECT_FALSE(array.AddBefore(3, 9));
  EXPECT_FALSE(array.AddBefore(-1, 9));
  EXPECT_EQ(Contents(array), (std::vector<int>{7, 8}));
  EXPECT_EQ(array.m_nSize, size);
}

TEST(CKAArray, AddBeforeCopiesAnElementOfTheSameArrayBeforeGrowing) {
  CKAArray<int> array = Filled({10, 20, 30, 40});  // full: size 4
  ASSERT_EQ(array.m_nSize, 4);
  EXPECT_TRUE(array.AddBefore(0, array[3]));
  EXPECT_TRUE(array.AddBefore(1, array[4]));  // slot that is shifted by the insertion
  EXPECT_EQ(Contents(array), (std::vector<int>{40, 40, 10, 20, 30, 40}));
}

TEST(CKAArray, RemoveAtShiftsDownAndKeepsVacatedSlot) {
  CKAArray<int> array = Filled({1, 2, 3, 4});
  EXPECT_TRUE(array.RemoveAt(1));
  EXPECT_EQ(Contents(array), (std::vector<int>{1, 3, 4}));
  EXPECT_EQ(array.m_pData[3], 4);  // the former last element stays in the vacated slot
  EXPECT_TRUE(array.RemoveAt(2));
  EXPECT_TRUE(array.RemoveAt(0));
  EXPECT_EQ(Contents(array), (std::vector<int>{3}));
  EXPECT_EQ(array.m_nSize, 4);
}

TEST(CKAArray, RemoveAtRefusesBadPositions) {
  CKAArray<int> empty;
  EXPECT_FALSE(empty.RemoveAt(0));
  CKAArray<int> array = Filled({5});
  EXPECT_FALSE(array.RemoveAt(1));
  EXPECT_FALSE(array.RemoveAt(-1));
  EXPECT_TRUE(array.RemoveAt(0));
  EXPECT_EQ(array.m_nCount, 0);
  EXPECT_EQ(array.m_nSize, 1);
}

TEST(CKAArray, AddSizeGrowsAndCopiesEverySlot) {
  CKAArray<int> array = Filled({1, 2, 3, 4});
  array.RemoveAt(3);  // slot 3 still holds 4
  EXPECT_TRUE(array.AddSize(10));
  EXPECT_EQ(array.m_nSize, 14);
  EXPECT_EQ(array.m_nCount, 3);
  EXPECT_EQ(array.m_pData[3], 4);
  EXPECT_TRUE(array.AddSize(0));
  EXPECT_EQ(array.m_nSize, 14);
}

TEST(CKAArray, AddSizeShrinksAndLowersCount) {
  CKAArray<int> array = Filled({1, 2, 3, 4, 5});
  EXPECT_TRUE(array.AddSize(-4));
  EXPECT_EQ(array.m_nSize, 2);
  EXPECT_EQ(Contents(array), (std::vector<int>{1, 2}));
}

TEST(CKAArray, AddSizeToZeroFreesAndArrayIsUsableAgain) {
  CKAArray<int> array = Filled({1, 2, 3});
  EXPECT_TRUE(array.AddSize(-array.m_nSize));
  EXPECT_EQ(array.m_pData, nullptr);
  EXPECT_EQ(array.m_nSize, 0);
  EXPECT_EQ(array.m_nCount, 0);
  EXPECT_TRUE(array.AddBefore(0, 9));
  EXPECT_EQ(Contents(array), (std::vector<int>{9}));
  EXPECT_TRUE(array.AddSize(-100));
  EXPECT_EQ(array.m_pData, nullptr);
}

TEST(CKAArray, AddSizeBeyondIntRangeThrowsBadArrayLength) {
  CKAArray<int> array = Filled({1});
  EXPECT_THROW(array.AddSize(INT_MAX), std::bad_array_new_length);
  EXPECT_EQ(Contents(array), (std::vector<int>{1}));
}

TEST(CKAArray, IndexOutsideRangeYieldsSlotZero) {
  CKAArray<int> array = Filled({11, 22, 33});
  const CKAArray<int>& view = array;
  struct {
    int index;
    int expected;
  } const cases[] = {{0, 11}, {2, 33}, {3, 11}, {-1, 11}, {1000, 11}, {INT_MIN, 11}};
  for (const auto& c : cases) {
    EXPECT_EQ(array[c.index], c.expected) << c.index;
    EXPECT_EQ(view[c.index], c.expected) << c.index;
  }
  array[-5] = 44;  // writes slot 0
  EXPECT_EQ(array.m_pData[0], 44);
}

TEST(CKAArray, IndexOnArrayWithoutSlotsGivesDetachedDefault) {
  CKAArray<SPoint> array;
  array[0].x = 5;
  EXPECT_EQ(array[0].x, 0);
  EXPECT_EQ(array[3].y, 0);
  EXPECT_EQ(array.m_pData, nullptr);
}

TEST(CKAArray, CopiesAreDeepAndIndependent) {
  CKAArray<SPoint> array;
  array.AddBefore(0, SPoint{1, 2});
  array.AddBefore(1, SPoint{3, 4});
  array.m_nGrowBy = 70;
  CKAArray<SPoint> copy(array);
  copy[0].x = 100;
  EXPECT_EQ(array[0].x, 1);
  EXPECT_EQ(copy.m_nCount, 2);
  EXPECT_EQ(copy.m_nSize, array.m_nSize);
  EXPECT_EQ(copy.m_nGrowBy, 70);
  EXPECT_EQ(copy[1].y, 4);

  CKAArray<SPoint> assigned;
  assigned = array;
  assigned = assigned;
  EXPECT_EQ(assigned[1].x, 3);
  EXPECT_NE(assigned.m_pData, array.m_pData);
  CKAArray<SPoint> empty;
  assigned = empty;
  EXPECT_EQ(assigned.m_pData, nullptr);
  EXPECT_EQ(assigned.m_nCount, 0);
}

std::vector<std::string> Texts(const CKAArray<CKAString>& array, int count) {
  std::vector<std::string> texts;
  for (int i = 0; i < count; ++i) texts.push_back(array.m_pData[i].GetBuf());
  return texts;
}

TEST(CKAArrayOfCKAString, InsertsRemovesAndKeepsVacatedCopy) {
  CKAArray<CKAString> lines;
  for (const char* text : {"alpha", "beta", "gamma"}) lines.AddBefore(lines.m_nCount, text);
  EXPECT_TRUE(lines.AddBefore(1, CKAString("inserted")));
  EXPECT_EQ(Texts(lines, lines.m_nCount),
            (std::vector<std::string>{"alpha", "inserted", "beta", "gamma"}));
  EXPECT_TRUE(lines.RemoveAt(0));
  EXPECT_EQ(Texts(lines, 4), (std::vector<std::string>{"inserted", "beta", "gamma", "gamma"}));
  EXPECT_STREQ(lines[7].GetBuf(), "inserted");
  EXPECT_STREQ(lines[-1].GetBuf(), "inserted");
}

TEST(CKAArrayOfCKAString, ElementOfTheSameArraySurvivesGrowthAndShift) {
  CKAArray<CKAString> lines;
  for (const char* text : {"a", "b", "c", "d"}) lines.AddBefore(lines.m_nCount, text);
  ASSERT_EQ(lines.m_nSize, lines.m_nCount);
  EXPECT_TRUE(lines.AddBefore(0, lines[3]));
  EXPECT_TRUE(lines.AddBefore(2, lines[2]));  // the source slot itself is shifted
  EXPECT_EQ(Texts(lines, lines.m_nCount), (std::vector<std::string>{"d", "a", "b", "b", "c", "d"}));
}

TEST(CKAArrayOfCKAString, ResizingAndCopyingKeepTexts) {
  CKAArray<CKAString> lines;
  for (const char* text : {"one", "two", "three"}) lines.AddBefore(lines.m_nCount, text);
  lines.AddSize(20);
  EXPECT_EQ(Texts(lines, 3), (std::vector<std::string>{"one", "two", "three"}));
  CKAArray<CKAString> copy(lines);
  copy[0] = "changed";
  EXPECT_STREQ(lines[0].GetBuf(), "one");
  lines = copy;
  EXPECT_STREQ(lines[0].GetBuf(), "changed");
  lines.AddSize(2 - lines.m_nSize);
  EXPECT_EQ(Texts(lines, lines.m_nCount), (std::vector<std::string>{"changed", "two"}));
  CKAArray<CKAString> none;
  EXPECT_STREQ(none[0].GetBuf(), "");
}

}  // namespace
