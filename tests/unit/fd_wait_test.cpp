// Waiting on descriptors of any number.
//
// One thread. Numbers that the system has no descriptor for are looked at with a select that the
// seam answers: it returns without touching the sets, so that every bit that was asked for comes
// back as ready.
#include <cerrno>
#include <fcntl.h>
#include <vector>

#include <gtest/gtest.h>

#include "fd_wait.h"
#include "process_probe.h"
#include "scripted_device.h"
#include "seam.h"
#include "sockets.h"
#include "tcp_link.h"

using namespace support;

namespace
{

// A pipe; [0] is its read end.
class pipe_pair
{
public:
    pipe_pair()
    {
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    }
    ~pipe_pair()
    {
        close(ends[0]);
        close(ends[1]);
    }
    pipe_pair(const pipe_pair&) = delete;
    pipe_pair& operator=(const pipe_pair&) = delete;

    int read_end() const
    {
        return ends[0];
    }
    int write_end() const
    {
        return ends[1];
    }
    void fill(const char* data, size_t size) const
    {
        EXPECT_EQ(write(ends[1], data, size), static_cast<ssize_t>(size));
    }

private:
    int ends[2] = {-1, -1};
};

timeval a_while()
{
    return {30, 0};
}

timeval no_time()
{
    return {0, 0};
}

// Waits for one descriptor to become readable, without time.
int look(int fd, unsigned char* ready)
{
    fd_watch watch = {fd, fd_readable, 0};
    timeval timeout = no_time();
    const int ret = fd_wait(&watch, 1, &timeout);
    *ready = watch.ready;
    return ret;
}

} // namespace

// ---- conditions --------------------------------------------------------------------------------

TEST(FdWait, SeesWhatCanBeRead)
{
    const pipe_pair pipe;
    unsigned char ready = 255;
    EXPECT_EQ(look(pipe.read_end(), &ready), 0);
    EXPECT_EQ(ready, 0);

    pipe.fill("x", 1);
    EXPECT_EQ(look(pipe.read_end(), &ready), 1);
    EXPECT_EQ(ready, fd_readable);
}

TEST(FdWait, SeesWhatCanBeWritten)
{
    const pipe_pair pipe;
    fd_watch watch = {pipe.write_end(), fd_writable, 0};
    timeval timeout = a_while();

    EXPECT_EQ(fd_wait(&watch, 1, &timeout), 1);

    EXPECT_EQ(watch.ready, fd_writable);
}

TEST(FdWait, SeesAnUrgentByteAsAnException)
{
    connection link;
    link.end.send_urgent('!');

    fd_watch watch = {link.sock, fd_readable | fd_exceptional, 0};
    timeval timeout = a_while();
    EXPECT_EQ(fd_wait(&watch, 1, &timeout), 1);

    EXPECT_EQ(watch.ready, fd_exceptional);
}

TEST(FdWait, TellsAllThatIsReadyOfOneDescriptor)
{
    connection link;
    link.end.send(text("x"));
    unsigned char ready = 0;
    ASSERT_TRUE(eventually([&] { return look(link.sock, &ready) == 1; }));

    fd_watch watch = {link.sock, fd_readable | fd_writable | fd_exceptional, 0};
    timeval timeout = a_while();
    EXPECT_EQ(fd_wait(&watch, 1, &timeout), 2);

    EXPECT_EQ(watch.ready, fd_readable | fd_writable);
}

TEST(FdWait, TellsOnlyWhatIsWanted)
{
    const pipe_pair readable;
    const pipe_pair writable;
    readable.fill("x", 1);
    fd_watch watches[] = {{readable.read_end(), fd_writable, 0},
                          {writable.write_end(), fd_writable, 0},
                          {readable.read_end(), 0, 0}};
    timeval timeout = a_while();

    EXPECT_EQ(fd_wait(watches, 3, &timeout), 1);

    EXPECT_EQ(watches[0].ready, 0);
    EXPECT_EQ(watches[1].ready, fd_writable);
    EXPECT_EQ(watches[2].ready, 0);
}

TEST(FdWait, TellsSeveralDescriptorsApart)
{
    const pipe_pair quiet;
    const pipe_pair ready;
    ready.fill("x", 1);
    fd_watch watches[] = {{quiet.read_end(), fd_readable, 0}, {ready.read_end(), fd_readable, 0}};
    timeval timeout = a_while();

    EXPECT_EQ(fd_wait(watches, 2, &timeout), 1);

    EXPECT_EQ(watches[0].ready, 0);
    EXPECT_EQ(watches[1].ready, fd_readable);
}

// ---- time --------------------------------------------------------------------------------------

TEST(FdWait, EndsWhenTheTimeIsOver)
{
    const pipe_pair pipe;
    fd_watch watch = {pipe.read_end(), fd_readable, fd_readable};
    timeval timeout = {0, 20000};
    const auto start = std::chrono::steady_clock::now();

    EXPECT_EQ(fd_wait(&watch, 1, &timeout), 0);

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
    EXPECT_EQ(watch.ready, 0);
    EXPECT_EQ(timeout.tv_sec, 0);
    EXPECT_EQ(timeout.tv_usec, 0);
}

TEST(FdWait, LeavesTheRemainingTimeBehind)
{
    const pipe_pair pipe;
    pipe.fill("x", 1);
    fd_watch watch = {pipe.read_end(), fd_readable, 0};
    timeval timeout = {10000, 0};

    EXPECT_EQ(fd_wait(&watch, 1, &timeout), 1);

    EXPECT_LE(timeout.tv_sec, 10000);
    EXPECT_GT(timeout.tv_sec, 0);
}

TEST(FdWait, HandsTheTimeToSelectAsItIs)
{
    const pipe_pair pipe;
    pipe.fill("x", 1);
    fd_watch watch = {pipe.read_end(), fd_readable, 0};
    timeval timeout = {3, 250000};

    fd_wait(&watch, 1, &timeout);

    EXPECT_EQ(last_select().timeout.tv_sec, 3);
    EXPECT_EQ(last_select().timeout.tv_usec, 250000);
}

TEST(FdWait, CountsToTheHighestDescriptor)
{
    const pipe_pair pipe;
    pipe.fill("x", 1);
    const int higher = fcntl(pipe.read_end(), F_DUPFD_CLOEXEC, 100);
    fd_watch watches[] = {{higher, fd_readable, 0}, {pipe.read_end(), fd_readable, 0}};
    timeval timeout = a_while();

    EXPECT_EQ(fd_wait(watches, 2, &timeout), 2);

    EXPECT_EQ(last_select().descriptor_count, higher + 1);
    close(higher);
}

// ---- failures ----------------------------------------------------------------------------------

TEST(FdWait, LeavesTheErrorOfSelectBehind)
{
    const pipe_pair pipe;
    pipe.fill("x", 1);
    for (const int reason : {EINTR, ENOMEM}) {
        const fault failed("select", reason);
        unsigned char ready = 255;
        errno = 0;
        EXPECT_EQ(look(pipe.read_end(), &ready), -1);
        EXPECT_EQ(errno, reason);
        EXPECT_EQ(ready, 0);
    }
}

TEST(FdWait, FailsOnAClosedDescriptor)
{
    const int closed = dup(STDIN_FILENO);
    close(closed);
    unsigned char ready = 255;
    errno = 0;
    EXPECT_EQ(look(closed, &ready), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(ready, 0);
}

TEST(FdWait, FailsOnANumberThatHasNoPlaceWithoutAskingTheSystem)
{
    const before_call asked("select");
    for (const int fd : {-1, -2147483647, 65536, 65537, 1000000, 2147483647}) {
        unsigned char ready = 255;
        errno = 0;
        EXPECT_EQ(look(fd, &ready), -1) << fd;
        EXPECT_EQ(errno, EBADF) << fd;
        EXPECT_EQ(ready, 0) << fd;
    }
    EXPECT_EQ(asked.count(), 0);
}

TEST(FdWait, FailsWhenOneOfSeveralHasNoPlace)
{
    const pipe_pair pipe;
    pipe.fill("x", 1);
    fd_watch watches[] = {{pipe.read_end(), fd_readable, 255}, {65536, fd_readable, 255}};
    timeval timeout = a_while();
    errno = 0;

    EXPECT_EQ(fd_wait(watches, 2, &timeout), -1);

    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(watches[0].ready, 0);
    EXPECT_EQ(watches[1].ready, 0);
}

// ---- high numbers ------------------------------------------------------------------------------

class FdWaitAt : public testing::TestWithParam<int>
{
};

TEST_P(FdWaitAt, TellsAReadyDescriptorFromItsNeighbours)
{
    const int high = GetParam();
    ASSERT_TRUE(allow_descriptors(static_cast<size_t>(high) + 1))
        << "raise the limit of open files (ulimit -Hn) to " << high + 1;
    const pipe_pair ready_pipe;
    const pipe_pair quiet_pipe;
    ready_pipe.fill("x", 1);
    const owned_socket ready(dup3(ready_pipe.read_end(), high, O_CLOEXEC));
    const owned_socket quiet(dup3(quiet_pipe.read_end(), high - 1, O_CLOEXEC));
    ASSERT_EQ(ready, high);

    fd_watch watches[] = {{quiet, fd_readable, 0}, {ready, fd_readable, 0}};
    timeval timeout = a_while();
    EXPECT_EQ(fd_wait(watches, 2, &timeout), 1);

    EXPECT_EQ(watches[0].ready, 0);
    EXPECT_EQ(watches[1].ready, fd_readable);
}

INSTANTIATE_TEST_SUITE_P(Descriptor, FdWaitAt,
                         testing::Values(63, 64, 65, 1023, 1024, 1025, 4096, 16000),
                         testing::PrintToStringParamName());

// Numbers that need no descriptor behind them, since the seam answers for the system.
class FdWaitBits : public testing::TestWithParam<int>
{
};

TEST_P(FdWaitBits, HaveAPlaceForTheNumberInEachSet)
{
    const int high = GetParam();
    fault answered("select", 0);
    answered.returning(3);
    fd_watch watches[] = {{high, fd_readable | fd_writable | fd_exceptional, 0},
                          {high - 1, fd_readable, 0}};
    timeval timeout = no_time();

    EXPECT_EQ(fd_wait(watches, 2, &timeout), 3);

    EXPECT_EQ(last_select().descriptor_count, high + 1);
    EXPECT_EQ(watches[0].ready, fd_readable | fd_writable | fd_exceptional);
    EXPECT_EQ(watches[1].ready, fd_readable);
}

INSTANTIATE_TEST_SUITE_P(Descriptor, FdWaitBits,
                         testing::Values(63, 64, 65, 1023, 1024, 1025, 4096, 16000, 65535),
                         testing::PrintToStringParamName());

// ---- a look ----

namespace
{

constexpr unsigned char both = fd_readable_or_exceptional;

bool shows(int fd, int conditions)
{
    return eventually([&] { return fd_look(fd, both) == conditions; });
}

} // namespace

TEST(FdLook, FindsNothingWhereNothingIs)
{
    connection link;
    EXPECT_EQ(fd_look(link.sock, both), 0);
}

TEST(FdLook, FindsDataAndAnUrgentByteAndBoth)
{
    connection link;
    link.end.send_urgent('!');
    EXPECT_TRUE(shows(link.sock, fd_exceptional));
    connection other;
    other.end.send(text("x"));
    EXPECT_TRUE(shows(other.sock, fd_readable));
    other.end.send_urgent('!');
    EXPECT_TRUE(shows(other.sock, both));
}

TEST(FdLook, FindsWhatIsWantedAlone)
{
    connection link;
    link.end.send(text("x"));
    link.end.send_urgent('!');
    ASSERT_TRUE(shows(link.sock, both));
    EXPECT_EQ(fd_look(link.sock, fd_readable), fd_readable);
    EXPECT_EQ(fd_look(link.sock, fd_exceptional), fd_exceptional);
}

TEST(FdLook, TakesAnEndAndAnErrorForReadable)
{
    connection link;
    link.end.close();
    EXPECT_TRUE(shows(link.sock, fd_readable));
    connection other;
    other.end.reset();
    EXPECT_TRUE(shows(other.sock, fd_readable));
    EXPECT_EQ(fd_look(other.sock, fd_exceptional), 0);
    EXPECT_EQ(fd_look(9999, fd_readable), fd_readable); // a read will tell that there is none
}

TEST(FdLook, SaysWhenItCannotTellAndLeavesErrnoAlone)
{
    connection link;
    const fault failing("poll", ENOMEM);
    errno = EAGAIN;
    EXPECT_EQ(fd_look(link.sock, both), -1);
    EXPECT_EQ(errno, EAGAIN);
}
