#include <gtest/gtest.h>

#include "zu_list.h"
