// zucam ptz: moves and zooms. A movement ends by the dead man's timer of the layer, after --for
// seconds; an interruption stops it too, and so does the end of the program.
#include "commands/commands.h"
#include "shared/connection.h"
#include "shared/exit_codes.h"

#include <atomic>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tool
{

namespace
{

constexpr milliseconds usual_length{1000};
constexpr milliseconds one_turn{20};

struct ptz_options {
    std::string camera;
    std::string direction;
    std::optional<std::uint32_t> speed;
    std::optional<milliseconds> length;
    std::optional<std::uint32_t> command; // in place of the camera's usual number
    bool no_stop = false;
};

// "up-left" is "left-up".
std::string usual_order(const std::string& direction)
{
    const std::size_t dash = direction.find('-');
    const std::string first = direction.substr(0, dash);
    if (dash == std::string::npos || (first != "up" && first != "down")) {
        return direction;
    }
    return direction.substr(dash + 1) + "-" + first;
}

std::string movement_named(const std::string& prefix, const std::string& direction)
{
    std::string name = prefix + usual_order(lower_case(direction));
    const bool known = device_numbers().knows(name) && name != "ptz-stop" && name != "ptz-speed";
    if (!known) {
        throw bad_value("DIRECTION", direction,
                        prefix == "zoom-" ? "in or out"
                                          : "up, down, left, right, left-up, right-up, left-down "
                                            "or right-down");
    }
    return name;
}

void print_done(toolbox& tools, const std::string& action, std::uint32_t command,
                std::uint32_t speed)
{
    if (tools.out.wants_json()) {
        tools.out.data(json{{"action", action}, {"command", command}, {"speed", speed}});
    }
}

// Until the timer has stopped it, or we have.
void wait_for_stop(toolbox& tools, connection& to, const std::atomic<bool>& stopped,
                   milliseconds length)
{
    const auto latest = zu::Clock::now() + length + deadline_of(tools);
    while (!stopped) {
        if (tools.signals.asked_to_end()) {
            to.check(to.camera().stop_moving(), "the stop");
            throw interrupted();
        }
        if (zu::Clock::now() > latest) {
            throw failure(exit_code::timed_out,
                          to.place().label + " did not answer the stop; it may be moving still");
        }
        tools.signals.wait(one_turn);
    }
}

void move(toolbox& tools, const ptz_options& options, const std::string& prefix)
{
    const std::string movement = movement_named(prefix, options.direction);
    std::atomic<bool> stopped{false};
    zu::CameraOptions handlers;
    handlers.on_event = [&stopped](const zu::Event& event) {
        stopped = stopped || event.kind == zu::EventKind::movement_stopped;
    };
    connection to(tools, find_camera(tools, options.camera), std::move(handlers));
    const std::uint32_t command = options.command.value_or(to.place().numbers[movement]);
    const std::uint32_t speed = options.speed.value_or(to.place().numbers["ptz-speed"]);
    const milliseconds length = options.length.value_or(usual_length);
    const std::string what = "the movement " + options.direction;
    if (options.no_stop) {
        to.check(to.camera().standard(command, speed), what);
    } else {
        tools.signals.finish_orderly();
        to.check(to.camera().move(command, speed, length), what);
        wait_for_stop(tools, to, stopped, length);
    }
    print_done(tools, movement, command, speed);
}

void stop(toolbox& tools, const ptz_options& options)
{
    connection to(tools, find_camera(tools, options.camera));
    const std::uint32_t command = options.command.value_or(to.place().numbers["ptz-stop"]);
    const std::uint32_t speed = to.place().numbers["stop-speed"];
    to.check(to.camera().standard(command, speed), "the stop");
    print_done(tools, "ptz-stop", command, speed);
}

void add_command_option(command& to, const std::shared_ptr<ptz_options>& options,
                        const std::string& usual)
{
    to.option("--command", "N", "the device's own number for it [" + usual + " of the list]",
              [options](const std::string& given) {
                  options->command = static_cast<std::uint32_t>(
                      parse_number("--command", given, {0, UINT32_MAX, "a number"}));
              });
}

void add_movement(command& ptz, const std::string& name, const std::string& description,
                  const std::string& prefix, const std::string& directions,
                  const std::string& examples)
{
    const auto options = std::make_shared<ptz_options>();
    command sub = ptz.under(name, description, examples);
    sub.positional("CAMERA", options->camera, "HOST[:PORT] or a name of the list");
    sub.positional("DIRECTION", options->direction, directions);
    sub.option("--speed", "N", "on the device's scale [32]", [options](const std::string& given) {
        options->speed = static_cast<std::uint32_t>(
            parse_number("--speed", given, {0, UINT32_MAX, "a speed of the device's scale"}));
    });
    sub.seconds("--for", options->length, "stops after this long [1]");
    sub.flag("--no-stop", options->no_stop, "ends at once and lets it move on");
    add_command_option(sub, options, prefix + "DIRECTION");
    sub.does([options, prefix](toolbox& tools) { move(tools, *options, prefix); });
}

} // namespace

void add_ptz(command_line& line)
{
    command ptz = line.add("ptz", "Pans, tilts and zooms.",
                           "  zucam ptz move door left --for 2\n"
                           "  zucam ptz zoom door in\n"
                           "  zucam ptz stop door\n");
    add_movement(ptz, "move", "Pans and tilts, and stops.", "ptz-",
                 "up, down, left, right, left-up, right-up, left-down, right-down",
                 "  zucam ptz move door left\n"
                 "  zucam ptz move door right-up --speed 64 --for 0.5\n"
                 "  zucam ptz move door left --command 23\n");
    add_movement(ptz, "zoom", "Zooms, and stops.", "zoom-", "in, out",
                 "  zucam ptz zoom door in --for 2\n"
                 "  zucam ptz zoom door out\n");
    const auto options = std::make_shared<ptz_options>();
    command stopping = ptz.under("stop", "Stops a movement that is under way.",
                                 "  zucam ptz stop door\n"
                                 "  zucam ptz stop door --command 5\n");
    stopping.positional("CAMERA", options->camera, "HOST[:PORT] or a name of the list");
    add_command_option(stopping, options, "ptz-stop");
    stopping.does([options](toolbox& tools) { stop(tools, *options); });
}

} // namespace tool
