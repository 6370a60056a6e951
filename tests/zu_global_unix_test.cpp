#include <gtest/gtest.h>

#include "zu_global_unix.h"
