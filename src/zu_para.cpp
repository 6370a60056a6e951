#include "zu_para.h"
