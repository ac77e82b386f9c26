// Logging in, and error codes as lines with exit codes.
#include "shared/connection.h"

#include <fmt/format.h>

namespace tool
{

namespace
{

// The library's lines end up beside ours; those of errors with -v, each step with -vv.
zu::LibraryOptions library_options(toolbox& tools)
{
    zu::LibraryOptions options;
    options.trace = tools.out.verbose() >= 2;
    options.log = [&out = tools.out](const zu::LogLine& line) {
        const std::string text = "library: " + std::string(line.text);
        if (line.error) {
            out.detail(text);
        } else {
            out.trace(text);
        }
    };
    return options;
}

exit_code exit_code_of(const std::error_code& code)
{
    if (zu::refused(code)) {
        return exit_code::refused;
    }
    if (code.category() != zu::error_category()) {
        return exit_code::machine;
    }
    switch (static_cast<zu::Errc>(code.value())) {
    case zu::Errc::bad_argument:
        return exit_code::usage;
    case zu::Errc::cannot_connect:
    case zu::Errc::link_down:
        return exit_code::cannot_connect;
    case zu::Errc::timed_out:
    case zu::Errc::no_answer:
        return exit_code::timed_out;
    default: // cannot happen to a program that makes one request after the other
        return exit_code::machine;
    }
}

std::string seconds_text(milliseconds time)
{
    return fmt::format("{:g} s", static_cast<double>(time.count()) / 1000.0);
}

zu::Camera log_in(toolbox& tools, const camera_place& place, zu::CameraOptions options,
                  milliseconds& took)
{
    const auto began = zu::Clock::now();
    options.deadline = deadline_of(tools);
    options.stop_command = place.numbers["ptz-stop"];
    options.stop_speed = place.numbers["stop-speed"];
    tools.out.detail("connecting to " + place.label);
    zu::Result<zu::Camera> result = zu::Camera::log_in(place.address, std::move(options));
    if (!result && result.error() == zu::make_error_code(zu::Errc::cannot_connect)) {
        throw failure(
            exit_code::cannot_connect,
            fmt::format("cannot connect to {}: nobody listens there, or nobody accepts in "
                        "time",
                        place.label));
    }
    if (!result) {
        throw failure(exit_code_of(result.error()),
                      fmt::format("no login to {}: {}", place.label, result.error().message()));
    }
    took = std::chrono::duration_cast<milliseconds>(zu::Clock::now() - began);
    tools.out.detail(fmt::format("connected in {} ms", took.count()));
    return std::move(result).value();
}

} // namespace

connection::connection(toolbox& tools, const camera_place& place, zu::CameraOptions options)
    : tools_(tools), place_(place), library_(library_options(tools)),
      camera_(log_in(tools, place_, std::move(options), connected_in_))
{
}

zu::Camera& connection::camera()
{
    return camera_;
}

const camera_place& connection::place() const
{
    return place_;
}

milliseconds connection::connected_in() const
{
    return connected_in_;
}

failure connection::failure_of(const std::error_code& code, const std::string& what) const
{
    const exit_code result = exit_code_of(code);
    switch (result) {
    case exit_code::refused:
        return {result,
                fmt::format("{} refused {}, with its code {}", place_.label, what, code.value())};
    case exit_code::timed_out:
        return {result, fmt::format("{} did not answer {}{}", place_.label, what,
                                    code == zu::make_error_code(zu::Errc::timed_out)
                                        ? " within " + seconds_text(deadline_of(tools_))
                                        : std::string())};
    case exit_code::cannot_connect:
        return {result, fmt::format("the link to {} was lost before {}", place_.label, what)};
    default:
        return {result, fmt::format("{} failed: {}", what, code.message())};
    }
}

void connection::check(const std::error_code& code, const std::string& what) const
{
    if (code) {
        throw failure_of(code, what);
    }
}

void connection::start_stream(const stream_choice& stream)
{
    zu::StreamRequest request;
    request.stream = stream.number;
    request.type = stream.type;
    check(camera_.start_stream(request), fmt::format("the start of stream {}", stream.number));
}

} // namespace tool
