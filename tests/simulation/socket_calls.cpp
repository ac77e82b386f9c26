// The calls of sockets. See calls.h.
#include "calls.h"

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

using namespace sim;

namespace
{

constexpr size_t largest_datagram = 65507; // of UDP over IPv4

unsigned short port_of(const sockaddr* address)
{
    sockaddr_in in;
    memcpy(&in, address, sizeof(in));
    return ntohs(in.sin_port);
}

void set_address(sockaddr* address, unsigned short port)
{
    sockaddr_in in = {};
    in.sin_family = AF_INET;
    in.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    in.sin_port = htons(port);
    memcpy(address, &in, sizeof(in));
}

int take_error(const descriptor_ref& socket)
{
    const int error = socket->pending_error;
    socket->pending_error = 0;
    return error;
}

ssize_t receive_tcp(const entered& c, const descriptor_ref& socket, void* into, size_t room,
                    int flags)
{
    const bool there = socket->readable() || !socket->inbound.empty(); // below the mark too
    if (!there && ((flags & MSG_DONTWAIT) != 0)) {
        return c.fail(EAGAIN);
    }
    block_until(c, "recv", socket, [&] { return there || socket->readable(); });
    if (!socket->inbound.empty()) {
        socket->urgent = false; // a read passes its mark
        return take(socket->inbound, into, room);
    }
    if (socket->pending_error != 0) {
        return c.fail(take_error(socket));
    }
    if (socket->state == tcp_state::fresh) {
        return c.fail(ENOTCONN);
    }
    c.on.threads.spend(c.on.fruitless_time);
    return 0;
}

ssize_t receive_udp(const entered& c, const descriptor_ref& socket, void* into, size_t room,
                    unsigned short* from)
{
    block_until(c, "recvfrom", socket, [&] { return socket->readable(); });
    if (socket->datagrams.empty()) {
        c.on.threads.spend(c.on.fruitless_time);
        return 0; // shut down
    }
    datagram first = std::move(socket->datagrams.front());
    socket->datagrams.pop_front();
    *from = first.from;
    return take(first.bytes, into, room); // what has no room is lost
}

ssize_t send_tcp(const entered& c, const descriptor_ref& socket, const void* data, size_t size)
{
    const micros until = socket->send_limit == never ? never : c.on.now() + socket->send_limit;
    if (!block_until(
            c, "send", socket, [&] { return socket->writable(); }, until)) {
        return c.fail(EAGAIN);
    }
    if (socket->pending_error != 0) {
        return c.fail(take_error(socket));
    }
    if (socket->shut_for_writing || socket->to == nullptr) {
        return c.fail(EPIPE);
    }
    c.on.send_to_device(socket, text_of(data, size));
    return static_cast<ssize_t>(size);
}

ssize_t send_datagram(const entered& c, const descriptor_ref& socket, const void* data, size_t size,
                      const sockaddr* to)
{
    if (socket->port == 0) {
        socket->port = c.on.descriptors.free_port();
    }
    if (socket->shut_for_writing) {
        return c.fail(EPIPE);
    }
    if (size > largest_datagram) {
        return c.fail(EMSGSIZE);
    }
    if (const descriptor_ref there = c.on.descriptors.bound_to(port_of(to))) {
        there->datagrams.push_back({text_of(data, size), socket->port});
    }
    return static_cast<ssize_t>(size);
}

} // namespace

extern "C" {

int sim_socket(int, int type, int)
{
    const entered c("socket", FROM);
    return c.fails() ? -1 : c.on.descriptors.open(type == SOCK_STREAM ? kind::tcp : kind::udp);
}

int sim_bind(int fd, const sockaddr*, socklen_t)
{
    const entered c("bind", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    socket->port = c.on.descriptors.free_port();
    return 0;
}

int sim_getsockname(int fd, sockaddr* address, socklen_t*)
{
    const entered c("getsockname", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    set_address(address, socket->port);
    return 0;
}

int sim_connect(int fd, const sockaddr* to, socklen_t)
{
    const entered c("connect", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    return socket == nullptr ? -1 : c.on.connect(socket, port_of(to));
}

int sim_shutdown(int fd, int)
{
    const entered c("shutdown", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    c.on.shut(socket, true, true);
    if (socket->is == kind::udp) {
        return c.fail(ENOTCONN); // and yet it has woken whoever reads
    }
    return 0;
}

int sim_setsockopt(int fd, int level, int name, const void* value, socklen_t)
{
    const entered c("setsockopt", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    if (level == SOL_SOCKET && name == SO_SNDTIMEO) {
        timeval time;
        memcpy(&time, value, sizeof(time));
        socket->send_limit = time.tv_sec * seconds + time.tv_usec;
    }
    if (level == SOL_SOCKET && name == SO_RCVLOWAT) {
        int mark;
        memcpy(&mark, value, sizeof(mark));
        socket->low_mark = static_cast<size_t>(mark);
    }
    return 0;
}

int sim_getsockopt(int fd, int level, int name, void* value, socklen_t* length)
{
    const entered c("getsockopt", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    if (level == SOL_SOCKET && name == SO_ERROR) {
        const int error = take_error(socket);
        memcpy(value, &error, sizeof(error));
        return 0;
    }
    static const unsigned char states[] = {7, 2, 7, 1, 8, 5, 7}; // as tcp_state, in Linux's numbers
    tcp_info info = {};
    info.tcpi_state = states[static_cast<int>(socket->state)];
    memcpy(value, &info, *length);
    return 0;
}

ssize_t sim_recv(int fd, void* into, size_t room, int flags)
{
    const entered c("recv", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    unsigned short from = 0;
    return socket->is == kind::udp ? receive_udp(c, socket, into, c.limited(room), &from)
                                   : receive_tcp(c, socket, into, c.limited(room), flags);
}

int sim_ioctl(int fd, unsigned long, int* queued) // FIONREAD
{
    const entered c("ioctl", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    *queued = static_cast<int>(socket->inbound.size());
    return 0;
}

ssize_t sim_recvfrom(int fd, void* into, size_t room, int, sockaddr* address, socklen_t*)
{
    const entered c("recvfrom", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    unsigned short from = 0;
    const ssize_t count = receive_udp(c, socket, into, c.limited(room), &from);
    set_address(address, from);
    return count;
}

ssize_t sim_send(int fd, const void* data, size_t size, int)
{
    const entered c("send", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    return socket == nullptr ? -1 : send_tcp(c, socket, data, c.limited(size));
}

ssize_t sim_sendto(int fd, const void* data, size_t size, int, const sockaddr* to, socklen_t)
{
    const entered c("sendto", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    return socket == nullptr ? -1 : send_datagram(c, socket, data, c.limited(size), to);
}
}
