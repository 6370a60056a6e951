#include "zu_log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "test_util.h"
#include "zu_global_unix.h"
#include "zu_time.h"

namespace {

using namespace zutest;
using Strings = std::vector<std::string>;

const std::regex kStamp("<(\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d)>");
const std::string kNul(1, '\0');  // the header's sixth byte below 10000, left by the creation

// The file with every stamp replaced by "<T>".
std::string Masked(const std::string& path) {
  return std::regex_replace(ReadFile(path), kStamp, "<T>");
}

const auto Item = [](int p, int i) { return "p" + std::to_string(p) + " " + std::to_string(i); };

// The entries' texts, checked to be whole lines numbered from `first` to the header's count.
Strings Texts(const std::string& path, int first = 1) {
  static const std::regex kLine("(\\d+) <\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d> (.*)");
  const std::string bytes = ReadFile(path);
  std::istringstream lines(bytes.substr(6));
  Strings texts;
  std::smatch m;
  for (std::string line; std::getline(lines, line); texts.push_back(m[2])) {
    EXPECT_TRUE(std::regex_match(line, m, kLine) && std::stoi(m[1]) == first++) << line;
  }
  EXPECT_EQ(atoi(bytes.c_str()), first - 1);
  return texts;
}

// Texts Item(p, i) of producers 0 to n - 1: each producer's `each` texts once, in order.
void ExpectEachProducerInOrder(const Strings& texts, unsigned n, unsigned each) {
  std::vector<unsigned> next(n, 0);
  for (const std::string& t : texts) {
    unsigned p = 0, i = 0;
    ASSERT_TRUE(sscanf(t.c_str(), "p%u %u", &p, &i) == 2 && p < n && i == next[p]++) << t;
  }
  EXPECT_EQ(next, std::vector<unsigned>(n, each));
}

// Each test gets an empty SYSTEMHOME of its own; the log directory does not exist yet.
class LogTest : public TempDirTest {
 protected:
  void SetUp() override { setenv("SYSTEMHOME", m_tmp.path().c_str(), 1); }
  std::string Log(const std::string& file) const { return Path("inf/" + file); }
};

TEST_F(LogTest, EntriesHaveExactBytesAndModes) {
  UmaskScope mask(0);  // as ka_daemon_init leaves it: the log is still not writable by others
  CKALog log;
  EXPECT_FALSE(log.SetProcName(nullptr) || log.Add("unnamed"));
  EXPECT_EQ(CKALogThread().AddLog("never written"), 0);  // 0 in every case (kept)
  CKATime now;
  now.SetCurrentTime();
  const std::string from = now.ToString(3).GetBuf();
  ASSERT_TRUE(log.SetProcName("app"));
  EXPECT_TRUE(log.Add("start") && log.Add("two\nlines") && log.Add(nullptr));
  const std::string stamp = ReadFile(Log("app.inf")).substr(11, 19);
  now.SetCurrentTime();
  EXPECT_TRUE(from <= stamp && stamp <= now.ToString(3).GetBuf()) << stamp;  // local time
  EXPECT_EQ(Masked(Log("app.inf")),
            "0003\n" + kNul + "001 <T> start\n002 <T> two\nlines\n003 <T> \n");
  EXPECT_EQ(ModeOf(Path("inf")), 0775u);
  EXPECT_EQ(ModeOf(Log("app.inf")), 0664u);
}

// The file before one Add("x"), as a kill or a foreign writer may have left it, and after.
TEST_F(LogTest, NextEntryRepairsTornOrUncountedEntries) {
  const std::string a = "001 <2026-11-24 08:00:00> a\n", b = "002 <2026-11-24 08:00:01> b";
  const std::pair<std::string, std::string> rows[] = {
      {"9999\n" + kNul + "p\n", "10000\np\n10000 <T> x\n"},  // five digits fill byte 5
      {"garbage text\n", "0001\nge text\n001 <T> x\n"},      // no number: counts as 0
      {"0001\n" + kNul + a + b + "\nc\n", "0003\n" + kNul + "001 <T> a\n002 <T> b\nc\n003 <T> x\n"},
      {"0001\n" + kNul + a + b, "0003\n" + kNul + "001 <T> a\n002 <T> b\n003 <T> x\n"},
      {"0001\n" + kNul + a + "002 <20", "0002\n" + kNul + "001 <T> a\n002 <T> x\n"},  // cut off
      {std::string(6, '\0') + a, "0002\n" + kNul + "001 <T> a\n002 <T> x\n"},  // no header yet
      {"0002\n" + kNul + a + b + "\n" + a,
       "0003\n" + kNul + "001 <T> a\n002 <T> b\n001 <T> a\n003 <T> x\n"}};
  CKALog log;
  ASSERT_TRUE(log.SetProcName("repair"));
  for (const auto& [before, after] : rows) {
    ASSERT_TRUE(WriteFile(Log("repair.inf"), before) && log.Add("x"));
    EXPECT_EQ(Masked(Log("repair.inf")), after) << "before: " << before;
  }
}

// A backup that cannot be made keeps the full file, written on; each next entry tries again,
// and the entry that rotates is written twice: last of the backup, first of the new file.
TEST_F(LogTest, RotationKeepsTheLog) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("app") && WriteFile(Log("app.inf"), "99999\nprev\n") &&
              std::filesystem::create_directories(Log("app.bak/x")));
  EXPECT_TRUE(log.Add("y"));
  EXPECT_EQ(Masked(Log("app.inf")), "100000prev\n100000 <T> y\n");  // six digits, no LF
  EXPECT_TRUE(std::filesystem::remove_all(Log("app.bak")) == 2 && log.Add("z"));
  EXPECT_EQ(Masked(Log("app.bak")) + Masked(Log("app.inf")),
            "100001prev\n100000 <T> y\n100001 <T> z\n0001\n" + kNul + "001 <T> z\n");
}

// A child's threads on two objects (a record lock spans processes only) race the parent.
TEST_F(LogTest, TwoProcessesAndRacingThreadsLoseNothingAcrossTheRotation) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("multi") && WriteFile(Log("multi.inf"), "19600\n"));
  const pid_t child = StartChild([] {
    RunThreads(2, [](int p) {
      CKALog own;
      for (int i = 0; i < 1000 && (i || own.SetProcName("multi")); ++i) own.Add(Item(p, i).c_str());
    });
    return 0;
  });
  for (int i = 0; i < 1000; ++i) log.Add(Item(2, i).c_str());
  EXPECT_EQ(WaitChild(child), 0);
  Strings all = Texts(Log("multi.bak"), 19601), fresh = Texts(Log("multi.inf"));
  ASSERT_EQ(all.size() * 1000 + fresh.size(), 402601u);  // rotated at the 400th entry
  EXPECT_EQ(fresh[0], all.back());                       // the entry that reached 20000, twice
  all.insert(all.end(), fresh.begin() + 1, fresh.end());
  ExpectEachProducerInOrder(all, 3, 1000);
}

TEST_F(LogTest, FullDiskLosesWholeEntriesAndKeepsTheCount) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("full"));
  const int status = InChild([&log] {
    const struct rlimit limit = {4096, 4096};
    if (signal(SIGXFSZ, SIG_IGN) == SIG_ERR || setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
    for (int i = 0; i < 400; ++i) log.Add(Item(0, i).c_str());
    return 0;
  });
  ASSERT_EQ(status, 0);
  ASSERT_TRUE(log.Add("room again"));
  const Strings texts = Texts(Log("full.inf"));
  ASSERT_TRUE(texts.size() > 10 && texts.size() < 400 && texts.back() == "room again");
  ExpectEachProducerInOrder(Strings(texts.begin(), texts.end() - 1), 1, texts.size() - 1);
}

TEST_F(LogTest, KilledWritersLoseAtMostTheEntryInProgress) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("killed"));
  for (int round = 0; round < 100; ++round) {  // at most 151 entries each: no rotation
    const int count = atoi(ReadFile(Log("killed.inf")).c_str());
    const pid_t child = StartChild([&] {  // on the fork's copy of log, already named
      for (int i = 0; i < 150; ++i) log.Add(Item(round, i).c_str());
      return 0;
    });
    for (int n = 0; n < 10000 && atoi(ReadFile(Log("killed.inf")).c_str()) == count; ++n)
      usleep(100);
    usleep(static_cast<useconds_t>(round % 20 * 50));  // 0 to 0.95 ms after the first entry
    kill(child, SIGKILL);
    WaitChild(child);
    ASSERT_TRUE(log.Add(("after " + std::to_string(round)).c_str()));
  }
  const Strings texts = Texts(Log("killed.inf"));
  int round = 0, index = 0;
  for (size_t i = 0; i < texts.size(); ++i) {
    const std::string after = "after " + std::to_string(round), expected = Item(round, index++);
    const bool cut = i + 1 < texts.size() && texts[i + 1] == after && !expected.rfind(texts[i], 0);
    ASSERT_TRUE(texts[i] == after || texts[i] == expected || cut)
        << texts[i] << " (only the entry before the parent's may be cut short)";
    if (texts[i] == after) round++, index = 0;
  }
  EXPECT_EQ(round, 100);
}

TEST_F(LogTest, SymbolicLinksOfOtherUsersAreNeverFollowed) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give a link to another user";
  ASSERT_TRUE(!ka_mkdir(Path("inf").c_str()) && WriteFile(Path("victim"), "secret\n"));
  const std::pair<const char*, const char*> links[] = {
      {"inf/victim.inf", "victim"}, {"inf/made.inf", "made"}, {"inf/inf", ""}};
  for (const auto& [link, target] : links) {
    ASSERT_EQ(symlink(Path(target).c_str(), Path(link).c_str()), 0);
    ASSERT_EQ(lchown(Path(link).c_str(), 65534, 65534), 0);
  }
  for (const char* name : {"victim", "made"}) {
    CKALog log;
    EXPECT_TRUE(log.SetProcName(name) && log.Add("x"));  // lost, and true all the same (kept)
  }
  EXPECT_EQ(ReadFile(Path("victim")), "secret\n");
  EXPECT_FALSE(std::filesystem::exists(Path("made")));
  setenv("SYSTEMHOME", Path("inf").c_str(), 1);  // whose log directory is a foreign link
  CKALog refused;
  EXPECT_FALSE(refused.SetProcName("app"));
}

// Regression: rotating a log linked into another file system failed with EXDEV and lost it.
TEST_F(LogTest, LogLinkedIntoAnotherFileSystemRotatesByMovingTheLink) {
  struct stat here, shm;
  if (stat(m_tmp.path().c_str(), &here) != 0 || stat("/dev/shm", &shm) != 0 ||
      here.st_dev == shm.st_dev) {
    GTEST_SKIP() << "needs /dev/shm on a file system of its own";
  }
  char dir[] = "/dev/shm/zu_log_test.XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string target = std::string(dir) + "/app.log";
  ASSERT_TRUE(WriteFile(target, "19999\nprev\n") && !ka_mkdir(Path("inf").c_str()));
  ASSERT_EQ(symlink(target.c_str(), Log("app.inf").c_str()), 0);
  CKALog log;
  EXPECT_TRUE(log.SetProcName("app") && log.Add("x"));
  EXPECT_EQ(std::regex_replace(ReadFile(target), kStamp, "<T>"), "20000\nprev\n20000 <T> x\n");
  struct stat moved;
  EXPECT_TRUE(lstat(Log("app.bak").c_str(), &moved) == 0 && S_ISLNK(moved.st_mode));
  EXPECT_EQ(Masked(Log("app.inf")), "0001\n" + kNul + "001 <T> x\n");
  std::filesystem::remove_all(dir);
}

// Regression: a process that held the record lock and stopped hung every other writer.
TEST_F(LogTest, AStalledLockHolderDelaysTheLogButNeverStopsIt) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("stalled") && log.Add("one"));
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t holder = StartChild([&] {
    const int fd = open(Log("stalled.inf").c_str(), O_RDWR);
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    if (fd < 0 || fcntl(fd, F_SETLK, &whole) != 0 || write(ready[1], "r", 1) != 1) return 2;
    pause();  // holds the lock until killed
    return 0;
  });
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  EXPECT_TRUE(log.Add("two"));
  kill(holder, SIGKILL);
  WaitChild(holder);
  close(ready[0]);
  close(ready[1]);
  EXPECT_EQ(Texts(Log("stalled.inf")), Strings({"one", "two"}));
}

// Regression: on 32-bit targets, offsets past 2 GiB failed and entries were lost.
TEST_F(LogTest, AppendsPastTwoGigabytes) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("big"));
  const off64_t end = (off64_t{1} << 31) + 4096;
  const int fd = open64(Log("big.inf").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  const std::string last = "007 <2000-01-01 00:00:00> seven\n";
  if (fd < 0 || ftruncate64(fd, end) != 0) {
    if (fd >= 0) close(fd);
    GTEST_SKIP() << "this file system holds no sparse file of 2 GiB";
  }
  ASSERT_EQ(pwrite64(fd, "0007\n", 5, 0), 5);
  ASSERT_EQ(pwrite64(fd, last.data(), last.size(), end - static_cast<off64_t>(last.size())),
            static_cast<ssize_t>(last.size()));
  EXPECT_TRUE(log.Add("past 2 GiB"));
  std::string head(6, '\0'), tail(64, '\0');
  EXPECT_EQ(pread64(fd, &head[0], 6, 0), 6);
  const ssize_t got = pread64(fd, &tail[0], tail.size(), end);
  close(fd);
  EXPECT_EQ(head, "0008\n" + kNul);
  ASSERT_GT(got, 0);
  tail.resize(static_cast<size_t>(got));
  EXPECT_EQ(std::regex_replace(tail, kStamp, "<T>"), "008 <T> past 2 GiB\n");
}

}  // namespace
