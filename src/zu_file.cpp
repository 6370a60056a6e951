#include "zu_file.h"
