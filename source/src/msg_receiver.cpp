// Bytes in: waiting, reading, cutting into messages. See msg_receiver.h.
//
// A wait is followed by as many messages as the read behind it has brought (read_ahead.h); before
// each of them msgrecver_run is looked at.
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
#include <unistd.h>

#include "deadline.h"
#include "fd_wait.h"
#include "log.h"
#include "msg_dispatch.h"
#include "read_ahead.h"
#include "tcp_link.h"

namespace
{

constexpr char who[] = "sdk_msgrecver_main";
constexpr int header_size = sizeof(zu_sdk_msg_head);
constexpr int word_size = 4;
constexpr int silence_limit_s = 6;   // without a byte: the link is given up
constexpr int look_interval_s = 1;   // at what comes below a mark
constexpr int suspicion_limit_s = 3; // from here on the socket is asked for its error
constexpr int drained_body_max = 16 * 1024 * 1024;
constexpr useconds_t exit_pause_us = 20000;

struct receiver {
    inbox in;
    read_ahead from;
    zu_sdk_msg_head head; // of the message that is being read
    int ext_sock;
    int pipe;
    int int_sock;
    time_t last_time;     // when ext_sock was last found readable
    bool body_pending;    // a body is only partly read
    int got;              // bytes of it
    bool quiet;           // the looks below the mark have found nothing so far
    timespec quiet_limit; // when six seconds of that will be over
    bool int_sock_broken; // it has an error that is no exception
    int ret;              // result of the last call, for the exit line
};

// The first `size` bytes are a complete message; `ret` tells when that ends the thread. What lies
// off a word boundary is moved onto one, over what has been dealt with.
bool act(receiver& r, int size)
{
    r.got = 0;
    r.body_pending = false;
    const int off = r.from.begin % word_size;
    r.in.message = read_ahead_bytes(r.from) - off;
    if (off != 0) {
        memmove(r.in.message, read_ahead_bytes(r.from), size);
    }
    read_ahead_drop(r.from, size);
    if (!dispatch(r.in)) {
        r.ret = -1;
        return false;
    }
    return true;
}

// ---- reading -----------------------------------------------------------------------------------

void log_silence()
{
    LOG_ERROR(who, "no msg in %d seconds!\n", silence_limit_s);
    LOG_ERROR(who, "ret: %d, tv_sec: %d\n", 0, 0); // nothing is left of the wait's time
}

// Decides about a header read that brought nothing; `error` is errno as the read left it.
bool header_read_failed(receiver& r, int error)
{
    const time_t quiet = time(nullptr) - r.last_time;
    if (r.ret == 0 && (error == EAGAIN || error == EINTR) && quiet >= silence_limit_s) {
        log_silence(); // a closed connection whose left-over errno asked for another try
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
    int told = 0; // bytes of it that earlier reads have brought
    for (;;) {
        const int there = read_ahead_count(r.from);
        if (there >= header_size) {
            r.ret = header_size - told;
            memcpy(&r.head, read_ahead_bytes(r.from), header_size);
            return true;
        }
        r.ret = read_ahead_more(r.from, header_size - there);
        const int error = errno;
        if (r.ret <= 0 && !header_read_failed(r, error)) {
            return false;
        }
        const int now = read_ahead_count(r.from);
        told = now < header_size ? now : told;
    }
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

// What a read of the body's next `lacking` bytes brings, of which `there` have been read ahead. A
// response's count is logged when it is relayed, so it has to be that of a plain read; for stream
// data the part that is there will do.
int body_bytes(receiver& r, int there, int lacking)
{
    if (there == 0) {
        return read_ahead_more(r.from, lacking);
    }
    if (there >= lacking || r.head.type == ZU_SDK_MSG_STREAM_DATA) {
        return there < lacking ? there : lacking;
    }
    return read_ahead_rest(r.from, lacking, lacking - there);
}

// Reads once more of the body.
bool read_body(receiver& r)
{
    const int there = read_ahead_count(r.from) - header_size - r.got;
    r.ret = body_bytes(r, there, r.head.len - r.got);
    if (r.ret <= 0) {
        return body_read_failed(r, errno);
    }
    r.in.last_recv = r.ret;
    r.got += r.ret;
    r.body_pending = r.got < r.head.len;
    return r.body_pending || act(r, header_size + r.head.len);
}

// The same of a body that the buffer can't hold. It is dropped piece by piece, its header first, so
// that the stream stays in step.
bool read_body_to_drop(receiver& r)
{
    const int lacking = r.head.len - r.got;
    r.ret = body_bytes(r, read_ahead_count(r.from),
                       lacking < msgrecver_body_max ? lacking : msgrecver_body_max);
    if (r.ret <= 0) {
        return body_read_failed(r, errno);
    }
    read_ahead_drop(r.from, r.ret);
    r.got += r.ret;
    r.body_pending = r.got < r.head.len;
    return true;
}

bool read_message(receiver& r)
{
    if (!read_header(r)) {
        return false;
    }
    const int len = r.head.len;
    r.got = 0;
    if (len <= 0) {
        r.in.last_recv = 1;
        LOG_TRACE(who, "msglen: %d, msgtype: 0x%x\n", len, r.head.type);
        return act(r, header_size);
    }
    if (len > msgrecver_body_max) {
        LOG_ERROR(who, "msg too long, len: %d\n", len);
        if (len > drained_body_max) {
            r.ret = -1; // out of step beyond repair
            return false;
        }
        read_ahead_drop(r.from, header_size);
        return read_body_to_drop(r);
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
        log_silence();
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

bool quiet_too_long(receiver& r)
{
    r.quiet = false;
    return wait_timed_out(r);
}

// Bytes that a low-water mark may be set for: those lacking of stream data, which a frame's pieces
// would otherwise announce one by one. None once there is urgent data, behind which the bytes that
// have arrived can't be counted.
int awaited_bytes(const receiver& r)
{
    const bool marks = r.head.type == ZU_SDK_MSG_STREAM_DATA && !r.in.link->urgent_data;
    return r.body_pending && marks ? r.head.len - r.got : 0;
}

// Whether the body has a place in the buffer.
bool is_kept(const receiver& r)
{
    return r.head.len <= msgrecver_body_max;
}

bool read_on(receiver& r)
{
    r.last_time = time(nullptr);
    if (!r.body_pending) {
        return read_message(r);
    }
    return is_kept(r) ? read_body(r) : read_body_to_drop(r);
}

bool found_readable(receiver& r)
{
    r.quiet = false;
    read_ahead_ready(r.from);
    return read_on(r);
}

// A second has passed below the mark. Bytes that have come meanwhile are as good as any; six
// seconds without are what one wait of six seconds would have been.
bool look_below_mark(receiver& r)
{
    if (read_ahead_arrived(r.from) > 0) {
        return found_readable(r);
    }
    if (!deadline_has_passed(r.quiet_limit)) {
        return true;
    }
    if (link_has_urgent_data(r.in.link)) {
        r.in.link->urgent_data = true; // behind which nothing has been counted; a wait without a
        return true;                   // mark will tell at once
    }
    return quiet_too_long(r);
}

// Whether a wait has found an exception on int_sock. Whoever waits for one is woken by every
// request, but none comes without an error, and errors wake. One that is no exception is the
// sender's, who reads int_sock; it would end every further wait, so from then on int_sock is only
// looked at.
bool is_exception(receiver& r, const fd_watch& int_sock)
{
    if (int_sock.ready == 0 && !r.int_sock_broken) {
        return false;
    }
    if (fd_look(int_sock.fd, fd_exceptional) == fd_exceptional) {
        return true;
    }
    r.int_sock_broken = true;
    return false;
}

// The wait itself. Returns what it has found that is the receiver's: neither urgent data, which is
// noted for the sender, nor an error of int_sock that is no exception ends the wait.
int wait_and_note(receiver& r, fd_watch (&watches)[3], bool marked)
{
    auto& [ext_sock, pipe, int_sock] = watches;
    timeval limit = {marked ? look_interval_s : silence_limit_s, 0};
    timespec end = deadline_in(static_cast<int>(limit.tv_sec));
    if (r.quiet && !marked) { // the six seconds have begun below a mark
        end = r.quiet_limit;
        limit = time_until(end);
    }
    for (;;) {
        ext_sock.wanted = r.in.link->urgent_data ? fd_readable : fd_readable_or_exceptional;
        const int ret = fd_wait(watches, r.int_sock_broken ? 2 : 3, limit);
        if ((ext_sock.ready & fd_exceptional) != 0) {
            r.in.link->urgent_data = true;
        }
        if (ret == -1) {
            return -1;
        }
        int found = (ext_sock.ready & fd_readable) != 0 ? 1 : 0;
        found += pipe.ready != 0 ? 1 : 0;
        int_sock.ready = is_exception(r, int_sock) ? fd_exceptional : 0;
        found += int_sock.ready != 0 ? 1 : 0;
        if (ret == 0 || found > 0) {
            return found;
        }
        limit = time_until(end);
    }
}

// Waits, then one call for the thing that has happened.
bool wait(receiver& r)
{
    const bool marked = read_ahead_expect(r.from, awaited_bytes(r)) > 1;
    if (marked && !r.quiet) {
        r.quiet = true;
        r.quiet_limit = deadline_in(silence_limit_s);
    }
    fd_watch watches[] = {{r.ext_sock, 0, 0}, {r.pipe, fd_readable, 0}, {r.int_sock, fd_broken, 0}};
    const auto& [ext_sock, pipe, int_sock] = watches;
    r.ret = wait_and_note(r, watches, marked);
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
        return marked ? look_below_mark(r) : quiet_too_long(r);
    }
    return found_readable(r);
}

// What has been read ahead counts as found readable, until the link is shut: the next wait fails
// then, whatever has been read. A body that is kept and pending is all that is there.
bool pass(receiver& r)
{
    const bool nothing_left = (r.body_pending && is_kept(r)) || read_ahead_count(r.from) == 0;
    return nothing_left || link_is_shut(r.in.link) ? wait(r) : read_on(r);
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
    read_ahead_open(r.from, r.in.link, user->msgrecver_buf, msgrecver_buf_size);
    r.ext_sock = r.in.link->ext_sock;
    r.pipe = user->shutdown_pipe_recver[0];
    r.int_sock = r.in.link->int_sock;
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
