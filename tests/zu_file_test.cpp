#include "zu_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "test_util.h"

namespace {

using FileTest = zutest::TempDirTest;
using Ints = std::vector<int>;

int OpenDescriptors() {
  std::filesystem::directory_iterator fds("/proc/self/fd");
  return static_cast<int>(std::distance(fds, std::filesystem::directory_iterator()));
}

// Flags by value (1 binary, 2 create, 4 truncate, 8 read, 16 write) and how the chosen mode
// behaves: whether it opens a missing file, what reading "abc" yields, and the file after
// rewinding and writing "Z". Rows: three r, three w, four r+, two a+, two w+.
const std::tuple<int, bool, int, const char*> kModes[] = {
    {8, false, 3, "abc"},      {8 | 2 | 4, false, 3, "abc"},
    {8 | 1, false, 3, "abc"},  {16, true, 0, "Z"},
    {16 | 2, true, 0, "Z"},    {16 | 1, true, 0, "Z"},
    {0, false, 3, "Zbc"},      {4, false, 3, "Zbc"},
    {8 | 16, false, 3, "Zbc"}, {1, false, 3, "Zbc"},
    {2, true, 3, "abcZ"},      {8 | 16 | 2, true, 3, "abcZ"},
    {2 | 4, true, 0, "Z"},     {31, true, 0, "Z"}};

TEST_F(FileTest, OpenFlagsChooseTheMode) {
  for (const auto& [flags, bOpensMissing, nRead, szAfter] : kModes) {
    SCOPED_TRACE(flags);
    CKAFile file(Path("f").c_str());
    EXPECT_EQ(file.Open(flags), bOpensMissing);
    ASSERT_TRUE(zutest::WriteFile(Path("f"), "abc") && file.Open(flags));
    char buf[8];
    EXPECT_EQ(file.Read(buf, 3), nRead);
    file.SeekToBegin();
    file.Write("Z", 1);
    file.Close();
    EXPECT_EQ(zutest::ReadFile(Path("f")), szAfter);
    file.Remove();
  }
}

TEST_F(FileTest, ClosedStreamAndBadArgumentsAreRefused) {
  CKAFile file(Path("f").c_str());
  char buf[8] = {};
  file.WriteLine("x");
  file.SeekToBegin();
  file.Close();
  EXPECT_EQ((Ints{file.Read(buf, 4), file.Write("ab", 2), file.ReadLine(buf, 8), file.Seek(0, 1),
                  file.SeekToEnd(), file.IsExist(), file.Open(static_cast<const char*>(nullptr))}),
            (Ints{-1, -1, false, false, false, false, false}));
  ASSERT_TRUE(zutest::WriteFile(Path("f"), "abc\n") && file.Open(KA_FILE_READ));
  file.WriteLine(nullptr);
  EXPECT_EQ((Ints{file.Read(nullptr, 3), file.Read(buf, -1), file.Write(nullptr, 3),
                  file.ReadLine(nullptr, 8), file.ReadLine(buf, 0), file.ReadLine(buf, -5),
                  file.ReadLine(buf, 8)}),
            (Ints{-1, -1, -1, false, false, false, true}));
  EXPECT_STREQ(buf, "abc\n");
}

TEST_F(FileTest, LinesKeepTheirNewlineAndLongOnesComeInPieces) {
  CKAFile file(Path("lines").c_str());
  ASSERT_TRUE(file.Open(KA_FILE_WRITE));
  file.WriteLine("abcdefgh");
  file.WriteLine("");
  EXPECT_EQ(file.Write("xy", 2), 2);
  file.Close();
  EXPECT_EQ(zutest::ReadFile(Path("lines")), "abcdefgh\n\nxy");
  ASSERT_TRUE(file.Open(KA_FILE_READ));
  char buf[5];
  for (const char* piece : {"abcd", "efgh", "\n", "\n", "xy"}) {
    ASSERT_TRUE(file.ReadLine(buf, 5));
    EXPECT_STREQ(buf, piece);
  }
  EXPECT_FALSE(file.ReadLine(buf, 5));
}

TEST_F(FileTest, GetLengthLeavesTheStreamAsItFoundIt) {
  const int nBefore = OpenDescriptors();
  ASSERT_TRUE(zutest::WriteFile(Path("empty"), ""));
  ASSERT_TRUE(zutest::WriteFile(Path("digits"), "0123456789abcdefghij"));
  CKAFile missing(Path("none").c_str()), empty(Path("empty").c_str()), file(Path("digits").c_str());
  char buf[4] = {};
  EXPECT_EQ((Ints{missing.GetLength(), empty.GetLength(), file.GetLength()}), (Ints{-1, 0, 20}));
  EXPECT_EQ((Ints{missing.Read(buf, 1), file.Read(buf, 1)}), (Ints{-1, -1}));  // no stream left
  EXPECT_EQ(OpenDescriptors(), nBefore);
  ASSERT_TRUE(file.Open(KA_FILE_READ) && file.Seek(10, KA_SEEK_BEGIN));
  EXPECT_EQ(file.GetLength(), 20);
  ASSERT_EQ(file.Read(buf, 3), 3);
  EXPECT_STREQ(buf, "abc");
}

TEST_F(FileTest, SeekMapsTheThreeOriginsAndRefusesOthers) {
  ASSERT_TRUE(zutest::WriteFile(Path("digits"), "0123456789"));
  CKAFile file(Path("digits").c_str());
  ASSERT_TRUE(file.Open(KA_FILE_READ));
  // {offset, origin (1 begin, 2 end, 3 current), result, the byte read next}
  const std::tuple<int, int, bool, char> steps[] = {{5, 0, false, '0'},  {5, 4, false, '1'},
                                                    {-1, 1, false, '2'}, {2, 3, true, '5'},
                                                    {-2, 2, true, '8'},  {6, 1, true, '6'}};
  char c = 0;
  for (const auto& [nOffset, nOrigin, bResult, next] : steps) {
    EXPECT_EQ(file.Seek(nOffset, nOrigin), bResult);
    ASSERT_EQ(file.Read(&c, 1), 1);
    EXPECT_EQ(c, next);
  }
  ASSERT_TRUE(file.SeekToEnd());
  EXPECT_EQ(file.Read(&c, 1), 0);
  file.SeekToBegin();
  ASSERT_EQ(file.Read(&c, 1), 1);
  EXPECT_EQ(c, '0');
}

TEST_F(FileTest, RenameAndRemoveKeepTheNameInStep) {
  ASSERT_TRUE(zutest::WriteFile(Path("old"), "data"));
  CKAFile file(Path("old").c_str()), gone(Path("gone").c_str());
  ASSERT_TRUE(file.Open(KA_FILE_READ));
  EXPECT_FALSE(file.Rename(Path("no/such/dir").c_str()));
  EXPECT_FALSE(file.Rename(nullptr));
  EXPECT_STREQ(file.GetFileName().GetBuf(), Path("old").c_str());
  ASSERT_TRUE(file.Open(KA_FILE_READ));
  EXPECT_TRUE(file.Rename(Path("new").c_str()));
  char c;
  EXPECT_EQ(file.Read(&c, 1), -1);  // closed
  EXPECT_STREQ(file.GetFileName().GetBuf(), Path("new").c_str());
  EXPECT_FALSE(std::filesystem::exists(Path("old")));
  EXPECT_EQ(zutest::ReadFile(Path("new")), "data");
  EXPECT_FALSE(gone.Remove());
  EXPECT_STREQ(gone.GetFileName().GetBuf(), Path("gone").c_str());
  ASSERT_TRUE(file.Open(KA_FILE_READ));
  EXPECT_TRUE(file.Remove());
  EXPECT_STREQ(file.GetFileName().GetBuf(), "");
  EXPECT_FALSE(file.IsExist());
  EXPECT_FALSE(std::filesystem::exists(Path("new")));
}

TEST_F(FileTest, OneStreamOwnedAndClosedByTheDestructor) {
  ASSERT_TRUE(zutest::WriteFile(Path("first"), "first"));
  const int nBefore = OpenDescriptors();
  {
    CKAFile file;
    EXPECT_STREQ(file.GetFileName().GetBuf(), "");
    ASSERT_TRUE(file.SetFileName(Path("first").c_str()) && file.Open(KA_FILE_READ));
    EXPECT_TRUE(file.SetFileName(Path("second").c_str()));  // the open stream stays
    EXPECT_FALSE(file.IsExist());
    char buf[8] = {};
    EXPECT_EQ(file.Read(buf, 5), 5);
    EXPECT_STREQ(buf, "first");
    ASSERT_TRUE(file.Open(KA_FILE_WRITE));  // a second Open closes the first stream
    file.WriteLine("one");
    ASSERT_TRUE(file.Open(KA_FILE_CREATE));
    EXPECT_EQ(OpenDescriptors(), nBefore + 1);
    EXPECT_EQ(zutest::ReadFile(Path("second")), "one\n");  // flushed by the close
    file.WriteLine("two");
  }
  EXPECT_EQ(OpenDescriptors(), nBefore);
  EXPECT_EQ(zutest::ReadFile(Path("second")), "one\ntwo\n");
}

// Write hands its block to the kernel before it returns, so its count is what the file holds
// even when the disk fills; buffered lines go first.
TEST_F(FileTest, WriteCountsOnlyBytesThatReachedTheFile) {
  const std::string name = Path("f");
  const pid_t pid = fork();
  if (pid == 0) {
    signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {1024, 1024};
    setrlimit(RLIMIT_FSIZE, &limit);
    CKAFile file(name.c_str());
    if (!file.Open("w")) _exit(1);
    file.WriteLine("0123456789");
    const std::string block(3000, 'x');
    const int first = file.Write(block.data(), 3000);
    const int second = file.Write(block.data(), 10);
    file.Close();
    _exit(first == 1024 - 11 && second == 0 ? 0 : 2);
  }
  int status = -1;
  waitpid(pid, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(zutest::ReadFile(name), "0123456789\n" + std::string(1024 - 11, 'x'));
}

TEST_F(FileTest, StreamsAreCloseOnExecAndCreatedFilesNotWorldWritable) {
  const mode_t old = umask(0);
  CKAFile file(Path("f").c_str());
  ASSERT_TRUE(file.Open(KA_FILE_CREATE));
  EXPECT_EQ(file.Write("ab", 2), 2);
  file.Close();
  struct stat st;
  ASSERT_EQ(stat(Path("f").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0664u);
  ASSERT_EQ(chmod(Path("f").c_str(), 0606), 0);
  ASSERT_TRUE(file.Open("a"));  // an existing file keeps its mode
  ASSERT_EQ(stat(Path("f").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0606u);
  umask(old);
  int stream = -1;  // the descriptor open on the file
  for (const auto& fd : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    if (std::filesystem::read_symlink(fd.path(), ignored) == Path("f")) {
      stream = std::stoi(fd.path().filename().string());
    }
  }
  ASSERT_GE(stream, 0);
  EXPECT_EQ(fcntl(stream, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_FALSE(file.Open("q"));
  EXPECT_FALSE(file.Open(""));
}

// Past 2 GiB the length no longer fits the int result, but the stream must still be put back
// where it was (on 32-bit targets too).
TEST_F(FileTest, GetLengthPastTwoGibibytesKeepsThePosition) {
  const std::string name = Path("big");
  {
    std::ofstream out(name, std::ios::binary);
    out.seekp(3LL << 30);
    out << "Z";
  }
  CKAFile file(name.c_str());
  ASSERT_TRUE(file.Open("r"));
  ASSERT_TRUE(file.SeekToEnd());
  ASSERT_TRUE(file.Seek(-1, KA_SEEK_CURRENT));
  EXPECT_EQ(file.GetLength(), -1);
  char c = 0;
  EXPECT_EQ(file.Read(&c, 1), 1);
  EXPECT_EQ(c, 'Z');
}

TEST(CKAFileDeathTest, NullFileNameFailsTheAssertion) {
  CKAFile file;
  EXPECT_DEATH(
      file.SetFileName(nullptr),
      "zu_file:50: bool CKAFile::SetFileName\\(const char\\*\\): Assertion `false' failed");
}

}  // namespace
