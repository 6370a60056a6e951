#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_util.h"
#include "zu_list.h"
#include "zu_string.h"

namespace {

using zutest::Text;

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

namespace {

// Runs of adjacent nodes, as the dictionary and the map keep their buckets: AddToRun links a
// new element behind its run unless one in the run matches, FindInRun looks only count nodes.
TEST(CKAListRuns, AddToRunKeepsEachRunTogetherAndRefusesMatches) {
  CKAList<int> list;
  using Node = CKAList<int>::SListNode;
  Node* odd = nullptr;
  Node* even = nullptr;
  int nOdd = 0, nEven = 0;
  const auto add = [&](int v) {
    const auto same = [v](int x) { return x == v; };
    const auto make = [v] { return new Node(v); };
    return v % 2 ? list.AddToRun(odd, nOdd, same, make) : list.AddToRun(even, nEven, same, make);
  };
  EXPECT_EQ((std::vector<int>{add(1), add(2), add(3), add(4), add(5), add(3), add(2)}),
            (std::vector<int>{true, true, true, true, true, false, false}));
  EXPECT_EQ(Walk(list), "1 3 5 2 4 ");
  EXPECT_EQ((std::vector<int>{odd->m_Data, nOdd, even->m_Data, nEven}),
            (std::vector<int>{1, 3, 2, 2}));

  Node* last = nullptr;
  const auto is = [](int v) { return [v](int x) { return x == v; }; };
  EXPECT_EQ(CKAList<int>::FindInRun(odd, nOdd, is(5), &last)->m_Data, 5);
  EXPECT_EQ(last->m_Data, 3);  // the last node examined before the match
  EXPECT_EQ(CKAList<int>::FindInRun(odd, nOdd, is(2), &last), nullptr);  // 2 is past the run
  EXPECT_EQ(last->m_Data, 5);
  EXPECT_EQ(CKAList<int>::FindInRun(odd, 0, is(1), &last), nullptr);
  EXPECT_EQ(CKAList<int>::FindInRun(even, 5, is(7), &last), nullptr);  // stops at the tail
  EXPECT_EQ(last->m_Data, 4);
}

}  // namespace
