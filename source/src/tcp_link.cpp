// The TCP connection to a device. See tcp_link.h.
//
// Connecting is unforgiving on purpose: only a socket that is writable, and not readable with it,
// counts as connected at once. Options that can't be set are done without. Runs on the device
// manager thread, or on whichever thread calls an exported routine; keeps no state.
#include "tcp_link.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "fd_wait.h"
#include "log.h"

namespace
{

sockaddr_in device_address(const char* address, unsigned short port)
{
    sockaddr_in device = {};
    device.sin_family = AF_INET;
    device.sin_port = htons(port);
    inet_pton(AF_INET, address, &device.sin_addr); // what it can't parse stays 0.0.0.0
    return device;
}

int connect_to(int sock, const sockaddr_in& device)
{
    return connect(sock, reinterpret_cast<const sockaddr*>(&device), sizeof(device));
}

void set_option(int sock, int level, int name, int value)
{
    setsockopt(sock, level, name, &value, sizeof(value));
}

// A device that falls silent is given up about two seconds later, and a write never blocks longer
// than three.
void set_link_options(int sock)
{
    const timeval tv_rcv = {3, 0};
    const timeval tv_snd = {3, 0};
    set_option(sock, IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(sock, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(sock, IPPROTO_TCP, TCP_KEEPIDLE, 1);
    set_option(sock, IPPROTO_TCP, TCP_KEEPINTVL, 1);
    set_option(sock, IPPROTO_TCP, TCP_KEEPCNT, 1);
    setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &tv_rcv, sizeof(tv_rcv));
    setsockopt(sock, SOL_SOCKET, SO_SNDTIMEO, &tv_snd, sizeof(tv_snd));
}

bool connect_blocking(const char* who, int sock, const sockaddr_in& device)
{
    if (connect_to(sock, device) < 0) {
        if (log_wanted(log_at_error_levels)) {
            perror("connectBloking");
        }
        LOG_ERROR(who, "connect fail!\n");
        return false;
    }
    LOG_LINE(log_at_trace_level, ZU_LOG_TYPE_ERROR, who, "connect success\n");
    return true;
}

// Decides about a socket that is both writable and readable. A peer that has already sent data
// looks like a failed connect here, so a second connect has the last word, then the pending error.
bool connected_after_all(const char* who, int sock, const sockaddr_in& device)
{
    if (connect_to(sock, device) == 0) {
        return true;
    }
    int error = 0;
    if (!read_socket_error(sock, &error)) {
        LOG_ERROR(who, "get socket option fail!\n");
        return false;
    }
    return error == EISCONN;
}

bool connect_within(const char* who, int sock, const sockaddr_in& device, int limit_ms)
{
    if (connect_to(sock, device) == 0) {
        return true;
    }
    if (errno != EINPROGRESS) {
        return false;
    }
    const timeval limit = {limit_ms / 1000, static_cast<suseconds_t>(limit_ms % 1000) * 1000};
    fd_watch watch = {sock, fd_readable | fd_writable, 0};
    if (fd_wait(&watch, 1, limit) <= 0 || (watch.ready & fd_writable) == 0) {
        return false;
    }
    if ((watch.ready & fd_readable) == 0) {
        return true;
    }
    return connected_after_all(who, sock, device);
}

bool connect_non_blocking(const char* who, int sock, const sockaddr_in& device, int limit_ms)
{
    const int oldOption = fcntl(sock, F_GETFL);
    const int newOption = oldOption | O_NONBLOCK;
    fcntl(sock, F_SETFL, newOption);
    if (!connect_within(who, sock, device, limit_ms)) {
        return false;
    }
    fcntl(sock, F_SETFL, oldOption);
    return true;
}

} // namespace

void set_close_on_exec(int fd)
{
    fcntl(fd, F_SETFD, FD_CLOEXEC);
}

bool read_socket_error(int sockfd, int* error)
{
    socklen_t length = sizeof(*error);
    return getsockopt(sockfd, SOL_SOCKET, SO_ERROR, error, &length) == 0;
}

int tcp_ext_connect(const char* address, unsigned short port, int blockTimeMs)
{
    const sockaddr_in device = device_address(address, port);
    const int sock = socket(AF_INET, SOCK_STREAM, 0);
    // Without a socket the connect fails like any other, with that path's lines.
    set_close_on_exec(sock);
    set_link_options(sock);
    const bool connected = blockTimeMs == -1
                               ? connect_blocking(__func__, sock, device)
                               : connect_non_blocking(__func__, sock, device, blockTimeMs);
    if (!connected) {
        close(sock);
        return -1;
    }
    return sock;
}

int sdk_send_to_tcp(int fd, const void* p, int len)
{
    const char* next = static_cast<const char*>(p);
    int total = 0;
    int tmp_len = len;
    for (;;) {
        const int ret = static_cast<int>(send(fd, next, tmp_len, 0));
        if (ret <= 0) {
            LOG_ERROR(__func__, "send fail ret != EINTR, ret: %d\n", ret);
            return -1;
        }
        total += ret;
        tmp_len -= ret;
        next += ret;
        if (total == len) {
            return 0;
        }
    }
}

int check_tcp_socket_status(int sockfd)
{
    static_assert(sizeof(tcp_info) == 104, "the length that is asked of the kernel");
    tcp_info info = {};
    socklen_t length = sizeof(info);
    getsockopt(sockfd, IPPROTO_TCP, TCP_INFO, &info, &length);
    if (info.tcpi_state == TCP_ESTABLISHED) {
        return 0;
    }
    LOG_LINE(log_at_every_level, ZU_LOG_TYPE_TRACE, __func__, "client is disconnected !\n");
    return -1;
}
