// The query that runtimes make before they load a network.
#include "tarvu.h"

// Kept: always 0. Nothing about a network can be refused here, since the library sees one layer at a time.
int32_t nn_check_net_parm(void) { return 0; }
