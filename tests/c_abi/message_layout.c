/*
 * The records of the wire, in numbers written by hand: sizes, fields, codes. Built twice, as C and
 * as C++. The header under test comes first, so that it must bring all it needs.
 */
#include "zu_net_dev_msg.h"

#include "check.h"

#define FIELD(record, field, offset, bytes)                                                        \
    do {                                                                                           \
        check_number("offset of " #record "." #field, (long long)offsetof(record, field), offset); \
        check_number("size of " #record "." #field, (long long)sizeof(((record*)0)->field),        \
                     bytes);                                                                       \
    } while (0)

static void records_have_their_sizes(void)
{
    CHECK_EQUAL(sizeof(zu_sdk_msg_head), 12);
    CHECK_EQUAL(sizeof(zu_sdk_msg_response), 4);
    CHECK_EQUAL(sizeof(zu_sdk_msg_startstream), 8);
    CHECK_EQUAL(sizeof(zu_sdk_msg_stopstream), 8);
    CHECK_EQUAL(sizeof(zu_sdk_msg_ptz), 8);
    CHECK_EQUAL(sizeof(zu_sdk_msg_preset), 8);
    CHECK_EQUAL(sizeof(zu_sdk_msg_makekeyframe), 4);
    CHECK_EQUAL(sizeof(zu_sdk_msg_config), 3140);
}

static void fields_lie_at_their_offsets(void)
{
    FIELD(zu_sdk_msg_head, type, 0, 4);
    FIELD(zu_sdk_msg_head, len, 4, 4);
    FIELD(zu_sdk_msg_head, wait_port, 8, 4);
    FIELD(zu_sdk_msg_response, retcode, 0, 4);
    FIELD(zu_sdk_msg_startstream, stream, 0, 4);
    FIELD(zu_sdk_msg_startstream, type, 4, 4);
    FIELD(zu_sdk_msg_stopstream, stream, 0, 4);
    FIELD(zu_sdk_msg_stopstream, type, 4, 4);
    FIELD(zu_sdk_msg_ptz, action, 0, 4);
    FIELD(zu_sdk_msg_ptz, speed, 4, 4);
    FIELD(zu_sdk_msg_preset, action, 0, 4);
    FIELD(zu_sdk_msg_preset, num, 4, 4);
    FIELD(zu_sdk_msg_makekeyframe, stream, 0, 4);
    FIELD(zu_sdk_msg_config, cmd, 0, 4);
    FIELD(zu_sdk_msg_config, retcode, 4, 4);
    FIELD(zu_sdk_msg_config, u, 8, 3132);
}

static void all_settings_start_at_the_same_place(void)
{
    FIELD(zu_sdk_msg_config, u.display, 8, 16);
    FIELD(zu_sdk_msg_config, u.display_ext, 8, 12);
    FIELD(zu_sdk_msg_config, u.osd, 8, 100);
    FIELD(zu_sdk_msg_config, u.servertime, 8, 32);
    FIELD(zu_sdk_msg_config, u.video_ext, 8, 44);
    FIELD(zu_sdk_msg_config, u.audio_ext, 8, 28);
    FIELD(zu_sdk_msg_config, u.audiovolume, 8, 4);
    FIELD(zu_sdk_msg_config, u.resolution, 8, 12);
    FIELD(zu_sdk_msg_config, u.rtmp_ext, 8, 272);
    FIELD(zu_sdk_msg_config, u.record_para, 8, 32);
    FIELD(zu_sdk_msg_config, u.udisk_info, 8, 8);
    FIELD(zu_sdk_msg_config, u.filelist_info, 8, 3132);
    FIELD(zu_sdk_msg_config, u.file_delete, 8, 260);
    FIELD(zu_sdk_msg_config, u.record_stream, 8, 304);
    FIELD(zu_sdk_msg_config, u.record_status, 8, 4);
    FIELD(zu_sdk_msg_config, u.max_workers, 8, 8);
    FIELD(zu_sdk_msg_config, u.cpu_idle_info, 8, 32);
    FIELD(zu_sdk_msg_config, u.auto_record, 8, 32);
    FIELD(zu_sdk_msg_config, u.encode_level, 8, 4);
    FIELD(zu_sdk_msg_config, u.preset_info, 8, 2004);
    FIELD(zu_sdk_msg_config, u.idr_qp, 8, 8);
}

static void codes_have_their_values(void)
{
    CHECK_EQUAL(ZU_SDK_MSG_REQ_STARTSTREAM, 4097);
    CHECK_EQUAL(ZU_SDK_MSG_RES_STARTSTREAM, 4098);
    CHECK_EQUAL(ZU_SDK_MSG_REQ_STOPSTREAM, 4113);
    CHECK_EQUAL(ZU_SDK_MSG_RES_STOPSTREAM, 4114);
    CHECK_EQUAL(ZU_SDK_MSG_REQ_HEARTBEAT, 4129);
    CHECK_EQUAL(ZU_SDK_MSG_RES_HEARTBEAT, 4130);
    CHECK_EQUAL(ZU_SDK_MSG_REQ_PTZ, 4145);
    CHECK_EQUAL(ZU_SDK_MSG_RES_PTZ, 4146);
    CHECK_EQUAL(ZU_SDK_MSG_REQ_PRESET, 4161);
    CHECK_EQUAL(ZU_SDK_MSG_RES_PRESET, 4162);
    CHECK_EQUAL(ZU_SDK_MSG_REQ_MAKEKEYFRAME, 4177);
    CHECK_EQUAL(ZU_SDK_MSG_RES_MAKEKEYFRAME, 4178);
    CHECK_EQUAL(ZU_SDK_MSG_REQ_SETCONFIG, 4193);
    CHECK_EQUAL(ZU_SDK_MSG_RES_SETCONFIG, 4194);
    CHECK_EQUAL(ZU_SDK_MSG_REQ_GETCONFIG, 4209);
    CHECK_EQUAL(ZU_SDK_MSG_RES_GETCONFIG, 4210);
    CHECK_EQUAL(ZU_SDK_MSG_STREAM_DATA, 4352);
}

static void words_are_signed(void)
{
    const zu_sdk_msg_head head = {-1, -1, -1};
    const zu_sdk_msg_response response = {-1};
    CHECK(head.type < 0);
    CHECK(head.len < 0);
    CHECK(head.wait_port < 0);
    CHECK(response.retcode < 0);
}

int main(int argc, char** argv)
{
    static const struct test_case cases[] = {
        {"records_have_their_sizes", records_have_their_sizes},
        {"fields_lie_at_their_offsets", fields_lie_at_their_offsets},
        {"all_settings_start_at_the_same_place", all_settings_start_at_the_same_place},
        {"codes_have_their_values", codes_have_their_values},
        {"words_are_signed", words_are_signed},
    };
    return RUN_CASE(cases, argc, argv);
}
