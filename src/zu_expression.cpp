#include "zu_expression.h"
