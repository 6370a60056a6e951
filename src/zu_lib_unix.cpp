#include "zu_lib_unix.h"
