#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "zu_stack.h"
#include "zu_string.h"

namespace {

struct SRecord {
  int n;
  double d;
};

// The documented member layout: block pointer, capacity, count, top index.
struct SStackLayout {
  double* pData;
  int nMaxSize;
  int nCount;
  int nTop;
};
static_assert(sizeof(CKAStack<double>) == sizeof(SStackLayout), "CKAStack layout");
static_assert(offsetof(CKAStack<double>, m_nMaxSize) == offsetof(SStackLayout, nMaxSize), "");
static_assert(offsetof(CKAStack<double>, m_nTop) == offsetof(SStackLayout, nTop), "m_nTop");
static_assert(!std::is_copy_constructible<CKAStack<int>>::value, "stack copy is deleted");
static_assert(!std::is_copy_assignable<CKAStack<int>>::value, "stack assignment is deleted");

TEST(CKAStack, ConstructionAllocatesTheCapacity) {
  CKAStack<double> stack(128);
  EXPECT_NE(stack.m_pData, nullptr);
  EXPECT_EQ(stack.m_nMaxSize, 128);
  EXPECT_EQ(stack.m_nCount, 0);
  EXPECT_EQ(stack.m_nTop, -1);
}

TEST(CKAStack, FullStackRefusesAndPopsLastInFirstOut) {
  CKAStack<int> stack(2);
  EXPECT_TRUE(stack.Push(1));
  EXPECT_TRUE(stack.Push(2));
  EXPECT_FALSE(stack.Push(3));
  EXPECT_EQ(stack.m_nCount, 2);
  EXPECT_EQ(stack.m_nTop, 1);
  int value = 0;
  EXPECT_TRUE(stack.Pop(value));
  EXPECT_EQ(value, 2);
  EXPECT_TRUE(stack.Pop(value));
  EXPECT_EQ(value, 1);
  value = 77;
  EXPECT_FALSE(stack.Pop(value));
  EXPECT_EQ(value, 77);
  EXPECT_EQ(stack.m_nTop, -1);
  EXPECT_EQ(stack.m_nCount, 0);
}

TEST(CKAStack, PopAfterRefusedPushStillYieldsStoredTop) {
  CKAStack<SRecord> stack(1);
  EXPECT_TRUE(stack.Push(SRecord{1, 1.5}));
  EXPECT_FALSE(stack.Push(SRecord{2, 2.5}));
  SRecord record{0, 0};
  EXPECT_TRUE(stack.Pop(record));
  EXPECT_EQ(record.n, 1);
  EXPECT_EQ(record.d, 1.5);
  EXPECT_TRUE(stack.Push(SRecord{3, 3.5}));
}

TEST(CKAStack, CapacityBelowOneHasNoFullTest) {
  for (int capacity : {0, -5}) {
    CKAStack<int> stack(capacity);
    EXPECT_EQ(stack.m_nMaxSize, capacity);
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(stack.Push(i));
    int value = -1;
    for (int i = 999; i >= 500; --i) {
      ASSERT_TRUE(stack.Pop(value));
      ASSERT_EQ(value, i);
    }
    for (int i = 500; i < 1100; ++i) ASSERT_TRUE(stack.Push(i));
    EXPECT_TRUE(stack.Push(stack.m_pData[stack.m_nTop]));  // pushes the top again
    EXPECT_EQ(stack.m_nCount, 1101);
    ASSERT_TRUE(stack.Pop(value));
    EXPECT_EQ(value, 1099);
    for (int i = 1099; i >= 0; --i) {
      ASSERT_TRUE(stack.Pop(value));
      ASSERT_EQ(value, i);
    }
    EXPECT_FALSE(stack.Pop(value));
  }
}

}  // namespace

// Stacks of CKAString own heap text per element: pushes, pops, the refused push of a full
// stack and the growth of a stack without capacity must copy and free every text once
// (the suite runs under valgrind and AddressSanitizer).
TEST(CKAStackOfCKAString, FixedCapacityCopiesAndRefusesWhenFull) {
  CKAStack<CKAString> stack(3);
  for (const char* text : {"one", "two", "three"}) EXPECT_TRUE(stack.Push(CKAString(text)));
  EXPECT_FALSE(stack.Push(CKAString("four")));
  CKAString item("untouched");
  for (const char* text : {"three", "two", "one"}) {
    ASSERT_TRUE(stack.Pop(item));
    EXPECT_STREQ(item.GetBuf(), text);
  }
  EXPECT_FALSE(stack.Pop(item));
  EXPECT_STREQ(item.GetBuf(), "one");
}

TEST(CKAStackOfCKAString, GrowingStackKeepsTextsEvenWhenPushingItsOwnElement) {
  CKAStack<CKAString> stack(0);
  for (int i = 0; i < 20; ++i) {
    // At 1, 2, 4, 8 and 16 elements the push moves to a new block while the pushed item
    // still lives in the old one.
    if (i > 0 && (i & (i - 1)) == 0) {
      ASSERT_TRUE(stack.Push(stack.m_pData[0]));
    } else {
      ASSERT_TRUE(stack.Push(CKAString('a', i + 1)));
    }
  }
  CKAString item;
  for (int i = 19; i >= 0; --i) {
    ASSERT_TRUE(stack.Pop(item));
    const bool copied = i > 0 && (i & (i - 1)) == 0;
    EXPECT_STREQ(item.GetBuf(), copied ? "a" : CKAString('a', i + 1).GetBuf()) << i;
  }
}
