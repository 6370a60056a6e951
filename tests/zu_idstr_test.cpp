#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "zu_idstr.h"

namespace {

std::string Text(const char* text) {
  return text ? text : "(null)";
}

// "id text" of the entry at each index (id, second id and text for CKAID2Str).
std::string ByIndex(CKAIDStr& t, std::initializer_list<int> indexes) {
  std::string out;
  for (int i : indexes) out += std::to_string(t.GetID(i)) + " " + Text(t.GetStringByIndex(i)) + ";";
  return out;
}
std::string ByIndex(CKAID2Str& t, std::initializer_list<int> indexes) {
  std::string out;
  for (int i : indexes)
    out += std::to_string(t.GetID(i)) + " " + std::to_string(t.GetID1(i)) + " " +
           Text(t.GetStringByIndex(i)) + ";";
  return out;
}

}  // namespace

TEST(CKAIDStr, RefusesDuplicateIdsWhateverReplaceSays) {
  CKAIDStr table(16);
  EXPECT_EQ(table.m_arItems.m_nSize, 16);
  EXPECT_EQ(table.m_arItems.m_nGrowBy, 50);
  EXPECT_EQ(table.m_mapIndex.m_nHashSize, 16u);
  EXPECT_TRUE(table.Add(5, "a", false));
  EXPECT_FALSE(table.Add(5, "b", true));  // bReplace is ignored
  EXPECT_FALSE(table.Add(5, "c", false));
  EXPECT_EQ(Text(table.GetStringById(5)), "a");
  EXPECT_EQ(table.GetNum(), 1);
  EXPECT_EQ(table.m_nNum, 1);
  CKAID2Str two(8);  // only the first id is a key
  EXPECT_TRUE(two.Add(1, 7, "x", false));
  EXPECT_TRUE(two.Add(2, 7, "y", false));
  EXPECT_FALSE(two.Add(1, 8, "z", true));
  EXPECT_EQ(two.GetNum(), 2);
  EXPECT_EQ(Text(two.GetStringById(1)) + Text(two.GetStringById(30)), "x(null)");
  EXPECT_EQ(two.m_item.nID1, 7);
}

TEST(CKAIDStr, ByIndexLookupsTakeEntryZeroOutsideTheTable) {
  CKAIDStr table(8);
  table.Add(10, "ten", false);
  table.Add(20, "twenty", false);
  EXPECT_EQ(ByIndex(table, {0, 1, 2, 5, 9, -1, INT_MIN, INT_MAX}),
            "10 ten;20 twenty;10 ten;10 ten;10 ten;10 ten;10 ten;10 ten;");
  CKAID2Str two(2);
  two.Add(10, 11, "ten", false);
  two.Add(20, 21, "twenty", false);
  EXPECT_EQ(ByIndex(two, {0, 1, 2, -1, 9}),
            "10 11 ten;20 21 twenty;10 11 ten;10 11 ten;10 11 ten;");
}

TEST(CKAIDStr, LookupsCopyIntoTheStagingRecordAndAddMayTakeTheirText) {
  CKAIDStr table(2);
  table.Add(1, "first text", false);
  const char* text = table.GetStringById(1);
  EXPECT_EQ(text, table.m_item.strText.GetBuf());
  EXPECT_EQ(table.m_item.nID, 1);
  EXPECT_EQ(Text(table.GetStringById(99)), "(null)");
  EXPECT_TRUE(table.Add(2, table.GetStringById(1), false));
  EXPECT_TRUE(table.Add(3, table.GetStringById(1) + 6, false));
  EXPECT_TRUE(table.Add(4, nullptr, false));
  EXPECT_EQ(ByIndex(table, {0, 1, 2, 3}), "1 first text;2 first text;3 text;4 ;");
  EXPECT_STREQ(table.m_item.strText.GetBuf(), "");
}

TEST(CKAIDStr, EmptyTablesGiveZeroAndEmptyTextAndAcceptIdsAgain) {
  CKAIDStr table(4);
  EXPECT_EQ(ByIndex(table, {0, -3}), "0 ;0 ;");
  for (int id : {1, 2, 3, 4, 5}) table.Add(id, "x", false);
  const int size = table.m_arItems.m_nSize;
  table.Empty();
  EXPECT_EQ(table.GetNum() + table.m_nNum, 0);
  EXPECT_EQ(table.m_arItems.m_nSize, size);
  for (int id : {1, 2, 3, 4, 5}) EXPECT_EQ(table.GetStringById(id), nullptr) << id;
  EXPECT_EQ(ByIndex(table, {0}), "0 ;");
  EXPECT_TRUE(table.Add(3, "three", false));
  EXPECT_EQ(ByIndex(table, {0}), "3 three;");
  CKAIDStr unsized(0);  // no slots at all, one bucket
  EXPECT_EQ(ByIndex(unsized, {2, 0}), "0 ;0 ;");
  EXPECT_TRUE(unsized.Add(-1, "minus one", false));
  EXPECT_TRUE(unsized.Add(1, "one", false));
  EXPECT_EQ(Text(unsized.GetStringById(-1)), "minus one");
  CKAID2Str two(4);
  EXPECT_EQ(ByIndex(two, {0}), "0 0 ;");
  two.Add(1, 2, "a", false);
  two.Empty();
  EXPECT_EQ(two.GetNum(), 0);
  EXPECT_EQ(two.GetStringById(1), nullptr);
  EXPECT_EQ(ByIndex(two, {0}), "0 0 ;");
  EXPECT_TRUE(two.Add(1, 3, "b", false));
  EXPECT_EQ(ByIndex(two, {0}), "1 3 b;");
}

TEST(CKAIDStr, HundredEntriesInATableOfFour) {
  CKAIDStr one(4);
  CKAID2Str two(4);
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(one.Add(1000 - 7 * i, std::to_string(i).c_str(), false));
    ASSERT_TRUE(two.Add(-i, i % 3, std::to_string(i).c_str(), false));
  }
  EXPECT_EQ(one.m_arItems.m_nSize, 141);  // 4, 6, 9, 13, 19, 28, 42, 63, 94, 141
  EXPECT_EQ(two.m_arItems.m_nSize, 141);
  EXPECT_EQ(one.GetNum() + two.GetNum(), 200);
  for (int i = 0; i < 100; ++i) {
    const std::string n = std::to_string(i);
    ASSERT_EQ(ByIndex(one, {i}), std::to_string(1000 - 7 * i) + " " + n + ";");
    ASSERT_EQ(ByIndex(two, {i}), std::to_string(-i) + " " + std::to_string(i % 3) + " " + n + ";");
    ASSERT_EQ(Text(one.GetStringById(1000 - 7 * i)) + Text(two.GetStringById(-i)), n + n);
  }
}

TEST(CKAIDStr, CopiesAreIndependent) {
  CKAIDStr table(4);
  table.Add(1, "one", false);
  CKAIDStr copy(table);
  copy.Add(2, "two", false);
  EXPECT_EQ(table.GetStringById(2), nullptr);
  EXPECT_EQ(Text(copy.GetStringById(1)), "one");
  table = copy;
  EXPECT_EQ(Text(table.GetStringById(2)), "two");
}
