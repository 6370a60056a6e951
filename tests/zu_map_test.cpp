#include <gtest/gtest.h>

#include <string>

#include "zu_map.h"
#include "zu_string.h"

// CKAString values own heap text (run under ASan). Of 10 buckets, 3, 13 and 23 share bucket 3.
TEST(CKAMap, HashesNegativeKeysUnsignedRefusesDuplicatesAndCopiesDeeply) {
  CKAMap<int, CKAString> map(10), copy(0);  // 0 buckets act as 1
  EXPECT_EQ(map.GetHashKey(-7), 9u);        // 4294967289 % 10
  std::string added, keys, found;
  for (int k : {3, -7, 13, 3})
    added += map.Add(k, CKAString('v', static_cast<int>(added.size()) + 1)) ? '1' : '0';
  EXPECT_TRUE(copy.Add(-1, "") && copy.Add(1, "") && copy.m_nHashSize == 1);
  copy = map;
  map.Empty();
  EXPECT_TRUE(map.Add(13, "") && map.Add(3, ""));
  for (const CKAMap<int, CKAString>* m : {&copy, &map})
    for (auto* node = m->m_lstNode.m_pHead; node; node = node->m_pNext)
      keys += std::to_string(node->m_Data.m_Key) + " ";
  for (int k : {3, 13, -7, 23, 1}) {
    CKAString value("-");  // value lengths; "-" where Find fails and leaves the output
    found += (copy.Find(k, value) ? std::to_string(value.GetLength()) : value.GetBuf()) + " ";
  }
  EXPECT_EQ(added + " " + keys + found, "1110 3 13 -7 13 3 1 3 2 - - ");
}
