// The life of one login. See camera_core.hpp.
#include "camera_core.hpp"

#include <arpa/inet.h>
#include <cstdio>
#include <exception>
#include <pthread.h>
#include <utility>

#include "event_route.hpp"
#include "no_signals.hpp"
#include "zu_net_dev_api.h"

namespace zu::detail
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t text_limit = 15; // what the C library would cut to
constexpr seconds between_looks{1};

// The camera whose frame handler this thread is in.
thread_local const CameraCore* handling_frame_of;

bool fits(const std::string& text)
{
    return text.size() <= text_limit && text.find('\0') == std::string::npos;
}

bool good(const CameraAddress& address)
{
    in_addr ignored;
    return fits(address.host) && inet_pton(AF_INET, address.host.c_str(), &ignored) == 1 &&
           address.port != 0 && fits(address.user) && fits(address.password);
}

bool good(const CameraOptions& options)
{
    const WhenFull policy = options.queue.when_full;
    return (policy == WhenFull::drop_to_key || policy == WhenFull::newest_only ||
            policy == WhenFull::block) &&
           options.queue.frames >= 1 && options.stalled_after >= milliseconds(200) &&
           options.peer_silent_after >= milliseconds(1000) && options.deadline >= milliseconds(1) &&
           options.requests_at_once >= 1 && options.requests_at_once <= 64;
}

// Nothing later than a year: the sum of a time and such a wait is a time.
Clock::duration bounded(milliseconds wait)
{
    return later({}, wait).time_since_epoch();
}

extern "C" ZU_S32 zu_client_take_block(ZU_U32 /*handle*/, ZU_U32 /*type*/, ZU_U8* data,
                                       ZU_U32 length, ZU_VOID* core) noexcept
{
    static_cast<CameraCore*>(core)->on_block(data, length);
    return ZU_SUCCESS;
}

extern "C" ZU_S32 zu_client_take_event(ZU_U32 /*handle*/, ZU_U32 event, ZU_VOID* number) noexcept
{
    if (const auto core = find_event_route(number)) {
        core->on_event(event);
    }
    return ZU_SUCCESS;
}

} // namespace

// ---- begin and end -----------------------------------------------------------------------------

Result<std::shared_ptr<CameraCore>> CameraCore::log_in(const CameraAddress& address,
                                                       CameraOptions options)
{
    if (!good(address) || !good(options)) {
        return Errc::bad_argument;
    }
    auto library = LibraryCore::current();
    if (!library) {
        return Errc::closed;
    }
    auto core = std::make_shared<CameraCore>(std::move(library), address, std::move(options));
    if (const std::error_code error = core->begin(address)) {
        return error;
    }
    return core;
}

CameraCore::CameraCore(std::shared_ptr<LibraryCore> its_library, const CameraAddress& address,
                       CameraOptions its_options)
    : options(std::move(its_options)), frames_go_to_handler(options.on_frame),
      library(std::move(its_library)), secret(address.password),
      watch(bounded(options.stalled_after), bounded(options.peer_silent_after),
            static_cast<bool>(options.on_event)),
      queue(options.queue), desk(options.requests_at_once)
{
}

// The callbacks are attached last, so that no handler begins for a camera that there will not be.
std::error_code CameraCore::begin(const CameraAddress& address)
{
    const NoSignals inherited_by_all_threads;
    if (ZU_NET_DEV_Login(&handle, address.user.c_str(), address.password.c_str(),
                         address.host.c_str(), address.port) != ZU_SUCCESS) {
        return Errc::cannot_connect;
    }
    watch.logged_in();
    gate.open();
    try {
        event_number = add_event_route(shared_from_this());
        own_thread = std::thread([this] { supervise(); });
        if (options.on_event) {
            event_thread = std::thread([this] { tell_events(); });
        }
    } catch (const std::system_error& failure) {
        end();
        return failure.code();
    } catch (...) {
        end();
        throw;
    }
    look_at_link();
    return {};
}

// Who waits is sent away first: a receiver thread that waits for room in the queue could not read
// the answer to a stop. The stop comes before the wait for a handler, which may take its time: with
// the camera's own thread the movement's timer has gone. No call that names the handle begins once
// the gate is closed.
void CameraCore::end()
{
    if (in_handler()) {
        std::fputs("zu: a camera is destroyed from inside a handler of its own\n", stderr);
        std::terminate(); // it would wait for itself, for ever
    }
    ending = true;
    queue.end();
    desk.refuse();
    watch.end();
    if (own_thread.joinable()) {
        own_thread.join();
    }
    stop_last_movement();
    if (event_thread.joinable()) {
        event_thread.join();
    }
    desk.close();
    gate.close();
    ZU_NET_DEV_Logout(handle);
    remove_event_route(event_number);
    options.on_event = nullptr;
    options.on_frame = nullptr;
    secret.reset();
    library.reset();
}

// ---- the link ----------------------------------------------------------------------------------

// Looks whether the link is up right now, and lets everybody know. Events of the C library are only
// a reason to look: they may be late, merged or lost. While the callbacks are not attached the link
// counts as down. Any thread; the calls do not wait.
bool CameraCore::look_at_link()
{
    const CallGate::Pass pass(gate);
    if (!pass) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(link_guard);
    const QuietLog expected_to_fail;
    const bool up = attached ? ZU_NET_DEV_SetReconnect(handle, 3) == ZU_SUCCESS : attach();
    if (watch.link_is(up)) {
        link_has_changed(up);
    }
    return up;
}

bool CameraCore::attach()
{
    attached =
        ZU_NET_DEV_SetEventCallBack(handle, zu_client_take_event, event_number) == ZU_SUCCESS &&
        ZU_NET_DEV_SetStreamCallBack(handle, zu_client_take_block, this) == ZU_SUCCESS;
    return attached;
}

// A lost link is down for three seconds at least, so this comes before the frames of the next one.
// The C library asks for a key frame by itself when it has started the stream anew; if that has not
// helped within a second, it is asked again.
void CameraCore::link_has_changed(bool up)
{
    if (!up) {
        reader.link_is_lost();
        queue.link_is_lost();
        upkeep.link_is_lost();
    } else if (upkeep.stream_is_wanted() && reader.has_seen_video()) {
        want_key_frame(Clock::now() + seconds(1));
    }
}

void CameraCore::on_event(std::uint32_t event)
{
    if (event == ZU_NET_DEV_HEARTBEAT) {
        watch.heartbeat();
    }
    look_at_link();
}

// ---- frames, on the receiver thread ------------------------------------------------------------

void CameraCore::on_block(const std::uint8_t* block, std::size_t length)
{
    const FrameView view = reader.read(block, length);
    watch.frame(view);
    if ((view.kind == FrameKind::video || view.kind == FrameKind::audio) && upkeep.frame_came()) {
        watch.poke();
    }
    if (frames_go_to_handler) {
        hand_to_program(view);
    } else {
        queue_frame(view);
    }
}

void CameraCore::hand_to_program(const FrameView& view)
{
    if (can_begin_with(view)) {
        upkeep.key_frame_came();
    }
    const CameraCore* const outer = std::exchange(handling_frame_of, this);
    options.on_frame(view);
    handling_frame_of = outer;
}

void CameraCore::queue_frame(const FrameView& view)
{
    const FrameQueue::Outcome outcome = queue.put(view);
    if (outcome.kept && can_begin_with(view)) {
        upkeep.key_frame_came();
    }
    if (outcome.run_begins) {
        watch.drops_begin();
    }
    if (outcome.needs_key) {
        want_key_frame(view.arrived);
    }
}

void CameraCore::want_key_frame(Clock::time_point not_before)
{
    if (options.ask_for_key_frames) {
        upkeep.want_key_frame(not_before);
        watch.poke();
    }
}

std::optional<Frame> CameraCore::next_frame(milliseconds wait)
{
    if (frames_go_to_handler) {
        return {};
    }
    return queue.next(later(Clock::now(), wait));
}

bool CameraCore::in_frame_handler() const
{
    return handling_frame_of == this;
}

bool CameraCore::in_handler() const
{
    return in_frame_handler() || event_thread.get_id() == std::this_thread::get_id();
}

// ---- the camera's own thread -------------------------------------------------------------------

void CameraCore::supervise()
{
    pthread_setname_np(pthread_self(), "zu_camera");
    auto next_look = Clock::now() + between_looks;
    while (!ending) {
        const bool up = watch.link().state == LinkState::up;
        watch.wait(up ? std::min(next_look, upkeep.next()) : next_look);
        if (Clock::now() >= next_look) {
            look_at_link();
            next_look = Clock::now() + between_looks;
        }
        hand_in_chores();
    }
}

// On a thread that does nothing else.
void CameraCore::tell_events()
{
    pthread_setname_np(pthread_self(), "zu_events");
    while (!ending) {
        for (const Event& event : watch.wait_for_events()) {
            if (!ending) {
                options.on_event(event);
            }
        }
    }
}

void CameraCore::hand_in_chores()
{
    while (watch.link().state == LinkState::up && !ending) {
        const auto due = upkeep.take_due(Clock::now());
        if (!due) {
            return;
        }
        if (!desk.post([this, what = *due] { return do_chore(what); })) {
            upkeep.is_over(*due, false);
        }
    }
}

// ---- facts -------------------------------------------------------------------------------------

Link CameraCore::link() const
{
    return watch.link();
}

Peer CameraCore::peer() const
{
    return watch.peer();
}

Media CameraCore::media() const
{
    return watch.media();
}

std::optional<StreamDescription> CameraCore::description() const
{
    return reader.description();
}

Codec CameraCore::codec() const
{
    return reader.codec();
}

Stats CameraCore::stats() const
{
    Stats out;
    reader.count(out);
    queue.count(out);
    watch.count(out);
    desk.count(out);
    out.key_frames_asked_for = key_frames_asked_for;
    return out;
}

} // namespace zu::detail
