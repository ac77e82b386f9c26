// Stream control. See stream_control.h.
//
// The entry points run on the caller's thread, in_startstream and the key frame after it on the
// device manager's. stream_info and sinked are shared words without a lock: a restart may see parts
// of two requests, as concurrent starts always could.
#include "stream_control.h"

#include <unistd.h>

#include "log.h"
#include "request_channel.h"
#include "sdk_user.h"

namespace
{

constexpr ZU_U32 stream_max = 3;
constexpr ZU_U32 key_frame_base = 11; // key frames are asked for by 11 plus the stream number
constexpr int further_attempts = 3;
constexpr useconds_t attempt_pause_us = 1000000;

// 1 to 5 and 7; the hole at 6 is part of the interface.
bool is_stream_type(ZU_U8 type)
{
    return (type >= 1 && type <= 5) || type == 7;
}

// Remembers what was asked for. Done before the request goes out and kept whatever comes of it.
void remember(zu_sdk_user* user, const ZU_S_STREAM_INFO_EXT& info)
{
    user->stream_info.u32Channel = info.u32Channel;
    user->stream_info.u32Stream = info.u32Stream;
    user->stream_info.u32Mode = info.u32Mode;
    user->stream_info.u8Type = info.u8Type;
    user->sinked = 1;
}

request_block start_request(const zu_sdk_user* user)
{
    request_block block = make_request(ZU_SDK_MSG_REQ_STARTSTREAM, sizeof(zu_sdk_msg_startstream));
    block.msg.payload.startstream.stream = static_cast<int>(user->stream_info.u32Stream);
    block.msg.payload.startstream.type = user->stream_info.u8Type;
    return block;
}

request_block stop_request(const zu_sdk_user* user)
{
    request_block block = make_request(ZU_SDK_MSG_REQ_STOPSTREAM, sizeof(zu_sdk_msg_stopstream));
    block.msg.payload.stopstream.stream = static_cast<int>(user->stream_info.u32Stream);
    block.msg.payload.stopstream.type = user->stream_info.u8Type;
    return block;
}

// Tries until an exchange succeeds. One length serves as the next send's length and as the last
// reply's: a receive that failed makes the next attempt an empty datagram, which ends the sender
// thread and so brings a reconnection. That coupling is wanted.
bool start_with_retries(zu_sdk_user* user, request_block* block)
{
    int msglen = static_cast<int>(sizeof(zu_sdk_msg_head)) +
                 static_cast<int>(sizeof(zu_sdk_msg_startstream));
    if (udp_tx_rx(user, block, msglen, block, &msglen) >= 0) {
        return true;
    }
    for (int i = 0; i < further_attempts; i++) {
        if (udp_tx_rx(user, block, msglen, block, &msglen) >= 0) {
            return true;
        }
        usleep(attempt_pause_us); // after the last one too
    }
    return false;
}

} // namespace

ZU_S32 ZU_NET_DEV_StartStreamExt(ZU_U32 u32Handle, ZU_S_STREAM_INFO_EXT* pstruStreamInfo)
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_StartStreamExt, u32Handle: %d\n", u32Handle);
    if (zu_sdk_inited == 0 || pstruStreamInfo == nullptr) {
        LOG_ERROR(__func__, "zu_sdk_inited == 0 || pstruStreamInfo == 0\n");
        return ZU_FAILURE;
    }
    if (pstruStreamInfo->u32Stream > stream_max) {
        LOG_ERROR(__func__, "pstruStreamInfo->u32Stream invalid: %d\n", pstruStreamInfo->u32Stream);
        return ZU_FAILURE;
    }
    if (!is_stream_type(pstruStreamInfo->u8Type)) {
        LOG_ERROR(__func__, "pstruStreamInfo->u8Type invalid: %d\n", pstruStreamInfo->u8Type);
        return ZU_FAILURE;
    }
    const held_user user(u32Handle);
    if (!user.link_up()) {
        LOG_ERROR(__func__, "sdk_user invalid\n");
        return ZU_FAILURE;
    }
    remember(user.get(), *pstruStreamInfo);

    request_block block = start_request(user.get());
    LOG_TRACE(__func__, "send msg_req_startstream. stream:%d type:%d\n",
              block.msg.payload.startstream.stream, block.msg.payload.startstream.type);
    return run_request(__func__, user.get(), &block);
}

ZU_S32 ZU_NET_DEV_StopStream(ZU_U32 u32Handle)
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_StopStream\n");
    if (zu_sdk_inited == 0) {
        LOG_ERROR(__func__, "zu_sdk_inited == 0\n");
        return ZU_FAILURE;
    }
    const held_user user(u32Handle);
    if (!user.link_up()) {
        LOG_ERROR(__func__, "sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n");
        return ZU_FAILURE;
    }
    if (user->msgsender_started == 0 || user->msgrecver_started == 0) {
        LOG_ERROR(__func__,
                  "sdk_user->msgsender_started == 0 || sdk_user->msgrecver_started == 0\n");
        return ZU_FAILURE;
    }
    request_block block = stop_request(user.get());
    LOG_TRACE(__func__, "send msg_req_startstream.\n");
    return run_request(__func__, user.get(), &block);
}

ZU_S32 ZU_NET_DEV_MakeKeyFrame(ZU_U32 u32Handle, ZU_U32 u32Stream)
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_MakeKeyFrame\n");
    if (zu_sdk_inited == 0) {
        LOG_ERROR(__func__, "zu_sdk_inited == 0\n");
        return ZU_FAILURE;
    }
    if (u32Stream - key_frame_base > stream_max) {
        LOG_ERROR(__func__, "u32Stream < 11 && u32Stream > 14\n");
        return ZU_FAILURE;
    }
    const held_user user(u32Handle);
    if (!user.link_up()) {
        LOG_ERROR(__func__, "sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n");
        return ZU_FAILURE;
    }
    request_block block =
        make_request(ZU_SDK_MSG_REQ_MAKEKEYFRAME, sizeof(zu_sdk_msg_makekeyframe));
    block.msg.payload.makekeyframe.stream = static_cast<int>(u32Stream - key_frame_base);
    LOG_TRACE(__func__, "send msg_req_makekeyframe.\n");
    return run_request(__func__, user.get(), &block);
}

int in_startstream(ZU_U32 u32Handle)
{
    LOG_TRACE(__func__, "enter in_startstream\n");
    const held_user user(u32Handle);
    if (!user.link_up()) {
        LOG_TRACE(__func__, "sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n");
        return -1;
    }
    request_block block = start_request(user.get());
    if (!start_with_retries(user.get(), &block)) {
        return -1;
    }
    const int retcode = block.msg.payload.response.retcode;
    LOG_TRACE(__func__, "leave in_startstream\n");
    return retcode;
}
