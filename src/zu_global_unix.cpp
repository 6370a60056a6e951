#include "zu_global_unix.h"
