// The requester's side in the tests of the request path: datagrams as entry points write them, what
// of them reaches the device, and calls that run beside the test's own thread.
//
// in_background runs its call on a thread named "caller", so that a fault can be aimed at it. The
// future it returns waits for the call when it goes, as std::async promises.
#pragma once

#include <future>
#include <pthread.h>
#include <string>

#include "wire_bytes.h"

namespace support
{

constexpr char sender_thread[] = "sdk_msgsender_main";
constexpr char caller_thread[] = "caller";

// A start of stream 2 with type 5, its wait_port left 0.
inline bytes start_datagram()
{
    return hex("01 10 00 00  08 00 00 00  00 00 00 00  02 00 00 00  05 00 00 00");
}

// The datagram as the device reads it: the requester's port in bytes 8 to 11, high byte first.
inline bytes stamped(bytes datagram, unsigned short port)
{
    datagram.at(8) = static_cast<unsigned char>(port >> 8);
    datagram.at(9) = static_cast<unsigned char>(port & 0xff);
    datagram.at(10) = 0;
    datagram.at(11) = 0;
    return datagram;
}

// The message with a number that the system chose, the one after `word`, written as N.
inline std::string without_number(std::string message, const std::string& word)
{
    const size_t from = message.find(word);
    if (from == std::string::npos) {
        return message;
    }
    const size_t start = from + word.size();
    const size_t end = message.find_first_not_of("0123456789", start);
    return message.replace(start, end - start, "N");
}

template <class Call>
auto in_background(Call call)
{
    return std::async(std::launch::async, [call]() mutable {
        pthread_setname_np(pthread_self(), caller_thread);
        return call();
    });
}

template <class Result>
bool still_waiting(const std::future<Result>& call)
{
    return call.wait_for(std::chrono::seconds(0)) == std::future_status::timeout;
}

} // namespace support
