#include <gtest/gtest.h>

#include "zu_std.h"

// ---- Memory and text helpers ----

#include <cstring>
#include <string>

TEST(KaMemmove, ShiftsOverlappingRangesBothWays) {
  char up[] = "abcdefgh";
  ka_memmove(up + 2, up, 5);
  EXPECT_STREQ(up, "ababcdeh");
  char down[] = "abcdefgh";
  ka_memmove(down, down + 2, 5);
  EXPECT_STREQ(down, "cdefgfgh");
  char same[] = "abc";
  ka_memmove(same + 1, same, 0);
  ka_memmove(same + 1, same, -4);
  ka_memmove(nullptr, same, 2);
  ka_memmove(same, nullptr, 2);
  EXPECT_STREQ(same, "abc");
}

TEST(KaStrncpy, AlwaysTerminates) {
  char dst[8];
  std::memset(dst, 'z', sizeof dst);
  EXPECT_EQ(ka_strncpy(dst, "abcdef", 3), dst);
  EXPECT_EQ(std::memcmp(dst, "abc\0zzzz", 8), 0);
  std::memset(dst, 'z', sizeof dst);
  ka_strncpy(dst, "abcdef", 0);
  EXPECT_EQ(std::memcmp(dst, "\0zzzzzzz", 8), 0);
  std::memset(dst, 'z', sizeof dst);
  ka_strncpy(dst, "abcdef", -1);
  EXPECT_EQ(dst[0], '\0');
  std::memset(dst, 'z', sizeof dst);
  ka_strncpy(dst, nullptr, 3);
  EXPECT_EQ(dst[0], '\0');
  std::memset(dst, 'z', sizeof dst);
  ka_strncpy(dst, "ab", 5);  // strncpy pads with zeros up to n
  EXPECT_EQ(std::memcmp(dst, "ab\0\0\0\0zz", 8), 0);
  EXPECT_EQ(ka_strncpy(nullptr, "ab", 1), nullptr);
}

// ---- Base64 ----

//
//
//

// ---- Local time ----

// ---- Byte order, directories, sockets, paths, library names ----
