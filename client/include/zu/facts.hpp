// The three facts about a camera, and the events that tell of their changes.
//
// They are separate on purpose: a link can be up while the device is dead, and a device can answer
// heartbeats while its encoder has stopped.
#pragma once

#include <functional>
#include <optional>

#include "zu/frame.hpp"

namespace zu
{

enum class LinkState { up, down };

struct Link {
    LinkState state = LinkState::down;
    Clock::time_point since; // when the layer learnt of it
};

struct Peer {
    // A heartbeat, or a request, was answered within `peer_silent_after`.
    bool alive = false;
    std::optional<Clock::duration> silence; // age of the last answer; nothing before the first one
};

enum class MediaState {
    off,       // no stream has been started, or it was stopped
    flowing,   // frames come as they should
    trickling, // in the last max(`stalled_after`, 1 s) fewer than half of the video frames came
               // that the system header's frame rate, or what came before, makes expect; up to 3/4
               // again
    stalled,   // no frame for `stalled_after` (then with an event), or none since the start
};

struct Media {
    MediaState state = MediaState::off;
    Clock::time_point since;
    std::optional<Clock::duration> frame_age; // of the last video or audio frame
};

enum class EventKind {
    link_up,
    link_down,
    heartbeat, // each one that is answered
    peer_alive,
    peer_silent,   // also when nothing was answered since the login
    media_flowing, // at first, and resumed
    media_trickling,
    media_stalled,
    frames_dropped,      // a full queue has begun to drop; once per run of drops, and a second
    key_frame_asked_for, // by the layer itself, see CameraOptions::ask_for_key_frames
    movement_stopped,    // by the dead man's timer
};

const char* name_of(EventKind kind) noexcept; // "link up" and so on

struct Event {
    EventKind kind;
    Clock::time_point at;
};

// Called on a thread of its own, one call at a time, in order. It may make requests; it must not
// throw and must not destroy the camera. A slow handler delays other events and nothing else. From
// the thousandth event on that waits for it, heartbeats, drops and key frames asked for are not
// told.
using EventHandler = std::function<void(const Event&)>;

} // namespace zu
