/*
 * A C program on the shared library: start, end, log, and the refusals that need no device. One
 * case per process, so each begins with a library that nobody has touched.
 */
#include "check.h"
#include "zu_net_dev_api.h"

/* What the log callback has seen. */
static int lines;
static int last_type;
static char last_line[256];
static char last_message[256];

static void note_line(int type, const char* line)
{
    ++lines;
    last_type = type;
    snprintf(last_line, sizeof(last_line), "%s", line);
    snprintf(last_message, sizeof(last_message), "%s", dbgout_info);
}

static int ends_with(const char* text, const char* end)
{
    const size_t text_length = strlen(text);
    const size_t end_length = strlen(end);
    return text_length >= end_length && strcmp(text + text_length - end_length, end) == 0;
}

static void log_at(ZU_U32 level)
{
    CHECK_EQUAL(ZU_NET_DEV_SetLogCallback(note_line), 0);
    CHECK_EQUAL(ZU_NET_DEV_SetLogLevel(level), 0);
}

static ZU_S32 on_stream(ZU_U32 handle, ZU_U32 data_type, ZU_U8* data, ZU_U32 length, ZU_VOID* user)
{
    (void)handle;
    (void)data_type;
    (void)data;
    (void)length;
    (void)user;
    return 0;
}

static ZU_S32 on_event(ZU_U32 handle, ZU_U32 event, ZU_VOID* user)
{
    (void)handle;
    (void)event;
    (void)user;
    return 0;
}

static void init_refuses_a_second_time_until_deinit(void)
{
    CHECK_EQUAL(ZU_NET_DEV_Init(), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_Init(), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_DeInit(), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_Init(), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_DeInit(), ZU_SUCCESS);
}

static void deinit_succeeds_without_init(void)
{
    CHECK_EQUAL(ZU_NET_DEV_DeInit(), ZU_SUCCESS);
}

static void login_refuses_before_init(void)
{
    ZU_U32 handle = 0;
    CHECK_EQUAL(ZU_NET_DEV_Login(&handle, "user", "password", "127.0.0.1", 9000), ZU_FAILURE);
}

static void login_refuses_missing_arguments(void)
{
    static const char expected[] = "zu_sdk_inited == 0 || psUsername == NULL || psPassword == NULL"
                                   " || psHost == NULL || u16Port == 0\n";
    ZU_U32 handle = 7;
    log_at(ZU_LOG_LEVEL_ERROR);
    CHECK_EQUAL(ZU_NET_DEV_Init(), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_Login(&handle, NULL, "password", "127.0.0.1", 9000), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_Login(&handle, "user", NULL, "127.0.0.1", 9000), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_Login(&handle, "user", "password", NULL, 9000), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_Login(&handle, "user", "password", "127.0.0.1", 0), ZU_FAILURE);
    CHECK_EQUAL(handle, 7);
    CHECK_EQUAL(lines, 4);
    CHECK_EQUAL(last_type, ZU_LOG_TYPE_ERROR);
    CHECK(strcmp(last_message, expected) == 0);
    CHECK_EQUAL(ZU_NET_DEV_DeInit(), ZU_SUCCESS);
}

static void a_handle_of_nobody_is_refused(void)
{
    ZU_S_STREAM_INFO_EXT stream = {0, 0, 0, 1};
    ZU_S_Video_Ext video = {0};
    const ZU_U32 handle = 0x43210000;
    CHECK_EQUAL(ZU_NET_DEV_Init(), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_Logout(handle), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_SetReconnect(handle, 1), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_SetStreamCallBack(handle, on_stream, NULL), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_SetEventCallBack(handle, on_event, NULL), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_StartStreamExt(handle, &stream), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_StopStream(handle), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_MakeKeyFrame(handle, 11), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_GetConfig(handle, ZU_NET_DEV_CMD_VIDEO_PARAM_EXT, &video, sizeof video),
                ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_SetConfig(handle, ZU_NET_DEV_CMD_VIDEO_PARAM_EXT, &video, sizeof video),
                ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_PTZ_Ctrl_Standard(handle, 1, 1), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_PTZ_Ctrl_Preset(handle, 1, 1), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_DeInit(), ZU_SUCCESS);
}

static void the_functions_without_device_support_succeed(void)
{
    char data[4] = {0};
    CHECK_EQUAL(ZU_NET_DEV_SetDataCallBack(0, NULL, NULL), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_PTZ_Ctrl_StandardEx(0, 1), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_PTZ_Fully_Trans(0, data, 4), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_StartVoice(0, 1), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_StopVoice(0), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_SendVoiceData(0, data, 4, 1), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_StartRecord(0, data, 1, 1), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_StopRecord(0), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_GetRecordState(0), ZU_SUCCESS);
}

static void log_settings_refuse_what_they_do_not_know(void)
{
    log_at(ZU_LOG_LEVEL_TRACE);
    CHECK_EQUAL(ZU_NET_DEV_SetLogLevel(3), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_SetLogLevel(0xFFFFFFFFU), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_SetLogCallback(NULL), -1);
    CHECK(info_callback == note_line);
    CHECK_EQUAL(lines, 0);
    CHECK_EQUAL(ZU_NET_DEV_DeInit(), ZU_SUCCESS);
    CHECK_EQUAL(lines, 2); /* still at level 2, still to the same callback */
}

static void the_log_is_silent_until_a_level_is_set(void)
{
    CHECK(info_callback == NULL);
    CHECK_EQUAL(ZU_NET_DEV_SetLogCallback(note_line), 0);
    CHECK_EQUAL(ZU_NET_DEV_Init(), ZU_SUCCESS);
    CHECK_EQUAL(ZU_NET_DEV_Init(), ZU_FAILURE);
    CHECK_EQUAL(ZU_NET_DEV_DeInit(), ZU_SUCCESS);
    CHECK_EQUAL(lines, 0);
}

static void a_log_callback_gets_the_line_and_finds_the_message(void)
{
    log_at(ZU_LOG_LEVEL_TRACE);
    CHECK_EQUAL(ZU_NET_DEV_Init(), ZU_SUCCESS);
    CHECK_EQUAL(lines, 2);
    CHECK_EQUAL(last_type, ZU_LOG_TYPE_TRACE);
    CHECK(last_line[0] == '[');
    CHECK(ends_with(last_line, " ZU_NET_DEV_Init] leave ZU_NET_DEV_Init\n"));
    CHECK(strcmp(last_message, "leave ZU_NET_DEV_Init\n") == 0);
    CHECK_EQUAL(ZU_NET_DEV_DeInit(), ZU_SUCCESS);
}

int main(int argc, char** argv)
{
    static const struct test_case cases[] = {
        {"init_refuses_a_second_time_until_deinit", init_refuses_a_second_time_until_deinit},
        {"deinit_succeeds_without_init", deinit_succeeds_without_init},
        {"login_refuses_before_init", login_refuses_before_init},
        {"login_refuses_missing_arguments", login_refuses_missing_arguments},
        {"a_handle_of_nobody_is_refused", a_handle_of_nobody_is_refused},
        {"the_functions_without_device_support_succeed",
         the_functions_without_device_support_succeed},
        {"log_settings_refuse_what_they_do_not_know", log_settings_refuse_what_they_do_not_know},
        {"the_log_is_silent_until_a_level_is_set", the_log_is_silent_until_a_level_is_set},
        {"a_log_callback_gets_the_line_and_finds_the_message",
         a_log_callback_gets_the_line_and_finds_the_message},
    };
    return RUN_CASE(cases, argc, argv);
}
