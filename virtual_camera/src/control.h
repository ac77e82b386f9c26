// Settings, pan-tilt-zoom and presets: the requests that ask the camera to be or do something.
//
// Kept apart from the transport and from the streams. For now every request is accepted, nothing is
// kept and a setting is read as zeros. Called by link threads; has no state yet that would need
// guarding.
#ifndef ZUCAM_CONTROL_H
#define ZUCAM_CONTROL_H

#include "wire.h"

#include <optional>

namespace zucam
{

// What a device says in the first word of its answer.
constexpr std::int32_t code_done = 0;
constexpr std::int32_t code_out_of_range = 2;

class control
{
public:
    // The whole answer, or nothing when the request is none of these.
    std::optional<wire::bytes> answer(const wire::request& to) const;

private:
    static wire::bytes read_setting(const wire::request& to);
};

} // namespace zucam

#endif
