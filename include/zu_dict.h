// zu_dict: not yet written.
#ifndef ZUSTD_ZU_DICT_H
#define ZUSTD_ZU_DICT_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_DICT_H
