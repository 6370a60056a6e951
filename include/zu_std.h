// zu_std: not yet written.
#ifndef ZUSTD_ZU_STD_H
#define ZUSTD_ZU_STD_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_STD_H
