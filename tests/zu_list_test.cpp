#include <gtest/gtest.h>

#include <string>

#include "zu_list.h"
#include "zu_string.h"

namespace {

std::string Text(int v) {
  return std::to_string(v);
}
std::string Text(const CKAString& v) {
  return v.GetBuf();
}

// The elements head to tail, checked against the walk from tail to head and the count.
template <class T>
std::string Walk(const CKAList<T>& list) {
  std::string forward, backward;
  int n = 0;
  for (auto* node = list.m_pHead; node; node = node->m_pNext, ++n)
    forward += Text(node->m_Data) + " ";
  for (auto* node = list.m_pTail; node; node = node->m_pPrev)
    backward = Text(node->m_Data) + " " + backward;
  EXPECT_EQ(forward, backward);
  EXPECT_EQ(n, list.m_nCount);
  return forward;
}

}  // namespace

TEST(CKAList, LinksInBothDirectionsEmptiesAndStaysUsable) {
  CKAList<int> list;
  EXPECT_EQ(Walk(list), "");
  auto* two = list.AddTail(2);
  list.AddTail(4);
  list.LinkAfter(two, new CKAList<int>::SListNode(3));
  list.LinkAfter(nullptr, new CKAList<int>::SListNode(1));
  list.LinkAfter(list.m_pTail, new CKAList<int>::SListNode(5));
  EXPECT_EQ(Walk(list), "1 2 3 4 5 ");
  list.Empty();
  EXPECT_EQ(list.m_pHead, nullptr);
  EXPECT_EQ(list.m_pTail, nullptr);
  EXPECT_EQ(Walk(list), "");
  list.AddTail(7);
  EXPECT_EQ(Walk(list), "7 ");
}

// Every node of a CKAString list owns a text; copies are deep and emptying frees them all
// (checked for leaks and double frees under AddressSanitizer).
TEST(CKAList, CopiesAreDeepAndSelfAssignmentKeepsTheNodes) {
  CKAList<CKAString> list;
  for (int i = 1; i <= 3; ++i) list.AddTail(CKAString('x', i));
  CKAList<CKAString> copy(list);
  copy.m_pHead->m_Data += "!";
  EXPECT_EQ(Walk(list), "x xx xxx ");
  EXPECT_EQ(Walk(copy), "x! xx xxx ");
  CKAList<CKAString>& same = copy;
  copy = same;
  EXPECT_EQ(Walk(copy), "x! xx xxx ");
  copy = list;
  EXPECT_EQ(Walk(copy), "x xx xxx ");
  EXPECT_NE(copy.m_pHead, list.m_pHead);
  list.Empty();
  EXPECT_EQ(list.GetCount(), 0);
}
