// Answers to settings, pan-tilt-zoom and presets. The answer to a read has the full size of a
// setting whatever the request's length was, since a client expects exactly that; what a short
// request lacks counts as zeros. See the header for threads.
#include "control.h"

#include "preset_list.h"

#include <algorithm>
#include <utility>

namespace zucam
{

namespace
{

constexpr std::size_t record_begin = 8; // behind command and code

enum class preset_command : std::uint32_t { store = 1, go_to = 2, clear = 3 };

wire::bytes record_in(const wire::request& what)
{
    wire::bytes record(record::size);
    const std::size_t end = std::min(what.payload.size(), wire::config_size);
    if (end > record_begin) {
        std::copy(what.payload.begin() + record_begin,
                  what.payload.begin() + static_cast<std::ptrdiff_t>(end), record.begin());
    }
    return record;
}

} // namespace

control::control(const stream_configs& start, change_stream change)
    : head_(start[0].head), change_(std::move(change)), store_(start)
{
}

std::optional<control::reply> control::answer(const wire::request& to)
{
    const bool has_two_words = to.payload.size() >= 8;
    std::int32_t code = code_out_of_range;
    switch (to.type) {
    case wire::pan_tilt_zoom:
        code = has_two_words ? move(to.word(0), to.word(1)) : code_out_of_range;
        return reply{wire::answer(to, code)};
    case wire::preset:
        code = has_two_words ? use_preset(to.word(0), to.word(1)) : code_out_of_range;
        return reply{wire::answer(to, code)};
    case wire::set_config:
        code = has_two_words ? write_setting(to) : code_out_of_range;
        return reply{wire::answer(to, code), code == code_done};
    case wire::get_config:
        return reply{read_setting(to)};
    default:
        return std::nullopt;
    }
}

wire::bytes control::read_setting(const wire::request& to) const
{
    std::optional<wire::bytes> found;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        found = store_.read(to.word(0), record_in(to));
    }
    wire::bytes payload;
    wire::put_u32(payload, to.word(0));
    wire::put_u32(payload, static_cast<std::uint32_t>(found ? code_done : code_out_of_range));
    if (found) {
        payload.insert(payload.end(), found->begin(), found->end());
    }
    payload.resize(wire::config_size);
    return wire::message(wire::answer_to(to.type), to.wait_port, payload);
}

std::int32_t control::write_setting(const wire::request& from)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return store_.write(from.word(0), record_in(from));
}

// A stream that plays what is wanted of it already takes no notice.
void control::put_in_force()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (unsigned stream = 0; stream < stream_count; ++stream) {
        change_(store_.config_of(stream));
    }
}

std::int32_t control::move(std::uint32_t action, std::uint32_t speed)
{
    const auto wanted = static_cast<head_command>(action);
    if (wanted > head_command::zoom_out) {
        return code_unknown_command;
    }
    if (wanted != head_command::stop && (speed < 1 || speed > fastest_speed)) {
        return code_out_of_range;
    }
    head_->move(wanted, speed, camera_head::clock::now());
    return code_done;
}

std::int32_t control::use_preset(std::uint32_t action, std::uint32_t number)
{
    const auto wanted = static_cast<preset_command>(action);
    if (wanted < preset_command::store || wanted > preset_command::clear) {
        return code_unknown_command;
    }
    if (number < first_preset || number > last_preset) {
        return code_out_of_range;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    switch (wanted) {
    case preset_command::store:
        preset_list(store_.presets()).store(number, head_->look(camera_head::clock::now()));
        return code_done;
    case preset_command::clear:
        preset_list(store_.presets()).clear(number);
        return code_done;
    case preset_command::go_to:
        break;
    }
    return go_to_preset(number);
}

// A preset that was never stored is a number out of range.
std::int32_t control::go_to_preset(std::uint32_t number)
{
    const auto target = preset_list(store_.presets()).find(number);
    if (!target) {
        return code_out_of_range;
    }
    head_->go_to(*target, camera_head::clock::now());
    return code_done;
}

} // namespace zucam
