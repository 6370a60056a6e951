#include "zu_lib_unix.h"

#include <gtest/gtest.h>

#include "zu_std.h"

TEST(CKALib, LoadsLibrariesAndFindsFunctions) {
  CKALib lib;
  ASSERT_TRUE(lib.Load("libm.so.6"));
  const auto cosine = reinterpret_cast<double (*)(double)>(lib.GetFunc("cos"));
  ASSERT_NE(nullptr, cosine);
  EXPECT_EQ(1.0, cosine(0.0));
  EXPECT_EQ(nullptr, lib.GetFunc("zu_no_such_function"));
  EXPECT_EQ(nullptr, lib.GetFunc(nullptr));
  EXPECT_FALSE(lib.Unload());              // inverted: false means closed
  ASSERT_TRUE(lib.Load("libzustd.so.1"));  // already loaded by this program
  EXPECT_NE(nullptr, lib.GetFunc("_Z8ka_sleepi"));
  EXPECT_FALSE(lib.Unload());
}

TEST(CKALib, FailuresReportTheirStatedResults) {
  CKALib lib;
  EXPECT_TRUE(lib.Unload());  // nothing loaded: closing fails
  EXPECT_EQ(nullptr, lib.GetFunc("cos"));
  EXPECT_FALSE(lib.Load(nullptr));
  EXPECT_FALSE(lib.Load(ka_get_dll_name("zu_no_such_library").GetBuf()));
  EXPECT_EQ(nullptr, lib.GetFunc("cos"));
  EXPECT_TRUE(lib.Unload());
}
