#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

#include "zu_dict.h"
#include "zu_string.h"

namespace {

// The keys in list order, e.g. "a i q b ".
template <class T>
std::string Keys(const CKADict<T>& dict) {
  std::string keys;
  for (auto* node = dict.m_lstNode.m_pHead; node; node = node->m_pNext)
    keys += std::string(node->m_Data.m_pKey ? node->m_Data.m_pKey : "") + " ";
  return keys;
}

// The values found for the keys, "miss" where Find fails and leaves its output untouched.
std::string Get(const CKADict<int>& dict, std::initializer_list<const char*> keys) {
  std::string out;
  for (const char* key : keys) {
    int value = 999;
    const bool found = dict.Find(key, value);
    out += (found ? std::to_string(value) : value == 999 ? "miss" : "miss+written") + " ";
  }
  return out;
}

// The result of each Add in order, '1' for stored and '0' for refused.
std::string Add(CKADict<int>& dict, std::initializer_list<std::pair<const char*, int>> entries) {
  std::string out;
  for (const auto& e : entries) out += dict.Add(e.first, e.second) ? '1' : '0';
  return out;
}

}  // namespace

TEST(CKADictGetHashKey, WeighsEachUnsignedByteByItsPositionAndWraps) {
  const CKADict<int> dict(64);
  const std::pair<const char*, unsigned int> cases[] = {
      {"ab", 37},                                // 97 + 98 * 2 = 293
      {"ba", 36},                                // 98 + 97 * 2 = 292
      {"", 0},      {nullptr, 0}, {"\xff", 63},  // 255: bytes count as unsigned
      {"A\xc8", 17}};                            // 65 + 200 * 2 = 465
  for (const auto& c : cases) EXPECT_EQ(dict.GetHashKey(c.first), c.second) << c.first;
  const std::string key(6000, '\xff');  // 255 * 6000 * 6001 / 2 exceeds 2^32
  const uint32_t wrapped = static_cast<uint32_t>(255ull * 6000 * 6001 / 2);
  EXPECT_EQ(CKADict<int>(1000003).GetHashKey(key.c_str()), wrapped % 1000003u);
}

TEST(CKADict, RefusesDuplicatesKeepsFirstValueAndComparesCaseSensitively) {
  CKADict<int> dict;
  EXPECT_EQ(dict.m_nHashSize, 64u);
  EXPECT_EQ(Get(dict, {"SIN", nullptr}), "miss miss ");
  EXPECT_EQ(Add(dict, {{"SIN", 1}, {"SIN", 2}, {"sin", 3}, {"", 5}, {"", 6}, {nullptr, 6}}),
            "101100");
  EXPECT_EQ(Get(dict, {"SIN", "sin", "", "Sin"}), "1 3 5 miss ");
  EXPECT_EQ(dict.GetCount(), 3);
  EXPECT_EQ(dict.m_lstNode.m_pTail->m_Data.m_pKey, nullptr);  // the empty key has no text
  char key[] = "PI";                                          // keys are copied
  dict.Add(key, 4);
  key[0] = 'X';
  EXPECT_EQ(Get(dict, {"PI"}), "4 ");
}

TEST(CKADict, EntriesOfOneBucketStandTogetherInInsertionOrder) {
  CKADict<int> dict(8);  // "a", "i", "q" -> bucket 1; "b" -> 2; "c" -> 3
  EXPECT_EQ(Add(dict, {{"a", 0}, {"b", 1}, {"i", 2}, {"c", 3}, {"q", 4}}), "11111");
  EXPECT_EQ(Keys(dict), "a i q b c ");
  EXPECT_EQ(dict.m_pHashTable[1].m_nCount, 3);
  EXPECT_EQ(dict.m_pHashTable[0].m_nCount, 0);
  EXPECT_EQ(Get(dict, {"q", "c", "i", "b", "a", "y"}), "4 3 2 1 0 miss ");  // y: bucket 1
  dict.Empty();
  EXPECT_EQ(Get(dict, {"a"}), "miss ");
  EXPECT_EQ(Add(dict, {{"i", 3}, {"a", 4}}), "11");
  EXPECT_EQ(Keys(dict), "i a ");
}

TEST(CKADict, ZeroBucketsActAsOneAndFourBucketsHoldAHundred) {
  CKADict<int> one(0);
  EXPECT_EQ(one.m_nHashSize, 1u);
  CKADict<int> four(4);
  std::string expected, got;
  for (int i = 0; i < 100; ++i) {
    const std::string key = "K" + std::to_string(i);
    ASSERT_TRUE(one.Add(key.c_str(), i) && four.Add(key.c_str(), i));
    expected = std::to_string(i) + " " + expected;
  }
  for (int i = 99; i >= 0; --i) got += Get(four, {("K" + std::to_string(i)).c_str()});
  EXPECT_EQ(got, expected);
  EXPECT_EQ(Get(one, {"K13"}), "13 ");
  int total = 0;
  for (unsigned int b = 0; b < 4; ++b) total += four.m_pHashTable[b].m_nCount;
  EXPECT_EQ(total, 100);
}

TEST(CKADict, CopiesKeepOrderAndOwnTheirKeys) {
  CKADict<int> dict(8);
  for (const char* key : {"a", "b", "i", "", "q"}) dict.Add(key, 1);
  CKADict<int> copy(dict);
  EXPECT_EQ(Keys(copy), "a i q b  ");
  EXPECT_NE(copy.m_lstNode.m_pHead->m_Data.m_pKey, dict.m_lstNode.m_pHead->m_Data.m_pKey);
  EXPECT_TRUE(copy.Add("c", 2));
  CKADict<int> assigned(3);
  assigned.Add("z", 9);
  assigned = copy;
  EXPECT_EQ(assigned.m_nHashSize, 8u);
  EXPECT_EQ(Get(assigned, {"z", "c"}), "miss 2 ");
  EXPECT_EQ(Get(dict, {"c"}), "miss ");
  CKADict<int>::SNode a("KEY", 1), b;
  b = a;
  a = *&a;  // self-assignment, written so compilers do not flag it
  EXPECT_STREQ(b.m_pKey, "KEY");
  EXPECT_STREQ(a.m_pKey, "KEY");
  EXPECT_NE(b.m_pKey, a.m_pKey);
  EXPECT_EQ(b.m_Value, 1);
  CKADict<CKAString> texts(4);  // values that own heap text (checked under ASan)
  for (int i = 0; i < 12; ++i)
    texts.Add(("key" + std::to_string(i)).c_str(), CKAString('x', i + 1));
  CKADict<CKAString> textCopy(texts);
  CKAString value("untouched");
  EXPECT_TRUE(textCopy.Find("key4", value));
  EXPECT_FALSE(textCopy.Find("key12", value));
  EXPECT_STREQ(value.GetBuf(), "xxxxx");
}
