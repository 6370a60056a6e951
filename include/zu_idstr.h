// zu_idstr: not yet written.
#ifndef ZUSTD_ZU_IDSTR_H
#define ZUSTD_ZU_IDSTR_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_IDSTR_H
