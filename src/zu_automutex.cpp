#include "zu_automutex.h"
