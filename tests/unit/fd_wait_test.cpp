// Waiting on descriptors of any number. One thread.
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

constexpr timeval a_while = {30, 0};
constexpr timeval no_time = {0, 0};

// Waits for one descriptor to become readable, without time.
int look(int fd, unsigned char* ready)
{
    fd_watch watch = {fd, fd_readable, 0};
    const int ret = fd_wait(&watch, 1, no_time);
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

    EXPECT_EQ(fd_wait(&watch, 1, a_while), 1);

    EXPECT_EQ(watch.ready, fd_writable);
}

TEST(FdWait, SeesAnUrgentByteAsAnException)
{
    connection link;
    link.end.send_urgent('!');

    fd_watch watch = {link.sock, fd_readable | fd_exceptional, 0};
    EXPECT_EQ(fd_wait(&watch, 1, a_while), 1);

    EXPECT_EQ(watch.ready, fd_exceptional);
}

TEST(FdWait, TellsAllThatIsReadyOfOneDescriptor)
{
    connection link;
    link.end.send(text("x"));
    unsigned char ready = 0;
    ASSERT_TRUE(eventually([&] { return look(link.sock, &ready) == 1; }));

    fd_watch watch = {link.sock, fd_readable | fd_writable | fd_exceptional, 0};
    EXPECT_EQ(fd_wait(&watch, 1, a_while), 2);

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

    EXPECT_EQ(fd_wait(watches, 3, a_while), 1);

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

    EXPECT_EQ(fd_wait(watches, 2, a_while), 1);

    EXPECT_EQ(watches[0].ready, 0);
    EXPECT_EQ(watches[1].ready, fd_readable);
}

TEST(FdWait, IsNotWokenByDataWhereOnlyABreakCounts)
{
    connection link;
    link.end.send(text("x"));
    link.end.send_urgent('!');
    ASSERT_TRUE(eventually([&] {
        return fd_look(link.sock, fd_readable_or_exceptional) == fd_readable_or_exceptional;
    }));
    fd_watch watch = {link.sock, fd_broken, 255};

    EXPECT_EQ(fd_wait(&watch, 1, no_time), 0);
    EXPECT_EQ(watch.ready, 0);

    link.end.reset();
    EXPECT_EQ(fd_wait(&watch, 1, a_while), 1);
    EXPECT_EQ(watch.ready, fd_broken);
}

TEST(FdWait, TakesAnEndForReadableAndForABreak)
{
    connection link;
    shutdown(link.sock, SHUT_RDWR);
    fd_watch watch = {link.sock, fd_readable | fd_broken, 0};

    EXPECT_EQ(fd_wait(&watch, 1, a_while), 2);

    EXPECT_EQ(watch.ready, fd_readable | fd_broken);
}

// ---- time --------------------------------------------------------------------------------------

TEST(FdWait, EndsWhenTheTimeIsOver)
{
    const pipe_pair pipe;
    fd_watch watch = {pipe.read_end(), fd_readable, fd_readable};
    const auto start = std::chrono::steady_clock::now();

    EXPECT_EQ(fd_wait(&watch, 1, {0, 20000}), 0);

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
    EXPECT_EQ(watch.ready, 0);
}

TEST(FdWait, HandsTheTimeToTheSystemAsItIs)
{
    const pipe_pair pipe;
    pipe.fill("x", 1);
    fd_watch watch = {pipe.read_end(), fd_readable, 0};

    EXPECT_EQ(fd_wait(&watch, 1, {3, 250000}), 1);

    EXPECT_EQ(last_wait().limit.tv_sec, 3);
    EXPECT_EQ(last_wait().limit.tv_usec, 250000);
}

// ---- failures ----------------------------------------------------------------------------------

TEST(FdWait, LeavesTheErrorOfTheSystemBehind)
{
    const pipe_pair pipe;
    pipe.fill("x", 1);
    for (const int reason : {EINTR, ENOMEM}) {
        const fault failed("ppoll", reason);
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

TEST(FdWait, FailsOnANumberThatCannotBeADescriptor)
{
    for (const int fd : {-1, -2147483647, 65536, 1000000, 2147483647}) {
        unsigned char ready = 255;
        errno = 0;
        EXPECT_EQ(look(fd, &ready), -1) << fd;
        EXPECT_EQ(errno, EBADF) << fd;
        EXPECT_EQ(ready, 0) << fd;
    }
}

TEST(FdWait, FailsWhenOneOfSeveralIsNoDescriptor)
{
    const pipe_pair pipe;
    pipe.fill("x", 1);
    for (const int bad : {-1, 65536}) {
        fd_watch watches[] = {{pipe.read_end(), fd_readable, 255}, {bad, fd_readable, 255}};
        errno = 0;

        EXPECT_EQ(fd_wait(watches, 2, a_while), -1) << bad;

        EXPECT_EQ(errno, EBADF) << bad;
        EXPECT_EQ(watches[0].ready, 0) << bad;
        EXPECT_EQ(watches[1].ready, 0) << bad;
    }
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
    EXPECT_EQ(fd_wait(watches, 2, a_while), 1);

    EXPECT_EQ(watches[0].ready, 0);
    EXPECT_EQ(watches[1].ready, fd_readable);
}

INSTANTIATE_TEST_SUITE_P(Descriptor, FdWaitAt,
                         testing::Values(63, 64, 65, 1023, 1024, 1025, 4096, 16000),
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
