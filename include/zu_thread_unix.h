// zu_thread_unix: CKAThread, the abstract base of the library's worker threads. A derived class
// supplies Run(); Start launches it on a detached POSIX thread that inherits the creator's
// scheduling, and the running mark clears itself when Run() returns.
// Thread safety: Start, SetPriority and Exit are called by the owning thread; IsRunning may be
// polled from any thread (the mark is read and written atomically, as a hint, not as a
// synchronisation point). The object must outlive its thread: nothing joins or cancels it.
#ifndef ZUSTD_ZU_THREAD_UNIX_H
#define ZUSTD_ZU_THREAD_UNIX_H

#include <pthread.h>

#include "zu_export.h"

// Worker thread base. Not copyable.
class ZUSTD_API CKAThread {
 public:
  // Not running; the parameter is null until the first Start with a non-null one.
  CKAThread();
  // Frees the handle storage; it neither cancels nor joins a running thread.
  virtual ~CKAThread();

  CKAThread(const CKAThread&) = delete;
  CKAThread& operator=(const CKAThread&) = delete;

  // The thread body.
  virtual void Run() = 0;

  // Stores a non-null pParam (null keeps the previous one) and starts Run() on a new detached
  // thread. True when the thread was created. Starting while a thread runs starts a second
  // one and overwrites the stored handle (not prevented).
  bool Start(void* pParam);
  // Raises the running thread's priority by 2 within its policy when the policy's maximum is
  // above current + 1, else keeps it (never clipped). True when the platform accepted the
  // parameters; false when it refused them or no thread is running.
  bool SetPriority();
  // True from a successful Start until Run() returns (stays true after a cancellation).
  bool IsRunning();
  // Clears the running mark; the thread does it itself when Run() returns.
  void SetExitState();
  // Requests cancellation of the running thread (takes effect at its next cancellation
  // point). Returns 0 on success, else the platform's error; ESRCH when no thread is running.
  int Exit();
  // The parameter stored by Start.
  void* GetParam();

 private:
  pthread_t* m_pThread;  // the thread's handle; 0 means not running
  void* m_pParam;
};

#endif  // ZUSTD_ZU_THREAD_UNIX_H
