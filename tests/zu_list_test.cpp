#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "zu_list.h"
#include "zu_string.h"

namespace {

// The documented member layout: head, tail, count; a node holds prev, next, element.
struct SListLayout {
  void* pHead;
  void* pTail;
  int nCount;
};
struct SNodeLayout {
  void* pPrev;
  void* pNext;
  double data;
};
static_assert(sizeof(CKAList<double>) == sizeof(SListLayout), "CKAList layout");
static_assert(offsetof(CKAList<double>, m_nCount) == offsetof(SListLayout, nCount), "m_nCount");
static_assert(sizeof(CKAList<double>::SListNode) == sizeof(SNodeLayout), "node layout");
static_assert(offsetof(CKAList<double>::SListNode, m_Data) == offsetof(SNodeLayout, data), "");

// Walks the list forwards and backwards and checks that both directions agree.
std::vector<int> Walk(const CKAList<int>& list) {
  std::vector<int> forward, backward;
  for (auto* node = list.m_pHead; node; node = node->m_pNext) forward.push_back(node->m_Data);
  for (auto* node = list.m_pTail; node; node = node->m_pPrev)
    backward.insert(backward.begin(), node->m_Data);
  EXPECT_EQ(forward, backward);
  EXPECT_EQ(static_cast<int>(forward.size()), list.m_nCount);
  return forward;
}

TEST(CKAList, AddTailAndLinkAfterKeepBothDirectionsConsistent) {
  CKAList<int> list;
  EXPECT_EQ(Walk(list), std::vector<int>{});
  auto* two = list.AddTail(2);
  list.AddTail(4);
  list.LinkAfter(two, new CKAList<int>::SListNode(3));
  list.LinkAfter(nullptr, new CKAList<int>::SListNode(1));
  list.LinkAfter(list.m_pTail, new CKAList<int>::SListNode(5));
  EXPECT_EQ(Walk(list), (std::vector<int>{1, 2, 3, 4, 5}));
  EXPECT_EQ(list.m_pHead->m_Data, 1);
  EXPECT_EQ(list.m_pTail->m_Data, 5);
}

TEST(CKAList, EmptyResetsAndListIsReusable) {
  CKAList<int> list;
  for (int i = 0; i < 10; ++i) list.AddTail(i);
  list.Empty();
  EXPECT_EQ(list.m_pHead, nullptr);
  EXPECT_EQ(list.m_pTail, nullptr);
  EXPECT_EQ(list.m_nCount, 0);
  list.AddTail(7);
  EXPECT_EQ(Walk(list), (std::vector<int>{7}));
}

TEST(CKAList, CopiesAreDeep) {
  CKAList<int> list;
  for (int i = 1; i <= 3; ++i) list.AddTail(i);
  CKAList<int> copy(list);
  copy.m_pHead->m_Data = 100;
  EXPECT_EQ(Walk(list), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(Walk(copy), (std::vector<int>{100, 2, 3}));
  copy = list;
  copy = copy;
  EXPECT_EQ(Walk(copy), (std::vector<int>{1, 2, 3}));
  EXPECT_NE(copy.m_pHead, list.m_pHead);
}

}  // namespace

// Lists of CKAString: every node owns a text; copies are deep and emptying frees them all
// (checked for leaks and double frees under valgrind and AddressSanitizer).
TEST(CKAListOfCKAString, CopiesAssignsAndEmptiesOwnedTexts) {
  CKAList<CKAString> list;
  for (int i = 1; i <= 5; ++i) list.AddTail(CKAString('x', i));
  CKAList<CKAString> copy(list);
  copy.m_pHead->m_Data += "!";
  EXPECT_STREQ(list.m_pHead->m_Data.GetBuf(), "x");
  EXPECT_STREQ(copy.m_pHead->m_Data.GetBuf(), "x!");
  CKAList<CKAString>& same = copy;
  copy = same;  // self-assignment keeps the nodes (it must not empty their texts)
  EXPECT_STREQ(copy.m_pHead->m_Data.GetBuf(), "x!");
  copy = list;
  EXPECT_STREQ(copy.m_pTail->m_Data.GetBuf(), "xxxxx");
  EXPECT_EQ(copy.GetCount(), 5);
  list.Empty();
  EXPECT_EQ(list.GetCount(), 0);
  list.AddTail(CKAString("again"));
  EXPECT_STREQ(list.m_pHead->m_Data.GetBuf(), "again");
}
