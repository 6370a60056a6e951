// zu_socket_unix: not yet written.
#ifndef ZUSTD_ZU_SOCKET_UNIX_H
#define ZUSTD_ZU_SOCKET_UNIX_H

#include "zu_export.h"

#endif  // ZUSTD_ZU_SOCKET_UNIX_H
