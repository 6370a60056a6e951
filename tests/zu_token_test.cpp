#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "zu_token.h"

namespace {

// Bytes allocated for the text, read through the fixed member layout.
int BufferSize(const CKAToken& t) {
  struct {
    bool first;
    char *text, *save;
    int size;
  } raw;
  std::memcpy(static_cast<void*>(&raw), static_cast<const void*>(&t), sizeof raw);
  return raw.size;
}

// The remaining tokens joined with '|'.
std::string Rest(CKAToken& t) {
  std::string out;
  CKAString token;
  while (t.GetToken(token)) out += (out.empty() ? "" : "|") + std::string(token.GetBuf());
  return out;
}

}  // namespace

TEST(CKAToken, SplitsAtAnyDelimiterLikeStrtok) {
  const char* const cases[][3] = {// text, delimiters (null: space, tab, line feed), tokens
                                  {"a  b,c", ", ", "a|b|c"},
                                  {"x\ty\nz", nullptr, "x|y|z"},
                                  {",,a,,", ",", "a"},
                                  {"a,b", "", "a,b"},
                                  {"", ",", ""},
                                  {nullptr, ",", ""},
                                  {" \t\n", nullptr, ""},
                                  {"one two", "x", "one two"}};
  for (const auto& c : cases) {
    CKAToken t(c[0], c[1]);
    EXPECT_EQ(Rest(t), c[2]) << (c[0] ? c[0] : "(null)");
  }
}

TEST(CKAToken, EndAndMissingTextLeaveTheTokenUnchanged) {
  CKAToken none;
  CKAString token("keep");
  EXPECT_FALSE(none.GetToken(token));
  EXPECT_STREQ(token.GetBuf(), "keep");
  EXPECT_EQ(BufferSize(none), 128);
  CKAToken t("a", ",");
  EXPECT_TRUE(t.GetToken(token));
  EXPECT_FALSE(t.GetToken(token));
  EXPECT_FALSE(t.GetToken(token));
  EXPECT_STREQ(token.GetBuf(), "a");
}

TEST(CKAToken, BufferGrowsToFitNeverShrinksAndSetStringRestarts) {
  const std::string half(150, 'a');
  CKAToken t((half + " " + half).c_str(), " ");  // 301 bytes
  EXPECT_EQ(BufferSize(t), 302);
  CKAString token;
  EXPECT_TRUE(t.GetToken(token));
  t.SetString("p q", nullptr);
  EXPECT_EQ(BufferSize(t), 302);
  EXPECT_EQ(Rest(t), "p|q");
  t.SetString((half + " " + half).c_str(), " ");
  EXPECT_EQ(Rest(t), half + "|" + half);
}

TEST(CKAToken, LongDelimiterSetKeepsItsFirst63DistinctBytes) {
  std::string repeated;  // 201 bytes but only 3 distinct delimiters: all still separate
  for (int i = 0; i < 67; ++i) repeated += ",;:";
  CKAToken t("a,b;c:d", repeated.c_str());
  EXPECT_EQ(Rest(t), "a|b|c|d");
  std::string many;  // bytes 1 .. 100: 64 and later are plain text
  for (int c = 1; c <= 100; ++c) many += static_cast<char>(c);
  t.SetString("a\nb?c@d", many.c_str());
  EXPECT_EQ(Rest(t), "a|b|c@d");
}
