// zu_event: CKAEventSend and CKAEventWait, a small polled event queue.
#include "zu_event.h"

#include <cstring>

#include "zu_automutex.h"
#include "zu_global_unix.h"

namespace {

constexpr int kQueueSize = 10;
constexpr int kLockTimeoutMs = 5000;
constexpr int kPollStepMs = 10;
constexpr int kNoEvent = -1;
constexpr int kTimedOut = 255;

}  // namespace

CKAEventSend::CKAEventSend()
    : m_pEvents(new int[kQueueSize]), m_nSize(kQueueSize), m_nCount(0), m_nWrite(0), m_nRead(0) {}

CKAEventSend::~CKAEventSend() {
  delete[] m_pEvents;
}

bool CKAEventSend::SendEvent(int nEvent) {
  CKAAutoMutex lock(&m_mutex, false);
  if (!lock.TryLock(kLockTimeoutMs)) return false;
  m_pEvents[m_nWrite] = nEvent;
  m_nWrite = (m_nWrite + 1) % m_nSize;
  if (m_nCount == m_nSize) {
    m_nRead = m_nWrite;  // full: the oldest event was overwritten, the newest always wins
  } else {
    ++m_nCount;
  }
  return true;
}

int CKAEventSend::GetEvent() {
  CKAAutoMutex lock(&m_mutex, false);
  if (!lock.TryLock(kLockTimeoutMs) || m_nCount <= 0) return kNoEvent;
  const int event = m_pEvents[m_nRead];
  m_nRead = (m_nRead + 1) % m_nSize;
  --m_nCount;
  return event;
}

void CKAEventSend::Clear() {
  CKAAutoMutex lock(&m_mutex, false);
  lock.TryLock(kLockTimeoutMs);  // clears even without the lock: kept as it is
  memset(m_pEvents, 0, sizeof(int) * static_cast<size_t>(m_nSize));
  m_nCount = 0;
  m_nWrite = 0;
  m_nRead = 0;
}

CKAEventWait::CKAEventWait() : m_pEventSend(nullptr) {}

CKAEventWait::CKAEventWait(CKAEventSend* pSend) : m_pEventSend(nullptr) {
  Init(pSend);
}

bool CKAEventWait::Init(CKAEventSend* pSend) {
  m_pEventSend = pSend;
  return true;
}

int CKAEventWait::WaitEvents(unsigned int nTimeout) {
  if (m_pEventSend == nullptr) return kTimedOut;
  const SIntervalMTime start = ka_get_current_interval_mtime();
  unsigned int waited = 0;
  for (;;) {
    waited += kPollStepMs;
    const int event = m_pEventSend->GetEvent();
    if (event >= 0) return event;
    if (nTimeout == 0) return kTimedOut;
    ka_sleep(kPollStepMs);
    // Both limits apply: the count of 10 ms steps and the wall clock.
    if (nTimeout <= waited) return kTimedOut;
    if (ka_elapsed_mtime(start, ka_get_current_interval_mtime()) >= nTimeout) return kTimedOut;
  }
}
