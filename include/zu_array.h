// zu_array: CKAArray<T>, a growable array of elements with insertion and removal by index.
// Elements are copied only with T's assignment operator; slots beyond the element count keep
// whatever value they last held. The template lives wholly in this header and works for any
// default-constructible, copyable T.
// Thread safety: none. An object is used by one thread at a time; callers serialise access.
#ifndef ZUSTD_ZU_ARRAY_H
#define ZUSTD_ZU_ARRAY_H

#include <climits>
#include <functional>
#include <new>
#include <utility>

#include "zu_export.h"

// Growable array. The data members are public and their order is part of the binary
// interface; owners read m_nCount directly.
// Copyable: copies are deep (a fresh block of the same size holding copies of the elements).
template <class T>
class CKAArray {
 public:
  T* m_pData;     // block from new T[m_nSize]; null while m_nSize is 0
  int m_nCount;   // elements in use, never above m_nSize
  int m_nSize;    // slots allocated
  int m_nGrowBy;  // growth step in percent of m_nSize (50 after construction)

  // An empty array: no block, count and size 0, growth step 50 %.
  CKAArray() : m_pData(nullptr), m_nCount(0), m_nSize(0), m_nGrowBy(50) {}

  CKAArray(const CKAArray& other)
      : m_pData(nullptr), m_nCount(0), m_nSize(0), m_nGrowBy(other.m_nGrowBy) {
    if (other.m_nSize < 1) return;
    m_pData = new T[other.m_nSize];
    m_nSize = other.m_nSize;
    for (int i = 0; i < other.m_nCount; ++i) m_pData[i] = other.m_pData[i];
    m_nCount = other.m_nCount;
  }

  CKAArray& operator=(const CKAArray& other) {
    if (this != &other) {
      CKAArray copy(other);
      Swap(copy);
    }
    return *this;
  }

  // Sets the count to 0 and frees the block (every slot destroyed).
  ~CKAArray() {
    m_nCount = 0;
    delete[] m_pData;
  }

  // Changes the number of slots by n and always returns true. A resulting size below 1 frees
  // the block (null data, size and count 0). Otherwise a new block of default-constructed
  // slots replaces the old one: when the array holds elements, all old slots (growing) or the
  // first new-size slots (shrinking) are copied over; the count is lowered to the new size.
  // A size beyond INT_MAX throws std::bad_array_new_length, as new[] does for huge counts.
  bool AddSize(int n) {
    if (n == 0) return true;
    const long long wanted = static_cast<long long>(m_nSize) + n;
    if (wanted < 1) {
      Release();
      return true;
    }
    if (wanted > INT_MAX) throw std::bad_array_new_length();
    const int size = static_cast<int>(wanted);
    T* block = new T[size];
    if (m_nCount > 0) {
      const int keep = n < 0 ? size : m_nSize;
      for (int i = 0; i < keep; ++i) block[i] = m_pData[i];
    }
    delete[] m_pData;
    m_pData = block;
    m_nSize = size;
    if (m_nCount > size) m_nCount = size;
    return true;
  }

  // Inserts a copy of item before index pos (0 .. m_nCount; m_nCount appends) and returns
  // true. Returns false, array unchanged, for any other pos. When full the array grows by
  // m_nSize * m_nGrowBy / 100 slots once it has more than 2 slots, else by one; a step that
  // comes out below 1 (a growth percentage set too small) grows by one slot instead.
  // item may be an element of this array: it is copied before anything moves.
  bool AddBefore(int pos, const T& item) {
    if (pos < 0 || pos > m_nCount) return false;
    if (Holds(&item)) {
      const T copy(item);
      return AddBefore(pos, copy);
    }
    if (m_nCount + 1 > m_nSize) AddSize(GrowthStep());
    for (T* slot = m_pData + m_nCount; slot != m_pData + pos; --slot) *slot = *(slot - 1);
    m_pData[pos] = item;
    ++m_nCount;
    return true;
  }

  // Removes the element at pos (0 .. m_nCount-1) by shifting the later ones down and returns
  // true; false, array unchanged, for any other pos. The vacated last slot keeps a copy of
  // the former last element.
  bool RemoveAt(int pos) {
    if (pos < 0 || pos >= m_nCount) return false;
    for (int i = pos; i < m_nCount - 1; ++i) m_pData[i] = m_pData[i + 1];
    --m_nCount;
    return true;
  }

  // Slot i when 0 <= i < m_nCount, slot 0 for any other index, negative or too large (this
  // clamping is relied on by the owners and is kept). An array with no slots at all returns
  // a default-constructed element that belongs to no array (one per thread, reset on every
  // such call) instead of touching memory it does not own.
  T& operator[](int i) { return m_pData ? m_pData[Clamp(i)] : Stray(); }
  const T& operator[](int i) const { return m_pData ? m_pData[Clamp(i)] : Stray(); }

  // Number of elements in use (m_nCount).
  int GetCount() const { return m_nCount; }

 private:
  int Clamp(int i) const { return (i >= 0 && i < m_nCount) ? i : 0; }

  static T& Stray() {
    static thread_local T stray;
    stray = T();
    return stray;
  }

  int GrowthStep() const {
    if (m_nSize <= 2) return 1;
    const long long step = static_cast<long long>(m_nSize) * m_nGrowBy / 100;
    if (step < 1) return 1;
    return step > INT_MAX ? INT_MAX : static_cast<int>(step);
  }

  bool Holds(const T* p) const {
    std::less<const T*> before;
    return m_pData && !before(p, m_pData) && before(p, m_pData + m_nSize);
  }

  void Release() {
    delete[] m_pData;
    m_pData = nullptr;
    m_nSize = 0;
    m_nCount = 0;
  }

  void Swap(CKAArray& other) {
    std::swap(m_pData, other.m_pData);
    std::swap(m_nCount, other.m_nCount);
    std::swap(m_nSize, other.m_nSize);
    std::swap(m_nGrowBy, other.m_nGrowBy);
  }
};

#endif  // ZUSTD_ZU_ARRAY_H
