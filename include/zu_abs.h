// zu_abs: not yet written.
#ifndef ZUSTD_ZU_ABS_H
#define ZUSTD_ZU_ABS_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_ABS_H
