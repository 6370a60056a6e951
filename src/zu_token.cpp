#include "zu_token.h"
