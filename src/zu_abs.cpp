#include "zu_abs.h"
