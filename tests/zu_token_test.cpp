#include <gtest/gtest.h>

#include <string>

#include "zu_token.h"

// strtok rules on a private copy; one object throughout, so its buffer must grow for the long
// text. A delimiter set keeps its first 63 distinct bytes: all 3 of 202 bytes, 63 of 100.
TEST(CKAToken, SplitsLikeStrtokAndKeeps63DistinctDelimiters) {
  const std::string half(150, 'a'), longText = half + " " + half, longTokens = half + "|" + half;
  const std::string repeated = std::string(200, ',') + ";:";
  std::string many;
  for (int c = 1; c <= 100; ++c) many += static_cast<char>(c);
  const char* const cases[][3] = {{longText.c_str(), " ", longTokens.c_str()},
                                  {",a  b,c,", ", ", "a|b|c"},
                                  {"x\ty\nz", nullptr, "x|y|z"},
                                  {"a,b", "", "a,b"},
                                  {nullptr, ",", ""},
                                  {"a,b;c:d", repeated.c_str(), "a|b|c|d"},
                                  {"a\nb?c@d", many.c_str(), "a|b|c@d"}};
  CKAToken t;
  CKAString token;
  for (const auto& c : cases) {
    t.SetString(c[0], c[1]);
    std::string got;
    while (t.GetToken(token)) got += (got.empty() ? "" : "|") + std::string(token.GetBuf());
    EXPECT_EQ(got, c[2]) << (c[0] ? c[0] : "(null)");
  }
  EXPECT_FALSE(t.GetToken(token) || CKAToken().GetToken(token));
  EXPECT_STREQ(token.GetBuf(), "c@d");  // a call that finds nothing leaves the token
}
