// zucam preset: lists, visits, stores and clears positions of the camera head.
#include "commands/commands.h"
#include "shared/connection.h"
#include "shared/exit_codes.h"
#include "shared/preset_records.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tool
{

namespace
{

struct preset_options {
    std::string camera;
    std::string number;
    std::optional<std::uint32_t> command; // in place of the camera's usual number
};

void list_presets(toolbox& tools, const preset_options& options)
{
    const record_kind& kind = *record_named("presets");
    connection to(tools, find_camera(tools, options.camera));
    record_bytes record = empty_record(kind, 0);
    to.check(to.camera().read(kind.command, record.data(), record.size()),
             "the reading of the presets");
    if (tools.out.wants_json()) {
        for (const json& each : presets_as_json(record)) {
            tools.out.data(each);
        }
        return;
    }
    const std::vector<std::string> lines = presets_as_lines(record);
    for (const std::string& line : lines) {
        tools.out.data(line);
    }
    if (lines.empty()) {
        tools.out.say("no presets are stored");
    }
}

void do_preset(toolbox& tools, const preset_options& options, const std::string& action)
{
    const auto number = static_cast<std::uint32_t>(
        parse_number("NUMBER", options.number, {0, UINT32_MAX, "the number of a preset"}));
    connection to(tools, find_camera(tools, options.camera));
    const std::uint32_t command = options.command.value_or(to.place().numbers["preset-" + action]);
    to.check(to.camera().preset(command, number), fmt::format("preset {} {}", action, number));
    if (tools.out.wants_json()) {
        tools.out.data(json{{"preset", number}, {"action", action}});
    }
}

void add_action(command& preset, const std::string& action, const std::string& description)
{
    const auto options = std::make_shared<preset_options>();
    command sub =
        preset.under(action, description, fmt::format("  zucam preset {} door 3\n", action));
    sub.positional("CAMERA", options->camera, "HOST[:PORT] or a name of the list");
    sub.positional("NUMBER", options->number, "the preset");
    sub.option("--command", "N",
               fmt::format("the device's own number for it [preset-{} of the list]", action),
               [options](const std::string& given) {
                   options->command = static_cast<std::uint32_t>(
                       parse_number("--command", given, {0, UINT32_MAX, "a number"}));
               });
    sub.does([options, action](toolbox& tools) { do_preset(tools, *options, action); });
}

} // namespace

void add_preset(command_line& line)
{
    command preset = line.add("preset", "Lists, visits, stores and clears positions.",
                              "  zucam preset list door\n"
                              "  zucam preset set door 3\n"
                              "  zucam preset go door 3\n");
    const auto listing = std::make_shared<preset_options>();
    command list = preset.under("list", "Prints the stored positions.",
                                "  zucam preset list door\n"
                                "  zucam preset list door --json\n");
    list.positional("CAMERA", listing->camera, "HOST[:PORT] or a name of the list");
    list.does([listing](toolbox& tools) { list_presets(tools, *listing); });
    add_action(preset, "go", "Moves the camera to a stored position.");
    add_action(preset, "set", "Stores where the camera looks.");
    add_action(preset, "clear", "Forgets a position.");
}

} // namespace tool
