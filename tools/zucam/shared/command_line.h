// The command line: commands with their options, help and refusals. A command adds itself and
// leaves behind what is to be done; that runs when the whole line has been understood. The headers
// of CLI11 are heavy, and command_line.cpp alone includes them.
#pragma once

#include "shared/options.h"
#include "shared/values.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI
{
class App;
class ParseError;
} // namespace CLI

namespace tool
{

using action = std::function<void(toolbox&)>;

// One command under construction.
class command
{
public:
    command(CLI::App& app, action& chosen) : app_(app), chosen_(chosen)
    {
    }

    // Commands of this one, as `get` and `set` of `config`. One of them must be given.
    command under(const std::string& name, const std::string& description,
                  const std::string& examples);

    void positional(const std::string& name, std::string& into, const std::string& description);
    void positionals(const std::string& name, std::vector<std::string>& into,
                     const std::string& description); // one or more, behind all others
    void option(const std::string& name, const std::string& shape, const std::string& description,
                const std::function<void(const std::string&)>& take);
    template <typename Number>
    void number(const std::string& name, Number& into, const number_range& range,
                const std::string& description)
    {
        option(name, "N", description, [&into, name, range](const std::string& given) {
            into = static_cast<Number>(parse_number(name, given, range));
        });
    }
    void seconds(const std::string& name, std::optional<milliseconds>& into,
                 const std::string& description);
    void flag(const std::string& name, bool& into, const std::string& description);
    void takes(stream_choice& stream);
    void takes_number_of(stream_choice& stream); // its type does not matter

    // What the command is there for. Runs after everything has been parsed.
    void does(action what);
    // The same for a command that is another program: all words behind it, --help too, are for
    // that.
    void hands_on(const std::function<void(toolbox&, std::vector<std::string>)>& to);

private:
    CLI::App& app_;
    action& chosen_;
};

class command_line
{
public:
    command_line();
    ~command_line();
    command add(const std::string& name, const std::string& description,
                const std::string& examples);

    // What is to be done; nothing when help or the version was asked for, and printed. Throws
    // failure.
    action parse(std::vector<std::string> arguments, console& out);
    const common_options& options() const;

private:
    void add_common_options();
    std::string refusal(const CLI::ParseError& error) const;

    common_options options_;
    action chosen_;
    const std::unique_ptr<CLI::App> app_;
};

} // namespace tool
