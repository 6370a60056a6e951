#include <gtest/gtest.h>

#include "zu_array.h"
