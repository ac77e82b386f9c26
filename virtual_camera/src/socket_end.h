// How the camera ends a connection: in order, or by a reset. Used by the thread that owns the
// socket; never waits for the peer.
#ifndef ZUCAM_SOCKET_END_H
#define ZUCAM_SOCKET_END_H

namespace zucam
{

// What was handed to the system still reaches the peer, and then the end does.
void close_in_order(int socket);

// The peer gets a reset.
void close_with_reset(int socket);

} // namespace zucam

#endif
