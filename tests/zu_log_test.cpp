#include "zu_log.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cctype>
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

}  // namespace
