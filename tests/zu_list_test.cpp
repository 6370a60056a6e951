#include <gtest/gtest.h>

#include <string>

#include "zu_list.h"
#include "zu_string.h"

// CKAString nodes own heap text: copies are deep and emptying frees every node (run under ASan).
TEST(CKAList, LinksAnywhereCopiesDeeplyAndStaysUsableWhenEmptied) {
  using List = CKAList<CKAString>;
  const auto walk = [](const List& list) {  // head to tail, tail to head, count
    std::string out;
    for (auto* n = list.m_pHead; n; n = n->m_pNext) out += n->m_Data.GetBuf();
    for (auto* n = list.m_pTail; n; n = n->m_pPrev) out += n->m_Data.GetBuf();
    return out + std::to_string(list.m_nCount);
  };
  List list, copy;
  list.LinkAfter(list.AddTail("b"), new List::SListNode("d"));  // behind the tail
  list.LinkAfter(list.m_pHead, new List::SListNode("c"));       // in the middle
  list.LinkAfter(nullptr, new List::SListNode("a"));            // at the head
  copy = list;
  copy.m_pHead->m_Data = "A";
  EXPECT_EQ(walk(list) + " " + walk(copy), "abcddcba4 AbcddcbA4");
  List::SListNode* last = nullptr;  // a run count beyond the tail stops there
  const auto never = [](const CKAString&) { return false; };
  EXPECT_TRUE(List::FindInRun(list.m_pHead, 9, never, &last) == nullptr && last == list.m_pTail);
  list.Empty();
  copy = list;
  EXPECT_EQ(walk(copy) + (list.AddTail("z") == list.m_pHead ? walk(list) : ""), "0zz1");
}
