// zu::Camera: a login to a camera, with what the C interface leaves to its user.
//
//     zu::Library library;
//     zu::CameraOptions options;
//     options.on_event = [](const zu::Event& e) { puts(zu::name_of(e.kind)); };
//     zu::Camera camera({"192.0.2.7", 9000, "user", "secret"}, options);
//     if (const auto error = camera.start_stream()) {
//         ...
//     }
//     while (auto frame = camera.next_frame(2s)) {
//         ...
//     }
//
// Rules that hold for every member function
// -----------------------------------------
//  1. Requests return within their deadline: an empty std::error_code when the device answered 0, a
//     code of device_category() when it answered something else, one of error_category() otherwise.
//     The call of the C library goes on by itself on a thread of the layer, some four seconds at
//     most, and works on copies; so a setting whose deadline has passed may still take effect.
//  2. Any thread may call, many at once. Not from a signal handler, nor in the child of a fork, nor
//     from a log handler. A moved-from camera answers everything with Errc::closed, zeros and
//     nothing; so ends a call that is under way on another thread when the destructor begins.
//  3. Handlers are given at construction and stay. Frame handlers run on the receiver thread of the
//     C library, event handlers on a thread of their own; facts.hpp and frame.hpp say what each may
//     do. None begins before the constructor is about to return, so an event may come before the
//     caller has the object in hand. None begins or runs after the destructor has returned; one
//     that runs until then may ask the camera as ever, and is told Errc::closed. To destroy a
//     camera from inside a handler of its own, or to throw there, ends the process.
//  4. Threads: one per camera for key frames and timers, one for the event handler if there is one,
//     and for requests up to `requests_at_once` and one each for what the layer asks for by itself
//     (key frame, stop of a movement, stop of a stream), made when first needed; besides the three
//     of the C library. Where a device leaves stops of a movement unanswered there are some more,
//     one for each second until the C library gives the first up.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "zu/error.hpp"
#include "zu/facts.hpp"
#include "zu/frame.hpp"
#include "zu/library.hpp"
#include "zu/settings.hpp"
#include "zu/stats.hpp"

namespace zu
{

namespace detail
{
class CameraCore;
}

using std::chrono::milliseconds;

// Where the camera is, and as whom. The C library would cut longer texts; here they are refused.
struct CameraAddress {
    std::string host; // dotted IPv4
    std::uint16_t port = 0;
    std::string user;     // up to 15 characters
    std::string password; // up to 15 characters; blanked out in all log lines
};

struct CameraOptions {
    EventHandler on_event; // may be empty

    // Frames go to the handler when there is one, otherwise into the queue.
    FrameHandler on_frame;
    FrameQueueOptions queue;

    // After a drop and after a reconnection a key frame is asked for, once a second at most, until
    // one has come.
    bool ask_for_key_frames = true;

    milliseconds stalled_after{3000}; // 200 or more
    milliseconds peer_silent_after{
        10000};                    // 1000 or more; heartbeats go out about every three seconds
    milliseconds deadline{5000};   // of requests that name none; 1 or more
    unsigned requests_at_once = 4; // 1 to 64

    // What stops a movement on this device, for stop_moving and the dead man's timer.
    std::uint32_t stop_command = 0;
    std::uint32_t stop_speed = 0;
};

// Which stream to start; the numbers are those of ZU_S_STREAM_INFO_EXT.
struct StreamRequest {
    std::uint32_t stream = 0; // 0 to 3
    std::uint8_t type = 1;    // 1 to 5, or 7
    std::uint32_t channel = 0;
    std::uint32_t mode = 0;
};

class Camera
{
public:
    // Logs in; blocks as ZU_NET_DEV_Login does, some four seconds at most. Throws
    // std::system_error: Errc::bad_argument, Errc::cannot_connect, Errc::closed (there is no
    // zu::Library), or a system error when a thread cannot be made. The link may drop before the
    // callbacks are attached; that is noticed, they are attached when it is up again, and link()
    // says down meanwhile.
    explicit Camera(const CameraAddress& address, CameraOptions options = {});
    // The same without an exception.
    static Result<Camera> log_in(const CameraAddress& address, CameraOptions options = {});

    // Ends the queue; stops a movement that is under way, and waits for the answer within the
    // deadline of the options; waits for the event handler and for requests that are still under
    // way, some four seconds at most with a silent device; logs out, which takes what
    // ZU_NET_DEV_Logout takes: mostly some hundredths of a second, three seconds in the pause
    // before a reconnection, up to some 23 when a device has come back and then leaves the restart
    // of its stream unanswered. Never from a handler of this camera.
    ~Camera();
    Camera(Camera&& other) noexcept;
    Camera& operator=(Camera&& other) noexcept;

    // ---- the three facts, at any time ----

    Link link() const;
    Peer peer() const;
    Media media() const;
    std::optional<StreamDescription> description() const; // of the last system header
    Codec codec() const;                                  // of the last video frame
    Stats stats() const;

    // ---- the stream ----

    // Without a deadline the one of the options holds, here and below.
    std::error_code start_stream(const StreamRequest& request = {},
                                 std::optional<milliseconds> deadline = {});
    std::error_code stop_stream(std::optional<milliseconds> deadline = {});
    // For the stream that was started last, or stream 0.
    std::error_code ask_for_key_frame(std::optional<milliseconds> deadline = {});

    // The next frame of the queue; nothing when none has come in time, when frames go to a handler,
    // and at once when the camera has ended.
    std::optional<Frame> next_frame(milliseconds wait);

    // ---- settings ----

    template <class Record>
    Result<Record> get(std::uint32_t stream = 0, std::optional<milliseconds> deadline = {})
    {
        Record record = {};
        if constexpr (SettingOf<Record>::by_stream) {
            record.u32Stream = stream;
        }
        const std::error_code error =
            read(SettingOf<Record>::command, &record, sizeof(record), deadline);
        return error ? Result<Record>(error) : Result<Record>(record);
    }
    template <class Record>
    std::error_code set(const Record& record, std::optional<milliseconds> deadline = {})
    {
        return write(SettingOf<Record>::command, &record, sizeof(record), deadline);
    }

    // Any command by its code. `size` is 0 to 3140; the record is copied out of `data` at once, and
    // into it, for the five known commands and only when the device answered 0, before the return.
    // For a known command `size` must be its record's.
    std::error_code read(std::uint32_t command, void* data, std::size_t size,
                         std::optional<milliseconds> deadline = {});
    std::error_code write(std::uint32_t command, const void* data, std::size_t size,
                          std::optional<milliseconds> deadline = {});

    // ---- pan, tilt, zoom; the command numbers are the device's own ----

    // Moves until stop_moving, but for `at_most` only: then the layer sends the stop by itself, and
    // goes on trying, once a second, until the device has taken it or the camera has ended. A later
    // move takes the timer over. A move that failed counts as begun, since the device may have got
    // it.
    std::error_code move(std::uint32_t command, std::uint32_t speed, milliseconds at_most,
                         std::optional<milliseconds> deadline = {});
    std::error_code stop_moving(std::optional<milliseconds> deadline = {});
    // Without a timer, for commands that end by themselves.
    std::error_code standard(std::uint32_t command, std::uint32_t speed,
                             std::optional<milliseconds> deadline = {});
    std::error_code preset(std::uint32_t command, std::uint32_t number,
                           std::optional<milliseconds> deadline = {});

private:
    class Impl;
    explicit Camera(std::unique_ptr<Impl> made) noexcept;
    std::shared_ptr<detail::CameraCore> core() const; // null when moved from
    std::unique_ptr<Impl> impl;
};

} // namespace zu
