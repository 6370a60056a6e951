#include "zu_log.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "test_util.h"
#include "zu_global_unix.h"
#include "zu_time.h"

namespace fs = std::filesystem;
using namespace std::string_literals;  // "...\0..."s keeps the NUL bytes
using zutest::ReadFile;
using zutest::WriteFile;

// Failure injection. While a flag is set, the positional reads, or the writes at offset 0 (the
// header) or beyond it (entries), fail with EIO. The program's own definitions take precedence
// over the C library's, also for the calls made inside libzustd.
namespace {

std::atomic<bool> g_failReads{false};
std::atomic<bool> g_failHeaderWrites{false};
std::atomic<bool> g_failEntryWrites{false};

template <typename Fn>
Fn NextDefinition(const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

bool FailRead() {
  if (!g_failReads) return false;
  errno = EIO;
  return true;
}

bool FailWrite(long long offset) {
  if (!(offset == 0 ? g_failHeaderWrites : g_failEntryWrites)) return false;
  errno = EIO;
  return true;
}

}  // namespace

#define ZUTEST_INTERPOSE extern "C" __attribute__((visibility("default")))

ZUTEST_INTERPOSE ssize_t pread(int fd, void* buf, size_t len, off_t at) {
  using Fn = ssize_t (*)(int, void*, size_t, off_t);
  static const Fn next = NextDefinition<Fn>("pread");
  return FailRead() ? -1 : next(fd, buf, len, at);
}

ZUTEST_INTERPOSE ssize_t pread64(int fd, void* buf, size_t len, off64_t at) {
  using Fn = ssize_t (*)(int, void*, size_t, off64_t);
  static const Fn next = NextDefinition<Fn>("pread64");
  return FailRead() ? -1 : next(fd, buf, len, at);
}

ZUTEST_INTERPOSE ssize_t pwritev(int fd, const struct iovec* iov, int count, off_t at) {
  using Fn = ssize_t (*)(int, const struct iovec*, int, off_t);
  static const Fn next = NextDefinition<Fn>("pwritev");
  return FailWrite(at) ? -1 : next(fd, iov, count, at);
}

ZUTEST_INTERPOSE ssize_t pwritev64(int fd, const struct iovec* iov, int count, off64_t at) {
  using Fn = ssize_t (*)(int, const struct iovec*, int, off64_t);
  static const Fn next = NextDefinition<Fn>("pwritev64");
  return FailWrite(at) ? -1 : next(fd, iov, count, at);
}

namespace {

std::string Now() {
  CKATime now;
  now.SetCurrentTime();
  return now.ToString(3).GetBuf();
}

// Replaces every "<YYYY-MM-DD HH:MM:SS>" by "<T>", checking that the stamp lies between the
// times taken before and after the writes (the format sorts as text).
std::string MaskStamps(std::string bytes, const std::string& from, const std::string& to) {
  for (size_t lt = 0; (lt = bytes.find('<', lt)) != std::string::npos; ++lt) {
    const std::string stamp = bytes.substr(lt + 1, 19);
    std::string shape = stamp;
    for (char& c : shape) c = isdigit(static_cast<unsigned char>(c)) ? 'd' : c;
    if (shape != "dddd-dd-dd dd:dd:dd" || bytes.size() <= lt + 20 || bytes[lt + 20] != '>')
      continue;
    EXPECT_TRUE(from <= stamp && stamp <= to) << stamp;
    bytes.replace(lt + 1, 19, "T");
  }
  return bytes;
}

// A log thread that can be stopped and waited for, so that it may be destroyed safely.
class StoppableLogThread : public CKALogThread {
 public:
  ~StoppableLogThread() override { Stop(); }
  void Stop() {
    m_bRun = false;
    for (int waited = 0; IsRunning() && waited < 10000; waited += 10) ka_sleep(10);
  }
};

struct Entry {
  int number;
  std::string text;
};

// The entries of a log's entry area (the bytes after its header). Every line must begin as an
// entry does and the area must end with a line feed: anything else fails the test.
std::vector<Entry> Entries(const std::string& area) {
  std::vector<Entry> entries;
  EXPECT_TRUE(area.empty() || area.back() == '\n') << "torn last line";
  std::istringstream lines(area);
  for (std::string line; std::getline(lines, line);) {
    int number = 0;
    int consumed = 0;
    char stamp[20] = {};
    if (sscanf(line.c_str(), "%d <%19[-0-9 :]> %n", &number, stamp, &consumed) != 2 ||
        consumed == 0 || strlen(stamp) != 19) {
      ADD_FAILURE() << "not an entry line: " << line;
      continue;
    }
    entries.push_back({number, line.substr(static_cast<size_t>(consumed))});
  }
  return entries;
}

int HeaderNumber(const std::string& bytes) {
  return atoi(bytes.substr(0, 6).c_str());
}

using zutest::ModeOf;
using zutest::Names;
using zutest::StartChild;
using zutest::WaitChild;

// Sets one failure-injection flag for its lifetime.
class Inject {
 public:
  explicit Inject(std::atomic<bool>* flag) : m_flag(flag) { *m_flag = true; }
  ~Inject() { *m_flag = false; }

 private:
  std::atomic<bool>* m_flag;
};

// Each test gets an empty SYSTEMHOME of its own; the log directory does not exist yet.
class LogTest : public zutest::TempDirTest {
 protected:
  void SetUp() override { setenv("SYSTEMHOME", m_tmp.path().c_str(), 1); }
  void TearDown() override { unsetenv("SYSTEMHOME"); }
  std::string Log(const char* name, const char* ext = ".inf") const {
    return Path("inf/"s + name + ext);
  }
  // The file with its stamps masked, checked against the time since `from`.
  std::string Masked(const std::string& path, const std::string& from) const {
    return MaskStamps(ReadFile(path), from, Now());
  }
  // Waits (generously) until the file's header counts `entries`.
  bool WaitForEntries(const std::string& path, int entries) const {
    for (int waited = 0; waited < 20000; waited += 10) {
      if (atoi(ReadFile(path).substr(0, 6).c_str()) == entries) return true;
      ka_sleep(10);
    }
    return false;
  }
};

TEST_F(LogTest, FirstEntriesHaveExactHeaderAndLines) {
  CKALog log;
  const std::string from = Now();
  ASSERT_TRUE(log.SetProcName("app"));
  EXPECT_TRUE(fs::is_directory(Path("inf")));
  EXPECT_FALSE(fs::exists(Log("app")));  // naming creates no file
  EXPECT_TRUE(log.Add("start"));
  EXPECT_EQ(Masked(Log("app"), from),
            "0001\n\0"s
            "001 <T> start\n");
  EXPECT_TRUE(log.Add("two\nlines"));
  EXPECT_TRUE(log.Add(nullptr));  // logged as an empty text
  EXPECT_EQ(Masked(Log("app"), from),
            "0003\n\0"s
            "001 <T> start\n002 <T> two\nlines\n003 <T> \n");
}

TEST_F(LogTest, HeaderDecidesTheNextNumber) {
  const std::pair<std::string, std::string> cases[] = {
      {"0999\n\0prev\n"s, "1000\n\0prev\n1000 <T> x\n"s},
      {"9999\n\0prev\n"s, "10000\nprev\n10000 <T> x\n"s},  // five digits fill byte 5
      {"10000\nprev\n"s, "10001\nprev\n10001 <T> x\n"s},
      {"garbage text\n"s, "0001\nge text\n001 <T> x\n"s},  // not a number: counts as 0
      {"ab"s,
       "0001\n\0"s
       "001 <T> x\n"},  // short: counts as 0, gets all six bytes
      {""s,
       "0001\n\0"s
       "001 <T> x\n"},
  };
  CKALog log;
  ASSERT_TRUE(log.SetProcName("seeded"));
  for (const auto& c : cases) {
    ASSERT_TRUE(WriteFile(Log("seeded"), c.first));
    const std::string from = Now();
    EXPECT_TRUE(log.Add("x"));
    EXPECT_EQ(Masked(Log("seeded"), from), c.second) << "seed " << c.first;
  }
}

TEST_F(LogTest, Entry20000MovesFileToBackupAndIsWrittenTwice) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("app"));
  for (bool olderBackup : {false, true}) {
    ASSERT_TRUE(WriteFile(Log("app"), "19999\nprev\n"));
    ASSERT_TRUE(!olderBackup || WriteFile(Log("app", ".bak"), "older backup\n"));
    const std::string from = Now();
    EXPECT_TRUE(log.Add("x"));
    EXPECT_EQ(Masked(Log("app", ".bak"), from), "20000\nprev\n20000 <T> x\n");
    EXPECT_EQ(Masked(Log("app"), from),
              "0001\n\0"s
              "001 <T> x\n");
  }
  fs::remove(Log("app", ".bak"));
  EXPECT_TRUE(log.Add("y"));  // the file is named ".inf" again after the rotation
  EXPECT_EQ(ReadFile(Log("app")).substr(0, 6), "0002\n\0"s);
  EXPECT_FALSE(fs::exists(Log("app", ".bak")));
}

TEST_F(LogTest, UnusableSystemHomeLeavesTheLogUnnamed) {
  ASSERT_TRUE(WriteFile(Path("file"), "x"));
  const bool rootInfExisted = fs::exists("/inf");
  const std::string underFile = Path("file");
  const std::pair<const char*, const char*> cases[] = {// home (null: unset), name
                                                       {nullptr, "app"},
                                                       {"", "app"},
                                                       {underFile.c_str(), "app"},
                                                       {m_tmp.path().c_str(), nullptr}};
  for (const auto& c : cases) {
    if (c.first != nullptr) setenv("SYSTEMHOME", c.first, 1);
    if (c.first == nullptr) unsetenv("SYSTEMHOME");
    CKALog log;
    EXPECT_FALSE(log.SetProcName(c.second)) << (c.first ? c.first : "(unset)");
    EXPECT_FALSE(log.Add("lost"));
    StoppableLogThread thread;
    EXPECT_FALSE(thread.init(c.second));
    EXPECT_FALSE(thread.IsRunning());
  }
  EXPECT_EQ(fs::exists("/inf"), rootInfExisted);
  EXPECT_FALSE(fs::exists(Path("inf")));
}

TEST_F(LogTest, MegabyteTextAndLogFileReplacedByDirectory) {
  const std::string text(1 << 20, 'm');
  CKALog log;
  ASSERT_TRUE(log.SetProcName("app"));
  const std::string from = Now();
  EXPECT_TRUE(log.Add(text.c_str()));
  EXPECT_EQ(Masked(Log("app"), from),
            "0001\n\0"s
            "001 <T> " +
                text + "\n");
  fs::remove(Log("app"));
  fs::create_directory(Log("app"));
  EXPECT_TRUE(log.Add("lost"));  // neither "r+" nor "w+" opens a directory
  EXPECT_TRUE(fs::is_directory(Log("app")));
  EXPECT_FALSE(fs::exists(Log("app", ".bak")));
  fs::remove(Log("app"));
  EXPECT_TRUE(log.Add("again"));
  EXPECT_EQ(ReadFile(Log("app")).substr(0, 10),
            "0001\n\0"s
            "001 ");
}

TEST_F(LogTest, ConcurrentAddNumbersWithoutGaps) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("shared"));
  zutest::RunThreads(4, [&log](int) {
    for (int i = 0; i < 250; ++i) log.Add("w");
  });
  std::istringstream lines(ReadFile(Log("shared")).substr(6));
  int expected = 1;
  for (std::string line; std::getline(lines, line);) EXPECT_EQ(atoi(line.c_str()), expected++);
  EXPECT_EQ(expected, 1001);
}

TEST_F(LogTest, LogThreadWritesQueuedTextsInOrderAndDiscardsAfterStopping) {
  {
    StoppableLogThread thread;
    const std::string from = Now();
    EXPECT_EQ(thread.AddLog("before init"), 0);  // waits in the queue
    ASSERT_TRUE(thread.init("lt"));
    EXPECT_TRUE(thread.IsRunning());
    for (const char* text : {"a", static_cast<const char*>(nullptr), "c"}) {
      EXPECT_EQ(thread.AddLog(text), 0);
    }
    ASSERT_TRUE(WaitForEntries(Log("lt"), 4));
    EXPECT_EQ(Masked(Log("lt"), from),
              "0004\n\0"s
              "001 <T> before init\n002 <T> a\n003 <T> \n004 <T> c\n");
    thread.Stop();
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_EQ(thread.AddLog("discarded"), 0);
  }  // the destructor writes nothing
  { CKALogThread().AddLog("discarded too"); }
  EXPECT_EQ(ReadFile(Log("lt")).substr(0, 6), "0004\n\0"s);
  EXPECT_EQ(ReadFile(Log("lt")).find("discarded"), std::string::npos);
}

TEST_F(LogTest, EightProducersAreWrittenOnceInOrderWithoutGaps) {
  constexpr int kProducers = 8, kEach = 2000;  // 16000 entries: below the rotation at 20000
  StoppableLogThread thread;
  ASSERT_TRUE(thread.init("many"));
  zutest::RunThreads(kProducers, [&thread](int p) {
    for (int i = 0; i < kEach; ++i) {
      thread.AddLog(("p" + std::to_string(p) + " " + std::to_string(i)).c_str());
    }
  });
  ASSERT_TRUE(WaitForEntries(Log("many"), kProducers * kEach));
  thread.Stop();
  std::istringstream lines(ReadFile(Log("many")).substr(6));
  std::vector<int> next(kProducers, 0);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    int entry = 0, producer = -1, index = -1;
    char stamp[20] = {};
    ASSERT_EQ(sscanf(line.c_str(), "%d <%19[-0-9 :]> p%d %d", &entry, stamp, &producer, &index), 4)
        << line;
    ASSERT_EQ(entry, ++number);
    ASSERT_TRUE(producer >= 0 && producer < kProducers) << line;
    ASSERT_EQ(index, next[producer]++) << line;
  }
  EXPECT_EQ(next, std::vector<int>(kProducers, kEach));
}

TEST_F(LogTest, NextEntryRepairsWhatAKillLeftBehind) {
  const std::string from = Now();
  const std::string t = " <" + Now() + "> ";  // a stamp of the seeded entries
  const std::pair<std::string, std::string> cases[] = {
      // killed between an entry and its header: the entry is counted
      {"0001\n\0"s
       "001" +
           t + "a\n002" + t + "b\n",
       "0003\n\0"s
       "001 <T> a\n002 <T> b\n003 <T> x\n"},
      // the same with an entry of several lines
      {"0001\n\0"s
       "001" +
           t + "a\n002" + t + "b\nc\n",
       "0003\n\0"s
       "001 <T> a\n002 <T> b\nc\n003 <T> x\n"},
      // killed within an entry: the torn line gets its line feed and is counted
      {"0001\n\0"s
       "001" +
           t + "a\n002" + t + "b",
       "0003\n\0"s
       "001 <T> a\n002 <T> b\n003 <T> x\n"},
      // torn before its stamp was complete: the fragment is cut off, not counted
      {"0001\n\0"s
       "001" +
           t + "a\n002 <20",
       "0002\n\0"s
       "001 <T> a\n002 <T> x\n"},
      // a new file killed before its first header
      {"\0\0\0\0\0\0"s
       "001" +
           t + "a\n",
       "0002\n\0"s
       "001 <T> a\n002 <T> x\n"},
      // a new file killed within the number of its first entry
      {"\0\0\0\0\0\0"s
       "00",
       "0001\n\0"s
       "001 <T> x\n"},
      // a header that is right stays right, whatever the text looks like
      {"0002\n\0"s
       "001" +
           t + "a\n002" + t + "b\n001" + t + "c\n",
       "0003\n\0"s
       "001 <T> a\n002 <T> b\n001 <T> c\n003 <T> x\n"},
  };
  CKALog log;
  ASSERT_TRUE(log.SetProcName("repair"));
  for (const auto& c : cases) {
    ASSERT_TRUE(WriteFile(Log("repair"), c.first));
    EXPECT_TRUE(log.Add("x"));
    EXPECT_EQ(Masked(Log("repair"), from), c.second) << "seed " << c.first;
  }
}

TEST_F(LogTest, FailedReadsAndWritesNeverMisplaceAnEntry) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("io"));
  const std::string from = Now();
  ASSERT_TRUE(log.Add("one"));
  const std::string before = ReadFile(Log("io"));
  {
    Inject failure(&g_failReads);
    EXPECT_TRUE(log.Add("lost to a read error"));  // lost, and true as always
  }
  {
    Inject failure(&g_failEntryWrites);
    EXPECT_TRUE(log.Add("lost to a write error"));
  }
  EXPECT_EQ(ReadFile(Log("io")), before);
  {
    Inject failure(&g_failHeaderWrites);
    EXPECT_TRUE(log.Add("two"));  // written, not yet counted
  }
  EXPECT_EQ(Masked(Log("io"), from),
            "0001\n\0"s
            "001 <T> one\n002 <T> two\n");
  EXPECT_TRUE(log.Add("three"));
  EXPECT_EQ(Masked(Log("io"), from),
            "0003\n\0"s
            "001 <T> one\n002 <T> two\n003 <T> three\n");
}

TEST_F(LogTest, FullDiskLosesWholeEntriesAndKeepsTheCount) {
  constexpr rlim_t kLimit = 4096;
  constexpr int kTried = 200;  // about 16 bytes each: more than fits
  CKALog log;
  ASSERT_TRUE(log.SetProcName("full"));
  const pid_t child = StartChild([&log] {
    signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {kLimit, kLimit};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
    for (int i = 0; i < kTried; ++i) {
      if (!log.Add(("entry " + std::to_string(i)).c_str())) return 3;
    }
    return 0;
  });
  ASSERT_EQ(WaitChild(child), 0);
  std::string bytes = ReadFile(Log("full"));
  EXPECT_LE(bytes.size(), kLimit);
  std::vector<Entry> entries = Entries(bytes.substr(6));
  ASSERT_GT(entries.size(), 10u);
  ASSERT_LT(entries.size(), static_cast<size_t>(kTried));
  for (size_t i = 0; i < entries.size(); ++i) {
    EXPECT_EQ(entries[i].number, static_cast<int>(i) + 1);
    EXPECT_EQ(entries[i].text, "entry " + std::to_string(i));
  }
  EXPECT_EQ(HeaderNumber(bytes), entries.back().number);
  ASSERT_TRUE(log.Add("room again"));
  bytes = ReadFile(Log("full"));
  entries = Entries(bytes.substr(6));
  EXPECT_EQ(entries.back().text, "room again");
  EXPECT_EQ(entries.back().number, static_cast<int>(entries.size()));
  EXPECT_EQ(HeaderNumber(bytes), entries.back().number);
}

TEST_F(LogTest, RotationThatCannotMakeTheBackupKeepsTheFullFile) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("app"));
  ASSERT_TRUE(WriteFile(Log("app"), "19999\nprev\n"));
  ASSERT_TRUE(fs::create_directories(Log("app", ".bak") + "/in the way"));
  const std::string from = Now();
  EXPECT_TRUE(log.Add("x"));
  EXPECT_TRUE(log.Add("y"));
  EXPECT_EQ(Masked(Log("app"), from), "20001\nprev\n20000 <T> x\n20001 <T> y\n");
  EXPECT_TRUE(fs::is_directory(Log("app", ".bak") + "/in the way"));
  fs::remove_all(Log("app", ".bak"));
  EXPECT_TRUE(log.Add("z"));  // every entry from 20000 on tries again
  EXPECT_EQ(Masked(Log("app", ".bak"), from),
            "20002\nprev\n20000 <T> x\n20001 <T> y\n20002 <T> z\n");
  EXPECT_EQ(Masked(Log("app"), from),
            "0001\n\0"s
            "001 <T> z\n");
  EXPECT_EQ(Names(Path("inf")), (std::vector<std::string>{"app.bak", "app.inf"}));
  if (geteuid() == 0) return;  // root writes into read-only directories
  ASSERT_TRUE(WriteFile(Log("app"), "19999\nprev\n"));
  ASSERT_EQ(chmod(Path("inf").c_str(), 0555), 0);
  EXPECT_TRUE(log.Add("w"));
  ASSERT_EQ(chmod(Path("inf").c_str(), 0755), 0);
  EXPECT_EQ(Masked(Log("app"), from), "20000\nprev\n20000 <T> w\n");
}

TEST_F(LogTest, LogLinkedIntoAnotherFileSystemRotatesByMovingTheLink) {
  struct stat here;
  struct stat shm;
  if (stat(m_tmp.path().c_str(), &here) != 0 || stat("/dev/shm", &shm) != 0 ||
      here.st_dev == shm.st_dev) {
    GTEST_SKIP() << "needs /dev/shm on a file system of its own";
  }
  char dir[] = "/dev/shm/zu_log_test.XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string target = std::string(dir) + "/app.log";
  ASSERT_TRUE(WriteFile(target, "19999\nprev\n"));
  ASSERT_FALSE(ka_mkdir(Path("inf").c_str()));
  ASSERT_EQ(symlink(target.c_str(), Log("app").c_str()), 0);
  CKALog log;
  ASSERT_TRUE(log.SetProcName("app"));
  const std::string from = Now();
  EXPECT_TRUE(log.Add("x"));
  EXPECT_EQ(Masked(target, from), "20000\nprev\n20000 <T> x\n");
  struct stat moved;
  EXPECT_EQ(lstat(Log("app", ".bak").c_str(), &moved), 0);
  EXPECT_TRUE(S_ISLNK(moved.st_mode)) << "the link itself became the backup";
  EXPECT_EQ(Masked(Log("app"), from),
            "0001\n\0"s
            "001 <T> x\n");
  fs::remove_all(dir);
}

TEST_F(LogTest, SeveralProcessesNumberEveryEntryOnceAcrossTheRotation) {
  constexpr int kProcesses = 4, kEach = 250;
  ASSERT_FALSE(ka_mkdir(Path("inf").c_str()));
  ASSERT_TRUE(WriteFile(Log("multi"), "19700\nprev\n"));  // rotation after 300 entries
  int gate[2];
  ASSERT_EQ(pipe(gate), 0);
  std::vector<pid_t> children;
  for (int p = 0; p < kProcesses; ++p) {
    children.push_back(StartChild([&gate, p] {
      close(gate[1]);
      char go;
      if (read(gate[0], &go, 1) != 0) return 2;  // all start when the gate closes
      CKALog log;
      if (!log.SetProcName("multi")) return 3;
      for (int i = 0; i < kEach; ++i) {
        log.Add(("p" + std::to_string(p) + " " + std::to_string(i)).c_str());
      }
      return 0;
    }));
  }
  close(gate[0]);
  close(gate[1]);
  for (pid_t child : children) EXPECT_EQ(WaitChild(child), 0);

  const std::string bak = ReadFile(Log("multi", ".bak"));
  const std::string inf = ReadFile(Log("multi"));
  ASSERT_EQ(bak.substr(0, 11), "20000\nprev\n");
  ASSERT_EQ(inf.substr(0, 6), "0701\n\0"s);
  const std::vector<Entry> old = Entries(bak.substr(11));
  const std::vector<Entry> fresh = Entries(inf.substr(6));
  ASSERT_EQ(old.size(), 300u);
  ASSERT_EQ(fresh.size(), 701u);
  EXPECT_EQ(fresh[0].text, old.back().text);  // the entry that reached 20000, twice
  std::vector<int> next(kProcesses, 0);
  const auto check = [&next](const Entry& e, int number) {
    EXPECT_EQ(e.number, number);
    int producer = -1;
    int index = -1;
    ASSERT_EQ(sscanf(e.text.c_str(), "p%d %d", &producer, &index), 2) << e.text;
    ASSERT_TRUE(producer >= 0 && producer < kProcesses) << e.text;
    EXPECT_EQ(index, next[producer]++) << e.text;
  };
  for (size_t i = 0; i < old.size(); ++i) check(old[i], 19701 + static_cast<int>(i));
  for (size_t i = 1; i < fresh.size(); ++i) check(fresh[i], 1 + static_cast<int>(i));
  EXPECT_EQ(next, std::vector<int>(kProcesses, kEach));
}

TEST_F(LogTest, TwoLogObjectsOfOneProcessShareAFileWithoutGaps) {
  CKALog logs[2];
  for (CKALog& log : logs) ASSERT_TRUE(log.SetProcName("twice"));
  zutest::RunThreads(2, [&logs](int t) {
    for (int i = 0; i < 300; ++i) logs[t].Add("w");
  });
  const std::string bytes = ReadFile(Log("twice"));
  const std::vector<Entry> entries = Entries(bytes.substr(6));
  ASSERT_EQ(entries.size(), 600u);
  for (size_t i = 0; i < entries.size(); ++i) EXPECT_EQ(entries[i].number, int(i) + 1);
  EXPECT_EQ(HeaderNumber(bytes), 600);
}

TEST_F(LogTest, AStalledLockHolderDelaysTheLogButNeverStopsIt) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("stalled"));
  ASSERT_TRUE(log.Add("one"));
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t holder = StartChild([&] {
    const int fd = open(Log("stalled").c_str(), O_RDWR);
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (fd < 0 || fcntl(fd, F_SETLK, &whole) != 0 || write(ready[1], "r", 1) != 1) return 2;
    pause();  // holds the lock until killed
    return 0;
  });
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  const zutest::Clock::time_point start = zutest::Clock::now();
  EXPECT_TRUE(log.Add("two"));
  const long waited = zutest::MillisSince(start);
  kill(holder, SIGKILL);
  WaitChild(holder);
  close(ready[0]);
  close(ready[1]);
  EXPECT_LT(waited, 30000);
  const std::vector<Entry> entries = Entries(ReadFile(Log("stalled")).substr(6));
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[1].number, 2);
  EXPECT_EQ(entries[1].text, "two");
}

TEST_F(LogTest, KilledWritersLoseAtMostTheEntryInProgress) {
  constexpr int kRounds = 100, kEachAtMost = 150;  // at most 15100 entries: no rotation
  CKALog log;
  ASSERT_TRUE(log.SetProcName("killed"));
  for (int round = 0; round < kRounds; ++round) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = StartChild([&ready, round] {
      close(ready[0]);
      CKALog writer;
      if (!writer.SetProcName("killed") || write(ready[1], "r", 1) != 1) return 2;
      for (int i = 0; i < kEachAtMost; ++i) {
        writer.Add(("r" + std::to_string(round) + " " + std::to_string(i)).c_str());
      }
      return 0;
    });
    close(ready[1]);
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
    const struct timespec pause = {0, (round % 20) * 50 * 1000L};  // 0 to 0.95 ms
    nanosleep(&pause, nullptr);
    kill(child, SIGKILL);
    WaitChild(child);
    const std::string after = "after " + std::to_string(round);
    ASSERT_TRUE(log.Add(after.c_str()));
    const std::string bytes = ReadFile(Log("killed"));
    const size_t newline = bytes.rfind('\n', bytes.size() - 2);
    const size_t last = newline < 6 ? 6 : newline + 1;  // the header holds a line feed too
    ASSERT_EQ(bytes.substr(bytes.size() - after.size() - 1), after + "\n") << "round " << round;
    ASSERT_EQ(atoi(bytes.c_str() + last), HeaderNumber(bytes)) << "round " << round;
  }
  const std::string bytes = ReadFile(Log("killed"));
  const std::vector<Entry> entries = Entries(bytes.substr(6));
  ASSERT_FALSE(entries.empty());
  EXPECT_EQ(HeaderNumber(bytes), entries.back().number);
  int round = 0;
  int index = 0;
  for (size_t i = 0; i < entries.size(); ++i) {
    ASSERT_EQ(entries[i].number, static_cast<int>(i) + 1);
    if (entries[i].text == "after " + std::to_string(round)) {
      ++round;
      index = 0;
      continue;
    }
    const std::string expected = "r" + std::to_string(round) + " " + std::to_string(index++);
    // A kill can cut a write short at a page boundary: the entry in progress (the one just
    // before the parent's) may then be kept cut short, completed with its line feed.
    const bool inProgress =
        i + 1 < entries.size() && entries[i + 1].text == "after " + std::to_string(round);
    if (inProgress && expected.compare(0, entries[i].text.size(), entries[i].text) == 0) continue;
    ASSERT_EQ(entries[i].text, expected);
  }
  EXPECT_EQ(round, kRounds);
}

TEST_F(LogTest, CreatedDirectoryAndFilesAreNeverWritableByOthers) {
  const mode_t old = umask(0);  // as ka_daemon_init leaves it
  CKALog log;
  const bool named = log.SetProcName("modes");
  log.Add("a");
  ASSERT_TRUE(WriteFile(Log("modes"), "19999\nprev\n"));
  log.Add("rotates");
  umask(old);
  ASSERT_TRUE(named);
  EXPECT_EQ(ModeOf(Path("inf")), 0775u);
  EXPECT_EQ(ModeOf(Log("modes", ".bak")), 0664u);
  EXPECT_EQ(ModeOf(Log("modes")), 0664u);
}

// Root can give a link to another user; others cannot fake the owner.
TEST_F(LogTest, SymbolicLinksOfOtherUsersAreNeverFollowed) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give a link to another user";
  ASSERT_FALSE(ka_mkdir(Path("inf").c_str()));
  ASSERT_TRUE(WriteFile(Path("victim"), "secret\n"));
  const std::pair<std::string, std::string> planted[] = {{"planted", Path("victim")},
                                                         {"dangling", Path("made")}};
  for (const auto& link : planted) {
    ASSERT_EQ(symlink(link.second.c_str(), Log(link.first.c_str()).c_str()), 0);
    ASSERT_EQ(lchown(Log(link.first.c_str()).c_str(), 65534, 65534), 0);
    CKALog log;
    ASSERT_TRUE(log.SetProcName(link.first.c_str()));
    EXPECT_TRUE(log.Add("x"));  // lost, as any entry whose file cannot be opened
  }
  EXPECT_EQ(ReadFile(Path("victim")), "secret\n");
  EXPECT_FALSE(fs::exists(Path("made")));

  ASSERT_EQ(symlink(Path("own.log").c_str(), Log("own").c_str()), 0);  // root's own link
  CKALog own;
  ASSERT_TRUE(own.SetProcName("own"));
  EXPECT_TRUE(own.Add("y"));
  EXPECT_EQ(ReadFile(Path("own.log")).substr(0, 10),
            "0001\n\0"s
            "001 ");

  ASSERT_FALSE(ka_mkdir(Path("home2").c_str()));
  ASSERT_FALSE(ka_mkdir(Path("elsewhere").c_str()));
  ASSERT_EQ(symlink(Path("elsewhere").c_str(), Path("home2/inf").c_str()), 0);
  ASSERT_EQ(lchown(Path("home2/inf").c_str(), 65534, 65534), 0);
  setenv("SYSTEMHOME", Path("home2").c_str(), 1);
  CKALog refused;
  EXPECT_FALSE(refused.SetProcName("app"));
  EXPECT_FALSE(refused.Add("z"));
  EXPECT_TRUE(Names(Path("elsewhere")).empty());
}

TEST_F(LogTest, AppendsPastTwoGigabytes) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("big"));
  const std::string last = "007 <" + Now() + "> seven\n";
  const off64_t end = (off64_t{1} << 31) + 4096;
  const int fd = open64(Log("big").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  ASSERT_GE(fd, 0);
  if (ftruncate64(fd, end) != 0) {
    close(fd);
    GTEST_SKIP() << "this file system holds no sparse file of 2 GiB: " << strerror(errno);
  }
  ASSERT_EQ(pwrite64(fd, "0007\n", 5, 0), 5);
  ASSERT_EQ(pwrite64(fd, last.data(), last.size(), end - static_cast<off64_t>(last.size())),
            static_cast<ssize_t>(last.size()));
  EXPECT_TRUE(log.Add("past 2 GiB"));
  char head[6] = {};
  EXPECT_EQ(pread64(fd, head, sizeof head, 0), 6);
  EXPECT_EQ(std::string(head, 6), "0008\n\0"s);
  const std::string stamp = Now();
  std::string tail(64, '\0');
  const ssize_t read = pread64(fd, &tail[0], tail.size(), end);
  close(fd);
  ASSERT_GT(read, 0);
  tail.resize(static_cast<size_t>(read));
  EXPECT_EQ(MaskStamps(tail, Now().substr(0, 10), stamp), "008 <T> past 2 GiB\n");
}

}  // namespace
