// Journal entries in memory and in a file. The entries are guarded by the journal's mutex, the file
// by its own, since several cameras may share it; the second is only ever taken inside the first.
// Lines are made by hand: all their texts are numbers, fixed names and hexadecimal, so there is
// nothing that JSON would want escaped. Called by link threads and by readers.
#include "virtual_camera/journal.h"

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

constexpr std::size_t entries_kept = 200000;

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

const char* type_name(std::uint32_t type)
{
    switch (type) {
    case 0x1001:
        return "start";
    case 0x1011:
        return "stop";
    case 0x1021:
        return "heartbeat";
    case 0x1031:
        return "ptz";
    case 0x1041:
        return "preset";
    case 0x1051:
        return "keyframe";
    case 0x1061:
        return "setconfig";
    case 0x1071:
        return "getconfig";
    default:
        return "unknown";
    }
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
                        static_cast<unsigned>(entry.type), type_name(entry.type),
                        static_cast<unsigned long>(entry.wait_port));
    return text.data() + hex(entry.payload) + '"';
}

} // namespace

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

journal_file::journal_file(const std::string& path) : file_(std::fopen(path.c_str(), "we"))
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
    (void)std::fprintf(file_, "%s\n", line.c_str());
    (void)std::fflush(file_);
}

journal::journal(std::shared_ptr<journal_file> file) : file_(std::move(file))
{
}

void journal::add(journal_entry entry)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (file_) {
        file_->write(to_json(entry));
    }
    entries_.push_back(std::move(entry));
    if (entries_.size() > entries_kept) {
        entries_.pop_front();
    }
}

std::vector<journal_entry> journal::entries() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return {entries_.begin(), entries_.end()};
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
