// zu_file_internal: safe opening, trusted symbolic links and atomic file replacement.
#include "zu_file_internal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>

namespace zu_internal {
namespace {

// Keeps errno across a close whose own result does not matter.
void CloseKeepingErrno(int fd) {
  const int saved = errno;
  close(fd);
  errno = saved;
}

// The directory part of path with its trailing "/", or "" for a name in the current
// directory.
std::string DirPart(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// The target of the symbolic link that fd (O_PATH | O_NOFOLLOW) refers to.
bool ReadLinkOf(int fd, std::string* target) {
  char buf[PATH_MAX];
  const ssize_t n = readlinkat(fd, "", buf, sizeof buf);
  if (n < 0) return false;
  if (static_cast<size_t>(n) >= sizeof buf) {
    errno = ENAMETOOLONG;
    return false;
  }
  target->assign(buf, static_cast<size_t>(n));
  return true;
}

// Takes write permission for others away from the file behind fd.
void DropOtherWrite(int fd) {
  struct stat st;
  if (fstat(fd, &st) == 0 && (st.st_mode & S_IWOTH) != 0) {
    fchmod(fd, st.st_mode & 07777 & ~S_IWOTH);
  }
}

// Opens with O_CREAT, telling whether this call created the file. -2 asks the caller to
// retry: the name is a dangling symbolic link.
int OpenOrCreate(const char* path, int flags, mode_t mode) {
  for (int attempt = 0; attempt < 8; ++attempt) {
    int fd = open(path, flags & ~O_CREAT);
    if (fd >= 0 || errno != ENOENT) return fd;
    fd = open(path, flags | O_EXCL, mode);
    if (fd >= 0) {
      DropOtherWrite(fd);
      return fd;
    }
    if (errno != EEXIST) return -1;
    struct stat st;
    if (lstat(path, &st) == 0 && S_ISLNK(st.st_mode)) return -2;
  }
  return -1;
}

bool WriteAll(int fd, const char* data, size_t len) {
  while (len > 0) {
    const ssize_t n = write(fd, data, len);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = ENOSPC;
      return false;
    }
    data += n;
    len -= static_cast<size_t>(n);
  }
  return true;
}

// A fresh, hard-to-guess name for a temporary file next to target.
std::string TempName(const std::string& dir, const std::string& base) {
  static std::atomic<unsigned> counter{0};
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  const unsigned long long mix = (static_cast<unsigned long long>(getpid()) << 40) ^
                                 (static_cast<unsigned long long>(now.tv_nsec) << 8) ^
                                 counter.fetch_add(1);
  char suffix[24];
  std::snprintf(suffix, sizeof suffix, ".%012llx", mix & 0xffffffffffffULL);
  return dir + "." + base + suffix;
}

// A file that will replace another: its descriptor and, once it has one, its name.
struct TempFile {
  int fd = -1;
  std::string name;
};

// An unnamed file in dir (O_TMPFILE): a kill before it is linked leaves nothing behind.
bool CreateUnnamed(const std::string& dir, TempFile* temp) {
  temp->fd = open(dir.empty() ? "." : dir.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
  return temp->fd >= 0;
}

// Gives an unnamed file a temporary name beside the target.
bool LinkUnnamed(const std::string& dir, const std::string& base, TempFile* temp) {
  char proc[64];
  std::snprintf(proc, sizeof proc, "/proc/self/fd/%d", temp->fd);
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::string name = TempName(dir, base);
    if (linkat(AT_FDCWD, proc, AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
      temp->name = name;
      return true;
    }
    if (errno != EEXIST) return false;
  }
  return false;
}

bool CreateNamed(const std::string& dir, const std::string& base, TempFile* temp) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::string name = TempName(dir, base);
    temp->fd = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (temp->fd >= 0) {
      temp->name = name;
      return true;
    }
    if (errno != EEXIST) return false;
  }
  return false;
}

// Gives the new file the old one's permission bits, owner and group (the owner only where
// the process may set it), or, for a new name, the created mode without write for others.
void CopyAccess(int fd, const struct stat* old) {
  if (old == nullptr) {
    DropOtherWrite(fd);
    return;
  }
  if (fchown(fd, old->st_uid, old->st_gid) != 0) {
    if (fchown(fd, static_cast<uid_t>(-1), old->st_gid) != 0) errno = 0;
  }
  fchmod(fd, old->st_mode & 07777);
}

// Writes, syncs and closes temp, which then has a name; false leaves it for the caller.
bool FillTemp(TempFile* temp, const std::string& dir, const std::string& base,
              const std::string& bytes, const struct stat* old, bool* relink) {
  *relink = false;
  if (!WriteAll(temp->fd, bytes.data(), bytes.size())) return false;
  CopyAccess(temp->fd, old);
  if (fsync(temp->fd) != 0) return false;
  if (temp->name.empty() && !LinkUnnamed(dir, base, temp)) {
    *relink = true;  // no /proc, or linking refused: try again with a named file
    return false;
  }
  const int fd = temp->fd;
  temp->fd = -1;
  return close(fd) == 0;
}

void DiscardTemp(TempFile* temp) {
  if (temp->fd >= 0) CloseKeepingErrno(temp->fd);
  if (!temp->name.empty()) {
    const int saved = errno;
    unlink(temp->name.c_str());
    errno = saved;
  }
  *temp = TempFile();
}

// Syncs the directory so that the rename survives a power cut. File systems that cannot
// sync a directory (EINVAL) count as done.
bool SyncDirectory(const std::string& dir) {
  const int fd = open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok = fsync(fd) == 0 || errno == EINVAL;
  CloseKeepingErrno(fd);
  return ok;
}

// Writes bytes into a new file beside target (named dir + base) and renames it over target.
bool WriteAndRename(const std::string& target, const std::string& dir, const std::string& base,
                    const std::string& bytes, const struct stat* old) {
  TempFile temp;
  bool relink = false;
  if (CreateUnnamed(dir, &temp)) {
    if (FillTemp(&temp, dir, base, bytes, old, &relink)) {
      if (rename(temp.name.c_str(), target.c_str()) == 0) return true;
    }
    DiscardTemp(&temp);
    if (!relink) return false;
  }
  if (!CreateNamed(dir, base, &temp)) return false;
  if (FillTemp(&temp, dir, base, bytes, old, &relink) &&
      rename(temp.name.c_str(), target.c_str()) == 0) {
    return true;
  }
  DiscardTemp(&temp);
  return false;
}

}  // namespace

bool IsTrustedLinkOwner(uid_t uid) {
  return uid == 0 || uid == geteuid();
}

bool ResolveTrustedLinks(const std::string& path, std::string* resolved) {
  std::string current = path;
  for (int hop = 0; hop <= kMaxLinkHops; ++hop) {
    const int fd = open(current.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
      if (errno != ENOENT) return false;
      *resolved = current;  // a name still to be created
      return true;
    }
    struct stat st;
    if (fstat(fd, &st) != 0) {
      CloseKeepingErrno(fd);
      return false;
    }
    if (!S_ISLNK(st.st_mode)) {
      close(fd);
      *resolved = current;
      return true;
    }
    std::string target;
    const bool trusted = IsTrustedLinkOwner(st.st_uid);
    const bool read = trusted && ReadLinkOf(fd, &target);
    CloseKeepingErrno(fd);
    if (!trusted) errno = EACCES;
    if (!read) return false;
    current = target[0] == '/' ? target : DirPart(current) + target;
  }
  errno = ELOOP;
  return false;
}

int OpenNoWorldWrite(const char* path, int flags, mode_t mode) {
  flags |= O_CLOEXEC;
  if ((flags & O_CREAT) == 0) return open(path, flags);
  if ((flags & O_EXCL) != 0) {
    const int fd = open(path, flags, mode);
    if (fd >= 0) DropOtherWrite(fd);
    return fd;
  }
  const int fd = OpenOrCreate(path, flags, mode);
  if (fd != -2) return fd;
  // A dangling link: create the file it names, if its owner is trusted.
  std::string target;
  if (!ResolveTrustedLinks(path, &target)) return -1;
  const int created = OpenOrCreate(target.c_str(), flags, mode);
  if (created == -2) errno = ELOOP;
  return created < 0 ? -1 : created;
}

bool FlagsForFopenMode(const char* mode, int* flags) {
  if (mode == nullptr) return false;
  int access;
  int extra;
  switch (mode[0]) {
    case 'r':
      access = O_RDONLY;
      extra = 0;
      break;
    case 'w':
      access = O_WRONLY;
      extra = O_CREAT | O_TRUNC;
      break;
    case 'a':
      access = O_WRONLY;
      extra = O_CREAT | O_APPEND;
      break;
    default:
      errno = EINVAL;
      return false;
  }
  // fopen looks at a few more characters until a "," (which starts ",ccs=").
  for (int i = 1; i < 7 && mode[i] != '\0' && mode[i] != ','; ++i) {
    if (mode[i] == '+') access = O_RDWR;
    if (mode[i] == 'x') extra |= O_EXCL;
  }
  *flags = access | extra;
  return true;
}

bool ReplaceFileContents(const std::string& path, const std::string& bytes) {
  std::string target;
  if (path.empty()) {
    errno = ENOENT;
    return false;
  }
  if (!ResolveTrustedLinks(path, &target)) return false;
  struct stat old;
  const bool exists = lstat(target.c_str(), &old) == 0;
  if (!exists && errno != ENOENT) return false;
  if (exists && !S_ISREG(old.st_mode)) {
    errno = EINVAL;  // a device, pipe or directory is never replaced
    return false;
  }
  const std::string dir = DirPart(target);
  const std::string base = target.substr(dir.size());
  if (!WriteAndRename(target, dir, base, bytes, exists ? &old : nullptr)) return false;
  return SyncDirectory(dir);
}

int OpenTrustedRegularFile(const std::string& path, int flags, mode_t mode) {
  flags |= O_NOFOLLOW;
  int fd = OpenNoWorldWrite(path.c_str(), flags, mode);
  if (fd < 0 && errno == ELOOP) {
    // A link in the name's place: follow it only where its owner can be trusted. The
    // resolved name is opened with O_NOFOLLOW again, so a link swapped in meanwhile fails.
    std::string target;
    if (!ResolveTrustedLinks(path, &target)) return -1;
    fd = OpenNoWorldWrite(target.c_str(), flags, mode);
  }
  if (fd < 0) return -1;
  struct stat st;
  const bool statted = fstat(fd, &st) == 0;
  if (statted && S_ISREG(st.st_mode)) return fd;
  if (statted) errno = EINVAL;
  CloseKeepingErrno(fd);
  return -1;
}

}  // namespace zu_internal
