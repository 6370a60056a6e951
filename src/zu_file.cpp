// zu_file: CKAFile, one buffered stream and the name of its file.
#include "zu_file.h"

// The null-name assertion fires in every build type, so assert.h is read without NDEBUG.
#undef NDEBUG
#include <assert.h>
#include <errno.h>
#include <sys/types.h>
#include <unistd.h>

#include <climits>
#include <cstring>

#include "zu_file_internal.h"

namespace {

// Writes the fopen mode for a set of KA_FILE_* flags into mode (at least 4 bytes, zeroed).
void ModeForFlags(int nFlags, char* mode) {
  const bool bRead = (nFlags & KA_FILE_READ) != 0;
  const bool bWrite = (nFlags & KA_FILE_WRITE) != 0;
  if (bRead && !bWrite) {
    std::strcpy(mode, "r");
  } else if (bWrite && !bRead) {
    std::strcpy(mode, "w");
  } else if ((nFlags & KA_FILE_CREATE) == 0) {
    std::strcpy(mode, "r+");
  } else if ((nFlags & KA_FILE_TRUNCATE) == 0) {
    std::strcpy(mode, "a+");
  } else {
    std::strcpy(mode, "w+");
  }
  if (nFlags & KA_FILE_BINARY) std::strcat(mode, "b");
}

// End offset of a stream already positioned at its end, or -1 when it does not fit an int.
int EndOffset(FILE* pFile) {
  const off_t nEnd = ftello(pFile);
  return nEnd > INT_MAX ? -1 : static_cast<int>(nEnd);
}

// The one assertion of this unit, reported with the same text in every build type.
[[noreturn]] void FailNullFileName() {
  __assert_fail("false", "zu_file", 50, "bool CKAFile::SetFileName(const char*)");
}

}  // namespace

CKAFile::CKAFile() : m_pFile(nullptr) {}

CKAFile::CKAFile(const char* szFileName) : m_pFile(nullptr), m_sFileName(szFileName) {}

CKAFile::~CKAFile() {
  Close();
}

bool CKAFile::SetFileName(const char* szFileName) {
  if (szFileName == nullptr) FailNullFileName();
  m_sFileName = szFileName;
  return true;
}

CKAString CKAFile::GetFileName() {
  return m_sFileName;
}

bool CKAFile::Open(int nFlags) {
  char mode[8] = {};
  ModeForFlags(nFlags, mode);
  return Open(mode);
}

bool CKAFile::Open(const char* szMode) {
  if (szMode == nullptr) return false;
  Close();  // a stream still open is closed rather than lost
  int nFlags = 0;
  if (!zu_internal::FlagsForFopenMode(szMode, &nFlags)) return false;
  const int fd = zu_internal::OpenNoWorldWrite(m_sFileName.GetBuf(), nFlags);
  if (fd < 0) return false;
  m_pFile = fdopen(fd, szMode);
  if (m_pFile == nullptr) close(fd);
  return m_pFile != nullptr;
}

int CKAFile::Read(char* pBuf, int nLen) {
  if (m_pFile == nullptr || pBuf == nullptr || nLen < 0) return -1;
  return static_cast<int>(std::fread(pBuf, 1, static_cast<size_t>(nLen), m_pFile));
}

int CKAFile::Write(const char* pBuf, int nLen) {
  if (m_pFile == nullptr || pBuf == nullptr || nLen < 0) return -1;
  // Lines still buffered go first; the block then goes straight to the kernel, so the count
  // is what was really written. fflush also drops read-ahead and puts the descriptor at
  // the stream's position.
  if (std::fflush(m_pFile) != 0) return 0;
  const int fd = fileno(m_pFile);
  int nDone = 0;
  while (nDone < nLen) {
    const ssize_t n = write(fd, pBuf + nDone, static_cast<size_t>(nLen - nDone));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    nDone += static_cast<int>(n);
  }
  return nDone;
}

bool CKAFile::ReadLine(char* pBuf, int nLen) {
  if (m_pFile == nullptr || pBuf == nullptr || nLen < 1) return false;
  return std::fgets(pBuf, nLen, m_pFile) != nullptr;
}

void CKAFile::WriteLine(const char* szLine) {
  if (m_pFile == nullptr || szLine == nullptr) return;
  std::fputs(szLine, m_pFile);
  std::fputc('\n', m_pFile);
}

void CKAFile::Close() {
  if (m_pFile == nullptr) return;
  std::fclose(m_pFile);
  m_pFile = nullptr;
}

bool CKAFile::IsExist() {
  return access(m_sFileName.GetBuf(), F_OK) != -1;
}

int CKAFile::GetLength() {
  if (m_pFile != nullptr) {
    // 64-bit positions: a stream past 2 GiB on a 32-bit target is put back where it was.
    const off_t nPos = ftello(m_pFile);
    if (nPos < 0 || fseeko(m_pFile, 0, SEEK_END) != 0) return -1;
    const int nLength = EndOffset(m_pFile);
    fseeko(m_pFile, nPos, SEEK_SET);
    return nLength;
  }
  m_pFile = std::fopen(m_sFileName.GetBuf(), "re");  // close-on-exec, as every stream here
  if (m_pFile == nullptr) return -1;
  const int nLength = std::fseek(m_pFile, 0, SEEK_END) == 0 ? EndOffset(m_pFile) : -1;
  Close();  // also on failure: the stream pointer never outlives its fclose
  return nLength;
}

bool CKAFile::Seek(int nOffset, int nOrigin) {
  int nWhence;
  switch (nOrigin) {
    case KA_SEEK_BEGIN:
      nWhence = SEEK_SET;
      break;
    case KA_SEEK_END:
      nWhence = SEEK_END;
      break;
    case KA_SEEK_CURRENT:
      nWhence = SEEK_CUR;
      break;
    default:
      return false;
  }
  if (m_pFile == nullptr) return false;
  return std::fseek(m_pFile, nOffset, nWhence) == 0;
}

void CKAFile::SeekToBegin() {
  if (m_pFile != nullptr) std::rewind(m_pFile);
}

bool CKAFile::SeekToEnd() {
  return Seek(0, KA_SEEK_END);
}

bool CKAFile::Rename(const char* szNewName) {
  Close();
  if (szNewName == nullptr) return false;
  if (std::rename(m_sFileName.GetBuf(), szNewName) != 0) return false;
  m_sFileName = szNewName;
  return true;
}

bool CKAFile::Remove() {
  Close();
  if (std::remove(m_sFileName.GetBuf()) != 0) return false;
  m_sFileName.Empty();
  return true;
}
