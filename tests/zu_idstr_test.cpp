#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "zu_idstr.h"

// An id keeps its first text whatever bReplace says; any index outside selects entry 0, an empty
// table gives 0 and "". Lookups return the staging record that Add fills.
TEST(CKAIDStr, RefusesDuplicateIdsTakesEntryZeroOutsideAndStartsAfreshWhenEmptied) {
  const auto byIndex = [](auto& t, std::initializer_list<int> indexes) {  // "id text;" each
    std::string out;
    for (int i : indexes) out += std::to_string(t.GetID(i)) + " " + t.GetStringByIndex(i) + ";";
    return out;
  };
  CKAIDStr one(0);  // no slots, one bucket
  CKAID2Str two(2);
  EXPECT_EQ(byIndex(one, {-1}) + byIndex(two, {0}) + std::to_string(two.GetID1(0)), "0 ;0 ;0");
  EXPECT_TRUE(one.Add(-1, "first text", false) && one.Add(20, nullptr, false));
  EXPECT_TRUE(one.Add(2, one.GetStringById(-1), false) && one.Add(3, one.GetStringById(2) + 6, 0));
  EXPECT_TRUE(two.Add(10, 11, "ten", false) && two.Add(20, 12, "twenty", false));
  EXPECT_FALSE(one.Add(-1, "x", true) || two.Add(10, 13, "x", true));
  EXPECT_EQ(byIndex(one, {0, 1, 2, 3, 4, INT_MIN}),
            "-1 first text;20 ;2 first text;3 text;-1 first text;-1 first text;");
  EXPECT_EQ(byIndex(two, {1, 2, -1}) + std::to_string(two.GetID1(-1)),
            "20 twenty;10 ten;10 ten;11");
  CKAIDStr copy(0);
  copy = one;
  one.Empty();
  two.Empty();
  EXPECT_TRUE(one.GetStringById(-1) == nullptr && two.GetStringById(10) == nullptr);
  EXPECT_TRUE(one.Add(-1, "b", false) && two.Add(10, 3, "b", false) && two.GetID1(0) == 3);
  EXPECT_EQ(byIndex(one, {0}) + byIndex(copy, {0}), "-1 b;-1 first text;");
}
