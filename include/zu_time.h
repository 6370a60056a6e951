// zu_time: not yet written.
#ifndef ZUSTD_ZU_TIME_H
#define ZUSTD_ZU_TIME_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_TIME_H
