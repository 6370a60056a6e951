// zu_para: not yet written.
#ifndef ZUSTD_ZU_PARA_H
#define ZUSTD_ZU_PARA_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_PARA_H
