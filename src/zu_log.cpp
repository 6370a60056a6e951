// zu_log: CKALog, numbered log files with one backup generation, and CKALogThread.
#include "zu_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "zu_automutex.h"
#include "zu_file_internal.h"
#include "zu_global_unix.h"
#include "zu_std.h"
#include "zu_string.h"
#include "zu_time.h"

static_assert(sizeof(std::atomic<bool>) == sizeof(bool) &&
                  alignof(std::atomic<bool>) == alignof(bool),
              "m_bRun must keep the size and alignment of a plain bool");
static_assert(std::atomic<bool>::is_always_lock_free, "m_bRun must be lock-free");

namespace {

constexpr const char* kLogDir = "$SYSTEMHOME/inf";
constexpr int kHeaderSize = 6;          // "%04d\n" and, below 10000, a NUL
constexpr int kRotateAt = 20000;        // the entry with this number moves the file to ".bak"
constexpr int kPollMilliseconds = 100;  // the log thread's sleep between batches

// Looking for the start of the last entry reads at first this many bytes from the end, then
// eight times more each round, but never more than kMaxEntrySearch.
constexpr off_t kFirstSearch = 512;
constexpr off_t kMaxEntrySearch = off_t{16} << 20;

// A writer of another process holds the lock for one entry. One that keeps it longer (a
// stopped process, or a local user who locked the file to stall the log) is not waited for.
constexpr long long kLockWaitNanoseconds = 2000LL * 1000 * 1000;
constexpr long kFirstLockPause = 20 * 1000;
constexpr long kLongestLockPause = 1000 * 1000;
constexpr int kOpenAttempts = 32;  // rotations by other processes that one Add puts up with

// Record locks exclude other processes only. This keeps the entries of several CKALog objects
// of this process apart when they write the same file; it is held from the open to the close.
std::mutex g_fileWork;

// ---- Positional I/O on the log's descriptor ----

bool ReadAllAt(int fd, char* data, size_t len, off_t at) {
  while (len > 0) {
    const ssize_t n = pread(fd, data, len, at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    len -= static_cast<size_t>(n);
    at += n;
  }
  return true;
}

// Writes the pieces one after the other from offset at, in one system call where it can.
bool WriteAllAt(int fd, struct iovec* pieces, int count, off_t at) {
  while (count > 0) {
    if (pieces->iov_len == 0) {
      ++pieces;
      --count;
      continue;
    }
    const ssize_t n = pwritev(fd, pieces, count, at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    at += n;
    for (size_t done = static_cast<size_t>(n); done > 0;) {  // never more than is left
      const size_t step = std::min(done, pieces->iov_len);
      pieces->iov_base = static_cast<char*>(pieces->iov_base) + step;
      pieces->iov_len -= step;
      done -= step;
      if (pieces->iov_len == 0) {
        ++pieces;
        --count;
      }
    }
  }
  return true;
}

// ---- Entry lines ----

// " <YYYY-MM-DD HH:MM:SS> ", the local time now as CKATime::ToString(3) gives it, from one
// conversion to local time instead of six.
std::string StampNow() {
  CKATime now;
  now.SetCurrentTime();
  STimeInfo t;
  now.GetTime(t);
  char stamp[64];
  const int len = snprintf(stamp, sizeof stamp, " <%04d-%02d-%02d %02d:%02d:%02d> ", t.wYear,
                           t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond);
  return std::string(stamp, static_cast<size_t>(std::max(len, 0)));
}

std::string EntryNumber(int number) {
  char digits[16];
  const int len = snprintf(digits, sizeof digits, "%03d", number);
  return std::string(digits, static_cast<size_t>(std::max(len, 0)));
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// The number of the entry line that begins at p (len bytes readable), or -1 when the bytes do
// not begin as an entry does: three or more digits, then " <dddd-dd-dd dd:dd:dd> ".
int EntryNumberAt(const char* p, size_t len) {
  static constexpr char kShape[] = " <dddd-dd-dd dd:dd:dd> ";
  constexpr size_t kShapeLength = sizeof kShape - 1;
  size_t digits = 0;
  int number = 0;
  for (; digits < len && digits < 10 && IsDigit(p[digits]); ++digits) {
    number = digits < 9 ? number * 10 + (p[digits] - '0') : -1;  // ten digits: no entry
  }
  if (digits < 3 || number < 0 || len - digits < kShapeLength) return -1;
  for (size_t i = 0; i < kShapeLength; ++i) {
    const char c = p[digits + i];
    if (kShape[i] == 'd' ? !IsDigit(c) : c != kShape[i]) return -1;
  }
  return number;
}

// ---- The state of the file ----

struct FileState {
  off_t size = 0;
  int header = 0;            // the header's number; 0 for a short or non-numeric header
  int lastEntry = -1;        // the number of the last line that begins as an entry; -1: none
  bool openLine = false;     // the last line lacks its line feed (a torn entry)
  off_t tornStart = -1;      // where that torn line begins, when it was read
  bool tornIsEntry = false;  // it begins as an entry does (its number and stamp are whole)
};

// Notes where the torn last line of buf (the bytes from offset start) begins, and whether it
// begins as an entry.
void NoteTornLine(const std::string& buf, off_t start, FileState* state) {
  const void* nl = memrchr(buf.data(), '\n', buf.size());
  if (nl == nullptr && start != kHeaderSize) return;  // the line began before the window
  const size_t lineStart = nl ? static_cast<const char*>(nl) - buf.data() + 1 : 0;
  state->tornStart = start + static_cast<off_t>(lineStart);
  state->tornIsEntry = EntryNumberAt(buf.data() + lineStart, buf.size() - lineStart) >= 0;
}

// The number of the last line, within buf (the file's bytes from offset start), that begins
// as an entry does; -1 when there is none. The entry area begins at kHeaderSize.
int LastEntryIn(const std::string& buf, off_t start) {
  for (size_t end = buf.size(); end > 0;) {
    const void* nl = memrchr(buf.data(), '\n', end - 1);
    const size_t lineStart = nl ? static_cast<const char*>(nl) - buf.data() + 1 : 0;
    if (nl != nullptr || start == kHeaderSize) {
      const int number = EntryNumberAt(buf.data() + lineStart, buf.size() - lineStart);
      if (number >= 0) return number;
    }
    if (nl == nullptr) break;
    end = lineStart;
  }
  return -1;
}

// Reads the end of the entry area until it finds the start of the last entry.
bool ReadEntries(int fd, FileState* state) {
  const off_t area = state->size - kHeaderSize;
  if (area <= 0) return true;
  std::string buf;
  for (off_t window = std::min(area, kFirstSearch);; window = std::min(area, window * 8)) {
    window = std::min(window, kMaxEntrySearch);
    buf.resize(static_cast<size_t>(window));
    const off_t start = state->size - window;
    if (!ReadAllAt(fd, &buf[0], buf.size(), start)) return false;
    state->openLine = buf.back() != '\n';
    if (state->openLine) NoteTornLine(buf, start, state);
    state->lastEntry = LastEntryIn(buf, start);
    if (state->lastEntry >= 0 || window == area || window == kMaxEntrySearch) return true;
  }
}

bool ReadState(int fd, FileState* state) {
  struct stat st;
  if (fstat(fd, &st) != 0) return false;
  state->size = st.st_size;
  char header[kHeaderSize + 1] = {};  // cleared: a short file reads as 0
  const size_t headerBytes = static_cast<size_t>(std::min<off_t>(state->size, kHeaderSize));
  if (!ReadAllAt(fd, header, headerBytes, 0)) return false;
  state->header = static_cast<int>(strtol(header, nullptr, 10));
  return ReadEntries(fd, state);
}

// The number the next entry gets. A kill between an entry and its header leaves the header
// one behind that entry: the entry is counted, so the numbers go on without a gap.
int NextNumber(const FileState& state) {
  const bool headerBehind = state.lastEntry >= 0 && state.lastEntry == state.header + 1;
  return (headerBehind ? state.lastEntry : state.header) + 1;
}

void WriteHeader(int fd, int number) {
  char header[32];
  int len = snprintf(header, sizeof header, "%04d\n", number);
  // Seven or more characters would reach into the first entry.
  len = std::min(len, kHeaderSize);
  struct iovec piece = {header, static_cast<size_t>(len)};
  WriteAllAt(fd, &piece, 1, 0);
}

// A torn last line that does not even begin as an entry (the kill cut its number or stamp)
// holds nothing to keep: it is cut off, so that every line stays an entry line.
void CutTornFragment(int fd, FileState* state) {
  if (!state->openLine || state->tornStart < kHeaderSize || state->tornIsEntry) return;
  if (ftruncate(fd, state->tornStart) != 0) return;  // completed with a line feed instead
  state->size = state->tornStart;
  state->openLine = false;
}

// Appends the entry for text to the locked file and then counts it in the header, so that a
// kill loses at most this entry. A torn last line that begins as an entry gets its line feed
// first (it is kept, cut short); a shorter fragment is cut off. A write that
// fails (a full disk) is cut off again and the header stays. Returns the entry's number, or
// 0 when it was not written. From kRotateAt on, *firstLine receives the same entry numbered
// 001, for the file that rotation begins.
int AppendEntry(int fd, const char* text, std::string* firstLine) {
  FileState state;
  if (!ReadState(fd, &state)) return 0;
  CutTornFragment(fd, &state);
  const int number = NextNumber(state);
  const std::string stamp = StampNow();
  const std::string digits = EntryNumber(number);
  char newline[] = "\n";
  struct iovec pieces[] = {
      {newline, state.openLine ? size_t{1} : 0},
      {const_cast<char*>(digits.data()), digits.size()},
      {const_cast<char*>(stamp.data()), stamp.size()},
      {const_cast<char*>(text), strlen(text)},
      {newline, 1},
  };
  // Entries begin after the six header bytes, even in a shorter file.
  if (!WriteAllAt(fd, pieces, 5, std::max<off_t>(state.size, kHeaderSize))) {
    if (ftruncate(fd, state.size) != 0) {
      // The torn rest gets its line feed at the next entry.
    }
    return 0;
  }
  WriteHeader(fd, number);
  if (number >= kRotateAt) *firstLine = EntryNumber(1) + stamp + text + "\n";
  return number;
}

// ---- Opening and locking ----

long long NanosecondsSince(const struct timespec& start) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (static_cast<long long>(now.tv_sec) - start.tv_sec) * 1000000000LL +
         (now.tv_nsec - start.tv_nsec);
}

bool TryLockFile(int fd) {
  struct flock whole = {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;  // from offset 0 to the end, however far it grows
  return fcntl(fd, F_SETLK, &whole) == 0;
}

// Takes the lock that keeps the entries of several processes apart: a POSIX record lock,
// which belongs to this process (a child forked meanwhile does not inherit it) and needs a
// descriptor open for writing (a mere reader of the log cannot take it). A holder that keeps
// it beyond kLockWaitNanoseconds is not waited for: the entry is written without the lock
// rather than lost or stalled.
void LockForOneEntry(int fd) {
  struct timespec start;
  clock_gettime(CLOCK_MONOTONIC, &start);
  long pause = kFirstLockPause;
  while (!TryLockFile(fd)) {
    if (errno != EACCES && errno != EAGAIN && errno != EINTR) return;  // e.g. ENOLCK: go on
    if (NanosecondsSince(start) > kLockWaitNanoseconds) return;
    const struct timespec nap = {0, pause};
    nanosleep(&nap, nullptr);
    pause = std::min(pause * 2, kLongestLockPause);
  }
}

// True when path still names the file behind fd: another process may have rotated the log
// between this one's open and its lock.
bool StillCurrent(int fd, const char* path) {
  struct stat held;
  struct stat named;
  return fstat(fd, &held) == 0 && stat(path, &named) == 0 && held.st_dev == named.st_dev &&
         held.st_ino == named.st_ino;
}

// Opens (creating it if need be) and locks the current log file; -1 when it cannot be opened.
int OpenLocked(const char* path) {
  for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
    const int fd = zu_internal::OpenTrustedRegularFile(path, O_RDWR | O_CREAT);
    if (fd < 0) return -1;
    LockForOneEntry(fd);
    if (StillCurrent(fd, path)) return fd;
    close(fd);
  }
  return -1;
}

// ---- Rotation ----

// Gives the full file the backup name as a second link; an older backup goes first (as an
// empty directory would). False, with errno set, when the backup cannot be linked.
bool LinkAsBackup(const std::string& file, const std::string& backup) {
  struct stat st;
  if (lstat(backup.c_str(), &st) == 0) remove(backup.c_str());
  return link(file.c_str(), backup.c_str()) == 0;
}

// Where no second link can be made, the name is moved to ".bak" instead: the file itself on a
// file system without hard links, or the current name when it is a symbolic link into another
// file system. False when the backup cannot be made at all.
bool MoveAsBackup(const std::string& path, const std::string& file, const std::string& backup) {
  const int error = errno;
  if (error != EPERM && error != EOPNOTSUPP && error != EXDEV) return false;
  return rename((error == EXDEV ? path : file).c_str(), backup.c_str()) == 0;
}

// Moves the full current file to ".bak" and puts a new file, whose entry 001 is firstLine, in
// its place. The backup is linked first and the new file renamed over the current name, so
// the log never lacks its current file and a kill leaves both generations. When the backup
// cannot be made (a directory in the way, a read-only directory) nothing changes: entries go
// on into the full file and the next one tries again.
void Rotate(const std::string& path, const std::string& base, const std::string& firstLine) {
  std::string file;
  if (!zu_internal::ResolveTrustedLinks(path, &file)) return;
  const std::string backup = base + ".bak";
  if (!LinkAsBackup(file, backup) && !MoveAsBackup(path, file, backup)) return;
  std::string fresh = "0001\n";
  fresh.push_back('\0');  // byte 5 stays NUL, as in every file begun with entry 001
  // Deliberate: the entry that reached 20000 is written again as entry 001 of the new file.
  zu_internal::ReplaceFileContents(path, fresh + firstLine);
}

std::string ExpandLogPath(const char* suffix1, const char* suffix2) {
  CKAString path(kLogDir);
  path += suffix1;
  path += suffix2;
  return ka_get_path_name(path.GetBuf());
}

// True when dir is usable as the log directory: missing, or reached through no symbolic
// link of another owner.
bool IsTrustedDirectory(const std::string& dir) {
  std::string resolved;
  return zu_internal::ResolveTrustedLinks(dir, &resolved);
}

}  // namespace

// ---- CKALog ----

CKALog::CKALog() = default;

CKALog::~CKALog() = default;

bool CKALog::SetProcName(const char* szName) {
  if (szName == nullptr) return false;
  // A set but empty SYSTEMHOME counts as unset: never log to "/inf".
  const char* home = getenv("SYSTEMHOME");
  if (home == nullptr || *home == '\0') return false;
  const std::string dir = ka_get_path_name(kLogDir);
  if (dir.empty() || !IsTrustedDirectory(dir)) return false;
  if (!ka_is_dir_exist(dir.c_str())) {
    ka_mkdir(dir.c_str());  // its result has an inverted sense; the test below decides
    if (!ka_is_dir_exist(dir.c_str())) return false;
  }
  m_strBase = ExpandLogPath("/", szName);
  CKAString unexpanded("/");
  unexpanded += szName;
  m_file.SetFileName(ExpandLogPath(unexpanded.GetBuf(), ".inf").c_str());
  return true;
}

bool CKALog::Add(const char* szText) {
  // m_strBase and the file name are set together by SetProcName, which never runs alongside
  // Add; the file name is only read here.
  if (m_strBase.empty()) return false;
  if (szText == nullptr) szText = "";
  CKAAutoMutex lock(&m_mutex, true);
  std::lock_guard<std::mutex> fileWork(g_fileWork);
  const CKAString path = m_file.GetFileName();
  // Deliberate: an entry whose file cannot be opened or written is lost and Add says true.
  const int fd = OpenLocked(path.GetBuf());
  if (fd < 0) return true;
  std::string firstLine;
  const int number = AppendEntry(fd, szText, &firstLine);
  if (number >= kRotateAt) Rotate(path.GetBuf(), m_strBase, firstLine);
  close(fd);  // releases the record lock
  return true;
}

// ---- CKALogThread ----

CKALogThread::CKALogThread() : m_bRun(false) {
  m_bRun = true;
}

CKALogThread::~CKALogThread() {
  // Neither waits for the thread nor writes what is still queued: the object must outlive it.
  m_bRun = false;
}

bool CKALogThread::init(const char* szName) {
  if (!m_log.SetProcName(szName)) return false;
  return Start(nullptr);
}

int CKALogThread::AddLog(const char* szText) {
  CKAAutoMutex lock(&m_mutex, true);
  m_vecLog.emplace_back(szText != nullptr ? szText : "");
  return 0;  // deliberate: 0 in every case
}

void CKALogThread::Run() {
  std::vector<std::string> batch;
  if (!m_bRun) return;
  do {
    {
      CKAAutoMutex lock(&m_mutex, true);
      batch.swap(m_vecLog);  // takes the whole queue and leaves it empty
    }
    for (const std::string& text : batch) m_log.Add(text.c_str());
    batch.clear();
    ka_sleep(kPollMilliseconds);
  } while (m_bRun);
}
