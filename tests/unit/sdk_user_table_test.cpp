// The table of 256 SDK users: which slot a login gets, what a handle reaches, what is logged.
//
// One thread. A test that has taken slots gives them back in its fixture's destructor.
#include <algorithm>
#include <cerrno>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "live_login.h"
#include "log_story.h"
#include "log_tap.h"
#include "process_probe.h"
#include "scripted_device.h"
#include "sdk_user.h"
#include "seam.h"
#include "table_user.h"

using namespace support;
using testing::ElementsAre;

namespace
{

class SdkUserTable : public table_user
{
};

void free_slots(const std::vector<ZU_U32>& slots)
{
    for (const ZU_U32 slot : slots) {
        free_sdkuser(slot);
    }
}

// Whether a look-up of the handle finds the record of the slot.
bool reaches(ZU_U32 handle, int slot)
{
    const held_user user(handle);
    return !user.missing() && user.get() == sdk_users[slot];
}

} // namespace

// ---- slots -------------------------------------------------------------------------------------

TEST_F(SdkUserTable, TakesSlotsFromAlternateEnds)
{
    EXPECT_THAT(allocate(6), ElementsAre(0, 255, 1, 254, 2, 253));
}

TEST_F(SdkUserTable, TakesTheFirstFreeSlotOfTheDirectionItSearches)
{
    allocate(6);
    free_slots({0, 1, 254, 255});

    EXPECT_THAT(allocate(4), ElementsAre(0, 255, 1, 254));
}

TEST_F(SdkUserTable, GivesEverySlotOnceAndThenNone)
{
    std::vector<int> slots = allocate(256);
    std::sort(slots.begin(), slots.end());
    for (int i = 0; i < 256; i++) {
        EXPECT_EQ(slots[static_cast<size_t>(i)], i);
    }
    EXPECT_EQ(alloc_sdkuser(), -1);
}

TEST_F(SdkUserTable, KeepsItsDirectionWhenItIsFullOnTheWayUp)
{
    allocate(256);

    EXPECT_EQ(alloc_sdkuser(), -1);
    free_slots({10, 200});

    EXPECT_EQ(alloc_sdkuser(), 10);
}

TEST_F(SdkUserTable, KeepsItsDirectionWhenItIsFullOnTheWayDown)
{
    allocate(256);
    free_slots({100});
    EXPECT_EQ(alloc_sdkuser(), 100);

    EXPECT_EQ(alloc_sdkuser(), -1);
    free_slots({10, 200});

    EXPECT_EQ(alloc_sdkuser(), 200);
}

TEST_F(SdkUserTable, TurnsAroundEvenWhenMemoryIsShort)
{
    {
        const fault memory("mmap", ENOMEM);
        EXPECT_EQ(alloc_sdkuser(), -1);
        EXPECT_EQ(memory.hits(), 1);
    }
    EXPECT_EQ(sdk_users[0], nullptr);
    EXPECT_THAT(allocate(2), ElementsAre(255, 0));
}

TEST_F(SdkUserTable, DoesNotAllocateWhenItIsFull)
{
    allocate(256);
    const before_call memory("mmap");

    EXPECT_EQ(alloc_sdkuser(), -1);

    EXPECT_EQ(memory.count(), 0);
}

TEST_F(SdkUserTable, RemembersItsDirectionAcrossDeInit)
{
    EXPECT_EQ(alloc_sdkuser(), 0);
    free_sdkuser(0);
    ZU_NET_DEV_DeInit();
    ZU_NET_DEV_Init();
    EXPECT_EQ(alloc_sdkuser(), 255);
}

TEST_F(SdkUserTable, LoginRefusesWhenItIsFull)
{
    allocate(256);
    const log_tap log(1);
    ZU_U32 handle = 7;

    EXPECT_EQ(ZU_NET_DEV_Login(&handle, "u", "p", "127.0.0.1", 1), ZU_FAILURE);

    EXPECT_EQ(handle, 7U);
    EXPECT_TRUE(all_told(log, "alloc_sdkuser", 1, {error("sdk user number full!\n")}));
}

TEST_F(SdkUserTable, LoginRefusesWhenMemoryIsShort)
{
    const fault memory("mmap", ENOMEM);
    const log_tap log(1);
    ZU_U32 handle = 7;

    EXPECT_EQ(ZU_NET_DEV_Login(&handle, "u", "p", "127.0.0.1", 1), ZU_FAILURE);

    EXPECT_EQ(handle, 7U);
    EXPECT_TRUE(all_told(log, "alloc_sdkuser", 1, {error("alloc sdk user fail!\n")}));
}

TEST(SdkUserHandles, OfTheFirstLoginsCountFromBothEnds)
{
    const inventory before;
    {
        const library inited(1);
        serving_device device;
        live_login first(device.port());
        live_login second(device.port());
        live_login third(device.port());
        EXPECT_EQ(first.handle(), 0x43210000U);
        EXPECT_EQ(second.handle(), 0x432100FFU);
        EXPECT_EQ(third.handle(), 0x43210001U);
        EXPECT_EQ(sdk_users[255]->handle, 0x432100FFU);
    }
    EXPECT_EQ(before.left_over(), "");
}

// ---- handles -----------------------------------------------------------------------------------

TEST_F(SdkUserTable, LooksAtTheLowHalfOfAHandleOnly)
{
    allocate(11); // slots 0 to 5 and 251 to 255

    EXPECT_TRUE(reaches(0x43210005, 5));
    EXPECT_TRUE(reaches(0x00000005, 5));
    EXPECT_TRUE(reaches(0xFFFF0005, 5));
    EXPECT_TRUE(reaches(0x432100FF, 255));
    EXPECT_TRUE(reaches(0x000000FF, 255));
}

TEST_F(SdkUserTable, FindsNothingInAFreeOrFreedSlot)
{
    allocate(1);
    EXPECT_TRUE(held_user(1).missing());
    EXPECT_FALSE(held_user(0).missing());
    free_sdkuser(0);
    EXPECT_TRUE(held_user(0).missing());
}

TEST_F(SdkUserTable, FindsNothingBeyondItsEnd)
{
    allocate(1); // a look-up by the low 8 bits would find it
    for (const ZU_U32 handle : {0x43210100U, 0x00000100U, 0x43218000U, 0x4321FF00U, 0x4321FFFFU}) {
        EXPECT_TRUE(held_user(handle).missing()) << handle;
        EXPECT_EQ(free_sdkuser(handle), -1) << handle;
    }
    EXPECT_NE(sdk_users[0], nullptr);
}

TEST_F(SdkUserTable, FreesASlotByALenientHandleToo)
{
    allocate(1);
    EXPECT_EQ(free_sdkuser(0x00000000), 0);
    EXPECT_EQ(sdk_users[0], nullptr);
    EXPECT_EQ(free_sdkuser(0x00000000), -1);
}

// ---- lines -------------------------------------------------------------------------------------

class SdkUserTableLines : public SdkUserTable, public with_level
{
};

TEST_P(SdkUserTableLines, OfAnAllocation)
{
    allocate(1);
    const log_tap log(level);
    alloc_sdkuser();
    EXPECT_TRUE(all_told(log, "alloc_sdkuser", level, {trace("alloc sdk user:255\n")}));
}

TEST_P(SdkUserTableLines, OfAFullTable)
{
    allocate(256);
    const log_tap log(level);
    alloc_sdkuser();
    EXPECT_TRUE(all_told(log, "alloc_sdkuser", level, {error("sdk user number full!\n")}));
}

TEST_P(SdkUserTableLines, OfMissingMemory)
{
    const fault memory("mmap", ENOMEM);
    const log_tap log(level);
    alloc_sdkuser();
    EXPECT_TRUE(all_told(log, "alloc_sdkuser", level, {error("alloc sdk user fail!\n")}));
}

TEST_P(SdkUserTableLines, OfALookUpThatFindsARecord)
{
    allocate(1);
    const log_tap log(level);
    EXPECT_TRUE(reaches(0, 0));
    free_sdkuser(0);
    EXPECT_TRUE(all_told(log, "", level, {}));
}

TEST_P(SdkUserTableLines, OfALookUpBeyondTheEnd)
{
    const log_tap log(level);
    EXPECT_EQ(get_sdkuser(0x43210100), nullptr);
    EXPECT_EQ(get_sdkuser(0x4321FFFF), nullptr);
    EXPECT_TRUE(
        all_told(log, "get_sdkuser", level,
                 {error(" index invalid! index: 256\n"), error(" index invalid! index: 65535\n")}));
}

TEST_P(SdkUserTableLines, OfALookUpOfAFreeSlot)
{
    const log_tap log(level);
    EXPECT_EQ(get_sdkuser(0x43210005), nullptr);
    EXPECT_EQ(get_sdkuser(0x000000FF), nullptr);
    EXPECT_TRUE(
        all_told(log, "get_sdkuser", level,
                 {error("sdkuser invalid! index: 5\n"), error("sdkuser invalid! index: 255\n")}));
}

TEST_P(SdkUserTableLines, OfAReleaseBeyondTheEnd)
{
    const log_tap log(level);
    free_sdkuser(0x43210100);
    free_sdkuser(0x4321FFFF);
    EXPECT_TRUE(
        all_told(log, "free_sdkuser", level,
                 {error(" index invalid! index: 256\n"), error(" index invalid! index: 65535\n")}));
}

TEST_P(SdkUserTableLines, OfAReleaseOfAFreeSlot)
{
    const log_tap log(level);
    free_sdkuser(0x43210005);
    EXPECT_TRUE(all_told(log, "free_sdkuser", level, {error("sdkuser invalid! index: 5\n")}));
}

INSTANTIATE_TEST_SUITE_P(AtEveryLevel, SdkUserTableLines, all_levels(), level_name);
