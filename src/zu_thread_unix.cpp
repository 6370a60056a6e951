#include "zu_thread_unix.h"
