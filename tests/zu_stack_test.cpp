#include <gtest/gtest.h>

#include <string>

#include "zu_stack.h"
#include "zu_string.h"

TEST(CKAStack, FullStackRefusesAndPopsLastInFirstOut) {
  CKAStack<double> fresh(128);
  EXPECT_NE(fresh.m_pData, nullptr);
  EXPECT_EQ(fresh.m_nTop, -1);
  EXPECT_EQ(fresh.m_nCount, 0);
  EXPECT_EQ(fresh.m_nMaxSize, 128);
  CKAStack<int> stack(2);
  EXPECT_TRUE(stack.Push(1));
  EXPECT_TRUE(stack.Push(2));
  EXPECT_FALSE(stack.Push(3));
  EXPECT_EQ(stack.m_nCount, 2);
  EXPECT_EQ(stack.m_nTop, 1);
  int value = 0;
  EXPECT_TRUE(stack.Pop(value) && value == 2);
  EXPECT_TRUE(stack.Pop(value) && value == 1);
  value = 77;
  EXPECT_FALSE(stack.Pop(value));
  EXPECT_EQ(value, 77);
  EXPECT_EQ(stack.m_nTop, -1);
  EXPECT_TRUE(stack.Push(3));
}

TEST(CKAStack, CapacityBelowOneHasNoFullTest) {
  for (int capacity : {0, -5}) {
    CKAStack<int> stack(capacity);
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(stack.Push(i));
    int value = -1;
    for (int i = 999; i >= 500; --i) ASSERT_TRUE(stack.Pop(value) && value == i);
    for (int i = 500; i < 1100; ++i) ASSERT_TRUE(stack.Push(i));
    EXPECT_TRUE(stack.Push(stack.m_pData[stack.m_nTop]));  // pushes the top again
    EXPECT_EQ(stack.m_nCount, 1101);
    EXPECT_EQ(stack.m_nMaxSize, capacity);
    ASSERT_TRUE(stack.Pop(value) && value == 1099);
    for (int i = 1099; i >= 0; --i) ASSERT_TRUE(stack.Pop(value) && value == i);
    EXPECT_FALSE(stack.Pop(value));
  }
}

// CKAString elements own heap text: pushes, pops, refused pushes and the growth of a stack
// without capacity must copy and free every text once (checked under AddressSanitizer).
TEST(CKAStackOfCKAString, CopiesTextsEvenWhenPushingItsOwnElementOnGrowth) {
  CKAStack<CKAString> full(2);
  EXPECT_TRUE(full.Push(CKAString("one")));
  EXPECT_TRUE(full.Push(CKAString("two")));
  EXPECT_FALSE(full.Push(CKAString("three")));
  CKAString item("untouched");
  EXPECT_TRUE(full.Pop(item) && item == "two");
  EXPECT_TRUE(full.Pop(item) && item == "one");
  EXPECT_FALSE(full.Pop(item));
  EXPECT_STREQ(item.GetBuf(), "one");
  CKAStack<CKAString> growing(0);
  std::string expected;
  for (int i = 0; i < 20; ++i) {
    const bool moves = i > 0 && (i & (i - 1)) == 0;  // the block moves at 1, 2, 4, 8, 16
    ASSERT_TRUE(growing.Push(moves ? growing.m_pData[0] : CKAString('a', i + 1)));
    expected = (moves ? "a" : std::string(i + 1, 'a')) + " " + expected;
  }
  std::string got;
  while (growing.Pop(item)) got += std::string(item.GetBuf()) + " ";
  EXPECT_EQ(got, expected);
}
