// Settings, movement and presets as a raw client asks for them: words in, the
// code and the record out. The messages are put together here byte by byte, with
// nothing of the library's or the camera's. Used by the thread of the client.
#pragma once

#include "camera_client.h"

#include <vector>

namespace tools
{

using words = std::vector<std::uint32_t>;

constexpr std::size_t setting_size = 3132; // of every record on the wire

constexpr std::uint32_t video_setting = 0x1047;
constexpr std::uint32_t audio_setting = 0x1048;
constexpr std::uint32_t level_setting = 0x1051;
constexpr std::uint32_t qp_setting = 0x1052;
constexpr std::uint32_t preset_setting = 0x3018;

struct setting {
    std::uint32_t code = 0xffffffff; // no answer
    bytes record;
};

// Little-endian, filled up with zeros to a record's size.
bytes record_of(const words& first);
std::uint32_t word_of(const bytes& record, std::size_t index);

setting read_setting(camera_client& client, std::uint32_t command, const words& selector);
std::uint32_t write_setting(camera_client& client, std::uint32_t command, const bytes& record);
std::uint32_t move(camera_client& client, std::uint32_t action, std::uint32_t speed);
std::uint32_t use_preset(camera_client& client, std::uint32_t action, std::uint32_t number);

} // namespace tools
