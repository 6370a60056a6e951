#include "zu_log.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "zu_global_unix.h"
#include "zu_time.h"

namespace fs = std::filesystem;

namespace {

using namespace std::string_literals;  // "...\0..."s keeps the NUL bytes

std::string ReadBytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void WriteBytes(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string Now() {
  CKATime now;
  now.SetCurrentTime();
  return now.ToString(3).GetBuf();
}

bool IsStamp(const std::string& s) {
  static const char kShape[] = "dddd-dd-dd dd:dd:dd";
  if (s.size() != sizeof kShape - 1) return false;
  for (size_t i = 0; i < s.size(); ++i) {
    const bool ok = kShape[i] == 'd' ? s[i] >= '0' && s[i] <= '9' : s[i] == kShape[i];
    if (!ok) return false;
  }
  return true;
}

// Replaces every "<YYYY-MM-DD HH:MM:SS>" by "<T>" and checks that the stamp lies between the
// times taken before and after the writes (the format sorts as text).
std::string MaskStamps(const std::string& bytes, const std::string& from, const std::string& to) {
  std::string out;
  size_t pos = 0;
  for (size_t lt; (lt = bytes.find('<', pos)) != std::string::npos;) {
    const std::string stamp = bytes.substr(lt + 1, 19);
    const bool masked = IsStamp(stamp) && lt + 20 < bytes.size() && bytes[lt + 20] == '>';
    out.append(bytes, pos, lt - pos);
    out += masked ? "<T>" : "<";
    pos = masked ? lt + 21 : lt + 1;
    if (masked) {
      EXPECT_LE(from, stamp);
      EXPECT_LE(stamp, to);
    }
  }
  out.append(bytes, pos, std::string::npos);
  return out;
}

// A log thread that can be stopped: clears the run flag and waits for the thread to end, so
// the object may be destroyed safely.
class StoppableLogThread : public CKALogThread {
 public:
  ~StoppableLogThread() override { Stop(); }
  void Stop() {
    m_bRun = false;
    for (int waited = 0; IsRunning() && waited < 10000; waited += 10) ka_sleep(10);
  }
};

// Each test gets an empty SYSTEMHOME of its own; the log directory does not exist yet.
class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/zu_log_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    home_ = pattern;
    setenv("SYSTEMHOME", pattern, 1);
  }
  void TearDown() override {
    unsetenv("SYSTEMHOME");
    fs::remove_all(home_);
  }
  fs::path Path(const char* name, const char* ext) const {
    return home_ / "inf" / (std::string(name) + ext);
  }
  // Waits (generously) until the file's header counts `entries`.
  bool WaitForEntries(const fs::path& path, int entries) const {
    for (int waited = 0; waited < 20000; waited += 10) {
      if (atoi(ReadBytes(path).substr(0, 6).c_str()) == entries) return true;
      ka_sleep(10);
    }
    return false;
  }
  fs::path home_;
};

TEST_F(LogTest, FirstEntriesHaveExactHeaderAndLines) {
  CKALog log;
  const std::string from = Now();
  ASSERT_TRUE(log.SetProcName("app"));
  EXPECT_TRUE(fs::is_directory(home_ / "inf"));
  EXPECT_FALSE(fs::exists(Path("app", ".inf")));  // naming creates no file
  EXPECT_TRUE(log.Add("start"));
  EXPECT_EQ(MaskStamps(ReadBytes(Path("app", ".inf")), from, Now()),
            "0001\n\0"
            "001 <T> start\n"s);
  EXPECT_TRUE(log.Add("two\nlines"));
  EXPECT_TRUE(log.Add(nullptr));  // logged as an empty text
  EXPECT_EQ(MaskStamps(ReadBytes(Path("app", ".inf")), from, Now()),
            "0003\n\0"
            "001 <T> start\n002 <T> two\nlines\n003 <T> \n"s);
}

TEST_F(LogTest, HeaderDecidesTheNextNumber) {
  struct Case {
    std::string seed, expected;
  };
  const Case cases[] = {
      {"0999\n\0prev\n"s, "1000\n\0prev\n1000 <T> x\n"s},
      {"9999\n\0prev\n"s, "10000\nprev\n10000 <T> x\n"s},  // five digits fill byte 5
      {"10000\nprev\n"s, "10001\nprev\n10001 <T> x\n"s},
      {"garbage text\n"s, "0001\nge text\n001 <T> x\n"s},  // not a number: counts as 0
      {"ab"s,
       "0001\n\0"
       "001 <T> x\n"s},  // short: counts as 0, gets all six bytes
      {""s,
       "0001\n\0"
       "001 <T> x\n"s},
  };
  CKALog log;
  ASSERT_TRUE(log.SetProcName("seeded"));
  for (const Case& c : cases) {
    WriteBytes(Path("seeded", ".inf"), c.seed);
    const std::string from = Now();
    EXPECT_TRUE(log.Add("x"));
    EXPECT_EQ(MaskStamps(ReadBytes(Path("seeded", ".inf")), from, Now()), c.expected)
        << "seed " << c.seed;
  }
}

TEST_F(LogTest, Entry20000MovesFileToBackupAndIsWrittenTwice) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("app"));
  for (bool olderBackup : {false, true}) {
    WriteBytes(Path("app", ".inf"), "19999\nprev\n");
    if (olderBackup) WriteBytes(Path("app", ".bak"), "older backup\n");
    const std::string from = Now();
    EXPECT_TRUE(log.Add("x"));
    EXPECT_EQ(MaskStamps(ReadBytes(Path("app", ".bak")), from, Now()),
              "20000\nprev\n20000 <T> x\n");
    EXPECT_EQ(MaskStamps(ReadBytes(Path("app", ".inf")), from, Now()),
              "0001\n\0"
              "001 <T> x\n"s);
  }
  fs::remove(Path("app", ".bak"));
  EXPECT_TRUE(log.Add("y"));  // the file is named ".inf" again after the rotation
  EXPECT_EQ(ReadBytes(Path("app", ".inf")).substr(0, 6), "0002\n\0"s);
  EXPECT_FALSE(fs::exists(Path("app", ".bak")));
}

TEST_F(LogTest, UnusableSystemHomeLeavesTheLogUnnamed) {
  WriteBytes(home_ / "file", "x");
  const bool rootInfExisted = fs::exists("/inf");
  struct Case {
    const char* home;  // null: unset
    const char* name;
  };
  const std::string underFile = (home_ / "file").string();
  const Case cases[] = {
      {nullptr, "app"}, {"", "app"}, {underFile.c_str(), "app"}, {home_.c_str(), nullptr}};
  for (const Case& c : cases) {
    if (c.home != nullptr) setenv("SYSTEMHOME", c.home, 1);
    if (c.home == nullptr) unsetenv("SYSTEMHOME");
    CKALog log;
    EXPECT_FALSE(log.SetProcName(c.name)) << (c.home ? c.home : "(unset)");
    EXPECT_FALSE(log.Add("lost"));
    StoppableLogThread thread;
    EXPECT_FALSE(thread.init(c.name));
    EXPECT_FALSE(thread.IsRunning());
  }
  EXPECT_EQ(fs::exists("/inf"), rootInfExisted);
  EXPECT_FALSE(fs::exists(home_ / "inf"));
}

TEST_F(LogTest, MegabyteTextIsWrittenUnchanged) {
  const std::string text(1 << 20, 'm');
  CKALog log;
  ASSERT_TRUE(log.SetProcName("big"));
  const std::string from = Now();
  EXPECT_TRUE(log.Add(text.c_str()));
  EXPECT_EQ(MaskStamps(ReadBytes(Path("big", ".inf")), from, Now()),
            "0001\n\0"
            "001 <T> "s +
                text + "\n");
}

TEST_F(LogTest, LogFileReplacedByDirectoryLosesEntriesWithoutFailing) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("app"));
  ASSERT_TRUE(log.Add("first"));
  fs::remove(Path("app", ".inf"));
  fs::create_directory(Path("app", ".inf"));
  EXPECT_TRUE(log.Add("lost"));  // neither "r+" nor "w+" opens a directory
  EXPECT_TRUE(fs::is_directory(Path("app", ".inf")));
  EXPECT_FALSE(fs::exists(Path("app", ".bak")));
  fs::remove(Path("app", ".inf"));
  EXPECT_TRUE(log.Add("again"));
  EXPECT_EQ(ReadBytes(Path("app", ".inf")).substr(0, 10),
            "0001\n\0"
            "001 "s);
}

TEST_F(LogTest, ConcurrentAddNumbersWithoutGaps) {
  CKALog log;
  ASSERT_TRUE(log.SetProcName("shared"));
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([&log] {
      for (int i = 0; i < 250; ++i) log.Add("w");
    });
  }
  for (std::thread& w : writers) w.join();
  std::istringstream lines(ReadBytes(Path("shared", ".inf")).substr(6));
  std::string line;
  int expected = 1;
  while (std::getline(lines, line)) EXPECT_EQ(atoi(line.c_str()), expected++);
  EXPECT_EQ(expected, 1001);
}

TEST_F(LogTest, LogThreadWritesQueuedTextsInOrder) {
  StoppableLogThread thread;
  const std::string from = Now();
  EXPECT_EQ(thread.AddLog("before init"), 0);  // waits in the queue
  ASSERT_TRUE(thread.init("lt"));
  EXPECT_TRUE(thread.IsRunning());
  EXPECT_EQ(thread.AddLog("a"), 0);
  EXPECT_EQ(thread.AddLog(nullptr), 0);
  EXPECT_EQ(thread.AddLog("c"), 0);
  ASSERT_TRUE(WaitForEntries(Path("lt", ".inf"), 4));
  EXPECT_EQ(MaskStamps(ReadBytes(Path("lt", ".inf")), from, Now()),
            "0004\n\0"
            "001 <T> before init\n002 <T> a\n003 <T> \n004 <T> c\n"s);
  thread.Stop();
  EXPECT_FALSE(thread.IsRunning());
}

TEST_F(LogTest, QueuedTextsAreDiscardedWhenTheThreadHasStopped) {
  {
    StoppableLogThread thread;
    ASSERT_TRUE(thread.init("gone"));
    thread.AddLog("written");
    ASSERT_TRUE(WaitForEntries(Path("gone", ".inf"), 1));
    thread.Stop();
    EXPECT_EQ(thread.AddLog("discarded"), 0);
  }  // the destructor writes nothing
  {
    CKALogThread neverStarted;
    neverStarted.AddLog("discarded too");
  }
  EXPECT_EQ(ReadBytes(Path("gone", ".inf")).substr(0, 6), "0001\n\0"s);
  EXPECT_EQ(ReadBytes(Path("gone", ".inf")).find("discarded"), std::string::npos);
}

TEST_F(LogTest, EightProducersAreWrittenOnceInOrderWithoutGaps) {
  constexpr int kProducers = 8, kEach = 2000;  // 16000 entries: below the rotation at 20000
  StoppableLogThread thread;
  ASSERT_TRUE(thread.init("many"));
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&thread, p] {
      for (int i = 0; i < kEach; ++i) {
        thread.AddLog(("p" + std::to_string(p) + " " + std::to_string(i)).c_str());
      }
    });
  }
  for (std::thread& p : producers) p.join();
  ASSERT_TRUE(WaitForEntries(Path("many", ".inf"), kProducers * kEach));
  thread.Stop();
  std::istringstream lines(ReadBytes(Path("many", ".inf")).substr(6));
  std::vector<int> next(kProducers, 0);
  std::string line;
  int number = 0;
  while (std::getline(lines, line)) {
    ++number;
    int entry = 0, producer = -1, index = -1;
    char stamp[20] = {};
    ASSERT_EQ(sscanf(line.c_str(), "%d <%19[-0-9 :]> p%d %d", &entry, stamp, &producer, &index), 4)
        << line;
    ASSERT_EQ(entry, number);
    ASSERT_TRUE(producer >= 0 && producer < kProducers) << line;
    ASSERT_EQ(index, next[producer]++) << line;
  }
  EXPECT_EQ(number, kProducers * kEach);
  EXPECT_EQ(next, std::vector<int>(kProducers, kEach));
}

}  // namespace
