// zu_automutex: CKAAutoMutex, the scoped guard over a CKAMutex used by every locking site of
// the library. It locks at once, later, or by polling for a bounded time (TryLock(5000) is the
// library's standard bounded lock) and releases only in its destructor.
// Thread safety: a guard belongs to one thread and one scope; the guarded mutex is shared.
#ifndef ZUSTD_ZU_AUTOMUTEX_H
#define ZUSTD_ZU_AUTOMUTEX_H

#include "zu_export.h"
#include "zu_mutex_unix.h"

// Holds at most one lock of a CKAMutex it does not own. Not copyable.
class ZUSTD_API CKAAutoMutex {
 public:
  // Guards pMutex; when bLock is true, locks it at once (blocking). A null pMutex makes a
  // guard that never holds anything: TryLock returns false.
  CKAAutoMutex(CKAMutex* pMutex, bool bLock);
  // Releases the mutex if, and only if, this guard holds it.
  ~CKAAutoMutex();

  CKAAutoMutex(const CKAAutoMutex&) = delete;
  CKAAutoMutex& operator=(const CKAAutoMutex&) = delete;

  // True when the guard now holds the mutex (at once if it held it already).
  // nTimeout < 0 waits without limit; otherwise attempts are made every 10 ms, counted
  // down from nTimeout in steps of 10 (not by a clock): 0 makes exactly one attempt,
  // 5000 up to 501. On false the guard holds nothing and its destructor unlocks nothing.
  bool TryLock(int nTimeout);

 private:
  CKAMutex* m_pMutex;
  bool m_bLocked;
};

#endif  // ZUSTD_ZU_AUTOMUTEX_H
