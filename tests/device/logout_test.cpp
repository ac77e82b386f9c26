// Who may log out, and how often: a second Logout, Logouts that race, a Logout that meets a Login
// still under way, and requests that meet a Logout.
#include <array>

#include "login_kit.h"

using namespace support;

namespace
{

// What several calls made at once return.
template <size_t size>
std::array<ZU_S32, size> all_at_once(const std::function<ZU_S32()>& call)
{
    std::array<ZU_S32, size> results;
    std::atomic<size_t> ready{0};
    std::vector<std::thread> threads;
    for (size_t i = 0; i < size; i++) {
        threads.emplace_back([&, i] {
            ready++;
            while (ready < size) { // as near to each other as threads allow
            }
            results[i] = call();
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    return results;
}

template <size_t callers>
void expect_one_success_of()
{
    std::array<ZU_S32, callers> expected;
    expected.fill(-1);
    expected[0] = 0; // whoever it is
    const inventory before;
    {
        const library lib;
        serving_device device;
        for (int round = 0; round < 6; round++) {
            ZU_U32 handle = 0;
            ASSERT_EQ(log_in(&handle, device.port()), 0);
            const auto results = all_at_once<callers>([&] { return ZU_NET_DEV_Logout(handle); });
            EXPECT_THAT(results, testing::UnorderedElementsAreArray(expected));
        }
    }
    EXPECT_EQ(before.left_over(), "");
}

} // namespace

TEST(Logout, ASecondTimeFailsWithItsLine)
{
    const library lib;
    serving_device device;
    const log_tap log(1);
    ZU_U32 handle = 0;
    ASSERT_EQ(log_in(&handle, device.port()), 0);
    EXPECT_EQ(ZU_NET_DEV_Logout(handle), 0);
    EXPECT_EQ(ZU_NET_DEV_Logout(handle), -1);
    EXPECT_TRUE(log.has(0, logout_name, no_user_line));
    EXPECT_TRUE(log.has(0, "get_sdkuser", "sdkuser invalid! index: 0\n"));
}

TEST(Logout, ASecondTimeWhileTheFirstIsUnderWayFailsWithoutWaiting)
{
    const library lib;
    serving_device device;
    const log_tap log(2);
    ZU_U32 handle = 0;
    ASSERT_EQ(log_in(&handle, device.port()), 0);
    log_hold first_is_at_it(logout_name, "####### exit devmanager()\n");
    running_call first([&] { return ZU_NET_DEV_Logout(handle); });
    ASSERT_TRUE(first_is_at_it.reached());
    EXPECT_EQ(ZU_NET_DEV_Logout(handle), -1);
    EXPECT_FALSE(first.returned());
    EXPECT_TRUE(log.has(0, logout_name, no_user_line));
    EXPECT_EQ(log.lines_of("get_sdkuser").size(), 0U); // the record was found
    first_is_at_it.let_go();
    EXPECT_EQ(first.result(), 0);
}

TEST(Logout, TwiceAtOnceSucceedsOnce)
{
    expect_one_success_of<2>();
}

TEST(Logout, EightTimesAtOnceSucceedsOnce)
{
    expect_one_success_of<8>();
}

TEST(Logout, OfALoginThatIsStillBeingSetUpFails)
{
    const library lib;
    serving_device device;
    const log_tap log(2);
    log_hold setting_up(login_name, "username:");
    ZU_U32 handle = 0;
    running_call login([&] { return log_in(&handle, device.port()); });
    ASSERT_TRUE(setting_up.reached());
    EXPECT_EQ(ZU_NET_DEV_Logout(0x43210000), -1);
    EXPECT_TRUE(log.has(0, logout_name, no_user_line));
    setting_up.let_go();
    EXPECT_EQ(login.result(), 0);
    EXPECT_EQ(ZU_NET_DEV_Logout(handle), 0);
}

TEST(Logout, OfALoginThatStillWaitsForItsWorkersEndsItAndLetsLoginFail)
{
    login_with_late_sender at;
    ASSERT_TRUE(at.late_sender.reached());
    // The device manager may have come so far before the thread that has started it goes on.
    ASSERT_TRUE(eventually([&] { return at.log.has_beginning("pthread_create devmanager:"); }));
    running_call logout([] { return ZU_NET_DEV_Logout(0x43210000); });
    // A device manager that sees the dead link before it is told to stop connects once more, and
    // then waits for the late sender itself.
    ASSERT_TRUE(at.is_being_ended());
    at.late_sender.let_go();
    EXPECT_EQ(logout.result(), 0);
    EXPECT_EQ(at.login.result(), -1);
    EXPECT_THAT(sdk_users, testing::Each(nullptr));
}

TEST(Logout, LetsEveryRequestUnderWayReturn)
{
    const inventory before;
    {
        const library lib;
        serving_device device;
        for (int round = 0; round < 3; round++) {
            live_login login(device.port());
            ASSERT_EQ(login.result(), 0);
            const ZU_U32 handle = login.handle();
            std::atomic<int> answered{0};
            std::vector<std::thread> threads;
            for (int i = 0; i < 8; i++) {
                threads.emplace_back([&] {
                    while (ZU_NET_DEV_MakeKeyFrame(handle, 11) == 0) {
                        answered++;
                    }
                });
            }
            ASSERT_TRUE(eventually([&] { return answered > 100; }));
            EXPECT_EQ(login.log_out(), 0);
            for (auto& thread : threads) {
                thread.join(); // its last request has failed
            }
        }
    }
    EXPECT_EQ(before.left_over(), "");
}

TEST(Logout, OfAllLoginsAllowsDeInitAndANewInit)
{
    const inventory before;
    for (int round = 0; round < 3; round++) {
        serving_device device;
        ASSERT_EQ(ZU_NET_DEV_Init(), 0);
        {
            live_login login(device.port());
            ASSERT_EQ(login.result(), 0);
            EXPECT_EQ(login.start_stream(), 0);
        }
        EXPECT_EQ(ZU_NET_DEV_DeInit(), 0);
    }
    EXPECT_EQ(before.left_over(), "");
}

TEST(Logout, AfterDeInitIsRefusedAndWorksAgainAfterInit)
{
    const inventory before;
    {
        serving_device device;
        ASSERT_EQ(ZU_NET_DEV_Init(), 0);
        const log_tap log(1);
        live_login login(device.port());
        ASSERT_EQ(login.result(), 0);
        EXPECT_EQ(ZU_NET_DEV_DeInit(), 0);
        EXPECT_EQ(ZU_NET_DEV_Logout(login.handle()), -1);
        EXPECT_TRUE(log.has(0, logout_name, "zu_sdk_inited == 0\n"));
        EXPECT_TRUE(has_link(device)); // DeInit logs nobody out
        EXPECT_EQ(ZU_NET_DEV_Init(), 0);
        EXPECT_EQ(login.log_out(), 0);
        EXPECT_EQ(ZU_NET_DEV_DeInit(), 0);
    }
    EXPECT_EQ(before.left_over(), "");
}
