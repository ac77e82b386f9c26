// A login to a device, as an application has one, with everything it is told written down.
//
// live_login logs in in its constructor (log level 1 unless the test has set another) and out in
// its destructor, if the test has not. watcher is what its callbacks write to.
#pragma once

#include <mutex>
#include <vector>

#include "eventually.h"
#include "wire_bytes.h"
#include "zu_net_dev_api.h"

namespace support
{

struct stream_block {
    ZU_U32 handle;
    ZU_U32 data_type;
    bytes body;
};

// Takes stream blocks and events. Hand `this` as the user pointer.
class watcher
{
public:
    static ZU_S32 on_stream(ZU_U32 handle, ZU_U32 type, ZU_U8* data, ZU_U32 length, ZU_VOID* self);
    static ZU_S32 on_event(ZU_U32 handle, ZU_U32 event, ZU_VOID* self);

    std::vector<stream_block> blocks() const;
    std::vector<ZU_U32> events() const; // codes in order of arrival
    size_t block_count() const;
    int count(ZU_U32 event) const;
    bool wait_for_blocks(size_t count, std::chrono::milliseconds deadline = long_enough) const;
    bool wait_for_event(ZU_U32 event, int times = 1,
                        std::chrono::milliseconds deadline = long_enough) const;

private:
    mutable std::mutex guard;
    std::vector<stream_block> taken_blocks;
    std::vector<ZU_U32> taken_events;
};

// Init for as long as it lives, at a log level.
class library
{
public:
    explicit library(int log_level = 1);
    ~library();
    library(const library&) = delete;
    library& operator=(const library&) = delete;
};

class live_login
{
public:
    explicit live_login(unsigned short port);
    ~live_login();
    live_login(const live_login&) = delete;
    live_login& operator=(const live_login&) = delete;

    ZU_S32 result() const // of Login
    {
        return outcome;
    }
    ZU_U32 handle() const
    {
        return own_handle;
    }
    ZU_S32 log_out();
    // Attaches both callbacks of the watcher; false when either is refused.
    bool watch();
    ZU_S32 start_stream(ZU_U32 stream = 0, ZU_U8 type = 1);
    // The record's link is up (`used` says so).
    bool wait_until_up(std::chrono::milliseconds deadline = long_enough) const;
    bool wait_until_down(std::chrono::milliseconds deadline = long_enough) const;

    watcher seen;

private:
    ZU_U32 own_handle = 0;
    ZU_S32 outcome;
    bool logged_in;
};

// The word `used` of a handle's record; 0 when there is no record.
int used_word(ZU_U32 handle);

} // namespace support
