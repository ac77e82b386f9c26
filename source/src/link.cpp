// The two sockets of one connection. See link.h.
//
// Opened by the device manager; held, shut down and dropped by it, by the workers and by a Logout.
// Everything that they share is an atomic: the marks decide who shuts a socket down, the count who
// closes it.
#include "link.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "fd_wait.h"
#include "log.h"
#include "tcp_link.h"

device_link* link_open(link_pool& pool, int ext_sock)
{
    // One of the three is always free, see link_pool.
    device_link* link = pool.links;
    while (link->in_use) {
        link = link == pool.links + 2 ? pool.links : link + 1;
    }
    link->in_use = true;
    link->holders = 1;
    link->ext_shut = false;
    link->int_shut = false;
    link->urgent_data = false;
    link->urgent_first = false;
    link->ext_sock = ext_sock;
    link->int_sock = -1;
    return link;
}

void link_hold(device_link* link)
{
    link->holders++;
}

void link_drop(device_link* link)
{
    if (--link->holders != 0) {
        return;
    }
    close(link->ext_sock);
    if (link->int_sock != -1) {
        close(link->int_sock);
    }
    link->in_use = false;
}

void link_let_urgent_data_be_first(device_link* link)
{
    if (!link_is_shut(link) && link_has_urgent_data(link)) {
        link->urgent_first = true;
    }
}

void link_shut_ext(device_link* link)
{
    link_let_urgent_data_be_first(link);
    if (!link->ext_shut.exchange(true)) {
        shutdown(link->ext_sock, SHUT_RDWR);
    }
}

void link_shut_int(device_link* link)
{
    link_let_urgent_data_be_first(link);
    const int int_sock = link->int_sock;
    if (int_sock != -1 && !link->int_shut.exchange(true)) {
        shutdown(int_sock, SHUT_RDWR); // wakes its reader although it is not connected
    }
}

bool link_is_shut(const device_link* link)
{
    return link->ext_shut || link->int_shut;
}

bool link_has_urgent_data(const device_link* link)
{
    return link->urgent_data || fd_look(link->ext_sock, fd_exceptional) == fd_exceptional;
}

static int bind_to_loopback(const char* who, int sock, sockaddr_in* bound)
{
    *bound = {};
    bound->sin_family = AF_INET;
    bound->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(sock, reinterpret_cast<sockaddr*>(bound), sizeof(*bound)) < 0) {
        LOG_ERROR(who, "bind fail!\n");
        return -1;
    }
    return 0;
}

int build_int_sock(std::atomic<int>* psock, std::atomic<int>* pport)
{
    LOG_TRACE(__func__, "enter build_int_sock\n");
    const int sock = socket(AF_INET, SOCK_DGRAM, 0);
    if (sock < 0) {
        LOG_ERROR(__func__, "socket fail!\n");
        return -1;
    }
    set_close_on_exec(sock);

    sockaddr_in bound;
    if (bind_to_loopback(__func__, sock, &bound) < 0) {
        LOG_TRACE(__func__, "leave build_int_sock -1\n");
        close(sock);
        return -1;
    }
    *psock = sock;
    socklen_t length = sizeof(bound);
    if (getsockname(sock, reinterpret_cast<sockaddr*>(&bound), &length) < 0) {
        LOG_ERROR(__func__, "getsockname fail!\n");
        LOG_TRACE(__func__, "leave build_int_sock -1\n");
        close(sock);
        return -1;
    }
    *pport = ntohs(bound.sin_port);
    LOG_TRACE(__func__, "leave build_int_sock\n");
    LOG_TRACE(__func__, "int_sock:%d int_port:%d\n", sock, pport->load());
    return 0;
}
