#include <gtest/gtest.h>

#include "zu_token.h"
