// zu_map: CKAMap<K, V>, a hash table keyed by integers with a bucket count fixed at
// construction. It is built like CKADict: all entries sit in one CKAList, each bucket points at
// the first entry of its run, and a bucket's entries stand next to one another in insertion
// order. Duplicate keys are refused; there is no removal of single entries and no rehashing.
// The template lives wholly in this header; K is an integer type, V any copyable type.
// Thread safety: none. An object is used by one thread at a time.
#ifndef ZUSTD_ZU_MAP_H
#define ZUSTD_ZU_MAP_H

#include <utility>

#include "zu_export.h"
#include "zu_list.h"

// Integer-keyed hash table. The data members are public and their order is part of the binary
// interface.
// Copyable: a copy has the same bucket count and its own copies of every entry, in the same
// list order.
template <class K, class V>
class CKAMap {
 public:
  // One entry: the key, then the value, both by value.
  struct SNode {
    K m_Key;    // the key
    V m_Value;  // the value

    // An entry with default key and value, or with copies of key and value.
    SNode() : m_Key(), m_Value() {}
    SNode(K key, const V& value) : m_Key(key), m_Value(value) {}
  };

  // The list node that holds an entry.
  typedef typename CKAList<SNode>::SListNode SListNode;

  // One bucket: the number of its entries, then the list node of its first entry (meaningless
  // while the count is 0).
  struct SHashBucket {
    int m_nCount;         // entries in the bucket
    SListNode* m_pFirst;  // node of its first entry
  };

  unsigned int m_nHashSize;   // number of buckets
  CKAList<SNode> m_lstNode;   // all entries
  SHashBucket* m_pHashTable;  // m_nHashSize zero-filled buckets

  // An empty map with nHashSize buckets. A bucket count of 0 is taken as 1, so hashing never
  // divides by zero. A count whose byte size cannot be computed throws
  // std::bad_array_new_length (from new[]).
  explicit CKAMap(unsigned int nHashSize)
      : m_nHashSize(nHashSize ? nHashSize : 1),
        m_lstNode(),
        m_pHashTable(new SHashBucket[m_nHashSize]()) {}

  CKAMap(const CKAMap& other) : CKAMap(other.m_nHashSize) {
    for (const SListNode* node = other.m_lstNode.m_pHead; node; node = node->m_pNext)
      Add(node->m_Data.m_Key, node->m_Data.m_Value);
  }

  CKAMap& operator=(const CKAMap& other) {
    if (this != &other) {
      CKAMap copy(other);
      std::swap(m_nHashSize, copy.m_nHashSize);
      m_lstNode.Swap(copy.m_lstNode);
      std::swap(m_pHashTable, copy.m_pHashTable);
    }
    return *this;
  }

  // Empties the map when it holds entries, then frees the bucket table.
  ~CKAMap() {
    if (m_lstNode.m_nCount > 0) Empty();
    delete[] m_pHashTable;
  }

  // Bucket of key: the key converted to unsigned int, modulo m_nHashSize (a negative key
  // hashes by its two's-complement bit pattern: -7 in 10 buckets is 4294967289 % 10 = 9).
  unsigned int GetHashKey(K key) const { return static_cast<unsigned int>(key) % m_nHashSize; }

  // Stores key and a copy of value and returns true. Returns false, nothing changed, when the
  // key is already present (keys compared with ==; the stored value is kept).
  bool Add(K key, const V& value) {
    if (!m_pHashTable) return false;
    SHashBucket& bucket = m_pHashTable[GetHashKey(key)];
    return m_lstNode.AddToRun(bucket.m_pFirst, bucket.m_nCount, Matches(key),
                              [&]() { return new SListNode(key, value); });
  }

  // Copies the value stored under key into value and returns true; false, value untouched,
  // when the key is absent or there is no bucket table.
  bool Find(K key, V& value) const {
    if (!m_pHashTable) return false;
    const SHashBucket& bucket = m_pHashTable[GetHashKey(key)];
    SListNode* last = nullptr;
    const SListNode* node =
        CKAList<SNode>::FindInRun(bucket.m_pFirst, bucket.m_nCount, Matches(key), &last);
    if (!node) return false;
    value = node->m_Data.m_Value;
    return true;
  }

  // Deletes every entry and zeroes every bucket; the bucket table and its size stay.
  void Empty() {
    m_lstNode.Empty();
    for (unsigned int i = 0; i < m_nHashSize; ++i) m_pHashTable[i] = SHashBucket();
  }

  // Number of entries.
  int GetCount() const { return m_lstNode.m_nCount; }

 private:
  // The test for an entry with key.
  struct Matches {
    K key;
    explicit Matches(K k) : key(k) {}
    bool operator()(const SNode& entry) const { return entry.m_Key == key; }
  };
};

#endif  // ZUSTD_ZU_MAP_H
