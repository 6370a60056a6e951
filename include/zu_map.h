// zu_map: not yet written.
#ifndef ZUSTD_ZU_MAP_H
#define ZUSTD_ZU_MAP_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_MAP_H
