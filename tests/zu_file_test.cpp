#include "zu_file.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// A fresh directory under /tmp for each test, removed with its files afterwards.
class FileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/zu_file_test.XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    m_dir = tmpl;
  }
  void TearDown() override {
    const std::string cmd = "rm -rf '" + m_dir + "'";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
  }
  std::string Path(const char* name) const { return m_dir + "/" + name; }
  static void Put(const std::string& path, const std::string& bytes) {
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
  }
  static std::string Get(const std::string& path) {
    std::string bytes;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return "<missing>";
    for (int c; (c = std::fgetc(f)) != EOF;) bytes += static_cast<char>(c);
    std::fclose(f);
    return bytes;
  }
  std::string m_dir;
};

int OpenDescriptors() {
  int n = 0;
  DIR* d = opendir("/proc/self/fd");
  while (d != nullptr && readdir(d) != nullptr) ++n;
  if (d != nullptr) closedir(d);
  return n;
}

// How a mode behaves: does it open a missing file, what does reading "abc" give, and what
// is the file after rewinding and writing "Z"?
struct ModeCase {
  int nFlags;
  const char* szMode;
  bool bOpensMissing;
  int nRead;
  const char* szAfterWrite;
};

const ModeCase kModeCases[] = {
    {KA_FILE_READ, "r", false, 3, "abc"},
    {KA_FILE_READ | KA_FILE_CREATE | KA_FILE_TRUNCATE, "r", false, 3, "abc"},
    {KA_FILE_READ | KA_FILE_BINARY, "rb", false, 3, "abc"},
    {KA_FILE_WRITE, "w", true, 0, "Z"},
    {KA_FILE_WRITE | KA_FILE_BINARY, "wb", true, 0, "Z"},
    {KA_FILE_WRITE | KA_FILE_CREATE, "w", true, 0, "Z"},
    {0, "r+", false, 3, "Zbc"},
    {KA_FILE_BINARY, "r+b", false, 3, "Zbc"},
    {KA_FILE_TRUNCATE, "r+", false, 3, "Zbc"},
    {KA_FILE_READ | KA_FILE_WRITE, "r+", false, 3, "Zbc"},
    {KA_FILE_CREATE, "a+", true, 3, "abcZ"},
    {KA_FILE_READ | KA_FILE_WRITE | KA_FILE_CREATE, "a+", true, 3, "abcZ"},
    {KA_FILE_CREATE | KA_FILE_TRUNCATE, "w+", true, 0, "Z"},
    {KA_FILE_READ | KA_FILE_WRITE | KA_FILE_CREATE | KA_FILE_TRUNCATE | KA_FILE_BINARY, "w+b", true,
     0, "Z"},
};

TEST_F(FileTest, OpenFlagsChooseTheModeOfTheTable) {
  for (const ModeCase& c : kModeCases) {
    SCOPED_TRACE(std::string("flags ") + std::to_string(c.nFlags) + " mode " + c.szMode);
    const std::string missing = Path("missing");
    CKAFile absent(missing.c_str());
    EXPECT_EQ(absent.Open(c.nFlags), c.bOpensMissing);
    absent.Close();
    std::remove(missing.c_str());

    const std::string path = Path("abc");
    Put(path, "abc");
    CKAFile file(path.c_str());
    ASSERT_TRUE(file.Open(c.nFlags));
    char buf[8] = {};
    EXPECT_EQ(file.Read(buf, 3), c.nRead);
    file.SeekToBegin();
    file.Write("Z", 1);
    file.Close();
    EXPECT_EQ(Get(path), c.szAfterWrite);
  }
}

TEST_F(FileTest, ClosedObjectRefusesStreamOperations) {
  CKAFile file(Path("f").c_str());
  char buf[8] = {};
  EXPECT_EQ(file.Read(buf, 4), -1);
  EXPECT_EQ(file.Write("ab", 2), -1);
  EXPECT_FALSE(file.ReadLine(buf, 8));
  file.WriteLine("x");
  EXPECT_FALSE(file.Seek(0, KA_SEEK_BEGIN));
  EXPECT_FALSE(file.SeekToEnd());
  file.SeekToBegin();
  file.Close();
  EXPECT_FALSE(file.IsExist());
  EXPECT_FALSE(file.Open(static_cast<const char*>(nullptr)));
}

TEST_F(FileTest, BadBufferArgumentsAreRefused) {
  const std::string path = Path("f");
  Put(path, "abc\n");
  CKAFile file(path.c_str());
  ASSERT_TRUE(file.Open(KA_FILE_READ));
  char buf[8] = {};
  EXPECT_EQ(file.Read(nullptr, 3), -1);
  EXPECT_EQ(file.Read(buf, -1), -1);
  EXPECT_EQ(file.Write(nullptr, 3), -1);
  EXPECT_FALSE(file.ReadLine(nullptr, 8));
  EXPECT_FALSE(file.ReadLine(buf, 0));
  EXPECT_FALSE(file.ReadLine(buf, -5));
  file.WriteLine(nullptr);
  EXPECT_TRUE(file.ReadLine(buf, 8));
  EXPECT_STREQ(buf, "abc\n");
}

TEST_F(FileTest, ReadLineSplitsLongLinesAndKeepsTheNewline) {
  const std::string path = Path("lines");
  Put(path, "abcdefgh\nxy");
  CKAFile file(path.c_str());
  ASSERT_TRUE(file.Open(KA_FILE_READ));
  const char* const pieces[] = {"abcd", "efgh", "\n", "xy"};
  char buf[5];
  for (const char* piece : pieces) {
    ASSERT_TRUE(file.ReadLine(buf, 5));
    EXPECT_STREQ(buf, piece);
  }
  EXPECT_FALSE(file.ReadLine(buf, 5));
}

TEST_F(FileTest, WriteLineAppendsOneLineFeed) {
  const std::string path = Path("out");
  CKAFile file(path.c_str());
  ASSERT_TRUE(file.Open(KA_FILE_WRITE));
  file.WriteLine("key=1");
  file.WriteLine("");
  EXPECT_EQ(file.Write("tail", 4), 4);
  file.Close();
  EXPECT_EQ(Get(path), "key=1\n\ntail");
}

TEST_F(FileTest, GetLengthWithoutStreamOpensAndClosesAgain) {
  const int nBefore = OpenDescriptors();
  CKAFile missing(Path("none").c_str());
  EXPECT_EQ(missing.GetLength(), -1);
  char buf[4];
  EXPECT_EQ(missing.Read(buf, 1), -1);

  const std::string empty = Path("empty");
  Put(empty, "");
  CKAFile zero(empty.c_str());
  EXPECT_EQ(zero.GetLength(), 0);

  const std::string path = Path("seven");
  Put(path, "1234567");
  CKAFile seven(path.c_str());
  EXPECT_EQ(seven.GetLength(), 7);
  EXPECT_EQ(seven.Read(buf, 1), -1);  // no stream left behind
  EXPECT_EQ(OpenDescriptors(), nBefore);
}

TEST_F(FileTest, GetLengthOfOpenStreamRestoresThePosition) {
  const std::string path = Path("digits");
  Put(path, "0123456789abcdefghij");
  CKAFile file(path.c_str());
  ASSERT_TRUE(file.Open(KA_FILE_READ));
  ASSERT_TRUE(file.Seek(10, KA_SEEK_BEGIN));
  EXPECT_EQ(file.GetLength(), 20);
  char buf[4] = {};
  ASSERT_EQ(file.Read(buf, 3), 3);
  EXPECT_STREQ(buf, "abc");
}

TEST_F(FileTest, SeekMapsOriginsAndRefusesOthers) {
  const std::string path = Path("digits");
  Put(path, "0123456789");
  CKAFile file(path.c_str());
  ASSERT_TRUE(file.Open(KA_FILE_READ));
  char c = 0;
  EXPECT_FALSE(file.Seek(5, 0));
  EXPECT_FALSE(file.Seek(5, 4));
  ASSERT_EQ(file.Read(&c, 1), 1);
  EXPECT_EQ(c, '0');  // the refused seeks did not move
  ASSERT_TRUE(file.Seek(2, KA_SEEK_CURRENT));
  ASSERT_EQ(file.Read(&c, 1), 1);
  EXPECT_EQ(c, '3');
  ASSERT_TRUE(file.Seek(-2, KA_SEEK_END));
  ASSERT_EQ(file.Read(&c, 1), 1);
  EXPECT_EQ(c, '8');
  ASSERT_TRUE(file.Seek(6, KA_SEEK_BEGIN));
  ASSERT_EQ(file.Read(&c, 1), 1);
  EXPECT_EQ(c, '6');
  EXPECT_FALSE(file.Seek(-1, KA_SEEK_BEGIN));
  ASSERT_TRUE(file.SeekToEnd());
  EXPECT_EQ(file.Read(&c, 1), 0);
  file.SeekToBegin();
  ASSERT_EQ(file.Read(&c, 1), 1);
  EXPECT_EQ(c, '0');
}

TEST_F(FileTest, RenameKeepsTheNameInStep) {
  const std::string oldPath = Path("old");
  const std::string newPath = Path("new");
  Put(oldPath, "data");
  CKAFile file(oldPath.c_str());
  ASSERT_TRUE(file.Open(KA_FILE_READ));

  EXPECT_FALSE(file.Rename(Path("no/such/dir").c_str()));
  EXPECT_EQ(std::string(file.GetFileName().GetBuf()), oldPath);
  EXPECT_FALSE(file.Rename(nullptr));
  EXPECT_EQ(std::string(file.GetFileName().GetBuf()), oldPath);

  ASSERT_TRUE(file.Open(KA_FILE_READ));
  EXPECT_TRUE(file.Rename(newPath.c_str()));
  char buf[4];
  EXPECT_EQ(file.Read(buf, 1), -1);  // closed
  EXPECT_EQ(std::string(file.GetFileName().GetBuf()), newPath);
  EXPECT_EQ(Get(oldPath), "<missing>");
  EXPECT_EQ(Get(newPath), "data");
  EXPECT_TRUE(file.IsExist());
}

TEST_F(FileTest, RemoveEmptiesTheNameOnSuccessOnly) {
  const std::string path = Path("gone");
  CKAFile file(path.c_str());
  EXPECT_FALSE(file.Remove());
  EXPECT_EQ(std::string(file.GetFileName().GetBuf()), path);

  Put(path, "x");
  ASSERT_TRUE(file.Open(KA_FILE_READ));
  EXPECT_TRUE(file.Remove());
  EXPECT_EQ(std::string(file.GetFileName().GetBuf()), "");
  EXPECT_FALSE(file.IsExist());
  EXPECT_EQ(Get(path), "<missing>");
}

TEST_F(FileTest, SetFileNameLeavesTheOpenStreamAlone) {
  const std::string path = Path("first");
  Put(path, "first");
  CKAFile file;
  EXPECT_EQ(std::string(file.GetFileName().GetBuf()), "");
  EXPECT_TRUE(file.SetFileName(path.c_str()));
  ASSERT_TRUE(file.Open(KA_FILE_READ));
  EXPECT_TRUE(file.SetFileName(Path("second").c_str()));
  EXPECT_FALSE(file.IsExist());
  char buf[8] = {};
  EXPECT_EQ(file.Read(buf, 5), 5);
  EXPECT_STREQ(buf, "first");
}

TEST_F(FileTest, DestructorClosesTheStream) {
  const std::string path = Path("f");
  Put(path, "x");
  const int nBefore = OpenDescriptors();
  {
    CKAFile file(path.c_str());
    ASSERT_TRUE(file.Open(KA_FILE_READ));
    EXPECT_EQ(OpenDescriptors(), nBefore + 1);
  }
  EXPECT_EQ(OpenDescriptors(), nBefore);
}

TEST_F(FileTest, SecondOpenClosesTheFirstStream) {
  const std::string path = Path("twice");
  const int nBefore = OpenDescriptors();
  CKAFile file(path.c_str());
  ASSERT_TRUE(file.Open(KA_FILE_WRITE));
  file.WriteLine("first");
  ASSERT_TRUE(file.Open(KA_FILE_CREATE));
  EXPECT_EQ(OpenDescriptors(), nBefore + 1);
  EXPECT_EQ(Get(path), "first\n");  // flushed by the close
  file.WriteLine("second");
  file.Close();
  EXPECT_EQ(Get(path), "first\nsecond\n");
}

TEST(CKAFileDeathTest, NullFileNameFailsTheAssertion) {
  CKAFile file;
  EXPECT_DEATH(file.SetFileName(nullptr),
               "zu_file:50: bool CKAFile::SetFileName\\(const char\\*\\): "
               "Assertion `false' failed");
}

}  // namespace
