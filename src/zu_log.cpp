// zu_log: CKALog, numbered log files with one backup generation, and CKALogThread.
#include "zu_log.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "zu_automutex.h"
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

bool WriteAll(CKAFile& file, const char* data, size_t len) {
  while (len > 0) {
    const int chunk = len > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(len);
    if (file.Write(data, chunk) != chunk) return false;
    data += chunk;
    len -= static_cast<size_t>(chunk);
  }
  return true;
}

void WriteHeader(CKAFile& file, int number) {
  char header[32];
  const int len = snprintf(header, sizeof header, "%04d\n", number);
  file.Seek(0, KA_SEEK_BEGIN);
  WriteAll(file, header, static_cast<size_t>(len));
}

// Writes "NNN <YYYY-MM-DD HH:MM:SS> text\n" at the stream's position. The stamp reads as
// CKATime::ToString(3) does, from one conversion to local time instead of six.
void WriteEntry(CKAFile& file, int number, const char* text) {
  CKATime now;
  now.SetCurrentTime();
  STimeInfo t;
  now.GetTime(t);
  char prefix[64];
  const int len = snprintf(prefix, sizeof prefix, "%03d <%04d-%02d-%02d %02d:%02d:%02d> ", number,
                           t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond);
  if (len <= 0 || static_cast<size_t>(len) >= sizeof prefix) return;
  if (!WriteAll(file, prefix, static_cast<size_t>(len))) return;
  if (!WriteAll(file, text, strlen(text))) return;
  WriteAll(file, "\n", 1);
}

// The number of the last entry, read from the header of an open file; 0 when it is no number.
// *pComplete tells whether the file held the header's six bytes.
int ReadLastNumber(CKAFile& file, bool* pComplete) {
  char header[kHeaderSize + 1] = {};  // cleared: a short file reads as 0
  *pComplete = file.Read(header, kHeaderSize) == kHeaderSize;
  header[kHeaderSize] = '\0';
  return static_cast<int>(strtol(header, nullptr, 10));
}

std::string ExpandLogPath(const char* suffix1, const char* suffix2) {
  CKAString path(kLogDir);
  path += suffix1;
  path += suffix2;
  return ka_get_path_name(path.GetBuf());
}

// Appends the next entry to the open file and closes it; returns the entry's number.
int AppendEntry(CKAFile& file, const char* text) {
  bool complete = false;
  const int number = ReadLastNumber(file, &complete) + 1;
  WriteHeader(file, number);
  // A file shorter than its header gets the full six bytes, so entry 1 never overlaps them.
  if (complete) {
    file.SeekToEnd();
  } else {
    file.Seek(kHeaderSize, KA_SEEK_BEGIN);
  }
  WriteEntry(file, number, text);
  file.Close();
  return number;
}

// Moves the closed current file to the backup name, replacing an older backup.
void RotateFile(CKAFile& file, const std::string& base) {
  const std::string backupName = base + ".bak";
  CKAFile backup(backupName.c_str());
  if (backup.IsExist()) backup.Remove();
  file.Rename(backupName.c_str());
  // Deliberate: the entry that reached 20000 is written again as entry 001 of the new file.
}

// Creates the current file anew with entry 001.
void StartNewFile(CKAFile& file, const std::string& base, const char* text) {
  file.SetFileName((base + ".inf").c_str());
  // Deliberate: a file that cannot be created loses the entry and Add still reports true.
  if (!file.Open("w+")) return;
  WriteHeader(file, 1);
  file.Seek(kHeaderSize, KA_SEEK_BEGIN);  // byte 5 stays NUL
  WriteEntry(file, 1, text);
  file.Close();
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
  if (dir.empty()) return false;
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
  // Add; testing the base instead of the file name keeps this unlocked test free of races
  // with a rotation, which renames m_file under the lock.
  if (m_strBase.empty()) return false;
  if (szText == nullptr) szText = "";
  CKAAutoMutex lock(&m_mutex, true);
  if (m_file.Open("r+")) {
    if (AppendEntry(m_file, szText) < kRotateAt) return true;
    RotateFile(m_file, m_strBase);
  }
  StartNewFile(m_file, m_strBase, szText);
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
