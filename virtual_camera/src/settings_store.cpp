// One map from command and stream to bytes. The records that the camera obeys are in it from the
// start, so a configuration follows from the map alone. Commands that the camera does not know are
// kept as they are, up to a number that bounds the memory. One caller at a time.
#include "settings_store.h"

#include "video_encoder.h"

namespace zucam
{

namespace
{

constexpr std::size_t most_records = 4096; // some 13 MB

} // namespace

settings_store::settings_store(const stream_configs& start) : start_(start)
{
    for (const stream_config& each : start_) {
        for (const std::uint32_t command : {command::video, command::audio, command::idr_qp}) {
            records_[{command, each.stream}] = record::starting(command, each);
        }
    }
    for (const std::uint32_t command : {command::encode_level, command::presets}) {
        records_[{command, 0}] = record::starting(command, start_[0]);
    }
}

std::optional<wire::bytes> settings_store::read(std::uint32_t command,
                                                const wire::bytes& record) const
{
    const std::uint32_t stream = record::stream_of(command, record);
    if (stream >= stream_count) {
        return std::nullopt;
    }
    const auto found = records_.find({command, stream});
    return found == records_.end() ? wire::bytes(record::size) : found->second;
}

// Values that are good one by one may still be too much for an encoder together. The level, which
// is every stream's, is not tried: an encoder takes any profile with whatever it takes otherwise.
bool settings_store::can_be_obeyed(std::uint32_t command, const wire::bytes& record,
                                   unsigned stream) const
{
    const stream_config now = config_of(stream);
    stream_config then = now;
    record::apply(command, record, then);
    return command != command::video || then.numbered_size || same_encoding(then, now) ||
           can_encode(then);
}

std::int32_t settings_store::write(std::uint32_t command, const wire::bytes& record)
{
    const std::uint32_t stream = record::stream_of(command, record);
    if (stream >= stream_count || !record::in_range(command, record, start_[stream]) ||
        !can_be_obeyed(command, record, stream)) {
        return code_out_of_range;
    }
    const key where = {command, stream};
    if (records_.size() >= most_records && records_.find(where) == records_.end()) {
        return code_busy;
    }
    records_[where] = record;
    return code_done;
}

stream_config settings_store::config_of(unsigned stream) const
{
    stream_config made = start_[stream];
    for (const std::uint32_t command : {command::video, command::audio}) {
        record::apply(command, records_.at({command, stream}), made);
    }
    record::apply(command::encode_level, records_.at({command::encode_level, 0}), made);
    return made;
}

wire::bytes& settings_store::presets()
{
    return records_.at({command::presets, 0});
}

} // namespace zucam
