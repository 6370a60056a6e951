#include "zu_file_internal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "test_util.h"

namespace {

namespace zi = zu_internal;
using zutest::ModeOf;
using zutest::ReadFile;
using zutest::WriteFile;
using FileInternalTest = zutest::TempDirTest;

TEST_F(FileInternalTest, OpensWithoutWorldWriteAndRefusesWhatIsNoRegularFile) {
  zutest::UmaskScope mask(0);
  ASSERT_TRUE(WriteFile(Path("old"), "x") && chmod(Path("old").c_str(), 0666) == 0);
  for (const char* name : {"new", "old"}) {
    const int fd = zi::OpenNoWorldWrite(Path(name).c_str(), O_WRONLY | O_CREAT | O_APPEND);
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    close(fd);
  }
  EXPECT_EQ((std::vector<unsigned>{ModeOf(Path("new")), ModeOf(Path("old"))}),
            (std::vector<unsigned>{0664, 0666}));  // an existing file keeps its mode
  ASSERT_TRUE(mkdir(Path("dir").c_str(), 0755) == 0 && mkfifo(Path("fifo").c_str(), 0644) == 0);
  for (const char* name : {"dir", "fifo"}) {
    EXPECT_EQ(zi::OpenTrustedRegularFile(Path(name), O_RDONLY | O_NONBLOCK), -1);
    EXPECT_EQ(errno, EINVAL) << name;
  }
  EXPECT_FALSE(zi::ReplaceFileContents(Path("dir"), "x") || zi::ReplaceFileContents("", "x"));
}

// Root can give a link to another user; others cannot fake the owner.
TEST_F(FileInternalTest, RefusesLinksOfOtherUsers) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give a link to another user";
  ASSERT_TRUE(WriteFile(Path("victim"), "secret\n"));
  ASSERT_EQ(symlink(Path("victim").c_str(), Path("planted").c_str()), 0);
  ASSERT_EQ(symlink(Path("made").c_str(), Path("dangling").c_str()), 0);
  ASSERT_EQ(lchown(Path("planted").c_str(), 65534, 65534) |
                lchown(Path("dangling").c_str(), 65534, 65534),
            0);
  EXPECT_EQ(zi::OpenTrustedRegularFile(Path("planted"), O_RDWR), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(zi::OpenNoWorldWrite(Path("dangling").c_str(), O_WRONLY | O_CREAT), -1);
  EXPECT_FALSE(zi::ReplaceFileContents(Path("planted"), "x"));
  EXPECT_EQ(zutest::Names(m_tmp.path()),
            (std::vector<std::string>{"dangling", "planted", "victim"}));
  EXPECT_EQ(ReadFile(Path("victim")), "secret\n");
}

// A replacement killed at any instant, or failing, leaves the old bytes or the new ones.
TEST_F(FileInternalTest, ReplacementLeavesOldOrNewBytesAfterAKillOrAFailure) {
  const std::string name = Path("f"), old(5000, 'o'), fresh(9000, 'n');
  for (int delay = 0; delay < 2000; delay += 100) {
    ASSERT_TRUE(WriteFile(name, old));
    const pid_t pid = zutest::StartChild([&] {
      for (;;) zi::ReplaceFileContents(name, fresh), zi::ReplaceFileContents(name, old);
      return 0;
    });
    usleep(delay);
    kill(pid, SIGKILL);
    zutest::WaitChild(pid);
    const std::string bytes = ReadFile(name);
    EXPECT_TRUE(bytes == old || bytes == fresh) << delay << ": " << bytes.size() << " bytes";
  }
  const std::string dir = Path("ro");  // read-only for root too: a read-only bind mount
  ASSERT_TRUE(mkdir(dir.c_str(), 0755) == 0 && WriteFile(dir + "/f", "keep\n"));
  const int status = zutest::InChild([&] {
    const bool readOnly =
        geteuid() != 0 ? chmod(dir.c_str(), 0555) == 0
                       : unshare(CLONE_NEWNS) == 0 &&
                             mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0 &&
                             mount(dir.c_str(), dir.c_str(), "none", MS_BIND, nullptr) == 0 &&
                             mount("none", dir.c_str(), "none", MS_BIND | MS_REMOUNT | MS_RDONLY,
                                   nullptr) == 0;
    return !readOnly ? 2 : zi::ReplaceFileContents(dir + "/f", "lost\n") ? 1 : 0;
  });
  chmod(dir.c_str(), 0755);
  if (status == 2) GTEST_SKIP() << "no read-only directory to be had (mount namespaces refused)";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(zutest::Names(dir), std::vector<std::string>{"f"});
  EXPECT_EQ(ReadFile(dir + "/f"), "keep\n");
}

}  // namespace
