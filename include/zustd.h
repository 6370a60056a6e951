// zustd: the whole public interface of libzustd in one include.
#ifndef ZUSTD_ZUSTD_H
#define ZUSTD_ZUSTD_H

#include "zu_abs.h"
#include "zu_array.h"
#include "zu_automutex.h"
#include "zu_dict.h"
#include "zu_event.h"
#include "zu_expression.h"
#include "zu_file.h"
#include "zu_global_unix.h"
#include "zu_idstr.h"
#include "zu_lib_unix.h"
#include "zu_list.h"
#include "zu_log.h"
#include "zu_map.h"
#include "zu_mutex_unix.h"
#include "zu_para.h"
#include "zu_socket_unix.h"
#include "zu_stack.h"
#include "zu_std.h"
#include "zu_string.h"
#include "zu_thread_unix.h"
#include "zu_time.h"
#include "zu_token.h"

#endif  // ZUSTD_ZUSTD_H
