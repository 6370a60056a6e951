#include "zu_para.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// A fresh directory under /tmp for each test, removed with its files afterwards.
class ParaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/zu_para_test.XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    m_dir = tmpl;
    m_path = m_dir + "/para.ini";
  }
  void TearDown() override {
    chmod(m_dir.c_str(), 0700);
    const std::string cmd = "rm -rf '" + m_dir + "'";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
  }
  static void Put(const std::string& path, const std::string& bytes) {
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
  }
  static std::string Get(const std::string& path) {
    std::string bytes;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return "<missing>";
    for (int c; (c = std::fgetc(f)) != EOF;) bytes += static_cast<char>(c);
    std::fclose(f);
    return bytes;
  }
  // Writes bytes to the test file and loads it into m_para.
  void Load(const std::string& bytes) {
    Put(m_path, bytes);
    ASSERT_TRUE(m_para.SetFileName(m_path.c_str()));
  }
  std::string File() const { return Get(m_path); }

  std::string m_dir;
  std::string m_path;
  CKAPara m_para;
};

struct LoadCase {
  const char* szName;
  std::string input;
  std::string written;  // the file after loading and WriteToFile
};

TEST_F(ParaTest, LoadsTrimmedLinesAndWritesThemBack) {
  const std::string l1500(1500, 'x');
  const std::string l1023(1023, 'y');
  const LoadCase cases[] = {
      {"trim", "  key  =  value  \r\n\t[S] \n", "key  =  value\n[S]\n"},
      {"comments and blanks", "; top\n\n[S]\n  ; c\na=1\n\n", "; top\n\n[S]\n; c\na=1\n\n"},
      {"no final line feed", "[S]\na=1", "[S]\na=1\n"},
      {"only blanks", "   \n\t\n", "\n\n"},
      {"1500 characters", "[S]\n" + l1500 + "\n",
       "[S]\n" + l1500.substr(0, 1023) + "\n" + l1500.substr(1023) + "\n"},
      {"1023 characters", l1023 + "\nz\n", l1023 + "\n\nz\n"},
      {"NUL in a line", std::string("[S]\nk=a\0b\nx=1\n", 14), "[S]\nk=a\nx=1\n"},
  };
  for (const LoadCase& c : cases) {
    SCOPED_TRACE(c.szName);
    Load(c.input);
    ASSERT_TRUE(m_para.WriteToFile());
    EXPECT_EQ(File(), c.written);
  }
}

struct SearchCase {
  const char* szSection;
  const char* szKey;
  int nResult;
};

TEST_F(ParaTest, SearchLineTellsFoundMissingKeyAndMissingSection) {
  EXPECT_EQ(m_para.SearchLine("A", "x"), -1);  // empty model
  Load("[A]\nx=1\n[B]\nx=2\n");
  const SearchCase
      cases[] =
          {
              {"b", "x", 3},  {"B", "X", -3},     {"C", "x", -5},     {"A", "x", 1},
              {"a", "y", -1}, {nullptr, "x", -5}, {"A", nullptr, -1}, {"[A]", "x", -5},
              {"A", "", 2},  // an empty key matches the next header before it ends the section
          };
  for (const SearchCase& c : cases) {
    SCOPED_TRACE(std::string(c.szSection ? c.szSection : "null") + "/" +
                 (c.szKey ? c.szKey : "null"));
    EXPECT_EQ(m_para.SearchLine(c.szSection, c.szKey), c.nResult);
  }
}

TEST_F(ParaTest, SearchLineFollowsTheLineKinds) {
  Load(
      "early=0\n"         // 0: before any header, never found
      "[Net] old\n"       // 1: header of net
      ";skip=1\n"         // 2: comment
      "  key \t =  v \n"  // 3
      "a=b=c\n"           // 4
      "noequals\n"        // 5
      "\n"                // 6
      "[net]\n"           // 7: second header of the same section, ignored
      "late=1\n");        // 8
  const SearchCase cases[] = {
      {"", "early", -10}, {"NET", "key", 3},   {"net", "a", 4},         {"net", ";skip", -2},
      {"net", "", 5},     {"net", "late", -2}, {"net", "noequals", -2},
  };
  for (const SearchCase& c : cases) {
    SCOPED_TRACE(std::string(c.szSection) + "/" + c.szKey);
    EXPECT_EQ(m_para.SearchLine(c.szSection, c.szKey), c.nResult);
  }
  CKAString value("untouched");
  EXPECT_TRUE(m_para.GetValueString(3, value));
  EXPECT_STREQ(value.GetBuf(), "v");
  EXPECT_TRUE(m_para.GetValueString(4, value));
  EXPECT_STREQ(value.GetBuf(), "b=c");
  value = "untouched";
  EXPECT_FALSE(m_para.GetValueString(5, value));
  EXPECT_FALSE(m_para.GetValueString(-1, value));
  EXPECT_FALSE(m_para.GetValueString(9, value));
  EXPECT_STREQ(value.GetBuf(), "untouched");
  EXPECT_TRUE(m_para.GetValueString(6, value));  // an empty line has an empty value
  EXPECT_STREQ(value.GetBuf(), "");
}

TEST_F(ParaTest, SetValueStringDropsTheSpacesAfterTheEqualSign) {
  Load("[net]\nport = 80\nflag\n");
  EXPECT_TRUE(m_para.SetValueString(1, "81"));
  EXPECT_FALSE(m_para.SetValueString(2, "x"));
  EXPECT_FALSE(m_para.SetValueString(3, "x"));
  EXPECT_FALSE(m_para.SetValueString(-1, "x"));
  EXPECT_FALSE(m_para.SetValueString(1, nullptr));
  EXPECT_EQ(File(), "[net]\nport = 80\nflag\n");  // memory only
  ASSERT_TRUE(m_para.WriteToFile());
  EXPECT_EQ(File(), "[net]\nport =81\nflag\n");
}

TEST_F(ParaTest, GetKeyListJoinsWholeEntryLines) {
  Load("[A]\n;c\nx=1\n\ny = 2\n[B]\nz=3\n");
  EXPECT_EQ(m_para.GetKeyList("a"), "x=1\n\ny = 2");
  EXPECT_EQ(m_para.GetKeyList("B"), "z=3");
  EXPECT_EQ(m_para.GetKeyList("C"), "");
  EXPECT_EQ(m_para.GetKeyList(nullptr), "");
  Load("[A]\n\nx=1\n[B]\n");
  EXPECT_EQ(m_para.GetKeyList("A"), "\nx=1");
  EXPECT_EQ(m_para.GetKeyList("B"), "");
}

TEST_F(ParaTest, TypedGettersConvertWithDefaultsAndFoundFlags) {
  Load(
      "[S]\non=yes\nyes=y\nbig=Y\nno=N\nempty=\nn=12abc\nna=abc\nneg= -7\n"
      "huge=99999999999\ntiny=-99999999999\nr=2.5x\ns=  hello world  \n");
  struct BoolCase {
    const char* szKey;
    bool bDefault, bResult, bFound;
  } const bools[] = {
      {"on", true, true, false},  {"yes", false, true, true},   {"big", false, true, true},
      {"no", true, false, true},  {"empty", true, true, false}, {"missing", true, true, false},
      {"n", false, false, false},
  };
  for (const BoolCase& c : bools) {
    SCOPED_TRACE(c.szKey);
    bool bFound = !c.bFound;
    EXPECT_EQ(m_para.GetBool("S", c.szKey, c.bDefault, &bFound), c.bResult);
    EXPECT_EQ(bFound, c.bFound);
  }
  struct IntCase {
    const char* szKey;
    int nResult;
    bool bFound;
  } const ints[] = {
      {"n", 12, true},         {"na", 0, true},        {"neg", -7, true},  {"huge", INT_MAX, true},
      {"tiny", INT_MIN, true}, {"missing", 42, false}, {"empty", 0, true},
  };
  for (const IntCase& c : ints) {
    SCOPED_TRACE(c.szKey);
    bool bFound = !c.bFound;
    EXPECT_EQ(m_para.GetInt("S", c.szKey, 42, &bFound), c.nResult);
    EXPECT_EQ(bFound, c.bFound);
  }
  bool bFound = false;
  EXPECT_DOUBLE_EQ(m_para.GetReal("S", "r", 9.0, &bFound), 2.5);
  EXPECT_TRUE(bFound);
  EXPECT_DOUBLE_EQ(m_para.GetReal("S", "x", 9.0, &bFound), 9.0);
  EXPECT_FALSE(bFound);
  EXPECT_EQ(m_para.GetString("S", "s", "d", &bFound), "hello world");
  EXPECT_TRUE(bFound);
  EXPECT_EQ(m_para.GetString("S", "empty", "d", &bFound), "");
  EXPECT_TRUE(bFound);
  EXPECT_EQ(m_para.GetString("S", "x", "d", &bFound), "d");
  EXPECT_FALSE(bFound);
  EXPECT_EQ(m_para.GetString("S", "x", nullptr, &bFound), "");
  EXPECT_EQ(m_para.GetInt("s", "n", 0, nullptr), 12);  // pFound may be null
}

TEST_F(ParaTest, GettersTreatNullSectionOrKeyAsMissing) {
  Load("[S]\nk=1\n");
  bool bFound = true;
  EXPECT_TRUE(m_para.GetBool(nullptr, "k", true, &bFound));
  EXPECT_FALSE(bFound);
  bFound = true;
  EXPECT_EQ(m_para.GetInt("S", nullptr, 5, &bFound), 5);
  EXPECT_FALSE(bFound);
  bFound = true;
  EXPECT_DOUBLE_EQ(m_para.GetReal(nullptr, nullptr, 1.5, &bFound), 1.5);
  EXPECT_FALSE(bFound);
  bFound = true;
  EXPECT_EQ(m_para.GetString(nullptr, "k", "d", &bFound), "d");
  EXPECT_FALSE(bFound);
}

struct EditCase {
  const char* szName;
  const char* szBefore;
  bool (*edit)(CKAPara&);
  bool bResult;
  const char* szAfter;
};

const EditCase kEdits[] = {
    {"new section on an empty file", "", [](CKAPara& p) { return p.SetInt("S", "n", 5); }, true,
     "\n[S]\nn=5\n"},
    {"new key first in its section", "[S]\nn=5\n", [](CKAPara& p) { return p.SetInt("S", "m", 7); },
     true, "[S]\nm=7\nn=5\n"},
    {"new section appended after a blank line", "[A]\nx=1\n",
     [](CKAPara& p) { return p.SetString("B", "k", "v w"); }, true, "[A]\nx=1\n\n[B]\nk=v w\n"},
    {"space after the equal sign is lost", "[net]\nport = 80\n",
     [](CKAPara& p) { return p.SetInt("NET", "port", 81); }, true, "[net]\nport =81\n"},
    {"comments and blank lines stay in place", "; top\n\n[S]\n ; c\na = 1\n\n[T]\nb=2\n",
     [](CKAPara& p) { return p.SetInt("T", "b", -3); }, true,
     "; top\n\n[S]\n; c\na = 1\n\n[T]\nb=-3\n"},
    {"real with three decimals", "[S]\nr=0\n",
     [](CKAPara& p) { return p.SetReal("S", "r", 1.23456); }, true, "[S]\nr=1.235\n"},
    {"real 2.5", "[S]\n", [](CKAPara& p) { return p.SetReal("S", "r", 2.5); }, true,
     "[S]\nr=2.500\n"},
    {"real 0.0004", "[S]\n", [](CKAPara& p) { return p.SetReal("S", "r", 0.0004); }, true,
     "[S]\nr=0.000\n"},
    {"bool true", "[S]\nb=N\n", [](CKAPara& p) { return p.SetBool("S", "b", true); }, true,
     "[S]\nb=Y\n"},
    {"bool false", "[S]\nb=Y\n", [](CKAPara& p) { return p.SetBool("S", "b", false); }, true,
     "[S]\nb=N\n"},
    {"null value deletes the key", "[S]\nn=5\nm=6\n",
     [](CKAPara& p) { return p.SetString("S", "n", nullptr); }, true, "[S]\nm=6\n"},
    {"null section", " [S]\n", [](CKAPara& p) { return p.SetInt(nullptr, "n", 1); }, false,
     " [S]\n"},
    {"null key", " [S]\n", [](CKAPara& p) { return p.SetBool("S", nullptr, true); }, false,
     " [S]\n"},
    {"null key in SetReal", " [S]\n", [](CKAPara& p) { return p.SetReal("S", nullptr, 1); }, false,
     " [S]\n"},
    {"null section in SetString", " [S]\n",
     [](CKAPara& p) { return p.SetString(nullptr, "k", "v"); }, false, " [S]\n"},
    {"delete a key", "[S]\na=1\nb=2\n", [](CKAPara& p) { return p.DeleteSubKey("s", "a"); }, true,
     "[S]\nb=2\n"},
    {"delete a missing key still rewrites", " [S]\na=1\n",
     [](CKAPara& p) { return p.DeleteSubKey("S", "x"); }, true, "[S]\na=1\n"},
    {"delete key with null key", " [S]\n", [](CKAPara& p) { return p.DeleteSubKey("S", nullptr); },
     false, " [S]\n"},
    {"delete section before another", "[S]\na=1\n[T]\nb=2\n",
     [](CKAPara& p) { return p.DeleteKey("S"); }, true, "[T]\nb=2\n"},
    {"delete section with comments and blanks", "[T]\n[S]\n;c\n\na=1\n[U]\n",
     [](CKAPara& p) { return p.DeleteKey("s"); }, true, "[T]\n[U]\n"},
    {"delete last section ending in an entry", "[T]\nb=2\n[S]\n;c\na=1\n",
     [](CKAPara& p) { return p.DeleteKey("S"); }, true, "[T]\nb=2\n"},
    {"delete last section ending in a comment keeps it", " [S]\na=1\n;end\n",
     [](CKAPara& p) { return p.DeleteKey("S"); }, true, "[S]\na=1\n;end\n"},
    {"delete a bare header at the end keeps it", " [T]\nb=2\n[S]\n",
     [](CKAPara& p) { return p.DeleteKey("S"); }, true, "[T]\nb=2\n[S]\n"},
    {"delete an unknown section", " [S]\n", [](CKAPara& p) { return p.DeleteKey("X"); }, false,
     " [S]\n"},
    {"delete a null section", " [S]\n", [](CKAPara& p) { return p.DeleteKey(nullptr); }, false,
     " [S]\n"},
    {"key list for a new section goes to the top", "[X]\nx=1\n",
     [](CKAPara& p) { return p.SetKeyList("S", "a=1\nb=2"); }, true, "[S]\nb=2\na=1\n[X]\nx=1\n"},
    {"key list replaces a section, comments included", "[S]\n;c\nold=1\n\n[T]\nt=1\n",
     [](CKAPara& p) { return p.SetKeyList("s", "a=1\n\n\nb = 2 \n"); }, true,
     "[S]\nb = 2 \na=1\n[T]\nt=1\n"},
    {"key list of the last section", "[T]\n[S]\nold=1\n",
     [](CKAPara& p) { return p.SetKeyList("S", "c=3"); }, true, "[T]\n[S]\nc=3\n"},
    {"empty key list empties the section", "[S]\nold=1\n",
     [](CKAPara& p) { return p.SetKeyList("S", ""); }, true, "[S]\n"},
    {"null key list", " [S]\n", [](CKAPara& p) { return p.SetKeyList("S", nullptr); }, false,
     " [S]\n"},
    {"key list of its own section reverses it", "[S]\na=1\n\nb=2\n[T]\n",
     [](CKAPara& p) { return p.SetKeyList("S", p.GetKeyList("S").c_str()); }, true,
     "[S]\nb=2\na=1\n[T]\n"},
};

TEST_F(ParaTest, EveryChangeRewritesTheWholeFile) {
  for (const EditCase& c : kEdits) {
    SCOPED_TRACE(c.szName);
    CKAPara para;
    Put(m_path, c.szBefore);
    para.SetFileName(m_path.c_str());
    EXPECT_EQ(c.edit(para), c.bResult);
    EXPECT_EQ(File(), c.szAfter);
  }
}

TEST_F(ParaTest, AddValueStringEditsTheModelOnly) {
  Load("[S]\na=1\n");
  EXPECT_TRUE(m_para.AddValueString(nullptr, "k", "v", ~0));
  EXPECT_TRUE(m_para.AddValueString("T", "t", "1", 0));
  EXPECT_FALSE(m_para.AddValueString("S", nullptr, "v", ~0));
  EXPECT_FALSE(m_para.AddValueString("S", "k", nullptr, ~0));
  EXPECT_FALSE(m_para.AddValueString(nullptr, "k", "v", 0));
  EXPECT_FALSE(m_para.AddValueString("S", "k", "v", 3));
  EXPECT_FALSE(m_para.AddValueString("S", "k", "v", -100));
  EXPECT_FALSE(m_para.AddValueString("S", "k", "v", INT_MIN));
  EXPECT_EQ(File(), "[S]\na=1\n");
  ASSERT_TRUE(m_para.WriteToFile());
  EXPECT_EQ(File(), "[S]\nk=v\na=1\n\n[T]\nt=1\n");
}

TEST_F(ParaTest, DeleteAllNeedsALoadedFile) {
  Put(m_path, "keep\n");
  CKAPara fresh;
  EXPECT_FALSE(fresh.DeleteAll());
  EXPECT_EQ(File(), "keep\n");
  EXPECT_FALSE(m_para.DeleteKey("S"));  // empty model

  Load("[S]\na=1\n");
  EXPECT_TRUE(m_para.DeleteAll());
  EXPECT_EQ(File(), "");
  EXPECT_EQ(m_para.SearchLine("S", "a"), -1);
  EXPECT_TRUE(m_para.DeleteAll());  // still counts as loaded
  ASSERT_TRUE(m_para.SetInt("S", "a", 2));
  EXPECT_EQ(File(), "\n[S]\na=2\n");
}

TEST_F(ParaTest, FailedLoadKeepsTheOldLinesForTheNewName) {
  Load("[S]\na=1\n");
  const std::string missing = m_dir + "/missing.ini";
  const std::string empty = m_dir + "/empty.ini";
  Put(empty, "");
  EXPECT_FALSE(m_para.SetFileName(nullptr));
  EXPECT_FALSE(m_para.SetFileName(empty.c_str()));
  EXPECT_EQ(m_para.GetInt("S", "a", 0, nullptr), 1);
  EXPECT_FALSE(m_para.SetFileName(missing.c_str()));
  EXPECT_EQ(Get(missing), "<missing>");
  ASSERT_TRUE(m_para.SetInt("S", "b", 2));
  EXPECT_EQ(Get(missing), "[S]\nb=2\na=1\n");
  EXPECT_EQ(File(), "[S]\na=1\n");

  CKAPara unnamed;
  EXPECT_FALSE(unnamed.WriteToFile());
  EXPECT_FALSE(unnamed.SetInt("S", "a", 1));
}

TEST_F(ParaTest, UnreadableFilesLoadNothing) {
  // A directory opens for reading on Linux but has no length: a failed load.
  Load("[S]\na=1\n");
  EXPECT_FALSE(m_para.SetFileName(m_dir.c_str()));
  EXPECT_EQ(m_para.GetInt("S", "a", 3, nullptr), 1);

  if (geteuid() == 0) {
    std::printf("[ SKIPPED  ] mode 000 does not stop root from reading\n");
    return;
  }
  CKAPara para;
  ASSERT_EQ(chmod(m_path.c_str(), 0), 0);
  EXPECT_FALSE(para.SetFileName(m_path.c_str()));
  EXPECT_EQ(para.SearchLine("S", "a"), -1);
}

TEST_F(ParaTest, BinaryFileLoadsWithoutHarm) {
  std::string bytes;
  for (int i = 0; i < 4096; ++i) bytes += static_cast<char>((i * 7919) % 256);
  Load(bytes);
  EXPECT_EQ(m_para.GetInt("S", "a", 3, nullptr), 3);
  EXPECT_TRUE(m_para.WriteToFile());
  Load(File());  // a second round trip is stable
  const std::string once = File();
  ASSERT_TRUE(m_para.WriteToFile());
  EXPECT_EQ(File(), once);
}

TEST_F(ParaTest, FailedWriteKeepsTheChangeInMemory) {
  Load("[S]\na=1\n");
  // Take the file's directory away: every later write fails, for root too.
  ASSERT_EQ(std::remove(m_path.c_str()), 0);
  ASSERT_EQ(rmdir(m_dir.c_str()), 0);
  EXPECT_FALSE(m_para.SetInt("S", "a", 2));
  EXPECT_FALSE(m_para.SetInt("T", "b", 3));
  EXPECT_EQ(m_para.GetInt("S", "a", 0, nullptr), 2);
  EXPECT_EQ(m_para.GetInt("T", "b", 0, nullptr), 3);
  EXPECT_FALSE(m_para.DeleteSubKey("S", "a"));
  EXPECT_EQ(m_para.SearchLine("S", "a"), -1);
  ASSERT_EQ(mkdir(m_dir.c_str(), 0700), 0);
}

TEST_F(ParaTest, ReadOnlyDirectoryRefusesTheWrite) {
  if (geteuid() == 0) GTEST_SKIP() << "root writes into read-only directories";
  Load("[S]\na=1\n");
  ASSERT_EQ(chmod(m_dir.c_str(), 0500), 0);
  ASSERT_EQ(chmod(m_path.c_str(), 0400), 0);
  EXPECT_FALSE(m_para.SetInt("S", "a", 2));
  EXPECT_EQ(m_para.GetInt("S", "a", 0, nullptr), 2);
  EXPECT_EQ(File(), "[S]\na=1\n");
}

TEST_F(ParaTest, HundredThousandLines) {
  std::string bytes = "[S]\n";
  for (int i = 0; i < 100000; ++i)
    bytes += "k" + std::to_string(i) + "=" + std::to_string(i) + "\n";
  Load(bytes);
  bool bFound = false;
  EXPECT_EQ(m_para.GetInt("S", "k99999", -1, &bFound), 99999);
  EXPECT_TRUE(bFound);
  ASSERT_TRUE(m_para.SetInt("S", "k5", -5));
  const std::string after = File();
  EXPECT_EQ(after.size(), bytes.size() + 1);
  EXPECT_EQ(after.substr(0, 24), "[S]\nk0=0\nk1=1\nk2=2\nk3=3\n");
  EXPECT_EQ(after.substr(24, 10), "k4=4\nk5=-5");
  ASSERT_TRUE(m_para.DeleteKey("S"));
  EXPECT_EQ(File(), "");
}

}  // namespace
