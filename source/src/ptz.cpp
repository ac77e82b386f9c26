// Pan-tilt-zoom. See ptz.h.
//
// The numbers are stored bit for bit in the signed words of the message, whatever they are: a stop
// is a command like any other. Runs on the caller's thread, with the request on its stack.
#include "ptz.h"

#include "log.h"
#include "request_channel.h"
#include "sdk_user.h"

namespace
{

// What both entry points do between their names: checks, the request, the answer.
int move(const char* who, ZU_U32 handle, request_block* block)
{
    if (zu_sdk_inited == 0) {
        LOG_ERROR(who, "zu_sdk_inited == 0\n");
        return ZU_FAILURE;
    }
    const held_user user(handle);
    if (!user.link_up()) {
        LOG_ERROR(who, "sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n");
        return ZU_FAILURE;
    }
    LOG_TRACE(who, "send msg_req_ptz.\n"); // for presets too
    return run_request(who, user.get(), block);
}

} // namespace

ZU_S32 ZU_NET_DEV_PTZ_Ctrl_Standard(ZU_U32 u32Handle, ZU_U32 u32Command, ZU_U32 u32Speed)
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_PTZ_Ctrl_Standard\n");
    request_block block = make_request(ZU_SDK_MSG_REQ_PTZ, sizeof(zu_sdk_msg_ptz));
    block.msg.payload.ptz.action = static_cast<int>(u32Command);
    block.msg.payload.ptz.speed = static_cast<int>(u32Speed);
    return move(__func__, u32Handle, &block);
}

ZU_S32 ZU_NET_DEV_PTZ_Ctrl_Preset(ZU_U32 u32Handle, ZU_U32 u32Command, ZU_U32 u32Preset)
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_PTZ_Ctrl_Preset\n");
    request_block block = make_request(ZU_SDK_MSG_REQ_PRESET, sizeof(zu_sdk_msg_preset));
    block.msg.payload.preset.action = static_cast<int>(u32Command);
    block.msg.payload.preset.num = static_cast<int>(u32Preset);
    return move(__func__, u32Handle, &block);
}
