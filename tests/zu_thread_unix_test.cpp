#include <gtest/gtest.h>

#include "zu_thread_unix.h"
