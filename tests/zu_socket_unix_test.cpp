#include <gtest/gtest.h>

#include "zu_socket_unix.h"
