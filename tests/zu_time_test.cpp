#include <gtest/gtest.h>

#include "zu_time.h"
