#include <gtest/gtest.h>

#include <string>

#include "zu_stack.h"
#include "zu_string.h"

// CKAString elements own heap text: each push and pop copies it once (run under ASan). Below
// capacity 1 there is no full test and the block grows, also while its own element is pushed.
TEST(CKAStack, RefusesWhenFullAndGrowsWithoutCapacity) {
  const std::string unlimited = "20: 20 19 18 1 16 15 14 13 12 11 10 1 8 7 6 1 4 1 1 1 a";
  for (int capacity : {2, 0, -5}) {  // pushes that succeed: popped lengths, last text
    CKAStack<CKAString> stack(capacity);
    int pushed = 0;
    for (int i = 0; i < 20; ++i) {
      const bool moves = i > 0 && (i & (i - 1)) == 0;  // a growing block moves at 1, 2, 4, 8, 16
      pushed += stack.Push(moves ? stack.m_pData[0] : CKAString('a', i + 1));
    }
    CKAString item;  // pops into item until the stack is empty, which leaves it
    std::string popped;
    while (stack.Pop(item)) popped += std::to_string(item.GetLength()) + " ";
    EXPECT_EQ(std::to_string(pushed) + ": " + popped + item.GetBuf(),
              capacity == 2 ? "2: 1 1 a" : unlimited);
  }
}
