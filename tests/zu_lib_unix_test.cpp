#include <gtest/gtest.h>

#include "zu_lib_unix.h"
