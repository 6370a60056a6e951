// zu_list: CKAList<T>, a doubly linked list that owns its nodes. The dictionary and the map
// (zu_dict.h, zu_map.h) keep all their entries in one, linking nodes in where their buckets
// need them. The template lives wholly in this header and works for any copyable T.
// Thread safety: none. An object is used by one thread at a time; callers serialise access.
#ifndef ZUSTD_ZU_LIST_H
#define ZUSTD_ZU_LIST_H

#include <utility>

#include "zu_export.h"

// Doubly linked list. Nodes are allocated one by one with new and freed with delete. The data
// members are public and their order is part of the binary interface.
// Copyable: copies are deep (new nodes holding copies of the elements, in the same order).
template <class T>
class CKAList {
 public:
  // One list node: the previous node, the next node, then the element by value.
  struct SListNode {
    SListNode* m_pPrev;  // previous node, null at the head
    SListNode* m_pNext;  // next node, null at the tail
    T m_Data;            // the element

    // Builds the element in place from args; the node is not yet linked.
    template <class... Args>
    explicit SListNode(Args&&... args)
        : m_pPrev(nullptr), m_pNext(nullptr), m_Data(std::forward<Args>(args)...) {}
  };

  SListNode* m_pHead;  // first node, null when empty
  SListNode* m_pTail;  // last node, null when empty
  int m_nCount;        // number of nodes

  CKAList() : m_pHead(nullptr), m_pTail(nullptr), m_nCount(0) {}

  CKAList(const CKAList& other) : m_pHead(nullptr), m_pTail(nullptr), m_nCount(0) {
    for (const SListNode* node = other.m_pHead; node; node = node->m_pNext) AddTail(node->m_Data);
  }

  CKAList& operator=(const CKAList& other) {
    if (this != &other) {
      CKAList copy(other);
      Swap(copy);
    }
    return *this;
  }

  ~CKAList() {
    if (m_nCount >= 1) Empty();
  }

  // Deletes every node (destroying its element) and leaves an empty list.
  void Empty() {
    SListNode* node = m_pHead;
    while (node) {
      SListNode* next = node->m_pNext;
      delete node;
      node = next;
    }
    m_pHead = nullptr;
    m_pTail = nullptr;
    m_nCount = 0;
  }

  // Appends a new node holding a copy of item; returns the node (owned by the list).
  SListNode* AddTail(const T& item) { return LinkAfter(m_pTail, new SListNode(item)); }

  // Links the unlinked node behind pos (pos null: at the head) and takes ownership of it;
  // returns node. pos must be a node of this list or null.
  SListNode* LinkAfter(SListNode* pos, SListNode* node) {
    node->m_pPrev = pos;
    node->m_pNext = pos ? pos->m_pNext : m_pHead;
    if (node->m_pNext)
      node->m_pNext->m_pPrev = node;
    else
      m_pTail = node;
    if (pos)
      pos->m_pNext = node;
    else
      m_pHead = node;
    ++m_nCount;
    return node;
  }

  // Bucket runs of the dictionary and the map: count adjacent nodes starting at first.
  // Returns the run's node whose element satisfies matches, or null; *last receives the last
  // node examined.
  template <class Match>
  static SListNode* FindInRun(SListNode* first, int count, Match matches, SListNode** last) {
    SListNode* node = first;
    for (int i = 0; i < count && node; ++i, node = node->m_pNext) {
      if (matches(node->m_Data)) return node;
      *last = node;
    }
    return nullptr;
  }

  // Unless an element of the run matches, links make() behind the run (at the tail when the
  // run is empty), updates first and count and returns true; otherwise returns false.
  template <class Match, class Make>
  bool AddToRun(SListNode*& first, int& count, Match matches, Make make) {
    if (count <= 0) {
      first = LinkAfter(m_pTail, make());
      count = 1;
      return true;
    }
    SListNode* last = nullptr;
    if (FindInRun(first, count, matches, &last)) return false;
    LinkAfter(last, make());
    ++count;
    return true;
  }

  // Exchanges the nodes of the two lists; no node is copied or moved in memory.
  void Swap(CKAList& other) {
    std::swap(m_pHead, other.m_pHead);
    std::swap(m_pTail, other.m_pTail);
    std::swap(m_nCount, other.m_nCount);
  }

  // Number of nodes (m_nCount).
  int GetCount() const { return m_nCount; }
};

#endif  // ZUSTD_ZU_LIST_H
