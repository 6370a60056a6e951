// Helpers shared by the unit tests: a temporary directory removed with its contents, whole-file
// reading and writing, file modes and directory listings, a umask for one scope, a forked
// child, a millisecond stopwatch, starting and joining threads, a time zone set for the test,
// and (opt-in) a per-thread count of pthread_mutex_trylock calls.
#ifndef ZUSTD_TESTS_TEST_UTIL_H
#define ZUSTD_TESTS_TEST_UTIL_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace zutest {

// The whole file as bytes; "" when it cannot be read.
inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

// Replaces the file's contents with exactly these bytes; false when it cannot be written.
inline bool WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  return static_cast<bool>(out << bytes);
}

// A fresh directory under $TMPDIR (or /tmp), removed with everything in it on destruction.
// Symbolic links inside are removed, never followed. Not copyable.
class TempDir {
 public:
  TempDir() {
    const char* base = getenv("TMPDIR");
    std::string templ = std::string(base && *base ? base : "/tmp") + "/zustd_test.XXXXXX";
    if (mkdtemp(&templ[0]) == nullptr) ADD_FAILURE() << "mkdtemp failed for " << templ;
    m_path = templ;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return m_path; }
  std::string Path(const std::string& relative) const { return m_path + "/" + relative; }

 private:
  std::string m_path;
};

// Fixture giving each test an empty temporary directory of its own.
class TempDirTest : public ::testing::Test {
 protected:
  std::string Path(const std::string& relative) const { return m_tmp.Path(relative); }
  TempDir m_tmp;
};

using Clock = std::chrono::steady_clock;

// Milliseconds elapsed on the steady clock since start.
inline long MillisSince(Clock::time_point start) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

// Runs body(i) for i = 0 .. count-1, each on a thread of its own, and joins them all.
template <typename Body>
void RunThreads(int count, Body body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(body, i);
  for (std::thread& t : threads) t.join();
}

// Permission bits of path itself (a link is not followed); 0 when it does not exist.
inline mode_t ModeOf(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

// The names in a directory, sorted: shows files left behind.
inline std::vector<std::string> Names(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Sets the umask for one scope and restores it afterwards.
class UmaskScope {
 public:
  explicit UmaskScope(mode_t mask) : m_old(umask(mask)) {}
  ~UmaskScope() { umask(m_old); }
  UmaskScope(const UmaskScope&) = delete;
  UmaskScope& operator=(const UmaskScope&) = delete;

 private:
  mode_t m_old;
};

// Starts body (returning the exit code) in a forked child; buffered output is flushed first
// so that the child does not write it again.
template <typename Body>
pid_t StartChild(Body body) {
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  return pid;
}

// The child's exit status, or 128 + the signal that ended it.
inline int WaitChild(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs body in a forked child and waits for it: WaitChild's result.
template <typename Body>
int InChild(Body body) {
  return WaitChild(StartChild(body));
}

// Sets the process time zone (a POSIX TZ text such as "EST5EDT,M3.2.0,M11.1.0").
inline void SetTimeZone(const char* tz) {
  setenv("TZ", tz, 1);
  tzset();
}

}  // namespace zutest

// Define ZUTEST_COUNT_TRYLOCK before including this header, in a test program that needs it:
// the program's own pthread_mutex_trylock then takes precedence over the C library's (also for
// calls made inside libzustd) and counts this thread's calls in zutest::t_trylockCalls.
#ifdef ZUTEST_COUNT_TRYLOCK
#include <dlfcn.h>
#include <pthread.h>

namespace zutest {
inline thread_local int t_trylockCalls = 0;
}  // namespace zutest

// Exported explicitly: the tests are built with hidden visibility.
extern "C" __attribute__((visibility("default"))) int pthread_mutex_trylock(
    pthread_mutex_t* mutex) {
  using TryLockFn = int (*)(pthread_mutex_t*);
  static const TryLockFn next =
      reinterpret_cast<TryLockFn>(dlsym(RTLD_NEXT, "pthread_mutex_trylock"));
  ++zutest::t_trylockCalls;
  return next(mutex);
}
#endif  // ZUTEST_COUNT_TRYLOCK

#endif  // ZUSTD_TESTS_TEST_UTIL_H
