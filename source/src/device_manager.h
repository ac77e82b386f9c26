// The life of a connection: the device manager thread, one per login.
//
// It connects to the device, builds the loopback socket, starts and watches both workers, restarts
// the stream, tells the application, tears down after a loss, waits three seconds and connects
// again, until devmanager_run is cleared.
#pragma once

#include "sdk_user.h"

// The thread. Its argument is the record, held for it by the starter. Its result is -1 when a
// worker could not be created: then the sockets, and perhaps the receiver, are left to whoever ends
// the login.
void* sdk_devmanager_main(void* sdk_user);

// Waits until the workers that have been created have ended. Device manager, and after its end
// whoever ends the login.
void join_workers(zu_sdk_user* user);
