// Four of the records are a few words with names; the list of presets is in preset_records.
#include "shared/records.h"

#include "shared/exit_codes.h"
#include "shared/preset_records.h"
#include "shared/values.h"

#include "zu/settings.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tool
{

namespace
{

std::vector<record_field> video_fields()
{
    using record = zu::VideoSettings;
    return {{"channel", offsetof(record, u32Channel)},
            {"stream", offsetof(record, u32Stream)},
            {"protocol", offsetof(record, u32Protocol)},
            {"bitrate", offsetof(record, u32Bitrate)},
            {"frame", offsetof(record, u32Frame)},
            {"iframe", offsetof(record, u32Iframe)},
            {"cbr", offsetof(record, u32Cbr)},
            {"img_quality", offsetof(record, u32ImgQuality)},
            {"resolution", offsetof(record, u32Resolution)},
            {"width", offsetof(record, u32Width)},
            {"height", offsetof(record, u32Height)}};
}

std::vector<record_field> audio_fields()
{
    using record = zu::AudioSettings;
    return {{"channel", offsetof(record, u32Channel)},
            {"stream", offsetof(record, u32Stream)},
            {"enable", offsetof(record, blEnable), true},
            {"type", offsetof(record, u32Type)},
            {"sample_rate", offsetof(record, u32SampleRate)},
            {"bit_rate", offsetof(record, u32BitRate)},
            {"audio_volume", offsetof(record, u32AudioVolume)}};
}

template <class Record>
record_kind kind_of(const char* name, std::vector<record_field> fields)
{
    return {name, zu::SettingOf<Record>::command, sizeof(Record), std::move(fields),
            zu::SettingOf<Record>::by_stream};
}

// "u32ImgQuality", "img-quality" and "img_quality" are one name.
std::string plain(const std::string& name)
{
    std::string result;
    for (const char* const prefix : {"u32", "s32", "bl"}) {
        const std::size_t size = std::strlen(prefix);
        if (name.compare(0, size, prefix) == 0 && name.size() > size && name[size] >= 'A' &&
            name[size] <= 'Z') {
            return plain(name.substr(size));
        }
    }
    for (const char character : lower_case(name)) {
        if (character != '_' && character != '-') {
            result += character;
        }
    }
    return result;
}

std::uint32_t word_at(const record_bytes& record, std::size_t offset)
{
    std::uint32_t word = 0;
    std::memcpy(&word, record.data() + offset, sizeof word);
    return word;
}

void set_word(record_bytes& record, std::size_t offset, std::uint32_t word)
{
    std::memcpy(record.data() + offset, &word, sizeof word);
}

const record_field* field_named(const record_kind& kind, const std::string& name)
{
    const auto found =
        std::find_if(kind.fields.begin(), kind.fields.end(),
                     [&](const record_field& each) { return plain(each.name) == plain(name); });
    return found == kind.fields.end() ? nullptr : &*found;
}

std::string settable_names(const record_kind& kind)
{
    std::string all;
    for (const record_field& each : kind.fields) {
        if (std::strcmp(each.name, "stream") != 0) {
            all += (all.empty() ? "" : ", ") + std::string(each.name);
        }
    }
    return all;
}

std::uint32_t word_of(const record_field& field, const std::string& value)
{
    const std::string lower = lower_case(value);
    if (field.is_switch && (lower == "on" || lower == "true" || lower == "yes")) {
        return 1;
    }
    if (field.is_switch && (lower == "off" || lower == "false" || lower == "no")) {
        return 0;
    }
    return static_cast<std::uint32_t>(
        parse_number(field.name, value,
                     {0, UINT32_MAX, field.is_switch ? "on or off, or a number" : "a number"}));
}

} // namespace

const std::vector<record_kind>& record_kinds()
{
    static const std::vector<record_kind> kinds = {
        kind_of<zu::VideoSettings>("video", video_fields()),
        kind_of<zu::AudioSettings>("audio", audio_fields()),
        kind_of<zu::EncodeLevel>("encode-level", {{"level", offsetof(zu::EncodeLevel, u32Level)}}),
        kind_of<zu::IdrQp>("idr-qp", {{"stream", offsetof(zu::IdrQp, u32Stream)},
                                      {"qp", offsetof(zu::IdrQp, u32QP)}}),
        kind_of<zu::PresetList>("presets", {})};
    return kinds;
}

const record_kind* record_named(const std::string& name)
{
    const auto number = whole_number(name);
    for (const record_kind& each : record_kinds()) {
        if (plain(each.name) == plain(name) || (number && *number == each.command)) {
            return &each;
        }
    }
    return nullptr;
}

std::string record_names()
{
    std::string all;
    for (const record_kind& each : record_kinds()) {
        all += (all.empty() ? "" : ", ") + std::string(each.name);
    }
    return all;
}

record_bytes empty_record(const record_kind& kind, std::uint32_t stream)
{
    record_bytes record(kind.size);
    if (kind.by_stream) {
        set_word(record, field_named(kind, "stream")->offset, stream);
    }
    return record;
}

json record_as_json(const record_kind& kind, const record_bytes& record)
{
    if (kind.fields.empty()) {
        return presets_as_json(record);
    }
    json object = json::object();
    for (const record_field& each : kind.fields) {
        object[each.name] = word_at(record, each.offset);
    }
    return object;
}

std::vector<std::string> record_as_lines(const record_kind& kind, const record_bytes& record)
{
    if (kind.fields.empty()) {
        return presets_as_lines(record);
    }
    std::vector<std::string> lines;
    for (const record_field& each : kind.fields) {
        lines.push_back(fmt::format("{}: {}", each.name, word_at(record, each.offset)));
    }
    return lines;
}

void change_record(const record_kind& kind, record_bytes& record, const std::string& key_and_value)
{
    const std::size_t sign = key_and_value.find('=');
    const std::string key = key_and_value.substr(0, sign);
    if (sign == std::string::npos) {
        throw bad_value(kind.name, key_and_value, "KEY=VALUE");
    }
    const std::string value = key_and_value.substr(sign + 1);
    if (kind.fields.empty()) {
        change_presets(record, key, value);
        return;
    }
    const record_field* const field = field_named(kind, key);
    if (field == nullptr || std::strcmp(field->name, "stream") == 0) {
        throw bad_value(kind.name, key,
                        settable_names(kind) +
                            (kind.by_stream ? "; the stream is chosen by --stream" : ""));
    }
    set_word(record, field->offset, word_of(*field, value));
}

} // namespace tool
