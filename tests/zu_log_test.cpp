#include <gtest/gtest.h>

#include "zu_log.h"
