// Closing a socket with something unread in it resets the connection, and what was sent last may be
// lost on the way. So the sending side is shut first and what the peer has sent so far is thrown
// away, a bounded amount of it: a peer that never pauses must not keep the thread. Requests that
// come later still find no socket and are answered by a reset.
#include "socket_end.h"

#include <array>
#include <sys/socket.h>
#include <unistd.h>

namespace zucam
{

namespace
{

constexpr int reads_at_most = 256;

} // namespace

void close_in_order(int socket)
{
    std::array<char, 16384> unread{};
    (void)shutdown(socket, SHUT_WR);
    for (int i = 0; i < reads_at_most; ++i) {
        if (recv(socket, unread.data(), unread.size(), MSG_DONTWAIT) <= 0) {
            break;
        }
    }
    (void)close(socket);
}

void close_with_reset(int socket)
{
    const linger at_once = {1, 0};
    (void)setsockopt(socket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    (void)close(socket);
}

} // namespace zucam
