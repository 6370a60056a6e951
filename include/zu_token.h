// zu_token: not yet written.
#ifndef ZUSTD_ZU_TOKEN_H
#define ZUSTD_ZU_TOKEN_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_TOKEN_H
