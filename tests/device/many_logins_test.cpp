// All 256 slots in use at once: every login streams and answers, and there is no 257th. The process
// then has descriptors far above 1023.
#include "login_kit.h"

using namespace support;

namespace
{

constexpr int logins_max = sdk_user_max;
constexpr int login_threads = 32;
constexpr int frames = 5;

void on_threads(const std::function<void(int)>& do_with)
{
    std::vector<std::thread> threads;
    std::atomic<int> next{0};
    for (int i = 0; i < login_threads; i++) {
        threads.emplace_back([&] {
            for (int k = next++; k < logins_max; k = next++) {
                do_with(k);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

bytes frame(int number)
{
    return stream_data("KTVF", pattern(5000, static_cast<unsigned>(number)));
}

} // namespace

TEST(ManyLogins, AllSlotsStreamAndAnswerAtOnceAndThereIsNoFurtherOne)
{
    // Six descriptors for each login and one for the device's end of it, and room for requests.
    ASSERT_TRUE(allow_descriptors(8 * logins_max + 200))
        << "256 logins can't be tried here: raise the limit of open files (ulimit -Hn) to "
        << 8 * logins_max + 200;
    const inventory before;
    {
        const stopped_clock still; // a thousand threads at once may have to wait for the processor
        const library lib;
        serving_device device;
        std::vector<std::unique_ptr<live_login>> logins(logins_max);
        std::atomic<int> good{0};
        on_threads([&](int k) {
            logins[k] = std::make_unique<live_login>(device.port());
            good += logins[k]->result() == 0 && logins[k]->watch() ? 1 : 0;
        });
        ASSERT_EQ(good, logins_max);
        ASSERT_TRUE(eventually([&] { return device.links_open() == logins_max; }));
        EXPECT_EQ(threads_named("sdk_msgsender_main"), logins_max);
        EXPECT_GT(open_descriptors().back(), 1023);

        std::set<ZU_U32> handles;
        for (const auto& login : logins) {
            handles.insert(login->handle());
        }
        EXPECT_EQ(handles.size(), static_cast<size_t>(logins_max));
        EXPECT_EQ(*handles.begin(), 0x43210000U);
        EXPECT_EQ(*handles.rbegin(), 0x432100FFU);

        const log_tap log(1);
        ZU_U32 handle = 77;
        EXPECT_EQ(log_in(&handle, device.port()), -1);
        EXPECT_EQ(handle, 77U);
        EXPECT_TRUE(log.has(0, "alloc_sdkuser", "sdk user number full!\n"));

        std::atomic<int> answered{0};
        on_threads([&](int k) { answered += logins[k]->start_stream() == 0 ? 1 : 0; });
        EXPECT_EQ(answered, logins_max);
        for (int i = 0; i < frames; i++) {
            EXPECT_EQ(device.send_to_all(frame(i)), logins_max);
        }
        on_threads([&](int k) { answered += ZU_NET_DEV_StopStream(logins[k]->handle()) == 0; });
        EXPECT_EQ(answered, 2 * logins_max);
        for (const auto& login : logins) {
            ASSERT_TRUE(login->seen.wait_for_blocks(frames));
            const auto blocks = login->seen.blocks();
            EXPECT_EQ(blocks.size(), static_cast<size_t>(frames));
            for (int i = 0; i < frames; i++) {
                EXPECT_EQ(blocks[i].handle, login->handle());
                EXPECT_EQ(blocks[i].body, text("KTVF") + pattern(5000, static_cast<unsigned>(i)));
            }
        }

        std::atomic<int> out{0};
        on_threads([&](int k) { out += logins[k]->log_out() == 0 ? 1 : 0; });
        EXPECT_EQ(out, logins_max);
        EXPECT_THAT(sdk_users, testing::Each(nullptr));
    }
    EXPECT_EQ(before.left_over(), "");
}

TEST(ManyLogins, ASlotThatHasBecomeFreeIsTakenAgain)
{
    const library lib;
    serving_device device;
    std::vector<int> taken;
    for (int i = 0; i < logins_max; i++) {
        taken.push_back(alloc_sdkuser());
    }
    ZU_U32 handle = 77;
    EXPECT_EQ(log_in(&handle, device.port()), -1);
    free_sdkuser(100);
    EXPECT_EQ(log_in(&handle, device.port()), 0);
    EXPECT_EQ(handle, 0x43210064U);
    EXPECT_EQ(ZU_NET_DEV_Logout(handle), 0);
    for (const int slot : taken) {
        free_sdkuser(static_cast<ZU_U32>(slot));
    }
}
