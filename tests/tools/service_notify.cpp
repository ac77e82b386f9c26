// What a service manager hears of a recording. The manager is a socket of the test's own; a
// datagram to it has arrived when it has been sent, so nothing has to be waited for.
#include "../../tools/zucam/service_notify.h"
#include "scratch.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <unistd.h>

namespace
{

using namespace std::chrono_literals;
using tool::service_notify;

class ServiceNotify : public testing::Test
{
protected:
    void SetUp() override
    {
        listen_at(folder_ / "manager");
        setenv("WATCHDOG_USEC", "60000000", 1);
        setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    }

    void TearDown() override
    {
        stop_listening();
    }

    void listen_at(const std::string& path)
    {
        stop_listening();
        path_ = path;
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        ASSERT_LT(path.size(), sizeof(address.sun_path));
        std::memcpy(address.sun_path, path.data(), path.size());
        if (path[0] == '@') {
            address.sun_path[0] = '\0';
        }
        manager_ = socket(AF_UNIX, SOCK_DGRAM, 0);
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
        ASSERT_EQ(bind(manager_, reinterpret_cast<sockaddr*>(&address), size), 0);
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }

    void stop_listening()
    {
        if (manager_ >= 0) {
            close(manager_);
            unlink(path_.c_str());
        }
        manager_ = -1;
    }

    // What the manager has heard since it was last asked; empty when nothing.
    std::string heard() const
    {
        char text[200];
        const ssize_t size = recv(manager_, text, sizeof(text), MSG_DONTWAIT);
        return size < 0 ? "" : std::string(text, static_cast<std::size_t>(size));
    }

    const service_notify::clock::time_point begin_ = service_notify::clock::now();

private:
    const tools::scratch folder_;
    std::string path_;
    int manager_ = -1;
};

TEST_F(ServiceNotify, IsReadyWithTheFirstMediaAndNotBefore)
{
    service_notify service;
    EXPECT_EQ(heard(), "");
    service.media_came(begin_);
    EXPECT_EQ(heard(), "READY=1\nWATCHDOG=1");
    service.media_came(begin_ + 1ms);
    EXPECT_EQ(heard(), "");
}

TEST_F(ServiceNotify, FeedsTheWatchdogThreeTimesWithinItsTime)
{
    service_notify service;
    service.media_came(begin_);
    EXPECT_NE(heard(), "");
    service.media_came(begin_ + 19s);
    EXPECT_EQ(heard(), "");
    service.media_came(begin_ + 20s);
    EXPECT_EQ(heard(), "WATCHDOG=1");
    service.media_came(begin_ + 39s);
    EXPECT_EQ(heard(), "");
    service.media_came(begin_ + 40s);
    EXPECT_EQ(heard(), "WATCHDOG=1");
}

TEST_F(ServiceNotify, LeavesTheWatchdogOfAnotherProcessAlone)
{
    setenv("WATCHDOG_PID", "1", 1);
    service_notify service;
    service.media_came(begin_);
    EXPECT_EQ(heard(), "READY=1\nWATCHDOG=1");
    service.media_came(begin_ + 1h);
    EXPECT_EQ(heard(), "");
}

TEST_F(ServiceNotify, SaysAgainWhatTheManagerCouldNotHear)
{
    service_notify service;
    stop_listening();
    service.media_came(begin_);
    SetUp();
    service.media_came(begin_ + 1ms);
    EXPECT_EQ(heard(), "READY=1\nWATCHDOG=1");
}

TEST_F(ServiceNotify, KnowsNamesThatAreNoFiles)
{
    listen_at("@zucam-test-" + std::to_string(getpid()));
    service_notify service;
    service.media_came(begin_);
    EXPECT_EQ(heard(), "READY=1\nWATCHDOG=1");
}

TEST_F(ServiceNotify, SaysThatItEnds)
{
    service_notify service;
    service.ends();
    EXPECT_EQ(heard(), "STOPPING=1");
}

TEST_F(ServiceNotify, LeavesNothingInTheEnvironment)
{
    const service_notify service;
    for (const char* const name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
        EXPECT_EQ(std::getenv(name), nullptr) << name;
    }
}

TEST_F(ServiceNotify, IsSilentWithoutAManager)
{
    unsetenv("NOTIFY_SOCKET");
    service_notify service;
    service.media_came(begin_);
    service.ends();
    EXPECT_EQ(heard(), "");
}

} // namespace
