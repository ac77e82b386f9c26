/*
 * The wire: every message between the library and a device, and nothing else. No code.
 *
 *   connection  = *message                  both ways, back to back on one TCP connection
 *   message     = head payload              payload is `len` bytes, the head's 12 not counted
 *   head        = type len wait_port        three 32-bit words
 *   request     = head record               client to device; the next code is its response
 *   response    = head retcode *byte        device to client, wait_port copied from the request
 *   stream data = head flag *byte           device to client, unasked once a stream runs
 *
 * All words are signed, 32 bits, little-endian, and are copied as they lie in memory. There is no
 * magic, version, checksum or number: `type` alone says what a message is, and `wait_port` alone
 * says which caller a response belongs to. It is a UDP port of 127.0.0.1 as a socket address holds
 * it (network byte order) in the low 16 bits; the sender writes it, the receiver reads it, and
 * neither converts it.
 *
 * The same bytes, head included, are one datagram on the loopback channel between a calling thread
 * and the two workers.
 */
#ifndef ZU_NET_DEV_MSG_H
#define ZU_NET_DEV_MSG_H

#include "../inc/zu_net_dev_api.h"
#include "../inc/zu_net_dev_disk.h"

/* The last hexadecimal digit of a request is 1, of its response 2; the one before counts kinds. */
enum zu_sdk_msg_code ZU_ENUM_OF(int32_t){
    ZU_SDK_MSG_REQ_STARTSTREAM = 0x1001,  /* zu_sdk_msg_startstream */
    ZU_SDK_MSG_RES_STARTSTREAM = 0x1002,  /* zu_sdk_msg_response */
    ZU_SDK_MSG_REQ_STOPSTREAM = 0x1011,   /* zu_sdk_msg_stopstream */
    ZU_SDK_MSG_RES_STOPSTREAM = 0x1012,   /* zu_sdk_msg_response */
    ZU_SDK_MSG_REQ_HEARTBEAT = 0x1021,    /* no payload; never on the loopback channel */
    ZU_SDK_MSG_RES_HEARTBEAT = 0x1022,    /* payload not read; never on the loopback channel */
    ZU_SDK_MSG_REQ_PTZ = 0x1031,          /* zu_sdk_msg_ptz */
    ZU_SDK_MSG_RES_PTZ = 0x1032,          /* zu_sdk_msg_response */
    ZU_SDK_MSG_REQ_PRESET = 0x1041,       /* zu_sdk_msg_preset */
    ZU_SDK_MSG_RES_PRESET = 0x1042,       /* zu_sdk_msg_response */
    ZU_SDK_MSG_REQ_MAKEKEYFRAME = 0x1051, /* zu_sdk_msg_makekeyframe */
    ZU_SDK_MSG_RES_MAKEKEYFRAME = 0x1052, /* zu_sdk_msg_response */
    ZU_SDK_MSG_REQ_SETCONFIG = 0x1061,    /* zu_sdk_msg_config */
    ZU_SDK_MSG_RES_SETCONFIG = 0x1062,    /* zu_sdk_msg_response */
    ZU_SDK_MSG_REQ_GETCONFIG = 0x1071,    /* zu_sdk_msg_config */
    ZU_SDK_MSG_RES_GETCONFIG = 0x1072,    /* zu_sdk_msg_config, unlike every other response */
    ZU_SDK_MSG_STREAM_DATA = 0x1100,      /* one of the flags ZU_NET_DEV_*_FLAG, then its block */
};

typedef struct zu_sdk_msg_head {
    int32_t type;      /* a code of zu_sdk_msg_code, or anything that a device makes up */
    int32_t len;       /* bytes of `data` */
    int32_t wait_port; /* where the response is awaited; the caller leaves it 0 */
                       /* data: the payload follows */
} zu_sdk_msg_head;

typedef struct zu_sdk_msg_response {
    int32_t retcode; /* the device's own code, handed to the caller as it is */
                     /* data: a device may append bytes that nobody reads */
} zu_sdk_msg_response;

typedef struct zu_sdk_msg_startstream {
    int32_t stream; /* 0 to 3 */
    int32_t type;   /* ZU_S_STREAM_INFO_EXT.u8Type, widened */
} zu_sdk_msg_startstream;

typedef struct zu_sdk_msg_stopstream {
    int32_t stream;
    int32_t type;
} zu_sdk_msg_stopstream;

typedef struct zu_sdk_msg_ptz {
    int32_t action;
    int32_t speed;
} zu_sdk_msg_ptz;

typedef struct zu_sdk_msg_preset {
    int32_t action;
    int32_t num;
} zu_sdk_msg_preset;

typedef struct zu_sdk_msg_makekeyframe {
    int32_t stream; /* 0 to 3 */
} zu_sdk_msg_makekeyframe;

/* Always sent whole, whatever the command; what the record in use does not fill is zero. */
typedef struct zu_sdk_msg_config {
    int32_t cmd;     /* the device's command code, it decides which member of `u` counts */
    int32_t retcode; /* in the answer to a read: the device's own code */
    union {
        ZU_S_Display display;
        ZU_S_Display_Ext display_ext;
        ZU_S_OSD osd;
        ZU_S_SERVERTIME servertime;
        ZU_S_Video_Ext video_ext;
        ZU_S_Audio_Ext audio_ext;
        ZU_S_AudioVolume audiovolume;
        ZU_S_Resolution resolution;
        ZU_S_RTMP rtmp_ext;
        ZU_S_StartRecord record_para;
        ZU_S_GetUdiskInfo udisk_info;
        ZU_S_GetFileList filelist_info; /* the largest, it fixes the size of all */
        ZU_S_DeleteFile file_delete;
        ZU_S_GetRecordStream record_stream;
        ZU_S_RecordStatus record_status;
        ZU_S_MAX_WORKERS max_workers;
        ZU_S_CPU_IDLE_INFO cpu_idle_info;
        ZU_S_AutoRecord auto_record;
        ZU_S_Video_Encode_Level encode_level;
        ZU_S_PRESET_INFO preset_info;
        ZU_S_Video_IDR_QP idr_qp;
    } u;
} zu_sdk_msg_config;

ZU_ASSERT_SIZE(zu_sdk_msg_head, 12);
ZU_ASSERT_FIELD(zu_sdk_msg_head, type, 0);
ZU_ASSERT_FIELD(zu_sdk_msg_head, len, 4);
ZU_ASSERT_FIELD(zu_sdk_msg_head, wait_port, 8);

ZU_ASSERT_SIZE(zu_sdk_msg_response, 4);
ZU_ASSERT_FIELD(zu_sdk_msg_response, retcode, 0);

ZU_ASSERT_SIZE(zu_sdk_msg_startstream, 8);
ZU_ASSERT_FIELD(zu_sdk_msg_startstream, stream, 0);
ZU_ASSERT_FIELD(zu_sdk_msg_startstream, type, 4);

ZU_ASSERT_SIZE(zu_sdk_msg_stopstream, 8);
ZU_ASSERT_FIELD(zu_sdk_msg_stopstream, stream, 0);
ZU_ASSERT_FIELD(zu_sdk_msg_stopstream, type, 4);

ZU_ASSERT_SIZE(zu_sdk_msg_ptz, 8);
ZU_ASSERT_FIELD(zu_sdk_msg_ptz, action, 0);
ZU_ASSERT_FIELD(zu_sdk_msg_ptz, speed, 4);

ZU_ASSERT_SIZE(zu_sdk_msg_preset, 8);
ZU_ASSERT_FIELD(zu_sdk_msg_preset, action, 0);
ZU_ASSERT_FIELD(zu_sdk_msg_preset, num, 4);

ZU_ASSERT_SIZE(zu_sdk_msg_makekeyframe, 4);
ZU_ASSERT_FIELD(zu_sdk_msg_makekeyframe, stream, 0);

ZU_ASSERT_SIZE(zu_sdk_msg_config, 3140);
ZU_ASSERT_FIELD(zu_sdk_msg_config, cmd, 0);
ZU_ASSERT_FIELD(zu_sdk_msg_config, retcode, 4);
ZU_ASSERT_FIELD(zu_sdk_msg_config, u, 8);

#endif /* ZU_NET_DEV_MSG_H */
