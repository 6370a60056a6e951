// zu_stack: not yet written.
#ifndef ZUSTD_ZU_STACK_H
#define ZUSTD_ZU_STACK_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_STACK_H
