// zu_global_unix: process and file-system services with a uniform face: millisecond sleep,
// wall clock readings, becoming a daemon, ignoring signals, creating and removing directory
// trees. The structures STimeInfo and SIntervalMTime and the elapsed-time rule ka_elapsed_mtime
// are declared in zu_std.h.
// Thread safety: the functions take no lock of their own and may be called from any thread,
// except ka_daemon_init (before any thread is created) and ka_ignore_signal (process-wide).
#ifndef ZUSTD_ZU_GLOBAL_UNIX_H
#define ZUSTD_ZU_GLOBAL_UNIX_H

#include "zu_export.h"
#include "zu_std.h"
#include "zu_string.h"

// Sleeps nMilliseconds; a negative value returns at once, 0 only yields. A signal that arrives
// meanwhile does not shorten the sleep.
ZUSTD_API void ka_sleep(int nMilliseconds);

// Local time now (time(NULL)); wMilliseconds and wReserved are 0.
ZUSTD_API STimeInfo ka_get_current_time();
// Local time now with milliseconds (gettimeofday); wReserved is 0.
ZUSTD_API STimeInfo ka_get_current_mtime();
// Wall-clock reading (gettimeofday): seconds and microseconds / 1000. Measure intervals
// between two readings with ka_elapsed_mtime.
ZUSTD_API SIntervalMTime ka_get_current_interval_mtime();

// Detaches into the background: forks and the parent exits with status 0; the child starts a
// new session and, when bForkTwice, forks again (the parent exits 0) so that it can never
// reacquire a terminal; then descriptors 0..255 are closed, 0, 1 and 2 are opened on
// "/dev/null", the working directory becomes "/" and the umask 0. Returns 0 in the surviving
// process, -1 if a fork failed. Call it before any thread is created. The files and
// directories the library creates afterwards still never get write permission for others.
ZUSTD_API int ka_daemon_init(bool bForkTwice);

// Makes the process survive SIGINT, SIGILL, SIGFPE, SIGSEGV, SIGTERM, SIGABRT, SIGALRM,
// SIGPIPE and SIGXFSZ by ignoring them (deliberately including faults). Returns the result of
// the last sigaction, 0 on success.
ZUSTD_API int ka_ignore_signal();

// The host name (gethostname into a 128-byte buffer); a name that does not fit is cut to
// 127 bytes, and a failure gives the empty string.
ZUSTD_API CKAString ka_get_computer_name();

// Creates the directory szPath and any missing parents, with mode 0775 less the umask: never
// writable by others, also under the umask 0 that ka_daemon_init leaves.
// Inverted result, kept on purpose: false when it succeeded (the directory exists now, also if
// it existed before), true when it failed (an empty path, a component that is a file, no
// permission ...). A null szPath gives false. The path is used as data, never given to a
// shell, so blanks and shell characters are plain name characters.
ZUSTD_API bool ka_mkdir(const char* szPath);

// Removes szPath: a file, a symbolic link, or a directory with everything below it (links
// are removed, never followed). Inverted result, kept on purpose: false when it succeeded or
// there was nothing to remove, true when something could not be removed. The root directory
// and paths ending in "." or ".." are refused (true). A null szPath gives false. The path is
// never given to a shell.
ZUSTD_API bool ka_rmdir(const char* szPath);

#endif  // ZUSTD_ZU_GLOBAL_UNIX_H
