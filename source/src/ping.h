// The reachability probe: runs the system's "ping" program once. Exported; nothing in the library
// calls it. Runs on the caller's thread.
#pragma once

#include "zu_net_dev_api.h"

extern "C" {

// Returns 0 when `ip` answered within a second, otherwise -1 (also when "ping" can't be run).
ZU_NET_DEV_EXPORT int ping_status(const char* ip);
}
