#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "zu_map.h"
#include "zu_string.h"

namespace {

struct SRecord {
  int n;
  double d;
};

struct SListLayout {
  void* pHead;
  void* pTail;
  int nCount;
};
struct SMapLayout {
  unsigned int nHashSize;
  SListLayout lstNode;
  void* pHashTable;
};
typedef CKAMap<int, int> IntMap;
static_assert(sizeof(IntMap) == sizeof(SMapLayout), "CKAMap layout");
static_assert(offsetof(IntMap, m_pHashTable) == offsetof(SMapLayout, pHashTable), "");

std::vector<int> KeysInListOrder(const CKAMap<int, int>& map) {
  std::vector<int> keys;
  for (auto* node = map.m_lstNode.m_pHead; node; node = node->m_pNext)
    keys.push_back(node->m_Data.m_Key);
  return keys;
}

TEST(CKAMap, NegativeKeysHashByTheirUnsignedValue) {
  CKAMap<int, int> map(10);
  EXPECT_EQ(map.GetHashKey(-7), 9u);  // 4294967289 % 10
  EXPECT_EQ(map.GetHashKey(13), 3u);
  EXPECT_TRUE(map.Add(3, 30));
  EXPECT_TRUE(map.Add(-7, -70));
  EXPECT_TRUE(map.Add(13, 130));
  EXPECT_EQ(map.m_pHashTable[3].m_nCount, 2);
  EXPECT_EQ(map.m_pHashTable[9].m_nCount, 1);
  EXPECT_EQ(KeysInListOrder(map), (std::vector<int>{3, 13, -7}));
  struct {
    int key;
    int value;
  } const cases[] = {{3, 30}, {13, 130}, {-7, -70}};
  for (const auto& c : cases) {
    int value = 0;
    EXPECT_TRUE(map.Find(c.key, value));
    EXPECT_EQ(value, c.value);
  }
}

TEST(CKAMap, DuplicateKeyIsRefusedAndFirstValueKept) {
  CKAMap<int, int> map(4);
  EXPECT_TRUE(map.Add(5, 1));
  EXPECT_FALSE(map.Add(5, 2));
  int value = 0;
  EXPECT_TRUE(map.Find(5, value));
  EXPECT_EQ(value, 1);
  EXPECT_EQ(map.GetCount(), 1);
}

TEST(CKAMap, MissLeavesOutputUntouched) {
  CKAMap<int, SRecord> map(16);
  SRecord record{3, 3.5};
  EXPECT_FALSE(map.Find(0, record));
  map.Add(16, SRecord{1, 1.0});  // same bucket as 0
  EXPECT_FALSE(map.Find(0, record));
  EXPECT_EQ(record.n, 3);
  EXPECT_EQ(record.d, 3.5);
}

TEST(CKAMap, EmptyThenAddAgain) {
  CKAMap<int, int> map(10);
  map.Add(1, 10);
  map.Add(11, 110);
  map.Empty();
  EXPECT_EQ(map.GetCount(), 0);
  EXPECT_EQ(map.m_lstNode.m_pHead, nullptr);
  EXPECT_EQ(map.m_nHashSize, 10u);
  EXPECT_EQ(map.m_pHashTable[1].m_nCount, 0);
  int value = 0;
  EXPECT_FALSE(map.Find(1, value));
  EXPECT_TRUE(map.Add(11, 111));
  EXPECT_TRUE(map.Add(1, 11));
  EXPECT_TRUE(map.Find(1, value));
  EXPECT_EQ(value, 11);
  EXPECT_EQ(KeysInListOrder(map), (std::vector<int>{11, 1}));
}

TEST(CKAMap, HundredEntriesInFourBuckets) {
  CKAMap<int, int> map(4);
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(map.Add(i * 3 - 50, i));
  for (unsigned int b = 0; b < 4; ++b) EXPECT_EQ(map.m_pHashTable[b].m_nCount, 25) << b;
  for (int i = 99; i >= 0; --i) {
    int value = -1;
    ASSERT_TRUE(map.Find(i * 3 - 50, value));
    ASSERT_EQ(value, i);
  }
  // Each bucket's entries form one run of the list.
  std::vector<unsigned int> buckets;
  for (int key : KeysInListOrder(map)) buckets.push_back(map.GetHashKey(key));
  for (size_t i = 1; i < buckets.size(); ++i) {
    if (buckets[i] != buckets[i - 1]) {
      ASSERT_EQ(i % 25, 0u) << i;
    }
  }
}

TEST(CKAMap, ZeroBucketsActsAsOne) {
  CKAMap<int, int> map(0);
  EXPECT_EQ(map.m_nHashSize, 1u);
  EXPECT_TRUE(map.Add(-1, 1));
  EXPECT_TRUE(map.Add(1, 2));
  int value = 0;
  EXPECT_TRUE(map.Find(-1, value));
  EXPECT_EQ(value, 1);
}

TEST(CKAMap, CopiesAreDeep) {
  CKAMap<int, int> map(10);
  for (int key : {3, -7, 13, 23}) map.Add(key, key * 2);
  CKAMap<int, int> copy(map);
  EXPECT_EQ(KeysInListOrder(copy), KeysInListOrder(map));
  EXPECT_TRUE(copy.Add(33, 1));
  int value = 0;
  EXPECT_FALSE(map.Find(33, value));
  map = copy;
  map = map;
  EXPECT_TRUE(map.Find(33, value));
  EXPECT_EQ(value, 1);
  EXPECT_EQ(KeysInListOrder(map), (std::vector<int>{3, 13, 23, 33, -7}));
}

}  // namespace

// Maps with CKAString values: Add copies the text, a refused duplicate leaves the stored text
// alone, copies are deep, and Empty frees every node (checked under valgrind and ASan).
TEST(CKAMapOfCKAString, CopiesValuesAndFreesThem) {
  CKAMap<int, CKAString> map(4);
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(map.Add(i, CKAString('v', i + 1)));
  EXPECT_FALSE(map.Add(3, CKAString("duplicate")));
  CKAString value("untouched");
  ASSERT_TRUE(map.Find(3, value));
  EXPECT_STREQ(value.GetBuf(), "vvvv");
  EXPECT_FALSE(map.Find(10, value));
  EXPECT_STREQ(value.GetBuf(), "vvvv");

  CKAMap<int, CKAString> copy(map);
  map.Empty();
  EXPECT_FALSE(map.Find(3, value));
  ASSERT_TRUE(copy.Find(9, value));
  EXPECT_STREQ(value.GetBuf(), "vvvvvvvvvv");
  map = copy;
  ASSERT_TRUE(map.Find(0, value));
  EXPECT_STREQ(value.GetBuf(), "v");
}
