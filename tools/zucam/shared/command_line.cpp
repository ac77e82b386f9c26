// Commands and options on CLI11. Texts are taken as they are and parsed by our own parsers, so that
// every wrong value gets one line of the same shape. Common options may stand before and behind the
// command, and the help of each command tells them.
#include "shared/command_line.h"

#include "shared/exit_codes.h"

#include <CLI/CLI.hpp>
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

// ---- refusals ----

// As far as the words that were given are commands: "zucam ptz", and what it is made of.
struct parsed_command {
    const CLI::App* app;
    std::string name;
};

parsed_command last_command(const CLI::App& root)
{
    parsed_command last = {&root, root.get_name()};
    while (!last.app->get_subcommands().empty()) {
        last.app = last.app->get_subcommands().front();
        last.name += " " + last.app->get_name();
    }
    return last;
}

// "info, watch" and so on; empty when there are none.
std::string commands_under(const CLI::App& app)
{
    std::string all;
    for (const CLI::App* each : app.get_subcommands([](const CLI::App*) { return true; })) {
        all += (all.empty() ? "" : ", ") + each->get_name();
    }
    return all;
}

// What is wrong with words that were not understood; empty when it is not for them to say. A word
// behind an unknown option may be its value, and nothing for other eyes: the option is told alone.
std::string wrong_word(const parsed_command& said, const std::vector<std::string>& surplus)
{
    const std::string commands = commands_under(*said.app);
    const auto option = std::find_if(surplus.begin(), surplus.end(), [](const std::string& each) {
        return each.size() > 1 && each[0] == '-';
    });
    if (option != surplus.end()) {
        return "'" + option->substr(0, option->find('=')) + "' is no option of " + said.name;
    }
    if (!commands.empty() && !surplus.empty()) {
        return "'" + surplus.front() + "' is no command of " + said.name + "; say " + commands;
    }
    if (!commands.empty()) {
        return "say what to do: " + commands;
    }
    return surplus.empty() ? "" : "'" + surplus.front() + "' is one argument too many";
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

void command::positional(const std::string& name, std::string& into, const std::string& description)
{
    app_.add_option(name, into, description)->required()->type_name("");
}

void command::positionals(const std::string& name, std::vector<std::string>& into,
                          const std::string& description)
{
    app_.add_option(name, into, description)->required()->type_name("");
}

void command::option(const std::string& name, const std::string& shape,
                     const std::string& description,
                     const std::function<void(const std::string&)>& take)
{
    app_.add_option_function<std::string>(name, take, description)->type_name(shape);
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

void command::takes_number_of(stream_choice& stream)
{
    number("--stream", stream.number, {0, 3, "a stream"}, "which of the camera's streams [0]");
}

void command::takes(stream_choice& stream)
{
    takes_number_of(stream);
    option("--stream-type", "N", "the device's code for the kind of stream, 1 to 5, or 7 [1]",
           [&stream](const std::string& given) {
               const auto type = whole_number(given).value_or(0);
               if (type < 1 || type > 7 || type == 6) {
                   throw bad_value("--stream-type", given, "1 to 5, or 7");
               }
               stream.type = static_cast<std::uint8_t>(type);
           });
}

void command::does(action what)
{
    app_.callback([&chosen = chosen_, what = std::move(what)] { chosen = what; });
}

void command::hands_on(const std::function<void(toolbox&, std::vector<std::string>)>& to)
{
    app_.set_help_flag();
    app_.fallthrough(false);
    app_.prefix_command();
    does([&app = app_, to](toolbox& tools) { to(tools, app.remaining()); });
}

command_line::command_line()
    : app_(std::make_unique<CLI::App>(
          "Shows whether a network camera works: watches, records and moves it.", "zucam"))
{
    app_->formatter(std::make_shared<command_formatter>());
    app_->require_subcommand(0, 1); // none is refused in our own words
    app_->fallthrough();
    app_->set_help_flag("-h,--help", "what the command does and takes")->group(common_group);
    app_->set_version_flag("--version", "zucam " ZUCAM_VERSION)->group("");
    app_->footer("CAMERA is HOST[:PORT] (port 9000 unless told otherwise) or a name of the list of "
                 "cameras.\n`zucam COMMAND --help` has examples of each command.\n\n" +
                 exit_codes_text);
    add_common_options();
}

command_line::~command_line() = default;

void command_line::add_common_options()
{
    const auto text = [this](const std::string& name, const std::string& shape,
                             const std::string& description, std::optional<std::string>& into) {
        app_->add_option_function<std::string>(
                name, [&into](const std::string& given) { into = given; }, description)
            ->type_name(shape)
            ->group(common_group);
    };
    text("--user", "NAME", "user name [ZUCAM_USER, the list's, admin]", options_.user);
    text("--password", "WORD", "password [ZUCAM_PASSWORD, the list's, asked for at a terminal]",
         options_.password);
    text("--cameras", "FILE", "list of cameras by name [~/.config/zucam/cameras]",
         options_.camera_list);
    app_->add_option_function<std::string>(
            "--timeout",
            [this](const std::string& given) {
                options_.timeout = parse_seconds("--timeout", given);
            },
            "how long to wait for an answer, or for video [5; video 20]")
        ->type_name("SECONDS")
        ->group(common_group);
    app_->add_flag("--json", options_.manner.json, "one JSON object a line on standard output")
        ->group(common_group);
    app_->add_flag("-q,--quiet", options_.manner.quiet, "nothing on standard error but failures")
        ->group(common_group);
    app_->add_flag("-v,--verbose", options_.manner.verbose, "more about it; -vv: every step")
        ->group(common_group);
}

command command_line::add(const std::string& name, const std::string& description,
                          const std::string& examples)
{
    CLI::App* const sub = app_->add_subcommand(name, description);
    sub->footer(footer(examples));
    return {*sub, chosen_};
}

std::string command_line::refusal(const CLI::ParseError& error) const
{
    const parsed_command said = last_command(*app_);
    const bool is_about_words = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr ||
                                dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    const std::string why = is_about_words ? wrong_word(said, app_->remaining(true)) : "";
    return (why.empty() ? first_line(error.what()) : why) + "; see " + said.name + " --help";
}

action command_line::parse(std::vector<std::string> arguments, console& out)
{
    std::reverse(arguments.begin(), arguments.end()); // as CLI11 wants them
    try {
        app_->parse(std::move(arguments));
    } catch (const CLI::CallForHelp&) {
        out.data(app_->help());
        return nullptr;
    } catch (const CLI::CallForVersion& version) {
        out.data(std::string(version.what()));
        return nullptr;
    } catch (const CLI::ParseError& error) {
        throw failure(exit_code::usage, refusal(error));
    }
    out.set(options_.manner);
    if (!chosen_) {
        throw failure(exit_code::usage,
                      "say what to do: " + commands_under(*app_) + "; see zucam --help");
    }
    return chosen_;
}

const common_options& command_line::options() const
{
    return options_;
}

} // namespace tool
