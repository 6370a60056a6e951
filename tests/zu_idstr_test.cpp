#include <gtest/gtest.h>

#include "zu_idstr.h"
