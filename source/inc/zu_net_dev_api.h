/*
 * zu_net_dev: live view and control of IP cameras.
 *
 * A program initialises the library, logs in to devices, attaches callbacks, starts a stream and
 * then receives its video and audio, block by block. Requests for settings, movement and presets
 * go over the same connection. One login is one connection, with three threads of the library's
 * own; up to 256 logins live side by side.
 *
 *     ZU_NET_DEV_SetLogLevel(ZU_LOG_LEVEL_ERROR);                          rule 3 says why
 *     ZU_NET_DEV_Init();
 *     ZU_NET_DEV_Login(&handle, "user", "password", "192.0.2.7", 9000);
 *     ZU_NET_DEV_SetStreamCallBack(handle, on_stream, &mine);
 *     ZU_NET_DEV_StartStreamExt(handle, &stream);
 *     ...
 *     ZU_NET_DEV_Logout(handle);
 *     ZU_NET_DEV_DeInit();
 *
 * Rules that hold for every function
 * ----------------------------------
 *  1. Order: Init, Login, then everything that takes a handle, Logout, DeInit. Callbacks can be
 *     attached only after Login, and only while the link is up. DeInit logs nobody out.
 *
 *  2. Results: 0 (ZU_SUCCESS) or -1 (ZU_FAILURE). A *request*, which asks the device something,
 *     returns the device's own 32-bit code unchanged once an answer has come; that 0 means success
 *     is the device's convention. A device that answers -1 cannot be told from a local failure.
 *     An answer too short to hold a code gives back a word of the request in its place. The cause
 *     of a -1 is told by a log line alone, at levels 1 and 2; `errno` says nothing.
 *
 *  3. Time limit: a request that the device does not answer fails after 3 to 4 seconds, but ONLY
 *     at log levels 1 and 2. At level 0, and at the initial -1 that nobody has changed, it waits
 *     for ever. So does a Logout that meets the restart of a stream (rule 8) that is never
 *     answered, and the reconnection itself: while a restart is unanswered nobody watches the link.
 *     Programs should call ZU_NET_DEV_SetLogLevel with 1 before anything else.
 *
 *  4. Threads: every function may be called from any thread, and by many at once on the same
 *     handle; each request gets its own answer. Init and DeInit alone need the library to
 *     themselves. No function may be called from a signal handler, nor in the child of a fork.
 *
 *  5. Callbacks are called by threads of the library, and must not throw or end their thread:
 *       stream  on the login's receiver thread, one call at a time. Until it returns, nothing else
 *               from the device is read, answers included: a request to the same login from inside
 *               it cannot be answered, and ends as rule 3 says. Never log out in it.
 *       event   on a thread of its own for each event; calls may overlap each other and the
 *               stream's. It may make requests and may log out, its own login too. Two events that
 *               come close together may both be reported as the later one.
 *       log     on whichever thread logs, on several at once; see LOG_CALLBACK.
 *     They begin with the first thing that happens after they were set. None of a login begins
 *     after its Logout has returned 0; ZU_NET_DEV_Logout says what is known of one that still runs.
 *
 *  6. Memory: the caller owns what it passes, the library copies during the call and keeps only
 *     callbacks and user pointers, until Logout. What a callback is handed is the library's, and is
 *     valid until the callback returns.
 *
 *  7. Handles: 0x43210000 plus the number of a slot, 0 to 255. Only the low 16 bits are looked at,
 *     so 5 and 0x43210005 name the same login. A slot is used again after its Logout: an old handle
 *     may name a new login.
 *
 *  8. Reconnection: when the link is lost (closed, or silent for six seconds) the disconnected
 *     event is raised, at once or some six seconds later, and after three more the library connects
 *     again, without pause between attempts and without end, until Logout. Requests fail meanwhile.
 *     Once a start of a stream has been asked for, every reconnection starts that stream anew, also
 *     when it had failed, was refused or has been stopped since.
 *
 *  9. Secrets: the protocol carries neither the user name nor the password, and encrypts nothing.
 *     The password is kept in memory as it is until Logout, and is not wiped then; it stands in
 *     clear in a trace line of Login at log level 2.
 *
 * 10. Nothing that a device sends harms the library's memory, but all of it is passed on as it is:
 *     texts in records may lack their final NUL, switches may be neither 0 nor 1, and a block may
 *     be shorter than its kind should be. A device that stops within a header keeps one thread busy
 *     until it goes on or the connection ends.
 *
 * 11. The process: Init ignores SIGPIPE for all of it. A login takes six descriptors and about
 *     2 MB, a request one descriptor more while it lasts; a program with more than some 150 logins
 *     must raise its limit of open files. Descriptors from 65,536 on are of no use to the library.
 *     Once loaded it stays: dlclose does not unload it. Its threads block no signals, and a signal
 *     handler that runs on one of them ends that connection: keep handlers on threads of your own.
 */
#ifndef ZU_NET_DEV_API_H
#define ZU_NET_DEV_API_H

#include "zu_data_type.h"

/* In front of everything that the shared library exports. */
#ifdef __GNUC__
#define ZU_NET_DEV_EXPORT __attribute__((visibility("default")))
#else
#define ZU_NET_DEV_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- constants; each has the type of the argument or field that it is for ---- */

/* Results. */
#define ZU_SUCCESS 0
#define ZU_FAILURE (-1)

/* Events. There is no 2. */
#define ZU_NET_DEV_CONNECTED 1U    /* the link is up again, see ZU_ON_EVENT_CALLBACK */
#define ZU_NET_DEV_DISCONNECTED 3U /* the link is lost, see rule 8 */
#define ZU_NET_DEV_HEARTBEAT 4U    /* the device has answered a heartbeat */

/* Stream data types: what kind of block the stream callback is handed. */
#define ZU_NET_DEV_AV_DATA 0U  /* video, audio or a raw picture */
#define ZU_NET_DEV_SYS_DATA 1U /* a description of the stream: ZU_S_SysHeader */
#define ZU_NET_DEV_KEY_DATA 2U /* a key block, laid out by the device */

/* The word that opens a block, read as a little-endian ZU_U32. */
#define ZU_NET_DEV_SYS_FLAG 0x53595346U   /* "FSYS", SYS_DATA */
#define ZU_NET_DEV_KEY_FLAG 0x43565845U   /* "EXVC", KEY_DATA */
#define ZU_NET_DEV_VIDEO_FLAG 0x4656544BU /* "KTVF", AV_DATA: a video frame */
#define ZU_NET_DEV_AUDIO_FLAG 0x4641544BU /* "KTAF", AV_DATA: an audio frame */
#define ZU_NET_DEV_RAW_FLAG 0x56595556U   /* "VUYV", AV_DATA: a raw picture */

/* Command codes of settings that ZU_NET_DEV_GetConfig brings back, and the record of each. */
#define ZU_NET_DEV_CMD_VIDEO_PARAM_EXT 0x1047U        /* ZU_S_Video_Ext */
#define ZU_NET_DEV_CMD_AUDIO_PARAM_EXT 0x1048U        /* ZU_S_Audio_Ext */
#define ZU_NET_DEV_CMD_VIDEO_ENCODE_LEVEL 0x1051U     /* ZU_S_Video_Encode_Level */
#define ZU_NET_DEV_CMD_VIDEO_H264_H265_IDR_QP 0x1052U /* ZU_S_Video_IDR_QP */
#define ZU_NET_DEV_CMD_PTZ_PRESET_INFO 0x3018U        /* ZU_S_PRESET_INFO */

/* Log levels, and the types of the lines. The level also decides about time limits: rule 3. */
#define ZU_LOG_LEVEL_OFF 0
#define ZU_LOG_LEVEL_ERROR 1
#define ZU_LOG_LEVEL_TRACE 2
#define ZU_LOG_TYPE_ERROR 0
#define ZU_LOG_TYPE_TRACE 7

/* ---- records of the stream ----
 * All records travel byte for byte: little-endian, naturally aligned, checked at the end of this
 * file. Numbers whose meaning is not told are the device's; the library does not look at them. */

typedef struct ZU_VideoHeader {
    ZU_U32 u32Width;  /* pixels */
    ZU_U32 u32Height; /* pixels */
} ZU_S_VideoHeader;

typedef struct ZU_AudioHeader {
    ZU_U32 u32Format; /* the device's code for the encoding */
} ZU_S_AudioHeader;

typedef struct ZU_StreamHeader {
    ZU_U32 u32Stream; /* 0 to 3 */
    ZU_U32 u32FrameRate;
    ZU_U32 u32BitRate;
} ZU_S_StreamHeader;

/* The block of data type ZU_NET_DEV_SYS_DATA, its flag included. */
typedef struct ZU_SysHeader {
    ZU_U32 u32SysFlag; /* ZU_NET_DEV_SYS_FLAG */
    ZU_S_VideoHeader struVHeader;
    ZU_S_AudioHeader struAHeader;
    ZU_S_StreamHeader struSHeader;
} ZU_S_SysHeader;

/* Which stream to start. */
typedef struct ZU_STREAM_INFO_EXT {
    ZU_U32 u32Channel; /* kept, not sent, not checked */
    ZU_U32 u32Stream;  /* 0 to 3 */
    ZU_U32 u32Mode;    /* kept, not sent, not checked */
    ZU_U8 u8Type;      /* 1 to 5, or 7; the device's code */
} ZU_S_STREAM_INFO_EXT;

/* ---- records of the settings ---- */

/* Encoding of one video stream. */
typedef struct ZU_Video_Ext {
    ZU_U32 u32Channel;
    ZU_U32 u32Stream; /* selects the stream, for a read too */
    ZU_U32 u32Protocol;
    ZU_U32 u32Bitrate;
    ZU_U32 u32Frame;
    ZU_U32 u32Iframe;
    ZU_U32 u32Cbr;
    ZU_U32 u32ImgQuality;
    ZU_U32 u32Resolution;
    ZU_U32 u32Width;  /* pixels */
    ZU_U32 u32Height; /* pixels */
} ZU_S_Video_Ext;

typedef struct ZU_Video_Encode_Level {
    ZU_U32 u32Level;
} ZU_S_Video_Encode_Level;

/* Quantiser of the key frames of one stream. */
typedef struct ZU_Video_IDR_QP {
    ZU_U32 u32Stream; /* selects the stream, for a read too */
    ZU_U32 u32QP;
} ZU_S_Video_IDR_QP;

typedef struct ZU_Display_Ext {
    ZU_BOOL blFlip;
    ZU_BOOL blMirror;
    ZU_S32 s32Scene;
} ZU_S_Display_Ext;

typedef struct ZU_Display {
    ZU_U32 u32Brightness;
    ZU_U32 u32Saturation;
    ZU_U32 u32Contrast;
    ZU_U32 u32Hue;
} ZU_S_Display;

/* A line of text over the picture. */
typedef struct ZU_OSD_TEXT {
    ZU_BOOL blEnable;
    ZU_U32 x;
    ZU_U32 y;
    ZU_CHAR sName[64];
} ZU_S_OSD_TEXT;

/* The date and time over the picture. */
typedef struct ZU_OSD_DATE {
    ZU_BOOL blEnable;
    ZU_U32 u32Mode;
    ZU_U32 x;
    ZU_U32 y;
} ZU_S_OSD_DATE;

typedef struct ZU_OSD {
    ZU_U32 u32Channel;
    ZU_U32 u32Color;
    ZU_S_OSD_TEXT struText;
    ZU_S_OSD_DATE struDate;
} ZU_S_OSD;

/* Publishing of one stream by the device itself. */
typedef struct ZU_RTMP {
    ZU_U32 u32Stream;
    ZU_BOOL blEnable;
    ZU_BOOL blVideo;
    ZU_BOOL blAudio;
    ZU_CHAR sMrl[256]; /* the publishing address */
} ZU_S_RTMP;

/* The device's clock. */
typedef struct zuSERVERTIME_INFO_S {
    ZU_CHAR sTime[32]; /* text */
} ZU_S_SERVERTIME;

/* Encoding of the sound of one stream. */
typedef struct ZU_Audio_Ext {
    ZU_U32 u32Channel;
    ZU_U32 u32Stream; /* selects the stream, for a read too */
    ZU_BOOL blEnable;
    ZU_U32 u32Type;
    ZU_U32 u32SampleRate;
    ZU_U32 u32BitRate;
    ZU_U32 u32AudioVolume;
} ZU_S_Audio_Ext;

typedef struct ZU_AudioVolume {
    ZU_S32 s32AudioVolume;
} ZU_S_AudioVolume;

typedef struct ZU_Resolution {
    ZU_U32 u32Channel;
    ZU_U32 u32Stream;
    ZU_U32 u32Resolution;
} ZU_S_Resolution;

/* How many programs are connected to the device, and how many it allows. */
typedef struct ZU_MAX_WORKERS {
    ZU_S32 s32ConnectNum;
    ZU_S32 s32MaxWorkers;
} ZU_S_MAX_WORKERS;

typedef struct ZU_CPU_IDLE_INFO {
    ZU_CHAR s32CpuIdle[32]; /* text, whatever its name says */
} ZU_S_CPU_IDLE_INFO;

/* One stored position of the camera head. */
typedef struct ZU_PRESET_DETAILED {
    ZU_S32 s32Num; /* the preset's number */
    ZU_S32 s32Pan;
    ZU_S32 s32Tilt;
    ZU_S32 s32Zoom;
    ZU_S32 s32Focus;
} ZU_S_PRESET_DETAILED;

typedef struct ZU_PRESET_INFO {
    ZU_S32 s32Sum;                         /* entries in use; a device may say more than fit */
    ZU_S_PRESET_DETAILED preset_list[100]; /* the first `s32Sum` of them count */
} ZU_S_PRESET_INFO;

/* ---- callbacks: rule 5 tells their threads and what they may call ---- */

/*
 * A block of stream data has come.
 *
 *   u32Handle    the login, as it was last given to a ZU_NET_DEV_Set...CallBack function.
 *   u32DataType  ZU_NET_DEV_AV_DATA, SYS_DATA or KEY_DATA, by the flag that opens the block. With
 *                an unknown flag, or none, it is that of the block before (0 for the first one of a
 *                connection).
 *   pu8Data      the block, its flag included. Never null; alignment is not promised, so copy a
 *                record out of it. It may be changed, and is overwritten after the return; what
 *                lies behind it belongs to the library.
 *   u32Length    bytes, 0 to 1,048,576. May be under 4, and under 28 for SYS_DATA: check it.
 *   pUserData    as given.
 *
 * The result is ignored. The block is not queued: a slow callback slows the device down, and
 * delays answers and heartbeats. Nothing is delivered while the link is down.
 */
typedef ZU_S32 (*ZU_ON_STREAM_CALLBACK)(ZU_U32 u32Handle, ZU_U32 u32DataType, ZU_U8* pu8Data,
                                        ZU_U32 u32Length, ZU_VOID* pUserData);

/*
 * Something has happened to the link: ZU_NET_DEV_CONNECTED, DISCONNECTED or HEARTBEAT.
 *
 *   u32Handle  the login, as it was last given to a ZU_NET_DEV_Set...CallBack function.
 *   u32Event   the code. See rule 5 for events that come close together.
 *   pUserData  as given.
 *
 * The result is ignored. Calls may overlap and may come out of order; the connection of Login
 * itself is not reported. If the system gives no thread for it, an event is lost with a log line.
 */
typedef ZU_S32 (*ZU_ON_EVENT_CALLBACK)(ZU_U32 u32Handle, ZU_U32 u32Event, ZU_VOID* pUserData);

/* Of the shape of the stream callback. Accepted by ZU_NET_DEV_SetDataCallBack and never called. */
typedef ZU_S32 (*ZU_ON_DATA_CALLBACK)(ZU_U32 u32Handle, ZU_U32 u32DataType, ZU_U8* pu8Data,
                                      ZU_U32 u32Length, ZU_VOID* pUserData);

/* Declared for programs that name them: no function takes them, and none is ever called. */
typedef ZU_S32 (*ZU_ON_RECORD_CALLBACK)(ZU_U32, ZU_U32, ZU_U32, ZU_U32, ZU_VOID* pUserData);
typedef ZU_S32 (*ZU_ON_RECRD_STREAM_CALLBACK)(ZU_U32, ZU_U32, ZU_U8*, ZU_U32, ZU_VOID* pUserData);
typedef ZU_S32 (*ZU_ON_VMD_CALLBACK)(ZU_U32, ZU_U32, ZU_VOID* pUserData);

/*
 * A line of the log.
 *
 *   type  ZU_LOG_TYPE_ERROR or ZU_LOG_TYPE_TRACE.
 *   line  NUL-terminated, at most 255 characters, nearly always with its own line end; a prefix
 *         "[time file +line function] ", then the message. It is one buffer for the whole process:
 *         valid until any thread logs its next line. Lines logged at once by several threads may be
 *         mixed. The message without the prefix stands in dbgout_info.
 *
 * The callback must be quick, for it may hold up the device's traffic. It may call what does not
 * wait, such as ZU_NET_DEV_SetLogLevel, but never Login, Logout, DeInit or a request: it may be on
 * the very thread that these wait for. What it calls may log, and so call it again.
 */
typedef void (*LOG_CALLBACK)(int type, const char* line);

/* ---- the library ---- */

/*
 * Makes the library ready and ignores SIGPIPE for the whole process. Starts no thread.
 *
 * Must not run beside another Init or DeInit. Does not block.
 * ZU_SUCCESS: ready.
 * ZU_FAILURE: already initialised (nothing changes); or its mutex could not be made, and then
 *             DeInit comes first, before Init is tried again.
 * See also ZU_NET_DEV_DeInit; ZU_NET_DEV_SetLogLevel, which needs no Init and should come before.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_Init(void);

/*
 * Ends the use of the library. Logs nobody out, stops no thread and frees nothing: log out every
 * handle first. SIGPIPE stays ignored, log level and log callback stay set, and Init may follow.
 *
 * No other function of the library may be running on any thread. Does not block.
 * ZU_SUCCESS: always, also without Init.
 * See also ZU_NET_DEV_Logout.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_DeInit(void);

/*
 * Connects to a device and makes a login of it. Success means that the link is up; nobody has
 * checked name and password, which the protocol does not carry.
 *
 *   pu32Handle  out, not null. May be written on failure too, and names no login then.
 *   psUsername  not null; cut to its first 15 characters.
 *   psPassword  not null; cut likewise. In clear in the log at level 2.
 *   psHost      not null; dotted IPv4. Anything else counts as 0.0.0.0, which Linux takes for this
 *               machine. Cut likewise, so a longer text may become another address.
 *   u16Port     the device's TCP port, host byte order, not 0.
 *
 * Blocks: mostly half a second; not at all or one second when nobody is there; some four seconds
 * at most. Any thread, but not in a log callback.
 * ZU_SUCCESS: the login lives until Logout, across any number of reconnections.
 * ZU_FAILURE: no Init, a null or 0 argument, 256 logins alive, no memory, descriptors or threads
 *             left, no connection, or not up within three seconds. Nothing is left behind.
 * See also ZU_NET_DEV_Logout; rules 8 and 9.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_Login(ZU_U32* pu32Handle, const ZU_CHAR* psUsername,
                                          const ZU_CHAR* psPassword, const ZU_CHAR* psHost,
                                          ZU_U16 u16Port);

/*
 * Ends a login, whether its link is up or not: closes the connection, ends its threads and gives
 * the slot back. The device is not told to stop a stream; it sees the connection close.
 *
 * When it returns, no thread, descriptor or memory of the login is left, but for calls still under
 * way on other threads and the event callback that it was called from; these end by themselves, a
 * request at log levels 1 and 2 only (rule 3).
 * No callback of the login begins any more. The stream callback is not running either. Event
 * callbacks that were running are waited for, five seconds at most, since one may itself wait for
 * something that the caller holds; from inside an event callback, of any login, they are not waited
 * for. Keep what an event callback uses alive until it has returned.
 *
 *   u32Handle  the login.
 *
 * Blocks: some hundredths of a second while the link is up; a second in the midst of a connect, up
 * to three in the pause before a reconnection; as long as the stream callback takes to return;
 * until a restart of the stream is done, with a silent device some 23 seconds at log levels 1 and
 * 2, and FOR EVER below them (rule 3). Any thread, also in an event callback; never in a stream
 * callback of the login (it would wait for itself) or in a log callback.
 * ZU_SUCCESS: the login is gone.
 * ZU_FAILURE: no Init, no such login, or another Logout of it is at work; that one alone frees it.
 * See also ZU_NET_DEV_Login.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_Logout(ZU_U32 u32Handle);

/* ---- settings of a login ---- */

/*
 * Stores a number that nothing reads. The pause before a reconnection is three seconds, always.
 *
 *   u32Handle    the login.
 *   u32Interval  anything but 0; no unit is defined.
 *
 * Any thread. Does not block.
 * ZU_SUCCESS: stored, without effect.
 * ZU_FAILURE: no Init, interval 0, no such login, or its link is down.
 * See also rule 8.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_SetReconnect(ZU_U32 u32Handle, ZU_U32 u32Interval);

/*
 * Attaches the function that receives the stream, in place of the one before. Without one, stream
 * data is dropped. It stays attached until Logout and cannot be taken off.
 *
 *   u32Handle         the login. Kept as it is spelt, and reported so by all its callbacks.
 *   cbStreamCallBack  not null; runs as ZU_ON_STREAM_CALLBACK says.
 *   pUserData         may be null; handed back as it is. The caller keeps it alive until Logout.
 *
 * Any thread. Does not block. Replacing a callback does not wait for the old one, which may still
 * be running afterwards.
 * ZU_SUCCESS: called from the next block on.
 * ZU_FAILURE: no Init, callback null, no such login, or its link is down (a callback can be
 *             attached only while it is up).
 * See also ZU_NET_DEV_StartStreamExt; rule 5.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_SetStreamCallBack(ZU_U32 u32Handle,
                                                      ZU_ON_STREAM_CALLBACK cbStreamCallBack,
                                                      ZU_VOID* pUserData);

/*
 * Attaches the function that receives events, in place of the one before. It stays attached until
 * Logout and cannot be taken off. The connection that Login made is not reported to it.
 *
 *   u32Handle        the login. Kept as it is spelt, and reported so by all its callbacks.
 *   cbEventCallBack  not null; runs as ZU_ON_EVENT_CALLBACK says.
 *   pUserData        may be null; handed back as it is. Kept alive until Logout has returned and
 *                    no call is running any more.
 *
 * Any thread. Does not block, and does not wait for a running call of the callback it replaces.
 * ZU_SUCCESS: called from the next event on.
 * ZU_FAILURE: no Init, callback null, no such login, or its link is down.
 * See also ZU_NET_DEV_Logout; rule 5.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_SetEventCallBack(ZU_U32 u32Handle,
                                                     ZU_ON_EVENT_CALLBACK cbEventCallBack,
                                                     ZU_VOID* pUserData);

/* ---- the stream: requests, rules 2 and 3 ---- */

/*
 * Asks the device to send a stream, and remembers it for reconnections: from here on each of them
 * starts it anew and asks for a key frame, also when this request fails. Success does not promise
 * data. A further start takes the place of the one remembered.
 *
 *   u32Handle        the login.
 *   pstruStreamInfo  not null, copied. u32Stream 0 to 3; u8Type 1 to 5 or 7 (6 is refused).
 *
 * Blocks until the device answers, with the time limit of rule 3. Any thread; not a log callback,
 * nor a stream callback of the same login.
 * Result: the device's code.
 * ZU_FAILURE: no Init, null or a number out of range, no such login or its link down (nothing is
 *             remembered); or no answer (it is remembered).
 * See also ZU_NET_DEV_SetStreamCallBack, ZU_NET_DEV_StopStream; rule 8.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_StartStreamExt(ZU_U32 u32Handle,
                                                   ZU_S_STREAM_INFO_EXT* pstruStreamInfo);

/*
 * Asks the device to stop the stream that was started last. The stream stays remembered: after the
 * next reconnection it runs again. Only Logout ends that. Blocks may still come after the return.
 *
 *   u32Handle  the login. Without a start before, stream 0 of type 0 is asked to stop.
 *
 * Blocks until the device answers, with the time limit of rule 3. Any thread; not a log callback,
 * nor a stream callback of the same login.
 * Result: the device's code.
 * ZU_FAILURE: no Init, no such login or its link down, or no answer.
 * See also ZU_NET_DEV_StartStreamExt; rule 8.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_StopStream(ZU_U32 u32Handle);

/*
 * Asks the device to send a key frame soon, so that a decoder can begin. Success does not promise
 * the frame.
 *
 *   u32Handle  the login.
 *   u32Stream  11 to 14 for the streams 0 to 3: eleven more than everywhere else.
 *
 * Blocks until the device answers, with the time limit of rule 3. Any thread; not a log callback,
 * nor a stream callback of the same login.
 * Result: the device's code.
 * ZU_FAILURE: no Init, number out of range, no such login or its link down, or no answer.
 * See also ZU_NET_DEV_StartStreamExt.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_MakeKeyFrame(ZU_U32 u32Handle, ZU_U32 u32Stream);

/* ---- settings of the device: requests, rules 2 and 3 ---- */

/*
 * Reads a setting from the device. Five command codes bring a record back, those of the
 * ZU_NET_DEV_CMD_ constants; any other is sent and answered, and leaves the buffer alone.
 *
 *   u32Handle   the login.
 *   u32Command  the device's command code, not checked.
 *   pBuf        in and out. For the five codes it must hold the WHOLE record, however small
 *               u32BufLen is: all of it is written. For the video, audio and IDR_QP records the
 *               field u32Stream is read first and selects the stream, so these three are refused
 *               without a buffer. For every other code it may be null, with u32BufLen 0: the
 *               request is sent, and nothing is copied. Its content counts only when the result
 *               says so.
 *   u32BufLen   bytes, 0 to 3140; limits nothing.
 *
 * Blocks until the device answers, with the time limit of rule 3. Any thread; not a log callback,
 * nor a stream callback of the same login.
 * Result: the device's code. The record is copied whatever the code is. An answer too short for the
 *         code gives 0, and what it lacks of the record is zeros but for the stream selector.
 * ZU_FAILURE: no Init, a length without a buffer or above 3140, no buffer for one of the three
 *             codes that read it, no such login or its link down, or no answer; the buffer is
 *             untouched.
 * See also ZU_NET_DEV_SetConfig.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_GetConfig(ZU_U32 u32Handle, ZU_U32 u32Command, ZU_VOID* pBuf,
                                              ZU_U32 u32BufLen);

/*
 * Changes a setting of the device. The library keeps no copy of it.
 *
 *   u32Handle   the login.
 *   u32Command  the device's command code, not checked; any code is sent.
 *   pBuf        the record, not changed. May be null when u32BufLen is 0.
 *   u32BufLen   bytes of the record, 0 to 3140; what it leaves of the message's 3132 is sent as
 *               zeros, and bytes beyond the 3132nd are not sent.
 *
 * Blocks until the device answers, with the time limit of rule 3. Any thread; not a log callback,
 * nor a stream callback of the same login.
 * Result: the device's code.
 * ZU_FAILURE: no Init, a length without a buffer or above 3140, no such login or its link down, or
 *             no answer; the device may have made the change all the same.
 * See also ZU_NET_DEV_GetConfig, and zu_net_dev_disk.h for records about recordings.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_SetConfig(ZU_U32 u32Handle, ZU_U32 u32Command, ZU_VOID* pBuf,
                                              ZU_U32 u32BufLen);

/* ---- pan, tilt, zoom: requests, rules 2 and 3 ---- */

/*
 * Moves the camera head. An answer says that the device has taken the request, not that a movement
 * has ended; to stop one is a command code like any other.
 *
 *   u32Handle   the login.
 *   u32Command  the device's code of the movement; every value is sent.
 *   u32Speed    the device's scale; every value is sent.
 *
 * Blocks until the device answers, with the time limit of rule 3. Any thread; not a log callback,
 * nor a stream callback of the same login.
 * Result: the device's code.
 * ZU_FAILURE: no Init, no such login or its link down, or no answer.
 * See also ZU_NET_DEV_PTZ_Ctrl_Preset.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_PTZ_Ctrl_Standard(ZU_U32 u32Handle, ZU_U32 u32Command,
                                                      ZU_U32 u32Speed);

/*
 * Stores, visits or clears a numbered position of the camera head. An answer does not say that the
 * head has arrived.
 *
 *   u32Handle   the login.
 *   u32Command  the device's code of what to do; every value is sent.
 *   u32Preset   the position's number; every value is sent.
 *
 * Blocks until the device answers, with the time limit of rule 3. Any thread; not a log callback,
 * nor a stream callback of the same login.
 * Result: the device's code.
 * ZU_FAILURE: no Init, no such login or its link down, or no answer.
 * See also ZU_NET_DEV_GetConfig with ZU_NET_DEV_CMD_PTZ_PRESET_INFO, which lists the positions.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_PTZ_Ctrl_Preset(ZU_U32 u32Handle, ZU_U32 u32Command,
                                                    ZU_U32 u32Preset);

/* ---- without device support ----
 * The device protocol has no message for the nine functions below. They exist so that programs
 * written for a fuller device link and run: each takes any argument, looks at none, reads and
 * writes no state, sends nothing and returns ZU_SUCCESS, before Init too and with any handle or
 * null pointer. Success promises nothing. Any thread; none of them blocks. They log only at
 * level 2, that they were entered and left. */

/*
 * Would attach a callback for raw data. It is not stored and is never called.
 *
 *   u32Handle       any value.
 *   cbDataCallBack  any value, null too.
 *   pUserData       any value, null too; not kept.
 *
 * ZU_SUCCESS: always. See also ZU_NET_DEV_SetStreamCallBack, which delivers what there is.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_SetDataCallBack(ZU_U32 u32Handle,
                                                    ZU_ON_DATA_CALLBACK cbDataCallBack,
                                                    ZU_VOID* pUserData);

/*
 * Would move the camera head without a speed. Nothing moves.
 *
 *   u32Handle   any value.
 *   u32Command  any value.
 *
 * ZU_SUCCESS: always. See also ZU_NET_DEV_PTZ_Ctrl_Standard.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_PTZ_Ctrl_StandardEx(ZU_U32 u32Handle, ZU_U32 u32Command);

/*
 * Would pass bytes to the camera head as they are. Nothing is sent.
 *
 *   u32Handle  any value.
 *   psBuf      any value, null too; not read.
 *   u32BufLen  any value, in bytes.
 *
 * ZU_SUCCESS: always. See also ZU_NET_DEV_PTZ_Ctrl_Standard.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_PTZ_Fully_Trans(ZU_U32 u32Handle, const ZU_CHAR* psBuf,
                                                    ZU_U32 u32BufLen);

/*
 * Would open the sound channel to the device. None is opened.
 *
 *   u32Handle     any value.
 *   u32AudioType  any value.
 *
 * ZU_SUCCESS: always. See also ZU_NET_DEV_SendVoiceData, ZU_NET_DEV_StopVoice.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_StartVoice(ZU_U32 u32Handle, ZU_U32 u32AudioType);

/*
 * Would close the sound channel to the device. There is none.
 *
 *   u32Handle  any value.
 *
 * ZU_SUCCESS: always. See also ZU_NET_DEV_StartVoice.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_StopVoice(ZU_U32 u32Handle);

/*
 * Would play sound at the device. Nothing is sent.
 *
 *   u32Handle  any value.
 *   psBuf      any value, null too; not read.
 *   u32BufLen  any value, in bytes.
 *   u64Pts     any value.
 *
 * ZU_SUCCESS: always. See also ZU_NET_DEV_StartVoice.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_SendVoiceData(ZU_U32 u32Handle, ZU_CHAR* psBuf,
                                                  ZU_U32 u32BufLen, ZU_U64 u64Pts);

/*
 * Would record a stream to a file. No file is opened; a program that wants one writes what its
 * stream callback receives.
 *
 *   u32Handle  any value.
 *   psPath     any value, null too; not read.
 *   u32Type    any value.
 *   u32Flag    any value.
 *
 * ZU_SUCCESS: always. See also ZU_NET_DEV_SetStreamCallBack.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_StartRecord(ZU_U32 u32Handle, ZU_CHAR* psPath, ZU_U32 u32Type,
                                                ZU_U32 u32Flag);

/*
 * Would end a recording. There is none.
 *
 *   u32Handle  any value.
 *
 * ZU_SUCCESS: always. See also ZU_NET_DEV_StartRecord.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_StopRecord(ZU_U32 u32Handle);

/*
 * Would tell whether a recording runs. The result says nothing about it, and there is no other.
 *
 *   u32Handle  any value.
 *
 * ZU_SUCCESS: always. See also ZU_NET_DEV_StartRecord.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_GetRecordState(ZU_U32 u32Handle);

/* ---- the log ---- */

/*
 * Chooses what is logged, and with it whether requests have a time limit (rule 3). The level is
 * one for the whole process and starts at -1, which logs as little as 0 and cannot be set again.
 * A handful of lines about lost connections and shutdowns come at every level.
 *
 *   type  ZU_LOG_LEVEL_OFF, ZU_LOG_LEVEL_ERROR or ZU_LOG_LEVEL_TRACE (with the password: rule 9).
 *
 * Any thread, any time, before Init and from a log callback too. Does not block, logs nothing.
 * Holds for requests already waiting.
 * ZU_SUCCESS: set.
 * ZU_FAILURE: above 2; the level stays.
 * See also ZU_NET_DEV_SetLogCallback.
 */
ZU_NET_DEV_EXPORT ZU_S32 ZU_NET_DEV_SetLogLevel(ZU_U32 type);

/*
 * Sends the lines to a function, in place of the one before; until the first is set they are
 * printed to standard output, and there is no way back to that.
 *
 *   callback  not null; runs as LOG_CALLBACK says, until the process ends or another is set.
 *
 * Any thread, any time, before Init and from a log callback too. Does not block, logs nothing, and
 * does not wait for a running call of the callback it replaces. DeInit does not take it off.
 * 0: set.
 * -1: null; the one before stays.
 * See also ZU_NET_DEV_SetLogLevel, info_callback, dbgout_info.
 */
ZU_NET_DEV_EXPORT int ZU_NET_DEV_SetLogCallback(LOG_CALLBACK callback);

/* The log callback in force, null for standard output. To be read; ZU_NET_DEV_SetLogCallback is
 * what sets it. */
ZU_NET_DEV_EXPORT extern LOG_CALLBACK info_callback;

/* The message of the latest line without its prefix, NUL-terminated; meant to be read by the log
 * callback. One buffer for all threads: it may change, or be a mixture of two, while it is read. */
ZU_NET_DEV_EXPORT extern char dbgout_info[256];

#ifdef __cplusplus
}
#endif

/* ---- the layout, as the device sees it ---- */

ZU_ASSERT_SIZE(ZU_S_VideoHeader, 8);
ZU_ASSERT_FIELD(ZU_S_VideoHeader, u32Width, 0);
ZU_ASSERT_FIELD(ZU_S_VideoHeader, u32Height, 4);

ZU_ASSERT_SIZE(ZU_S_AudioHeader, 4);
ZU_ASSERT_FIELD(ZU_S_AudioHeader, u32Format, 0);

ZU_ASSERT_SIZE(ZU_S_StreamHeader, 12);
ZU_ASSERT_FIELD(ZU_S_StreamHeader, u32Stream, 0);
ZU_ASSERT_FIELD(ZU_S_StreamHeader, u32FrameRate, 4);
ZU_ASSERT_FIELD(ZU_S_StreamHeader, u32BitRate, 8);

ZU_ASSERT_SIZE(ZU_S_SysHeader, 28);
ZU_ASSERT_FIELD(ZU_S_SysHeader, u32SysFlag, 0);
ZU_ASSERT_FIELD(ZU_S_SysHeader, struVHeader, 4);
ZU_ASSERT_FIELD(ZU_S_SysHeader, struAHeader, 12);
ZU_ASSERT_FIELD(ZU_S_SysHeader, struSHeader, 16);

ZU_ASSERT_SIZE(ZU_S_STREAM_INFO_EXT, 16);
ZU_ASSERT_FIELD(ZU_S_STREAM_INFO_EXT, u32Channel, 0);
ZU_ASSERT_FIELD(ZU_S_STREAM_INFO_EXT, u32Stream, 4);
ZU_ASSERT_FIELD(ZU_S_STREAM_INFO_EXT, u32Mode, 8);
ZU_ASSERT_FIELD(ZU_S_STREAM_INFO_EXT, u8Type, 12);

ZU_ASSERT_SIZE(ZU_S_Video_Ext, 44);
ZU_ASSERT_FIELD(ZU_S_Video_Ext, u32Channel, 0);
ZU_ASSERT_FIELD(ZU_S_Video_Ext, u32Stream, 4);
ZU_ASSERT_FIELD(ZU_S_Video_Ext, u32Protocol, 8);
ZU_ASSERT_FIELD(ZU_S_Video_Ext, u32Bitrate, 12);
ZU_ASSERT_FIELD(ZU_S_Video_Ext, u32Frame, 16);
ZU_ASSERT_FIELD(ZU_S_Video_Ext, u32Iframe, 20);
ZU_ASSERT_FIELD(ZU_S_Video_Ext, u32Cbr, 24);
ZU_ASSERT_FIELD(ZU_S_Video_Ext, u32ImgQuality, 28);
ZU_ASSERT_FIELD(ZU_S_Video_Ext, u32Resolution, 32);
ZU_ASSERT_FIELD(ZU_S_Video_Ext, u32Width, 36);
ZU_ASSERT_FIELD(ZU_S_Video_Ext, u32Height, 40);

ZU_ASSERT_SIZE(ZU_S_Video_Encode_Level, 4);
ZU_ASSERT_FIELD(ZU_S_Video_Encode_Level, u32Level, 0);

ZU_ASSERT_SIZE(ZU_S_Video_IDR_QP, 8);
ZU_ASSERT_FIELD(ZU_S_Video_IDR_QP, u32Stream, 0);
ZU_ASSERT_FIELD(ZU_S_Video_IDR_QP, u32QP, 4);

ZU_ASSERT_SIZE(ZU_S_Display_Ext, 12);
ZU_ASSERT_FIELD(ZU_S_Display_Ext, blFlip, 0);
ZU_ASSERT_FIELD(ZU_S_Display_Ext, blMirror, 4);
ZU_ASSERT_FIELD(ZU_S_Display_Ext, s32Scene, 8);

ZU_ASSERT_SIZE(ZU_S_Display, 16);
ZU_ASSERT_FIELD(ZU_S_Display, u32Brightness, 0);
ZU_ASSERT_FIELD(ZU_S_Display, u32Saturation, 4);
ZU_ASSERT_FIELD(ZU_S_Display, u32Contrast, 8);
ZU_ASSERT_FIELD(ZU_S_Display, u32Hue, 12);

ZU_ASSERT_SIZE(ZU_S_OSD_TEXT, 76);
ZU_ASSERT_FIELD(ZU_S_OSD_TEXT, blEnable, 0);
ZU_ASSERT_FIELD(ZU_S_OSD_TEXT, x, 4);
ZU_ASSERT_FIELD(ZU_S_OSD_TEXT, y, 8);
ZU_ASSERT_FIELD(ZU_S_OSD_TEXT, sName, 12);

ZU_ASSERT_SIZE(ZU_S_OSD_DATE, 16);
ZU_ASSERT_FIELD(ZU_S_OSD_DATE, blEnable, 0);
ZU_ASSERT_FIELD(ZU_S_OSD_DATE, u32Mode, 4);
ZU_ASSERT_FIELD(ZU_S_OSD_DATE, x, 8);
ZU_ASSERT_FIELD(ZU_S_OSD_DATE, y, 12);

ZU_ASSERT_SIZE(ZU_S_OSD, 100);
ZU_ASSERT_FIELD(ZU_S_OSD, u32Channel, 0);
ZU_ASSERT_FIELD(ZU_S_OSD, u32Color, 4);
ZU_ASSERT_FIELD(ZU_S_OSD, struText, 8);
ZU_ASSERT_FIELD(ZU_S_OSD, struDate, 84);

ZU_ASSERT_SIZE(ZU_S_RTMP, 272);
ZU_ASSERT_FIELD(ZU_S_RTMP, u32Stream, 0);
ZU_ASSERT_FIELD(ZU_S_RTMP, blEnable, 4);
ZU_ASSERT_FIELD(ZU_S_RTMP, blVideo, 8);
ZU_ASSERT_FIELD(ZU_S_RTMP, blAudio, 12);
ZU_ASSERT_FIELD(ZU_S_RTMP, sMrl, 16);

ZU_ASSERT_SIZE(ZU_S_SERVERTIME, 32);
ZU_ASSERT_FIELD(ZU_S_SERVERTIME, sTime, 0);

ZU_ASSERT_SIZE(ZU_S_Audio_Ext, 28);
ZU_ASSERT_FIELD(ZU_S_Audio_Ext, u32Channel, 0);
ZU_ASSERT_FIELD(ZU_S_Audio_Ext, u32Stream, 4);
ZU_ASSERT_FIELD(ZU_S_Audio_Ext, blEnable, 8);
ZU_ASSERT_FIELD(ZU_S_Audio_Ext, u32Type, 12);
ZU_ASSERT_FIELD(ZU_S_Audio_Ext, u32SampleRate, 16);
ZU_ASSERT_FIELD(ZU_S_Audio_Ext, u32BitRate, 20);
ZU_ASSERT_FIELD(ZU_S_Audio_Ext, u32AudioVolume, 24);

ZU_ASSERT_SIZE(ZU_S_AudioVolume, 4);
ZU_ASSERT_FIELD(ZU_S_AudioVolume, s32AudioVolume, 0);

ZU_ASSERT_SIZE(ZU_S_Resolution, 12);
ZU_ASSERT_FIELD(ZU_S_Resolution, u32Channel, 0);
ZU_ASSERT_FIELD(ZU_S_Resolution, u32Stream, 4);
ZU_ASSERT_FIELD(ZU_S_Resolution, u32Resolution, 8);

ZU_ASSERT_SIZE(ZU_S_MAX_WORKERS, 8);
ZU_ASSERT_FIELD(ZU_S_MAX_WORKERS, s32ConnectNum, 0);
ZU_ASSERT_FIELD(ZU_S_MAX_WORKERS, s32MaxWorkers, 4);

ZU_ASSERT_SIZE(ZU_S_CPU_IDLE_INFO, 32);
ZU_ASSERT_FIELD(ZU_S_CPU_IDLE_INFO, s32CpuIdle, 0);

ZU_ASSERT_SIZE(ZU_S_PRESET_DETAILED, 20);
ZU_ASSERT_FIELD(ZU_S_PRESET_DETAILED, s32Num, 0);
ZU_ASSERT_FIELD(ZU_S_PRESET_DETAILED, s32Pan, 4);
ZU_ASSERT_FIELD(ZU_S_PRESET_DETAILED, s32Tilt, 8);
ZU_ASSERT_FIELD(ZU_S_PRESET_DETAILED, s32Zoom, 12);
ZU_ASSERT_FIELD(ZU_S_PRESET_DETAILED, s32Focus, 16);

ZU_ASSERT_SIZE(ZU_S_PRESET_INFO, 2004);
ZU_ASSERT_FIELD(ZU_S_PRESET_INFO, s32Sum, 0);
ZU_ASSERT_FIELD(ZU_S_PRESET_INFO, preset_list, 4);

#endif /* ZU_NET_DEV_API_H */
