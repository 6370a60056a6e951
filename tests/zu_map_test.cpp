#include <gtest/gtest.h>

#include "zu_map.h"
