// What stands behind a zu::Camera: one login of the C library, the callbacks attached to it, and
// the camera's own thread. Read camera_core.cpp from CameraCore::log_in down; requests are in
// camera_requests.cpp.
//
// Threads: the program's, any and many; the C library's receiver thread (on_block) and its event
// threads (on_event); the camera's own thread (supervise); the one that calls the event handler
// (tell_events), so that a handler which takes its time holds up neither looks nor timers; the
// threads of the request desk. Each part has a lock of its own, none of which is held while another
// part is called, with one exception: link_guard is held across the look at the link and what
// follows from it, so that two looks cannot be told in the wrong order.
//
// A core is shared by its Camera, by calls that are under way and by events that come in late. What
// ends a login is end, on the thread that destroys the Camera; what still holds the core afterwards
// finds it closed.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "block_reader.hpp"
#include "call_gate.hpp"
#include "frame_queue.hpp"
#include "library_core.hpp"
#include "log_route.hpp"
#include "request_desk.hpp"
#include "upkeep.hpp"
#include "watch.hpp"
#include "zu/camera.hpp"

namespace zu::detail
{

class CameraCore : public std::enable_shared_from_this<CameraCore>
{
public:
    using Deadline = std::optional<std::chrono::milliseconds>;

    static Result<std::shared_ptr<CameraCore>> log_in(const CameraAddress& address,
                                                      CameraOptions options);
    CameraCore(std::shared_ptr<LibraryCore> library, const CameraAddress& address,
               CameraOptions options);
    void end();

    // ---- facts ----

    Link link() const;
    Peer peer() const;
    Media media() const;
    std::optional<StreamDescription> description() const;
    Codec codec() const;
    Stats stats() const;

    // ---- requests and frames ----

    std::error_code start_stream(const StreamRequest& request, Deadline deadline);
    std::error_code stop_stream(Deadline deadline);
    std::error_code ask_for_key_frame(Deadline deadline);
    std::error_code read(std::uint32_t command, void* data, std::size_t size, Deadline deadline);
    std::error_code write(std::uint32_t command, const void* data, std::size_t size,
                          Deadline deadline);
    std::error_code move(std::uint32_t command, std::uint32_t speed,
                         std::chrono::milliseconds at_most, Deadline deadline);
    std::error_code stop_moving(Deadline deadline);
    std::error_code standard(std::uint32_t command, std::uint32_t speed, Deadline deadline);
    std::error_code preset(std::uint32_t command, std::uint32_t number, Deadline deadline);
    std::optional<Frame> next_frame(std::chrono::milliseconds wait);

    // ---- for the callbacks of the C library ----

    void on_block(const std::uint8_t* block, std::size_t length);
    void on_event(std::uint32_t event);

private:
    // A call of the C library, and what goes before and after it on the thread that makes it.
    struct Request {
        std::function<int(std::uint32_t handle)> call;
        std::function<bool()> before;               // false: not to be made after all; may be empty
        std::function<void(std::error_code)> after; // may be empty
        bool in_turn = false;                       // starts and stops of the stream
        Clock::time_point until = Clock::time_point::max(); // not begun later
        bool last = false;                                  // made at the end all the same
    };

    std::error_code begin(const CameraAddress& address);
    bool attach();
    bool look_at_link();
    void link_has_changed(bool up);

    void supervise();
    void tell_events();
    void hand_in_chores();
    std::error_code do_chore(const Due& due);
    Request chore_request(const Due& due);
    void stop_last_movement();

    void hand_to_program(const FrameView& view);
    void queue_frame(const FrameView& view);
    void want_key_frame(Clock::time_point not_before);
    bool in_frame_handler() const; // this thread, of this camera
    bool in_handler() const;       // of frames or events

    std::error_code request(Request request, Deadline deadline);
    std::error_code make(const Request& request);
    Request stop_request();
    Request stop_stream_request();
    Request key_frame_request();

    CameraOptions options; // the handlers go with the end
    const bool frames_go_to_handler;
    std::shared_ptr<LibraryCore> library;
    std::optional<Secret> secret;
    std::uint32_t handle = 0;
    void* event_number = nullptr;

    // Held by starts and stops of the stream from their decision to their end, so that none of the
    // layer's own overtakes one of the program's. Only by threads of the desk, before all other
    // locks.
    std::mutex stream_turn;
    CallGate gate; // in front of every call that names the handle
    std::mutex link_guard;
    bool attached = false; // under link_guard

    Watch watch;
    BlockReader reader;
    FrameQueue queue;
    Upkeep upkeep;
    RequestDesk desk;
    std::atomic<std::uint32_t> last_stream{0};
    std::atomic<std::uint64_t> key_frames_asked_for{0};
    std::atomic<bool> ending{false};
    std::thread own_thread;
    std::thread event_thread; // with an event handler
};

} // namespace zu::detail
