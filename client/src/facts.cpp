// Names of events. See facts.hpp.
#include "zu/facts.hpp"

namespace zu
{

const char* name_of(EventKind kind) noexcept
{
    switch (kind) {
    case EventKind::link_up:
        return "link up";
    case EventKind::link_down:
        return "link down";
    case EventKind::heartbeat:
        return "heartbeat";
    case EventKind::peer_alive:
        return "peer alive";
    case EventKind::peer_silent:
        return "peer silent";
    case EventKind::media_flowing:
        return "media flowing";
    case EventKind::media_trickling:
        return "media trickling";
    case EventKind::media_stalled:
        return "media stalled";
    case EventKind::frames_dropped:
        return "frames dropped";
    case EventKind::key_frame_asked_for:
        return "key frame asked for";
    case EventKind::movement_stopped:
        return "movement stopped";
    }
    return "unknown event";
}

} // namespace zu
