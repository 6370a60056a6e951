// zu_array: not yet written.
#ifndef ZUSTD_ZU_ARRAY_H
#define ZUSTD_ZU_ARRAY_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_ARRAY_H
