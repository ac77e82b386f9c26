// The requests of a login, all kinds of them. See viewer.h.
//
// A request is answered when the camera's code has come and is the one that this request must get.
// One that fails is told to the ledger, which knows whether its link was up all along.
#include "viewer.h"

#include <array>
#include <iterator>

#include "virtual_camera/stamp.h"

namespace soak
{

namespace
{

constexpr ZU_U32 stream_count = 4;
constexpr ZU_S32 out_of_range = 2; // the camera's code
constexpr std::int64_t first_unknown_command = 0x40000000;

std::int64_t now()
{
    return static_cast<std::int64_t>(zucam::clock_us());
}

ZU_U32 up_to(std::mt19937& random, ZU_U32 from, ZU_U32 to)
{
    return std::uniform_int_distribution<ZU_U32>(from, to)(random);
}

} // namespace

// Whether the code is 0.
bool viewer::ask(request_name name, const call& make, bool may_be_refused)
{
    around_.counted.requests_made++;
    const std::int64_t begun = now();
    const ZU_S32 code = make();
    if (code == ZU_FAILURE) {
        around_.cameras.tell(
            {note_kind::request_failed, static_cast<std::int32_t>(camera_), begun, now(), name});
        return false;
    }
    if (code != 0 && !(may_be_refused && code == out_of_range)) {
        around_.judged.complain("camera " + std::to_string(camera_) + ": a request (" +
                                request_names[name] + ") was answered with the code " +
                                std::to_string(code));
        return false;
    }
    around_.counted.requests_answered++;
    return code == 0;
}

// A camera's stream is always the same one of the four, so its numbers have one order.
bool viewer::start()
{
    ZU_S_STREAM_INFO_EXT info = {};
    info.u32Stream = static_cast<ZU_U32>(camera_ % stream_count);
    info.u8Type = 1;
    return ask(start_stream, [&] { return ZU_NET_DEV_StartStreamExt(handle_, &info); });
}

bool viewer::stop()
{
    return ask(stop_stream, [this] { return ZU_NET_DEV_StopStream(handle_); });
}

// What was sent in front of the answer has been received when it has.
void viewer::wait_behind_barrier()
{
    const std::int64_t command = first_unknown_command + around_.counted.barrier++;
    const bool answered = ask(read_unknown, [&] {
        return ZU_NET_DEV_GetConfig(handle_, static_cast<ZU_U32>(command), nullptr, 0);
    });
    around_.cameras.tell({answered ? note_kind::barrier : note_kind::barrier_missed,
                          static_cast<std::int32_t>(camera_), command, last_, now()});
}

void viewer::interrupt()
{
    const std::shared_lock<std::shared_mutex> shared(using_);
    if (stop()) {
        wait_behind_barrier();
    }
    start(); // a stop without an answer may have been obeyed, too
}

void viewer::ask_something(std::mt19937& random)
{
    const std::shared_lock<std::shared_mutex> shared(using_);
    switch (up_to(random, 0, 9)) {
    case 0:
        return ask_for_key_frame(random);
    case 1:
        return ask_for_move(random);
    case 2:
        return ask_for_preset(random);
    case 3:
        return ask_about_video(random);
    case 4:
        return ask_about_sound(random);
    case 5:
        return ask_about_quantiser(random);
    case 6:
        return ask_for_presets();
    case 7:
        (void)start(); // once more, over the one that runs
        return;
    default:
        return wait_behind_barrier();
    }
}

void viewer::ask_for_key_frame(std::mt19937& random)
{
    const ZU_U32 stream = up_to(random, 11, 14);
    ask(key_frame, [&] { return ZU_NET_DEV_MakeKeyFrame(handle_, stream); });
}

void viewer::ask_for_move(std::mt19937& random)
{
    const ZU_U32 action = up_to(random, 0, 10);
    const ZU_U32 speed = up_to(random, 1, 64);
    ask(move, [&] { return ZU_NET_DEV_PTZ_Ctrl_Standard(handle_, action, speed); });
}

// Going to a preset that was never stored is refused.
void viewer::ask_for_preset(std::mt19937& random)
{
    const ZU_U32 action = up_to(random, 1, 3);
    const ZU_U32 number = up_to(random, 1, 100);
    ask(
        preset, [&] { return ZU_NET_DEV_PTZ_Ctrl_Preset(handle_, action, number); }, action == 2);
}

void viewer::ask_about_video(std::mt19937& random)
{
    ZU_S_Video_Ext record = {};
    record.u32Stream = up_to(random, 0, stream_count - 1);
    const bool read = ask(read_setting, [&] {
        return ZU_NET_DEV_GetConfig(handle_, ZU_NET_DEV_CMD_VIDEO_PARAM_EXT, &record,
                                    sizeof record);
    });
    if (read) {
        record.u32Bitrate = up_to(random, 32, 50000);
        ask(change_setting, [&] {
            return ZU_NET_DEV_SetConfig(handle_, ZU_NET_DEV_CMD_VIDEO_PARAM_EXT, &record,
                                        sizeof record);
        });
    }
}

void viewer::ask_about_sound(std::mt19937& random)
{
    ZU_S_Audio_Ext record = {};
    record.u32Stream = up_to(random, 0, stream_count - 1);
    const bool read = ask(read_setting, [&] {
        return ZU_NET_DEV_GetConfig(handle_, ZU_NET_DEV_CMD_AUDIO_PARAM_EXT, &record,
                                    sizeof record);
    });
    if (read) {
        record.u32AudioVolume = up_to(random, 0, 100);
        ask(change_setting, [&] {
            return ZU_NET_DEV_SetConfig(handle_, ZU_NET_DEV_CMD_AUDIO_PARAM_EXT, &record,
                                        sizeof record);
        });
    }
}

void viewer::ask_about_quantiser(std::mt19937& random)
{
    ZU_S_Video_IDR_QP record = {};
    record.u32Stream = up_to(random, 0, stream_count - 1);
    record.u32QP = up_to(random, 0, 51);
    ask(change_setting, [&] {
        return ZU_NET_DEV_SetConfig(handle_, ZU_NET_DEV_CMD_VIDEO_H264_H265_IDR_QP, &record,
                                    sizeof record);
    });
    ZU_S_Video_Encode_Level level = {up_to(random, 0, 2)};
    ask(change_setting, [&] {
        return ZU_NET_DEV_SetConfig(handle_, ZU_NET_DEV_CMD_VIDEO_ENCODE_LEVEL, &level,
                                    sizeof level);
    });
}

void viewer::ask_for_presets()
{
    ZU_S_PRESET_INFO record = {};
    ask(read_setting, [&] {
        return ZU_NET_DEV_GetConfig(handle_, ZU_NET_DEV_CMD_PTZ_PRESET_INFO, &record,
                                    sizeof record);
    });
}

} // namespace soak
