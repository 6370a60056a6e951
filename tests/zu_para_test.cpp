#include "zu_para.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "test_util.h"

namespace {

using zutest::ReadFile;
using zutest::WriteFile;
using C = const char*;
using Ints = std::vector<int>;

class ParaTest : public zutest::TempDirTest {
 protected:
  void Load(const std::string& bytes) {
    ASSERT_TRUE(WriteFile(m_path, bytes) && m_para.SetFileName(m_path.c_str()));
  }
  std::string File() const { return ReadFile(m_path); }
  const std::string m_path = Path("para.ini");
  CKAPara m_para;
};

// Each row: the file before, loaded into a fresh object; the change; its result; the exact
// file bytes after.
using Op = bool (*)(CKAPara&, C, C, C);
const Op kWrite = [](CKAPara& p, C, C, C) { return p.WriteToFile(); };
const Op kSetBool = [](CKAPara& p, C s, C k, C v) { return p.SetBool(s, k, *v == 'Y'); };
const Op kSetInt = [](CKAPara& p, C s, C k, C v) { return p.SetInt(s, k, std::atoi(v)); };
const Op kSetReal = [](CKAPara& p, C s, C k, C v) { return p.SetReal(s, k, std::atof(v)); };
const Op kSetString = [](CKAPara& p, C s, C k, C v) { return p.SetString(s, k, v); };
const Op kDeleteSubKey = [](CKAPara& p, C s, C k, C) { return p.DeleteSubKey(s, k); };
const Op kDeleteKey = [](CKAPara& p, C s, C, C) { return p.DeleteKey(s); };
const Op kSetKeyList = [](CKAPara& p, C s, C, C v) { return p.SetKeyList(s, v); };
const Op kOwnKeyList = [](CKAPara& p, C s, C, C) {
  return p.SetKeyList(s, p.GetKeyList(s).c_str());
};
const std::string kLong(1500, 'x'), k1023(1023, 'y');
const std::tuple<std::string, Op, C, C, C, bool, std::string> kEdits[] = {
    // Loading trims every line and cuts lines into pieces of at most 1023 bytes.
    {"  key  =  value  \r\n\t[S] \n", kWrite, nullptr, nullptr, nullptr, true,
     "key  =  value\n[S]\n"},
    {"; top\n\n[S]\n  ; c\na=1\n\n", kWrite, nullptr, nullptr, nullptr, true,
     "; top\n\n[S]\n; c\na=1\n\n"},
    {"[S]\na=1", kWrite, nullptr, nullptr, nullptr, true, "[S]\na=1\n"},
    {"   \n\t\n", kWrite, nullptr, nullptr, nullptr, true, "\n\n"},
    {kLong + "\n", kWrite, nullptr, nullptr, nullptr, true,
     kLong.substr(0, 1023) + "\n" + kLong.substr(1023) + "\n"},
    {k1023 + "\nz\n", kWrite, nullptr, nullptr, nullptr, true, k1023 + "\n\nz\n"},
    {std::string("[S]\nk=a\0b\nx=1\n", 14), kWrite, nullptr, nullptr, nullptr, true,
     "[S]\nk=a\nx=1\n"},
    // Setters: a new key goes first in its section, a new section last after a blank line.
    {"", kSetInt, "S", "n", "5", true, "\n[S]\nn=5\n"},
    {"[S]\nn=5\n", kSetInt, "S", "m", "7", true, "[S]\nm=7\nn=5\n"},
    {"[A]\nx=1\n", kSetString, "B", "k", "v w", true, "[A]\nx=1\n\n[B]\nk=v w\n"},
    {"[net]\nport = 80\n", kSetInt, "NET", "port", "81", true, "[net]\nport =81\n"},
    {"; top\n\n[S]\n ; c\na = 1\n\n[T]\nb=2\n", kSetInt, "T", "b", "-3", true,
     "; top\n\n[S]\n; c\na = 1\n\n[T]\nb=-3\n"},
    {"[S]\nr=0\n", kSetReal, "S", "r", "1.23456", true, "[S]\nr=1.235\n"},
    {"[S]\n", kSetReal, "S", "r", "2.5", true, "[S]\nr=2.500\n"},
    {"[S]\n", kSetReal, "S", "r", "0.0004", true, "[S]\nr=0.000\n"},
    {"[S]\nb=N\n", kSetBool, "S", "b", "Y", true, "[S]\nb=Y\n"},
    {"[S]\nb=Y\n", kSetBool, "S", "b", "N", true, "[S]\nb=N\n"},
    {"[S]\nn=5\nm=6\n", kSetString, "S", "n", nullptr, true, "[S]\nm=6\n"},
    {" [S]\n", kSetInt, nullptr, "n", "1", false, " [S]\n"},
    {" [S]\n", kSetBool, "S", nullptr, "Y", false, " [S]\n"},
    {" [S]\n", kSetReal, "S", nullptr, "1", false, " [S]\n"},
    {" [S]\n", kSetString, nullptr, "k", "v", false, " [S]\n"},
    // DeleteSubKey rewrites even when the key is missing.
    {"[S]\na=1\nb=2\n", kDeleteSubKey, "s", "a", nullptr, true, "[S]\nb=2\n"},
    {" [S]\na=1\n", kDeleteSubKey, "S", "x", nullptr, true, "[S]\na=1\n"},
    {" [S]\n", kDeleteSubKey, "S", nullptr, nullptr, false, " [S]\n"},
    {" [S]\n", kDeleteSubKey, nullptr, "S", nullptr, false, " [S]\n"},
    // DeleteKey: a last section is removed only when the file ends in an entry (kept so).
    {"[S]\na=1\n[T]\nb=2\n", kDeleteKey, "S", nullptr, nullptr, true, "[T]\nb=2\n"},
    {"[T]\n[S]\n;c\n\na=1\n[U]\n", kDeleteKey, "s", nullptr, nullptr, true, "[T]\n[U]\n"},
    {"[T]\nb=2\n[S]\n;c\na=1\n", kDeleteKey, "S", nullptr, nullptr, true, "[T]\nb=2\n"},
    {" [S]\na=1\n;end\n", kDeleteKey, "S", nullptr, nullptr, true, "[S]\na=1\n;end\n"},
    {" [T]\nb=2\n[S]\n", kDeleteKey, "S", nullptr, nullptr, true, "[T]\nb=2\n[S]\n"},
    {" [S]\n", kDeleteKey, "X", nullptr, nullptr, false, " [S]\n"},
    {" [S]\n", kDeleteKey, nullptr, nullptr, nullptr, false, " [S]\n"},
    {"", kDeleteKey, "S", nullptr, nullptr, false, ""},
    // SetKeyList: items reversed, a new section at the top without a blank line (kept so).
    {"[X]\nx=1\n", kSetKeyList, "S", nullptr, "a=1\nb=2", true, "[S]\nb=2\na=1\n[X]\nx=1\n"},
    {"[S]\n;c\nold=1\n\n[T]\nt=1\n", kSetKeyList, "s", nullptr, "a=1\n\n\nb = 2 \n", true,
     "[S]\nb = 2 \na=1\n[T]\nt=1\n"},
    {"[T]\n[S]\nold=1\n", kSetKeyList, "S", nullptr, "c=3", true, "[T]\n[S]\nc=3\n"},
    {"[S]\nold=1\n", kSetKeyList, "S", nullptr, "", true, "[S]\n"},
    {" [S]\n", kSetKeyList, "S", nullptr, nullptr, false, " [S]\n"},
    {" [S]\n", kSetKeyList, nullptr, nullptr, "a=1", false, " [S]\n"},
    {"[S]\na=1\n\nb=2\n[T]\n", kOwnKeyList, "S", nullptr, nullptr, true, "[S]\nb=2\na=1\n[T]\n"},
    // An empty list has no items: the lines after the section stay as they were.
    {"[S]\nk=1\n[T]\nt=2\n", kSetKeyList, "S", nullptr, "", true, "[S]\n[T]\nt=2\n"},
    {"[S]\nk=1\n[T]\nt=2\n", kSetKeyList, "S", nullptr, "\n\n", true, "[S]\n[T]\nt=2\n"},
    {"[S]\n[T]\nt=2\n", kOwnKeyList, "S", nullptr, nullptr, true, "[S]\n[T]\nt=2\n"},
    // A line break cannot be stored in a line: such names and values change nothing.
    {" [U]\n", kSetString, "U", "name", "bob\n[Admin]\nrole=root", false, " [U]\n"},
    {" [U]\n", kSetString, "U", "na\rme", "bob", false, " [U]\n"},
    {" [U]\n", kSetInt, "U\n[A]", "n", "1", false, " [U]\n"},
    {" [U]\n", kSetString, "U\n", "n", nullptr, false, " [U]\n"},
    {" [U]\n", kSetKeyList, "U]\n[A", nullptr, "a=1", false, " [U]\n"}};

TEST_F(ParaTest, EveryChangeRewritesTheWholeFile) {
  for (size_t i = 0; i < std::size(kEdits); ++i) {
    const auto& [before, op, section, key, value, result, after] = kEdits[i];
    SCOPED_TRACE(i);
    CKAPara para;
    ASSERT_TRUE(WriteFile(m_path, before));
    para.SetFileName(m_path.c_str());
    EXPECT_EQ(op(para, section, key, value), result);
    EXPECT_EQ(File(), after);
  }
}

const char kKinds[] =
    "early=0\n[Net] old\n;skip=1\n  key \t =  v \na=b=c\nnoequals\n\n[net]\nlate=1\n";

TEST_F(ParaTest, SearchLineGivesTheLineOrTheComplementOfHeaderOrCount) {
  EXPECT_EQ(m_para.SearchLine("A", "x"), -1);  // empty model
  const char* const kTwo = "[A]\nx=1\n[B]\nx=2\n";
  // A key before any header, in a comment or after a second header of the section is not
  // found; an empty key matches a line without "=" (or the next header) first.
  const std::tuple<C, C, C, int> cases[] = {
      {kTwo, "b", "x", 3},          {kTwo, "B", "X", -3},
      {kTwo, "C", "x", -5},         {kTwo, "A", "x", 1},
      {kTwo, "a", "y", -1},         {kTwo, nullptr, "x", -5},
      {kTwo, "A", nullptr, -1},     {kTwo, "[A]", "x", -5},
      {kTwo, "A", "", 2},           {kKinds, "", "early", -10},
      {kKinds, "NET", "key", 3},    {kKinds, "net", "a", 4},
      {kKinds, "net", ";skip", -2}, {kKinds, "net", "", 5},
      {kKinds, "net", "late", -2},  {kKinds, "net", "noequals", -2}};
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto& [text, section, key, result] = cases[i];
    SCOPED_TRACE(i);
    Load(text);
    EXPECT_EQ(m_para.SearchLine(section, key), result);
  }
}

TEST_F(ParaTest, ValuesAreReadAndReplacedAfterTheFirstEqualSign) {
  Load(kKinds);
  CKAString value("untouched");
  const std::tuple<int, bool, C> reads[] = {{5, false, "untouched"}, {-1, false, "untouched"},
                                            {9, false, "untouched"}, {3, true, "v"},
                                            {4, true, "b=c"},        {6, true, ""}};
  for (const auto& [index, result, text] : reads) {
    EXPECT_EQ(m_para.GetValueString(index, value), result);
    EXPECT_STREQ(value.GetBuf(), text);
  }
  // SetValueString and AddValueString edit the model only.
  const auto set = [&](int index, C v) { return m_para.SetValueString(index, v); };
  const auto add = [&](C s, C k, C v, int n) { return m_para.AddValueString(s, k, v, n); };
  EXPECT_EQ(
      (Ints{set(3, "81"), set(5, "x"), set(6, "x"), set(-1, "x"), set(9, "x"), set(3, nullptr)}),
      (Ints{true, false, false, false, false, false}));
  EXPECT_EQ((Ints{add(nullptr, "k", "v", ~7), add("T", "t", "1", 0), add("S", nullptr, "v", ~7),
                  add("S", "k", nullptr, ~7), add(nullptr, "k", "v", 0), add("S", "k", "v", 3),
                  add("S", "k", "v", -100), add("S", "k", "v", INT_MIN)}),
            (Ints{true, true, false, false, false, false, false, false}));
  EXPECT_EQ((Ints{set(3, "8\n1"), set(3, "\r"), add("S", "k\n", "v", ~7), add("S", "k", "v\r", ~7),
                  add("S\n", "k", "v", 0)}),
            (Ints{false, false, false, false, false}));
  EXPECT_EQ(File(), kKinds);
  ASSERT_TRUE(m_para.WriteToFile());
  EXPECT_EQ(File(),
            "early=0\n[Net] old\n;skip=1\nkey \t =81\na=b=c\nnoequals\n\n"
            "[net]\nk=v\nlate=1\n\n[T]\nt=1\n");
}

TEST_F(ParaTest, GetKeyListJoinsWholeEntryLines) {
  Load("[A]\n;c\nx=1\n\ny = 2\n[B]\nz=3\n[E]\n");
  const std::vector<std::string> lists = {m_para.GetKeyList("a"), m_para.GetKeyList("B"),
                                          m_para.GetKeyList("E"), m_para.GetKeyList("C"),
                                          m_para.GetKeyList(nullptr)};
  EXPECT_EQ(lists, (std::vector<std::string>{"x=1\n\ny = 2", "z=3", "", "", ""}));
  Load("[A]\n\nx=1\n");
  EXPECT_EQ(m_para.GetKeyList("A"), "\nx=1");
}

TEST_F(ParaTest, TypedGettersConvertOrGiveTheDefault) {
  Load(
      "[S]\non=yes\nyes=y\nbig=Y\nno=N\nempty=\nn=12abc\nna=abc\nneg= -7\nhuge=99999999999\n"
      "tiny=-99999999999\nr=2.5x\ns=  hello world  \n");
  // Rows {key, default, result, found}. A null key, and a null section for every key, count
  // as missing: the default and found false.
  const auto check = [](const auto& rows, auto get) {
    for (const auto& [key, def, result, found] : rows) {
      SCOPED_TRACE(key ? key : "null");
      bool bFound = !found;
      EXPECT_EQ(get("S", key, def, &bFound), result);
      EXPECT_EQ(bFound, found);
      EXPECT_EQ(get(nullptr, key, def, &bFound), def);
      EXPECT_FALSE(bFound);
    }
  };
  const std::tuple<C, bool, bool, bool> bools[] = {
      {"on", true, true, false},  {"yes", false, true, true},   {"big", false, true, true},
      {"no", true, false, true},  {"empty", true, true, false}, {"x", true, true, false},
      {"n", false, false, false}, {nullptr, true, true, false}};
  check(bools, [&](C s, C k, bool d, bool* f) { return m_para.GetBool(s, k, d, f); });
  const std::tuple<C, int, int, bool> ints[] = {
      {"n", 42, 12, true},         {"na", 42, 0, true},         {"neg", 42, -7, true},
      {"huge", 42, INT_MAX, true}, {"tiny", 42, INT_MIN, true}, {"x", 42, 42, false},
      {"empty", 42, 0, true},      {nullptr, 42, 42, false}};
  check(ints, [&](C s, C k, int d, bool* f) { return m_para.GetInt(s, k, d, f); });
  const std::tuple<C, double, double, bool> reals[] = {
      {"r", 9, 2.5, true}, {"x", 9, 9, false}, {nullptr, 1.5, 1.5, false}};
  check(reals, [&](C s, C k, double d, bool* f) { return m_para.GetReal(s, k, d, f); });
  const std::tuple<C, C, C, bool> strings[] = {{"s", "d", "hello world", true},
                                               {"empty", "d", "", true},
                                               {"x", "d", "d", false},
                                               {nullptr, "d", "d", false}};
  check(strings, [&](C s, C k, C d, bool* f) { return m_para.GetString(s, k, d, f); });
  EXPECT_EQ(m_para.GetString("S", "x", nullptr, nullptr), "");  // pFound may be null
  EXPECT_EQ(m_para.GetInt("s", "n", 0, nullptr), 12);
}

TEST_F(ParaTest, LoadFailuresKeepTheOldLinesForTheNewName) {
  ASSERT_TRUE(WriteFile(Path("empty.ini"), ""));
  Load("[S]\na=1\n");
  EXPECT_FALSE(m_para.SetFileName(nullptr));
  EXPECT_FALSE(m_para.SetFileName(Path("empty.ini").c_str()));
  EXPECT_FALSE(m_para.SetFileName(m_tmp.path().c_str()));  // a directory has no length
  EXPECT_FALSE(m_para.SetFileName(Path("missing.ini").c_str()));
  EXPECT_FALSE(std::filesystem::exists(Path("missing.ini")));
  ASSERT_TRUE(m_para.SetInt("S", "b", 2));
  EXPECT_EQ(ReadFile(Path("missing.ini")), "[S]\nb=2\na=1\n");
  EXPECT_EQ(File(), "[S]\na=1\n");
  CKAPara never;
  EXPECT_EQ((Ints{never.WriteToFile(), never.SetInt("S", "a", 1),
                  never.SetFileName(Path("empty.ini").c_str())}),
            (Ints{false, false, false}));
  ASSERT_TRUE(WriteFile(Path("empty.ini"), "keep\n"));
  EXPECT_FALSE(never.DeleteAll());  // nothing was ever loaded
  EXPECT_EQ(ReadFile(Path("empty.ini")), "keep\n");
}

TEST_F(ParaTest, DeleteAllEmptiesTheFileAndTheLines) {
  Load("[S]\na=1\n");
  EXPECT_TRUE(m_para.DeleteAll());
  EXPECT_EQ(File(), "");
  EXPECT_EQ(m_para.SearchLine("S", "a"), -1);
  EXPECT_TRUE(m_para.DeleteAll());  // still counts as loaded
  ASSERT_TRUE(m_para.SetInt("S", "a", 2));
  EXPECT_EQ(File(), "\n[S]\na=2\n");
}

TEST_F(ParaTest, UnreadableOrBinaryFilesDoNoHarm) {
  std::string bytes;
  for (int i = 0; i < 4096; ++i) bytes += static_cast<char>((i * 7919) % 256);
  Load(bytes);
  EXPECT_EQ(m_para.GetInt("S", "a", 3, nullptr), 3);
  ASSERT_TRUE(m_para.WriteToFile());
  Load(File());  // the second round trip is stable
  const std::string once = File();
  ASSERT_TRUE(m_para.WriteToFile());
  EXPECT_EQ(File(), once);
  if (geteuid() != 0) {  // mode 000 does not stop root from reading
    CKAPara para;
    ASSERT_EQ(chmod(m_path.c_str(), 0), 0);
    EXPECT_FALSE(para.SetFileName(m_path.c_str()));
    EXPECT_EQ(para.SearchLine("S", "a"), -1);
  }
}

TEST_F(ParaTest, FailedWriteReturnsFalseAndKeepsTheChangeInMemory) {
  Load("[S]\na=1\n");
  // A read-only directory stops the write; root ignores modes, so its directory goes.
  ASSERT_EQ(chmod(m_path.c_str(), 0400) | chmod(m_tmp.path().c_str(), 0500), 0);
  if (geteuid() == 0) std::filesystem::remove_all(m_tmp.path());
  EXPECT_FALSE(m_para.SetInt("S", "a", 2));
  EXPECT_FALSE(m_para.SetInt("T", "b", 3));
  EXPECT_EQ((Ints{m_para.GetInt("S", "a", 0, nullptr), m_para.GetInt("T", "b", 0, nullptr)}),
            (Ints{2, 3}));
  if (geteuid() != 0) {
    EXPECT_EQ(File(), "[S]\na=1\n");
  }
  EXPECT_FALSE(m_para.DeleteSubKey("S", "a"));
  EXPECT_EQ(m_para.SearchLine("S", "a"), -1);
  chmod(m_tmp.path().c_str(), 0700);
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
  EXPECT_EQ(after.substr(0, 34), "[S]\nk0=0\nk1=1\nk2=2\nk3=3\nk4=4\nk5=-5");
  ASSERT_TRUE(m_para.DeleteKey("S"));
  EXPECT_EQ(File(), "");
}

}  // namespace

namespace {

using zutest::InChild;
using zutest::ModeOf;
using zutest::Names;

std::string Key(int i) {
  return "k" + std::to_string(i);
}

// A child loops SetInt over every key of a file and is killed at a random moment. After each
// kill the file must load with every key once, each holding its old value or one the child
// wrote (a multiple of the key count plus the key's number).
TEST_F(ParaTest, KillDuringChangesLeavesEveryKeyWithItsOldOrNewValue) {
  constexpr int kKeys = 200;
  std::string bytes = "; device settings\n[S]\n";
  for (int i = 0; i < kKeys; ++i) bytes += Key(i) + "=" + std::to_string(i) + "\n";
  ASSERT_TRUE(WriteFile(m_path, bytes));
  std::vector<int> before(kKeys);
  for (int i = 0; i < kKeys; ++i) before[i] = i;
  std::mt19937 random(20261124);
  for (int round = 0; round < 120; ++round) {
    const int start = static_cast<int>(random() % kKeys) + kKeys * (round + 1) * 1000;
    const pid_t pid = fork();
    if (pid == 0) {
      CKAPara para;
      if (!para.SetFileName(m_path.c_str())) _exit(3);
      for (int n = start;; ++n) para.SetInt("S", Key(n % kKeys).c_str(), n);
    }
    usleep(static_cast<useconds_t>(random() % 8000));
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    CKAPara check;
    ASSERT_TRUE(check.SetFileName(m_path.c_str())) << "round " << round;
    const std::string list = check.GetKeyList("S");
    ASSERT_EQ(std::count(list.begin(), list.end(), '\n'), kKeys - 1) << "round " << round;
    for (int i = 0; i < kKeys; ++i) {
      bool bFound = false;
      const int value = check.GetInt("S", Key(i).c_str(), -1, &bFound);
      ASSERT_TRUE(bFound) << "round " << round << " key " << i;
      ASSERT_TRUE(value == before[i] || (value >= start && value % kKeys == i))
          << "round " << round << " key " << i << " value " << value;
      before[i] = value;
    }
  }
}

// A write that fails for want of space returns false and leaves the file as it was, with no
// temporary file beside it; the model keeps the change.
TEST_F(ParaTest, FullDiskKeepsTheFileAndReportsFalse) {
  std::string bytes = "[S]\n";
  for (int i = 0; i < 300; ++i) bytes += Key(i) + "=" + std::to_string(i) + "\n";
  Load(bytes);
  const int status = InChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {4096, 4096};
    setrlimit(RLIMIT_FSIZE, &limit);
    const std::string big(3000, 'v');
    const bool bWritten = m_para.SetString("S", "big", big.c_str());
    return !bWritten && m_para.GetString("S", "big", "", nullptr) == big ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(File(), bytes);
  EXPECT_EQ(Names(m_tmp.path()), std::vector<std::string>{"para.ini"});
}

TEST_F(ParaTest, NewFilesAreNeverWorldWritableAndOldOnesKeepTheirMode) {
  zutest::UmaskScope mask(0);
  CKAPara para;
  para.SetFileName(Path("new.ini").c_str());
  EXPECT_TRUE(para.SetInt("S", "n", 1));
  EXPECT_EQ(ModeOf(Path("new.ini")), 0664u);
  Load("[S]\n");
  ASSERT_EQ(chmod(m_path.c_str(), 0600), 0);
  EXPECT_TRUE(m_para.SetInt("S", "n", 1));
  EXPECT_EQ(ModeOf(m_path), 0600u);
  if (geteuid() != 0) return;  // only root may hand a file to another owner
  ASSERT_EQ(chown(m_path.c_str(), 65534, 65534), 0);
  EXPECT_TRUE(m_para.SetInt("S", "n", 2));
  struct stat st;
  ASSERT_EQ(stat(m_path.c_str(), &st), 0);
  EXPECT_EQ(std::vector<unsigned>({st.st_uid, st.st_gid, st.st_mode & 07777u}),
            std::vector<unsigned>({65534, 65534, 0600}));
}

// A link of the process's own user is followed and stays a link; other hard links of the
// file keep the old text, since the name is replaced.
TEST_F(ParaTest, OwnLinksAreFollowedHardLinksKeepTheOldText) {
  Load("[S]\nn=1\n");
  ASSERT_EQ(symlink("para.ini", Path("link.ini").c_str()), 0);
  ASSERT_EQ(link(m_path.c_str(), Path("hard.ini").c_str()), 0);
  CKAPara para;
  ASSERT_TRUE(para.SetFileName(Path("link.ini").c_str()));
  EXPECT_TRUE(para.SetInt("S", "n", 2));
  EXPECT_EQ(File(), "[S]\nn=2\n");
  EXPECT_TRUE(std::filesystem::is_symlink(Path("link.ini")));
  EXPECT_EQ(ReadFile(Path("hard.ini")), "[S]\nn=1\n");
}

TEST_F(ParaTest, ForeignLinksAreRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give a link to another user";
  ASSERT_TRUE(WriteFile(Path("shadow"), "root:x:0:\n"));
  ASSERT_EQ(symlink(Path("shadow").c_str(), m_path.c_str()), 0);
  ASSERT_EQ(lchown(m_path.c_str(), 65534, 65534), 0);
  ASSERT_TRUE(m_para.SetFileName(m_path.c_str()));
  EXPECT_FALSE(m_para.SetString("S", "k", "v"));
  EXPECT_TRUE(m_para.DeleteAll());  // kept: true even though the file could not be emptied
  EXPECT_EQ(ReadFile(Path("shadow")), "root:x:0:\n");
  EXPECT_TRUE(std::filesystem::is_symlink(m_path));
}

}  // namespace
