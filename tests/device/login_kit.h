// What the tests of login, logout and the device manager share: a call under way on a thread of its
// own, the moments of a reconnection, and logins that stand ready for a test.
//
// Everything that is shared with threads of the library is atomic or has a lock of its own.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "live_login.h"
#include "log_story.h"
#include "log_tap.h"
#include "process_probe.h"
#include "scripted_device.h"
#include "sdk_user.h"
#include "seam.h"
#include "worker_stand.h"

namespace support
{

constexpr char manager_name[] = "sdk_devmanager_main";
constexpr char login_name[] = "ZU_NET_DEV_Login";
constexpr char logout_name[] = "ZU_NET_DEV_Logout";
constexpr char no_user_line[] = "sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n";
constexpr char pause_line[] =
    "Connection failed/lost. Waiting for 3 seconds before next reconnect attempt...\n";

// ---- the log ----

// Where in the log a message stands for the first time; the log's length when it does not.
inline size_t place_of(const log_tap& log, const std::string& function, const std::string& message)
{
    const auto lines = log.lines();
    size_t at = 0;
    while (at < lines.size() && (lines[at].function != function || lines[at].message != message)) {
        at++;
    }
    return at;
}

// ---- calls ----

// A call under way on a thread of its own.
class running_call
{
public:
    explicit running_call(std::function<ZU_S32()> call)
        : thread([this, todo = std::move(call)] {
              outcome = todo();
              over = true;
          })
    {
    }
    ~running_call()
    {
        if (thread.joinable()) {
            thread.join();
        }
    }
    running_call(const running_call&) = delete;
    running_call& operator=(const running_call&) = delete;

    bool returned() const
    {
        return over;
    }
    ZU_S32 result() // waits
    {
        thread.join();
        return outcome;
    }

private:
    std::atomic<ZU_S32> outcome{12345};
    std::atomic<bool> over{false};
    std::thread thread;
};

inline ZU_S32 log_in(ZU_U32* handle, unsigned short port, const char* host = "127.0.0.1")
{
    return ZU_NET_DEV_Login(handle, "admin", "secret", host, port);
}

// ---- moments ----

inline bool on_thread_named(const std::string& name)
{
    char own[17] = {};
    prctl(PR_GET_NAME, own);
    return name.substr(0, 15) == own;
}

// Stops threads of one name at their next pause (usleep) at which `when` holds, whatever the log
// level; unlike a hold at a line, between two looks of a polling loop.
class pause_hold
{
public:
    explicit pause_hold(
        const std::string& thread, std::function<bool()> when = [] { return true; })
        : at_pause("usleep", [thread, when, s = state] {
              if (on_thread_named(thread) && when()) {
                  s->standing++;
                  eventually([&] { return s->open.load(); });
              }
          })
    {
    }
    ~pause_hold()
    {
        let_go();
    }
    pause_hold(const pause_hold&) = delete;
    pause_hold& operator=(const pause_hold&) = delete;

    bool reached() const
    {
        return eventually([this] { return state->standing > 0; });
    }
    void let_go()
    {
        state->open = true;
    }

private:
    struct shared {
        std::atomic<int> standing{0};
        std::atomic<bool> open{false};
    };
    const std::shared_ptr<shared> state = std::make_shared<shared>();
    const before_call at_pause;
};

// Lets time pass where something must be going on for a while.
inline void go_on_for(std::chrono::milliseconds duration)
{
    all_along([] { return true; }, duration);
}

// A login may be up before the device has taken its connection out of the queue.
inline bool has_link(const serving_device& device)
{
    return eventually([&] { return device.links_open() > 0; });
}

// Ends the links of a device.
inline void drop(serving_device& device)
{
    EXPECT_TRUE(has_link(device));
    device.drop_links();
}

// The same. The device manager then stands before its three-second pause until go_on, so that all
// that a test lays out for the reconnection is there in time. Level 1 or 2.
class lost_link
{
public:
    explicit lost_link(serving_device& device)
    {
        drop(device);
        EXPECT_TRUE(manager.reached());
    }
    void go_on()
    {
        manager.let_go();
    }

private:
    log_hold manager{manager_name, pause_line};
};

// No thread of a login is left, but `receivers` that bear the receiver's name: event handlers that
// it has started. A joined thread stays in the system's list for a moment.
inline bool login_threads_gone(int receivers = 0)
{
    return eventually([=] {
        return threads_named(manager_name) == 0 && threads_named("sdk_msgsender_main") == 0 &&
               threads_named("sdk_msgrecver_main") == receivers;
    });
}

// The events of a watcher without heartbeats, which come whenever a link has been quiet.
inline std::vector<ZU_U32> link_events(const watcher& seen)
{
    std::vector<ZU_U32> out;
    for (const ZU_U32 event : seen.events()) {
        if (event != ZU_NET_DEV_HEARTBEAT) {
            out.push_back(event);
        }
    }
    return out;
}

inline behaviour silent()
{
    behaviour how;
    how.on_message = [](peer&, const message&) {};
    return how;
}

// Keeps the connection, but closes it before anything can be exchanged.
inline behaviour closes_at_once()
{
    behaviour how;
    how.on_connect = [](peer&) { return false; };
    return how;
}

// ---- logins ----

// Holds a sender thread before it begins, so that the workers are never seen running.
struct late_sender_hold : log_hold {
    late_sender_hold() : log_hold("sdk_msgsender_main", "enter sdk_msgsender_main")
    {
    }
};

// A Login under way, at level 2, that cannot find both workers running. The test has to let the
// sender go and to look at the result.
class login_with_late_sender
{
public:
    explicit login_with_late_sender(behaviour how = {}) : device(std::move(how))
    {
    }
    ~login_with_late_sender()
    {
        late_sender.let_go();
    }
    login_with_late_sender(const login_with_late_sender&) = delete;
    login_with_late_sender& operator=(const login_with_late_sender&) = delete;

private:
    struct nothing_left {
        ~nothing_left()
        {
            EXPECT_EQ(before.left_over(), "");
        }
        const inventory before;
    };
    const nothing_left proof; // first: what the process held before anything else
    const library lib;

public:
    serving_device device;
    const log_tap log{2};
    late_sender_hold late_sender;
    running_call login{[this] {
        ZU_U32 handle = 0;
        return log_in(&handle, device.port());
    }};

    // Whether somebody has told the device manager to stop: Login, whose time is over, or a Logout.
    bool is_being_ended() const
    {
        const held_user user(0x43210000);
        return eventually([&] { return user->devmanager_run == 0; });
    }
};

// A login to a device of its own, at level 2, whose events are watched.
class watched_login : public testing::Test
{
protected:
    watched_login()
        : lib(std::make_unique<library>(0)), device(std::make_unique<serving_device>()),
          log(std::make_unique<log_tap>(2)), login(std::make_unique<live_login>(device->port()))
    {
        EXPECT_EQ(login->result(), 0);
        EXPECT_TRUE(login->watch());
    }
    void TearDown() override
    {
        login.reset();
        EXPECT_THAT(sdk_users, testing::Each(nullptr));
        log.reset();
        device.reset();
        lib.reset();
        EXPECT_EQ(before.left_over(), "");
    }

    const inventory before;
    std::unique_ptr<library> lib;
    std::unique_ptr<serving_device> device;
    std::unique_ptr<log_tap> log;
    std::unique_ptr<live_login> login;
};

} // namespace support
