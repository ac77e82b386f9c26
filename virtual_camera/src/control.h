// Settings, pan-tilt-zoom and presets: the requests that ask the camera to be or do something.
//
// Kept apart from the transport and from the streams: what a setting changes is handed to the owner
// as the new configuration of a stream. Called by link threads, several at once; the mutex guards
// the store and keeps configurations in the order of their settings. The owner's function is called
// with it held, and must not come back here.
#ifndef ZUCAM_CONTROL_H
#define ZUCAM_CONTROL_H

#include "camera_head.h"
#include "settings_store.h"
#include "wire.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace zucam
{

class control
{
public:
    using change_stream = std::function<void(const stream_config&)>;

    // The configurations that the streams start with; all have the same head.
    control(const stream_configs& start, change_stream change);

    struct reply {
        wire::bytes message; // the whole answer
        bool changes_streams = false;
    };

    // Nothing when the request is none of these.
    std::optional<reply> answer(const wire::request& to);

    // Puts what is in the store in force on the streams. Called when a reply says that it changes
    // them, and once it has been sent, so that no header or frame of the new kind comes before the
    // answer to the request for it.
    void put_in_force();

private:
    wire::bytes read_setting(const wire::request& to) const;
    std::int32_t write_setting(const wire::request& from);
    std::int32_t move(std::uint32_t action, std::uint32_t speed);
    std::int32_t use_preset(std::uint32_t action, std::uint32_t number);
    std::int32_t go_to_preset(std::uint32_t number);

    const std::shared_ptr<camera_head> head_;
    const change_stream change_;
    mutable std::mutex mutex_;
    settings_store store_;
};

} // namespace zucam

#endif
