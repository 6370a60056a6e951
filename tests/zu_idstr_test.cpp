#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <string>
#include <type_traits>

#include "zu_idstr.h"

namespace {

// The documented member layout: entries, index, count, staging record.
struct SIDStrLayout {
  CKAArray<CKAIDStr::SIDSTRING> arItems;
  CKAMap<int, int> mapIndex;
  int nNum;
  CKAIDStr::SIDSTRING item;
};
static_assert(sizeof(CKAIDStr) == sizeof(SIDStrLayout), "CKAIDStr layout");
static_assert(offsetof(CKAIDStr, m_nNum) == offsetof(SIDStrLayout, nNum), "m_nNum");
static_assert(offsetof(CKAIDStr, m_item) == offsetof(SIDStrLayout, item), "m_item");
struct SID2StrLayout {
  CKAArray<CKAID2Str::SID2STRING> arItems;
  CKAMap<int, int> mapIndex;
  int nNum;
  CKAID2Str::SID2STRING item;
};
static_assert(sizeof(CKAID2Str) == sizeof(SID2StrLayout), "CKAID2Str layout");
static_assert(offsetof(CKAID2Str, m_item) == offsetof(SID2StrLayout, item), "m_item");
static_assert(std::is_copy_constructible<CKAIDStr>::value, "copyable");

TEST(CKAIDStr, ConstructionReservesSlotsAndBuckets) {
  CKAIDStr table(16);
  EXPECT_EQ(table.m_arItems.m_nSize, 16);
  EXPECT_EQ(table.m_arItems.m_nCount, 0);
  EXPECT_EQ(table.m_arItems.m_nGrowBy, 50);
  EXPECT_EQ(table.m_mapIndex.m_nHashSize, 16u);
  EXPECT_EQ(table.m_nNum, 0);
  EXPECT_EQ(table.GetNum(), 0);
}

TEST(CKAIDStr, DuplicateIdKeepsFirstTextWhateverReplaceSays) {
  CKAIDStr table(8);
  EXPECT_TRUE(table.Add(5, "a", false));
  EXPECT_FALSE(table.Add(5, "b", true));
  EXPECT_FALSE(table.Add(5, "c", false));
  EXPECT_STREQ(table.GetStringById(5), "a");
  EXPECT_EQ(table.GetNum(), 1);
  EXPECT_EQ(table.m_nNum, 1);
}

TEST(CKAIDStr, ByIndexLookupsClampToEntryZero) {
  CKAIDStr table(8);
  table.Add(10, "ten", false);
  table.Add(20, "twenty", false);
  struct {
    int index;
    int id;
    const char* text;
  } const cases[] = {{0, 10, "ten"}, {1, 20, "twenty"}, {2, 10, "ten"},       {5, 10, "ten"},
                     {9, 10, "ten"}, {-1, 10, "ten"},   {INT_MIN, 10, "ten"}, {INT_MAX, 10, "ten"}};
  for (const auto& c : cases) {
    EXPECT_EQ(table.GetID(c.index), c.id) << c.index;
    EXPECT_STREQ(table.GetStringByIndex(c.index), c.text) << c.index;
  }
}

TEST(CKAIDStr, LookupsCopyIntoTheStagingRecord) {
  CKAIDStr table(8);
  table.Add(1, "one", false);
  table.Add(2, "two", false);
  const char* text = table.GetStringById(2);
  EXPECT_EQ(text, table.m_item.strText.GetBuf());
  EXPECT_EQ(table.m_item.nID, 2);
  EXPECT_EQ(table.GetID(0), 1);
  EXPECT_STREQ(table.m_item.strText.GetBuf(), "one");
  EXPECT_EQ(table.GetStringById(99), nullptr);
}

TEST(CKAIDStr, AddAcceptsATextHandedOutByALookup) {
  CKAIDStr table(2);
  table.Add(1, "first text", false);
  EXPECT_TRUE(table.Add(2, table.GetStringById(1), false));
  EXPECT_TRUE(table.Add(3, table.GetStringById(1) + 6, false));
  EXPECT_TRUE(table.Add(4, nullptr, false));
  EXPECT_STREQ(table.GetStringById(2), "first text");
  EXPECT_STREQ(table.GetStringById(3), "text");
  EXPECT_STREQ(table.GetStringById(4), "");
}

TEST(CKAIDStr, EmptyTableByIndexGivesZeroAndEmptyText) {
  CKAIDStr table(4);
  EXPECT_EQ(table.GetID(0), 0);
  EXPECT_STREQ(table.GetStringByIndex(0), "");
  EXPECT_STREQ(table.GetStringByIndex(-3), "");
  CKAIDStr unsized(0);  // no slots at all, one bucket
  EXPECT_EQ(unsized.GetID(2), 0);
  EXPECT_STREQ(unsized.GetStringByIndex(0), "");
  EXPECT_TRUE(unsized.Add(-1, "minus one", false));
  EXPECT_TRUE(unsized.Add(1, "one", false));
  EXPECT_STREQ(unsized.GetStringById(-1), "minus one");
  EXPECT_STREQ(unsized.GetStringByIndex(1), "one");
}

TEST(CKAIDStr, EmptyForgetsIdsKeepsStorageAndAcceptsThemAgain) {
  CKAIDStr table(4);
  for (int id : {1, 2, 3, 4, 5}) table.Add(id, "x", false);
  const int size = table.m_arItems.m_nSize;
  table.Empty();
  EXPECT_EQ(table.GetNum(), 0);
  EXPECT_EQ(table.m_nNum, 0);
  EXPECT_EQ(table.m_arItems.m_nSize, size);
  for (int id : {1, 2, 3, 4, 5}) EXPECT_EQ(table.GetStringById(id), nullptr) << id;
  EXPECT_STREQ(table.GetStringByIndex(0), "");
  EXPECT_TRUE(table.Add(3, "three", false));
  EXPECT_EQ(table.GetID(0), 3);
  EXPECT_STREQ(table.GetStringById(3), "three");
}

TEST(CKAIDStr, HundredEntriesInATableOfFour) {
  CKAIDStr table(4);
  for (int i = 0; i < 100; ++i)
    ASSERT_TRUE(table.Add(1000 - 7 * i, std::to_string(i).c_str(), false));
  EXPECT_EQ(table.GetNum(), 100);
  EXPECT_EQ(table.m_arItems.m_nSize, 141);  // 4, 6, 9, 13, 19, 28, 42, 63, 94, 141
  for (int i = 0; i < 100; ++i) {
    ASSERT_STREQ(table.GetStringById(1000 - 7 * i), std::to_string(i).c_str());
    ASSERT_EQ(table.GetID(i), 1000 - 7 * i);
  }
}

TEST(CKAIDStr, CopiesAreIndependent) {
  CKAIDStr table(4);
  table.Add(1, "one", false);
  CKAIDStr copy(table);
  copy.Add(2, "two", false);
  EXPECT_EQ(table.GetStringById(2), nullptr);
  EXPECT_STREQ(copy.GetStringById(1), "one");
  table = copy;
  EXPECT_STREQ(table.GetStringById(2), "two");
}

TEST(CKAID2Str, OnlyTheFirstIdIsAKey) {
  CKAID2Str table(8);
  EXPECT_TRUE(table.Add(1, 7, "x", false));
  EXPECT_TRUE(table.Add(2, 7, "y", false));
  EXPECT_FALSE(table.Add(1, 8, "z", true));
  EXPECT_EQ(table.GetNum(), 2);
  EXPECT_STREQ(table.GetStringById(1), "x");
  EXPECT_EQ(table.m_item.nID1, 7);
}

TEST(CKAID2Str, ByIndexLookupsClampToEntryZero) {
  CKAID2Str table(2);
  table.Add(10, 11, "ten", false);
  table.Add(20, 21, "twenty", false);
  struct {
    int index;
    int id;
    int id1;
    const char* text;
  } const cases[] = {{0, 10, 11, "ten"},
                     {1, 20, 21, "twenty"},
                     {2, 10, 11, "ten"},
                     {-1, 10, 11, "ten"},
                     {9, 10, 11, "ten"}};
  for (const auto& c : cases) {
    EXPECT_EQ(table.GetID(c.index), c.id) << c.index;
    EXPECT_EQ(table.GetID1(c.index), c.id1) << c.index;
    EXPECT_STREQ(table.GetStringByIndex(c.index), c.text) << c.index;
  }
  EXPECT_EQ(table.GetStringById(30), nullptr);
}

TEST(CKAID2Str, EmptyTableAndEmptyThenReAdd) {
  CKAID2Str table(4);
  EXPECT_EQ(table.GetID(0), 0);
  EXPECT_EQ(table.GetID1(0), 0);
  EXPECT_STREQ(table.GetStringByIndex(0), "");
  table.Add(1, 2, "a", false);
  table.Empty();
  EXPECT_EQ(table.GetNum(), 0);
  EXPECT_EQ(table.GetStringById(1), nullptr);
  EXPECT_EQ(table.GetID1(0), 0);
  EXPECT_TRUE(table.Add(1, 3, "b", false));
  EXPECT_EQ(table.GetID1(0), 3);
}

TEST(CKAID2Str, HundredEntriesInATableOfFour) {
  CKAID2Str table(4);
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(table.Add(-i, i % 3, std::to_string(i).c_str(), false));
  EXPECT_EQ(table.GetNum(), 100);
  EXPECT_EQ(table.m_arItems.m_nSize, 141);
  for (int i = 0; i < 100; ++i) {
    ASSERT_STREQ(table.GetStringById(-i), std::to_string(i).c_str());
    ASSERT_EQ(table.GetID1(i), i % 3);
  }
}

}  // namespace
