// Answers to settings, pan-tilt-zoom and presets: each is accepted, nothing is kept, a setting is
// read as zeros with its command in front. The answer to a read has the request's full size, since
// a client expects exactly that. Called by link threads, several at once; there is nothing to
// guard.
#include "control.h"

namespace zucam
{

std::optional<wire::bytes> control::answer(const wire::request& to) const
{
    switch (to.type) {
    case wire::pan_tilt_zoom:
    case wire::preset:
    case wire::set_config:
        return wire::answer(to, code_done);
    case wire::get_config:
        return read_setting(to);
    default:
        return std::nullopt;
    }
}

// The payload has the request's shape whatever the request's length: command, code, record.
wire::bytes control::read_setting(const wire::request& to)
{
    wire::bytes payload;
    wire::put_u32(payload, to.word(0));
    wire::put_u32(payload, static_cast<std::uint32_t>(code_done));
    payload.resize(wire::config_size);
    return wire::message(wire::answer_to(to.type), to.wait_port, payload);
}

} // namespace zucam
