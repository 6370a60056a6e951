// zu_log: not yet written.
#ifndef ZUSTD_ZU_LOG_H
#define ZUSTD_ZU_LOG_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_LOG_H
