// zu_std: memory and text helpers, base64, local-time helpers, byte order, directory test,
// socket start-up, path and library-name helpers. Not yet written.
#ifndef ZUSTD_ZU_STD_H
#define ZUSTD_ZU_STD_H

#include "zu_export.h"

// ---- Memory and text helpers ----

// ---- Base64 ----

//
//
//

// ---- Local time ----

// ---- Byte order, directories, sockets, paths, library names ----

#endif  // ZUSTD_ZU_STD_H
