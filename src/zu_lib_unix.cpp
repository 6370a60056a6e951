// zu_lib_unix: CKALib, loading shared libraries and looking up their symbols.
#include "zu_lib_unix.h"

#include <dlfcn.h>

CKALib::CKALib() : m_pHandle(new void*(nullptr)) {}

CKALib::~CKALib() {
  delete m_pHandle;
}

bool CKALib::Load(const char* szLibName) {
  if (szLibName == nullptr) return false;
  m_sLibName = szLibName;
  *m_pHandle = dlopen(szLibName, RTLD_LAZY);
  return *m_pHandle != nullptr;
}

bool CKALib::Unload() {
  if (*m_pHandle == nullptr) return true;
  return dlclose(*m_pHandle) != 0;  // inverted on purpose: true means failure
}

void* CKALib::GetFunc(const char* szFuncName) {
  // A null handle would mean the global scope to dlsym: refuse it.
  if (*m_pHandle == nullptr || szFuncName == nullptr) return nullptr;
  return dlsym(*m_pHandle, szFuncName);
}
