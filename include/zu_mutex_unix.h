// zu_mutex_unix: CKAMutex, the library's only lock primitive, a recursive POSIX mutex.
// The thread that holds it may lock it again; every Lock or successful TryLock needs its own
// Unlock. Most users reach it through the scoped guard CKAAutoMutex (zu_automutex.h).
// Thread safety: a CKAMutex is shared by the threads it serialises; all members may be called
// from any thread, but the object must outlive every thread that uses it.
#ifndef ZUSTD_ZU_MUTEX_UNIX_H
#define ZUSTD_ZU_MUTEX_UNIX_H

#include <pthread.h>

#include "zu_export.h"

// Owns one heap-allocated recursive pthread mutex. Not copyable.
class ZUSTD_API CKAMutex {
 public:
  // Allocates and initialises a recursive mutex.
  CKAMutex();
  // Destroys the mutex and frees its storage; it must not be held by anyone.
  ~CKAMutex();

  CKAMutex(const CKAMutex&) = delete;
  CKAMutex& operator=(const CKAMutex&) = delete;

  // One attempt without waiting: true when the calling thread now holds the mutex
  // (again, if it held it already); false when another thread holds it.
  bool TryLock();
  // Waits without limit until the calling thread holds the mutex.
  void Lock();
  // Releases one hold of the calling thread.
  void Unlock();

 private:
  pthread_mutex_t* m_pMutex;
};

#endif  // ZUSTD_ZU_MUTEX_UNIX_H
