// The version query.
#include "tarvu.h"

const char *prebuilt_ai_get_lib_version(void) { return "02.19.2406110"; }
