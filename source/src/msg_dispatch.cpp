// What becomes of a complete message. See msg_dispatch.h.
//
// Bytes from a device are not trusted: a length is looked at before it takes part in arithmetic or
// is handed to anyone. Nothing is queued or copied; the next message is not read until the stream
// callback has returned.
#include "msg_dispatch.h"

#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>

#include "event_handler.h"
#include "log.h"

namespace
{

constexpr char who[] = "sdk_msgrecver_main";
constexpr int header_size = sizeof(zu_sdk_msg_head);

// The responses that are relayed, by their names in the log; null for any other type.
const char* response_name(int type)
{
    switch (type) {
    case ZU_SDK_MSG_RES_STARTSTREAM:
        return "ZU_SDK_MSG_RES_STARTSTREAM";
    case ZU_SDK_MSG_RES_STOPSTREAM:
        return "ZU_SDK_MSG_RES_STOPSTREAM";
    case ZU_SDK_MSG_RES_PTZ:
        return "ZU_SDK_MSG_RES_PTZ";
    case ZU_SDK_MSG_RES_PRESET:
        return "ZU_SDK_MSG_RES_PRESET";
    case ZU_SDK_MSG_RES_MAKEKEYFRAME:
        return "ZU_SDK_MSG_RES_MAKEKEYFRAME";
    case ZU_SDK_MSG_RES_SETCONFIG:
        return "ZU_SDK_MSG_RES_SETCONFIG";
    case ZU_SDK_MSG_RES_GETCONFIG:
        return "ZU_SDK_MSG_RES_GETCONFIG";
    default:
        return nullptr;
    }
}

// Sends the whole message to the port that waits for it. The port is used as the device echoed it,
// in network byte order; nobody checks that someone still waits there.
bool relay(const inbox& in, const char* name)
{
    const int len = in.head()->len;
    const auto port = static_cast<in_port_t>(in.head()->wait_port);
    LOG_TRACE(who, "recv msg %s:%d\n", name, in.last_recv);
    LOG_TRACE(who, "sendto native port:%d len:%d\n", port, len + header_size);

    sockaddr_in caller = {};
    caller.sin_family = AF_INET;
    caller.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    caller.sin_port = port;
    // A length below minus the header's can't be sent, and fails in the same way.
    if (len < -header_size ||
        sendto(in.link->int_sock, in.message, len + header_size, 0,
               reinterpret_cast<const sockaddr*>(&caller), sizeof(caller)) == -1) {
        LOG_ERROR(who, "sendto faill!\n");
        return false;
    }
    return true;
}

// Whether the link counts as up, as it must before any callback; writes the line when it does not.
bool in_use(const inbox& in, const char* what)
{
    const int used = in.user->used;
    if (used == ZU_SDK_USER_USED) {
        return true;
    }
    LOG_ERROR(who, "sdk_user (handle 0x%x) is not in USED state (current state: %d) for %s.\n",
              in.user->handle.load(), used, what);
    return false;
}

void heartbeat(const inbox& in)
{
    constexpr char what[] = "HEARTBEAT event_callback";
    LOG_TRACE(who, "recv msg ZU_SDK_MSG_RES_HEARTBEAT\n");
    if (in.user->event_callback == nullptr) {
        LOG_ERROR(who, "event_callback is NULL for handle 0x%x on HEARTBEAT!\n",
                  in.user->handle.load());
        in_use(in, what);
        return;
    }
    if (!in_use(in, what)) {
        return;
    }
    if (!event_handler_start(in.user, ZU_NET_DEV_HEARTBEAT)) {
        LOG_ERROR(who, "pthread_create eventhandler( connected ) fail!\n");
    }
}

// Sets the data type by the flag that opens a body, and takes note of a system header. A body too
// short for a flag, and an unknown flag, leave the type as the message before set it.
void classify(inbox& in, int len)
{
    ZU_U32 dataflag;
    if (len < static_cast<int>(sizeof(dataflag))) {
        return;
    }
    memcpy(&dataflag, in.body(), sizeof(dataflag));
    switch (dataflag) {
    case ZU_NET_DEV_SYS_FLAG:
        in.data_type = ZU_NET_DEV_SYS_DATA;
        LOG_TRACE(who, "dataflag == ZU_NET_DEV_SYS_FLAG\n");
        if (len >= static_cast<int>(offsetof(ZU_S_SysHeader, struSHeader))) {
            memcpy(&in.user->video_info, in.body() + offsetof(ZU_S_SysHeader, struVHeader),
                   sizeof(in.user->video_info));
            memcpy(&in.user->audio_info, in.body() + offsetof(ZU_S_SysHeader, struAHeader),
                   sizeof(in.user->audio_info));
        }
        break;
    case ZU_NET_DEV_KEY_FLAG:
        in.data_type = ZU_NET_DEV_KEY_DATA;
        LOG_TRACE(who, "dataflag == ZU_NET_DEV_KEY_FLAG\n");
        break;
    case ZU_NET_DEV_VIDEO_FLAG:
    case ZU_NET_DEV_AUDIO_FLAG:
    case ZU_NET_DEV_RAW_FLAG:
        in.data_type = ZU_NET_DEV_AV_DATA;
        break;
    default:
        break;
    }
}

void stream_data(inbox& in)
{
    const int len = in.head()->len;
    if (len < 0) {
        // A callback can't be handed a length near 4 GiB with no body behind it.
        LOG_ERROR(who, "msg too long, len: %d\n", len);
        return;
    }
    classify(in, len);
    constexpr char what[] = "stream_callback";
    const ZU_ON_STREAM_CALLBACK callback = in.user->stream_callback;
    if (callback == nullptr) {
        LOG_ERROR(who, "stream_callback is NULL for handle 0x%x! Cannot process data.\n",
                  in.user->handle.load());
        in_use(in, what);
        return;
    }
    if (!in_use(in, what)) {
        return;
    }
    callback(in.user->handle, in.data_type, reinterpret_cast<ZU_U8*>(in.body()),
             static_cast<ZU_U32>(len), in.user->stream_userdata);
}

} // namespace

bool dispatch(inbox& in)
{
    if (link_is_shut(in.link)) {
        return true; // the receiver's next wait ends it
    }
    const int type = in.head()->type;
    if (const char* name = response_name(type)) {
        return relay(in, name);
    }
    switch (type) {
    case ZU_SDK_MSG_RES_HEARTBEAT:
        heartbeat(in);
        return true;
    case ZU_SDK_MSG_STREAM_DATA:
        stream_data(in);
        return true;
    default:
        LOG_TRACE(who, "recv msg unknown:0x%x\n", type);
        return true;
    }
}
