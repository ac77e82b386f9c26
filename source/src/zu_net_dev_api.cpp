// The entry points without device support.
//
// The device protocol has no message for them. They exist so that applications written against the
// whole interface link and run: each takes anything, does nothing and succeeds, before Init too.
// They run on the caller's thread.
#include "zu_net_dev_api.h"

#include "log.h"

static ZU_S32 succeed(const char* who)
{
    LOG_TRACE(who, "enter %s\n", who);
    LOG_TRACE(who, "leave %s\n", who);
    return ZU_SUCCESS;
}

ZU_S32 ZU_NET_DEV_SetDataCallBack(ZU_U32, ZU_ON_DATA_CALLBACK, ZU_VOID*)
{
    return succeed(__func__);
}

ZU_S32 ZU_NET_DEV_PTZ_Ctrl_StandardEx(ZU_U32, ZU_U32)
{
    return succeed(__func__);
}

ZU_S32 ZU_NET_DEV_PTZ_Fully_Trans(ZU_U32, const ZU_CHAR*, ZU_U32)
{
    return succeed(__func__);
}

ZU_S32 ZU_NET_DEV_StartVoice(ZU_U32, ZU_U32)
{
    return succeed(__func__);
}

ZU_S32 ZU_NET_DEV_StopVoice(ZU_U32)
{
    return succeed(__func__);
}

ZU_S32 ZU_NET_DEV_SendVoiceData(ZU_U32, ZU_CHAR*, ZU_U32, ZU_U64)
{
    return succeed(__func__);
}

ZU_S32 ZU_NET_DEV_StartRecord(ZU_U32, ZU_CHAR*, ZU_U32, ZU_U32)
{
    return succeed(__func__);
}

ZU_S32 ZU_NET_DEV_StopRecord(ZU_U32)
{
    return succeed(__func__);
}

ZU_S32 ZU_NET_DEV_GetRecordState(ZU_U32)
{
    return succeed(__func__);
}
