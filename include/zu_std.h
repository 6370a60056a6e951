// zu_std: memory and text helpers, the base64 codec CZUBase64, local-time helpers, and the
// byte-order, directory-test, socket start-up, path and library-name helpers.
// Thread safety: every function may be called from any thread; conversions to local time
// are serialised by one process-wide lock.
#ifndef ZUSTD_ZU_STD_H
#define ZUSTD_ZU_STD_H

#include <ctime>
#include <string>

#include "zu_export.h"
#include "zu_string.h"

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

// Base64 of RFC 4648: standard alphabet, '=' padding, no line breaks. The operations use no
// object state, so any instance (even a temporary) serves; both are re-entrant. Copyable.
class ZUSTD_API CZUBase64 {
 public:
  // The 64-character alphabet "A-Za-z0-9+/", statically initialised.
  static const char* base64char;

  // Writes the 4 * ceil(len / 3) characters of the len bytes at in, then a NUL; out must
  // hold that many plus one. A len below 1 or a null in writes only the NUL. Returns out
  // (null for a null out, nothing written).
  char* base64_encode(const unsigned char* in, char* out, int len);
  // Decodes the NUL-terminated text in into out (3 bytes per 4 characters) and returns the
  // number of bytes written; 0 for an empty or null text or a null out. Nothing is
  // validated: a byte outside the alphabet counts as all six bits set. Decoding stops at the
  // first group whose third or fourth character is '='. A last group cut short by the
  // terminator is decoded as if padded: 2 or 3 characters give 1 or 2 bytes, a lone
  // character gives nothing; nothing past the terminator is read.
  int base64_decode(const char* in, unsigned char* out);
};

// ---- Local time ----
// Broken-down local time and wall-clock readings. time_t is the platform's: on 32-bit ARM it
// is 32 bits wide, so instants after 2038-01-19 03:14:07 UTC cannot be held on that target.
// Every conversion to local time, from any thread, is serialised by one process-wide lock.

// Broken-down local time, eight unsigned 16-bit fields. Copyable.
struct STimeInfo {
  unsigned short wYear;          // full year
  unsigned short wMonth;         // 1..12
  unsigned short wDay;           // 1..31
  unsigned short wHour;          // 0..23
  unsigned short wMinute;        // 0..59
  unsigned short wSecond;        // 0..60
  unsigned short wMilliseconds;  // 0..999, set only by ka_get_current_mtime, otherwise 0
  unsigned short wReserved;      // never written by the library
};
static_assert(sizeof(STimeInfo) == 16, "STimeInfo is eight 16-bit fields");

// A wall-clock reading for measuring intervals (see ka_get_current_interval_mtime). Copyable.
struct SIntervalMTime {
  time_t tSecond;               // whole seconds since the epoch
  unsigned short wMillisecond;  // microseconds / 1000, 0..999
};
static_assert(sizeof(SIntervalMTime) == 2 * sizeof(time_t), "time_t followed by 16 bits");

// Local time of *pTime in the process's time zone; wMilliseconds and wReserved are 0.
// A null pTime, or an instant the platform cannot convert, gives an all-zero record.
ZUSTD_API STimeInfo ka_localtime(const time_t* pTime);
// Day of the week of *pTime, 0 = Sunday .. 6 = Saturday; -1 for null or unconvertible.
ZUSTD_API int ka_localtime_week(const time_t* pTime);
// Day of the year of *pTime, 0 = 1 January .. 365; -1 for null or unconvertible.
ZUSTD_API int ka_localtime_dayofyear(const time_t* pTime);

// Elapsed milliseconds from the reading `start` to the later reading `now`, by the rule every
// time-out of the library uses: (millisecond difference) + (second difference) * 1000, taken
// as an unsigned 32-bit number. The clock is the wall clock: when it was set backwards the
// difference wraps to a huge value and the caller's time-out ends at once (required).
inline unsigned int ka_elapsed_mtime(const SIntervalMTime& start, const SIntervalMTime& now) {
  const unsigned int seconds =
      static_cast<unsigned int>(now.tSecond) - static_cast<unsigned int>(start.tSecond);
  const unsigned int millis =
      static_cast<unsigned int>(now.wMillisecond) - static_cast<unsigned int>(start.wMillisecond);
  return seconds * 1000u + millis;
}

// ---- Byte order, directories, sockets, paths, library names ----
// Small platform helpers. Byte order and socket start-up exist so that code written for other
// platforms links unchanged; here they do nothing. None of these functions locks.

// Returns pData untouched: the target's byte order is the library's order.
ZUSTD_API void* ka_byteorder(void* pData, int nLen);
// True for any existing path, a plain file included (access F_OK); false for null.
ZUSTD_API bool ka_is_dir_exist(const char* szPath);
// Always true; nothing to start on this platform.
ZUSTD_API bool ka_startup_socket();
// Does nothing.
ZUSTD_API void ka_cleanup_socket();
// szPath trimmed of blanks (space, tab, CR, LF) at both ends; a leading "$NAME/" is replaced
// by the value of the environment variable NAME ("  $HOME/etc/a.ini " -> "/home/u/etc/a.ini").
// An unset variable gives the empty string. Without a "/" the whole text, "$" included, is
// looked up as the name (so "$HOME" alone is normally empty; kept). Null gives empty.
ZUSTD_API std::string ka_get_path_name(const char* szPath);
// "lib" + szName + ".so", built in an 80-byte buffer: szName may have at most 73 characters.
// A longer name, or null, gives the empty string rather than a cut or overflowing name.
ZUSTD_API CKAString ka_get_dll_name(const char* szName);

#endif  // ZUSTD_ZU_STD_H
