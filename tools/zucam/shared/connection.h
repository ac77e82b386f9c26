// One camera that a command works with: the library, the login, and the words for what goes wrong.
// Used by the main thread; handlers of the layer run on theirs.
#pragma once

#include "shared/camera_place.h"
#include "shared/exit_codes.h"

#include "zu/camera.hpp"

namespace tool
{

class connection
{
public:
    // Logs in. Handlers and the queue may be given; time limit, stop command and log lines are
    // filled in. Throws failure.
    connection(toolbox& tools, const camera_place& place, zu::CameraOptions options = {});

    zu::Camera& camera();
    const camera_place& place() const;
    milliseconds connected_in() const;

    // Throws the failure that the code stands for; "WHAT" as in "no answer to WHAT".
    void check(const std::error_code& code, const std::string& what) const;
    failure failure_of(const std::error_code& code, const std::string& what) const;

    void start_stream(const stream_choice& stream);

private:
    toolbox& tools_;
    camera_place place_;
    milliseconds connected_in_{0};
    zu::Library library_;
    zu::Camera camera_;
};

} // namespace tool
