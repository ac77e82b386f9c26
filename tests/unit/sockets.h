// Sockets as the tests of the links look at them. Each function runs on the test's thread and keeps
// nothing.
//
// owned_socket closes what the library or the system has handed out when the test ends, however it
// ends.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "scripted_device.h"
#include "tcp_link.h"

namespace support
{

// A socket of the library's, closed with the test.
class owned_socket
{
public:
    explicit owned_socket(int socket) : fd(socket)
    {
    }
    ~owned_socket()
    {
        close();
    }
    owned_socket(const owned_socket&) = delete;
    owned_socket& operator=(const owned_socket&) = delete;

    void close()
    {
        if (fd != -1) {
            ::close(fd);
            fd = -1;
        }
    }
    operator int() const // NOLINT(google-explicit-constructor): it stands for its number
    {
        return fd;
    }

private:
    int fd;
};

inline sockaddr_in loopback_address(unsigned short port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

inline int tcp_state(int fd)
{
    tcp_info info = {};
    socklen_t length = sizeof(info);
    getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &length);
    return info.tcpi_state;
}

inline bool is_blocking(int fd)
{
    return (fcntl(fd, F_GETFL) & O_NONBLOCK) == 0;
}

inline bool is_open(int fd)
{
    return fcntl(fd, F_GETFD) != -1;
}

inline bool closes_on_exec(int fd)
{
    return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

// A port that refuses for as long as this lives: nobody listens there.
class refusing_port
{
public:
    refusing_port()
    {
        device.refuse();
    }
    operator unsigned short() const // NOLINT(google-explicit-constructor): it stands for its number
    {
        return device.port();
    }

private:
    scripted_device device;
};

// A connection of the library's to a device, and the device's end of it.
struct connection {
    scripted_device device;
    owned_socket sock{tcp_ext_connect("127.0.0.1", device.port(), 1000)};
    peer end{device.accept()};
};

} // namespace support
