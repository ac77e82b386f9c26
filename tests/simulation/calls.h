// What every call of the simulated system begins with: it takes a little time, asks what is to
// become of it, and then does on the machine what the real function does on a real one. See
// machine.h.
#pragma once

#include <cerrno>
#include <cstring>
#include <sys/types.h>

#include "machine.h"

#ifdef __has_feature
#if __has_feature(memory_sanitizer)
#include <sanitizer/msan_interface.h>
#define SIM_KNOWS_INITIALISED
#endif
#endif

namespace sim
{

// One call under way. Fails as told, or goes on.
class entered
{
public:
    entered(const char* function, const place& from) : on(machine::current()), name(function)
    {
        const int before = errno;
        on.threads.spend(call_time);
        if (on.before_call) {
            told = on.before_call({function, from});
        }
        errno = before;
        if (told.error) {
            on.threads.spend(on.fruitless_time);
            errno = *told.error;
        }
    }
    bool fails() const
    {
        return told.error.has_value();
    }
    int error() const
    {
        return *told.error;
    }
    size_t limited(size_t size) const
    {
        return told.at_most && *told.at_most < size ? *told.at_most : size;
    }
    descriptor_ref find(int number) const
    {
        return on.descriptors.find(number, name);
    }
    // The result of a call that could do nothing.
    int fail(int error) const
    {
        on.threads.spend(on.fruitless_time);
        errno = error;
        return -1;
    }

    machine& on;

private:
    const char* const name;
    verdict told;
};

// The wait of a call on one descriptor; in the end something it waits for is there, or the time has
// come (false).
bool block_until(const entered& c, const char* name, const descriptor_ref& on,
                 const std::function<bool()>& ready, micros until = never);

// The bytes of a call that sends or writes.
std::string text_of(const void* data, size_t size);

// Under the memory sanitizer, ends the process with its report when a byte has never been set, as
// the real calls do there. Nothing else here would ask what a message's filling is.
inline void must_be_initialised(const void* data, size_t size)
{
#ifdef SIM_KNOWS_INITIALISED
    __msan_check_mem_is_initialized(data, size);
#else
    static_cast<void>(data);
    static_cast<void>(size);
#endif
}

// Moves what there is room for from the front of `from`; returns how much.
ssize_t take(std::string& from, void* into, size_t room);

} // namespace sim

// The second address is read from the frame of the library's function, which is always there.
#pragma GCC diagnostic ignored "-Wframe-address"
#define FROM                                                                                       \
    place                                                                                          \
    {                                                                                              \
        __builtin_return_address(0), __builtin_return_address(1)                                   \
    }
