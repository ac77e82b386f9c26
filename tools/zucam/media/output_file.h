// Where a recording goes: a new file, one that may be replaced, a device, or standard output.
//
// Opened when the first key frame has come, so that a run that brings nothing costs nobody the file
// of before. Used by one thread. After a failed write nothing more is written.
#pragma once

#include "shared/stop_signals.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace tool
{

class output_file
{
public:
    // "-" is standard output. Throws failure, also when the file is there and must not be replaced.
    output_file(const std::string& name, bool replace, const stop_signals& signals);
    ~output_file();
    output_file(const output_file&) = delete;
    output_file& operator=(const output_file&) = delete;

    // False when it failed. A pipe whose reader is slow is waited for, but not when the end is
    // asked for.
    bool write(const std::uint8_t* data, std::size_t size);
    bool can_seek() const;
    std::int64_t seek(std::int64_t to, int whence); // as lseek
    std::uint64_t size() const;                     // of what has been written

    // Throws what a failed write stands for: a failure of the output, an interruption or
    // reader_gone. Does nothing when all went well.
    void check() const;

private:
    bool wait_for_reader() const;

    std::string name_;
    const stop_signals& signals_;
    int descriptor_ = -1;
    bool is_file_ = false;
    int failed_ = 0; // errno
    std::uint64_t position_ = 0;
    std::uint64_t size_ = 0;
};

// Refuses, before anything is tried, what cannot become an output: an existing file that must not
// be replaced, a folder, a folder that is not there; a terminal. Throws failure.
void check_output_name(const std::string& name, bool replace);
// The same for a file with a name like this one.
void check_output_folder(const std::string& name);

} // namespace tool
