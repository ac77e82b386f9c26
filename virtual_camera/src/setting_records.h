// The records of the settings that the camera obeys: how they follow from a stream's configuration,
// what values they may have, and what configuration follows from them.
//
// A record here is the 3132 bytes that travel with every setting, little-endian words first. Fields
// without an effect may have any value. No state, no threads.
#ifndef ZUCAM_SETTING_RECORDS_H
#define ZUCAM_SETTING_RECORDS_H

#include "producer.h"
#include "wire.h"

namespace zucam
{

namespace command
{
constexpr std::uint32_t video = 0x1047;
constexpr std::uint32_t audio = 0x1048;
constexpr std::uint32_t encode_level = 0x1051;
constexpr std::uint32_t idr_qp = 0x1052;
constexpr std::uint32_t presets = 0x3018;
} // namespace command

namespace record
{

constexpr std::size_t size = wire::config_size - 8;

std::uint32_t word(const wire::bytes& record, std::size_t index);
void set_word(wire::bytes& record, std::size_t index, std::uint32_t value);

// Every number of a record, signed or not, is exact as a double.
constexpr bool within(double value, double least, double most)
{
    return value >= least && value <= most;
}

// The stream that a record is about; 0 where the camera has one record for all streams.
std::uint32_t stream_of(std::uint32_t command, const wire::bytes& record);

// As the camera starts.
wire::bytes starting(std::uint32_t command, const stream_config& from);

// Whether each value by itself is one that the camera can obey; `first` is how the stream started,
// whose own measures are good even where they are beyond the usual limits.
bool in_range(std::uint32_t command, const wire::bytes& record, const stream_config& first);

// Changes what the record says; other commands than those of streams change nothing.
void apply(std::uint32_t command, const wire::bytes& record, stream_config& to);

} // namespace record

} // namespace zucam

#endif
