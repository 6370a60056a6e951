// zu_automutex: CKAAutoMutex, the scoped and bounded guard of a CKAMutex.
#include "zu_automutex.h"

#include "zu_global_unix.h"

namespace {
constexpr int kPollStepMs = 10;
}  // namespace

CKAAutoMutex::CKAAutoMutex(CKAMutex* pMutex, bool bLock) : m_pMutex(pMutex), m_bLocked(false) {
  if (bLock && m_pMutex != nullptr) {
    m_pMutex->Lock();
    m_bLocked = true;
  }
}

CKAAutoMutex::~CKAAutoMutex() {
  if (m_bLocked) m_pMutex->Unlock();
}

bool CKAAutoMutex::TryLock(int nTimeout) {
  if (m_bLocked) return true;
  if (m_pMutex == nullptr) return false;
  if (nTimeout < 0) {
    m_pMutex->Lock();
    m_bLocked = true;
    return true;
  }
  // The attempt count follows from the 10 ms step, not from a clock: this is deliberate.
  int remaining = nTimeout;
  for (;;) {
    m_bLocked = m_pMutex->TryLock();
    if (m_bLocked || remaining <= 0) break;
    remaining -= kPollStepMs;
    ka_sleep(kPollStepMs);
  }
  return m_bLocked;
}
