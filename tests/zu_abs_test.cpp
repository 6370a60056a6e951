#include <gtest/gtest.h>

#include "zu_abs.h"
