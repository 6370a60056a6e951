#include "zu_socket_unix.h"
