// The threads of the layer: how many, that they take no signals, and what happens when the system
// gives none.
#include "client_kit.h"

#include <csignal>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <pthread.h>

namespace
{

using namespace support;
using zu::Errc;

// The n-th thread that this thread makes from now on, and all after it, cannot be made; 0: all can.
thread_local int first_to_fail;

} // namespace

// In front of the system's own, for the layer's threads, which the C++ library makes.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*main)(void*), void* argument)
{
    using function = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto real = reinterpret_cast<function>(dlsym(RTLD_NEXT, "pthread_create"));
    if (first_to_fail == 1) {
        return EAGAIN;
    }
    first_to_fail -= first_to_fail > 1 ? 1 : 0;
    return real(thread, attributes, main, argument);
}

namespace
{

class Threads : public ClientTest
{
protected:
    void TearDown() override
    {
        first_to_fail = 0;
        ClientTest::TearDown();
    }
};

TEST_F(Threads, AreOneForACameraAndSomeForRequests)
{
    log_in();
    EXPECT_TRUE(eventually([] { return threads_named("zu_camera") == 1; })) << "when it runs";
    EXPECT_TRUE(eventually([] { return threads_named("zu_events") == 1; }));
    EXPECT_EQ(threads_named("zu_request"), 0) << "made when first needed";
    EXPECT_EQ(camera->standard(1, 1), std::error_code());
    EXPECT_EQ(camera->standard(1, 1), std::error_code());
    EXPECT_EQ(threads_named("zu_request"), 1) << "and no more than needed";
}

TEST_F(Threads, AreNoneForEventsWithoutAHandler)
{
    const zu::Camera its(address_of(device->port()));
    EXPECT_TRUE(eventually([] { return threads_named("zu_camera") == 1; }));
    EXPECT_EQ(threads_named("zu_events"), 0);
}

TEST_F(Threads, ThatCannotBeMadeFailTheLogin)
{
    zu::CameraOptions options;
    options.on_event = [](const zu::Event&) {};
    for (const int first : {2, 3}) { // the first one is made by Login
        first_to_fail = first;
        const auto made = zu::Camera::log_in(address_of(device->port()), options);
        first_to_fail = 0;
        EXPECT_EQ(made.error(), std::errc::resource_unavailable_try_again) << first;
        EXPECT_TRUE(eventually([this] { return device->links_open() == 0; })) << "logged out";
    }
}

TEST_F(Threads, ThatCannotBeMadeLeaveARequestWithoutAnybody)
{
    log_in();
    first_to_fail = 1;
    EXPECT_EQ(camera->standard(1, 1), Errc::busy);
    first_to_fail = 0;
    EXPECT_EQ(camera->standard(1, 1), std::error_code());
    EXPECT_EQ(asked(move_message), 1U);
}

TEST_F(Threads, ThatAreThereDoWithoutMore)
{
    device->behave(mute());
    log_in();
    std::thread first([this] { EXPECT_EQ(camera->standard(1, 1, long_enough), Errc::no_answer); });
    EXPECT_TRUE(eventually([this] { return asked(move_message) == 1; }));
    device->behave({});
    first_to_fail = 1;
    EXPECT_EQ(camera->standard(2, 1, long_enough), std::error_code()) << "behind the first one";
    first.join();
    EXPECT_EQ(threads_named("zu_request"), 1);
}

// The signals that the threads of one name block, as the system tells them.
std::vector<std::string> blocked_by(const std::string& name)
{
    std::vector<std::string> out;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        const std::string task = entry.path();
        std::ifstream comm(task + "/comm");
        std::string its;
        std::getline(comm, its);
        if (its != name.substr(0, 15)) {
            continue;
        }
        std::ifstream status(task + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("SigBlk:", 0) == 0) {
                out.push_back(line.substr(8));
            }
        }
    }
    return out;
}

TEST_F(Threads, TakeNoSignals)
{
    log_in();
    EXPECT_EQ(camera->standard(1, 1), std::error_code());
    for (const char* const name : {"zu_camera", "zu_events", "zu_request", "sdk_devmanager_main",
                                   "sdk_msgrecver_main", "sdk_msgsender_main"}) {
        EXPECT_TRUE(eventually([=] { return threads_named(name) == 1; }));
        const auto masks = blocked_by(name);
        ASSERT_EQ(masks.size(), 1U) << name;
        const auto mask = std::stoull(masks[0], nullptr, 16);
        for (const int signal : {SIGINT, SIGTERM, SIGUSR1, SIGALRM, SIGCHLD}) {
            EXPECT_TRUE((mask >> (signal - 1)) & 1U) << name << ' ' << signal;
        }
        EXPECT_FALSE((mask >> (SIGSEGV - 1)) & 1U) << name;
    }
    sigset_t own;
    pthread_sigmask(SIG_SETMASK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGINT), 0) << "the program's own thread is as before";
}

} // namespace
