// One login on a simulated machine, for tests by name: its device, what its callbacks have seen,
// its log, and lines at which whoever writes them is held for as long as a test says.
//
// At the end the library must be as it was before: the destructor demands it.
#pragma once

#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "good_device.h"
#include "sdk_user.h"
#include "zu_net_dev_api.h"

namespace torture
{

using namespace sim;

constexpr unsigned short port = 9000;
inline const std::string half_header("\x00\x11\x00\x00\x08\x00", 6);

// A log line at which its writer is held.
struct hold {
    std::string text;
    micros how_long;
    int times;
};

inline std::deque<hold> holds;
inline std::vector<std::string> lines;

inline void on_log(int, const char* line)
{
    lines.emplace_back(line);
    for (hold& h : holds) {
        if (h.times > 0 && strstr(line, h.text.c_str()) != nullptr) {
            h.times--;
            machine::current().let_pass(h.how_long);
            return;
        }
    }
}

inline bool told(const std::string& text)
{
    for (const std::string& line : lines) {
        if (line.find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

class live_machine : public testing::Test
{
protected:
    live_machine() : device(here, port)
    {
        holds.clear();
        lines.clear();
        here.threads.set_limit(3000 * seconds);
        ZU_NET_DEV_SetLogLevel(ZU_LOG_LEVEL_TRACE);
        ZU_NET_DEV_SetLogCallback(on_log);
        EXPECT_EQ(ZU_NET_DEV_Init(), 0);
    }

    ~live_machine() override
    {
        EXPECT_EQ(ZU_NET_DEV_DeInit(), 0);
        EXPECT_EQ(here.left_over(), "");
        EXPECT_THAT(sdk_users, testing::Each(nullptr));
        EXPECT_TRUE(breaches.empty()) << breaches.front();
    }

    long log_in()
    {
        const long result = ZU_NET_DEV_Login(&handle, "user", "secret", "192.0.2.1", port);
        if (result == 0) {
            EXPECT_EQ(ZU_NET_DEV_SetStreamCallBack(handle, on_stream, this), 0);
            EXPECT_EQ(ZU_NET_DEV_SetEventCallBack(handle, on_event, this), 0);
        }
        return result;
    }

    void start_stream()
    {
        ZU_S_STREAM_INFO_EXT stream = {0, 2, 0, 1};
        EXPECT_EQ(ZU_NET_DEV_StartStreamExt(handle, &stream), 0);
        EXPECT_TRUE(here.wait([&] { return frames > 2; }, 5 * seconds));
    }

    long log_out()
    {
        const long result = ZU_NET_DEV_Logout(handle);
        over = over || result == 0;
        return result;
    }

    // Loses the link and waits until the line stands in the log.
    void lose_link(const std::string& line = "Waiting for 3 seconds")
    {
        lines.clear();
        device.drop_links();
        ASSERT_TRUE(here.wait([&] { return told(line); }, 20 * seconds));
    }

    // The same with a fresh login that has a stream.
    void lose_link_and_wait_for(const std::string& line)
    {
        ASSERT_EQ(log_in(), 0);
        start_stream();
        lose_link(line);
    }

    void hold_at(const std::string& line, micros how_long, int times = 1)
    {
        holds.push_back({line, how_long, times});
    }

    // A byte on the shutdown pipe ends the sender, and so the link's time.
    void end_senders()
    {
        for (const zu_sdk_user* user : sdk_users) {
            if (user != nullptr) {
                here.descriptors.find(user->shutdown_pipe_sender[1], "write")->pipe->bytes += 'q';
            }
        }
    }

    // Results of Logouts at once on threads of their own.
    std::vector<long> rivals(int how_many)
    {
        std::vector<long> results;
        std::vector<pthread_t> threads;
        for (int i = 0; i < how_many; i++) {
            threads.push_back(here.start([&] { results.push_back(log_out()); }));
        }
        for (const pthread_t thread : threads) {
            here.join(thread);
        }
        return results;
    }

    static ZU_S32 on_stream(ZU_U32, ZU_U32, ZU_U8*, ZU_U32, ZU_VOID* self)
    {
        auto* test = static_cast<live_machine*>(self);
        test->frames++;
        if (test->over) {
            test->breaches.emplace_back("a frame begins after Logout");
        }
        return 0;
    }

    static ZU_S32 on_event(ZU_U32, ZU_U32 event, ZU_VOID* self)
    {
        auto* test = static_cast<live_machine*>(self);
        if (test->over) {
            test->breaches.emplace_back("an event begins after Logout");
        }
        test->events.push_back(event);
        if (test->in_event) {
            test->in_event();
        }
        return 0;
    }

    machine here;
    good_device device;
    ZU_U32 handle = 0;
    size_t frames = 0;
    std::vector<unsigned> events;
    std::function<void()> in_event;
    bool over = false;
    std::vector<std::string> breaches;
};

} // namespace torture
