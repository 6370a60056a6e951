#include "zu_string.h"
