// What the receiver's tests share: a stand on which only the receiver runs, with callbacks that
// write down what they are given, and the receiver's whole log as a story.
//
// The test thread plays the device. Everything shared with the library's threads is atomic or has a
// lock of its own; plain fields of the record are read after end_workers only.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "live_login.h"
#include "log_story.h"
#include "seam.h"
#include "wire_bytes.h"
#include "worker_stand.h"

namespace support
{

constexpr char receiver_name[] = "sdk_msgrecver_main";

struct has_watcher {
    watcher seen; // outlives the stand, whose threads write to it
};

class receiver_stand : public has_watcher, public worker_stand
{
public:
    explicit receiver_stand(int its_level = 0) : worker_stand(its_level), level(its_level)
    {
        user->stream_userdata = &seen;
        user->stream_callback = watcher::on_stream;
        user->event_userdata = &seen;
        user->event_callback = watcher::on_event;
        start_receiver();
    }

    const int level;
};

// Has the receiver read everything that the device has sent so far?
inline bool all_read(const worker_stand& stand)
{
    return eventually([&] {
        int on_the_way = 1;
        int unread = 1;
        ioctl(stand.link.socket(), SIOCOUTQ, &on_the_way);
        ioctl(stand.user->ext_sock, FIONREAD, &unread);
        return on_the_way == 0 && unread == 0;
    });
}

// Has all of that reached the receiver's socket, whether it has read it or not?
inline bool all_arrived(const worker_stand& stand)
{
    return eventually([&] {
        int on_the_way = 1;
        ioctl(stand.link.socket(), SIOCOUTQ, &on_the_way);
        return on_the_way == 0;
    });
}

inline bytes heartbeat_answer()
{
    return hex("22 10 00 00  00 00 00 00  00 00 00 00");
}

// Whether the receiver is alive and in step: one more video frame reaches the callback whole.
inline bool takes_a_frame(receiver_stand& stand)
{
    const size_t before = stand.seen.block_count();
    const bytes body = text("KTVF") + pattern(100, static_cast<unsigned>(before));
    return stand.link.send(make_message(0x1100, 0, body)) &&
           stand.seen.wait_for_blocks(before + 1) && stand.seen.blocks().back().body == body;
}

// The same by two reads: the header and a byte, and after a wait the rest.
inline bool takes_a_frame_in_two(receiver_stand& stand)
{
    const size_t before = stand.seen.block_count();
    const bytes whole = make_message(0x1100, 0, text("KTVF") + pattern(100));
    return stand.link.send(bytes(whole.begin(), whole.begin() + 13)) && all_read(stand) &&
           stand.link.send(bytes(whole.begin() + 13, whole.end())) &&
           stand.seen.wait_for_blocks(before + 1) &&
           stand.seen.blocks().back().body == bytes(whole.begin() + 12, whole.end());
}

// What the receiver does, a character each: w, a wait; l, a look; r, a read.
class watched_steps
{
public:
    bool show(const std::string& expected) const
    {
        return eventually([&] {
            const std::lock_guard<std::mutex> lock(guard);
            return steps.find(expected) != std::string::npos;
        });
    }

private:
    void note(char step)
    {
        const std::lock_guard<std::mutex> lock(guard);
        steps += step;
    }

    mutable std::mutex guard;
    std::string steps;
    const before_call waits{"ppoll", [this] { note('w'); }};
    const before_call looks{"poll", [this] { note('l'); }};
    const before_call reads{"recv", [this] { note('r'); }};
};

// A callback's waiting place: the test sees that one has arrived and lets it go on.
class turnstile
{
public:
    void pass()
    {
        waiting++;
        eventually([this] { return open.load(); });
    }
    bool reached(int count = 1) const
    {
        return eventually([&] { return waiting >= count; });
    }
    void let_go()
    {
        open = true;
    }

private:
    std::atomic<int> waiting{0};
    std::atomic<bool> open{false};
};

// A stream callback that waits in a turnstile before it writes down its block.
struct held_watcher {
    watcher seen;
    turnstile gate;

    static ZU_S32 on_stream(ZU_U32 handle, ZU_U32 type, ZU_U8* data, ZU_U32 length, ZU_VOID* self)
    {
        auto* held = static_cast<held_watcher*>(self);
        held->gate.pass();
        return watcher::on_stream(handle, type, data, length, &held->seen);
    }
    void attach(zu_sdk_user* user)
    {
        user->stream_userdata = this;
        user->stream_callback = on_stream;
    }
};

// Makes time pass on the thread of the library that calls it, so that a loop does not spin hot.
inline void dawdle()
{
    all_along([] { return true; }, std::chrono::milliseconds(20));
}

// ---- the log ----

constexpr char again_line[] =
    "recv EAGAIN/EWOULDBLOCK while receiving body, will retry via select\n";
constexpr char interrupted_line[] = "recv EINTR while receiving body, will retry via select\n";
const told header_break_line{log_at_error_levels, 7, "recv ret == -1, break\n"};
const told shutdown_line{log_at_every_level, 7,
                         "Receiver thread received shutdown signal. Exiting.\n"};

inline told enter_line(const receiver_stand& stand)
{
    char message[80];
    snprintf(message, sizeof(message), "enter sdk_msgrecver_main pid: 0x%llx\n",
             static_cast<unsigned long long>(stand.user->msgrecver));
    return trace(message);
}

// `ret` as it is printed; "*" where any number will do.
inline told exit_line(const std::string& ret)
{
    return trace("$$$$$$$$$$$$ exit from msgrecver, ret:" + ret + "\n");
}

inline told sendto_line(uint32_t raw_port, int len)
{
    return trace("sendto native port:" + std::to_string(raw_port) + " len:" + std::to_string(len) +
                 "\n");
}

inline std::string handle_text(const receiver_stand& stand)
{
    char handle[20];
    snprintf(handle, sizeof(handle), "handle 0x%x", stand.handle());
    return handle;
}

inline told not_used_line(const receiver_stand& stand, int state, const std::string& callback)
{
    return error("sdk_user (" + handle_text(stand) + ") is not in USED state (current state: " +
                 std::to_string(state) + ") for " + callback + ".\n");
}

// The whole log, of whatever function, must be what the receiver should have written at the stand's
// level: the line on entry, then `lines`. Ends the workers first.
inline void expect_log(receiver_stand& stand, const story& lines)
{
    stand.end_workers();
    EXPECT_TRUE(all_told(stand.log, receiver_name, stand.level, story{enter_line(stand)} + lines));
}

// The same for a receiver that runs still and is ended by shutting its link down. What it has read
// it may not have acted on yet, and a link that is shut would keep it from that, so its lines are
// waited for first.
inline void expect_log_until_shut_down(receiver_stand& stand, story lines)
{
    const size_t due = let_through(story{enter_line(stand)} + lines, stand.level).size();
    EXPECT_TRUE(eventually([&] { return stand.log.lines().size() >= due; }));
    link_shut_ext(stand.user->link);
    EXPECT_TRUE(stand.receiver_ended());
    lines.push_back(error("msgrecver select faill!\n"));
    lines.push_back(exit_line("-1"));
    expect_log(stand, lines);
}

} // namespace support
