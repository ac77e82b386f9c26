// Bytes in: waiting, reading, cutting into messages. See msg_receiver.h.
//
// Everything here runs on the receiver thread. `pass` and the functions below it answer whether the
// thread goes on; `ret` then holds the number for the exit line.
//
// A header is read in a tight loop that does not go back to the wait, and what a failed or empty
// read means is decided by errno as the last failing call left it, even a call long before. Both
// are the designed behaviour; so errno is taken before anything else can run.
#include "msg_receiver.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "fd_wait.h"
#include "log.h"
#include "msg_dispatch.h"
#include "tcp_link.h"

namespace
{

constexpr char who[] = "sdk_msgrecver_main";
constexpr int header_size = sizeof(zu_sdk_msg_head);
constexpr int silence_limit_s = 6;   // without a byte: the link is given up
constexpr int suspicion_limit_s = 3; // from here on the socket is asked for its error
constexpr int drained_body_max = 16 * 1024 * 1024;
constexpr useconds_t exit_pause_us = 20000;

struct receiver {
    inbox in;
    int ext_sock;
    int int_sock;
    int pipe;
    time_t last_time;  // when ext_sock was last found readable
    timeval timeout;   // what the last wait left of its six seconds
    bool body_pending; // a body is only partly read
    int got;           // bytes of it
    int ret;           // result of the last call, for the exit line
};

// What a read came to. A link that was shut down meanwhile makes a failed or empty read look as if
// its descriptor had been closed. errno is unchanged by anything but the read itself.
int recv_some(const receiver& r, char* into, int room)
{
    const int ret = static_cast<int>(recv(r.ext_sock, into, room, MSG_DONTWAIT));
    if (ret <= 0 && link_is_shut(r.in.link)) {
        errno = EBADF;
        return -1;
    }
    return ret;
}

// The message is complete; `ret` tells when that ends the thread.
bool act(receiver& r)
{
    r.got = 0;
    r.body_pending = false;
    if (!dispatch(r.in)) {
        r.ret = -1;
        return false;
    }
    return true;
}

// ---- reading -----------------------------------------------------------------------------------

void log_silence(int tv_sec)
{
    LOG_ERROR(who, "no msg in %d seconds!\n", silence_limit_s);
    LOG_ERROR(who, "ret: %d, tv_sec: %d\n", 0, tv_sec);
}

// Decides about a header read that brought nothing; `error` is errno as the read left it.
bool header_read_failed(receiver& r, int error)
{
    const time_t quiet = time(nullptr) - r.last_time;
    if (r.ret == 0 && (error == EAGAIN || error == EINTR) && quiet >= silence_limit_s) {
        log_silence(0); // a closed connection whose left-over errno asked for another try
        return false;
    }
    if (error == EINTR) {
        return true;
    }
    if (error == EAGAIN) {
        int socket_error = 0;
        if (quiet <= suspicion_limit_s ||
            (read_socket_error(r.ext_sock, &socket_error) && socket_error == 0)) {
            return true;
        }
        LOG_LINE(log_at_every_level, ZU_LOG_TYPE_ERROR, who, "Socket error detected: %s\n",
                 strerror(socket_error));
    } else {
        LOG_ERROR(who, "recv error: %s (errno=%d)\n", strerror(error), error);
    }
    LOG_LINE(log_at_error_levels, ZU_LOG_TYPE_TRACE, who, "recv ret == -1, break\n");
    r.ret = -1;
    return false;
}

// Reads a whole header before anything else is looked at.
bool read_header(receiver& r)
{
    int got = 0;
    while (got < header_size) {
        r.ret = recv_some(r, r.in.user->msgrecver_buf + got, header_size - got);
        const int error = errno;
        if (r.ret > 0) {
            got += r.ret;
        } else if (!header_read_failed(r, error)) {
            return false;
        }
    }
    return true;
}

bool body_read_failed(receiver& r, int error)
{
    if (r.ret == 0) {
        LOG_ERROR(who, "Disconnected (body recv)! Peer closed connection. ret: %d\n", r.ret);
        return false;
    }
    if (error == EINTR) {
        LOG_TRACE(who, "recv EINTR while receiving body, will retry via select\n");
    } else if (error == EAGAIN) {
        LOG_TRACE(who, "recv EAGAIN/EWOULDBLOCK while receiving body, will retry via select\n");
    } else {
        LOG_ERROR(who, "Disconnected (body recv)! recv error: %s (errno=%d)\n", strerror(error),
                  error);
        return false;
    }
    r.body_pending = true;
    return true;
}

// Reads once more of the body. One that the buffer can't hold is read and dropped, each piece over
// the one before, so that the stream stays in step.
bool read_body(receiver& r)
{
    const int len = r.in.head()->len;
    const bool dropped = len > msgrecver_body_max;
    const int lacking = len - r.got;
    char* into = dropped ? r.in.body() : r.in.body() + r.got;
    r.ret = recv_some(r, into, lacking < msgrecver_body_max ? lacking : msgrecver_body_max);
    if (r.ret <= 0) {
        return body_read_failed(r, errno);
    }
    r.in.last_recv = r.ret;
    r.got += r.ret;
    r.body_pending = r.got < len;
    if (r.body_pending) {
        return true;
    }
    if (dropped) {
        r.got = 0;
        return true;
    }
    return act(r);
}

bool read_message(receiver& r)
{
    if (!read_header(r)) {
        return false;
    }
    const int len = r.in.head()->len;
    r.got = 0;
    if (len <= 0) {
        r.in.last_recv = 1;
        LOG_TRACE(who, "msglen: %d, msgtype: 0x%x\n", len, r.in.head()->type);
        return act(r);
    }
    if (len > msgrecver_body_max) {
        LOG_ERROR(who, "msg too long, len: %d\n", len);
        if (len > drained_body_max) {
            r.ret = -1; // out of step beyond repair
            return false;
        }
    }
    return read_body(r);
}

// ---- waiting -----------------------------------------------------------------------------------

bool wait_timed_out(receiver& r)
{
    const time_t now_time = time(nullptr);
    const time_t diff = now_time - r.last_time;
    LOG_LINE(log_at_trace_level, ZU_LOG_TYPE_ERROR, who,
             "select timeout, last_time: %ld, now_time: %ld, diff: %ld\n", r.last_time, now_time,
             diff);
    if (diff >= silence_limit_s) {
        log_silence(static_cast<int>(r.timeout.tv_sec));
        return false;
    }
    if (diff < suspicion_limit_s) {
        return true;
    }
    int error = 0;
    if (read_socket_error(r.ext_sock, &error) && error == 0) {
        return true;
    }
    LOG_ERROR(who, "Socket error detected: %s (error=%d)\n", strerror(error), error);
    return false;
}

// One pass: wait, then one call for the thing that has happened.
bool pass(receiver& r)
{
    fd_watch watches[] = {
        {r.ext_sock, fd_readable, 0}, {r.pipe, fd_readable, 0}, {r.int_sock, fd_exceptional, 0}};
    const auto& [ext_sock, pipe, int_sock] = watches;
    r.timeout = {silence_limit_s, 0};
    r.ret = fd_wait(watches, 3, &r.timeout);
    if (link_is_shut(r.in.link)) {
        r.ret = -1;
    }
    if (r.ret == -1) {
        LOG_ERROR(who, "msgrecver select faill!\n");
        return false;
    }
    if (pipe.ready != 0) {
        LOG_LINE(log_at_every_level, ZU_LOG_TYPE_TRACE, who,
                 "Receiver thread received shutdown signal. Exiting.\n");
        return false;
    }
    if (int_sock.ready != 0) {
        LOG_ERROR(who, "int_sock exception happened!\n");
        return false;
    }
    if (r.ret == 0) {
        return wait_timed_out(r);
    }
    if (ext_sock.ready == 0) {
        return true;
    }
    r.last_time = time(nullptr);
    return r.body_pending ? read_body(r) : read_message(r);
}

} // namespace

void* sdk_msgrecver_main(void* sdk_user)
{
    auto* user = static_cast<zu_sdk_user*>(sdk_user);
    prctl(PR_SET_NAME, who);
    LOG_TRACE(who, "enter sdk_msgrecver_main pid: 0x%llx\n",
              static_cast<unsigned long long>(pthread_self()));

    receiver r = {};
    r.in.user = user;
    r.in.link = user->worker_link;
    r.int_sock = r.in.link->int_sock;
    r.ext_sock = r.in.link->ext_sock;
    r.pipe = user->shutdown_pipe_recver[0];
    user->msgrecver_started = 1;
    r.last_time = time(nullptr);

    while (user->msgrecver_run != 0 && pass(r)) {
    }

    LOG_TRACE(who, "$$$$$$$$$$$$ exit from msgrecver, ret:%d\n", r.ret);
    usleep(exit_pause_us);
    user->msgrecver_started = 0;
    link_drop(r.in.link);
    sdk_user_drop(user);
    return nullptr;
}
