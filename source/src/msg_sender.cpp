// Bytes out. See msg_sender.h.
//
// Everything here runs on the sender thread. `pass` and the functions below it answer whether the
// thread goes on; `ret` then holds the number for the exit line. A problem with one request costs
// that request; a problem with the link ends the thread.
#include "msg_sender.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "fd_wait.h"
#include "log.h"
#include "sdk_user.h"
#include "tcp_link.h"
#include "zu_net_dev_msg.h"

namespace
{

constexpr char who[] = "sdk_msgsender_main";
constexpr int header_size = sizeof(zu_sdk_msg_head);
constexpr timeval heartbeat_interval = {0, 500000}; // how often the need for one is looked at
constexpr int heartbeat_after_s = 2; // more whole seconds than this without a request
constexpr int max_retry = 3;
constexpr useconds_t retry_pause_us = 100000;
constexpr useconds_t exit_pause_us = 10000;

struct sender {
    zu_sdk_user* user;
    device_link* link;
    int int_sock;
    int ext_sock;
    int pipe;
    time_t last_time; // of the last request or heartbeat
    int ret;          // result of the last call, for the exit line

    zu_sdk_msg_head* head() const
    {
        return reinterpret_cast<zu_sdk_msg_head*>(user->msgsender_buf);
    }
};

// ---- heartbeat ---------------------------------------------------------------------------------

bool send_heartbeat_once(sender& s)
{
    s.ret = static_cast<int>(send(s.ext_sock, s.user->msgsender_buf, header_size, 0));
    if (s.ret <= 0) {
        return false;
    }
    s.last_time = time(nullptr);
    return true;
}

bool retry_heartbeat(sender& s)
{
    int retry_count = max_retry;
    while (--retry_count > 0) {
        usleep(retry_pause_us);
        if (send_heartbeat_once(s)) {
            return true;
        }
        if (errno != EAGAIN && errno != EINTR) {
            LOG_ERROR(who, "Heart beat send error: %s\n", strerror(errno));
            break;
        }
    }
    LOG_ERROR(who, "Heart beat send failed after %d retries: %s\n", max_retry - 1, strerror(errno));
    return false;
}

// wait_port keeps what the last request left there: the answer is never relayed.
bool send_heartbeat(sender& s)
{
    s.head()->type = ZU_SDK_MSG_REQ_HEARTBEAT;
    s.head()->len = 0;
    if (send_heartbeat_once(s)) {
        return true;
    }
    int error = 0;
    if (!read_socket_error(s.ext_sock, &error) || error != 0) {
        LOG_ERROR(who, "Socket error detected: %s\n", strerror(error));
        return false;
    }
    return retry_heartbeat(s);
}

bool wait_timed_out(sender& s)
{
    int error = 0;
    if (!read_socket_error(s.ext_sock, &error) || error != 0) {
        LOG_ERROR(who, "Socket error detected during timeout: %s\n", strerror(error));
        return false;
    }
    if (time(nullptr) - s.last_time > heartbeat_after_s) {
        return send_heartbeat(s);
    }
    return true;
}

// ---- requests ----------------------------------------------------------------------------------

// Reads one request datagram and stamps the requester's port into it. A link that was shut down
// meanwhile makes a failed or empty read look as if the descriptor had been closed.
int receive_request(const sender& s)
{
    sockaddr_in peer_addr = {};
    socklen_t peer_addr_len = sizeof(peer_addr);
    const int count =
        static_cast<int>(recvfrom(s.int_sock, s.user->msgsender_buf, msgsender_buf_size, 0,
                                  reinterpret_cast<sockaddr*>(&peer_addr), &peer_addr_len));
    if (count <= 0 && link_is_shut(s.link)) {
        errno = EBADF;
        return -1;
    }
    if (count >= header_size) {
        s.head()->wait_port = peer_addr.sin_port; // as the address holds it, in network byte order
    }
    return count;
}

// One plain send; what it leaves unsent is lost, and the three-second limit of the socket bounds
// it.
bool send_out(sender& s, int count)
{
    LOG_TRACE(who, "recv msg(%d bytes) from port:%d, then send out.\n", count, s.head()->wait_port);
    s.ret = static_cast<int>(send(s.ext_sock, s.user->msgsender_buf, count, 0));
    if (s.ret <= 0) {
        LOG_ERROR(who, "send faill!\n");
        return false;
    }
    return true;
}

bool forward_request(sender& s)
{
    s.last_time = time(nullptr); // any datagram counts, a bad one too
    s.ret = receive_request(s);
    if (s.ret == -1) {
        LOG_ERROR(who, "recv data msg fail!\n");
        return true;
    }
    if (s.ret == 0) {
        LOG_LINE(log_at_every_level, ZU_LOG_TYPE_ERROR, who, "recvfrom ret: %d, break\n", 0);
        return false;
    }
    if (s.ret < header_size) {
        LOG_ERROR(who, "msg too short:%d\n", s.ret);
        return true;
    }
    return send_out(s, s.ret);
}

// `ret` is what a wait for it would have returned.
bool urgent_data_came(sender& s, int ret)
{
    s.ret = ret;
    LOG_ERROR(who, "ext_sock exception happened!\n");
    return false;
}

// One pass: wait, then one call for the thing that has happened. Urgent data is looked for instead
// of being waited for, which would wake the thread for all that arrives on ext_sock.
bool pass(sender& s)
{
    fd_watch watches[] = {{s.int_sock, fd_readable, 0}, {s.pipe, fd_readable, 0}};
    const auto& [int_sock, pipe] = watches;
    s.ret = fd_wait(watches, 2, heartbeat_interval);
    if (link_is_shut(s.link)) {
        s.ret = -1;
    }
    if (s.link->urgent_first) { // asked after the wait and the marks, before which it was stored
        return urgent_data_came(s, 1);
    }
    if (s.ret == -1) {
        LOG_ERROR(who, "msgsender select faill!\n");
        return false;
    }
    const bool urgent_data = link_has_urgent_data(s.link);
    s.ret += urgent_data ? 1 : 0; // counts like what the wait has found
    if (pipe.ready != 0) {
        LOG_LINE(log_at_every_level, ZU_LOG_TYPE_TRACE, who,
                 "Sender thread received shutdown signal. Exiting.\n");
        return false;
    }
    if (urgent_data) {
        return urgent_data_came(s, s.ret);
    }
    if (s.ret == 0) {
        return wait_timed_out(s);
    }
    return int_sock.ready == 0 || forward_request(s);
}

} // namespace

void* sdk_msgsender_main(void* sdk_user)
{
    auto* user = static_cast<zu_sdk_user*>(sdk_user);
    prctl(PR_SET_NAME, who);
    LOG_TRACE(who, "enter sdk_msgsender_main pid: 0x%llx\n",
              static_cast<unsigned long long>(pthread_self()));

    sender s = {};
    s.user = user;
    s.link = user->worker_link;
    s.int_sock = s.link->int_sock;
    s.ext_sock = s.link->ext_sock;
    s.pipe = user->shutdown_pipe_sender[0];
    user->msgsender_started = 1;
    s.last_time = time(nullptr);

    while (user->msgsender_run != 0 && pass(s)) {
    }

    LOG_TRACE(who, "############ exit from msgsender, ret:%d\n", s.ret);
    usleep(exit_pause_us);
    user->msgsender_started = 0;
    link_drop(s.link);
    sdk_user_drop(user);
    return nullptr;
}
