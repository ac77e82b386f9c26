// The record of an SDK user: how it is handed out, and how long it lives.
//
// The seam counts the library's calls of munmap: records are all that it ever unmaps. Tests with
// many threads share the table itself and atomics, nothing else.
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "seam.h"
#include "table_user.h"

using namespace support;

namespace
{

class SdkUserRecord : public table_user
{
};

} // namespace

TEST_F(SdkUserRecord, HandsOutARecordWithoutPipesAndZeroOtherwise)
{
    const int slot = alloc_sdkuser();
    zu_sdk_user* const user = sdk_users[slot];

    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(user->shutdown_pipe_recver[i], -1);
        EXPECT_EQ(user->shutdown_pipe_sender[i], -1);
        user->shutdown_pipe_recver[i] = 0;
        user->shutdown_pipe_sender[i] = 0;
    }
    const auto* byte = reinterpret_cast<const unsigned char*>(user);
    const auto declared = static_cast<std::ptrdiff_t>(offsetof(zu_sdk_user, holders));
    EXPECT_EQ(std::count(byte, byte + declared, 0), declared);
}

TEST_F(SdkUserRecord, HandsOutAZeroRecordAgainForAUsedSlot)
{
    for (int i = 0; i < 3; i++) {
        const int slot = alloc_sdkuser();
        zu_sdk_user* const user = sdk_users[slot];
        EXPECT_EQ(user->used, 0);
        EXPECT_EQ(user->msgrecver_buf[1000], 0);
        EXPECT_EQ(user->dstFileName[255], 0);
        user->used = -1;
        std::memset(user->msgrecver_buf, 1, sizeof(user->msgrecver_buf));
        user->dstFileName[255] = 1;
        free_sdkuser(static_cast<ZU_U32>(slot));
    }
}

TEST_F(SdkUserRecord, FreesARecordThatNobodyElseHolds)
{
    alloc_sdkuser();
    const before_call memory("munmap");

    free_sdkuser(0);

    EXPECT_EQ(memory.count(), 1);
}

TEST_F(SdkUserRecord, ALookUpHoldsTheRecordAfterItsRelease)
{
    alloc_sdkuser();
    const before_call memory("munmap");
    {
        const held_user user(0);
        free_sdkuser(0);

        EXPECT_EQ(sdk_users[0], nullptr);
        EXPECT_EQ(memory.count(), 0);
        user->msgrecver_buf[0] = 'x'; // it would fault without the hold
        EXPECT_TRUE(held_user(0).missing());
    }
    EXPECT_EQ(memory.count(), 1);
}

TEST_F(SdkUserRecord, TheLastHolderFreesTheRecord)
{
    alloc_sdkuser();
    zu_sdk_user* const user = sdk_users[0];
    const before_call memory("munmap");
    sdk_user_hold(user);
    sdk_user_hold(user);

    sdk_user_drop(user);
    free_sdkuser(0);
    EXPECT_EQ(memory.count(), 0);
    sdk_user_drop(user);
    EXPECT_EQ(memory.count(), 1);
}

TEST_F(SdkUserRecord, AHoldMayBeDroppedAfterDeInit)
{
    alloc_sdkuser();
    zu_sdk_user* const user = get_sdkuser(0);
    free_sdkuser(0);
    ZU_NET_DEV_DeInit();
    const before_call memory("munmap");

    sdk_user_drop(user);

    EXPECT_EQ(memory.count(), 1);
}

TEST_F(SdkUserRecord, AReleasedSlotCanBeTakenWhileItsRecordIsHeld)
{
    alloc_sdkuser();
    const held_user former(0);
    free_sdkuser(0);
    alloc_sdkuser(); // 255
    EXPECT_EQ(alloc_sdkuser(), 0);

    EXPECT_NE(sdk_users[0], former.get());
    EXPECT_EQ(held_user(0).get(), sdk_users[0]);
}

TEST_F(SdkUserRecord, LinkUpAsksForTheUsedWord)
{
    alloc_sdkuser();
    zu_sdk_user* const user = sdk_users[0];
    EXPECT_FALSE(held_user(0).link_up());
    user->used = 0x1234abcd;
    EXPECT_TRUE(held_user(0).link_up());
    user->used = -1;
    EXPECT_FALSE(held_user(0).link_up());
    EXPECT_FALSE(held_user(1).link_up());
}

TEST_F(SdkUserRecord, LookUpsAndReleasesOnManyThreadsFreeEveryRecordOnce)
{
    const before_call allocated("mmap");
    const before_call freed("munmap");
    std::atomic<bool> over{false};
    std::atomic<int> found{0};

    std::vector<std::thread> threads;
    for (int i = 0; i < 3; i++) {
        threads.emplace_back([&] {
            while (!over) {
                for (const ZU_U32 slot : {0U, 1U, 254U, 255U}) {
                    const held_user user(slot);
                    if (!user.missing()) {
                        user->reconnect_interval = 1;
                        found++;
                    }
                }
            }
        });
    }
    for (int round = 0; round < 500 || found < 100; round++) {
        const int slot = alloc_sdkuser();
        ASSERT_NE(slot, -1);
        free_sdkuser(static_cast<ZU_U32>(slot));
    }
    over = true;
    for (auto& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(freed.count(), allocated.count());
}

TEST_F(SdkUserRecord, ManyThreadsNeverShareASlot)
{
    std::vector<std::thread> threads;
    std::vector<std::vector<int>> slots(8);
    for (auto& own : slots) {
        threads.emplace_back([&own] { own = allocate(32); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::vector<int> all;
    for (const auto& own : slots) {
        all.insert(all.end(), own.begin(), own.end());
    }
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::unique(all.begin(), all.end()) - all.begin(), 256);
    EXPECT_EQ(all.front(), 0);
}
