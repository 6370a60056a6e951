// zu_dict: CKADict<T>, a hash table keyed by NUL-terminated texts with a bucket count fixed at
// construction. All entries sit in one CKAList; each bucket points at the first entry of its
// run, and the entries of a bucket always stand next to one another in the list, in the order
// they were added. Duplicate keys are refused. There is no removal of single entries and no
// rehashing. The template lives wholly in this header and works for any copyable T.
// Thread safety: none. An object is used by one thread at a time; a filled dictionary that is
// only read (Find, GetHashKey) may be shared by several threads.
#ifndef ZUSTD_ZU_DICT_H
#define ZUSTD_ZU_DICT_H

#include <cstring>
#include <utility>

#include "zu_export.h"
#include "zu_list.h"

// Text-keyed hash table. The data members are public and their order is part of the binary
// interface.
// Copyable: a copy has the same bucket count and its own copies of every key and value, in
// the same list order.
template <class T>
class CKADict {
 public:
  // One entry: the key, copied into a buffer the entry owns (null for the empty key), then
  // the value. Copying an entry copies the key into a fresh buffer and copies the value.
  struct SNode {
    char* m_pKey;  // owned key text, null for the empty key
    T m_Value;     // the value

    // An entry with the empty key and a default value, or with copies of key and value.
    SNode() : m_pKey(nullptr), m_Value() {}
    SNode(const char* key, const T& value) : m_pKey(nullptr), m_Value(value) {
      m_pKey = CopyKey(key);
    }
    SNode(const SNode& other) : m_pKey(nullptr), m_Value(other.m_Value) {
      m_pKey = CopyKey(other.m_pKey);
    }
    SNode& operator=(const SNode& other) {
      if (this != &other) {
        char* key = CopyKey(other.m_pKey);
        delete[] m_pKey;
        m_pKey = key;
        m_Value = other.m_Value;
      }
      return *this;
    }
    ~SNode() { delete[] m_pKey; }

    // True when the stored key equals key (case-sensitive); a null stored key is "".
    bool HasKey(const char* key) const { return std::strcmp(m_pKey ? m_pKey : "", key) == 0; }

   private:
    static char* CopyKey(const char* key) {
      if (!key || !*key) return nullptr;
      const size_t length = std::strlen(key);
      char* copy = new char[length + 1];
      std::memcpy(copy, key, length + 1);
      return copy;
    }
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

  // An empty dictionary with nHashSize buckets (the expression keyword table uses 64).
  // A bucket count of 0 is taken as 1, so hashing never divides by zero.
  explicit CKADict(unsigned int nHashSize = 64)
      : m_nHashSize(nHashSize ? nHashSize : 1),
        m_lstNode(),
        m_pHashTable(new SHashBucket[m_nHashSize]()) {}

  CKADict(const CKADict& other) : CKADict(other.m_nHashSize) {
    for (const SListNode* node = other.m_lstNode.m_pHead; node; node = node->m_pNext)
      Add(node->m_Data.m_pKey ? node->m_Data.m_pKey : "", node->m_Data.m_Value);
  }

  CKADict& operator=(const CKADict& other) {
    if (this != &other) {
      CKADict copy(other);
      std::swap(m_nHashSize, copy.m_nHashSize);
      m_lstNode.Swap(copy.m_lstNode);
      std::swap(m_pHashTable, copy.m_pHashTable);
    }
    return *this;
  }

  // Deletes every entry (keys included), then frees the bucket table.
  ~CKADict() {
    if (m_lstNode.m_nCount > 0) Empty();
    delete[] m_pHashTable;
  }

  // Bucket of key: the sum of each byte (as unsigned 8-bit) times its 1-based position, in
  // wrapping unsigned 32-bit arithmetic, modulo m_nHashSize. "ab" in 64 buckets is 37; the
  // empty key and a null key give 0.
  unsigned int GetHashKey(const char* key) const {
    unsigned int sum = 0;
    if (key) {
      for (unsigned int i = 0; key[i] != '\0'; ++i)
        sum += static_cast<unsigned int>(static_cast<unsigned char>(key[i])) * (i + 1);
    }
    return sum % m_nHashSize;
  }

  // Stores a copy of key and value and returns true. Returns false, nothing changed, when the
  // key is already present (the stored value is kept) or key is null.
  bool Add(const char* key, const T& value) {
    if (!key || !m_pHashTable) return false;
    SHashBucket& bucket = m_pHashTable[GetHashKey(key)];
    return m_lstNode.AddToRun(bucket.m_pFirst, bucket.m_nCount, Matches(key),
                              [&]() { return new SListNode(key, value); });
  }

  // Copies the value stored under key into value and returns true; false, value untouched,
  // when the key is absent, key is null or there is no bucket table.
  bool Find(const char* key, T& value) const {
    if (!key || !m_pHashTable) return false;
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
    const char* key;
    explicit Matches(const char* k) : key(k) {}
    bool operator()(const SNode& entry) const { return entry.HasKey(key); }
  };
};

#endif  // ZUSTD_ZU_DICT_H
