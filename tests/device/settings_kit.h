// What the tests of settings and pan-tilt-zoom share: a stand on which both workers run, an
// exchange with a device that answers as the test says, buffers with guards around them, and the
// log of an entry point as a story.
//
// The entry point is called on the test's thread, the device is played on a thread of its own that
// lives for one exchange. Nothing else is shared between the two.
#pragma once

#include <arpa/inet.h>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "forbidden_page.h"
#include "log_story.h"
#include "seam.h"
#include "wire_bytes.h"
#include "worker_stand.h"

namespace support
{

// ---- exchanges ---------------------------------------------------------------------------------

class request_stand : public still_stand
{
public:
    explicit request_stand(int level = 0) : still_stand(level)
    {
        start_sender();
        start_receiver();
    }

    // Over the link when it is a message that the receiver would relay; shorter than a header or
    // with a length that is not its own, straight to the caller's port, as anybody could.
    bool deliver(const message& request, const bytes& reply)
    {
        if (reply.size() >= 12 && word_at(reply, 4) == reply.size() - 12) {
            return link.send(reply);
        }
        return loopback_socket().send_to(ntohs(static_cast<uint16_t>(request.wait_port)), reply);
    }

    // Whether the device has got no request beyond those it has read. Ends the workers.
    bool nothing_more_sent()
    {
        // Whatever had been sent would reach the device before this.
        loopback_socket().send_to(int_port(), make_message(0x7777, 0, {}));
        const auto first = link.read_request();
        end_workers();
        return first.has_value() && first->type == 0x7777 && !link.read_request().has_value();
    }
};

using make_reply = std::function<bytes(const message&)>;

struct exchanged {
    ZU_S32 result = 0;
    message request; // as the device has read it
};

template <class Call>
exchanged exchange_with(request_stand& stand, const make_reply& make, Call call)
{
    auto device = std::async(std::launch::async, [&] {
        const auto request = stand.link.read_request();
        if (request) {
            stand.deliver(*request, make(*request));
        }
        return request.value_or(message{});
    });
    exchanged out;
    out.result = call();
    out.request = device.get();
    return out;
}

inline make_reply with_code(int32_t retcode)
{
    return [retcode](const message& request) { return answer(request, retcode); };
}

// The answer to a read: command, response code, and the record with what follows it zero.
inline bytes config_answer(const message& request, uint32_t command, int32_t retcode, bytes record)
{
    record.resize(3132);
    return make_message(0x1072, request.wait_port,
                        le32(command) + le32(static_cast<uint32_t>(retcode)) + record);
}

inline make_reply with_record(uint32_t command, int32_t retcode, const bytes& record)
{
    return [=](const message& request) { return config_answer(request, command, retcode, record); };
}

inline bytes zeros(size_t count)
{
    return bytes(count);
}

// The message as it would be had the sender not stamped the caller's port into it.
inline bytes without_port(message request)
{
    request.wait_port = 0;
    return request.raw();
}

// The datagram that an entry point gives to the sender. No worker runs; the test's own socket
// stands where the sender listens, and the wait for the reply fails at once.
template <class Call>
bytes datagram_of(Call call)
{
    worker_stand stand(1);
    loopback_socket desk;
    stand.user->int_port = desk.port();
    const fault failing("ppoll", EINTR);
    EXPECT_EQ(call(stand.handle()), -1);
    return desk.receive().value_or(bytes{});
}

// ---- reading -----------------------------------------------------------------------------------

constexpr size_t no_selector = 9999;
constexpr ZU_U32 other_command = 0x2002; // one of those that bring nothing back

// A setting that comes back to the caller.
struct setting {
    ZU_U32 command;
    size_t size;
    size_t selector;  // offset of the word that is sent
    const char* line; // of the commands with a selector
};

inline const setting settings[] = {
    {0x1047, 44, 4, "ZU_NET_DEV_CMD_VIDEO_PARAM_EXT\n"},
    {0x1048, 28, 4, "ZU_NET_DEV_CMD_AUDIO_PARAM_EXT\n"},
    {0x1051, 4, no_selector, nullptr},
    {0x1052, 8, 0, "ZU_NET_DEV_CMD_VIDEO_H264_H265_IDR_QP\n"},
    {0x3018, 2004, no_selector, nullptr},
};

// What the caller's buffer holds before the call, and what the device answers.
inline bytes before_of(const setting& s)
{
    return pattern(s.size, 1);
}

inline bytes record_of(const setting& s)
{
    return pattern(s.size, 2);
}

// The whole request for a setting, with zeros but for the caller's selector.
inline bytes request_of(const setting& s)
{
    bytes record = zeros(3132);
    if (s.selector != no_selector) {
        const bytes before = before_of(s);
        std::copy_n(before.begin() + static_cast<long>(s.selector), 4,
                    record.begin() + static_cast<long>(s.selector));
    }
    return hex("71 10 00 00  44 0C 00 00  00 00 00 00") + le32(s.command) + le32(0) + record;
}

// ---- buffers -----------------------------------------------------------------------------------

// A record between guard bytes, at an address of any alignment.
class guarded_record
{
public:
    explicit guarded_record(const bytes& content, size_t misalignment = 0)
        : start(guard_size + misalignment), size(content.size()),
          memory(start + size + guard_size, guard_byte)
    {
        std::copy(content.begin(), content.end(), memory.begin() + static_cast<long>(start));
    }

    void* data()
    {
        return memory.data() + start;
    }
    bytes content() const
    {
        return {memory.begin() + static_cast<long>(start),
                memory.begin() + static_cast<long>(start + size)};
    }
    bool guards_hold() const
    {
        bytes around = memory;
        std::fill_n(around.begin() + static_cast<long>(start), size, guard_byte);
        return around == bytes(memory.size(), guard_byte);
    }

private:
    static constexpr size_t guard_size = 4096;
    static constexpr unsigned char guard_byte = 0xA5;
    const size_t start;
    const size_t size;
    bytes memory;
};

// ---- the log -----------------------------------------------------------------------------------

// Stands for all lines of the exchange, which are tested with it: its last line.
inline told exchange_lines()
{
    return {log_at_error_levels, 7, "leave udp_tx_rx\n", "udp_tx_rx"};
}

inline told no_such_record(int slot)
{
    return {log_at_error_levels, 0, "sdkuser invalid! index: " + std::to_string(slot) + "\n",
            "get_sdkuser"};
}

inline told not_usable()
{
    return error("sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n");
}

// What the calling thread has logged, workers left out and each run of exchange lines cut down to
// its last one, must be what `lines` says at this level.
inline void expect_story(const log_tap& log, int level, const std::string& entry_point,
                         const story& lines)
{
    std::vector<log_line> found;
    bool in_exchange = false;
    for (const log_line& line : log.lines()) {
        const bool exchange = line.function == "udp_tx_rx";
        if (!exchange && line.function != "get_sdkuser" && line.function != entry_point) {
            continue;
        }
        if (exchange && in_exchange) {
            found.pop_back();
        }
        in_exchange = exchange;
        found.push_back(line);
    }
    EXPECT_TRUE(is_story(found, entry_point, level, lines));
}

} // namespace support
