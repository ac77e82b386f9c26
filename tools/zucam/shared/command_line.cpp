// Commands and options on CLI11. Texts are taken as they are and parsed by our own parsers, so that
// every wrong value gets one line of the same shape. Common options may stand before and behind the
// command, and the help of each command tells them.
#include "shared/command_line.h"

#include "shared/exit_codes.h"

#include <algorithm>

namespace tool
{

namespace
{

const std::string common_group = "Options of every command";

const std::string exit_codes_text =
    "Exit codes: 0 done, 1 this machine lacks something, 2 wrong usage, 3 cannot connect,\n"
    "4 timed out, 5 no video, 6 video that cannot be understood, 7 the device refused,\n"
    "8 the output failed, 130 interrupted. All is told in zucam(1).";

// The usual help, with the common options behind a command's own.
class command_formatter : public CLI::Formatter
{
public:
    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override
    {
        return make_description(app) + make_usage(app, std::move(name)) + make_positionals(app) +
               make_groups(app, mode) + common_options(app) + make_subcommands(app, mode) + "\n" +
               make_footer(app);
    }

private:
    std::string common_options(const CLI::App* app) const
    {
        const CLI::App* root = app;
        while (root->get_parent() != nullptr) {
            root = root->get_parent();
        }
        return root == app ? "" : make_group(common_group, false, root->get_options(is_common));
    }

    static bool is_common(const CLI::Option* option)
    {
        return option->get_group() == common_group && !option->check_name("--help");
    }
};

std::string footer(const std::string& examples)
{
    return "Examples:\n" + examples;
}

// CLI11 may give its reasons more than one line; one is enough.
std::string first_line(const std::string& text)
{
    return text.substr(0, text.find('\n'));
}

} // namespace

command command::under(const std::string& name, const std::string& description,
                       const std::string& examples)
{
    CLI::App* const sub = app_.add_subcommand(name, description);
    sub->footer(footer(examples));
    app_.require_subcommand(1, 1);
    return {*sub, chosen_};
}

CLI::Option* command::positional(const std::string& name, std::string& into,
                                 const std::string& description)
{
    return app_.add_option(name, into, description)->required()->type_name("");
}

CLI::Option* command::option(const std::string& name, const std::string& shape,
                             const std::string& description,
                             const std::function<void(const std::string&)>& take)
{
    return app_.add_option_function<std::string>(name, take, description)->type_name(shape);
}

void command::seconds(const std::string& name, std::optional<milliseconds>& into,
                      const std::string& description)
{
    option(name, "SECONDS", description,
           [&into, name](const std::string& given) { into = parse_seconds(name, given); });
}

void command::flag(const std::string& name, bool& into, const std::string& description)
{
    app_.add_flag_callback(
        name, [&into] { into = true; }, description);
}

void command::takes(stream_choice& stream)
{
    number("--stream", stream.number, {0, 3, "a stream"}, "which of the camera's streams [0]");
    option("--stream-type", "N", "the device's code for the kind of stream, 1 to 5, or 7 [1]",
           [&stream](const std::string& given) {
               const auto type = whole_number(given).value_or(0);
               if (type < 1 || type > 7 || type == 6) {
                   throw bad_value("--stream-type", given, "1 to 5, or 7");
               }
               stream.type = static_cast<std::uint8_t>(type);
           });
}

CLI::App& command::app()
{
    return app_;
}

void command::does(action what)
{
    app_.callback([&chosen = chosen_, what = std::move(what)] { chosen = what; });
}

command_line::command_line()
    : app_("Shows whether a network camera works: watches, records and moves it.", "zucam")
{
    app_.formatter(std::make_shared<command_formatter>());
    app_.require_subcommand(0, 1); // none is refused in our own words
    app_.fallthrough();
    app_.set_help_flag("-h,--help", "what the command does and takes")->group(common_group);
    app_.set_version_flag("--version", "zucam " ZUCAM_VERSION)->group("");
    app_.footer("CAMERA is HOST[:PORT] (port 9000 unless told otherwise) or a name of the list of "
                "cameras.\n`zucam COMMAND --help` has examples of each command.\n\n" +
                exit_codes_text);
    add_common_options();
}

void command_line::add_common_options()
{
    const auto text = [this](const std::string& name, const std::string& shape,
                             const std::string& description, std::optional<std::string>& into) {
        app_.add_option_function<std::string>(
                name, [&into](const std::string& given) { into = given; }, description)
            ->type_name(shape)
            ->group(common_group);
    };
    text("--user", "NAME", "user name [ZUCAM_USER, the list's, admin]", options_.user);
    text("--password", "WORD", "password [ZUCAM_PASSWORD, the list's, asked for at a terminal]",
         options_.password);
    text("--cameras", "FILE", "list of cameras by name [~/.config/zucam/cameras]",
         options_.camera_list);
    app_.add_option_function<std::string>(
            "--timeout",
            [this](const std::string& given) {
                options_.timeout = parse_seconds("--timeout", given);
            },
            "how long to wait for an answer, or for video [5; video 20]")
        ->type_name("SECONDS")
        ->group(common_group);
    app_.add_flag("--json", options_.manner.json, "one JSON object a line on standard output")
        ->group(common_group);
    app_.add_flag("-q,--quiet", options_.manner.quiet, "nothing on standard error but failures")
        ->group(common_group);
    app_.add_flag("-v,--verbose", options_.manner.verbose, "more about it; -vv: every step")
        ->group(common_group);
}

command command_line::add(const std::string& name, const std::string& description,
                          const std::string& examples)
{
    CLI::App* const sub = app_.add_subcommand(name, description);
    sub->footer(footer(examples));
    return {*sub, chosen_};
}

std::string command_line::commands() const
{
    std::string all;
    for (const CLI::App* each : app_.get_subcommands([](const CLI::App*) { return true; })) {
        all += (all.empty() ? "" : ", ") + each->get_name();
    }
    return all;
}

// The command's own help is what the user wants to be pointed to.
std::string command_line::refusal(const std::string& why) const
{
    const std::vector<std::string> surplus = app_.remaining();
    if (app_.get_subcommands().empty() && !surplus.empty() && surplus.front().front() != '-') {
        return "'" + surplus.front() + "' is no command; say " + commands();
    }
    std::string at = "zucam";
    for (const CLI::App* app = &app_; !app->get_subcommands().empty();) {
        app = app->get_subcommands().front();
        at += " " + app->get_name();
    }
    return first_line(why) + "; see " + at + " --help";
}

action command_line::parse(std::vector<std::string> arguments, console& out)
{
    std::reverse(arguments.begin(), arguments.end()); // as CLI11 wants them
    try {
        app_.parse(std::move(arguments));
    } catch (const CLI::CallForHelp&) {
        out.data(app_.help());
        return nullptr;
    } catch (const CLI::CallForVersion& version) {
        out.data(std::string(version.what()));
        return nullptr;
    } catch (const CLI::ParseError& error) {
        throw failure(exit_code::usage, refusal(error.what()));
    }
    out.set(options_.manner);
    if (!chosen_) {
        throw failure(exit_code::usage, "say what to do: " + commands() + "; see zucam --help");
    }
    return chosen_;
}

const common_options& command_line::options() const
{
    return options_;
}

} // namespace tool
