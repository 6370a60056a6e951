#include "zu_file.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
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

// Flags (1 binary, 2 create, 4 truncate, 8 read, 16 write), whether a missing file opens, what
// reading "abc" yields, and the file after rewinding and writing "Z": r, w, r+, a+, w+.
TEST_F(FileTest, OpenFlagsChooseTheModeAndCreatedFilesAreNotWorldWritable) {
  const std::tuple<int, bool, int, const char*> modes[] = {{8, false, 3, "abc"},
                                                           {16, true, 0, "Z"},
                                                           {0, false, 3, "Zbc"},
                                                           {2, true, 3, "abcZ"},
                                                           {31, true, 0, "Z"}};
  zutest::UmaskScope mask(0);
  for (const auto& [flags, opensMissing, read, after] : modes) {
    CKAFile file(Path("f").c_str());
    EXPECT_EQ(file.Open(flags), opensMissing) << flags;
    ASSERT_TRUE(zutest::WriteFile(Path("f"), "abc") && file.Open(flags));
    char buf[8];
    EXPECT_EQ(file.Read(buf, 3), read) << flags;
    file.SeekToBegin();
    file.Write("Z", 1);
    file.Close();
    EXPECT_EQ(zutest::ReadFile(Path("f")), after) << flags;
    EXPECT_TRUE(!opensMissing || zutest::ModeOf(Path("f")) == 0664u) << flags;
    file.Remove();
  }
}

TEST_F(FileTest, BadArgumentsFailAndTheDestructorClosesTheOneStream) {
  const int before = OpenDescriptors();
  {
    CKAFile file(Path("f").c_str());
    char buf[8] = {};
    EXPECT_EQ((Ints{file.Read(buf, 4), file.Write("ab", 2), file.GetLength(), file.Open("q")}),
              (Ints{-1, -1, -1, false}));
    ASSERT_TRUE(zutest::WriteFile(Path("f"), "abcdefgh\n") && file.Open(KA_FILE_READ));
    EXPECT_EQ((Ints{file.Read(nullptr, 3), file.Read(buf, -1), file.ReadLine(buf, 0),
                    file.ReadLine(buf, 5), file.Seek(0, 4), file.GetLength()}),
              (Ints{-1, -1, false, true, false, 9}));
    EXPECT_STREQ(buf, "abcd");             // a long line comes in pieces
    ASSERT_TRUE(file.Open(KA_FILE_READ));  // a second Open closes the first stream
    EXPECT_EQ(OpenDescriptors(), before + 1);
  }
  EXPECT_EQ(OpenDescriptors(), before);
}

// Write hands its block to the kernel before it returns, so its count is what the file holds
// even when the disk fills; buffered lines go first.
TEST_F(FileTest, WriteCountsOnlyBytesThatReachedTheFile) {
  const std::string name = Path("f");
  EXPECT_EQ(0, zutest::InChild([&] {
              signal(SIGXFSZ, SIG_IGN);
              const struct rlimit limit = {1024, 1024};
              setrlimit(RLIMIT_FSIZE, &limit);
              CKAFile file(name.c_str());
              if (!file.Open("w")) return 1;
              file.WriteLine("0123456789");
              const std::string block(3000, 'x');
              const int first = file.Write(block.data(), 3000),
                        second = file.Write(block.data(), 10);
              return first == 1024 - 11 && second == 0 ? 0 : 2;
            }));
  EXPECT_EQ(zutest::ReadFile(name), "0123456789\n" + std::string(1024 - 11, 'x'));
}

// Past 2 GiB the length no longer fits the int result, but the stream must still be put back
// where it was (on 32-bit targets too).
TEST_F(FileTest, GetLengthPastTwoGibibytesKeepsThePosition) {
  std::ofstream(Path("big"), std::ios::binary).seekp(3LL << 30) << "Z";
  CKAFile file(Path("big").c_str());
  ASSERT_TRUE(file.Open("r") && file.SeekToEnd() && file.Seek(-1, KA_SEEK_CURRENT));
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
