#include "zu_lib_unix.h"

#include "test_util.h"

TEST(CKALib, LoadsFindsAndAnswersUnloadInverted) {
  CKALib lib;
  EXPECT_TRUE(lib.Unload() && !lib.GetFunc("cos") && !lib.Load(nullptr) && !lib.Load("libno.so"));
  ASSERT_TRUE(lib.Load("libm.so.6") && lib.GetFunc("cos"));
  EXPECT_EQ(1.0, reinterpret_cast<double (*)(double)>(lib.GetFunc("cos"))(0.0));
  EXPECT_FALSE(lib.GetFunc("zu_no_such_function") || lib.GetFunc(nullptr) || lib.Unload());
}
