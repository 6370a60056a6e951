// zu_global_unix: sleep, clocks, daemon start, signals, directories and host name.
#include "zu_global_unix.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kDaemonMaxFd = 256;
constexpr size_t kHostNameBuffer = 128;

// ---- Directory creation ----

// Directories made here are never writable by others, whatever the umask (a daemon's is 0).
constexpr mode_t kDirMode = 0775;

// True when dir is a directory now, made by this call or before it.
bool MakeOneDir(const std::string& dir) {
  if (mkdir(dir.c_str(), kDirMode) == 0) return true;
  struct stat st;
  return stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Creates path and its missing parents; true on success.
bool MakeDirTree(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  if (path.empty()) return false;
  for (std::string::size_type slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    if (!MakeOneDir(path.substr(0, slash))) return false;
    if (slash == std::string::npos) return true;
  }
}

// ---- Recursive removal ----

bool RemoveEntry(int parentFd, const char* name);

bool IsDotOrDotdot(const char* name) {
  return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

// Removes everything inside the directory name (relative to parentFd); true on success.
bool RemoveChildren(int parentFd, const char* name) {
  const int fd = openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  DIR* dir = fdopendir(fd);
  if (dir == nullptr) {
    close(fd);
    return false;
  }
  // Read first, so that removal cannot disturb the listing. readdir64: 64-bit directory
  // offsets (large file systems, 32-bit programs on 64-bit kernels) would end plain readdir.
  std::vector<std::string> names;
  while (const dirent64* entry = readdir64(dir)) {
    if (!IsDotOrDotdot(entry->d_name)) names.emplace_back(entry->d_name);
  }
  bool ok = true;
  for (const std::string& child : names) ok = RemoveEntry(dirfd(dir), child.c_str()) && ok;
  closedir(dir);
  return ok;
}

// Removes name (relative to parentFd) and, for a directory, all below it; a missing entry
// counts as removed. Symbolic links are removed, never followed.
bool RemoveEntry(int parentFd, const char* name) {
  struct stat st;
  if (fstatat(parentFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
  if (!S_ISDIR(st.st_mode)) return unlinkat(parentFd, name, 0) == 0 || errno == ENOENT;
  const bool childrenGone = RemoveChildren(parentFd, name);
  const bool dirGone = unlinkat(parentFd, name, AT_REMOVEDIR) == 0 || errno == ENOENT;
  return childrenGone && dirGone;
}

// The root directory itself and paths ending in "." or ".." are never removed.
bool IsProtectedPath(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  const std::string::size_type slash = path.rfind('/');
  const std::string last = slash == std::string::npos ? path : path.substr(slash + 1);
  if (last == "." || last == "..") return true;
  struct stat st, root;
  return stat(path.c_str(), &st) == 0 && stat("/", &root) == 0 && st.st_dev == root.st_dev &&
         st.st_ino == root.st_ino;
}

// ---- Daemon ----

// Forks; the parent exits with status 0. Returns false in the child if the fork failed.
bool ForkAndLeaveParent() {
  const pid_t pid = fork();
  if (pid < 0) return false;
  if (pid > 0) exit(0);
  return true;
}

void RedirectStandardFds() {
  for (int fd = 0; fd < kDaemonMaxFd; ++fd) close(fd);
  open("/dev/null", O_RDONLY);  // becomes descriptor 0
  open("/dev/null", O_RDWR);    // 1
  open("/dev/null", O_RDWR);    // 2
}

}  // namespace

void ka_sleep(int nMilliseconds) {
  if (nMilliseconds < 0) return;
  struct timespec left;
  left.tv_sec = nMilliseconds / 1000;
  left.tv_nsec = static_cast<long>(nMilliseconds % 1000) * 1000000L;
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

STimeInfo ka_get_current_time() {
  const time_t now = time(nullptr);
  return ka_localtime(&now);
}

STimeInfo ka_get_current_mtime() {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  const time_t seconds = tv.tv_sec;
  STimeInfo info = ka_localtime(&seconds);
  info.wMilliseconds = static_cast<unsigned short>(tv.tv_usec / 1000);
  return info;
}

SIntervalMTime ka_get_current_interval_mtime() {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  SIntervalMTime reading;
  reading.tSecond = tv.tv_sec;
  reading.wMillisecond = static_cast<unsigned short>(tv.tv_usec / 1000);
  return reading;
}

int ka_daemon_init(bool bForkTwice) {
  if (!ForkAndLeaveParent()) return -1;
  setsid();
  if (bForkTwice && !ForkAndLeaveParent()) return -1;
  RedirectStandardFds();
  if (chdir("/") != 0) {
    // "/" always exists; nothing sensible to do if it cannot be entered.
  }
  umask(0);
  return 0;
}

int ka_ignore_signal() {
  for (int sig : {SIGINT, SIGILL, SIGFPE, SIGSEGV, SIGTERM, SIGABRT, SIGALRM}) {
    signal(sig, SIG_IGN);
  }
  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_handler = SIG_IGN;
  sigemptyset(&action.sa_mask);
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  int result = 0;
  for (int sig : {SIGPIPE, SIGABRT, SIGXFSZ}) result = sigaction(sig, &action, nullptr);
  return result;
}

CKAString ka_get_computer_name() {
  char name[kHostNameBuffer] = {};
  if (gethostname(name, sizeof name - 1) != 0) name[0] = '\0';
  return CKAString(name);
}

bool ka_mkdir(const char* szPath) {
  if (szPath == nullptr) return false;
  return !MakeDirTree(szPath);  // inverted on purpose: false means success
}

bool ka_rmdir(const char* szPath) {
  if (szPath == nullptr || szPath[0] == '\0') return false;
  if (IsProtectedPath(szPath)) return true;
  return !RemoveEntry(AT_FDCWD, szPath);  // inverted on purpose: false means success
}
