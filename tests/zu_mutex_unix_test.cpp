#include <gtest/gtest.h>

#include "zu_mutex_unix.h"
