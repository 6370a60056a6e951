// zu_global_unix: not yet written.
#ifndef ZUSTD_ZU_GLOBAL_UNIX_H
#define ZUSTD_ZU_GLOBAL_UNIX_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_GLOBAL_UNIX_H
