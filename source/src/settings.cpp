// Settings. See settings.h.
//
// Writing is generic: any command, any record. Reading brings back the records of five commands,
// always whole: the caller's length is checked and then not looked at again. A reply too short to
// hold the record leaves the request's own words in it. Runs on the caller's thread, with the
// request on its stack.
#include "settings.h"

#include <cstddef>
#include <cstring>

#include "log.h"
#include "request_channel.h"
#include "sdk_user.h"

namespace
{

constexpr ZU_U32 config_size = sizeof(zu_sdk_msg_config);
constexpr size_t union_offset = sizeof(zu_sdk_msg_head) + offsetof(zu_sdk_msg_config, u);
static_assert(union_offset + config_size <= request_block_size, "the longest record accepted fits");

// A command whose record comes back to the caller.
struct readable_setting {
    ZU_U32 command;
    const char* line; // that the selector's copy writes; null when there is no selector
    size_t selector;  // offset of the stream selector in the record
    size_t size;      // of the record
};

constexpr readable_setting readable_settings[] = {
    {ZU_NET_DEV_CMD_VIDEO_PARAM_EXT, "ZU_NET_DEV_CMD_VIDEO_PARAM_EXT\n",
     offsetof(ZU_S_Video_Ext, u32Stream), sizeof(ZU_S_Video_Ext)},
    {ZU_NET_DEV_CMD_AUDIO_PARAM_EXT, "ZU_NET_DEV_CMD_AUDIO_PARAM_EXT\n",
     offsetof(ZU_S_Audio_Ext, u32Stream), sizeof(ZU_S_Audio_Ext)},
    {ZU_NET_DEV_CMD_VIDEO_ENCODE_LEVEL, nullptr, 0, sizeof(ZU_S_Video_Encode_Level)},
    {ZU_NET_DEV_CMD_VIDEO_H264_H265_IDR_QP, "ZU_NET_DEV_CMD_VIDEO_H264_H265_IDR_QP\n",
     offsetof(ZU_S_Video_IDR_QP, u32Stream), sizeof(ZU_S_Video_IDR_QP)},
    {ZU_NET_DEV_CMD_PTZ_PRESET_INFO, nullptr, 0, sizeof(ZU_S_PRESET_INFO)},
};

const readable_setting* find_readable(ZU_U32 command)
{
    for (const readable_setting& setting : readable_settings) {
        if (setting.command == command) {
            return &setting;
        }
    }
    return nullptr;
}

bool has_selector(const readable_setting* setting)
{
    return setting != nullptr && setting->line != nullptr;
}

// The checks that both entry points make before the look-up, with their lines.
bool arguments_hold(const char* who, bool buffer_missing, ZU_U32 length)
{
    if (zu_sdk_inited == 0) {
        LOG_ERROR(who, "zu_sdk_inited == 0\n");
        return false;
    }
    if (buffer_missing) {
        LOG_ERROR(who, "u32BufLen > 0 && pBuf == NULL\n");
        return false;
    }
    if (length > config_size) {
        LOG_ERROR(who, "u32BufLen > sizeof( struct zu_sdk_msg_config )"); // without a line end
        return false;
    }
    return true;
}

// A request for one command, with an all-zero record.
request_block config_request(int type, ZU_U32 command)
{
    request_block block = make_request(type, config_size);
    block.msg.payload.config.cmd = static_cast<int>(command);
    return block;
}

// Says which stream is meant. Nothing else of the caller's record is sent.
void copy_selector(const char* who, const readable_setting& setting, const void* record,
                   request_block* block)
{
    LOG_LINE(log_at_trace_level, ZU_LOG_TYPE_ERROR, who, "%s", setting.line);
    memcpy(block->bytes + union_offset + setting.selector,
           static_cast<const char*>(record) + setting.selector, sizeof(ZU_U32));
}

} // namespace

ZU_S32 ZU_NET_DEV_GetConfig(ZU_U32 u32Handle, ZU_U32 u32Command, ZU_VOID* pBuf, ZU_U32 u32BufLen)
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_GetConfig\n");
    const readable_setting* setting = find_readable(u32Command);
    const bool buffer_needed = u32BufLen > 0 || has_selector(setting);
    if (!arguments_hold(__func__, buffer_needed && pBuf == nullptr, u32BufLen)) {
        return ZU_FAILURE;
    }
    const held_user user(u32Handle);
    if (!user.link_up()) {
        LOG_ERROR(__func__, "sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n");
        return ZU_FAILURE;
    }
    request_block block = config_request(ZU_SDK_MSG_REQ_GETCONFIG, u32Command);
    if (pBuf != nullptr && has_selector(setting)) {
        copy_selector(__func__, *setting, pBuf, &block);
    }
    LOG_TRACE(__func__, "send msg_req_makekeyframe.\n");
    if (!exchange_request(__func__, user.get(), &block)) {
        return ZU_FAILURE;
    }
    const int retcode = block.msg.payload.config.retcode; // behind `cmd`, unlike in other responses
    LOG_TRACE(__func__, "get response code:%d\n", retcode);
    if (setting != nullptr && pBuf != nullptr) {
        memcpy(pBuf, block.bytes + union_offset, setting->size);
    }
    LOG_TRACE(__func__, "leave ZU_NET_DEV_GetConfig\n");
    return retcode;
}

ZU_S32 ZU_NET_DEV_SetConfig(ZU_U32 u32Handle, ZU_U32 u32Command, ZU_VOID* pBuf, ZU_U32 u32BufLen)
{
    LOG_TRACE(__func__, "enter ZU_NET_DEV_SetConfig\n");
    if (!arguments_hold(__func__, u32BufLen > 0 && pBuf == nullptr, u32BufLen)) {
        return ZU_FAILURE;
    }
    const held_user user(u32Handle);
    if (!user.link_up()) {
        LOG_ERROR(__func__, "sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n");
        return ZU_FAILURE;
    }
    request_block block = config_request(ZU_SDK_MSG_REQ_SETCONFIG, u32Command);
    if (u32BufLen > 0) {
        // Up to eight bytes more than the record's place are accepted; they are not sent.
        memcpy(block.bytes + union_offset, pBuf, u32BufLen);
    }
    LOG_TRACE(__func__, "send msg_req_makekeyframe.\n");
    return run_request(__func__, user.get(), &block);
}
