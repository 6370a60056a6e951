#include <gtest/gtest.h>

#include "zu_std.h"

// ---- Memory and text helpers ----

#include <cstring>
#include <string>
#include <utility>
#include <vector>

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

TEST(KaStrnocasecmp, ComparesWholeTextsIgnoringCase) {
  EXPECT_EQ(ka_strnocasecmp("Hello", "hELLO"), 0);
  EXPECT_LT(ka_strnocasecmp("abc", "ABD"), 0);
  EXPECT_GT(ka_strnocasecmp("abcd", "ABC"), 0);  // no length limit despite the name
  EXPECT_LT(ka_strnocasecmp(nullptr, "a"), 0);
  EXPECT_GT(ka_strnocasecmp("", nullptr), 0);
  EXPECT_EQ(ka_strnocasecmp(nullptr, nullptr), 0);
}

TEST(KaCase, ConvertsUpToTerminator) {
  char text[] = "aB1z\0q";
  ka_toupper(text);
  EXPECT_EQ(std::memcmp(text, "AB1Z\0q", 7), 0);
  ka_tolower(text);
  EXPECT_EQ(std::memcmp(text, "ab1z\0q", 7), 0);
  ka_toupper(nullptr);
  ka_tolower(nullptr);
  char high[] = "\xe9\xff";  // bytes above 127 pass through in the C locale
  ka_toupper(high);
  EXPECT_STREQ(high, "\xe9\xff");
}

// ---- Base64 ----

namespace {

std::string Encode(const std::string& bytes) {
  std::vector<char> out(bytes.size() / 3 * 4 + 5, '#');
  CZUBase64().base64_encode(reinterpret_cast<const unsigned char*>(bytes.data()), out.data(),
                            static_cast<int>(bytes.size()));
  return out.data();
}

// Decoded bytes. The text is copied to an exact-size heap block so that the sanitizer builds
// catch any read past its terminator; the output is poisoned to catch writes past the count.
std::string Decode(const char* text) {
  const std::vector<char> exact(text, text + std::strlen(text) + 1);
  unsigned char out[64];
  std::memset(out, '#', sizeof out);
  const int n = CZUBase64().base64_decode(exact.data(), out);
  EXPECT_EQ(out[n], '#') << "wrote past the returned count for " << text;
  return std::string(reinterpret_cast<const char*>(out), static_cast<size_t>(n));
}

}  // namespace

TEST(CZUBase64, EncodesRfc4648Vectors) {
  const std::pair<const char*, const char*> vectors[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
      {"Man", "TWFu"},
      {"Ma", "TWE="},
      {"M", "TQ=="},
  };
  for (const auto& v : vectors) {
    EXPECT_EQ(Encode(v.first), v.second) << v.first;
    EXPECT_EQ(Decode(v.second), v.first) << v.second;
  }
}

TEST(CZUBase64, EncodeEdgeCases) {
  char out[8] = "#######";
  CZUBase64 codec;
  EXPECT_EQ(codec.base64_encode(reinterpret_cast<const unsigned char*>("abc"), out, 0), out);
  EXPECT_STREQ(out, "");
  std::strcpy(out, "#######");
  codec.base64_encode(reinterpret_cast<const unsigned char*>("abc"), out, -2);
  EXPECT_STREQ(out, "");
  std::strcpy(out, "#######");
  codec.base64_encode(nullptr, out, 3);
  EXPECT_STREQ(out, "");
  EXPECT_EQ(codec.base64_encode(reinterpret_cast<const unsigned char*>("abc"), nullptr, 3),
            nullptr);
  EXPECT_STREQ(CZUBase64::base64char,
               "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
}

TEST(CZUBase64, RoundTripsAllByteValues) {
  unsigned char bytes[256];
  for (int i = 0; i < 256; ++i) bytes[i] = static_cast<unsigned char>(i);
  char text[345];
  CZUBase64 codec;
  codec.base64_encode(bytes, text, 256);
  EXPECT_EQ(std::strlen(text), 344u);
  unsigned char back[258];
  EXPECT_EQ(codec.base64_decode(text, back), 256);
  EXPECT_EQ(std::memcmp(bytes, back, 256), 0);
}

TEST(CZUBase64, DecodesWithoutValidation) {
  unsigned char out[8];
  CZUBase64 codec;
  EXPECT_EQ(codec.base64_decode("", out), 0);
  EXPECT_EQ(codec.base64_decode(nullptr, out), 0);
  EXPECT_EQ(codec.base64_decode("TWFu", nullptr), 0);
  // Outside the alphabet counts as all six bits set: '!' -> 63 like '/'.
  EXPECT_EQ(Decode("!!!!"), Decode("////"));
  EXPECT_EQ(Decode("TQ==TWFu"), "M");  // stops at the first padded group
}

TEST(CZUBase64, UnpaddedTailDecodesAsIfPadded) {
  EXPECT_EQ(Decode("TWE"), "Ma");
  EXPECT_EQ(Decode("TQ"), "M");
  EXPECT_EQ(Decode("TWFuTQ"), "ManM");
  EXPECT_EQ(Decode("TWFuT"), "Man");  // a lone character carries no whole byte
  EXPECT_EQ(Decode("T"), "");
}

//
//
//

// ---- Local time ----

#include <ctime>

#include "test_util.h"

namespace {

std::vector<int> Fields(const STimeInfo& i) {
  return {i.wYear, i.wMonth, i.wDay, i.wHour, i.wMinute, i.wSecond, i.wMilliseconds, i.wReserved};
}

}  // namespace

TEST(KaLocaltime, ConvertsInTheProcessTimeZone) {
  const struct {
    const char* tz;
    time_t t;
    std::vector<int> fields;  // year month day hour minute second, day of week, day of year
  } cases[] = {
      {"UTC0", 0, {1970, 1, 1, 0, 0, 0, 4, 0}},
      {"CET-1", 0, {1970, 1, 1, 1, 0, 0, 4, 0}},
      {"EST5", 0, {1969, 12, 31, 19, 0, 0, 3, 364}},
      {"UTC0", 951825600, {2000, 2, 29, 12, 0, 0, 2, 59}},
      {"UTC0", 978307199, {2000, 12, 31, 23, 59, 59, 0, 365}},
      {"CET-1CEST,M3.5.0,M10.5.0/3", 1719835200, {2024, 7, 1, 14, 0, 0, 1, 182}},
      {"UTC0", 2147483647, {2038, 1, 19, 3, 14, 7, 2, 18}},  // the last 32-bit second
  };
  EXPECT_TRUE(sizeof(void*) > 4 || sizeof(time_t) == 4);  // 32-bit ARM: ends in 2038
  for (const auto& c : cases) {
    zutest::SetTimeZone(c.tz);
    std::vector<int> got = Fields(ka_localtime(&c.t));
    EXPECT_EQ(0, got[6] | got[7]);  // milliseconds and reserved
    got.resize(6);
    got.push_back(ka_localtime_week(&c.t));
    got.push_back(ka_localtime_dayofyear(&c.t));
    EXPECT_EQ(c.fields, got) << c.tz << " " << c.t;
  }
  EXPECT_EQ(std::vector<int>(8, 0), Fields(ka_localtime(nullptr)));
  EXPECT_EQ(-1, ka_localtime_week(nullptr));
  EXPECT_EQ(-1, ka_localtime_dayofyear(nullptr));
}

TEST(KaElapsedMtime, CombinesSecondsAndMillisecondsUnsigned) {
  const struct {
    SIntervalMTime start, now;
    unsigned int elapsed;
  } cases[] = {
      {{100, 0}, {100, 0}, 0},
      {{100, 0}, {100, 999}, 999},
      {{100, 900}, {101, 100}, 200},
      {{100, 500}, {105, 499}, 4999},
      {{2147483000, 10}, {2147483647, 20}, 647010},
      // The clock went back: the difference wraps to a huge value, ending any wait at once.
      {{100, 0}, {99, 999}, 4294967295u},
      {{100, 0}, {90, 0}, 4294957296u},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.elapsed, ka_elapsed_mtime(c.start, c.now))
        << c.start.tSecond << "." << c.start.wMillisecond;
  }
}

// ---- Byte order, directories, sockets, paths, library names ----

TEST(KaPlatformHelpers, ByteOrderAndSocketsDoNothingAndAnyPathCountsAsADirectory) {
  unsigned char data[4] = {1, 2, 3, 4};
  EXPECT_EQ(data, ka_byteorder(data, 4));
  EXPECT_EQ(0, std::memcmp(data, "\x01\x02\x03\x04", 4));
  EXPECT_EQ(nullptr, ka_byteorder(nullptr, -1));
  EXPECT_TRUE(ka_startup_socket());
  ka_cleanup_socket();
  zutest::TempDir tmp;
  ASSERT_TRUE(zutest::WriteFile(tmp.Path("file"), "x"));
  EXPECT_TRUE(ka_is_dir_exist(tmp.path().c_str()));
  EXPECT_TRUE(ka_is_dir_exist(tmp.Path("file").c_str()));  // a plain file counts too
  EXPECT_FALSE(ka_is_dir_exist(tmp.Path("missing").c_str()));
  EXPECT_FALSE(ka_is_dir_exist(""));
  EXPECT_FALSE(ka_is_dir_exist(nullptr));
}

TEST(KaGetPathName, ExpandsLeadingVariable) {
  setenv("ZU_TEST_HOME", "/home/u", 1);
  setenv("$ZU_TEST_DOLLAR", "/odd", 1);
  unsetenv("ZU_TEST_NOPE");
  const std::pair<const char*, const char*> cases[] = {
      {"/etc", "/etc"},
      {"  $ZU_TEST_HOME/etc/a.ini ", "/home/u/etc/a.ini"},
      {"\t$ZU_TEST_HOME/\r\n", "/home/u/"},
      {"$ZU_TEST_NOPE/x", ""},
      {"$ZU_TEST_HOME", ""},  // without a slash the name keeps its '$' and is not set
      {"$ZU_TEST_DOLLAR", "$ZU_TEST_DOLLAR"},  // found, but there is no span to replace
      {"a/$ZU_TEST_HOME/b", "a/$ZU_TEST_HOME/b"},
      {"  \t ", ""},
      {"", ""},
      {" rel path ", "rel path"},
      {"\v/x", "\v/x"},  // a vertical tab is not a blank
  };
  for (const auto& c : cases) EXPECT_EQ(c.second, ka_get_path_name(c.first)) << c.first;
  EXPECT_EQ("", ka_get_path_name(nullptr));
  unsetenv("ZU_TEST_HOME");
  unsetenv("$ZU_TEST_DOLLAR");
}

TEST(KaGetDllName, WrapsNameAndRefusesWhatDoesNotFit) {
  const std::string longest(73, 'n');
  EXPECT_STREQ("libabc.so", ka_get_dll_name("abc").GetBuf());
  EXPECT_STREQ("lib.so", ka_get_dll_name("").GetBuf());
  EXPECT_EQ("lib" + longest + ".so", std::string(ka_get_dll_name(longest.c_str()).GetBuf()));
  const std::string tooLong(74, 'n'), huge(5000, 'x');
  for (const char* name : {tooLong.c_str(), huge.c_str(), static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(0, ka_get_dll_name(name).GetLength());
  }
}
