// zu_event: not yet written.
#ifndef ZUSTD_ZU_EVENT_H
#define ZUSTD_ZU_EVENT_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_EVENT_H
