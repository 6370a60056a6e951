#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "zu_idstr.h"

namespace {

// "id text;" of the entry at each index.
template <class Table>
std::string ByIndex(Table& t, std::initializer_list<int> indexes) {
  std::string out;
  for (int i : indexes) out += std::to_string(t.GetID(i)) + " " + t.GetStringByIndex(i) + ";";
  return out;
}

}  // namespace

// An id keeps its first text whatever bReplace says; an index outside the table selects entry
// 0, and an empty table gives 0 and "".
TEST(CKAIDStr, RefusesDuplicateIdsAndTakesEntryZeroOutsideTheTable) {
  CKAIDStr one(0);  // no slots, one bucket
  CKAID2Str two(2);
  EXPECT_EQ(ByIndex(one, {0, -1}) + ByIndex(two, {0}) + std::to_string(two.GetID1(0)),
            "0 ;0 ;0 ;0");
  EXPECT_EQ((std::vector<int>{one.Add(-1, "ten", false), one.Add(20, nullptr, false),
                              one.Add(-1, "x", true), two.Add(10, 11, "ten", false),
                              two.Add(20, 12, "twenty", false), two.Add(10, 13, "x", true)}),
            (std::vector<int>{1, 1, 0, 1, 1, 0}));
  EXPECT_EQ(ByIndex(one, {0, 1, 2, -1, INT_MIN}), "-1 ten;20 ;-1 ten;-1 ten;-1 ten;");
  EXPECT_EQ(ByIndex(two, {1, 2, INT_MAX}) + std::to_string(two.GetID1(-1)),
            "20 twenty;10 ten;10 ten;11");
  EXPECT_TRUE(one.GetStringById(30) == nullptr && two.GetStringById(30) == nullptr);
  EXPECT_STREQ(two.GetStringById(10), "ten");
}

TEST(CKAIDStr, AddMayTakeALookedUpTextAndEmptiedTablesAcceptTheirIdsAgain) {
  CKAIDStr table(4);
  for (int i = 0; i < 100; ++i) table.Add(1000 - 7 * i, std::to_string(i).c_str(), false);
  table.Add(1, "first text", false);  // lookups return the staging record that Add fills
  EXPECT_TRUE(table.Add(2, table.GetStringById(1), false));
  EXPECT_TRUE(table.Add(3, table.GetStringById(1) + 6, false));
  EXPECT_STREQ(table.GetStringById(1000 - 7 * 99), "99");
  EXPECT_EQ(ByIndex(table, {50, 101, 102}), "650 50;2 first text;3 text;");
  CKAIDStr copy(0);
  copy = table;
  table.Empty();
  EXPECT_EQ(ByIndex(table, {0}) + ByIndex(copy, {0}), "0 ;1000 0;");
  EXPECT_TRUE(table.GetStringById(1000) == nullptr && table.Add(1000, "again", false));
  EXPECT_EQ(ByIndex(table, {0}), "1000 again;");
  CKAID2Str two(4);
  two.Add(1, 2, "a", false);
  two.Empty();
  EXPECT_TRUE(two.GetStringById(1) == nullptr && two.Add(1, 3, "b", false) && two.GetID1(0) == 3);
}
