// The hops of a request with nothing else around them: from the caller's own fresh socket by
// datagram to a thread that forwards it to the device, and from the device to a thread that hands
// the response to the caller's port. Every thread blocks in the one call it waits in.
#pragma once

#include <thread>

#include "cutter.h"
#include "sockets.h"

namespace bench
{

class bare_path
{
public:
    explicit bare_path(unsigned short device_port);
    ~bare_path();
    bare_path(const bare_path&) = delete;
    bare_path& operator=(const bare_path&) = delete;

    // Asks for a key frame and waits for the response. Any number of threads at once.
    void request() const;

private:
    void forward() const;
    static void relay(void* self, const head& first, unsigned char* body);

    unsigned short forwarder_port = 0;
    const descriptor link;
    const descriptor forwarding;
    const descriptor relaying;
    std::thread forwarder;
    std::thread receiver;
};

} // namespace bench
