// Stream control: start, stop, key frame, and the repeated start after a reconnection.
//
// The public entry points run on the caller's thread; in_startstream is exported, but meant for the
// device manager. What was last started is remembered in stream_info and never forgotten: a stream
// that has been stopped is started again after the next reconnection.
#pragma once

#include "zu_net_dev_api.h"

extern "C" {

// Asks the device again for the remembered stream, four times at most. Returns the device's
// response code, or -1. Blocks for up to four exchanges and three seconds.
ZU_NET_DEV_EXPORT int in_startstream(ZU_U32 u32Handle);
}
