#include <gtest/gtest.h>

#include "zu_expression.h"
