// zu_lib_unix: CKALib, a loader of shared libraries (dlopen with lazy binding). A typical use
// is Load(ka_get_dll_name("name")) followed by GetFunc.
// Thread safety: an object is used by one thread at a time.
#ifndef ZUSTD_ZU_LIB_UNIX_H
#define ZUSTD_ZU_LIB_UNIX_H

#include "zu_export.h"
#include "zu_string.h"

// Holds one library handle in a small heap slot. Not copyable.
class ZUSTD_API CKALib {
 public:
  // No library loaded.
  CKALib();
  // Frees the slot; it does not unload the library (call Unload).
  ~CKALib();

  CKALib(const CKALib&) = delete;
  CKALib& operator=(const CKALib&) = delete;

  // Stores the name and loads the library; true when it was loaded. A library loaded before
  // is not closed (its handle is forgotten). Null gives false and changes nothing.
  bool Load(const char* szLibName);
  // Closes the library. Inverted result, kept on purpose: false on success, true when
  // closing failed or nothing was loaded. The handle is kept, so GetFunc must not be called
  // after a successful Unload.
  bool Unload();
  // Address of the symbol szFuncName in the loaded library; null when absent, when the name
  // is null or when nothing is loaded.
  void* GetFunc(const char* szFuncName);

 private:
  void** m_pHandle;  // slot holding the dlopen handle, null when nothing was loaded
  CKAString m_sLibName;
};

#endif  // ZUSTD_ZU_LIB_UNIX_H
