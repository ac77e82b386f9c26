// What goes wrong around a camera, without a fault being asked for: no thread is to be had, a
// journal cannot be written or grows, a link ends while requests wait, time passes between two
// looks at the clock. The thread that is not to be had is refused by this program's own
// pthread_create, and the time is told by its own clock_gettime; the C++ run time calls both.
#include "camera_client.h"
#include "eventually.h"
#include "scratch.h"
#include "virtual_camera/camera.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

std::atomic<bool> no_thread_left{false};
std::atomic<bool> clock_runs_by_looks{false}; // a millisecond each, and not by itself
std::atomic<long> looks{0};

} // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument) noexcept
{
    using function = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto real = reinterpret_cast<function>(dlsym(RTLD_NEXT, "pthread_create"));
    return no_thread_left ? EAGAIN : real(thread, attributes, start, argument);
}

extern "C" int clock_gettime(clockid_t which, timespec* into) noexcept
{
    if (which != CLOCK_MONOTONIC || !clock_runs_by_looks) {
        return static_cast<int>(syscall(SYS_clock_gettime, which, into));
    }
    const long now = ++looks;
    *into = {1000000 + now / 1000, now % 1000 * 1000000};
    return 0;
}

namespace
{

using tools::bytes;
using tools::camera_client;
using tools::from_hex;

zucam::camera_options numbered()
{
    zucam::camera_options options;
    options.numbered_size = 64;
    options.fps = 100;
    return options;
}

TEST(CameraTrouble, AStreamWithoutAThreadCostsItsViewerTheLinkAndNobodyElse)
{
    const zucam::camera camera(numbered());
    camera_client other(camera.port());
    camera_client client(camera.port());
    other.send(from_hex("21100000 00000000 00000000"));
    client.send(from_hex("21100000 00000000 00000000"));
    ASSERT_TRUE(other.next());
    ASSERT_TRUE(client.next());
    no_thread_left = true;
    client.send_start(0);
    EXPECT_TRUE(client.ends());
    no_thread_left = false;
    other.send_start(0);
    EXPECT_TRUE(other.next_with_flag("KTVF"));
}

TEST(CameraTrouble, ALinkWithoutAThreadIsJournalledToItsEnd)
{
    const tools::scratch files;
    zucam::camera_options options = numbered();
    options.journal_to = std::make_shared<zucam::journal_file>(files / "journal");
    {
        const zucam::camera camera(options);
        no_thread_left = true;
        camera_client client(camera.port());
        EXPECT_TRUE(client.ends());
        no_thread_left = false;
    }
    const std::string journal = files.read("journal");
    EXPECT_THAT(journal, testing::HasSubstr(R"("link":1,"event":"connected"})"));
    EXPECT_THAT(journal, testing::HasSubstr(R"("link":1,"event":"disconnected"})"));
}

TEST(CameraTrouble, ALinkThatEndsWithRequestsUnreadIsNotReset)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    bytes unheard = from_hex("01100000 ffffffff 00000000"); // no length: the link ends here
    // More than a link reads at once, and little enough to be there in one piece: what came after
    // the end would be answered by a reset.
    unheard.resize(20000);
    client.send(unheard);
    EXPECT_TRUE(client.ends());
    EXPECT_FALSE(client.ended_by_reset());
}

// A link looks at the clock several times a turn. Among so many times of a drop there are some that
// come between any two of the looks.
TEST(CameraTrouble, ADropIsNotMissedThatBecomesDueBetweenTwoLooksAtTheClock)
{
    for (int due = 1; due <= 20; ++due) {
        zucam::camera_options options = numbered();
        options.initial_faults.drop_after_time = std::chrono::milliseconds(due);
        clock_runs_by_looks = true;
        const zucam::camera camera(options);
        camera_client client(camera.port());
        EXPECT_TRUE(client.ends()) << due;
        clock_runs_by_looks = false;
    }
}

zucam::journal_entry entry_of(std::uint64_t link, std::size_t size)
{
    zucam::journal_entry entry;
    entry.link = link;
    entry.type = 0x1061;
    entry.payload.assign(size, 7);
    return entry;
}

TEST(CameraTrouble, TheJournalInMemoryIsBoundByBytesAndKeepsTheLatest)
{
    zucam::journal journal(nullptr, 100000);
    for (std::uint64_t i = 1; i <= 1000; ++i) {
        journal.add(entry_of(i, 3140));
    }
    const auto kept = journal.requests();
    ASSERT_FALSE(kept.empty());
    EXPECT_EQ(kept.back().link, 1000U);
    EXPECT_LE(kept.size() * 3140, 100000U);
    EXPECT_GT(kept.size(), 20U);
}

TEST(CameraTrouble, AJournalMayKeepNothingInMemory)
{
    zucam::camera_options options = numbered();
    options.journal_limit = 0;
    const zucam::camera camera(options);
    camera_client client(camera.port());
    client.send(from_hex("21100000 00000000 00000000"));
    ASSERT_TRUE(client.next());
    EXPECT_EQ(camera.received(0), 0U);
    EXPECT_TRUE(camera.journal().empty());
}

TEST(CameraTrouble, EveryRequestHasANameThatLeadsBackToIt)
{
    for (const std::uint32_t type :
         {0x1001U, 0x1011U, 0x1021U, 0x1031U, 0x1041U, 0x1051U, 0x1061U, 0x1071U}) {
        EXPECT_EQ(zucam::request_named(zucam::request_name(type)), type);
    }
    EXPECT_EQ(zucam::request_named("unknown"), std::nullopt);
    EXPECT_STREQ(zucam::request_name(0x1002), "unknown");
}

} // namespace
