// zu_file: CKAFile, a thin owner of one buffered stdio stream and the name of its file.
// It turns a set of KA_FILE_* flags into an fopen mode, reads and writes by block or by
// line, measures the file whether or not it is open, and renames or removes it while keeping
// the stored name in step. The parameter-file class and the log writer do their file work
// through it.
// Streams are opened close-on-exec, so they do not leak into programs started with exec.
// A file that Open creates never gets write permission for others, whatever the umask
// (a daemon's umask is often 0); an existing file keeps its mode.
// Thread safety: none; an object is used by one thread at a time.
#ifndef ZUSTD_ZU_FILE_H
#define ZUSTD_ZU_FILE_H

#include <cstdio>

#include "zu_export.h"
#include "zu_string.h"

// Open flags for CKAFile::Open(int), combined with OR.
#define KA_FILE_BINARY 1    // append "b" to the chosen mode
#define KA_FILE_CREATE 2    // read-and-write: create the file if missing ("a+")
#define KA_FILE_TRUNCATE 4  // with KA_FILE_CREATE in read-and-write: empty it ("w+")
#define KA_FILE_READ 8      // read only ("r")
#define KA_FILE_WRITE 16    // write only ("w")

// Seek origins for CKAFile::Seek.
#define KA_SEEK_BEGIN 1    // SEEK_SET
#define KA_SEEK_END 2      // SEEK_END
#define KA_SEEK_CURRENT 3  // SEEK_CUR

// Owns at most one open stream, which the destructor closes. Not copyable.
class ZUSTD_API CKAFile {
 public:
  // No stream and an empty name.
  CKAFile();
  // No stream; the name is a copy of szFileName (null gives an empty name).
  CKAFile(const char* szFileName);
  // Closes the stream if one is open.
  ~CKAFile();

  CKAFile(const CKAFile&) = delete;
  CKAFile& operator=(const CKAFile&) = delete;

  // Replaces the name and returns true; an open stream stays open. A null name is a
  // programming error: the assertion "false" fails (zu_file:50) and the process aborts,
  // in every build type.
  bool SetFileName(const char* szFileName);
  // A copy of the stored name.
  CKAString GetFileName();

  // Opens the named file with the mode chosen from nFlags: READ alone "r", WRITE alone "w";
  // both or neither "r+", with CREATE "a+", with CREATE|TRUNCATE "w+"; BINARY appends "b".
  // True when a stream was opened. A stream still open is closed first rather than lost.
  bool Open(int nFlags);
  // Opens with the caller's fopen mode text ("r", "w+b", "a+" ...); true when a stream came
  // back. A stream still open is closed first. A null mode returns false and leaves the
  // stream alone. A dangling symbolic link is created through only when it belongs to the
  // effective user or root.
  bool Open(const char* szMode);
  // Bytes read by fread into pBuf, at most nLen; -1 with no stream, a null pBuf or a
  // negative nLen.
  int Read(char* pBuf, int nLen);
  // Bytes of pBuf written, at most nLen: the count is exact, since lines still buffered are
  // flushed first and the block is handed to the kernel before Write returns (0 when the
  // buffered lines could not be written, a short count on a full disk). -1 with no stream,
  // a null pBuf or a negative nLen.
  int Write(const char* pBuf, int nLen);
  // fgets into pBuf (at most nLen - 1 bytes, then NUL); the newline, if it fitted, stays.
  // False with no stream, at end of file or on error; also for a null pBuf or nLen < 1.
  bool ReadLine(char* pBuf, int nLen);
  // Writes szLine and one line feed into the stream's buffer; nothing with no stream or a
  // null szLine. It has no result: a failure to write the buffer shows in the next Write's
  // count (0); a program that must know uses Write.
  void WriteLine(const char* szLine);
  // Closes the stream if one is open. Buffered lines that cannot be written are lost
  // silently; see WriteLine.
  void Close();

  // True when the named file exists (access F_OK); independent of the stream.
  bool IsExist();
  // Size in bytes, or -1. With an open stream its position is restored afterwards; without
  // one the file is opened and closed again, leaving no stream behind.
  int GetLength();
  // Moves the stream by nOffset from a KA_SEEK_* origin; true when fseek succeeded. Any
  // other origin, or no open stream, returns false without moving.
  bool Seek(int nOffset, int nOrigin);
  // Back to the start of the stream; nothing with no stream.
  void SeekToBegin();
  // Seek(0, KA_SEEK_END).
  bool SeekToEnd();

  // Closes the stream, then renames the file. On success the stored name becomes szNewName
  // and true is returned; on failure (or a null szNewName) false and the name is kept.
  bool Rename(const char* szNewName);
  // Closes the stream, then removes the file. On success the stored name is emptied and
  // true returned; on failure false.
  bool Remove();

 private:
  FILE* m_pFile;
  CKAString m_sFileName;
};

#endif  // ZUSTD_ZU_FILE_H
