// Holding, opening and shutting a port. Both sockets allow address reuse, which lets them share the
// port as long as at most one of them listens, and lets a camera start on a port whose former
// connections the system still remembers. While one listens, any other program gets an error. The
// holding socket never listens, so the system refuses connections while the other one is closed; it
// keeps the port from being chosen by the system, but not from a program that asks for this very
// port and allows reuse, as another camera does. Then opening fails.
#include "listener.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace zucam
{

namespace
{

constexpr int waiting_connections = 512;

sockaddr_in socket_address(const std::string& address, std::uint16_t port)
{
    sockaddr_in out{};
    out.sin_family = AF_INET;
    out.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &out.sin_addr) != 1) {
        throw std::runtime_error("'" + address +
                                 "' is no IPv4 address; give one such as 127.0.0.1 or 0.0.0.0");
    }
    return out;
}

std::uint16_t bound_port(int socket)
{
    sockaddr_in own{};
    socklen_t size = sizeof own;
    (void)getsockname(socket, reinterpret_cast<sockaddr*>(&own), &size);
    return ntohs(own.sin_port);
}

[[noreturn]] void fail(const std::string& address, std::uint16_t port, int error)
{
    throw std::runtime_error("cannot listen on " + address + ":" + std::to_string(port) + ": " +
                             std::strerror(error) +
                             "; give an address of this machine and a free port (0 = any)");
}

} // namespace

listener::listener(const std::string& address, std::uint16_t port) : address_(address)
{
    holder_ = bind_socket(port);
    port_ = bound_port(holder_);
}

listener::~listener()
{
    shut();
    (void)close(holder_);
}

int listener::bind_socket(std::uint16_t port) const
{
    const sockaddr_in own = socket_address(address_, port);
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (made < 0) {
        fail(address_, port, errno);
    }
    const int yes = 1;
    (void)setsockopt(made, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (bind(made, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
        const int error = errno;
        (void)close(made);
        fail(address_, port, error);
    }
    return made;
}

std::uint16_t listener::port() const
{
    return port_;
}

void listener::open()
{
    if (is_open()) {
        return;
    }
    const int made = bind_socket(port_);
    if (listen(made, waiting_connections) != 0) {
        const int error = errno;
        (void)close(made);
        fail(address_, port_, error);
    }
    listening_ = made;
}

void listener::shut()
{
    if (is_open()) {
        (void)close(listening_);
        listening_ = -1;
    }
}

bool listener::is_open() const
{
    return listening_ >= 0;
}

int listener::descriptor() const
{
    return listening_;
}

int listener::accept_one() const
{
    const int made = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
    if (made >= 0) {
        const int yes = 1;
        (void)setsockopt(made, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    }
    return made;
}

} // namespace zucam
