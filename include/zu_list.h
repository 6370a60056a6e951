// zu_list: not yet written.
#ifndef ZUSTD_ZU_LIST_H
#define ZUSTD_ZU_LIST_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_LIST_H
