// Replay driver: feeds each file named on the command line, or each regular file in a named
// directory, to LLVMFuzzerTestOneInput once. Built with any compiler, it turns a fuzz target
// into a plain test program over a committed corpus. Exit 0 when every input ran.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) __attribute__((weak));

namespace {

bool IsDirectory(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::vector<std::string> FilesIn(const std::string& dir) {
  std::vector<std::string> files;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) {
      std::string path = dir + "/" + e->d_name;
      struct stat st;
      if (stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) files.push_back(path);
    }
    closedir(d);
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool RunFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    return false;
  }
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
  int ran = 0;
  bool ok = true;
  for (int i = 1; i < argc; ++i) {
    std::vector<std::string> files =
        IsDirectory(argv[i]) ? FilesIn(argv[i]) : std::vector<std::string>{argv[i]};
    for (const std::string& f : files) {
      ok = RunFile(f) && ok;
      ++ran;
    }
  }
  std::printf("%d inputs replayed\n", ran);
  return ok && ran > 0 ? 0 : 1;
}
