// The settings that a device brings back, by the names of their fields. A record travels as bytes;
// each field is a 32-bit word at its place in it.
#pragma once

#include "shared/console.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tool
{

using record_bytes = std::vector<std::uint8_t>;

struct record_field {
    const char* name;
    std::size_t offset;
    bool is_switch = false; // takes on and off too
};

struct record_kind {
    const char* name;
    std::uint32_t command;
    std::size_t size;
    std::vector<record_field> fields; // none: the list of presets
    bool by_stream;                   // a field "stream" selects what is read
};

const std::vector<record_kind>& record_kinds();
// By name, or by the number of the command; null when it is none of the five.
const record_kind* record_named(const std::string& name);
std::string record_names(); // "video, audio" and so on

record_bytes empty_record(const record_kind& kind, std::uint32_t stream);
json record_as_json(const record_kind& kind, const record_bytes& record);
// "bitrate: 2048" and so on, one a line; of presets one line for each.
std::vector<std::string> record_as_lines(const record_kind& kind, const record_bytes& record);

// Changes what "KEY=VALUE" says. Throws failure that tells which keys or values there are.
void change_record(const record_kind& kind, record_bytes& record, const std::string& key_and_value);

} // namespace tool
