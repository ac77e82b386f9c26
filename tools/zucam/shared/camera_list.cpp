// Reading the list of cameras, line by line.
#include "shared/camera_list.h"

#include "shared/exit_codes.h"
#include "shared/values.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <sys/stat.h>

namespace tool
{

namespace
{

const std::string name_characters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";

std::string usual_file()
{
    const char* const config = std::getenv("XDG_CONFIG_HOME");
    if (config != nullptr && *config != '\0') {
        return std::string(config) + "/zucam/cameras";
    }
    const char* const home = std::getenv("HOME");
    return std::string(home != nullptr ? home : "") + "/.config/zucam/cameras";
}

class list_reader
{
public:
    explicit list_reader(std::string file) : list_{std::move(file), {}}
    {
    }

    camera_list read(std::istream& from)
    {
        std::string line;
        while (std::getline(from, line)) {
            ++line_;
            take(trimmed(line));
        }
        finish_camera();
        return std::move(list_);
    }

private:
    [[noreturn]] void refuse(const std::string& why, int line) const
    {
        throw failure(exit_code::usage, fmt::format("{}:{}: {}", list_.file, line, why));
    }
    [[noreturn]] void refuse(const std::string& why) const
    {
        refuse(why, line_);
    }

    void take(const std::string& line)
    {
        if (line.empty() || line.front() == '#' || line.front() == ';') {
            return;
        }
        if (line.front() == '[') {
            begin_camera(line);
        } else {
            take_key(line);
        }
    }

    void begin_camera(const std::string& line)
    {
        finish_camera();
        const std::string name = line.substr(1, line.size() - (line.back() == ']' ? 2 : 1));
        if (line.back() != ']' || name.empty() ||
            name.find_first_not_of(name_characters) != std::string::npos) {
            refuse("a camera begins with its name, letters and digits and . _ -, such as [door]");
        }
        if (list_.find(name) != nullptr) {
            refuse(fmt::format("there is a camera '{}' already", name));
        }
        list_.cameras.emplace_back();
        list_.cameras.back().name = name;
        camera_line_ = line_;
    }

    void finish_camera()
    {
        if (!list_.cameras.empty() && list_.cameras.back().address.empty()) {
            refuse(fmt::format("camera '{}' has no address; add one such as address = "
                               "192.0.2.7:9000",
                               list_.cameras.back().name),
                   camera_line_);
        }
    }

    // The value is not repeated in a refusal: it may be a password.
    void take_key(const std::string& line)
    {
        const std::size_t sign = line.find('=');
        if (sign == std::string::npos) {
            refuse("a line is a name such as [door], or KEY = VALUE, or begins with #");
        }
        if (list_.cameras.empty()) {
            refuse("a camera's name such as [door] comes first");
        }
        const std::string key = trimmed(line.substr(0, sign));
        const std::string value = trimmed(line.substr(sign + 1));
        take_value(list_.cameras.back(), key, value);
    }

    void take_value(listed_camera& camera, const std::string& key, const std::string& value)
    {
        if (key == "address") {
            camera.address = value;
        } else if (key == "user") {
            camera.user = value;
        } else if (key == "password") {
            camera.password = value;
        } else if (camera.numbers.knows(key)) {
            camera.numbers.set(key, number(key, value));
        } else {
            refuse("the keys are address, user, password, and numbers such as ptz-stop, zoom-in "
                   "and preset-go");
        }
    }

    std::uint32_t number(const std::string& key, const std::string& value) const
    {
        const auto parsed = whole_number(value);
        if (!parsed || *parsed < 0 || *parsed > UINT32_MAX) {
            refuse(fmt::format("{} takes a number, 0 to {}", key, UINT32_MAX));
        }
        return static_cast<std::uint32_t>(*parsed);
    }

    camera_list list_;
    int line_ = 0;
    int camera_line_ = 0;
};

} // namespace

device_numbers::device_numbers()
    : numbers_{{"ptz-stop", 0},       {"ptz-up", 1},      {"ptz-down", 2},     {"ptz-left", 3},
               {"ptz-right", 4},      {"ptz-left-up", 5}, {"ptz-right-up", 6}, {"ptz-left-down", 7},
               {"ptz-right-down", 8}, {"zoom-in", 9},     {"zoom-out", 10},    {"ptz-speed", 32},
               {"stop-speed", 0},     {"preset-set", 1},  {"preset-go", 2},    {"preset-clear", 3}}
{
}

bool device_numbers::knows(const std::string& name) const
{
    return numbers_.count(name) > 0;
}

void device_numbers::set(const std::string& name, std::uint32_t number)
{
    numbers_[name] = number;
}

std::uint32_t device_numbers::operator[](const std::string& name) const
{
    return numbers_.at(name);
}

const listed_camera* camera_list::find(const std::string& name) const
{
    const auto found = std::find_if(cameras.begin(), cameras.end(),
                                    [&](const listed_camera& each) { return each.name == name; });
    return found == cameras.end() ? nullptr : &*found;
}

std::string camera_list::names() const
{
    std::string all;
    for (const listed_camera& each : cameras) {
        all += (all.empty() ? "" : ", ") + each.name;
    }
    return all;
}

camera_list read_camera_list(const std::optional<std::string>& file)
{
    const std::string name = file.value_or(usual_file());
    std::ifstream from(name);
    struct stat state = {};
    if (from && stat(name.c_str(), &state) == 0 && S_ISDIR(state.st_mode)) {
        throw failure(exit_code::usage, fmt::format("{} is a folder, no list of cameras", name));
    }
    if (!from && (file || errno != ENOENT)) {
        throw failure(exit_code::usage, fmt::format("the list of cameras {} cannot be read: {}",
                                                    name, std::strerror(errno)));
    }
    return list_reader(name).read(from);
}

} // namespace tool
