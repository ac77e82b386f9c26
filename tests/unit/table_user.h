// The table of SDK users as its tests need it.
//
// table_user initialises the library and gives back every slot that a test has left taken. Runs on
// the test's thread; the record holds that a test takes are its own to drop.
#pragma once

#include <vector>

#include <gtest/gtest.h>

#include "log_tap.h"
#include "sdk_user.h"

namespace support
{

class table_user : public testing::Test
{
protected:
    table_user()
    {
        ZU_NET_DEV_Init();
    }
    ~table_user() override
    {
        set_log_level(0);
        for (int slot = 0; slot < 256; slot++) {
            if (sdk_users[slot] != nullptr) {
                free_sdkuser(static_cast<ZU_U32>(slot));
            }
        }
        ZU_NET_DEV_DeInit();
    }
};

// The slots of so many allocations, in order; -1 for those that fail.
inline std::vector<int> allocate(int count)
{
    std::vector<int> slots;
    for (int i = 0; i < count; i++) {
        slots.push_back(alloc_sdkuser());
    }
    return slots;
}

} // namespace support
