#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "zu_token.h"

namespace {

struct PlainToken {
  bool m_bFirst;
  char* m_pText;
  char* m_pSave;
  int m_nSize;
  char m_szDelimiter[CKAToken::kDelimiterCapacity];
};
static_assert(sizeof(CKAToken) == sizeof(PlainToken), "CKAToken layout");

int BufferSize(const CKAToken& t) {
  PlainToken raw;
  std::memcpy(static_cast<void*>(&raw), static_cast<const void*>(&t), sizeof raw);
  return raw.m_nSize;
}

std::vector<std::string> AllTokens(CKAToken& t) {
  std::vector<std::string> out;
  CKAString token;
  while (t.GetToken(token)) out.push_back(token.GetBuf());
  return out;
}

using Tokens = std::vector<std::string>;

}  // namespace

TEST(CKAToken, SplitsAtAnyDelimiterLikeStrtok) {
  struct Case {
    const char* text;
    const char* delimiters;
    Tokens expected;
  };
  const Case cases[] = {
      {"a  b,c", ", ", {"a", "b", "c"}},
      {"x\ty\nz", nullptr, {"x", "y", "z"}},
      {",,a,,", ",", {"a"}},
      {"a,b", "", {"a,b"}},
      {"", ",", {}},
      {nullptr, ",", {}},
      {" \t\n", nullptr, {}},
      {"one two", "x", {"one two"}},
  };
  for (const Case& c : cases) {
    CKAToken t(c.text, c.delimiters);
    EXPECT_EQ(AllTokens(t), c.expected) << (c.text ? c.text : "(null)");
  }
}

TEST(CKAToken, EndLeavesTokenUnchangedAndStaysAtEnd) {
  CKAToken t("a", ",");
  CKAString token("old");
  EXPECT_TRUE(t.GetToken(token));
  EXPECT_STREQ(token.GetBuf(), "a");
  EXPECT_FALSE(t.GetToken(token));
  EXPECT_FALSE(t.GetToken(token));
  EXPECT_STREQ(token.GetBuf(), "a");
}

TEST(CKAToken, WithoutTextYieldsNothing) {
  CKAToken t;
  CKAString token("keep");
  EXPECT_FALSE(t.GetToken(token));
  EXPECT_STREQ(token.GetBuf(), "keep");
  EXPECT_EQ(BufferSize(t), 128);
}

TEST(CKAToken, BufferGrowsToFitAndNeverShrinks) {
  const std::string longText(150, 'a');
  std::string text = longText + " " + longText;  // 301 bytes
  CKAToken t(text.c_str(), " ");
  EXPECT_EQ(BufferSize(t), 302);
  EXPECT_EQ(AllTokens(t), (Tokens{longText, longText}));
  t.SetString("p q", nullptr);
  EXPECT_EQ(BufferSize(t), 302);
  EXPECT_EQ(AllTokens(t), (Tokens{"p", "q"}));
}

TEST(CKAToken, SetStringRestartsTheScan) {
  CKAToken t("a b c", nullptr);
  CKAString token;
  EXPECT_TRUE(t.GetToken(token));
  t.SetString("x;y", ";");
  EXPECT_EQ(AllTokens(t), (Tokens{"x", "y"}));
}

TEST(CKAToken, LongDelimiterSetKeepsDistinctBytes) {
  // 200 bytes but only 3 distinct delimiters: every one of them still separates.
  std::string repeated;
  for (int i = 0; i < 200 / 3 + 1; ++i) repeated += ",;:";
  CKAToken t("a,b;c:d", repeated.c_str());
  EXPECT_EQ(AllTokens(t), (Tokens{"a", "b", "c", "d"}));

  // More distinct bytes than fit: the first 63 are kept, later ones are plain text.
  std::string many;
  for (int c = 1; c <= 100; ++c) many += static_cast<char>(c);
  const std::string text = std::string("a") + static_cast<char>(10) + "b" + static_cast<char>(63) +
                           "c" + static_cast<char>(64) + "d";
  t.SetString(text.c_str(), many.c_str());
  EXPECT_EQ(AllTokens(t), (Tokens{"a", "b", std::string("c") + static_cast<char>(64) + "d"}));
}
