#include "zu_mutex_unix.h"
