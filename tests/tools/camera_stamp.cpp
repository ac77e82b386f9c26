// The stamp in every access unit: its bytes, and that only a whole,
// own one is found. Golden bytes are written by hand from the
// layout, emulation prevention included; the reader is fed foreign,
// cut and broken messages as well.
#include "camera_client.h"
#include "virtual_camera/stamp.h"

#include <gtest/gtest.h>

namespace
{

using tools::bytes;
using tools::from_hex;

const char* const uuid = "7a756361 6d2d4e1f 9b3c5d0e 71a8c246";

bytes sei(const std::string& payload)
{
    return from_hex("00000001 06" + payload + "80");
}

std::optional<zucam::stamp> find(const bytes& data)
{
    return zucam::find_stamp(data.data(), data.size());
}

TEST(CameraStamp, ItIsAnSeiMessageWithEmulationPreventionBytes)
{
    const zucam::stamp value{0x0102030405060708, 0x1112131415161718, 0x21222324, 0x00000003};
    const std::string fields = "0807060504030201 1817161514131211 24232221 03000003 00";
    EXPECT_EQ(zucam::stamp_nal(value), sei(std::string("0528") + uuid + fields));
}

TEST(CameraStamp, RunsOfZerosSurviveTheWayThere)
{
    const zucam::stamp value{0, 0x0000010000020000, 0, 1};
    const auto read = find(zucam::stamp_nal(value));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->sequence, value.sequence);
    EXPECT_EQ(read->time_us, value.time_us);
    EXPECT_EQ(read->stream, 1U);
}

TEST(CameraStamp, NoStartCodeAppearsInsideOne)
{
    for (std::uint64_t sequence = 0; sequence < 1024; ++sequence) {
        const bytes unit = zucam::stamp_nal({sequence << 8U, 0, 0, 0});
        EXPECT_EQ(tools::nal_types(unit).size(), 1U);
        EXPECT_EQ(find(unit)->sequence, sequence << 8U);
    }
}

TEST(CameraStamp, ItIsFoundBehindOtherUnitsAndOtherMessages)
{
    const bytes own = zucam::stamp_nal({9, 8, 7, 2});
    const bytes before = from_hex("00000001 67420000 00000001 68ce 00000001 0604aabbccdd80");
    EXPECT_EQ(find(tools::joined({before, own, from_hex("00000001 65888480")}))->sequence, 9U);
}

TEST(CameraStamp, ItIsFoundAsTheSecondMessageOfOneUnit)
{
    const std::string fields = "0901010101010101 0801010101010101 07010101 02010101";
    const auto read = find(sei("0402aabb 0528" + std::string(uuid) + fields));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->sequence, 0x0101010101010109U);
}

TEST(CameraStamp, ForeignAndBrokenOnesAreNoStamp)
{
    const bytes whole = zucam::stamp_nal({9, 8, 7, 2});
    for (std::size_t size = 0; size + 1 < whole.size(); ++size) {
        EXPECT_FALSE(zucam::find_stamp(whole.data(), size)) << size;
    }
    bytes foreign = whole;
    foreign[10] ^= 1U;
    EXPECT_FALSE(find(foreign));
    EXPECT_FALSE(find(sei("05ffffffffff")));
    EXPECT_FALSE(find({}));
}

} // namespace
