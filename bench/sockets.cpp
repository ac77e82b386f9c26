// Loopback sockets. See sockets.h.
#include "sockets.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace bench
{

namespace
{

sockaddr_in loopback(unsigned short port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

void send_at_once(const descriptor& socket)
{
    const int on = 1;
    setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

unsigned short bind_to_loopback(const descriptor& socket)
{
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof(address);
    demand(bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0, "bind");
    demand(getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &length) == 0,
           "getsockname");
    return ntohs(address.sin_port);
}

} // namespace

descriptor::~descriptor()
{
    if (fd != -1) {
        close(fd);
    }
}

descriptor::descriptor(descriptor&& other) noexcept : fd(other.release())
{
}

descriptor& descriptor::operator=(descriptor&& other) noexcept
{
    descriptor former(std::exchange(fd, other.release()));
    return *this;
}

int descriptor::release()
{
    return std::exchange(fd, -1);
}

descriptor listen_on_loopback(unsigned short* port)
{
    descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    *port = bind_to_loopback(listener);
    demand(listen(listener.get(), 1024) == 0, "listen");
    return listener;
}

descriptor connect_to_loopback(unsigned short port)
{
    descriptor link(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = loopback(port);
    demand(connect(link.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0,
           "connect");
    send_at_once(link);
    return link;
}

descriptor accept_one(const descriptor& listener)
{
    descriptor link(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    demand(link.get() != -1, "accept");
    send_at_once(link);
    return link;
}

descriptor datagrams_on_loopback(unsigned short* port)
{
    descriptor datagrams(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    *port = bind_to_loopback(datagrams);
    return datagrams;
}

bool send_all(int fd, const void* data, std::size_t size)
{
    const char* next = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t sent = send(fd, next, size, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        next += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

void demand(bool good, const std::string& what)
{
    if (!good) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void allow_many_descriptors()
{
    rlimit limit = {};
    demand(getrlimit(RLIMIT_NOFILE, &limit) == 0, "getrlimit");
    limit.rlim_cur = limit.rlim_max;
    demand(setrlimit(RLIMIT_NOFILE, &limit) == 0, "setrlimit");
}

} // namespace bench
