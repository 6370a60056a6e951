#include "zu_para.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <string>
#include <tuple>
#include <vector>

#include "test_util.h"

namespace {

using namespace zutest;

class ParaTest : public TempDirTest {
 protected:
  void Load(const std::string& bytes) {
    ASSERT_TRUE(WriteFile(m_path, bytes) && m_para.SetFileName(m_path.c_str()));
  }
  std::string File() const { return ReadFile(m_path); }
  const std::string m_path = Path("para.ini");
  CKAPara m_para;
};

// Each row: the file before, loaded into a fresh object; one change; its result; the exact
// file bytes after. Loading trims lines and cuts them into pieces of 1023 bytes (deliberate).
#define CHANGE(call) [](CKAPara& p) { return p.call; }
const std::string kX(1023, 'x');
const std::tuple<std::string, bool (*)(CKAPara&), bool, std::string> kChanges[] = {
    {std::string(" k = v \r\n\t[S] \nk=a\0b\n", 21) + kX + "y", CHANGE(WriteToFile()), true,
     "k = v\n[S]\nk=a\n" + kX + "\ny\n"},
    {"[A]\n", CHANGE(SetInt("S", "n", 5)), true, "[A]\n\n[S]\nn=5\n"},       // a new section: last
    {"[S]\nn=5\n", CHANGE(SetInt("S", "m", -7)), true, "[S]\nm=-7\nn=5\n"},  // a new key first
    {"[net]\nport = 80\n", CHANGE(SetInt("NET", "port", 81)), true, "[net]\nport =81\n"},  // kept
    {"[S]\nr=0\n", CHANGE(SetReal("S", "r", 1.23456)), true, "[S]\nr=1.235\n"},
    {" [U]\n", CHANGE(SetString("U", "name", "bob\n[Admin]\nrole=root")), false, " [U]\n"},
    {" [U]\n", CHANGE(AddValueString("U", "k", "v", INT_MIN)), false, " [U]\n"},
    {" [S]\na=1\n", CHANGE(DeleteSubKey("S", "x")), true, "[S]\na=1\n"},  // rewritten all the same
    {"[S]\nn=5\nm=6\n", CHANGE(SetString("S", "n", nullptr)), true, "[S]\nm=6\n"},
    {"[S]\na=1\n[T]\nb=2\n", CHANGE(DeleteKey("s")), true, "[T]\nb=2\n"},
    {" [S]\na=1\n;end\n", CHANGE(DeleteKey("S")), true, "[S]\na=1\n;end\n"},  // kept: not removed
    {"[X]\nx=1\n", CHANGE(SetKeyList("S", "a=1\nb=2")), true, "[S]\nb=2\na=1\n[X]\nx=1\n"},  // kept
    {"[S]\n;c\no=1\n\n[T]\n", CHANGE(SetKeyList("s", "a=1\n\nb \n")), true, "[S]\nb \na=1\n[T]\n"},
    {"[S]\nk=1\n[T]\nt=2\n", CHANGE(SetKeyList("S", "")), true, "[S]\n[T]\nt=2\n"}};

TEST_F(ParaTest, EveryChangeRewritesTheWholeFile) {
  for (const auto& [before, change, result, after] : kChanges) {
    CKAPara para;
    ASSERT_TRUE(WriteFile(m_path, before) && para.SetFileName(m_path.c_str()));
    EXPECT_EQ(change(para), result) << before;
    EXPECT_EQ(File(), after) << before;
  }
}

// A failed load keeps the old lines for the new name: a new file, 0664 even under umask 0.
TEST_F(ParaTest, LookupsAndFailedLoadsGiveTheOddDefinedResults) {
  UmaskScope mask(0);
  CKAPara never, &p = m_para;
  Load("x=0\n[A]\n;y=1\nx=1\n[B]\ny=yes\nz=y\nn=12abc\nna=abc\nh=99999999999\nr=2.5x\n");
  // The line; else the complement of the section's header line; else that of the line count.
  EXPECT_EQ(
      (std::vector<int>{never.SearchLine("A", "x"), p.SearchLine("b", "z"), p.SearchLine("A", "y"),
                        p.SearchLine("C", "x"), p.SearchLine(nullptr, "x"), p.SearchLine("A", "")}),
      (std::vector<int>{-1, 6, -2, -12, -12, 4}));  // "" matches the next header
  bool f[8] = {};
  const std::vector<int> ints = {p.GetBool("B", "y", 1, &f[0]), p.GetBool("b", "z", 0, &f[1]),
                                 p.GetInt("B", "n", 42, &f[2]), p.GetInt("B", "na", 42, &f[3]),
                                 p.GetInt("B", "h", 42, &f[4]), p.GetInt(nullptr, "n", 42, &f[5])};
  EXPECT_EQ(ints, (std::vector<int>{1, 1, 12, 0, INT_MAX, 42}));
  EXPECT_EQ(p.GetReal("B", "r", 9, &f[6]) + p.GetReal("B", nullptr, 9, &f[7]), 11.5);
  EXPECT_EQ(std::vector<bool>(f, f + 8), (std::vector<bool>{0, 1, 1, 1, 1, 0, 1, 0}));
  EXPECT_EQ(p.GetString("B", "na", nullptr, f) + p.GetString("B", "m", nullptr, f), "abc");
  EXPECT_FALSE(never.WriteToFile() || never.SetInt("S", "a", 1) || never.DeleteAll());
  EXPECT_FALSE(p.SetFileName(nullptr) || p.SetFileName(Path("new.ini").c_str()));
  EXPECT_TRUE(p.SetInt("S", "b", 2) && ModeOf(Path("new.ini")) == 0664);
  EXPECT_EQ(ReadFile(Path("new.ini")), File() + "\n[S]\nb=2\n");
}

// A child loops SetInt over every key of a file and is killed at a random moment.
TEST_F(ParaTest, KillDuringChangesLeavesEveryKeyOnceWithAValueWrittenForIt) {
  constexpr int kKeys = 200;
  const auto Key = [](int i) { return "k" + std::to_string(i % kKeys); };
  std::string bytes = "; device settings\n[S]\n";
  for (int i = 0; i < kKeys; ++i) bytes += Key(i) + "=" + std::to_string(i) + "\n";
  ASSERT_TRUE(WriteFile(m_path, bytes));
  for (int round = 0; round < 120; ++round) {
    const int start = round * 37 % kKeys;
    const pid_t pid = StartChild([&] {
      for (int n = start; n > start || m_para.SetFileName(m_path.c_str()); ++n)
        m_para.SetInt("S", Key(n).c_str(), n);
      return 3;
    });
    usleep(static_cast<useconds_t>(round * 67 % 8000));  // 0 to 8 ms
    ASSERT_EQ(kill(pid, SIGKILL) + WaitChild(pid), 128 + SIGKILL);
    ASSERT_TRUE(m_para.SetFileName(m_path.c_str()));
    const std::string list = m_para.GetKeyList("S");
    ASSERT_EQ(std::count(list.begin(), list.end(), '\n'), kKeys - 1) << "round " << round;
    for (int i = 0; i < kKeys; ++i)
      ASSERT_EQ(m_para.GetInt("S", Key(i).c_str(), -1, nullptr) % kKeys, i);
  }
}

// A write that fails for want of space leaves the file as it was, with no temporary file.
TEST_F(ParaTest, FullDiskKeepsTheFileAndReportsFalse) {
  const std::string bytes = "[S]\n" + std::string(2000, ';') + "\n", big(3000, 'v');
  Load(bytes);
  const int status = InChild([&] {
    const struct rlimit limit = {4096, 4096};
    if (signal(SIGXFSZ, SIG_IGN) == SIG_ERR || setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
    return m_para.SetString("S", "big", big.c_str()) ? 1 : 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(File(), bytes);
  EXPECT_EQ(Names(m_tmp.path()), std::vector<std::string>{"para.ini"});
}

// A foreign link is refused; an own link is followed, keeping link, mode, owner and hard links.
TEST_F(ParaTest, ForeignLinksAreRefusedOwnLinksFollowed) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give a link to another user";
  const std::string shadow = Path("shadow"), foreign = Path("foreign.ini"), own = Path("own.ini");
  ASSERT_TRUE(WriteFile(shadow, "root:x:0:\n") && WriteFile(m_path, "[S]\nn=1\n"));
  ASSERT_EQ(chmod(m_path.c_str(), 0600) | chown(m_path.c_str(), 65534, 0), 0);
  ASSERT_EQ(symlink(shadow.c_str(), foreign.c_str()) | lchown(foreign.c_str(), 65534, 0), 0);
  ASSERT_EQ(symlink(m_path.c_str(), own.c_str()) | link(m_path.c_str(), Path("hard").c_str()), 0);
  CKAPara theirs, mine;
  ASSERT_TRUE(theirs.SetFileName(foreign.c_str()) && mine.SetFileName(own.c_str()));
  EXPECT_FALSE(theirs.SetString("S", "k", "v"));
  EXPECT_TRUE(theirs.DeleteAll() && mine.SetInt("S", "n", 2));  // DeleteAll: true (kept)
  EXPECT_EQ(ReadFile(shadow) + File() + ReadFile(Path("hard")), "root:x:0:\n[S]\nn=2\n[S]\nn=1\n");
  struct stat st = {};
  EXPECT_TRUE(stat(m_path.c_str(), &st) == 0 && (st.st_mode & 07777) == 0600 && st.st_uid == 65534);
  EXPECT_TRUE(std::filesystem::is_symlink(foreign) && std::filesystem::is_symlink(own));
}

}  // namespace
