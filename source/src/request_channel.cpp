// The request pattern and the loopback exchange. See request_channel.h.
//
// The first datagram that arrives on the socket is the reply, whoever sent it and whatever it says.
// Both ends of the wait other than a datagram, the time limit and a failing wait, exist only at
// log levels 1 and 2. Both are the designed behaviour.
#include "request_channel.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "fd_wait.h"
#include "log.h"

namespace
{

constexpr char who_exchanges[] = "udp_tx_rx";
constexpr timeval poll_interval = {0, 30000};
constexpr int reply_limit_s = 3; // the wait ends once more whole seconds than this have passed

sockaddr_in loopback_address(int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<in_port_t>(port));
    return address;
}

// Waits until the socket is readable; false when the wait has failed.
bool wait_for_reply(int sock, time_t last_time)
{
    for (;;) {
        fd_watch watch = {sock, fd_readable, 0};
        const int ret = fd_wait(&watch, 1, poll_interval);
        if (ret > 0) {
            return true;
        }
        if (ret == 0 && time(nullptr) - last_time <= reply_limit_s) {
            continue;
        }
        if (!log_wanted(log_at_error_levels)) {
            continue;
        }
        if (ret == 0) {
            LOG_ERROR(who_exchanges, "select wait for %d seconds timeout!\n", reply_limit_s);
        } else {
            LOG_ERROR(who_exchanges, "select faill!\n");
        }
        return false;
    }
}

int receive_reply(int sock, void* rxbuf, int* rxlen)
{
    const int length = static_cast<int>(recv(sock, rxbuf, request_block_size, 0));
    if (length == -1) {
        if (log_wanted(log_at_error_levels)) {
            perror("recv fail for:");
        }
        LOG_ERROR(who_exchanges, "recv fail!, sock: %d\n", sock);
        *rxlen = 0;
        return -1;
    }
    LOG_TRACE(who_exchanges, "recv len:%d\n", length);
    *rxlen = length;
    return length;
}

int exchange(int sock, int int_port, const void* txbuf, int txlen, void* rxbuf, int* rxlen)
{
    const sockaddr_in to = loopback_address(int_port);
    LOG_TRACE(who_exchanges, "sendto port:%d len:%d\n", int_port, txlen);
    if (sendto(sock, txbuf, txlen, 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to)) == -1) {
        LOG_ERROR(who_exchanges, "socket fail!, sock: %d\n", sock);
        return -1;
    }
    if (!wait_for_reply(sock, time(nullptr))) {
        return -1;
    }
    return receive_reply(sock, rxbuf, rxlen);
}

} // namespace

request_block make_request(int type, int payload_size)
{
    request_block block = {};
    block.msg.head.type = type;
    block.msg.head.len = payload_size;
    return block;
}

bool exchange_request(const char* who, zu_sdk_user* user, request_block* block)
{
    int msglen = static_cast<int>(sizeof(zu_sdk_msg_head)) + block->msg.head.len;
    if (udp_tx_rx(user, block, msglen, block, &msglen) == -1) {
        LOG_ERROR(who, "write faill!\n");
        return false;
    }
    return true;
}

int run_request(const char* who, zu_sdk_user* user, request_block* block)
{
    if (!exchange_request(who, user, block)) {
        return -1;
    }
    const int retcode = block->msg.payload.response.retcode;
    LOG_TRACE(who, "get response code:%d\n", retcode);
    LOG_TRACE(who, "leave %s\n", who);
    return retcode;
}

int udp_tx_rx(zu_sdk_user* sdk_user, void* txbuf, int txlen, void* rxbuf, int* rxlen)
{
    const int int_port = sdk_user->int_port;
    LOG_TRACE(__func__, "enter udp_tx_rx\n");
    const int sock = socket(AF_INET, SOCK_DGRAM, 0);
    if (sock < 0) {
        LOG_ERROR(__func__, "socket fail!\n");
        return -1;
    }
    LOG_TRACE(__func__, "sock: %d\n", sock);
    const int length = exchange(sock, int_port, txbuf, txlen, rxbuf, rxlen);
    close(sock);
    LOG_LINE(log_at_error_levels, ZU_LOG_TYPE_TRACE, __func__, "leave udp_tx_rx\n");
    return length;
}
