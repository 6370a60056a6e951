#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "zu_map.h"
#include "zu_string.h"

namespace {

// The keys in list order, e.g. "3 13 -7 ".
std::string Keys(const CKAMap<int, int>& map) {
  std::string keys;
  for (auto* node = map.m_lstNode.m_pHead; node; node = node->m_pNext)
    keys += std::to_string(node->m_Data.m_Key) + " ";
  return keys;
}

// The values found for the keys, "miss" where Find fails and leaves its output untouched.
std::string Get(const CKAMap<int, int>& map, std::initializer_list<int> keys) {
  std::string out;
  for (int key : keys) {
    int value = 999;
    const bool found = map.Find(key, value);
    out += (found ? std::to_string(value) : value == 999 ? "miss" : "miss+written") + " ";
  }
  return out;
}

// The result of each Add in order, '1' for stored and '0' for refused.
std::string Add(CKAMap<int, int>& map, std::initializer_list<std::pair<int, int>> entries) {
  std::string out;
  for (const auto& e : entries) out += map.Add(e.first, e.second) ? '1' : '0';
  return out;
}

}  // namespace

TEST(CKAMap, NegativeKeysHashByTheirUnsignedValue) {
  CKAMap<int, int> map(10);
  EXPECT_EQ(Get(map, {3}), "miss ");
  EXPECT_EQ(map.GetHashKey(-7), 9u);  // 4294967289 % 10
  EXPECT_EQ(map.GetHashKey(13), 3u);
  EXPECT_EQ(Add(map, {{3, 30}, {-7, -70}, {13, 130}, {3, 31}}), "1110");
  EXPECT_EQ(map.m_pHashTable[3].m_nCount, 2);
  EXPECT_EQ(map.m_pHashTable[9].m_nCount, 1);
  EXPECT_EQ(Keys(map), "3 13 -7 ");
  EXPECT_EQ(Get(map, {3, 13, -7, 23, 0}), "30 130 -70 miss miss ");
  EXPECT_EQ(map.GetCount(), 3);
}

TEST(CKAMap, EmptyKeepsTheBucketsAndAcceptsOldKeysAgain) {
  CKAMap<int, int> map(10);
  EXPECT_EQ(Add(map, {{1, 10}, {11, 110}}), "11");
  map.Empty();
  EXPECT_EQ(map.GetCount(), 0);
  EXPECT_EQ(map.m_lstNode.m_pHead, nullptr);
  EXPECT_EQ(map.m_nHashSize, 10u);
  EXPECT_EQ(map.m_pHashTable[1].m_nCount, 0);
  EXPECT_EQ(Get(map, {1}), "miss ");
  EXPECT_EQ(Add(map, {{11, 111}, {1, 11}}), "11");
  EXPECT_EQ(Get(map, {1, 11}), "11 111 ");
  EXPECT_EQ(Keys(map), "11 1 ");
}

TEST(CKAMap, FourBucketsHoldAHundredInOneRunEachAndZeroBucketsActAsOne) {
  CKAMap<int, int> map(4);
  std::string expected, got;
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(map.Add(i * 3 - 50, i));
    expected = std::to_string(i) + " " + expected;
  }
  for (int i = 99; i >= 0; --i) got += Get(map, {i * 3 - 50});
  EXPECT_EQ(got, expected);
  std::string runs;  // the bucket of each entry in list order, one letter per change
  for (auto* node = map.m_lstNode.m_pHead; node; node = node->m_pNext) {
    const char bucket = static_cast<char>('0' + map.GetHashKey(node->m_Data.m_Key));
    if (runs.empty() || runs.back() != bucket) runs += bucket;
  }
  EXPECT_EQ(runs, "2103");  // the buckets of -50, -47, -44, -41, each one run
  for (unsigned int b = 0; b < 4; ++b) EXPECT_EQ(map.m_pHashTable[b].m_nCount, 25) << b;
  CKAMap<int, int> one(0);
  EXPECT_EQ(one.m_nHashSize, 1u);
  EXPECT_EQ(Add(one, {{-1, 1}, {1, 2}}), "11");
  EXPECT_EQ(Get(one, {-1, 1}), "1 2 ");
}

TEST(CKAMap, CopiesAreDeep) {
  CKAMap<int, int> map(10);
  for (int key : {3, -7, 13, 23}) map.Add(key, key * 2);
  CKAMap<int, int> copy(map);
  EXPECT_EQ(Keys(copy), "3 13 23 -7 ");
  EXPECT_TRUE(copy.Add(33, 1));
  EXPECT_EQ(Get(map, {33}), "miss ");
  map = copy;
  map = *&map;  // self-assignment, written so compilers do not flag it
  EXPECT_EQ(Keys(map), "3 13 23 33 -7 ");
  EXPECT_EQ(Get(map, {33}), "1 ");
  CKAMap<int, CKAString> texts(4);  // values that own heap text (checked under ASan)
  for (int i = 0; i < 10; ++i) texts.Add(i, CKAString('v', i + 1));
  EXPECT_FALSE(texts.Add(3, CKAString("duplicate")));
  CKAMap<int, CKAString> textCopy(texts);
  texts.Empty();
  CKAString value("untouched");
  EXPECT_FALSE(texts.Find(3, value));
  EXPECT_TRUE(textCopy.Find(3, value));
  EXPECT_STREQ(value.GetBuf(), "vvvv");
  texts = textCopy;
  EXPECT_TRUE(texts.Find(9, value));
  EXPECT_STREQ(value.GetBuf(), "vvvvvvvvvv");
}
