#include "zu_event.h"
