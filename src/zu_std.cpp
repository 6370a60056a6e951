#include "zu_std.h"

// ---- Memory and text helpers ----

#include <strings.h>

#include <cctype>
#include <cstring>

void ka_memmove(void* dst, const void* src, int n) {
  if (dst == nullptr || src == nullptr || n <= 0 || dst == src) return;
  std::memmove(dst, src, static_cast<size_t>(n));
}

char* ka_strncpy(char* dst, const char* src, int n) {
  if (dst == nullptr) return nullptr;
  if (src == nullptr || n < 0) {
    dst[0] = '\0';
    return dst;
  }
  std::strncpy(dst, src, static_cast<size_t>(n));
  dst[n] = '\0';
  return dst;
}

int ka_strnocasecmp(const char* a, const char* b) {
  if (a == nullptr || b == nullptr) return (a == nullptr ? 0 : 1) - (b == nullptr ? 0 : 1);
  return strcasecmp(a, b);
}

// toupper/tolower never turn a byte into NUL, so one pass to the terminator gives the same
// result as re-measuring the text before every byte.
void ka_toupper(char* s) {
  if (s == nullptr) return;
  for (; *s != '\0'; ++s) *s = static_cast<char>(std::toupper(static_cast<unsigned char>(*s)));
}

void ka_tolower(char* s) {
  if (s == nullptr) return;
  for (; *s != '\0'; ++s) *s = static_cast<char>(std::tolower(static_cast<unsigned char>(*s)));
}

// ---- Base64 ----

//
//
//

// ---- Local time ----

// ---- Byte order, directories, sockets, paths, library names ----
