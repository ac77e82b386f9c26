// Reading and changing the list of presets. A device may say that it has more than fit: the first
// hundred count.
#include "shared/preset_records.h"

#include "shared/exit_codes.h"
#include "shared/values.h"

#include "zu/settings.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <fmt/format.h>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

namespace tool
{

namespace
{

using preset = ZU_S_PRESET_DETAILED;

constexpr std::size_t most_presets = std::size(zu::PresetList{}.preset_list);
const std::string position_shape = "PAN,TILT,ZOOM or PAN,TILT,ZOOM,FOCUS, or none";

std::vector<preset> presets_of(const record_bytes& record)
{
    zu::PresetList list = {};
    std::memcpy(&list, record.data(), std::min(record.size(), sizeof list));
    const auto count = std::clamp<std::int64_t>(list.s32Sum, 0, most_presets);
    return {list.preset_list, list.preset_list + count};
}

void put_presets(record_bytes& record, const std::vector<preset>& presets)
{
    zu::PresetList list = {};
    list.s32Sum = static_cast<ZU_S32>(presets.size());
    std::copy(presets.begin(), presets.end(), list.preset_list);
    record.resize(sizeof list);
    std::memcpy(record.data(), &list, sizeof list);
}

std::vector<std::string> parts_of(const std::string& text)
{
    std::vector<std::string> parts;
    std::istringstream from(text);
    std::string part;
    while (std::getline(from, part, ',')) {
        parts.push_back(part);
    }
    return parts;
}

preset parse_position(ZU_S32 number, const std::string& key, const std::string& value)
{
    const std::vector<std::string> parts = parts_of(value);
    std::array<ZU_S32, 4> numbers = {};
    if (parts.size() < 3 || parts.size() > numbers.size()) {
        throw bad_value(key, value, position_shape);
    }
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const auto part = whole_number(parts[i]);
        if (!part || *part < INT32_MIN || *part > INT32_MAX) {
            throw bad_value(key, value, position_shape);
        }
        numbers[i] = static_cast<ZU_S32>(*part);
    }
    return {number, numbers[0], numbers[1], numbers[2], numbers[3]};
}

} // namespace

json presets_as_json(const record_bytes& record)
{
    json list = json::array();
    for (const preset& each : presets_of(record)) {
        list.push_back({{"num", each.s32Num},
                        {"pan", each.s32Pan},
                        {"tilt", each.s32Tilt},
                        {"zoom", each.s32Zoom},
                        {"focus", each.s32Focus}});
    }
    return list;
}

std::vector<std::string> presets_as_lines(const record_bytes& record)
{
    std::vector<std::string> lines;
    for (const preset& each : presets_of(record)) {
        lines.push_back(fmt::format("{}: pan {}, tilt {}, zoom {}, focus {}", each.s32Num,
                                    each.s32Pan, each.s32Tilt, each.s32Zoom, each.s32Focus));
    }
    return lines;
}

void change_presets(record_bytes& record, const std::string& key, const std::string& value)
{
    const auto number = static_cast<ZU_S32>(
        parse_number("presets", key, {INT32_MIN, INT32_MAX, "the number of a preset"}));
    std::vector<preset> presets = presets_of(record);
    const auto found = std::find_if(presets.begin(), presets.end(),
                                    [&](const preset& each) { return each.s32Num == number; });
    if (value == "none") {
        presets.erase(found, found == presets.end() ? found : found + 1);
    } else if (found != presets.end()) {
        *found = parse_position(number, key, value);
    } else if (presets.size() < most_presets) {
        presets.push_back(parse_position(number, key, value));
    } else {
        throw failure(exit_code::usage, "the list is full; take one off first, such as 7=none");
    }
    put_presets(record, presets);
}

} // namespace tool
