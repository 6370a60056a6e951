#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "zu_stack.h"
#include "zu_string.h"

// CKAString elements own heap text: each push and pop copies it once (run under ASan). Below
// capacity 1 there is no full test and the block grows, also while its own element is pushed.
TEST(CKAStack, RefusesWhenFullAndGrowsWithoutCapacity) {
  const std::string unlimited = "20: 20 19 18 1 16 15 14 13 12 11 10 1 8 7 6 1 4 1 1 1 a";
  const std::pair<int, std::string> cases[] = {{2, "2: 1 1 a"}, {0, unlimited}, {-5, unlimited}};
  for (const auto& c : cases) {  // pushes that succeed: lengths of the popped texts, last text
    CKAStack<CKAString> stack(c.first);
    int pushed = 0;
    for (int i = 0; i < 20; ++i) {
      const bool moves = i > 0 && (i & (i - 1)) == 0;  // a growing block moves at 1, 2, 4, 8, 16
      pushed += stack.Push(moves ? stack.m_pData[0] : CKAString('a', i + 1));
    }
    CKAString item;
    std::string popped;
    while (stack.Pop(item)) popped += std::to_string(item.GetLength()) + " ";
    EXPECT_EQ(std::to_string(pushed) + ": " + popped + item.GetBuf(), c.second) << c.first;
  }
}
