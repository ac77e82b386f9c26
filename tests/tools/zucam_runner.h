// zucam as a person runs it: with arguments, in a folder of its own, in a shell or at a terminal.
// What it prints is checked for the password wherever one is given. Used by one thread.
#pragma once

#include "program_runner.h"
#include "scratch.h"
#include "virtual_camera/camera.h"

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tools
{

using json = nlohmann::json;

struct ended {
    int status;
    std::string out;
    std::string err;
};

// Runs the program to its end, with an empty folder for settings, and no user or password around.
ended zucam(const std::vector<std::string>& arguments);
// The same by a shell; "$ZUCAM" is the program.
ended shell(const std::string& line);

std::string address_of(const zucam::camera& camera);
std::vector<json> objects_in(const std::string& lines); // one a line; throws when one is none

// A camera that costs little: small pictures, or numbered frames.
zucam::camera_options small_pictures();
zucam::camera_options no_pictures();

// What ffprobe says of a file: streams and format, with the frames counted.
json probe(const std::string& file);
// What ffmpeg complains about when it decodes all of it; empty when it is sound.
std::string complaints(const std::string& file);
std::size_t frames_in(const std::string& file);
std::size_t size_of(const std::string& file); // 0 when it is not there

// A program at a terminal of its own.
class terminal
{
public:
    terminal(const std::string& path, const std::vector<std::string>& arguments,
             unsigned short columns = 100);
    ~terminal(); // kills what still runs
    terminal(const terminal&) = delete;
    terminal& operator=(const terminal&) = delete;

    bool shows(const std::string& text); // waits for it; false when it does not come
    void type(const std::string& text) const;
    void send_signal(int number) const;
    bool echoes() const; // whether what is typed is shown
    int exit_status();   // as program::exit_status
    const std::string& seen() const;

private:
    bool read_some();

    pid_t pid_ = -1;
    int master_ = -1;
    std::string seen_;
};

} // namespace tools
