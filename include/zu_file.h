// zu_file: not yet written.
#ifndef ZUSTD_ZU_FILE_H
#define ZUSTD_ZU_FILE_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_FILE_H
