/*
 * Every entry point with its exact parameters and result, checked by the compiler: nothing here is
 * called or linked. A changed declaration does not compile.
 */
#include "zu_net_dev_api.h"

#define HAS_TYPE(name, type)                                                                       \
    _Static_assert(_Generic(&(name), type : 1, default : 0), #name " has another signature")

typedef ZU_S32 (*of_nothing)(void);
typedef ZU_S32 (*of_handle)(ZU_U32);
typedef ZU_S32 (*of_handle_number)(ZU_U32, ZU_U32);
typedef ZU_S32 (*of_handle_two_numbers)(ZU_U32, ZU_U32, ZU_U32);
typedef ZU_S32 (*of_buffer)(ZU_U32, ZU_U32, ZU_VOID*, ZU_U32);
typedef ZU_S32 (*login)(ZU_U32*, const ZU_CHAR*, const ZU_CHAR*, const ZU_CHAR*, ZU_U16);
typedef ZU_S32 (*set_stream)(ZU_U32, ZU_ON_STREAM_CALLBACK, ZU_VOID*);
typedef ZU_S32 (*set_event)(ZU_U32, ZU_ON_EVENT_CALLBACK, ZU_VOID*);
typedef ZU_S32 (*set_data)(ZU_U32, ZU_ON_DATA_CALLBACK, ZU_VOID*);
typedef ZU_S32 (*start_stream)(ZU_U32, ZU_S_STREAM_INFO_EXT*);
typedef ZU_S32 (*fully_trans)(ZU_U32, const ZU_CHAR*, ZU_U32);
typedef ZU_S32 (*voice_data)(ZU_U32, ZU_CHAR*, ZU_U32, ZU_U64);
typedef ZU_S32 (*start_record)(ZU_U32, ZU_CHAR*, ZU_U32, ZU_U32);
typedef ZU_S32 (*of_number)(ZU_U32);
typedef int (*set_log)(LOG_CALLBACK);

HAS_TYPE(ZU_NET_DEV_Init, of_nothing);
HAS_TYPE(ZU_NET_DEV_DeInit, of_nothing);
HAS_TYPE(ZU_NET_DEV_Login, login);
HAS_TYPE(ZU_NET_DEV_Logout, of_handle);
HAS_TYPE(ZU_NET_DEV_SetReconnect, of_handle_number);
HAS_TYPE(ZU_NET_DEV_SetStreamCallBack, set_stream);
HAS_TYPE(ZU_NET_DEV_SetEventCallBack, set_event);
HAS_TYPE(ZU_NET_DEV_StartStreamExt, start_stream);
HAS_TYPE(ZU_NET_DEV_StopStream, of_handle);
HAS_TYPE(ZU_NET_DEV_MakeKeyFrame, of_handle_number);
HAS_TYPE(ZU_NET_DEV_GetConfig, of_buffer);
HAS_TYPE(ZU_NET_DEV_SetConfig, of_buffer);
HAS_TYPE(ZU_NET_DEV_PTZ_Ctrl_Standard, of_handle_two_numbers);
HAS_TYPE(ZU_NET_DEV_PTZ_Ctrl_Preset, of_handle_two_numbers);
HAS_TYPE(ZU_NET_DEV_SetDataCallBack, set_data);
HAS_TYPE(ZU_NET_DEV_PTZ_Ctrl_StandardEx, of_handle_number);
HAS_TYPE(ZU_NET_DEV_PTZ_Fully_Trans, fully_trans);
HAS_TYPE(ZU_NET_DEV_StartVoice, of_handle_number);
HAS_TYPE(ZU_NET_DEV_StopVoice, of_handle);
HAS_TYPE(ZU_NET_DEV_SendVoiceData, voice_data);
HAS_TYPE(ZU_NET_DEV_StartRecord, start_record);
HAS_TYPE(ZU_NET_DEV_StopRecord, of_handle);
HAS_TYPE(ZU_NET_DEV_GetRecordState, of_handle);
HAS_TYPE(ZU_NET_DEV_SetLogLevel, of_number);
HAS_TYPE(ZU_NET_DEV_SetLogCallback, set_log);

/* The callbacks; the first three have one shape or are told apart by their parameters. */
typedef ZU_S32 (*block_callback)(ZU_U32, ZU_U32, ZU_U8*, ZU_U32, ZU_VOID*);
typedef ZU_S32 (*event_callback)(ZU_U32, ZU_U32, ZU_VOID*);
typedef ZU_S32 (*record_callback)(ZU_U32, ZU_U32, ZU_U32, ZU_U32, ZU_VOID*);
typedef void (*line_callback)(int, const char*);

HAS_TYPE(*(ZU_ON_STREAM_CALLBACK)0, block_callback);
HAS_TYPE(*(ZU_ON_DATA_CALLBACK)0, block_callback);
HAS_TYPE(*(ZU_ON_RECRD_STREAM_CALLBACK)0, block_callback);
HAS_TYPE(*(ZU_ON_EVENT_CALLBACK)0, event_callback);
HAS_TYPE(*(ZU_ON_VMD_CALLBACK)0, event_callback);
HAS_TYPE(*(ZU_ON_RECORD_CALLBACK)0, record_callback);
HAS_TYPE(*(LOG_CALLBACK)0, line_callback);

/* The globals. */
HAS_TYPE(info_callback, LOG_CALLBACK*);
_Static_assert(sizeof(dbgout_info) == 256, "the message buffer has 256 characters");
