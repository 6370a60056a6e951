// zu_automutex: not yet written.
#ifndef ZUSTD_ZU_AUTOMUTEX_H
#define ZUSTD_ZU_AUTOMUTEX_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_AUTOMUTEX_H
