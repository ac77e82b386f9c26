// When the blocks of sound of a recording are heard.
#include "../../tools/zucam/media/sound_times.h"

#include <gtest/gtest.h>

namespace
{

using tool::sound_times;

constexpr std::int64_t second = tool::ticks_per_second;

TEST(SoundTimes, BlocksFollowEachOtherForAnHour)
{
    for (const std::int64_t size : {160, 320, 333, 1}) {
        sound_times times;
        for (std::int64_t heard = 0; heard < 3600 * 8000; heard += size) {
            const std::int64_t exact = heard * second / 8000;
            const std::int64_t late = heard % 7 * second / 100; // up to 60 ms
            ASSERT_EQ(times.take(static_cast<std::size_t>(size), exact + late), exact) << heard;
        }
    }
}

TEST(SoundTimes, AGapIsLeftAndNoTimeGoesBack)
{
    sound_times times;
    EXPECT_EQ(times.take(333, 0), 0);
    EXPECT_EQ(times.take(320, 5 * second), 5 * second);
    EXPECT_EQ(times.take(320, 5 * second), 5 * second + 3600) << "right behind the one before";
    EXPECT_EQ(times.take(8000, 4 * second), 5 * second + 7200) << "earlier than it can be heard";
    EXPECT_EQ(times.take(1, 5 * second), 6 * second + 7200);
}

} // namespace
