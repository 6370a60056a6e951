#include <gtest/gtest.h>

#include "zu_string.h"
