// zu_mutex_unix: CKAMutex, the recursive mutex.
#include "zu_mutex_unix.h"

CKAMutex::CKAMutex() : m_pMutex(new pthread_mutex_t) {
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(m_pMutex, &attr);
  pthread_mutexattr_destroy(&attr);
}

CKAMutex::~CKAMutex() {
  pthread_mutex_destroy(m_pMutex);
  delete m_pMutex;
}

bool CKAMutex::TryLock() {
  return pthread_mutex_trylock(m_pMutex) == 0;
}

void CKAMutex::Lock() {
  pthread_mutex_lock(m_pMutex);
}

void CKAMutex::Unlock() {
  pthread_mutex_unlock(m_pMutex);
}
