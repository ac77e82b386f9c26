// The life of a connection, read top down from sdk_devmanager_main at the end. See
// device_manager.h.
//
// Everything here runs on the device manager thread of one login, join_workers also on the thread
// that ends the login, once the device manager has ended. Polling periods and limits are part of
// the behaviour.
#include "device_manager.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "event_handler.h"
#include "log.h"
#include "msg_receiver.h"
#include "msg_sender.h"
#include "rough_pause.h"
#include "stream_control.h"
#include "tcp_link.h"

namespace
{

constexpr char who[] = "sdk_devmanager_main";
constexpr int connect_limit_ms = 1000;
constexpr int failures_per_line = 6;
constexpr useconds_t start_poll_us = 500000;
constexpr int max_wait_count = 10;
constexpr useconds_t supervision_poll_us = 30000;
constexpr useconds_t teardown_poll_us = 10000;
constexpr useconds_t teardown_pause_us = 30000;
constexpr unsigned reconnect_pause_s = 3;
constexpr useconds_t exit_pause_us = 10000;

// What a connection came to, and so what the device manager does next.
enum outcome {
    connect_again, // at once
    connect_after_pause,
    thread_end,
    worker_not_created,
};

// ---- connect -----------------------------------------------------------------------------------

void log_connect_failure(const zu_sdk_user* user)
{
    LOG_ERROR(who, "tcp_connect to %s:%d fail!\n", user->devname, user->port);
}

// The first attempt of a login ends it; later ones are repeated without a pause, with a line for
// every sixth.
outcome connect_failed(zu_sdk_user* user, int* connect_num)
{
    if (user->connect_flag == 1) {
        log_connect_failure(user);
        user->exit_flag = 1;
        return thread_end;
    }
    if (++*connect_num == failures_per_line) {
        log_connect_failure(user);
        *connect_num = 0;
    }
    return connect_again;
}

void connected(zu_sdk_user* user, int ext_sock)
{
    sdk_user_set_link(user, link_open(user->links, ext_sock)); // before the field shows it
    user->ext_sock = ext_sock;
    user->connect_flag = 2;
    LOG_TRACE(who, "tcp_connect to %s:%d ok, ext_sock: %d\n", user->devname, user->port, ext_sock);
}

// Without a loopback socket the connection is given up; both fields keep what they show.
bool build_loopback(zu_sdk_user* user)
{
    if (build_int_sock(&user->int_sock, &user->int_port) != 0) {
        LOG_ERROR(who, "build_int_sock fail!\n");
        link_shut_ext(user->link);
        sdk_user_set_link(user, nullptr);
        return false;
    }
    user->link->int_sock = user->int_sock.load();
    return true;
}

// ---- workers -----------------------------------------------------------------------------------

// Creates one worker with a hold on the record and on the link.
bool create_worker(zu_sdk_user* user, pthread_t* thread, void* (*main)(void*))
{
    sdk_user_hold(user);
    link_hold(user->worker_link);
    if (pthread_create(thread, nullptr, main, user) != 0) {
        link_drop(user->worker_link);
        sdk_user_drop(user);
        return false;
    }
    return true;
}

bool start_receiver(zu_sdk_user* user)
{
    user->msgrecver_run = 1;
    user->msgrecver_started = 0;
    user->msgrecver_unjoined = create_worker(user, &user->msgrecver, sdk_msgrecver_main);
    if (!user->msgrecver_unjoined) {
        LOG_ERROR(who, "pthread_create msgrecver fail!\n");
        return false;
    }
    LOG_TRACE(who, "pthread_create msgrecver:0x%llx ok\n",
              static_cast<unsigned long long>(user->msgrecver));
    return true;
}

bool start_sender(zu_sdk_user* user)
{
    user->msgsender_run = 1;
    user->msgsender_started = 0;
    user->msgsender_unjoined = create_worker(user, &user->msgsender, sdk_msgsender_main);
    if (!user->msgsender_unjoined) {
        LOG_ERROR(who, "pthread_create msgsender fail!\n");
        return false;
    }
    LOG_TRACE(who, "pthread_create msgsender:0x%llx ok\n",
              static_cast<unsigned long long>(user->msgsender));
    return true;
}

// Two generations of workers never overlap: the former two, whose link is shut down, end first.
bool start_workers(zu_sdk_user* user)
{
    join_workers(user);
    user->worker_link = user->link;
    return start_receiver(user) && start_sender(user);
}

bool workers_started(const zu_sdk_user* user)
{
    return user->msgrecver_started == 1 && user->msgsender_started == 1;
}

bool wait_for_workers(const zu_sdk_user* user)
{
    if (user->devmanager_run == 0) {
        return false;
    }
    int wait_count = 0;
    while (!workers_started(user)) {
        if (check_tcp_socket_status(user->ext_sock) == -1) {
            LOG_ERROR(who, "Connection lost while waiting for worker threads to start.\n");
            return false;
        }
        usleep(start_poll_us);
        wait_count++;
        if (user->devmanager_run == 0 || wait_count == max_wait_count) {
            return false;
        }
    }
    return true;
}

// A field that shows a socket shows none any more. Number 0 counts as none already, for the fields
// and the lines; the socket itself goes back with its link whatever its number.
void forget(std::atomic<int>& field)
{
    if (field > 0) {
        field = -1;
    }
}

// Neither waits for the workers nor pauses; the next start waits for them.
void abandon_start(zu_sdk_user* user)
{
    LOG_ERROR(who, "Failed to start worker threads in time or connection lost. "
                   "Triggering reconnect...\n");
    user->msgrecver_run = 0;
    user->msgsender_run = 0;
    link_shut_int(user->link);
    forget(user->int_sock);
    link_shut_ext(user->link);
    forget(user->ext_sock);
    sdk_user_set_link(user, nullptr);
}

// ---- up ----------------------------------------------------------------------------------------

void report(zu_sdk_user* user, const char* name, ZU_U32 event, bool attached)
{
    if (!attached) {
        LOG_TRACE(who, "callback %s, but sdk_user->event_callback == NULL\n", name);
        return;
    }
    LOG_TRACE(who, "call event_callback %s\n", name);
    if (!event_handler_start(user, static_cast<int>(event))) {
        LOG_ERROR(who, "pthread_create eventhandler( connected ) fail!\n");
    }
}

bool has_event_callback(const zu_sdk_user* user)
{
    return user->event_callback != nullptr;
}

void restart_stream(zu_sdk_user* user)
{
    if (user->sinked != 1) {
        return;
    }
    LOG_TRACE(who, "##### sdk_user->sinked == 1\n");
    in_startstream(user->handle);
    const ZU_U32 stream = user->stream_info.u32Stream;
    if (stream <= 3) {
        ZU_NET_DEV_MakeKeyFrame(user->handle, 11 + stream);
    }
}

// Opens the login to the application. Whether the first connected event has a taker is settled
// before Login can return, so that it never reaches a callback attached at once afterwards.
void announce_up(zu_sdk_user* user)
{
    LOG_TRACE(who, "msgrecver and msgsender both started! pid: 0x%x\n",
              static_cast<unsigned>(user->devmanager));
    const bool first = user->in_all_ok == 0;
    const bool attached_at_first = first && has_event_callback(user);
    user->used = ZU_SDK_USER_USED; // before in_all_ok: a Login that has returned can be used
    user->in_all_ok = 1;
    LOG_TRACE(who, "sdk_user->used = ZU_SDK_USER_USED;\n");
    LOG_TRACE(who, "sdk_user->sinked = %d\n", user->sinked.load());
    restart_stream(user);
    report(user, "connected", ZU_NET_DEV_CONNECTED,
           first ? attached_at_first : has_event_callback(user));
}

// Watches the link until it is lost (true) or the login ends (false).
bool supervise(const zu_sdk_user* user)
{
    while (user->devmanager_run != 0) {
        if (check_tcp_socket_status(user->ext_sock) == -1 || user->msgrecver_started == 0 ||
            user->msgsender_started == 0) {
            return true;
        }
        rough_pause(supervision_poll_us);
    }
    return false;
}

// ---- tear down ---------------------------------------------------------------------------------

void wake(int pipe_end)
{
    if (pipe_end != -1) {
        // Nothing is lost when the pipe is full: then there is something to wake up to already.
        [[maybe_unused]] const ssize_t written = write(pipe_end, "q", 1);
    }
}

// A pipe that can't be made non-blocking is left alone: the next worker finds its byte and ends
// once more, where a read of an empty pipe would wait for ever.
void drain(int pipe_end)
{
    if (pipe_end == -1) {
        return;
    }
    const int flags = fcntl(pipe_end, F_GETFL);
    if (flags == -1 || fcntl(pipe_end, F_SETFL, flags | O_NONBLOCK) == -1) {
        return;
    }
    char byte;
    while (read(pipe_end, &byte, 1) > 0) {
    }
    fcntl(pipe_end, F_SETFL, flags);
}

void stop_workers(zu_sdk_user* user)
{
    link_let_urgent_data_be_first(user->link);
    LOG_TRACE(who, "msgrecver or msgsender has exited!\n");
    user->used = -1;
    user->msgrecver_run = 0;
    user->msgsender_run = 0;
    LOG_TRACE(who, "sdk_user->used = -1;\n");
    LOG_TRACE(who, "@@@@@ exit msgserder()\n");
    wake(user->shutdown_pipe_sender[1]);
    LOG_TRACE(who, "@@@@@@ exit msgrecver()\n");
    wake(user->shutdown_pipe_recver[1]);
    while (user->msgsender_started != 0 || user->msgrecver_started != 0) {
        usleep(teardown_poll_us);
    }
    join_workers(user);
}

void close_sockets(zu_sdk_user* user)
{
    if (user->ext_sock > 0) {
        LOG_TRACE(who, "close ext_sock\n");
    }
    link_shut_ext(user->link);
    forget(user->ext_sock);
    if (user->int_sock > 0) {
        LOG_TRACE(who, "close int_sock\n");
    }
    link_shut_int(user->link);
    forget(user->int_sock);
    sdk_user_set_link(user, nullptr);
}

void tear_down(zu_sdk_user* user)
{
    stop_workers(user);
    close_sockets(user);
    drain(user->shutdown_pipe_recver[0]);
    drain(user->shutdown_pipe_sender[0]);
    LOG_TRACE(who, "@@@@@ All worker threads exited and pipes flushed.\n");
    report(user, "disconnected", ZU_NET_DEV_DISCONNECTED, has_event_callback(user));
    usleep(teardown_pause_us);
}

// ---- the cycle ---------------------------------------------------------------------------------

// One connection, from the attempt to its end.
outcome run_connection(zu_sdk_user* user, int* connect_num)
{
    const int ext_sock = tcp_ext_connect(user->devname, user->port, connect_limit_ms);
    if (ext_sock == -1) {
        user->ext_sock = -1;
        return connect_failed(user, connect_num);
    }
    connected(user, ext_sock);
    *connect_num = 0; // every way on from here starts the count afresh
    if (!build_loopback(user)) {
        return connect_again;
    }
    if (!start_workers(user)) {
        return worker_not_created;
    }
    if (!wait_for_workers(user)) {
        abandon_start(user);
        return connect_again;
    }
    announce_up(user);
    if (!supervise(user)) {
        return thread_end; // whoever ends the login takes down what stands
    }
    tear_down(user);
    return user->devmanager_run == 0 ? thread_end : connect_after_pause;
}

// Connections one after another, as long as the login lives.
outcome keep_connected(zu_sdk_user* user)
{
    int connect_num = 0;
    while (user->devmanager_run == 1) {
        const outcome came_to = run_connection(user, &connect_num);
        if (came_to == thread_end || came_to == worker_not_created) {
            return came_to;
        }
        if (came_to == connect_after_pause) {
            LOG_LINE(log_at_error_levels, ZU_LOG_TYPE_TRACE, who,
                     "Connection failed/lost. Waiting for 3 seconds before next reconnect "
                     "attempt...\n");
            sleep(reconnect_pause_s);
        }
    }
    return thread_end;
}

} // namespace

void join_workers(zu_sdk_user* user)
{
    if (user->msgrecver_unjoined) {
        pthread_join(user->msgrecver, nullptr);
        user->msgrecver_unjoined = false;
    }
    if (user->msgsender_unjoined) {
        pthread_join(user->msgsender, nullptr);
        user->msgsender_unjoined = false;
    }
}

void* sdk_devmanager_main(void* sdk_user)
{
    static std::atomic<int> num; // counts the start lines that have been written

    auto* user = static_cast<zu_sdk_user*>(sdk_user);
    prctl(PR_SET_NAME, who);
    LOG_TRACE(who, "enter sdk_devmanager_main pid: 0x%x, num: %d\n",
              static_cast<unsigned>(pthread_self()), num++);

    const outcome came_to = keep_connected(user);
    if (came_to == worker_not_created) {
        sdk_user_drop(user);
        return reinterpret_cast<void*>(-1);
    }
    LOG_TRACE(who, "&&&&&&&&&&&& exit from devmanager\n");
    usleep(exit_pause_us);
    sdk_user_drop(user);
    return nullptr;
}
