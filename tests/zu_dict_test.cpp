#include <gtest/gtest.h>

#include <string>

#include "zu_dict.h"
#include "zu_string.h"

// CKAString values own heap text (run under ASan). Of 8 buckets, "a i q y A" share bucket 1.
TEST(CKADict, KeepsFirstValuesRefusesNullKeysKeepsBucketsTogetherAndCopiesDeeply) {
  CKADict<CKAString> dict(8), copy(0);  // 0 buckets act as 1
  char key[] = "i";                     // keys are copied
  std::string added, keys, found;
  const char* const adds[] = {"a", "b", key, "", "q", "a", "", nullptr};
  for (const char* k : adds)
    added += dict.Add(k, CKAString('v', static_cast<int>(added.size()) + 1)) ? '1' : '0';
  key[0] = 'x';
  EXPECT_TRUE(copy.Add("z", "") && copy.Add("y", "") && copy.m_nHashSize == 1);
  copy = dict;
  dict.Empty();
  EXPECT_TRUE(dict.Add("i", "") && dict.Add("a", ""));
  for (const CKADict<CKAString>* d : {&copy, &dict})
    for (auto* node = d->m_lstNode.m_pHead; node; node = node->m_pNext)
      keys += std::string(node->m_Data.m_pKey ? node->m_Data.m_pKey : "()") + " ";
  for (const char* k : {"a", "i", "q", "", "A", "y", "x", "b", "z"}) {
    CKAString value("-");  // value lengths; "-" where Find fails and leaves the output
    found += (copy.Find(k, value) ? std::to_string(value.GetLength()) : value.GetBuf()) + " ";
  }
  EXPECT_EQ(added + " " + keys + found, "11111000 a i q b () i a 1 3 5 4 - - - 2 - ");
  const CKADict<int> wide(1000003);
  const std::string big(6000, '\xff');  // the sum, 255 * 6000 * 6001 / 2, wraps at 2^32
  EXPECT_EQ(wide.GetHashKey("A\xc8") + wide.GetHashKey(nullptr), 465u);  // 65 + 200 * 2
  EXPECT_EQ(wide.GetHashKey(big.c_str()), (255ull * 6000 * 6001 / 2) % (1ull << 32) % 1000003);
}
