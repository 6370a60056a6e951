#include "zu_std.h"
