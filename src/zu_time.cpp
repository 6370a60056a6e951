#include "zu_time.h"
