// A short tour of libzustd.
#include <cstdio>

#include "zustd.h"

int main() {
  std::printf("zustd demo\n");
  return 0;
}
