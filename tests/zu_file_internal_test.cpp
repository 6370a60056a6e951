#include "zu_file_internal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "test_util.h"

namespace {

using zutest::ReadFile;
using zutest::WriteFile;
namespace zi = zu_internal;

using zutest::InChild;
using zutest::ModeOf;
using zutest::Names;
using zutest::UmaskScope;

TEST(FlagsForFopenMode, MapsModesAsFopenDoes) {
  const struct {
    const char* mode;
    int flags;
  } kRows[] = {
      {"r", O_RDONLY},
      {"rb", O_RDONLY},
      {"r+", O_RDWR},
      {"rb+", O_RDWR},
      {"w", O_WRONLY | O_CREAT | O_TRUNC},
      {"w+b", O_RDWR | O_CREAT | O_TRUNC},
      {"wx", O_WRONLY | O_CREAT | O_TRUNC | O_EXCL},
      {"a", O_WRONLY | O_CREAT | O_APPEND},
      {"a+", O_RDWR | O_CREAT | O_APPEND},
      {"re", O_RDONLY},
      {"r,ccs=+", O_RDONLY},
  };
  for (const auto& row : kRows) {
    int flags = -1;
    EXPECT_TRUE(zi::FlagsForFopenMode(row.mode, &flags)) << row.mode;
    EXPECT_EQ(flags, row.flags) << row.mode;
  }
  int flags = 0;
  for (const char* bad : {"", "x", "+r", "b"}) EXPECT_FALSE(zi::FlagsForFopenMode(bad, &flags));
  EXPECT_FALSE(zi::FlagsForFopenMode(nullptr, &flags));
}

class FileInternalTest : public zutest::TempDirTest {};

TEST_F(FileInternalTest, CreatedFilesLoseWriteForOthersExistingKeepTheirMode) {
  UmaskScope mask(0);
  const std::string created = Path("new");
  int fd = zi::OpenNoWorldWrite(created.c_str(), O_WRONLY | O_CREAT);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  close(fd);
  EXPECT_EQ(ModeOf(created), 0664u);

  const std::string existing = Path("old");
  ASSERT_TRUE(WriteFile(existing, "x"));
  chmod(existing.c_str(), 0666);
  fd = zi::OpenNoWorldWrite(existing.c_str(), O_WRONLY | O_CREAT | O_APPEND);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(ModeOf(existing), 0666u);
  EXPECT_EQ(ReadFile(existing), "x");

  fd = zi::OpenNoWorldWrite(Path("excl").c_str(), O_WRONLY | O_CREAT | O_EXCL);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(ModeOf(Path("excl")), 0664u);
  EXPECT_EQ(zi::OpenNoWorldWrite(Path("missing").c_str(), O_RDONLY), -1);
}

TEST_F(FileInternalTest, DanglingOwnLinkCreatesItsTarget) {
  UmaskScope mask(0);
  ASSERT_EQ(symlink("target", Path("link").c_str()), 0);
  const int fd = zi::OpenNoWorldWrite(Path("link").c_str(), O_WRONLY | O_CREAT | O_TRUNC);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(ModeOf(Path("target")), 0664u);
}

TEST_F(FileInternalTest, ResolvesChainsOfOwnLinksAndStopsAtLoops) {
  ASSERT_TRUE(WriteFile(Path("file"), "x"));
  ASSERT_EQ(mkdir(Path("sub").c_str(), 0755), 0);
  ASSERT_EQ(symlink("../file", Path("sub/rel").c_str()), 0);
  ASSERT_EQ(symlink(Path("sub/rel").c_str(), Path("abs").c_str()), 0);
  std::string resolved;
  ASSERT_TRUE(zi::ResolveTrustedLinks(Path("abs"), &resolved));
  EXPECT_EQ(resolved, Path("sub/../file"));
  ASSERT_TRUE(zi::ResolveTrustedLinks(Path("none"), &resolved));
  EXPECT_EQ(resolved, Path("none"));

  ASSERT_EQ(symlink("loop2", Path("loop1").c_str()), 0);
  ASSERT_EQ(symlink("loop1", Path("loop2").c_str()), 0);
  EXPECT_FALSE(zi::ResolveTrustedLinks(Path("loop1"), &resolved));
  EXPECT_EQ(errno, ELOOP);
}

// Root can give a link to another user; others cannot fake the owner.
TEST_F(FileInternalTest, RefusesLinksOfOtherUsers) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give a link to another user";
  ASSERT_TRUE(WriteFile(Path("victim"), "secret\n"));
  ASSERT_EQ(symlink(Path("victim").c_str(), Path("planted").c_str()), 0);
  ASSERT_EQ(lchown(Path("planted").c_str(), 65534, 65534), 0);
  std::string resolved;
  EXPECT_FALSE(zi::ResolveTrustedLinks(Path("planted"), &resolved));
  EXPECT_EQ(errno, EACCES);
  ASSERT_EQ(symlink(Path("made").c_str(), Path("dangling").c_str()), 0);
  ASSERT_EQ(lchown(Path("dangling").c_str(), 65534, 65534), 0);
  EXPECT_EQ(zi::OpenNoWorldWrite(Path("dangling").c_str(), O_WRONLY | O_CREAT), -1);
  EXPECT_FALSE(std::filesystem::exists(Path("made"))) << "no file created through it";
  EXPECT_EQ(zi::OpenTrustedRegularFile(Path("planted"), O_RDWR), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(zi::OpenTrustedRegularFile(Path("dangling"), O_RDWR | O_CREAT), -1);
  EXPECT_FALSE(std::filesystem::exists(Path("made")));
  EXPECT_EQ(ReadFile(Path("victim")), "secret\n");
}

TEST_F(FileInternalTest, RefusesWhatIsNoRegularFile) {
  ASSERT_EQ(mkdir(Path("dir").c_str(), 0755), 0);
  EXPECT_FALSE(zi::ReplaceFileContents(Path("dir"), "x"));
  EXPECT_TRUE(std::filesystem::is_directory(Path("dir")));
  EXPECT_FALSE(zi::ReplaceFileContents(Path("no/such/dir/file"), "x"));
  EXPECT_FALSE(zi::ReplaceFileContents("", "x"));
  EXPECT_EQ(Names(m_tmp.path()), std::vector<std::string>{"dir"});
}

// Makes dir read-only for this process, root included: a read-only bind mount in a mount
// namespace of its own (root), or mode 0555 (everyone else). Call in a forked child only.
bool MakeReadOnly(const std::string& dir) {
  if (geteuid() != 0) return chmod(dir.c_str(), 0555) == 0;
  return unshare(CLONE_NEWNS) == 0 &&
         mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount(dir.c_str(), dir.c_str(), "none", MS_BIND, nullptr) == 0 &&
         mount("none", dir.c_str(), "none", MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

TEST_F(FileInternalTest, ReadOnlyDirectoryFailsAndKeepsTheFile) {
  const std::string dir = Path("ro");
  ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
  ASSERT_TRUE(WriteFile(dir + "/f", "keep\n"));
  const int status = InChild([&] {
    if (!MakeReadOnly(dir)) return 2;
    return zi::ReplaceFileContents(dir + "/f", "lost\n") ? 1 : 0;
  });
  chmod(dir.c_str(), 0755);
  if (status == 2) GTEST_SKIP() << "no read-only directory to be had (mount namespaces refused)";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ReadFile(dir + "/f"), "keep\n");
  EXPECT_EQ(Names(dir), std::vector<std::string>{"f"});
}

TEST_F(FileInternalTest, OpensRegularFilesDirectlyOrThroughOwnLinks) {
  UmaskScope mask(0);
  int fd = zi::OpenTrustedRegularFile(Path("log"), O_RDWR | O_CREAT);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  close(fd);
  EXPECT_EQ(ModeOf(Path("log")), 0664u);

  ASSERT_EQ(symlink("log", Path("own").c_str()), 0);
  fd = zi::OpenTrustedRegularFile(Path("own"), O_WRONLY);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(write(fd, "x", 1), 1);
  close(fd);
  EXPECT_EQ(ReadFile(Path("log")), "x");
  ASSERT_EQ(symlink("made", Path("dangling").c_str()), 0);
  fd = zi::OpenTrustedRegularFile(Path("dangling"), O_RDWR | O_CREAT);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(ModeOf(Path("made")), 0664u);

  ASSERT_EQ(mkdir(Path("dir").c_str(), 0755), 0);
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0644), 0);
  const std::pair<std::string, int> refused[] = {
      {"dir", EINVAL}, {"fifo", EINVAL}, {"missing", ENOENT}};
  for (const auto& r : refused) {
    EXPECT_EQ(zi::OpenTrustedRegularFile(Path(r.first), O_RDONLY | O_NONBLOCK), -1) << r.first;
    EXPECT_EQ(errno, r.second) << r.first;
  }
}

}  // namespace
