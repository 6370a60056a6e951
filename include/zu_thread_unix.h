// zu_thread_unix: not yet written.
#ifndef ZUSTD_ZU_THREAD_UNIX_H
#define ZUSTD_ZU_THREAD_UNIX_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_THREAD_UNIX_H
