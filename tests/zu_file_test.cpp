#include <gtest/gtest.h>

#include "zu_file.h"
