#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>

#include "zu_global_unix.h"

namespace {

using Clock = std::chrono::steady_clock;

long MillisSince(Clock::time_point start) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

bool Exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

bool IsDir(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

void WriteFile(const std::string& path, const std::string& text) {
  FILE* f = fopen(path.c_str(), "w");
  ASSERT_NE(nullptr, f) << path;
  fputs(text.c_str(), f);
  fclose(f);
}

std::string ReadFile(const std::string& path) {
  std::string text;
  if (FILE* f = fopen(path.c_str(), "r")) {
    char buf[256];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
    fclose(f);
  }
  return text;
}

// A fresh directory under /tmp, removed with everything in it at the end of the test.
class TempDirTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char templ[] = "/tmp/zu_global_unix_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(templ));
    m_dir = templ;
  }
  void TearDown() override { ka_rmdir(m_dir.c_str()); }
  std::string Path(const std::string& rel) const { return m_dir + "/" + rel; }

  std::string m_dir;
};

// Runs body in a forked child and returns its wait status.
template <typename Body>
int RunInChild(Body body) {
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    body();
    _exit(99);  // body must leave with its own status
  }
  int status = -1;
  waitpid(pid, &status, 0);
  return status;
}

}  // namespace

// ---- Sleep and clock ----

TEST(KaSleep, NegativeAndZeroReturnAtOnce) {
  const Clock::time_point start = Clock::now();
  ka_sleep(-5);
  ka_sleep(-2000);
  ka_sleep(0);
  EXPECT_LT(MillisSince(start), 1000);
}

TEST(KaSleep, SleepsSecondsAndMilliseconds) {
  const Clock::time_point start = Clock::now();
  ka_sleep(1500);
  const long waited = MillisSince(start);
  EXPECT_GE(waited, 1500);
  EXPECT_LT(waited, 6000);
}

void IgnoreSignal(int) {}

TEST(KaSleep, SignalDoesNotShortenSleep) {
  struct sigaction action, old;
  memset(&action, 0, sizeof action);
  action.sa_handler = IgnoreSignal;
  sigaction(SIGUSR1, &action, &old);
  const pthread_t sleeper = pthread_self();
  std::thread interrupter([sleeper] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pthread_kill(sleeper, SIGUSR1);
  });
  const Clock::time_point start = Clock::now();
  ka_sleep(300);
  const long waited = MillisSince(start);
  interrupter.join();
  sigaction(SIGUSR1, &old, nullptr);
  EXPECT_GE(waited, 300);
}

TEST(KaClock, IntervalReadingsMeasureASleep) {
  const SIntervalMTime start = ka_get_current_interval_mtime();
  ka_sleep(120);
  const SIntervalMTime now = ka_get_current_interval_mtime();
  EXPECT_LT(start.wMillisecond, 1000);
  EXPECT_LT(now.wMillisecond, 1000);
  EXPECT_GE(ka_elapsed_mtime(start, now), 120u);
  EXPECT_LT(ka_elapsed_mtime(start, now), 5000u);
}

TEST(KaClock, CurrentTimeIsLocalTimeOfNow) {
  setenv("TZ", "EST5", 1);
  tzset();
  for (int attempt = 0; attempt < 5; ++attempt) {
    const time_t before = time(nullptr);
    const STimeInfo info = ka_get_current_time();
    const STimeInfo minfo = ka_get_current_mtime();
    if (time(nullptr) != before) continue;  // a second boundary passed: try again
    struct tm expected;
    const time_t shifted = before - 5 * 3600;
    gmtime_r(&shifted, &expected);
    EXPECT_EQ(expected.tm_year + 1900, info.wYear);
    EXPECT_EQ(expected.tm_mon + 1, info.wMonth);
    EXPECT_EQ(expected.tm_mday, info.wDay);
    EXPECT_EQ(expected.tm_hour, info.wHour);
    EXPECT_EQ(expected.tm_min, info.wMinute);
    EXPECT_EQ(expected.tm_sec, info.wSecond);
    EXPECT_EQ(0, info.wMilliseconds);
    EXPECT_EQ(info.wHour, minfo.wHour);
    EXPECT_EQ(info.wSecond, minfo.wSecond);
    EXPECT_LT(minfo.wMilliseconds, 1000);
    EXPECT_EQ(0, minfo.wReserved);
    return;
  }
  FAIL() << "the clock kept crossing second boundaries";
}

// ---- Directories ----

using KaMkdir = TempDirTest;

TEST_F(KaMkdir, CreatesMissingParentsAndReturnsFalseOnSuccess) {
  EXPECT_FALSE(ka_mkdir(Path("a/b/c").c_str()));
  EXPECT_TRUE(IsDir(Path("a/b/c")));
  EXPECT_FALSE(ka_mkdir(Path("a/b/c").c_str()));  // already there: still success
  EXPECT_FALSE(ka_mkdir(Path("a/x//y/").c_str()));
  EXPECT_TRUE(IsDir(Path("a/x/y")));
  EXPECT_FALSE(ka_mkdir("/"));
}

TEST_F(KaMkdir, TakesShellCharactersAsPlainNameCharacters) {
  const std::string odd = Path("x y;touch injected$(touch injected2)'\"");
  EXPECT_FALSE(ka_mkdir(odd.c_str()));
  EXPECT_TRUE(IsDir(odd));
  EXPECT_FALSE(Exists(Path("x")));
  EXPECT_FALSE(Exists("injected"));
  EXPECT_FALSE(Exists("injected2"));
}

TEST_F(KaMkdir, ReturnsTrueOnFailure) {
  WriteFile(Path("file"), "x");
  EXPECT_TRUE(ka_mkdir(Path("file").c_str()));
  EXPECT_TRUE(ka_mkdir(Path("file/sub").c_str()));
  EXPECT_TRUE(ka_mkdir(""));
  EXPECT_FALSE(ka_mkdir(nullptr));  // null is the stated false
}

using KaRmdir = TempDirTest;

TEST_F(KaRmdir, RemovesTreeWithoutFollowingLinks) {
  ASSERT_FALSE(ka_mkdir(Path("tree/a/b").c_str()));
  ASSERT_FALSE(ka_mkdir(Path("outside").c_str()));
  WriteFile(Path("tree/f1"), "1");
  WriteFile(Path("tree/a/b/f2"), "2");
  WriteFile(Path("outside/keep"), "k");
  ASSERT_EQ(0, symlink(Path("outside").c_str(), Path("tree/a/link").c_str()));
  EXPECT_FALSE(ka_rmdir(Path("tree").c_str()));
  EXPECT_FALSE(Exists(Path("tree")));
  EXPECT_EQ("k", ReadFile(Path("outside/keep")));
}

TEST_F(KaRmdir, RemovesFilesAndToleratesMissingPaths) {
  WriteFile(Path("file"), "x");
  EXPECT_FALSE(ka_rmdir(Path("file").c_str()));
  EXPECT_FALSE(Exists(Path("file")));
  EXPECT_FALSE(ka_rmdir(Path("missing/deeper").c_str()));
  EXPECT_FALSE(ka_rmdir(""));
  EXPECT_FALSE(ka_rmdir(nullptr));
}

TEST_F(KaRmdir, RefusesRootAndDotPaths) {
  ASSERT_FALSE(ka_mkdir(Path("d").c_str()));
  EXPECT_TRUE(ka_rmdir("/"));
  EXPECT_TRUE(ka_rmdir("//"));
  EXPECT_TRUE(ka_rmdir(Path("d/.").c_str()));
  EXPECT_TRUE(ka_rmdir(Path("d/..").c_str()));
  EXPECT_TRUE(IsDir(Path("d")));
}

// ---- Daemon and signals: only ever in forked children ----

namespace {

// In the surviving daemon: describes its state in one line.
std::string DescribeDaemon(int rc) {
  char cwd[64] = "";
  if (getcwd(cwd, sizeof cwd) == nullptr) cwd[0] = '\0';
  const mode_t mask = umask(0);
  struct stat null, fd;
  stat("/dev/null", &null);
  bool fdsOk = fcntl(3, F_GETFD) == -1;
  for (int i = 0; i < 3; ++i) {
    fdsOk = fdsOk && fstat(i, &fd) == 0 && fd.st_rdev == null.st_rdev;
  }
  fdsOk = fdsOk && (fcntl(0, F_GETFL) & O_ACCMODE) == O_RDONLY &&
          (fcntl(1, F_GETFL) & O_ACCMODE) == O_RDWR && (fcntl(2, F_GETFL) & O_ACCMODE) == O_RDWR;
  char line[128];
  snprintf(line, sizeof line, "rc=%d leader=%d cwd=%s umask=%o fds=%d", rc, getsid(0) == getpid(),
           cwd, static_cast<unsigned>(mask), fdsOk);
  return line;
}

void DaemonReport(bool forkTwice, const std::string& report) {
  const int rc = ka_daemon_init(forkTwice);
  const std::string line = DescribeDaemon(rc);
  const std::string tmp = report + ".tmp";
  const int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (write(fd, line.data(), line.size()) < 0) _exit(1);
  close(fd);
  rename(tmp.c_str(), report.c_str());
  _exit(0);
}

std::string AwaitReport(const std::string& report) {
  for (int i = 0; i < 1000 && !Exists(report); ++i) ka_sleep(10);
  return ReadFile(report);
}

}  // namespace

using KaDaemonInit = TempDirTest;

TEST_F(KaDaemonInit, ParentExitsZeroAndChildLeadsNewSessionOnDevNull) {
  const std::string report = Path("report");
  const int status = RunInChild([&] { DaemonReport(false, report); });
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status));
  EXPECT_EQ("rc=0 leader=1 cwd=/ umask=0 fds=1", AwaitReport(report));
}

TEST_F(KaDaemonInit, ForkingTwiceLeavesNoSessionLeader) {
  const std::string report = Path("report");
  const int status = RunInChild([&] { DaemonReport(true, report); });
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status));
  EXPECT_EQ("rc=0 leader=0 cwd=/ umask=0 fds=1", AwaitReport(report));
}

TEST(KaIgnoreSignal, ChildSurvivesTerminatingSignals) {
  const int status = RunInChild([] {
    if (ka_ignore_signal() != 0) _exit(1);
    for (int sig : {SIGINT, SIGTERM, SIGALRM, SIGPIPE, SIGXFSZ, SIGABRT}) raise(sig);
    for (int sig : {SIGINT, SIGILL, SIGFPE, SIGSEGV, SIGTERM, SIGABRT, SIGALRM, SIGPIPE, SIGXFSZ}) {
      struct sigaction current;
      sigaction(sig, nullptr, &current);
      if (current.sa_handler != SIG_IGN) _exit(10 + sig);
    }
    struct sigaction pipe;
    sigaction(SIGPIPE, nullptr, &pipe);
    _exit((pipe.sa_flags & SA_RESETHAND) ? 0 : 2);
  });
  ASSERT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
  EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST(KaGetComputerName, MatchesTheHostName) {
  char expected[256] = {};
  ASSERT_EQ(0, gethostname(expected, sizeof expected - 1));
  const CKAString name = ka_get_computer_name();
  EXPECT_STREQ(expected, name.GetBuf());
  EXPECT_GT(name.GetLength(), 0);
}
