#include "zu_log.h"
