#include <gtest/gtest.h>

#include "zu_dict.h"
