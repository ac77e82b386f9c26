// One login at one camera: its life and its frames. See viewer.h; requests.cpp has the requests.
#include "viewer.h"

#include <cstring>

#include "eventually.h"
#include "virtual_camera/numbered.h"
#include "virtual_camera/stamp.h"

namespace soak
{

namespace
{

// Reconnections come one after the other while links are being dropped.
constexpr std::chrono::minutes patience{2};

std::int64_t now()
{
    return static_cast<std::int64_t>(zucam::clock_us());
}

} // namespace

void verdict::complain(const std::string& what)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!wrong_) {
        what_ = what;
        wrong_ = true;
    }
}

bool verdict::has_complaint() const
{
    return wrong_;
}

std::string verdict::complaint() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return what_;
}

viewer::viewer(surroundings& around, std::size_t camera)
    : around_(around), camera_(camera), frames_seed_(frames_seed(around.seed, camera))
{
}

// ---- frames ------------------------------------------------------------------------------------

ZU_S32 viewer::on_block(ZU_U32 handle, ZU_U32, ZU_U8* block, ZU_U32 length, void* self)
{
    static_cast<viewer*>(self)->take(handle, block, length);
    return 0;
}

// Events are reported on threads of their own, which come and go with it.
ZU_S32 viewer::on_event(ZU_U32, ZU_U32, void*)
{
    return 0;
}

void viewer::take(ZU_U32 handle, const ZU_U8* block, ZU_U32 length)
{
    if (handle != handle_) {
        return around_.judged.complain("camera " + std::to_string(camera_) +
                                       ": a block came with another login's handle");
    }
    if (length >= 4 && std::memcmp(block, "FSYS", 4) == 0) {
        return;
    }
    const auto number = zucam::check_numbered_body(frames_seed_, block, length);
    if (!number || length != frame_size) {
        return around_.judged.complain("camera " + std::to_string(camera_) +
                                       ": a frame was damaged, or is another camera's");
    }
    take_frame(*number);
}

void viewer::take_frame(std::int64_t number)
{
    const std::int64_t last = last_;
    if (number <= last) {
        return around_.judged.complain("camera " + std::to_string(camera_) + ": frame " +
                                       std::to_string(number) + " came after frame " +
                                       std::to_string(last));
    }
    if (lose_.exchange(false)) {
        return;
    }
    if (number != last + 1) {
        around_.cameras.tell({note_kind::gap, static_cast<std::int32_t>(camera_), last, number, 0});
    }
    last_ = number;
    frames_++;
    around_.counted.frames++;
}

std::int64_t viewer::frames() const
{
    return frames_;
}

void viewer::lose_one()
{
    lose_ = true;
}

bool viewer::has_lost_it() const
{
    return !lose_;
}

void viewer::close_account() const
{
    around_.cameras.tell({note_kind::gap, static_cast<std::int32_t>(camera_), last_, no_frame, 0});
}

// ---- in and out --------------------------------------------------------------------------------

void viewer::begin()
{
    const std::unique_lock<std::shared_mutex> alone(using_);
    log_in();
}

void viewer::log_out_and_in(bool stop_first)
{
    const std::unique_lock<std::shared_mutex> alone(using_);
    if (stop_first) {
        settle();
    }
    log_out();
    log_in();
}

void viewer::end()
{
    const std::unique_lock<std::shared_mutex> alone(using_);
    settle();
    log_out();
}

void viewer::log_in()
{
    while (!around_.judged.has_complaint()) {
        if (log_in_once()) {
            attach();
            return begin_stream();
        }
    }
}

bool viewer::log_in_once()
{
    const std::int64_t begun = now();
    around_.counted.logins_tried++;
    if (ZU_NET_DEV_Login(&handle_, "soak", "soak", "127.0.0.1", around_.cameras.port(camera_)) ==
        0) {
        around_.counted.logins++;
        return true;
    }
    const auto camera = static_cast<std::int32_t>(camera_);
    const std::int64_t failed = now();
    around_.cameras.tell({note_kind::login_failed, camera, begun, failed, 0});
    around_.cameras.tell({note_kind::logged_out, camera, begun, failed, 0});
    return false;
}

// Callbacks can be set only while the link is up, which may have been dropped at once.
void viewer::attach()
{
    const bool attached = support::eventually(
        [this] {
            return ZU_NET_DEV_SetStreamCallBack(handle_, on_block, this) == 0 &&
                   ZU_NET_DEV_SetEventCallBack(handle_, on_event, this) == 0;
        },
        patience);
    if (!attached) {
        around_.judged.complain("camera " + std::to_string(camera_) +
                                ": the link was not up again after two minutes");
    }
}

void viewer::begin_stream()
{
    if (!support::eventually([this] { return start(); }, patience)) {
        around_.judged.complain("camera " + std::to_string(camera_) +
                                ": the stream could not be started within two minutes");
    }
}

void viewer::log_out()
{
    const std::int64_t begun = now();
    const bool out = ZU_NET_DEV_Logout(handle_) == 0;
    around_.cameras.tell(
        {note_kind::logged_out, static_cast<std::int32_t>(camera_), begun, now(), 0});
    if (!out) {
        around_.judged.complain("camera " + std::to_string(camera_) + ": a Logout failed");
    }
}

void viewer::settle()
{
    if (stop()) {
        wait_behind_barrier();
    }
}

} // namespace soak
