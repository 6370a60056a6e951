#include <gtest/gtest.h>

#include "zu_std.h"

// ---- Memory and text helpers ----

#include <cstring>
#include <string>
#include <utility>
#include <vector>

TEST(KaMemmove, ShiftsOverlappingRangesBothWaysAndIgnoresBadArguments) {
  char up[] = "abcdefgh", down[] = "abcdefgh", same[] = "abc";
  ka_memmove(up + 2, up, 5);
  ka_memmove(down, down + 2, 5);
  EXPECT_STREQ(up, "ababcdeh");
  EXPECT_STREQ(down, "cdefgfgh");
  ka_memmove(same + 1, same, 0);
  ka_memmove(same + 1, same, -4);
  ka_memmove(nullptr, same, 2);
  ka_memmove(same, nullptr, 2);
  EXPECT_STREQ(same, "abc");
}

TEST(KaStrncpy, AlwaysTerminatesAtN) {
  const struct {
    const char* src;
    int n;
    std::string bytes;  // the 8 bytes of dst afterwards, 'z' where untouched
  } cases[] = {{"abcdef", 3, std::string("abc\0zzzz", 8)},
               {"abcdef", 0, std::string("\0zzzzzzz", 8)},
               {"ab", 5, std::string("ab\0\0\0\0zz", 8)},  // strncpy pads with zeros
               {"abcdef", -1, std::string("\0zzzzzzz", 8)},
               {nullptr, 3, std::string("\0zzzzzzz", 8)}};
  for (const auto& c : cases) {
    char dst[8];
    std::memset(dst, 'z', sizeof dst);
    EXPECT_EQ(ka_strncpy(dst, c.src, c.n), dst);
    EXPECT_EQ(std::string(dst, 8), c.bytes) << c.n;
  }
  EXPECT_EQ(ka_strncpy(nullptr, "ab", 1), nullptr);
}

TEST(KaText, ComparesIgnoringCaseAndConvertsUpToTheTerminator) {
  EXPECT_EQ(ka_strnocasecmp("Hello", "hELLO"), 0);
  EXPECT_LT(ka_strnocasecmp("abc", "ABD"), 0);
  EXPECT_GT(ka_strnocasecmp("abcd", "ABC"), 0);  // no length limit despite the name
  EXPECT_LT(ka_strnocasecmp(nullptr, "a"), 0);
  EXPECT_GT(ka_strnocasecmp("", nullptr), 0);
  EXPECT_EQ(ka_strnocasecmp(nullptr, nullptr), 0);
  char text[] = "aB1z\0q\xe9";  // bytes above 127 pass through in the C locale
  ka_toupper(text);
  EXPECT_EQ(std::string(text, 8), std::string("AB1Z\0q\xe9", 8));
  ka_tolower(text);
  EXPECT_EQ(std::string(text, 8), std::string("ab1z\0q\xe9", 8));
  ka_toupper(nullptr);
  ka_tolower(nullptr);
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

TEST(CZUBase64, EncodesAndDecodesRfc4648Vectors) {
  const std::pair<const char*, std::vector<const char*>> words[] = {
      {"foobar", {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"}},
      {"Man", {"", "TQ==", "TWE=", "TWFu"}}};
  for (const auto& [word, encodings] : words) {
    for (size_t i = 0; i < encodings.size(); ++i) {
      const std::string bytes(word, i);
      EXPECT_EQ(Encode(bytes), encodings[i]) << bytes;
      EXPECT_EQ(Decode(encodings[i]), bytes) << bytes;
    }
  }
  unsigned char bytes[256], back[258];
  for (int i = 0; i < 256; ++i) bytes[i] = static_cast<unsigned char>(i);
  char text[345];
  CZUBase64().base64_encode(bytes, text, 256);
  EXPECT_EQ(std::strlen(text), 344u);
  EXPECT_EQ(CZUBase64().base64_decode(text, back), 256);
  EXPECT_EQ(std::memcmp(bytes, back, 256), 0);
  EXPECT_STREQ(CZUBase64::base64char,
               "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
}

TEST(CZUBase64, EncodeGuardsWriteOnlyTheTerminator) {
  const unsigned char* abc = reinterpret_cast<const unsigned char*>("abc");
  const std::pair<const unsigned char*, int> cases[] = {{abc, 0}, {abc, -2}, {nullptr, 3}};
  for (const auto& c : cases) {
    char out[8] = "#######";
    EXPECT_EQ(CZUBase64().base64_encode(c.first, out, c.second), out);
    EXPECT_EQ(std::string(out, 8), std::string("\0######", 8)) << c.second;
  }
  EXPECT_EQ(CZUBase64().base64_encode(abc, nullptr, 3), nullptr);
}

TEST(CZUBase64, DecodesWithoutValidationAndNeverReadsPastTheText) {
  const char* const cases[][2] = {
      {"TQ==TWFu", "M"},                                   // stops at the first padded group
      {"TWE", "Ma"},     {"TQ", "M"}, {"TWFuTQ", "ManM"},  // unpadded tails as if padded
      {"TWFuT", "Man"},  {"T", ""}};                       // a lone character carries no whole byte
  for (const auto& c : cases) EXPECT_EQ(Decode(c[0]), c[1]) << c[0];
  EXPECT_EQ(Decode("!!!!"), Decode("////"));  // outside the alphabet: all six bits set
  unsigned char out[8];
  EXPECT_EQ(CZUBase64().base64_decode(nullptr, out), 0);
  EXPECT_EQ(CZUBase64().base64_decode("TWFu", nullptr), 0);
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
