// Where stream blocks end up, whoever delivers them: counted, and read if a group wants that.
//
// Blocks come on one thread; any other may wait for a number of them.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>

#include "cutter.h"
#include "zu_net_dev_api.h"

namespace bench
{

class sink
{
public:
    explicit sink(bool reads_every_byte = false) : reads(reads_every_byte)
    {
    }

    static ZU_S32 on_stream(ZU_U32, ZU_U32, ZU_U8* block, ZU_U32 length, ZU_VOID* self)
    {
        static_cast<sink*>(self)->take(block, length);
        return 0;
    }
    static void on_message(void* self, const head& first, unsigned char* body)
    {
        if (first.type == stream_data) {
            static_cast<sink*>(self)->take(body, static_cast<std::size_t>(first.len));
        }
    }

    // From now on: how many, and the wait until they have come.
    void expect(long messages)
    {
        wanted = taken() + messages;
    }
    bool satisfied() const
    {
        return taken() >= wanted;
    }
    void wait()
    {
        std::unique_lock<std::mutex> lock(guard);
        arrived.wait(lock, [this] { return satisfied(); });
    }

    long taken() const
    {
        return count.load(std::memory_order_relaxed);
    }

private:
    void take(const unsigned char* block, std::size_t length)
    {
        if (reads) {
            sum = sum + sum_of(block, length);
        }
        const long now = taken() + 1;
        count.store(now, std::memory_order_relaxed);
        if (now == wanted) {
            const std::lock_guard<std::mutex> lock(guard);
            arrived.notify_one();
        }
    }

    static std::uint64_t sum_of(const unsigned char* block, std::size_t length)
    {
        std::uint64_t total = 0;
        std::size_t at = 0;
        for (; at + sizeof(total) <= length; at += sizeof(total)) {
            std::uint64_t word;
            std::memcpy(&word, block + at, sizeof(word));
            total += word;
        }
        for (; at < length; at++) {
            total += block[at];
        }
        return total;
    }

    const bool reads;
    volatile std::uint64_t sum = 0; // so that the reading is done
    std::atomic<long> count{0};
    std::atomic<long> wanted{-1};
    std::mutex guard;
    std::condition_variable arrived;
};

} // namespace bench
