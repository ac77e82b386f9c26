// Journal entries in memory and in a file. The entries are guarded by the journal's mutex, the file
// by its own, since several cameras may share it; the second is only ever taken inside the first.
// Lines are made by hand: all their texts are numbers, fixed names and hexadecimal, so there is
// nothing that JSON would want escaped. Called by link threads and by readers.
#include "virtual_camera/journal.h"

#include "wire.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace zucam
{

namespace
{

const char* event_name(journal_event event)
{
    switch (event) {
    case journal_event::connected:
        return "connected";
    case journal_event::request:
        return "request";
    case journal_event::malformed:
        return "malformed";
    case journal_event::disconnected:
        break;
    }
    return "disconnected";
}

struct request_kind {
    std::uint32_t type;
    const char* name;
};

constexpr std::array<request_kind, 8> request_kinds = {{{wire::start_stream, "start"},
                                                        {wire::stop_stream, "stop"},
                                                        {wire::heartbeat, "heartbeat"},
                                                        {wire::pan_tilt_zoom, "ptz"},
                                                        {wire::preset, "preset"},
                                                        {wire::key_frame, "keyframe"},
                                                        {wire::set_config, "setconfig"},
                                                        {wire::get_config, "getconfig"}}};

std::size_t size_of(const journal_entry& entry)
{
    return sizeof entry + entry.payload.size();
}

std::string hex(const std::vector<std::uint8_t>& data)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * data.size());
    for (const std::uint8_t byte : data) {
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

std::string type_fields(const journal_entry& entry)
{
    std::array<char, 96> text{};
    (void)std::snprintf(text.data(), text.size(),
                        ",\"type\":\"0x%04x\",\"name\":\"%s\",\"wait_port\":%lu,\"payload\":\"",
                        static_cast<unsigned>(entry.type), request_name(entry.type),
                        static_cast<unsigned long>(entry.wait_port));
    return text.data() + hex(entry.payload) + '"';
}

} // namespace

const char* request_name(std::uint32_t type)
{
    for (const request_kind& each : request_kinds) {
        if (each.type == type) {
            return each.name;
        }
    }
    return "unknown";
}

std::optional<std::uint32_t> request_named(const std::string& name)
{
    for (const request_kind& each : request_kinds) {
        if (each.name == name) {
            return each.type;
        }
    }
    return std::nullopt;
}

std::string to_json(const journal_entry& entry)
{
    std::string line = "{\"time_us\":" + std::to_string(entry.time_us) +
                       ",\"camera\":" + std::to_string(entry.camera) +
                       ",\"link\":" + std::to_string(entry.link) + ",\"event\":\"" +
                       event_name(entry.event) + '"';
    if (entry.type != 0) {
        line += type_fields(entry);
    }
    return line + '}';
}

journal_file::journal_file(const std::string& path) : file_(std::fopen(path.c_str(), "ae"))
{
    if (file_ == nullptr) {
        throw std::runtime_error("cannot write the journal '" + path +
                                 "': " + std::strerror(errno) + "; give a file that can be made");
    }
}

journal_file::~journal_file()
{
    (void)std::fclose(file_);
}

void journal_file::write(const std::string& line)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (std::fprintf(file_, "%s\n", line.c_str()) >= 0 && std::fflush(file_) == 0) {
        return;
    }
    if (!std::exchange(failed_, true)) {
        (void)std::fprintf(stderr, "zucam: the journal lacks lines, it cannot be written: %s\n",
                           std::strerror(errno));
    }
}

journal::journal(std::shared_ptr<journal_file> file, std::size_t limit)
    : limit_(limit), file_(std::move(file))
{
}

void journal::add(journal_entry entry)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (file_) {
        file_->write(to_json(entry));
    }
    const std::size_t size = size_of(entry);
    entries_.push_back(std::move(entry)); // throws without memory
    bytes_ += size;
    while (bytes_ > limit_) {
        bytes_ -= size_of(entries_.front());
        entries_.pop_front();
    }
}

std::vector<journal_entry> journal::requests() const
{
    std::vector<journal_entry> found;
    const std::lock_guard<std::mutex> lock(mutex_);
    std::copy_if(entries_.begin(), entries_.end(), std::back_inserter(found),
                 [](const journal_entry& e) { return e.event == journal_event::request; });
    return found;
}

std::size_t journal::count(std::uint32_t type) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto wanted = [type](const journal_entry& e) {
        return e.event == journal_event::request && (type == 0 || e.type == type);
    };
    return static_cast<std::size_t>(std::count_if(entries_.begin(), entries_.end(), wanted));
}

} // namespace zucam
