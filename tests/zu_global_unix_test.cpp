#include "zu_global_unix.h"

#include <fcntl.h>
#include <signal.h>

#include "test_util.h"

TEST(KaSleep, NegativeReturnsAtOnceAndSignalsDoNotShortenASleep) {
  signal(SIGALRM, [](int) {});
  const zutest::Clock::time_point start = zutest::Clock::now();
  ualarm(20000, 20000);  // a signal every 20 ms
  ka_sleep(-2000);
  ka_sleep(200);
  ualarm(0, 0);
  const long waited = zutest::MillisSince(start);
  EXPECT_TRUE(waited >= 200 && waited < 2000) << waited;
}

using KaGlobal = zutest::TempDirTest;

TEST_F(KaGlobal, DirectoriesAreMadeNeverWritableByOthersAndRemovedWithoutFollowingLinks) {
  for (const mode_t mask : {0000, 0022}) {
    zutest::UmaskScope scope(mask);
    const std::string top = Path("m" + std::to_string(mask));
    EXPECT_FALSE(ka_mkdir((top + "/a//b/").c_str()) || ka_mkdir((top + "/a").c_str()));
    for (const char* sub : {"", "/a", "/a/b"}) EXPECT_EQ(0775u & ~mask, zutest::ModeOf(top + sub));
  }
  const std::string odd = "x y;touch injected$(touch injected2)'\"";  // a name, not a command
  EXPECT_FALSE(ka_mkdir(Path(odd).c_str()) || ka_mkdir(nullptr) || access("injected", F_OK) == 0);
  EXPECT_TRUE(zutest::WriteFile(Path("file"), "x") && ka_mkdir(Path("file/sub").c_str()) &&
              ka_mkdir(Path("file").c_str()) && ka_mkdir(""));  // failures answer true
  ASSERT_EQ(0, symlink(Path("m18").c_str(), Path("m0/a/b/link").c_str()));
  EXPECT_TRUE(ka_rmdir(Path("m0/.").c_str()) && ka_rmdir(Path("m0/a/..").c_str()));
  const int status = zutest::InChild([&] {  // root only, chrooted: a broken guard empties it
    return chroot(Path("").c_str()) != 0 || (ka_rmdir("/") && ka_rmdir("//")) ? 0 : 1;
  });
  EXPECT_FALSE(status || ka_rmdir(Path("m0").c_str()) || ka_rmdir(Path(odd).c_str()) ||
               ka_rmdir(Path("file").c_str()) || ka_rmdir(Path("no/such").c_str()));
  EXPECT_EQ(std::vector<std::string>{"m18"}, zutest::Names(Path("")));
  EXPECT_EQ(std::vector<std::string>{"b"}, zutest::Names(Path("m18/a")));
}

TEST_F(KaGlobal, DaemonInitDetachesOntoDevNullInRootWithUmaskZeroAndSurvivesSignals) {
  for (bool twice : {false, true}) {  // forking twice leaves no session leader
    const std::string report = Path(twice ? "twice" : "once");
    const int status = zutest::InChild([&] {  // the daemon writes its state to report
      const int rc = ka_daemon_init(twice) + ka_ignore_signal();
      for (int sig : {SIGINT, SIGTERM, SIGALRM, SIGPIPE, SIGXFSZ, SIGABRT}) raise(sig);
      struct stat null, fd;
      int onNull = stat("/dev/null", &null) == 0 && fcntl(3, F_GETFD) == -1;
      for (int i = 0; i < 3; ++i) onNull &= fstat(i, &fd) == 0 && fd.st_rdev == null.st_rdev;
      return !zutest::WriteFile(report, std::to_string(rc) + std::to_string(getsid(0) == getpid()) +
                                            std::filesystem::current_path().string() +
                                            std::to_string(umask(0)) + std::to_string(onNull));
    });
    for (int i = 0; i < 1000 && zutest::ReadFile(report).size() < 5; ++i) ka_sleep(10);
    // exit status, result, session leader, directory, umask, standard ones on /dev/null
    EXPECT_EQ(twice ? "000/01" : "001/01", std::to_string(status) + zutest::ReadFile(report));
  }
}
