// What a login holds of the system: six descriptors, three threads and one record, none of them
// inherited by programs that the application starts, all of them gone after Logout.
#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "login_kit.h"

using namespace support;

namespace
{

// The descriptors of a login, by the record: two sockets, two pipes.
std::vector<int> descriptors_of(ZU_U32 handle)
{
    const held_user user(handle);
    std::vector<int> out = {user->ext_sock,
                            user->int_sock,
                            user->shutdown_pipe_recver[0],
                            user->shutdown_pipe_recver[1],
                            user->shutdown_pipe_sender[0],
                            user->shutdown_pipe_sender[1]};
    std::sort(out.begin(), out.end());
    return out;
}

// The descriptors that a program started now finds open.
std::vector<int> inherited()
{
    std::vector<int> out;
    FILE* program = popen("for fd in /proc/self/fd/*; do echo ${fd##*/}; done", "r");
    int fd = 0;
    while (fscanf(program, "%d", &fd) == 1) {
        out.push_back(fd);
    }
    pclose(program);
    return out;
}

void expect_not_inherited(ZU_U32 handle)
{
    const auto passed_on = inherited();
    EXPECT_THAT(passed_on, testing::Contains(0));
    for (const int fd : descriptors_of(handle)) {
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << fd;
        EXPECT_THAT(passed_on, testing::Not(testing::Contains(fd)));
    }
}

} // namespace

TEST(Lifetime, ALoginHoldsSixDescriptorsAndThreeThreads)
{
    const library lib;
    serving_device device;
    const auto before = open_descriptors();
    const int threads = thread_count();
    live_login login(device.port());
    ASSERT_EQ(login.result(), 0);
    ASSERT_TRUE(eventually([&] { return device.links_open() == 1; }));
    std::vector<int> fresh;
    const auto now = open_descriptors();
    std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                        std::back_inserter(fresh));
    // The device's own end is the seventh, and its thread the fourth.
    EXPECT_EQ(fresh.size(), 7U);
    EXPECT_THAT(fresh, testing::IsSupersetOf(descriptors_of(login.handle())));
    EXPECT_EQ(thread_count(), threads + 4);
}

TEST(Lifetime, NoDescriptorOfALoginIsInherited)
{
    const library lib;
    serving_device device;
    const live_login login(device.port());
    ASSERT_EQ(login.result(), 0);
    expect_not_inherited(login.handle());
}

TEST(Lifetime, NoDescriptorOfAReconnectionIsInherited)
{
    const library lib;
    serving_device device;
    live_login login(device.port());
    ASSERT_TRUE(login.watch());
    drop(device);
    ASSERT_TRUE(login.seen.wait_for_event(ZU_NET_DEV_CONNECTED));
    expect_not_inherited(login.handle());
}

// A recorder starts programs of its own all the time. None of them disturbs the links of its
// logins, whatever the child inherits before it executes another program.
TEST(Lifetime, AHostProcessThatForksAndExecutesKeepsItsLinksAndItsFrames)
{
    constexpr int programs = 60;
    const inventory before;
    {
        const library lib;
        serving_device device;
        std::vector<std::unique_ptr<live_login>> logins;
        for (int i = 0; i < 8; i++) {
            logins.push_back(std::make_unique<live_login>(device.port()));
            ASSERT_TRUE(logins.back()->watch());
        }
        ASSERT_TRUE(eventually([&] { return device.links_open() == 8; }));
        for (int i = 0; i < programs; i++) {
            const pid_t child = fork();
            ASSERT_GE(child, 0);
            if (child == 0) {
                execlp("true", "true", static_cast<char*>(nullptr));
                _exit(127);
            }
            ASSERT_EQ(device.send_to_all(stream_data("KTVF", le32(static_cast<uint32_t>(i)))), 8);
            int status = 0;
            ASSERT_EQ(waitpid(child, &status, 0), child);
            EXPECT_EQ(status, 0);
        }
        for (const auto& login : logins) {
            EXPECT_TRUE(login->seen.wait_for_blocks(programs));
            const auto blocks = login->seen.blocks();
            for (size_t i = 0; i < blocks.size(); i++) {
                EXPECT_EQ(blocks[i].body, text("KTVF") + le32(static_cast<uint32_t>(i)));
            }
            EXPECT_EQ(login->seen.count(ZU_NET_DEV_DISCONNECTED), 0);
            EXPECT_EQ(ZU_NET_DEV_MakeKeyFrame(login->handle(), 11), 0);
        }
        EXPECT_EQ(device.connections_made(), 8);
    }
    EXPECT_EQ(before.left_over(), "");
}

TEST(Lifetime, TheLoopbackSocketBelongsToThisMachineAlone)
{
    const library lib;
    serving_device device;
    const live_login login(device.port());
    const held_user user(login.handle());
    sockaddr_in bound = {};
    socklen_t length = sizeof(bound);
    ASSERT_EQ(getsockname(user->int_sock, reinterpret_cast<sockaddr*>(&bound), &length), 0);
    EXPECT_EQ(ntohl(bound.sin_addr.s_addr), INADDR_LOOPBACK);
    EXPECT_EQ(ntohs(bound.sin_port), user->int_port);
}

TEST(Lifetime, ADescriptorKeepsItsNumberUntilNoWorkerCanUseIt)
{
    const library lib(0);
    serving_device device;
    const log_tap log(2);
    live_login login(device.port());
    ASSERT_EQ(login.result(), 0);
    const auto numbers = descriptors_of(login.handle());
    const held_user user(login.handle());
    // The receiver is stopped between its last look and its end; Logout waits for it.
    log_hold ending("sdk_msgrecver_main", "msgrecver select faill!\n");
    running_call logout([&] { return login.log_out(); });
    ASSERT_TRUE(ending.reached());
    ASSERT_TRUE(eventually([&] { return user->msgsender_started == 0; }));
    EXPECT_TRUE(all_along(
        [&] {
            return !logout.returned() && std::all_of(numbers.begin(), numbers.end(), [](int fd) {
                return fcntl(fd, F_GETFD) != -1;
            });
        },
        std::chrono::milliseconds(200)));
    // For the device the link has ended already.
    EXPECT_TRUE(eventually([&] { return device.links_open() == 0; }));
    ending.let_go();
    EXPECT_EQ(logout.result(), 0);
    for (const int fd : numbers) {
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    }
}

TEST(Lifetime, ARecordIsGivenBackWhenTheLastRequestThatHoldsItReturns)
{
    const library lib;
    serving_device device(silent());
    live_login login(device.port());
    ASSERT_EQ(login.result(), 0);
    const before_call frees("munmap");
    stopped_clock clock;
    // The device does not answer, so the request waits for its limit.
    running_call request([&] { return ZU_NET_DEV_MakeKeyFrame(login.handle(), 11); });
    ASSERT_TRUE(eventually([&] { return device.received(0x1051).size() == 1; }));
    EXPECT_EQ(login.log_out(), 0);
    EXPECT_FALSE(request.returned());
    EXPECT_EQ(frees.count(), 0);
    EXPECT_TRUE(clock.advance_until([&] { return request.returned(); }));
    EXPECT_EQ(request.result(), -1);
    EXPECT_EQ(frees.count(), 1);
}
