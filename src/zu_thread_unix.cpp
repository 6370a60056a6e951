// zu_thread_unix: CKAThread, the base of detached worker threads.
#include "zu_thread_unix.h"

#include <sched.h>

#include <cerrno>

// The running mark is the handle word itself: written by the worker when Run() returns and
// read by other threads, so it is accessed with atomic operations of its own size.
static_assert(__atomic_always_lock_free(sizeof(pthread_t), nullptr),
              "the thread handle must be a word that can be accessed atomically");

namespace {

pthread_t LoadHandle(const pthread_t* slot) {
  return __atomic_load_n(slot, __ATOMIC_ACQUIRE);
}

void StoreHandle(pthread_t* slot, pthread_t value) {
  __atomic_store_n(slot, value, __ATOMIC_RELEASE);
}

void* StartThread(void* pArg) {
  CKAThread* thread = static_cast<CKAThread*>(pArg);
  thread->Run();
  thread->SetExitState();
  return nullptr;
}

}  // namespace

CKAThread::CKAThread() : m_pThread(new pthread_t(0)), m_pParam(nullptr) {}

CKAThread::~CKAThread() {
  delete m_pThread;
}

bool CKAThread::Start(void* pParam) {
  if (pParam != nullptr) m_pParam = pParam;
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setinheritsched(&attr, PTHREAD_INHERIT_SCHED);
  pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
  // The platform stores the handle before the new thread runs, so the thread's own reset to 0
  // at its end always comes after it.
  const int rc = pthread_create(m_pThread, &attr, StartThread, this);
  pthread_attr_destroy(&attr);
  return rc == 0;
}

bool CKAThread::SetPriority() {
  const pthread_t handle = LoadHandle(m_pThread);
  if (handle == 0) return false;
  int policy = 0;
  sched_param param;
  if (pthread_getschedparam(handle, &policy, &param) != 0) return false;
  // A step of 2, only when it stays below the maximum: deliberate, never clipped.
  if (sched_get_priority_max(policy) > param.sched_priority + 1) param.sched_priority += 2;
  return pthread_setschedparam(handle, policy, &param) == 0;
}

bool CKAThread::IsRunning() {
  return LoadHandle(m_pThread) != 0;
}

void CKAThread::SetExitState() {
  StoreHandle(m_pThread, 0);
}

int CKAThread::Exit() {
  const pthread_t handle = LoadHandle(m_pThread);
  if (handle == 0) return ESRCH;
  return pthread_cancel(handle);
}

void* CKAThread::GetParam() {
  return m_pParam;
}
