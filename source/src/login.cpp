// Login, logout and the settings of a login. See login.h.
//
// Runs on the caller's thread. Until the device manager starts, the record is Login's alone; after
// it has ended, and both workers with it, the record's sockets and pipes belong to whoever ends the
// login, which the state word decides.
#include "login.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <unistd.h>

#include "device_manager.h"
#include "event_handler.h"
#include "log.h"
#include "sdk_user.h"
#include "tcp_link.h"

namespace
{

constexpr int login_polls = 101; // about 3.03 seconds
constexpr useconds_t login_poll_us = 30000;
constexpr useconds_t worker_poll_us = 10000;

// ---- pipes -------------------------------------------------------------------------------------

bool open_pipe(int (&ends)[2])
{
    if (pipe(ends) != 0) {
        return false;
    }
    set_close_on_exec(ends[0]);
    set_close_on_exec(ends[1]);
    return true;
}

void close_pipe(const int (&ends)[2])
{
    for (const int end : ends) {
        if (end != -1) {
            close(end);
        }
    }
}

void close_pipes(const zu_sdk_user* user)
{
    close_pipe(user->shutdown_pipe_recver);
    close_pipe(user->shutdown_pipe_sender);
}

bool open_pipes(const char* who, zu_sdk_user* user)
{
    if (!open_pipe(user->shutdown_pipe_recver)) {
        LOG_LINE(log_at_every_level, ZU_LOG_TYPE_ERROR, who,
                 "Failed to create receiver pipe in Login: %s\n", strerror(errno));
        return false;
    }
    if (!open_pipe(user->shutdown_pipe_sender)) {
        LOG_LINE(log_at_every_level, ZU_LOG_TYPE_ERROR, who,
                 "Failed to create sender pipe in Login: %s\n", strerror(errno));
        close_pipe(user->shutdown_pipe_recver);
        return false;
    }
    return true;
}

// ---- set-up ------------------------------------------------------------------------------------

// Keeps the first 15 characters; the record is zeroed, so the end is there.
void copy_text(char (&field)[16], const ZU_CHAR* text)
{
    strncpy(field, text, sizeof(field) - 1);
}

void fill_record(zu_sdk_user* user, const ZU_CHAR* username, const ZU_CHAR* password,
                 const ZU_CHAR* host, ZU_U16 port)
{
    user->in_all_ok = 0;
    user->exit_flag = 0;
    user->connect_flag = 1;
    user->int_sock = -1;
    user->ext_sock = -1;
    user->used = -1;
    copy_text(user->username, username);
    copy_text(user->password, password);
    copy_text(user->devname, host);
    user->port = port;
}

bool start_device_manager(const char* who, zu_sdk_user* user)
{
    user->devmanager_run = 1;
    sdk_user_hold(user);
    if (pthread_create(&user->devmanager, nullptr, sdk_devmanager_main, user) != 0) {
        sdk_user_drop(user);
        LOG_ERROR(who, "pthread_create devmanager fail!\n");
        return false;
    }
    const auto id = static_cast<unsigned>(user->devmanager);
    user->state = login_live;
    LOG_TRACE(who, "pthread_create devmanager:0x%x ok\n", id);
    return true;
}

bool wait_until_up(const zu_sdk_user* user)
{
    for (int i = 0; i < login_polls && user->exit_flag == 0; i++) {
        if (user->in_all_ok == 1) {
            return true;
        }
        usleep(login_poll_us);
    }
    return false;
}

// ---- the end of a login ------------------------------------------------------------------------

// Whether the caller is the one to end the login. A login in set-up is Login's alone.
bool claim_end(zu_sdk_user* user)
{
    int live = login_live;
    return user->state.compare_exchange_strong(live, login_ending);
}

// Shuts down, without a line, a link that is still or again there; its workers end by that. After
// devmanager_run is 0 no link but the one found here can come up, and after the device manager has
// ended none can be made.
void shut_last_link(zu_sdk_user* user)
{
    device_link* link = sdk_user_take_link(user);
    if (link != nullptr) {
        link_shut_ext(link);
        link_shut_int(link);
        link_drop(link);
    }
}

// The last steps, once the device manager has ended and the workers are on their way out. The
// sockets go last: until the slot is empty a request may still begin, and its loopback port must
// not be another login's by then.
void release(zu_sdk_user* user, ZU_U32 handle)
{
    join_workers(user);
    close_pipes(user); // no worker is left to watch them
    event_handler_finish(user);
    free_sdkuser(handle);
    sdk_user_set_link(user, nullptr);
}

void abandon_login(zu_sdk_user* user, ZU_U32 handle)
{
    if (!claim_end(user)) {
        return; // a Logout is at it
    }
    user->devmanager_run = 0;
    if (user->in_all_ok == 1) {
        shut_last_link(user); // up just too late; nothing shall keep its teardown waiting
    }
    pthread_join(user->devmanager, nullptr);
    shut_last_link(user);
    user->msgrecver_run = 0;
    user->msgsender_run = 0;
    release(user, handle);
}

// The lines follow the fields, which may show a socket that is gone already; what is shut down is
// the link that is there.
void shut_sockets(const char* who, zu_sdk_user* user)
{
    device_link* link = sdk_user_take_link(user);
    const int ext_sock = user->ext_sock;
    if (ext_sock > 0) {
        LOG_TRACE(who, "close ext_sock, ext_sock: %d\n", ext_sock);
        if (link != nullptr) {
            link_shut_ext(link);
        }
    }
    const int int_sock = user->int_sock;
    if (int_sock > 0) {
        LOG_TRACE(who, "close int_sock, int_sock: %d\n", int_sock);
        if (link != nullptr) {
            link_shut_int(link);
        }
    }
    if (link != nullptr) {
        link_drop(link);
    }
}

void wait_for_worker(const std::atomic<int>& started)
{
    while (started != 0) {
        usleep(worker_poll_us);
    }
}

void log_out(const char* who, zu_sdk_user* user, ZU_U32 handle)
{
    shut_sockets(who, user);

    LOG_TRACE(who, "####### exit devmanager()\n");
    if (user->devmanager_run == 1) {
        user->devmanager_run = 0;
        shut_last_link(user); // made since: nothing shall keep a teardown of it waiting
        pthread_join(user->devmanager, nullptr);
    }
    LOG_TRACE(who, "####### exit devmanager() finish\n");
    shut_last_link(user);

    LOG_TRACE(who, "####### exit msgsender()\n");
    user->msgsender_run = 0;
    wait_for_worker(user->msgsender_started);
    LOG_TRACE(who, "####### exit msgsender() finish\n");

    LOG_TRACE(who, "####### exit msgrecver()\n");
    user->msgrecver_run = 0;
    wait_for_worker(user->msgrecver_started);
    LOG_TRACE(who, "####### exit msgrecver() finish\n");

    release(user, handle);
}

} // namespace

ZU_S32 ZU_NET_DEV_Login(ZU_U32* pu32Handle, const ZU_CHAR* psUsername, const ZU_CHAR* psPassword,
                        const ZU_CHAR* psHost, ZU_U16 u16Port)
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_Login\n");
    if (zu_sdk_inited == 0 || psUsername == nullptr || psPassword == nullptr || psHost == nullptr ||
        u16Port == 0) {
        LOG_ERROR(__func__, "zu_sdk_inited == 0 || psUsername == NULL || psPassword == NULL || "
                            "psHost == NULL || u16Port == 0\n");
        return ZU_FAILURE;
    }
    const int slot = alloc_sdkuser();
    if (slot == -1) {
        return ZU_FAILURE;
    }
    const ZU_U32 handle = sdk_user_handle_base + static_cast<ZU_U32>(slot);
    const held_user user(handle);
    if (!open_pipes(__func__, user.get())) {
        free_sdkuser(handle);
        return ZU_FAILURE;
    }
    // The address is that of the local variable, as the line has always shown it.
    LOG_TRACE(__func__, "sdkuser_index: %d, sdk_user: 0x%x\n", slot,
              static_cast<unsigned>(reinterpret_cast<uintptr_t>(&user)));
    fill_record(user.get(), psUsername, psPassword, psHost, u16Port);
    LOG_TRACE(__func__, "username:%s password:%s host:%s port:%d\n", user->username, user->password,
              user->devname, user->port);
    *pu32Handle = handle; // before the outcome is known
    user->handle = handle;

    if (!start_device_manager(__func__, user.get())) {
        close_pipes(user.get());
        free_sdkuser(handle);
        return ZU_FAILURE;
    }
    if (!wait_until_up(user.get())) {
        LOG_ERROR(__func__, "[%s %d]conncet overtime\n", log_source_file, __LINE__);
        abandon_login(user.get(), handle);
        return ZU_FAILURE;
    }
    LOG_TRACE(__func__, "[%s %d]conncet success\n", log_source_file, __LINE__);
    LOG_TRACE(__func__, "leave ZU_NET_DEV_Login\n");
    return ZU_SUCCESS;
}

ZU_S32 ZU_NET_DEV_Logout(ZU_U32 u32Handle)
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_Logout\n");
    if (zu_sdk_inited == 0) {
        LOG_ERROR(__func__, "zu_sdk_inited == 0\n");
        return ZU_FAILURE;
    }
    const held_user user(u32Handle);
    if (user.missing() || !claim_end(user.get())) {
        LOG_ERROR(__func__, "sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n");
        return ZU_FAILURE;
    }
    log_out(__func__, user.get(), u32Handle);
    LOG_TRACE(__func__, "leave ZU_NET_DEV_Logout\n");
    return ZU_SUCCESS;
}

ZU_S32 ZU_NET_DEV_SetReconnect(ZU_U32 u32Handle, ZU_U32 u32Interval)
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_SetReconnect\n");
    if (zu_sdk_inited == 0 || u32Interval == 0) {
        LOG_ERROR(__func__, "zu_sdk_inited == 0 || u32Interval == 0\n");
        return ZU_FAILURE;
    }
    const held_user user(u32Handle);
    if (!user.link_up()) {
        LOG_ERROR(__func__, "sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n");
        return ZU_FAILURE;
    }
    user->reconnect_interval = static_cast<int>(u32Interval);
    LOG_TRACE(__func__, "reconnect_interval:%d\n", static_cast<int>(u32Interval));
    LOG_TRACE(__func__, "leave ZU_NET_DEV_SetReconnect\n");
    return ZU_SUCCESS;
}

ZU_S32 ZU_NET_DEV_SetStreamCallBack(ZU_U32 u32Handle, ZU_ON_STREAM_CALLBACK cbStreamCallBack,
                                    ZU_VOID* pUserData)
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_SetStreamCallBack\n");
    if (zu_sdk_inited == 0 || cbStreamCallBack == nullptr) {
        LOG_ERROR(__func__, "zu_sdk_inited == 0 || cbStreamCallBack == 0\n");
        return ZU_FAILURE;
    }
    const held_user user(u32Handle);
    if (!user.link_up()) {
        LOG_ERROR(__func__, "sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n");
        return ZU_FAILURE;
    }
    user->handle = u32Handle; // as it was passed
    user->stream_userdata = pUserData;
    user->stream_callback = cbStreamCallBack;
    LOG_TRACE(__func__, "stream_callback:%p stream_userdata:%p\n",
              reinterpret_cast<void*>(cbStreamCallBack), pUserData);
    LOG_TRACE(__func__, "leave ZU_NET_DEV_SetStreamCallBack\n");
    return ZU_SUCCESS;
}

// Two of its lines speak of the stream callback. They are kept as applications know them.
ZU_S32 ZU_NET_DEV_SetEventCallBack(ZU_U32 u32Handle, ZU_ON_EVENT_CALLBACK cbEventCallBack,
                                   ZU_VOID* pUserData)
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_SetEventCallBack\n");
    if (zu_sdk_inited == 0 || cbEventCallBack == nullptr) {
        LOG_ERROR(__func__, "zu_sdk_inited == 0 || cbStreamCallBack == 0\n");
        return ZU_FAILURE;
    }
    const held_user user(u32Handle);
    if (!user.link_up()) {
        LOG_ERROR(__func__, "sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n");
        return ZU_FAILURE;
    }
    user->handle = u32Handle;
    user->event_userdata = pUserData;
    user->event_callback = cbEventCallBack;
    LOG_TRACE(__func__, "stream_callback:%p event_userdata:%p\n",
              reinterpret_cast<void*>(cbEventCallBack), pUserData);
    LOG_TRACE(__func__, "leave ZU_NET_DEV_SetEventCallBack\n");
    return ZU_SUCCESS;
}
