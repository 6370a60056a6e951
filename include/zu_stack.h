// zu_stack: CKAStack<T>, a stack of plain records with a capacity fixed at construction.
// The expression evaluator keeps its operator and value stacks in it (capacity 128). The
// template lives wholly in this header; elements are copied by assignment.
// Thread safety: none. An object is used by one thread at a time; callers serialise access.
#ifndef ZUSTD_ZU_STACK_H
#define ZUSTD_ZU_STACK_H

#include <climits>

#include "zu_export.h"

// Fixed-capacity stack. The data members are public and their order is part of the binary
// interface.
// Not copyable: copy construction and assignment are deleted.
template <class T>
class CKAStack {
 public:
  T* m_pData;      // block of m_nMaxSize elements (null when m_nMaxSize is below 1)
  int m_nMaxSize;  // capacity given at construction; below 1 the stack has no full test
  int m_nCount;    // elements on the stack
  int m_nTop;      // index of the top element, -1 when empty

  // Allocates nMaxSize elements once; a positive capacity never allocates again.
  // A capacity below 1 makes a stack without a full test: it allocates nothing up front and
  // then grows its block on demand (doubling), so Push never writes past its block.
  explicit CKAStack(int nMaxSize)
      : m_pData(nMaxSize > 0 ? new T[nMaxSize] : nullptr),
        m_nMaxSize(nMaxSize),
        m_nCount(0),
        m_nTop(-1) {}

  CKAStack(const CKAStack&) = delete;
  CKAStack& operator=(const CKAStack&) = delete;

  ~CKAStack() { delete[] m_pData; }

  // Copies item onto the top and returns true. Returns false, nothing stored, when the
  // capacity is at least 1 and the stack is full (or, without a capacity, when it already
  // holds more than INT_MAX / 2 elements).
  bool Push(const T& item) {
    if (m_nMaxSize >= 1 && m_nCount >= m_nMaxSize) return false;
    if (m_nMaxSize < 1 && NeedsBlock()) return GrowAndPush(item);
    ++m_nTop;
    m_pData[m_nTop] = item;
    ++m_nCount;
    return true;
  }

  // Copies the top element into item, removes it and returns true; false, item untouched,
  // when the stack is empty.
  bool Pop(T& item) {
    if (m_nCount < 1) return false;
    item = m_pData[m_nTop];
    --m_nTop;
    --m_nCount;
    return true;
  }

 private:
  // Without a capacity the block always holds at least the next power of two >= m_nCount
  // slots, so a new block is needed exactly when m_nCount is 0 or a power of two.
  bool NeedsBlock() const { return (m_nCount & (m_nCount - 1)) == 0; }

  bool GrowAndPush(const T& item) {
    if (m_nCount > INT_MAX / 2) return false;
    const int size = m_nCount == 0 ? 1 : m_nCount * 2;
    T* block = new T[size];
    for (int i = 0; i < m_nCount; ++i) block[i] = m_pData[i];
    block[m_nCount] = item;  // item may live in the old block, which is still intact here
    delete[] m_pData;
    m_pData = block;
    m_nTop = m_nCount;
    ++m_nCount;
    return true;
  }
};

#endif  // ZUSTD_ZU_STACK_H
