// zucam config: reads and changes the settings of a camera, by the names of their fields; commands
// that are not known here by their number, as bytes.
#include "commands/commands.h"
#include "shared/connection.h"
#include "shared/exit_codes.h"
#include "shared/records.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tool
{

namespace
{

constexpr std::size_t largest_record = 3132; // what a message has room for

struct config_options {
    std::string camera;
    std::string name;
    std::vector<std::string> changes;
    stream_choice stream;
    bool hex = false;
};

// What is asked for: one of the five, or any other command by its number.
struct config_target {
    const record_kind* kind = nullptr;
    std::uint32_t command = 0;
    std::string name;
};

config_target target_of(const std::string& name)
{
    const record_kind* const kind = record_named(name);
    if (kind != nullptr) {
        return {kind, kind->command, kind->name};
    }
    const auto number = whole_number(name);
    if (!number || *number < 0 || *number > UINT32_MAX) {
        throw bad_value("NAME", name,
                        record_names() + ", or the number of a command such as 0x1047");
    }
    const auto command = static_cast<std::uint32_t>(*number);
    return {nullptr, command, fmt::format("command {:#x}", command)};
}

record_bytes read_record(connection& to, const record_kind& kind, std::uint32_t stream)
{
    record_bytes record = empty_record(kind, stream);
    to.check(to.camera().read(kind.command, record.data(), record.size()),
             fmt::format("the reading of {}", kind.name));
    return record;
}

void print_record(toolbox& tools, const record_kind& kind, const record_bytes& record, bool hex)
{
    if (hex && !tools.out.wants_json()) {
        tools.out.data(to_hex(record));
    } else if (hex) {
        tools.out.data(json{{"setting", kind.name}, {"hex", to_hex(record)}});
    } else if (tools.out.wants_json()) {
        tools.out.data(json{{"setting", kind.name}, {"value", record_as_json(kind, record)}});
    } else {
        for (const std::string& line : record_as_lines(kind, record)) {
            tools.out.data(line);
        }
    }
}

// A command that is not known brings back its code alone.
void print_answer(toolbox& tools, const config_target& target)
{
    if (tools.out.wants_json()) {
        tools.out.data(json{{"setting", fmt::format("{:#x}", target.command)}, {"code", 0}});
    } else {
        tools.out.data(fmt::format("{}: done", target.name));
    }
}

void get_config(toolbox& tools, const config_options& options)
{
    const config_target target = target_of(options.name);
    connection to(tools, find_camera(tools, options.camera));
    if (target.kind != nullptr) {
        print_record(tools, *target.kind, read_record(to, *target.kind, options.stream.number),
                     options.hex);
        return;
    }
    to.check(to.camera().read(target.command, nullptr, 0), "the reading of " + target.name);
    print_answer(tools, target);
}

// The bytes of a record from the arguments; nothing when these are KEY=VALUE.
std::optional<record_bytes> bytes_of(const config_options& options, const config_target& target)
{
    std::string all;
    for (const std::string& each : options.changes) {
        all += each;
    }
    if (target.kind != nullptr && all.find('=') != std::string::npos) {
        return std::nullopt;
    }
    auto bytes = parse_hex(all);
    if (!bytes) {
        throw bad_value(target.name, all,
                        target.kind != nullptr ? "KEY=VALUE, or the record's bytes such as 0100ff"
                                               : "the record's bytes such as 0100ff");
    }
    if (target.kind != nullptr && bytes->size() != target.kind->size) {
        throw bad_value(target.name, all,
                        fmt::format("KEY=VALUE, or all {} bytes", target.kind->size));
    }
    if (bytes->size() > largest_record) {
        throw bad_value(target.name, all.substr(0, 8) + "...",
                        fmt::format("{} bytes at most", largest_record));
    }
    return bytes;
}

// Tried before anything is asked, so that a wrong key costs nothing.
void try_changes(const record_kind& kind, const config_options& options)
{
    record_bytes nothing = empty_record(kind, options.stream.number);
    for (const std::string& each : options.changes) {
        change_record(kind, nothing, each);
    }
}

void set_config(toolbox& tools, const config_options& options)
{
    const config_target target = target_of(options.name);
    auto bytes = bytes_of(options, target);
    const bool by_keys = target.kind != nullptr && !bytes;
    if (by_keys) {
        try_changes(*target.kind, options);
    }
    connection to(tools, find_camera(tools, options.camera));
    if (by_keys) {
        bytes = read_record(to, *target.kind, options.stream.number);
        for (const std::string& each : options.changes) {
            change_record(*target.kind, *bytes, each);
        }
    }
    to.check(to.camera().write(target.command, bytes->data(), bytes->size()),
             "the change of " + target.name);
    if (target.kind == nullptr) {
        print_answer(tools, target);
        return;
    }
    print_record(tools, *target.kind, read_record(to, *target.kind, options.stream.number),
                 options.hex);
}

void add_shared(command& to, const std::shared_ptr<config_options>& options)
{
    to.positional("CAMERA", options->camera, "HOST[:PORT] or a name of the list");
    to.positional("NAME", options->name, record_names() + ", or a command's number");
    to.takes_number_of(options->stream);
    to.flag("--hex", options->hex, "prints the record's bytes");
}

} // namespace

void add_config(command_line& line)
{
    command config = line.add("config", "Reads and changes settings.",
                              "  zucam config get door video\n"
                              "  zucam config set door video bitrate=1024 iframe=25\n"
                              "  zucam config get door presets --json\n");
    const auto getting = std::make_shared<config_options>();
    command get = config.under("get", "Prints a setting.",
                               "  zucam config get door video --stream 1\n"
                               "  zucam config get door audio --json\n"
                               "  zucam config get door 0x1047 --hex\n");
    add_shared(get, getting);
    get.does([getting](toolbox& tools) { get_config(tools, *getting); });

    const auto setting = std::make_shared<config_options>();
    command set =
        config.under("set", "Changes fields of a setting, and prints what the camera has then.",
                     "  zucam config set door video bitrate=1024 iframe=25\n"
                     "  zucam config set door audio enable=off\n"
                     "  zucam config set door presets 3=100,-50,2000 4=none\n"
                     "  zucam config set door 0x2001 01000000ff\n");
    add_shared(set, setting);
    set.positionals("CHANGE", setting->changes, "KEY=VALUE ..., or the record's bytes in hex");
    set.does([setting](toolbox& tools) { set_config(tools, *setting); });
}

} // namespace tool
