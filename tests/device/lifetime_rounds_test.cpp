// Many logins one after another, and beside others: nothing accumulates, nothing is mixed up.
#include "login_kit.h"

using namespace support;

namespace
{

constexpr int round_threads = 16;
constexpr int rounds_per_thread = 32; // 512 rounds in all
constexpr int warm_up_rounds = 2;

// Logs in, makes a request and logs out, `rounds` times on each thread. How many rounds were whole.
int run_rounds(unsigned short port, int rounds)
{
    std::atomic<int> whole{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < round_threads; i++) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; round++) {
                live_login login(port);
                if (login.result() == 0 && login.watch() && login.start_stream() == 0 &&
                    login.log_out() == 0) {
                    whole++;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    return whole;
}

bytes numbered_frame(unsigned number)
{
    return stream_data("KTVF", le32(number) + pattern(200 + number % 1000, number));
}

// How many of the blocks are not the numbered frames 0, 1, 2 and so on.
int misplaced(const std::vector<stream_block>& blocks)
{
    int wrong = 0;
    unsigned number = 0;
    for (const auto& block : blocks) {
        const bytes expected = text("KTVF") + le32(number) + pattern(200 + number % 1000, number);
        wrong += block.body == expected ? 0 : 1;
        number++;
    }
    return wrong;
}

} // namespace

TEST(Lifetime, FiveHundredRoundsOnSixteenThreadsLeaveTheProcessAsItWas)
{
    const library lib;
    serving_device device;
    ASSERT_EQ(run_rounds(device.port(), warm_up_rounds), round_threads * warm_up_rounds);
    ASSERT_TRUE(eventually([&] { return device.links_open() == 0; }));
    const inventory warm;
    const size_t resident = resident_kib();

    EXPECT_EQ(run_rounds(device.port(), rounds_per_thread), round_threads * rounds_per_thread);

    EXPECT_TRUE(eventually([&] { return device.links_open() == 0; }));
    EXPECT_EQ(warm.left_over(), "");
    EXPECT_THAT(sdk_users, testing::Each(nullptr));
    // One record is two megabytes; a leak of each would be a thousand. The device's own
    // book-keeping and the allocator's arenas are in this bound.
    EXPECT_LT(resident_kib(), resident + 256 * 1024);
}

TEST(Lifetime, ALoginMissesNoFrameWhileAnotherComesAndGoes)
{
    const inventory before;
    {
        const library lib;
        serving_device steady_device;
        serving_device busy_device;
        live_login steady(steady_device.port());
        ASSERT_EQ(steady.result(), 0);
        ASSERT_TRUE(steady.watch());
        ASSERT_TRUE(has_link(steady_device));

        std::atomic<bool> stop{false};
        std::atomic<int> rounds{0};
        std::atomic<int> failures{0};
        std::atomic<int> strays{0};
        std::thread comes_and_goes([&] {
            while (!stop) {
                live_login other(busy_device.port());
                if (other.result() != 0 || !other.watch() || other.start_stream() != 0) {
                    failures++;
                }
                busy_device.send_to_all(stream_data("KTVF", text("of the other")));
                other.seen.wait_for_blocks(1);
                other.log_out();
                for (const auto& block : other.seen.blocks()) {
                    strays += block.body == text("KTVFof the other") ? 0 : 1;
                }
                rounds++;
            }
        });
        unsigned sent = 0;
        while (rounds < 10) {
            EXPECT_EQ(steady_device.send_to_all(numbered_frame(sent)), 1);
            sent++;
            // At the pace of the callback, so that the watcher's memory stays small.
            ASSERT_TRUE(steady.seen.wait_for_blocks(sent));
        }
        stop = true;
        comes_and_goes.join();
        EXPECT_EQ(failures, 0);
        EXPECT_EQ(strays, 0);
        const auto blocks = steady.seen.blocks();
        EXPECT_EQ(blocks.size(), sent);
        EXPECT_EQ(misplaced(blocks), 0);
        EXPECT_THAT(link_events(steady.seen), testing::ElementsAre());
    }
    EXPECT_EQ(before.left_over(), "");
}

TEST(Lifetime, ADeviceThatClosesTwentyTimesEndsWithOneSenderAndOneReceiver)
{
    const inventory before;
    {
        const library lib;
        std::atomic<int> connection{0};
        behaviour how;
        // The first connection is good, the next twenty are not.
        how.on_connect = [&](peer&) {
            const int number = ++connection;
            return number == 1 || number > 21;
        };
        serving_device device(how);
        live_login login(device.port());
        ASSERT_EQ(login.result(), 0);
        ASSERT_TRUE(login.watch());
        ASSERT_TRUE(eventually([&] { return device.links_open() == 1; }));
        const auto descriptors = open_descriptors();

        drop(device);
        // An accepted and closed connection is mostly noticed in the start-up wait and costs half a
        // second at most; one whose workers were quicker costs a teardown and its pause.
        ASSERT_TRUE(eventually([&] { return connection == 22; }, std::chrono::seconds(100)));
        ASSERT_TRUE(login.wait_until_up());

        // An event handler bears the name of its starter while it lives.
        EXPECT_TRUE(eventually([] {
            return threads_named("sdk_msgrecver_main") == 1 &&
                   threads_named("sdk_msgsender_main") == 1 && threads_named(manager_name) == 1;
        }));
        EXPECT_TRUE(eventually([&] { return open_descriptors().size() == descriptors.size(); }));
        for (int i = 0; i < 50; i++) {
            EXPECT_EQ(ZU_NET_DEV_MakeKeyFrame(login.handle(), 11), 0);
        }
        EXPECT_EQ(login.start_stream(), 0);
        EXPECT_EQ(device.send_to_all(stream_data("KTVF", pattern(50))), 1);
        EXPECT_TRUE(login.seen.wait_for_blocks(1));
        EXPECT_EQ(connection, 22);
    }
    EXPECT_EQ(before.left_over(), "");
}
