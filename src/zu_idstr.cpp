#include "zu_idstr.h"
