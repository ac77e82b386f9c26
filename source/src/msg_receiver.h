// Bytes in: the receiver thread of a connection, the only reader of its TCP socket.
//
// It cuts the stream into messages, relays each response to the loopback port that waits for it,
// makes an event of each heartbeat answer and hands stream data to the stream callback. It closes
// nothing: when it ends, msgrecver_started tells the device manager, which tears the link down.
#pragma once

// The thread. Its argument is the record, held for it and with a link held for it by the starter.
// msgrecver_run is 1 beforehand.
void* sdk_msgrecver_main(void* sdk_user);
