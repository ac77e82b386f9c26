// Which camera is meant, and as whom: an address, a host's name or a name of the list.
#pragma once

#include "shared/camera_list.h"
#include "shared/options.h"

#include "zu/camera.hpp"

namespace tool
{

struct camera_place {
    std::string label; // "door (192.0.2.7:9000)", or the address alone
    zu::CameraAddress address;
    device_numbers numbers;
};

// Asks for the password when nobody has given one and somebody sits at a terminal. Throws failure.
camera_place find_camera(toolbox& tools, const std::string& text);

} // namespace tool
