// zu_log: numbered, time-stamped log files under the directory "$SYSTEMHOME/inf".
// CKALog appends one entry per Add to "<dir>/<name>.inf", keeps the number of the last entry in
// the file's six-byte header and, at 20000 entries, moves the file to "<name>.bak" (one backup
// generation) and begins a new one. The file is opened and closed by every Add.
// CKALogThread queues texts from any thread and writes them through its CKALog from a thread of
// its own, which polls the queue every 100 ms.
// Thread safety: CKALog::Add and CKALogThread::AddLog may be called from any thread;
// CKALog::SetProcName and CKALogThread::init must not run concurrently with other calls.
// Several processes may write one log: each entry is written under a lock on the file.
#ifndef ZUSTD_ZU_LOG_H
#define ZUSTD_ZU_LOG_H

#include <atomic>
#include <string>
#include <vector>

#include "zu_export.h"
#include "zu_file.h"
#include "zu_mutex_unix.h"
#include "zu_thread_unix.h"

// Writer of one process's log file. Not copyable.
//
// File layout: bytes 0..5 hold the last entry's number as "%04d\n" (below 10000 the sixth byte
// is a NUL left by the file's creation); then one line per entry:
// "%03d <YYYY-MM-DD HH:MM:SS> text\n" with the local time of the call.
//
// Failures: an entry is written before the header counts it, in one write, so a process killed
// at any instant loses at most the entry it was writing. The next Add (of any process) repairs
// what a kill left: a last line without its line feed gets one when its number and stamp are
// whole (the entry is kept, its text cut short) and is cut off when they are not, and an entry
// the header does not count yet is counted, so numbers go on without a gap. A write that fails (a
// full disk) is cut off again and the header keeps its number. Nothing is synced to the disk per
// entry: a power cut may lose the entries of the last seconds that the kernel had not yet written,
// and may leave the header one behind, which the next Add repairs.
// Processes: each entry is written under a POSIX record lock (fcntl F_SETLK) on the whole
// file, so processes, and CKALog objects of one process, sharing a log name number their
// entries without gaps or repeats. The lock is not inherited by a child forked meanwhile and
// cannot be taken through a read-only descriptor. A lock held longer than 2 s (a stopped
// process) is not waited for: the entry is then written without it.
// Paths: the log directory and files are created without write permission for others,
// whatever the umask. A symbolic link in place of the log directory or file is followed only
// when it belongs to the effective user or root; a file behind any other link, or anything but
// a regular file, is never written.
class ZUSTD_API CKALog {
 public:
  CKALog();
  ~CKALog();
  CKALog(const CKALog&) = delete;
  CKALog& operator=(const CKALog&) = delete;

  // Names the log "$SYSTEMHOME/inf/<szName>.inf" and creates the directory when missing
  // (mode 0775 less the umask). False, with nothing changed, for a null name, SYSTEMHOME unset
  // or empty, a directory that cannot be created, or a log directory that is a symbolic link
  // of another owner. Opens no file; must not run concurrently with Add.
  bool SetProcName(const char* szName);

  // Appends the next numbered entry holding szText (unchanged; a null text is logged as an
  // empty text). False only when no log name is set. Entries whose file cannot be opened or
  // written are lost silently and still give true (kept as it is). The entry that reaches
  // 20000 is written twice on purpose: as the last entry of the ".bak" file and as entry 001
  // of the new file. The full file is linked as ".bak" (replacing the older backup) before the
  // new file is renamed into place, so the current name never goes missing; when the backup
  // cannot be made (a directory in the way, a read-only directory) the full file is kept and
  // written on, and every following entry tries the rotation again. On a file system without
  // hard links the file is renamed to ".bak" instead (a current name that is a symbolic link
  // into another file system is itself renamed), and the new file follows at once. The
  // new file takes the full one's permission bits and, where allowed, its owner. A count above
  // 99999 (reached only when rotations keep failing) is kept as six digits without the line
  // feed, so that the header never reaches into the first entry.
  bool Add(const char* szText);

 private:
  CKAMutex m_mutex;       // serialises Add
  CKAFile m_file;         // the current log file; no name until SetProcName succeeds
  std::string m_strBase;  // the log path without extension; empty until named
};

// Log thread: AddLog queues a copy of the text (no bound, nothing dropped) and the thread started
// by init writes the queue through m_log every 100 ms, in the order the texts were added.
// Not copyable.
//
// Lifetime: the destructor only clears m_bRun; it neither waits for the thread nor writes the
// texts still queued (they are discarded). The object must therefore outlive its thread: destroy
// it only after the thread has stopped (IsRunning() false) or at process end. A derived class
// may stop the thread by clearing m_bRun; the thread then ends within about 100 ms.
class ZUSTD_API CKALogThread : public CKAThread {
 public:
  CKALogThread();
  virtual ~CKALogThread();
  CKALogThread(const CKALogThread&) = delete;
  CKALogThread& operator=(const CKALogThread&) = delete;

  // Names the log as CKALog::SetProcName does and starts the log thread. False, with no thread
  // started, when naming fails or the thread cannot be created. A second call starts a second
  // thread on the same queue (not guarded).
  bool init(const char* szName);

  // Queues a copy of szText (a null text queues an empty text). Texts added before init are
  // written once the thread runs. Returns 0 in every case, success included: kept as it is.
  int AddLog(const char* szText);

  // The thread's body: every 100 ms takes the whole queue and writes it; returns once m_bRun
  // is found false after a sleep.
  void Run() override;

 protected:
  std::atomic<bool> m_bRun;           // same size and layout as bool; cleared to stop the thread
  CKALog m_log;                       // the log written to
  CKAMutex m_mutex;                   // guards m_vecLog
  std::vector<std::string> m_vecLog;  // texts not yet taken by the thread, oldest first
};

#endif  // ZUSTD_ZU_LOG_H
