// zu_std: memory and text helpers, base64, local-time helpers, byte order, directory test,
// socket start-up, path and library-name helpers. Not yet written.
#ifndef ZUSTD_ZU_STD_H
#define ZUSTD_ZU_STD_H

#include "zu_export.h"

// ---- Memory and text helpers ----
// Stateless byte and NUL-terminated text helpers; safe to call from any thread.

// Copies n bytes from src to dst; overlapping ranges are handled in both directions.
// Nothing happens for a null pointer, an n of 0 or below, or dst equal to src.
ZUSTD_API void ka_memmove(void* dst, const void* src, int n);
// strncpy(dst, src, n) and then a NUL at dst[n]: dst must hold n + 1 bytes, and is always
// terminated. A null src or n < 0 empties dst. Returns dst (null for a null dst).
ZUSTD_API char* ka_strncpy(char* dst, const char* src, int n);
// strcasecmp(a, b): case-insensitive comparison of the whole texts; there is no length limit
// despite the name. A null text sorts before every other text; two nulls compare equal.
ZUSTD_API int ka_strnocasecmp(const char* a, const char* b);
// Replace every byte up to the terminator by toupper / tolower of itself; null does nothing.
ZUSTD_API void ka_toupper(char* s);
ZUSTD_API void ka_tolower(char* s);

// ---- Base64 ----

//
//
//

// ---- Local time ----

// ---- Byte order, directories, sockets, paths, library names ----

#endif  // ZUSTD_ZU_STD_H
