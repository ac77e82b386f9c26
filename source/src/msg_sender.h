// Bytes out: the sender thread of a connection, the only writer of its TCP socket.
//
// It forwards each request datagram from the loopback socket to the device, stamped with the port
// that waits for the response, and keeps the link alive with heartbeats. It closes nothing: when it
// ends, msgsender_started tells the device manager, which tears the link down.
#pragma once

// The thread. Its argument is the record, held for it and with a link held for it by the starter.
// msgsender_run is 1 beforehand.
void* sdk_msgsender_main(void* sdk_user);
