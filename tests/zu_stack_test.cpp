#include <gtest/gtest.h>

#include "zu_stack.h"
