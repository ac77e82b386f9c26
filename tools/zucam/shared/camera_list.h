// The list of cameras: names instead of addresses, with what belongs to each.
//
//     # the one over the door
//     [door]
//     address = 192.0.2.7:9000
//     user = admin
//     password = secret
//     ptz-stop = 0          numbers of this device, where they differ: see device_numbers
//
// A comment stands on a line of its own. Nothing is guessed: an unknown key, a second camera of the
// same name and whatever else cannot be meant is a failure that names file and line. No state.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

// What a device calls its movements: every device has numbers of its own. Made with those of the
// virtual camera; the keys are the names.
class device_numbers
{
public:
    device_numbers();
    bool knows(const std::string& name) const;
    void set(const std::string& name, std::uint32_t number);
    std::uint32_t operator[](const std::string& name) const; // of a known name

private:
    std::map<std::string, std::uint32_t> numbers_;
};

struct listed_camera {
    std::string name;
    std::string address; // HOST[:PORT]
    std::optional<std::string> user;
    std::optional<std::string> password;
    device_numbers numbers;
};

struct camera_list {
    std::string file;
    std::vector<listed_camera> cameras;

    const listed_camera* find(const std::string& name) const;
    std::string names() const; // "door, yard"
};

// The file that the user named, or the usual one, which need not be there.
camera_list read_camera_list(const std::optional<std::string>& file);

} // namespace tool
