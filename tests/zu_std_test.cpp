#include <gtest/gtest.h>

#include "zu_std.h"

// ---- Memory and text helpers ----

// ---- Base64 ----

//
//
//

// ---- Local time ----

// ---- Byte order, directories, sockets, paths, library names ----
