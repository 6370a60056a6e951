#include "zu_std.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "test_util.h"

TEST(KaText, CopiesTerminateAtNAndCaseCompareHasNoLengthLimit) {
  char dst[4] = "zzz";
  EXPECT_EQ(std::string(ka_strncpy(dst, "abcdef", 3), 4), std::string("abc\0", 4));
  EXPECT_EQ(std::string(ka_strncpy(dst, "ab", -1), 4), std::string("\0bc\0", 4));
  EXPECT_GT(ka_strnocasecmp("abcd", "ABC"), 0);
  EXPECT_LT(ka_strnocasecmp(nullptr, "a"), 0);  // null sorts first
  EXPECT_TRUE(ka_is_dir_exist("/etc/passwd"));  // kept: any existing path counts
}

// Decoded bytes; the text sits in an exact-size heap block so the sanitizers catch a read
// past its terminator, and a poisoned output catches a write past the returned count.
static std::string Decode(const char* text) {
  const std::vector<char> exact(text, text + std::strlen(text) + 1);
  unsigned char out[16];
  std::memset(out, '#', sizeof out);
  const int n = CZUBase64().base64_decode(exact.data(), out);
  EXPECT_EQ(out[n], '#') << text;
  return std::string(reinterpret_cast<const char*>(out), static_cast<size_t>(n));
}

TEST(CZUBase64, EncodesRfc4648AndDecodesWithoutValidation) {
  const char* const words[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
  for (size_t i = 0; i < 7; ++i) {
    char out[12];
    CZUBase64().base64_encode(reinterpret_cast<const unsigned char*>("foobar"), out, int(i));
    EXPECT_STREQ(out, words[i]);
    EXPECT_EQ(Decode(words[i]), std::string("foobar", i));
  }
  const char* const odd[][2] = {{"TQ==TWFu", "M"}, {"TWFuTQ", "ManM"}, {"T", ""}};
  for (const auto& c : odd) EXPECT_EQ(Decode(c[0]), c[1]) << c[0];  // padding ends the text
  EXPECT_EQ(Decode("!!!!"), Decode("////"));  // outside the alphabet: all six bits set
  EXPECT_EQ(CZUBase64().base64_decode(nullptr, nullptr), 0);
}

TEST(KaTime, LocalFieldsAndElapsedMillisecondsWrapWhenTheClockGoesBack) {
  zutest::SetTimeZone("EST5");
  const time_t epoch = 0;
  const STimeInfo i = ka_localtime(&epoch);
  EXPECT_EQ((std::vector<int>{1969, 12, 31, 19, 3, 364}),
            (std::vector<int>{i.wYear, i.wMonth, i.wDay, i.wHour, ka_localtime_week(&epoch),
                              ka_localtime_dayofyear(&epoch)}));
  EXPECT_EQ(-1, ka_localtime_week(nullptr));
  EXPECT_EQ(647010u, ka_elapsed_mtime({2147483000, 10}, {2147483647, 20}));
  EXPECT_EQ(4294967295u, ka_elapsed_mtime({100, 0}, {99, 999}));
}

TEST(KaNames, PathsExpandOneLeadingVariableAndLibraryNamesFitTheirBuffer) {
  setenv("ZU_TEST_HOME", "/home/u", 1);
  const char* const cases[][2] = {{"  $ZU_TEST_HOME/a.ini \r\n", "/home/u/a.ini"},
                                  {"$ZU_TEST_NOPE/x", ""},
                                  {"$ZU_TEST_HOME", ""},  // kept: no slash, no expansion
                                  {"a/$ZU_TEST_HOME/b", "a/$ZU_TEST_HOME/b"},
                                  {"\v/x", "\v/x"}};  // a vertical tab is no blank
  for (const auto& c : cases) EXPECT_EQ(c[1], ka_get_path_name(c[0])) << c[0];
  EXPECT_EQ("", ka_get_path_name(nullptr));
  const std::string longest(73, 'n'), tooLong(74, 'n');
  EXPECT_EQ("lib" + longest + ".so", std::string(ka_get_dll_name(longest.c_str()).GetBuf()));
  EXPECT_EQ(0, ka_get_dll_name(tooLong.c_str()).GetLength());
  EXPECT_EQ(0, ka_get_dll_name(nullptr).GetLength());
}
