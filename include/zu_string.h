// zu_string: not yet written.
#ifndef ZUSTD_ZU_STRING_H
#define ZUSTD_ZU_STRING_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_STRING_H
