#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "zu_dict.h"
#include "zu_string.h"

namespace {

struct SRecord {
  int n;
  double d;
};

// The documented member layout: bucket count, the entry list, the bucket table.
struct SListLayout {
  void* pHead;
  void* pTail;
  int nCount;
};
struct SDictLayout {
  unsigned int nHashSize;
  SListLayout lstNode;
  void* pHashTable;
};
struct SBucketLayout {
  int nCount;
  void* pFirst;
};
static_assert(sizeof(CKADict<int>) == sizeof(SDictLayout), "CKADict layout");
static_assert(offsetof(CKADict<int>, m_lstNode) == offsetof(SDictLayout, lstNode), "");
static_assert(offsetof(CKADict<int>, m_pHashTable) == offsetof(SDictLayout, pHashTable), "");
static_assert(sizeof(CKADict<int>::SHashBucket) == sizeof(SBucketLayout), "bucket layout");

std::vector<std::string> KeysInListOrder(const CKADict<int>& dict) {
  std::vector<std::string> keys;
  for (auto* node = dict.m_lstNode.m_pHead; node; node = node->m_pNext)
    keys.push_back(node->m_Data.m_pKey ? node->m_Data.m_pKey : "");
  return keys;
}

TEST(CKADictGetHashKey, WeighsEachByteByItsPosition) {
  CKADict<int> dict(64);
  struct {
    const char* key;
    unsigned int expected;
  } const cases[] = {
      {"ab", 37},     // 97 + 98 * 2 = 293
      {"ba", 36},     // 98 + 97 * 2 = 292
      {"", 0},        // empty key
      {nullptr, 0},   // null key
      {"\xff", 63},   // bytes count as unsigned: 255
      {"A\xc8", 17},  // 65 + 200 * 2 = 465
  };
  for (const auto& c : cases) EXPECT_EQ(dict.GetHashKey(c.key), c.expected) << c.key;
}

TEST(CKADictGetHashKey, SumWrapsInUnsigned32Bits) {
  const std::string key(6000, '\xff');  // 255 * 6000 * 6001 / 2 exceeds 2^32
  const uint64_t exact = 255ull * 6000 * 6001 / 2;
  const unsigned int wrapped = static_cast<uint32_t>(exact);
  CKADict<int> dict(1000003);
  EXPECT_EQ(dict.GetHashKey(key.c_str()), wrapped % 1000003u);
}

TEST(CKADict, DuplicateKeyIsRefusedAndFirstValueKept) {
  CKADict<int> dict;
  EXPECT_EQ(dict.m_nHashSize, 64u);
  EXPECT_TRUE(dict.Add("SIN", 1));
  EXPECT_FALSE(dict.Add("SIN", 2));
  EXPECT_TRUE(dict.Add("sin", 3));  // case-sensitive
  int value = 0;
  EXPECT_TRUE(dict.Find("SIN", value));
  EXPECT_EQ(value, 1);
  EXPECT_TRUE(dict.Find("sin", value));
  EXPECT_EQ(value, 3);
  EXPECT_EQ(dict.GetCount(), 2);
}

TEST(CKADict, EntriesOfOneBucketStandTogetherInInsertionOrder) {
  CKADict<int> dict(8);  // "a", "i", "q" -> bucket 1; "b" -> 2; "c" -> 3
  const char* const order[] = {"a", "b", "i", "c", "q"};
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(dict.Add(order[i], i));
  EXPECT_EQ(KeysInListOrder(dict), (std::vector<std::string>{"a", "i", "q", "b", "c"}));
  EXPECT_EQ(dict.m_pHashTable[1].m_nCount, 3);
  EXPECT_EQ(dict.m_pHashTable[0].m_nCount, 0);
  for (int i = 4; i >= 0; --i) {
    int value = -1;
    EXPECT_TRUE(dict.Find(order[i], value));
    EXPECT_EQ(value, i);
  }
  int value = -1;
  EXPECT_FALSE(dict.Find("y", value));  // bucket 1, not in its run
  EXPECT_EQ(value, -1);
}

TEST(CKADict, MissLeavesOutputUntouched) {
  CKADict<SRecord> dict;
  SRecord record{7, 7.5};
  EXPECT_FALSE(dict.Find("X", record));
  EXPECT_FALSE(dict.Find(nullptr, record));
  EXPECT_EQ(record.n, 7);
  EXPECT_EQ(record.d, 7.5);
}

TEST(CKADict, EmptyKeyIsStoredWithoutText) {
  CKADict<int> dict;
  EXPECT_TRUE(dict.Add("", 5));
  EXPECT_FALSE(dict.Add("", 6));
  EXPECT_FALSE(dict.Add(nullptr, 6));
  EXPECT_EQ(dict.m_lstNode.m_pHead->m_Data.m_pKey, nullptr);
  int value = 0;
  EXPECT_TRUE(dict.Find("", value));
  EXPECT_EQ(value, 5);
}

TEST(CKADict, KeysAreCopied) {
  CKADict<int> dict;
  char key[] = "PI";
  dict.Add(key, 3);
  key[0] = 'X';
  int value = 0;
  EXPECT_TRUE(dict.Find("PI", value));
  EXPECT_NE(dict.m_lstNode.m_pHead->m_Data.m_pKey, key);
}

TEST(CKADict, ZeroBucketsActsAsOne) {
  CKADict<int> dict(0);
  EXPECT_EQ(dict.m_nHashSize, 1u);
  for (int i = 0; i < 20; ++i) ASSERT_TRUE(dict.Add(std::to_string(i).c_str(), i));
  int value = 0;
  EXPECT_TRUE(dict.Find("13", value));
  EXPECT_EQ(value, 13);
}

TEST(CKADict, HundredEntriesInFourBuckets) {
  CKADict<int> dict(4);
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(dict.Add(("K" + std::to_string(i)).c_str(), i));
  int total = 0;
  for (unsigned int b = 0; b < 4; ++b) total += dict.m_pHashTable[b].m_nCount;
  EXPECT_EQ(total, 100);
  for (int i = 99; i >= 0; --i) {
    int value = -1;
    ASSERT_TRUE(dict.Find(("K" + std::to_string(i)).c_str(), value));
    ASSERT_EQ(value, i);
  }
}

TEST(CKADict, EmptyThenAddAgain) {
  CKADict<int> dict(8);
  dict.Add("a", 1);
  dict.Add("i", 2);
  dict.Empty();
  EXPECT_EQ(dict.GetCount(), 0);
  int value = 0;
  EXPECT_FALSE(dict.Find("a", value));
  EXPECT_TRUE(dict.Add("i", 3));
  EXPECT_TRUE(dict.Add("a", 4));
  EXPECT_EQ(KeysInListOrder(dict), (std::vector<std::string>{"i", "a"}));
}

TEST(CKADict, CopiesKeepOrderAndOwnTheirKeys) {
  CKADict<int> dict(8);
  for (const char* key : {"a", "b", "i", "", "q"}) dict.Add(key, 1);
  CKADict<int> copy(dict);
  EXPECT_EQ(KeysInListOrder(copy), KeysInListOrder(dict));
  EXPECT_NE(copy.m_lstNode.m_pHead->m_Data.m_pKey, dict.m_lstNode.m_pHead->m_Data.m_pKey);
  EXPECT_TRUE(copy.Add("c", 2));
  CKADict<int> assigned(3);
  assigned.Add("z", 9);
  assigned = copy;
  EXPECT_EQ(assigned.m_nHashSize, 8u);
  int value = 0;
  EXPECT_FALSE(assigned.Find("z", value));
  EXPECT_TRUE(assigned.Find("c", value));
  EXPECT_EQ(value, 2);
  EXPECT_FALSE(dict.Find("c", value));
}

TEST(CKADictSNode, AssignmentCopiesKeyIntoFreshBuffer) {
  CKADict<int>::SNode a("KEY", 1);
  CKADict<int>::SNode b;
  b = a;
  a = a;
  EXPECT_STREQ(b.m_pKey, "KEY");
  EXPECT_NE(b.m_pKey, a.m_pKey);
  EXPECT_STREQ(a.m_pKey, "KEY");
  EXPECT_EQ(b.m_Value, 1);
}

TEST(CKADict, HoldsCKAStringValues) {
  CKADict<CKAString> dict(4);
  for (int i = 0; i < 12; ++i)
    ASSERT_TRUE(dict.Add(("key" + std::to_string(i)).c_str(), CKAString('x', i + 1)));
  CKADict<CKAString> copy(dict);
  CKAString value("untouched");
  EXPECT_TRUE(copy.Find("key4", value));
  EXPECT_STREQ(value.GetBuf(), "xxxxx");
  EXPECT_FALSE(copy.Find("key12", value));
  EXPECT_STREQ(value.GetBuf(), "xxxxx");
}

}  // namespace
