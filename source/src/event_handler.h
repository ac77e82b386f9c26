// Event delivery: one short-lived, detached thread per event.
//
// The device manager and the receiver start a handler; it calls the application's event callback
// once, with the code it finds in the record when it runs (a newer event may have replaced the one
// it was started for) and ends. A handler holds its record, so it may outlive the login.
#pragma once

#include "sdk_user.h"

// Stores `event` and starts a handler for it. False when the thread can't be created: the event is
// lost, and the caller writes the line.
bool event_handler_start(zu_sdk_user* user, int event);

// Ends the event callbacks of a login: from now on none begins. Waits for those that are running,
// five seconds at most (a callback may wait for a lock that our caller holds), and not at all when
// called from an event callback itself.
void event_handler_finish(zu_sdk_user* user);

// The thread. Calls the callback without testing it for null; its starters do.
void* sdk_eventhandler_main(void* sdk_user);
