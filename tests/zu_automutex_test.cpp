#include <gtest/gtest.h>

#include "zu_automutex.h"
