// The journal: what a camera received, in the order in which it did.
//
// Links write entries from their own threads, tests read a copy from theirs; one mutex guards the
// entries and the file. The file, when there is one, gets one JSON object a line, flushed line by
// line, so that it can be read while the camera runs. Several cameras may share one journal_file.
// In memory the latest entries are kept, up to a number of bytes.
#ifndef VIRTUAL_CAMERA_JOURNAL_H
#define VIRTUAL_CAMERA_JOURNAL_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace zucam
{

enum class journal_event { connected, request, malformed, disconnected };

struct journal_entry {
    journal_event event = journal_event::request;
    std::uint64_t time_us = 0;   // CLOCK_MONOTONIC
    unsigned camera = 0;         // camera_options::index
    std::uint64_t link = 0;      // 1 for the first connection of the camera, then 2, ...
    std::uint32_t type = 0;      // message type; 0 when the event is no message
    std::uint32_t wait_port = 0; // as received
    std::vector<std::uint8_t> payload;
};

// What a type of request is called, "start" for instance; "unknown" when it is none. And the
// opposite.
const char* request_name(std::uint32_t type);
std::optional<std::uint32_t> request_named(const std::string& name);

// One entry as it stands in the file, without the line end.
std::string to_json(const journal_entry& entry);

// The file that one or more journals write to, behind what it holds already. When it takes no more,
// one line on standard error says so; the cameras go on.
class journal_file
{
public:
    // Throws std::runtime_error with one clear line when the file cannot be written.
    explicit journal_file(const std::string& path);
    ~journal_file();
    journal_file(const journal_file&) = delete;
    journal_file& operator=(const journal_file&) = delete;

    void write(const std::string& line);

private:
    std::mutex mutex_;
    std::FILE* file_;
    bool failed_ = false; // and said so
};

class journal
{
public:
    // Of its entries the latest are kept in memory, as many as `limit` bytes hold.
    journal(std::shared_ptr<journal_file> file, std::size_t limit);

    void add(journal_entry entry);
    std::vector<journal_entry> requests() const;
    // How many requests of one type are in the journal; 0 counts all of them.
    std::size_t count(std::uint32_t type) const;

private:
    mutable std::mutex mutex_;
    std::deque<journal_entry> entries_;
    std::size_t bytes_ = 0; // of entries_
    const std::size_t limit_;
    std::shared_ptr<journal_file> file_;
};

} // namespace zucam

#endif
