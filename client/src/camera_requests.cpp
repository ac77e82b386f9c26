// The requests of one login. See camera_core.hpp.
//
// Each goes to the desk as a call with copies of everything it was given. The thread that makes the
// call looks at the link right before it and, when it has failed, right after; what follows from
// the outcome happens there too, whether or not the caller is still waiting.
#include <cstring>

#include "camera_core.hpp"
#include "zu_net_dev_api.h"

namespace zu::detail
{

namespace
{

constexpr std::size_t largest_record = 3140;
constexpr std::uint32_t key_frame_base = 11;

std::error_code code_of(ZU_S32 result)
{
    if (result == ZU_SUCCESS) {
        return {};
    }
    return result == ZU_FAILURE ? make_error_code(Errc::no_answer)
                                : std::error_code(result, device_category());
}

// The record that comes back for a command; 0 for a command that brings none.
std::size_t record_size(std::uint32_t command)
{
    switch (command) {
    case SettingOf<VideoSettings>::command:
        return sizeof(VideoSettings);
    case SettingOf<AudioSettings>::command:
        return sizeof(AudioSettings);
    case SettingOf<EncodeLevel>::command:
        return sizeof(EncodeLevel);
    case SettingOf<IdrQp>::command:
        return sizeof(IdrQp);
    case SettingOf<PresetList>::command:
        return sizeof(PresetList);
    default:
        return 0;
    }
}

bool fits(std::uint32_t command, const void* data, std::size_t size)
{
    const std::size_t known = record_size(command);
    return size <= largest_record && (size == 0 || data != nullptr) &&
           (known == 0 || size == known);
}

using Bytes = std::vector<std::uint8_t>;

std::shared_ptr<Bytes> copy_of(const void* data, std::size_t size)
{
    const auto* const from = static_cast<const std::uint8_t*>(data);
    return size == 0 ? std::make_shared<Bytes>() : std::make_shared<Bytes>(from, from + size);
}

bool is_stream_type(std::uint8_t type)
{
    return (type >= 1 && type <= 5) || type == 7;
}

} // namespace

// ---- the way of a request ----------------------------------------------------------------------

std::error_code CameraCore::request(Request request, Deadline deadline)
{
    const auto until = later(Clock::now(), deadline.value_or(options.deadline));
    request.until = until;
    if (ending) {
        return Errc::closed;
    }
    if (in_frame_handler()) {
        desk.note_failure();
        return Errc::would_wait_for_self;
    }
    if (!look_at_link()) {
        if (ending) {
            return Errc::closed;
        }
        desk.note_failure();
        return Errc::link_down;
    }
    return desk.run([this, what = std::move(request)] { return make(what); }, until);
}

// On a thread of the desk. A start or stop may have waited for its turn, while its deadline passed
// or the end came.
std::error_code CameraCore::make(const Request& request)
{
    const CallGate::Pass pass(gate);
    if (!pass) {
        return Errc::closed;
    }
    std::unique_lock<std::mutex> turn(stream_turn, std::defer_lock);
    if (request.in_turn) {
        turn.lock();
    }
    if (Clock::now() >= request.until) {
        return Errc::timed_out;
    }
    if (!look_at_link()) {
        return Errc::link_down;
    }
    if (ending && !request.last) {
        return Errc::closed;
    }
    if (request.before && !request.before()) {
        return RequestDesk::cancelled();
    }
    const std::error_code outcome = code_of(request.call(handle));
    if (outcome == Errc::no_answer) {
        look_at_link();
    } else {
        watch.answered();
    }
    if (request.after) {
        request.after(outcome);
    }
    return outcome;
}

// ---- the stream --------------------------------------------------------------------------------

std::error_code CameraCore::start_stream(const StreamRequest& wanted, Deadline deadline)
{
    if (wanted.stream > 3 || !is_stream_type(wanted.type)) {
        return Errc::bad_argument;
    }
    ZU_S_STREAM_INFO_EXT info = {};
    info.u32Channel = wanted.channel;
    info.u32Stream = wanted.stream;
    info.u32Mode = wanted.mode;
    info.u8Type = wanted.type;
    Request it;
    it.in_turn = true;
    it.before = [this, stream = wanted.stream] {
        last_stream = stream;
        upkeep.stream_begins();
        watch.stream_begins();
        return true;
    };
    it.call = [info](ZU_U32 which) mutable { return ZU_NET_DEV_StartStreamExt(which, &info); };
    it.after = [this](std::error_code outcome) {
        if (upkeep.start_is_over(refused(outcome))) {
            watch.stream_ends();
        }
    };
    return request(std::move(it), deadline);
}

CameraCore::Request CameraCore::stop_stream_request()
{
    Request it;
    it.in_turn = true;
    it.call = [](ZU_U32 which) { return ZU_NET_DEV_StopStream(which); };
    it.after = [this](std::error_code outcome) {
        if (!outcome) {
            upkeep.stream_ends();
            watch.stream_ends();
        }
    };
    return it;
}

std::error_code CameraCore::stop_stream(Deadline deadline)
{
    return request(stop_stream_request(), deadline);
}

CameraCore::Request CameraCore::key_frame_request()
{
    Request it;
    it.call = [number = key_frame_base + last_stream](ZU_U32 which) {
        return ZU_NET_DEV_MakeKeyFrame(which, number);
    };
    return it;
}

std::error_code CameraCore::ask_for_key_frame(Deadline deadline)
{
    return request(key_frame_request(), deadline);
}

// ---- settings ----------------------------------------------------------------------------------

std::error_code CameraCore::read(std::uint32_t command, void* data, std::size_t size,
                                 Deadline deadline)
{
    if (!fits(command, data, size)) {
        return Errc::bad_argument;
    }
    const auto record = copy_of(data, size);
    Request it;
    it.call = [command, record](ZU_U32 which) {
        return ZU_NET_DEV_GetConfig(which, command, record->empty() ? nullptr : record->data(),
                                    static_cast<ZU_U32>(record->size()));
    };
    const std::error_code error = request(std::move(it), deadline);
    if (!error && record_size(command) != 0) {
        std::memcpy(data, record->data(), size);
    }
    return error;
}

std::error_code CameraCore::write(std::uint32_t command, const void* data, std::size_t size,
                                  Deadline deadline)
{
    if (!fits(command, data, size)) {
        return Errc::bad_argument;
    }
    Request it;
    it.call = [command, record = copy_of(data, size)](ZU_U32 which) {
        return ZU_NET_DEV_SetConfig(which, command, record->empty() ? nullptr : record->data(),
                                    static_cast<ZU_U32>(record->size()));
    };
    return request(std::move(it), deadline);
}

// ---- pan, tilt, zoom ---------------------------------------------------------------------------

std::error_code CameraCore::standard(std::uint32_t command, std::uint32_t speed, Deadline deadline)
{
    Request it;
    it.call = [command, speed](ZU_U32 which) {
        return ZU_NET_DEV_PTZ_Ctrl_Standard(which, command, speed);
    };
    return request(std::move(it), deadline);
}

std::error_code CameraCore::preset(std::uint32_t command, std::uint32_t number, Deadline deadline)
{
    Request it;
    it.call = [command, number](ZU_U32 which) {
        return ZU_NET_DEV_PTZ_Ctrl_Preset(which, command, number);
    };
    return request(std::move(it), deadline);
}

std::error_code CameraCore::move(std::uint32_t command, std::uint32_t speed,
                                 std::chrono::milliseconds at_most, Deadline deadline)
{
    if (at_most.count() < 1) {
        return Errc::bad_argument;
    }
    upkeep.move_is_handed_in();
    std::shared_ptr<void> handed_in(nullptr, [this](void*) { upkeep.move_is_gone(); });
    Request it;
    it.before = [this, at_most] {
        const bool may_begin = upkeep.move_begins(later(Clock::now(), at_most));
        watch.poke();
        return may_begin;
    };
    it.call = [command, speed, until_gone = std::move(handed_in)](ZU_U32 which) {
        return ZU_NET_DEV_PTZ_Ctrl_Standard(which, command, speed);
    };
    it.after = [this](std::error_code) { upkeep.move_is_over(); };
    return request(std::move(it), deadline);
}

CameraCore::Request CameraCore::stop_request()
{
    const auto movement = std::make_shared<std::uint64_t>();
    Request it;
    it.before = [this, movement] {
        *movement = upkeep.stop_begins();
        return true;
    };
    it.call = [command = options.stop_command, speed = options.stop_speed](ZU_U32 which) {
        return ZU_NET_DEV_PTZ_Ctrl_Standard(which, command, speed);
    };
    it.after = [this, movement](std::error_code outcome) {
        if (!outcome) {
            upkeep.stop_is_taken(*movement);
        }
    };
    return it;
}

std::error_code CameraCore::stop_moving(Deadline deadline)
{
    return request(stop_request(), deadline);
}

// A stop should not overtake the call that began the movement, so moves are waited for, those too
// that have not begun yet. The stop is sent in any case; what is left of the deadline is for its
// answer.
void CameraCore::stop_last_movement()
{
    const auto until = later(Clock::now(), options.deadline);
    upkeep.end_moves(until);
    if (upkeep.is_moving() && look_at_link()) {
        Request it = stop_request();
        it.last = true;
        desk.run_last([this, what = std::move(it)] { return make(what); }, until);
    }
}

// ---- what the layer asks for by itself ---------------------------------------------------------

// On a thread of the desk.
std::error_code CameraCore::do_chore(const Due& due)
{
    const std::error_code outcome = make(chore_request(due));
    const bool done = upkeep.is_over(due, !outcome);
    if (due.chore == Chore::stop_moving && done) {
        watch.tell(EventKind::movement_stopped);
    }
    watch.poke();
    return outcome;
}

// The call that a chore is made by, if it is still wanted when its turn has come.
CameraCore::Request CameraCore::chore_request(const Due& due)
{
    Request it;
    switch (due.chore) {
    case Chore::stop_stream:
        it = stop_stream_request();
        break;
    case Chore::stop_moving:
        it = stop_request();
        it.after = nullptr; // which movement it is for is known since it was handed in
        break;
    case Chore::key_frame:
        it = key_frame_request();
        break;
    }
    it.before = [this, due] {
        if (!upkeep.begins(due, Clock::now())) {
            return false;
        }
        if (due.chore == Chore::key_frame) {
            ++key_frames_asked_for;
            watch.tell(EventKind::key_frame_asked_for);
        }
        return true;
    };
    return it;
}

} // namespace zu::detail
