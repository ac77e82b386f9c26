/*
 * The public records as the device sees them: every size, and where every field lies and how wide
 * it is, in numbers written by hand. Built twice, as C and as C++, for both must lay them out
 * alike.
 */
#include "check.h"
#include "zu_net_dev_api.h"
#include "zu_net_dev_disk.h"

#define FIELD(record, field, offset, bytes)                                                        \
    do {                                                                                           \
        check_number("offset of " #record "." #field, (long long)offsetof(record, field), offset); \
        check_number("size of " #record "." #field, (long long)sizeof(((record*)0)->field),        \
                     bytes);                                                                       \
    } while (0)

static void scalar_types_have_their_widths(void)
{
    CHECK_EQUAL(sizeof(ZU_U8), 1);
    CHECK_EQUAL(sizeof(ZU_U16), 2);
    CHECK_EQUAL(sizeof(ZU_U32), 4);
    CHECK_EQUAL(sizeof(ZU_S32), 4);
    CHECK_EQUAL(sizeof(ZU_U64), 8);
    CHECK_EQUAL(sizeof(ZU_CHAR), 1);
    CHECK_EQUAL(sizeof(ZU_BOOL), 4);
    CHECK_EQUAL(ZU_FALSE, 0);
    CHECK_EQUAL(ZU_TRUE, 1);
    CHECK((ZU_U8)-1 > 0);
    CHECK((ZU_U16)-1 > 0);
    CHECK((ZU_U32)-1 > 0);
    CHECK((ZU_S32)-1 < 0);
    CHECK((ZU_U64)-1 > 0);
}

static void records_have_their_sizes(void)
{
    CHECK_EQUAL(sizeof(ZU_S_VideoHeader), 8);
    CHECK_EQUAL(sizeof(ZU_S_AudioHeader), 4);
    CHECK_EQUAL(sizeof(ZU_S_StreamHeader), 12);
    CHECK_EQUAL(sizeof(ZU_S_SysHeader), 28);
    CHECK_EQUAL(sizeof(ZU_S_STREAM_INFO_EXT), 16);
    CHECK_EQUAL(sizeof(ZU_S_Video_Ext), 44);
    CHECK_EQUAL(sizeof(ZU_S_Video_Encode_Level), 4);
    CHECK_EQUAL(sizeof(ZU_S_Video_IDR_QP), 8);
    CHECK_EQUAL(sizeof(ZU_S_Display_Ext), 12);
    CHECK_EQUAL(sizeof(ZU_S_Display), 16);
    CHECK_EQUAL(sizeof(ZU_S_OSD_TEXT), 76);
    CHECK_EQUAL(sizeof(ZU_S_OSD_DATE), 16);
    CHECK_EQUAL(sizeof(ZU_S_OSD), 100);
    CHECK_EQUAL(sizeof(ZU_S_RTMP), 272);
    CHECK_EQUAL(sizeof(ZU_S_SERVERTIME), 32);
    CHECK_EQUAL(sizeof(ZU_S_Audio_Ext), 28);
    CHECK_EQUAL(sizeof(ZU_S_AudioVolume), 4);
    CHECK_EQUAL(sizeof(ZU_S_Resolution), 12);
    CHECK_EQUAL(sizeof(ZU_S_MAX_WORKERS), 8);
    CHECK_EQUAL(sizeof(ZU_S_CPU_IDLE_INFO), 32);
    CHECK_EQUAL(sizeof(ZU_S_PRESET_DETAILED), 20);
    CHECK_EQUAL(sizeof(ZU_S_PRESET_INFO), 2004);
    CHECK_EQUAL(sizeof(ZU_S_StartRecord), 32);
    CHECK_EQUAL(sizeof(ZU_S_RECORD_DATE), 20);
    CHECK_EQUAL(sizeof(ZU_S_GetFileList), 3132);
    CHECK_EQUAL(sizeof(ZU_S_DeleteFile), 260);
    CHECK_EQUAL(sizeof(ZU_S_GetRecordStream), 304);
    CHECK_EQUAL(sizeof(ZU_S_GetUdiskInfo), 8);
    CHECK_EQUAL(sizeof(ZU_S_RecordStatus), 4);
    CHECK_EQUAL(sizeof(ZU_S_AutoRecord), 32);
}

static void videoheader_fields(void)
{
    FIELD(ZU_S_VideoHeader, u32Width, 0, 4);
    FIELD(ZU_S_VideoHeader, u32Height, 4, 4);
}

static void audioheader_fields(void)
{
    FIELD(ZU_S_AudioHeader, u32Format, 0, 4);
}

static void streamheader_fields(void)
{
    FIELD(ZU_S_StreamHeader, u32Stream, 0, 4);
    FIELD(ZU_S_StreamHeader, u32FrameRate, 4, 4);
    FIELD(ZU_S_StreamHeader, u32BitRate, 8, 4);
}

static void sysheader_fields(void)
{
    FIELD(ZU_S_SysHeader, u32SysFlag, 0, 4);
    FIELD(ZU_S_SysHeader, struVHeader, 4, 8);
    FIELD(ZU_S_SysHeader, struAHeader, 12, 4);
    FIELD(ZU_S_SysHeader, struSHeader, 16, 12);
}

static void stream_info_ext_fields(void)
{
    FIELD(ZU_S_STREAM_INFO_EXT, u32Channel, 0, 4);
    FIELD(ZU_S_STREAM_INFO_EXT, u32Stream, 4, 4);
    FIELD(ZU_S_STREAM_INFO_EXT, u32Mode, 8, 4);
    FIELD(ZU_S_STREAM_INFO_EXT, u8Type, 12, 1);
}

static void video_ext_fields(void)
{
    FIELD(ZU_S_Video_Ext, u32Channel, 0, 4);
    FIELD(ZU_S_Video_Ext, u32Stream, 4, 4);
    FIELD(ZU_S_Video_Ext, u32Protocol, 8, 4);
    FIELD(ZU_S_Video_Ext, u32Bitrate, 12, 4);
    FIELD(ZU_S_Video_Ext, u32Frame, 16, 4);
    FIELD(ZU_S_Video_Ext, u32Iframe, 20, 4);
    FIELD(ZU_S_Video_Ext, u32Cbr, 24, 4);
    FIELD(ZU_S_Video_Ext, u32ImgQuality, 28, 4);
    FIELD(ZU_S_Video_Ext, u32Resolution, 32, 4);
    FIELD(ZU_S_Video_Ext, u32Width, 36, 4);
    FIELD(ZU_S_Video_Ext, u32Height, 40, 4);
}

static void video_encode_level_fields(void)
{
    FIELD(ZU_S_Video_Encode_Level, u32Level, 0, 4);
}

static void video_idr_qp_fields(void)
{
    FIELD(ZU_S_Video_IDR_QP, u32Stream, 0, 4);
    FIELD(ZU_S_Video_IDR_QP, u32QP, 4, 4);
}

static void display_ext_fields(void)
{
    FIELD(ZU_S_Display_Ext, blFlip, 0, 4);
    FIELD(ZU_S_Display_Ext, blMirror, 4, 4);
    FIELD(ZU_S_Display_Ext, s32Scene, 8, 4);
}

static void display_fields(void)
{
    FIELD(ZU_S_Display, u32Brightness, 0, 4);
    FIELD(ZU_S_Display, u32Saturation, 4, 4);
    FIELD(ZU_S_Display, u32Contrast, 8, 4);
    FIELD(ZU_S_Display, u32Hue, 12, 4);
}

static void osd_text_fields(void)
{
    FIELD(ZU_S_OSD_TEXT, blEnable, 0, 4);
    FIELD(ZU_S_OSD_TEXT, x, 4, 4);
    FIELD(ZU_S_OSD_TEXT, y, 8, 4);
    FIELD(ZU_S_OSD_TEXT, sName, 12, 64);
}

static void osd_date_fields(void)
{
    FIELD(ZU_S_OSD_DATE, blEnable, 0, 4);
    FIELD(ZU_S_OSD_DATE, u32Mode, 4, 4);
    FIELD(ZU_S_OSD_DATE, x, 8, 4);
    FIELD(ZU_S_OSD_DATE, y, 12, 4);
}

static void osd_fields(void)
{
    FIELD(ZU_S_OSD, u32Channel, 0, 4);
    FIELD(ZU_S_OSD, u32Color, 4, 4);
    FIELD(ZU_S_OSD, struText, 8, 76);
    FIELD(ZU_S_OSD, struDate, 84, 16);
}

static void rtmp_fields(void)
{
    FIELD(ZU_S_RTMP, u32Stream, 0, 4);
    FIELD(ZU_S_RTMP, blEnable, 4, 4);
    FIELD(ZU_S_RTMP, blVideo, 8, 4);
    FIELD(ZU_S_RTMP, blAudio, 12, 4);
    FIELD(ZU_S_RTMP, sMrl, 16, 256);
}

static void servertime_fields(void)
{
    FIELD(ZU_S_SERVERTIME, sTime, 0, 32);
}

static void audio_ext_fields(void)
{
    FIELD(ZU_S_Audio_Ext, u32Channel, 0, 4);
    FIELD(ZU_S_Audio_Ext, u32Stream, 4, 4);
    FIELD(ZU_S_Audio_Ext, blEnable, 8, 4);
    FIELD(ZU_S_Audio_Ext, u32Type, 12, 4);
    FIELD(ZU_S_Audio_Ext, u32SampleRate, 16, 4);
    FIELD(ZU_S_Audio_Ext, u32BitRate, 20, 4);
    FIELD(ZU_S_Audio_Ext, u32AudioVolume, 24, 4);
}

static void audiovolume_fields(void)
{
    FIELD(ZU_S_AudioVolume, s32AudioVolume, 0, 4);
}

static void resolution_fields(void)
{
    FIELD(ZU_S_Resolution, u32Channel, 0, 4);
    FIELD(ZU_S_Resolution, u32Stream, 4, 4);
    FIELD(ZU_S_Resolution, u32Resolution, 8, 4);
}

static void max_workers_fields(void)
{
    FIELD(ZU_S_MAX_WORKERS, s32ConnectNum, 0, 4);
    FIELD(ZU_S_MAX_WORKERS, s32MaxWorkers, 4, 4);
}

static void cpu_idle_info_fields(void)
{
    FIELD(ZU_S_CPU_IDLE_INFO, s32CpuIdle, 0, 32);
}

static void preset_detailed_fields(void)
{
    FIELD(ZU_S_PRESET_DETAILED, s32Num, 0, 4);
    FIELD(ZU_S_PRESET_DETAILED, s32Pan, 4, 4);
    FIELD(ZU_S_PRESET_DETAILED, s32Tilt, 8, 4);
    FIELD(ZU_S_PRESET_DETAILED, s32Zoom, 12, 4);
    FIELD(ZU_S_PRESET_DETAILED, s32Focus, 16, 4);
}

static void preset_info_fields(void)
{
    FIELD(ZU_S_PRESET_INFO, s32Sum, 0, 4);
    FIELD(ZU_S_PRESET_INFO, preset_list, 4, 2000);
}

static void startrecord_fields(void)
{
    FIELD(ZU_S_StartRecord, u32Duration, 0, 4);
    FIELD(ZU_S_StartRecord, sPreName, 4, 17);
    FIELD(ZU_S_StartRecord, u32Type, 24, 4);
    FIELD(ZU_S_StartRecord, u32Format, 28, 4);
}

static void record_date_fields(void)
{
    FIELD(ZU_S_RECORD_DATE, u32Year, 0, 4);
    FIELD(ZU_S_RECORD_DATE, u32Month, 4, 4);
    FIELD(ZU_S_RECORD_DATE, u32Day, 8, 4);
    FIELD(ZU_S_RECORD_DATE, u32Hour, 12, 4);
    FIELD(ZU_S_RECORD_DATE, u32Minute, 16, 4);
}

static void getfilelist_fields(void)
{
    FIELD(ZU_S_GetFileList, Name, 0, 3072);
    FIELD(ZU_S_GetFileList, u32Total, 3072, 4);
    FIELD(ZU_S_GetFileList, u32Paged, 3076, 4);
    FIELD(ZU_S_GetFileList, u32TotalPaged, 3080, 4);
    FIELD(ZU_S_GetFileList, u32Mode, 3084, 4);
    FIELD(ZU_S_GetFileList, u32Filter, 3088, 4);
    FIELD(ZU_S_GetFileList, Ceiling, 3092, 20);
    FIELD(ZU_S_GetFileList, Floor, 3112, 20);
}

static void deletefile_fields(void)
{
    FIELD(ZU_S_DeleteFile, u32Type, 0, 4);
    FIELD(ZU_S_DeleteFile, Name, 4, 256);
}

static void getrecordstream_fields(void)
{
    FIELD(ZU_S_GetRecordStream, u32Type, 0, 4);
    FIELD(ZU_S_GetRecordStream, u32OutputMode, 4, 4);
    FIELD(ZU_S_GetRecordStream, Name, 8, 256);
    FIELD(ZU_S_GetRecordStream, Ceiling, 264, 20);
    FIELD(ZU_S_GetRecordStream, Floor, 284, 20);
}

static void getudiskinfo_fields(void)
{
    FIELD(ZU_S_GetUdiskInfo, u32DiskTotal, 0, 4);
    FIELD(ZU_S_GetUdiskInfo, u32DiskAvail, 4, 4);
}

static void recordstatus_fields(void)
{
    FIELD(ZU_S_RecordStatus, status, 0, 4);
}

static void autorecord_fields(void)
{
    FIELD(ZU_S_AutoRecord, u32Enable, 0, 4);
    FIELD(ZU_S_AutoRecord, u32Duration, 4, 4);
    FIELD(ZU_S_AutoRecord, sPreName, 8, 17);
    FIELD(ZU_S_AutoRecord, u32Type, 28, 4);
}

static void fields_lie_at_their_offsets(void)
{
    videoheader_fields();
    audioheader_fields();
    streamheader_fields();
    sysheader_fields();
    stream_info_ext_fields();
    video_ext_fields();
    video_encode_level_fields();
    video_idr_qp_fields();
    display_ext_fields();
    display_fields();
    osd_text_fields();
    osd_date_fields();
    osd_fields();
    rtmp_fields();
    servertime_fields();
    audio_ext_fields();
    audiovolume_fields();
    resolution_fields();
    max_workers_fields();
    cpu_idle_info_fields();
    preset_detailed_fields();
    preset_info_fields();
    startrecord_fields();
    record_date_fields();
    getfilelist_fields();
    deletefile_fields();
    getrecordstream_fields();
    getudiskinfo_fields();
    recordstatus_fields();
    autorecord_fields();
}

static void constants_have_their_values(void)
{
    CHECK_EQUAL(ZU_SUCCESS, 0);
    CHECK_EQUAL(ZU_FAILURE, -1);
    CHECK_EQUAL(ZU_NET_DEV_CONNECTED, 1);
    CHECK_EQUAL(ZU_NET_DEV_DISCONNECTED, 3);
    CHECK_EQUAL(ZU_NET_DEV_HEARTBEAT, 4);
    CHECK_EQUAL(ZU_NET_DEV_AV_DATA, 0);
    CHECK_EQUAL(ZU_NET_DEV_SYS_DATA, 1);
    CHECK_EQUAL(ZU_NET_DEV_KEY_DATA, 2);
    CHECK_EQUAL(ZU_NET_DEV_CMD_VIDEO_PARAM_EXT, 4167);
    CHECK_EQUAL(ZU_NET_DEV_CMD_AUDIO_PARAM_EXT, 4168);
    CHECK_EQUAL(ZU_NET_DEV_CMD_VIDEO_ENCODE_LEVEL, 4177);
    CHECK_EQUAL(ZU_NET_DEV_CMD_VIDEO_H264_H265_IDR_QP, 4178);
    CHECK_EQUAL(ZU_NET_DEV_CMD_PTZ_PRESET_INFO, 12312);
    CHECK_EQUAL(ZU_LOG_LEVEL_OFF, 0);
    CHECK_EQUAL(ZU_LOG_LEVEL_ERROR, 1);
    CHECK_EQUAL(ZU_LOG_LEVEL_TRACE, 2);
    CHECK_EQUAL(ZU_LOG_TYPE_ERROR, 0);
    CHECK_EQUAL(ZU_LOG_TYPE_TRACE, 7);
}

static int lies_in_memory_as(ZU_U32 flag, const char* text)
{
    return memcmp(&flag, text, 4) == 0;
}

static void flags_spell_their_letters(void)
{
    CHECK(lies_in_memory_as(ZU_NET_DEV_SYS_FLAG, "FSYS"));
    CHECK(lies_in_memory_as(ZU_NET_DEV_KEY_FLAG, "EXVC"));
    CHECK(lies_in_memory_as(ZU_NET_DEV_VIDEO_FLAG, "KTVF"));
    CHECK(lies_in_memory_as(ZU_NET_DEV_AUDIO_FLAG, "KTAF"));
    CHECK(lies_in_memory_as(ZU_NET_DEV_RAW_FLAG, "VUYV"));
}

int main(int argc, char** argv)
{
    static const struct test_case cases[] = {
        {"scalar_types_have_their_widths", scalar_types_have_their_widths},
        {"records_have_their_sizes", records_have_their_sizes},
        {"fields_lie_at_their_offsets", fields_lie_at_their_offsets},
        {"constants_have_their_values", constants_have_their_values},
        {"flags_spell_their_letters", flags_spell_their_letters},
    };
    return RUN_CASE(cases, argc, argv);
}
