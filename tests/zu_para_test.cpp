#include <gtest/gtest.h>

#include "zu_para.h"
