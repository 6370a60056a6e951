#include <gtest/gtest.h>

#include "zu_std.h"
