// zu_event: event queues. CKAEventSend is a thread-safe first-in-first-out ring of ten integer
// event codes (>= 0); when it is full the oldest event is overwritten. CKAEventWait is a waiter
// bound to one queue that polls it every 10 ms until an event arrives or a time-out passes.
// Thread safety: any number of threads may send to one CKAEventSend; one consumer reads with
// GetEvent or through a CKAEventWait. The queue must outlive its waiters.
#ifndef ZUSTD_ZU_EVENT_H
#define ZUSTD_ZU_EVENT_H

#include "zu_export.h"
#include "zu_mutex_unix.h"

// Event queue with a capacity of ten. Not copyable.
class ZUSTD_API CKAEventSend {
 public:
  // An empty queue.
  CKAEventSend();
  ~CKAEventSend();

  CKAEventSend(const CKAEventSend&) = delete;
  CKAEventSend& operator=(const CKAEventSend&) = delete;

  // Queues nEvent (codes must be >= 0). A full queue never refuses: the oldest event is
  // overwritten and lost. False only when the lock could not be had within 5000 ms.
  bool SendEvent(int nEvent);
  // Removes and returns the oldest event; -1 when the queue is empty or the lock could not
  // be had within 5000 ms.
  int GetEvent();
  // Empties the queue and zeroes the ring. It tries the lock for 5000 ms like the others but
  // clears even without it (kept as it is).
  void Clear();

 private:
  CKAMutex m_mutex;
  int* m_pEvents;  // ring of m_nSize codes
  int m_nSize;     // always 10
  int m_nCount;    // events queued
  int m_nWrite;    // next slot to write
  int m_nRead;     // oldest queued event
};

// Waits on one CKAEventSend it does not own. Copyable.
class ZUSTD_API CKAEventWait {
 public:
  // Bound to no queue: call Init before waiting.
  CKAEventWait();
  // Init(pSend).
  explicit CKAEventWait(CKAEventSend* pSend);

  // Binds the waiter to pSend; always true.
  bool Init(CKAEventSend* pSend);
  // The next event, or 255 when none came in time: the wait ends after nTimeout / 10 polls
  // 10 ms apart or nTimeout ms of wall-clock time, whichever is first; 0 looks once without
  // sleeping. 255 is the time-out result, so a queued 255 cannot be told from a time-out.
  // Without a queue (Init not called or given null) it returns 255 at once.
  int WaitEvents(unsigned int nTimeout);

 private:
  CKAEventSend* m_pEventSend;
};

#endif  // ZUSTD_ZU_EVENT_H
