#include <gtest/gtest.h>

#include "zu_event.h"
