// Every setting that the camera was sent, by command and stream, and what it starts with.
//
// Reads and writes are whole records; a write that is refused changes nothing. Which stream a
// record is about is told by a word in it, for three commands; the others have one record for the
// camera, which stands under stream 0. A write may try an encoder, which takes some milliseconds.
// Guarded by its owner.
#ifndef ZUCAM_SETTINGS_STORE_H
#define ZUCAM_SETTINGS_STORE_H

#include "setting_records.h"

#include <array>
#include <map>
#include <optional>
#include <utility>

namespace zucam
{

using stream_configs = std::array<stream_config, stream_count>;

// What a device says in the first word of its answer.
constexpr std::int32_t code_done = 0;
constexpr std::int32_t code_unknown_command = 1;
constexpr std::int32_t code_out_of_range = 2;
constexpr std::int32_t code_busy = 3;

class settings_store
{
public:
    explicit settings_store(const stream_configs& start);

    // `record` selects the stream. Nothing when it selects one that there is not.
    std::optional<wire::bytes> read(std::uint32_t command, const wire::bytes& record) const;
    // The record is 3132 bytes. The code to answer with.
    std::int32_t write(std::uint32_t command, const wire::bytes& record);

    // How a stream is to be made with the settings as they are now.
    stream_config config_of(unsigned stream) const;
    wire::bytes& presets();

private:
    bool can_be_obeyed(std::uint32_t command, const wire::bytes& record, unsigned stream) const;

    using key = std::pair<std::uint32_t, std::uint32_t>; // command, stream

    const stream_configs start_;
    std::map<key, wire::bytes> records_;
};

} // namespace zucam

#endif
