#include "zu_global_unix.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "test_util.h"

using zutest::Clock;
using zutest::MillisSince;
using zutest::ReadFile;
using zutest::WriteFile;

namespace {

bool Exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

bool IsDir(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Runs body in a forked child and returns its wait status; body must _exit itself.
template <typename Body>
int RunInChild(Body body) {
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    body();
    _exit(99);
  }
  int status = -1;
  waitpid(pid, &status, 0);
  return status;
}

void IgnoreSignal(int) {}

}  // namespace

TEST(KaSleep, SleepsWholeSecondsAndMillisecondsDespiteSignals) {
  Clock::time_point start = Clock::now();
  for (int ms : {-5, -2000, 0}) ka_sleep(ms);  // return at once
  EXPECT_LT(MillisSince(start), 1000);
  struct sigaction action = {}, old;
  action.sa_handler = IgnoreSignal;
  sigaction(SIGUSR1, &action, &old);
  const pthread_t sleeper = pthread_self();
  std::thread interrupter([sleeper] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pthread_kill(sleeper, SIGUSR1);
  });
  start = Clock::now();
  ka_sleep(1500);
  const long waited = MillisSince(start);
  interrupter.join();
  sigaction(SIGUSR1, &old, nullptr);
  EXPECT_GE(waited, 1500);
  EXPECT_LT(waited, 6000);
}

TEST(KaClock, IntervalReadingsMeasureASleepAndCurrentTimeIsLocal) {
  const SIntervalMTime start = ka_get_current_interval_mtime();
  ka_sleep(120);
  const SIntervalMTime now = ka_get_current_interval_mtime();
  EXPECT_LT(start.wMillisecond, 1000);
  EXPECT_LT(now.wMillisecond, 1000);
  EXPECT_GE(ka_elapsed_mtime(start, now), 120u);
  EXPECT_LT(ka_elapsed_mtime(start, now), 5000u);
  zutest::SetTimeZone("EST5");
  for (int attempt = 0; attempt < 5; ++attempt) {
    const time_t before = time(nullptr);
    const STimeInfo i = ka_get_current_time(), m = ka_get_current_mtime();
    if (time(nullptr) != before) continue;  // a second boundary passed: try again
    struct tm e;
    const time_t shifted = before - 5 * 3600;
    gmtime_r(&shifted, &e);
    EXPECT_EQ((std::vector<int>{e.tm_year + 1900, e.tm_mon + 1, e.tm_mday, e.tm_hour, e.tm_min,
                                e.tm_sec, 0, e.tm_hour, e.tm_sec, 0}),
              (std::vector<int>{i.wYear, i.wMonth, i.wDay, i.wHour, i.wMinute, i.wSecond,
                                i.wMilliseconds, m.wHour, m.wSecond, m.wReserved}));
    EXPECT_LT(m.wMilliseconds, 1000);
    return;
  }
  FAIL() << "the clock kept crossing second boundaries";
}

using KaMkdir = zutest::TempDirTest;

TEST_F(KaMkdir, CreatesMissingParentsAndReturnsFalseOnSuccess) {
  EXPECT_FALSE(ka_mkdir(Path("a/b/c").c_str()));
  EXPECT_TRUE(IsDir(Path("a/b/c")));
  EXPECT_FALSE(ka_mkdir(Path("a/b/c").c_str()));  // already there: still success
  EXPECT_FALSE(ka_mkdir(Path("a/x//y/").c_str()));
  EXPECT_TRUE(IsDir(Path("a/x/y")));
  EXPECT_FALSE(ka_mkdir("/"));
  // A path is data, never a command.
  const std::string odd = Path("x y;touch injected$(touch injected2)'\"");
  EXPECT_FALSE(ka_mkdir(odd.c_str()));
  EXPECT_TRUE(IsDir(odd));
  EXPECT_FALSE(Exists(Path("x")) || Exists("injected") || Exists("injected2"));
}

TEST_F(KaMkdir, MakesNoDirectoryWritableByOthersWhateverTheUmask) {
  for (const mode_t mask : {0000, 0002, 0022, 0077}) {
    const std::string top = Path("m" + std::to_string(mask));
    const mode_t old = umask(mask);
    const bool failed = ka_mkdir((top + "/a/b").c_str());
    umask(old);
    ASSERT_FALSE(failed);
    for (const std::string& dir : {top, top + "/a", top + "/a/b"}) {
      struct stat st;
      ASSERT_EQ(stat(dir.c_str(), &st), 0);
      EXPECT_EQ(st.st_mode & 07777, 0775u & ~mask) << dir;
    }
  }
}

TEST_F(KaMkdir, ReturnsTrueOnFailure) {
  ASSERT_TRUE(WriteFile(Path("file"), "x"));
  EXPECT_TRUE(ka_mkdir(Path("file").c_str()));
  EXPECT_TRUE(ka_mkdir(Path("file/sub").c_str()));
  EXPECT_TRUE(ka_mkdir(""));
  EXPECT_FALSE(ka_mkdir(nullptr));  // null is the stated false
}

using KaRmdir = zutest::TempDirTest;

TEST_F(KaRmdir, RemovesTreesAndFilesWithoutFollowingLinks) {
  ASSERT_FALSE(ka_mkdir(Path("tree/a/b").c_str()));
  ASSERT_FALSE(ka_mkdir(Path("outside").c_str()));
  for (const char* f : {"tree/f1", "tree/a/b/f2", "outside/keep", "file"}) {
    ASSERT_TRUE(WriteFile(Path(f), "k"));
  }
  ASSERT_EQ(0, symlink(Path("outside").c_str(), Path("tree/a/link").c_str()));
  EXPECT_FALSE(ka_rmdir(Path("tree").c_str()));
  EXPECT_FALSE(Exists(Path("tree")));
  EXPECT_EQ("k", ReadFile(Path("outside/keep")));
  EXPECT_FALSE(ka_rmdir(Path("file").c_str()));
  EXPECT_FALSE(Exists(Path("file")));
  EXPECT_FALSE(ka_rmdir(Path("missing/deeper").c_str()));  // missing paths: success
  EXPECT_FALSE(ka_rmdir(""));
  EXPECT_FALSE(ka_rmdir(nullptr));
}

TEST_F(KaRmdir, RefusesRootAndDotPaths) {
  ASSERT_FALSE(ka_mkdir(Path("d").c_str()));
  for (const std::string& p : {std::string("/"), std::string("//"), Path("d/."), Path("d/..")}) {
    EXPECT_TRUE(ka_rmdir(p.c_str())) << p;
  }
  EXPECT_TRUE(IsDir(Path("d")));
}

namespace {

// In the surviving daemon: its state in one line.
std::string DescribeDaemon(int rc) {
  char cwd[64] = "";
  if (getcwd(cwd, sizeof cwd) == nullptr) cwd[0] = '\0';
  const mode_t mask = umask(0);
  struct stat null, fd;
  stat("/dev/null", &null);
  bool fdsOk = fcntl(3, F_GETFD) == -1;
  for (int i = 0; i < 3; ++i) fdsOk = fdsOk && fstat(i, &fd) == 0 && fd.st_rdev == null.st_rdev;
  fdsOk = fdsOk && (fcntl(0, F_GETFL) & O_ACCMODE) == O_RDONLY &&
          (fcntl(1, F_GETFL) & O_ACCMODE) == O_RDWR && (fcntl(2, F_GETFL) & O_ACCMODE) == O_RDWR;
  char line[128];
  snprintf(line, sizeof line, "rc=%d leader=%d cwd=%s umask=%o fds=%d", rc, getsid(0) == getpid(),
           cwd, static_cast<unsigned>(mask), fdsOk);
  return line;
}

}  // namespace

using KaDaemonInit = zutest::TempDirTest;

TEST_F(KaDaemonInit, ParentExitsZeroAndDaemonRunsDetachedOnDevNull) {
  for (bool forkTwice : {false, true}) {  // forking twice leaves no session leader
    const std::string report = Path(forkTwice ? "twice" : "once");
    const int status = RunInChild([&] {
      const std::string line = DescribeDaemon(ka_daemon_init(forkTwice));
      const int fd = open((report + ".tmp").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (write(fd, line.data(), line.size()) < 0) _exit(1);
      close(fd);
      rename((report + ".tmp").c_str(), report.c_str());
      _exit(0);
    });
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
    for (int i = 0; i < 1000 && !Exists(report); ++i) ka_sleep(10);
    EXPECT_EQ(forkTwice ? "rc=0 leader=0 cwd=/ umask=0 fds=1" : "rc=0 leader=1 cwd=/ umask=0 fds=1",
              ReadFile(report));
  }
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
