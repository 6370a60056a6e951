// zu_expression: not yet written.
#ifndef ZUSTD_ZU_EXPRESSION_H
#define ZUSTD_ZU_EXPRESSION_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_EXPRESSION_H
