// Each fault of the virtual camera, seen from the other end of the wire: what a
// client that knows only the protocol gets to see of it. Numbered frames at a
// high rate, so that no encoder and no waiting is in the way. Times are only
// asserted downwards: nothing may come too early.
#include "camera_client.h"
#include "eventually.h"
#include "virtual_camera/camera.h"

#include <gtest/gtest.h>

namespace
{

using support::eventually;
using tools::bytes;
using tools::camera_client;
using tools::from_hex;
using tools::somebody_listens;

const char* const key_request = "51100000 04000000 39300000 00000000";
const char* const key_answer = "52100000 04000000 39300000 00000000";
constexpr std::chrono::milliseconds gap{300};

zucam::camera_options numbered(const zucam::faults& wrong)
{
    zucam::camera_options options;
    options.numbered_size = 64;
    options.fps = 100;
    options.initial_faults = wrong;
    return options;
}

// Messages until the connection ends.
int count_until_end(camera_client& client)
{
    int count = 0;
    while (client.next()) {
        ++count;
    }
    return count;
}

TEST(CameraFaults, RefusingCanBeSwitchedOnAndOffWhileLinksGoOn)
{
    zucam::camera camera(numbered({}));
    camera_client client(camera.port());
    zucam::faults wrong;
    wrong.refuse = true;
    camera.set_faults(wrong);
    EXPECT_FALSE(somebody_listens(camera.port()));
    client.send(from_hex(key_request));
    EXPECT_EQ(client.next().whole, from_hex(key_answer));
    camera.set_faults({});
    EXPECT_TRUE(somebody_listens(camera.port()));
}

TEST(CameraFaults, ACameraMayRefuseFromItsFirstMoment)
{
    zucam::faults wrong;
    wrong.refuse = true;
    const zucam::camera camera(numbered(wrong));
    EXPECT_FALSE(somebody_listens(camera.port()));
}

TEST(CameraFaults, AcceptAndCloseHappensAsOftenAsAsked)
{
    zucam::faults wrong;
    wrong.accept_and_close = 2;
    const zucam::camera camera(numbered(wrong));
    for (int i = 0; i < 2; ++i) {
        camera_client closed(camera.port());
        EXPECT_TRUE(closed.connected());
        EXPECT_TRUE(closed.ends());
    }
    camera_client served(camera.port());
    served.send(from_hex(key_request));
    EXPECT_EQ(served.next().whole, from_hex(key_answer));
    EXPECT_EQ(camera.counters().connections_total, 3U);
}

TEST(CameraFaults, ASilentCameraReadsAndSaysNothing)
{
    zucam::faults wrong;
    wrong.silent = true;
    const zucam::camera camera(numbered(wrong));
    camera_client client(camera.port());
    client.send_start(0);
    client.send(from_hex("21100000 00000000 00000000"));
    EXPECT_TRUE(eventually([&] { return camera.received(0) == 2; }));
    EXPECT_TRUE(client.is_quiet(std::chrono::milliseconds(200)));
}

TEST(CameraFaults, ALinkIsDroppedAfterExactlySoManyMessages)
{
    zucam::faults wrong;
    wrong.drop_after_messages = 5;
    const zucam::camera camera(numbered(wrong));
    for (int round = 0; round < 2; ++round) {
        camera_client client(camera.port());
        client.send_start(0);
        EXPECT_EQ(count_until_end(client), 5);
    }
}

TEST(CameraFaults, DropsEndWhenTheyAreUsedUp)
{
    zucam::faults wrong;
    wrong.drop_after_messages = 3;
    wrong.drop_times = 1;
    const zucam::camera camera(numbered(wrong));
    camera_client dropped(camera.port());
    dropped.send_start(0);
    EXPECT_EQ(count_until_end(dropped), 3);
    camera_client served(camera.port());
    served.send_start(0);
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(served.next());
    }
}

TEST(CameraFaults, ALinkIsDroppedAfterATime)
{
    const auto began = std::chrono::steady_clock::now();
    zucam::camera camera(numbered({}));
    camera_client client(camera.port());
    client.send_start(0);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(client.next());
    }
    // However long that took, the link is not that old yet.
    const auto so_far = std::chrono::steady_clock::now() - began;
    const auto age = std::chrono::ceil<std::chrono::milliseconds>(so_far) + gap;
    zucam::faults wrong;
    wrong.drop_after_time = age;
    camera.set_faults(wrong);
    EXPECT_TRUE(client.ends());
    EXPECT_GE(std::chrono::steady_clock::now() - began, age);
}

TEST(CameraFaults, ADropMayBeAReset)
{
    zucam::faults wrong;
    wrong.drop_after_messages = 2;
    wrong.drop_with_reset = true;
    const zucam::camera camera(numbered(wrong));
    camera_client client(camera.port());
    client.send_start(0);
    EXPECT_TRUE(client.ends());
    EXPECT_TRUE(client.ended_by_reset());
}

TEST(CameraFaults, SplitMessagesArriveWholeAllTheSame)
{
    zucam::faults wrong;
    wrong.split_bytes = true;
    const zucam::camera camera(numbered(wrong));
    camera_client client(camera.port());
    client.send(from_hex(key_request));
    EXPECT_EQ(client.next().whole, from_hex(key_answer));
    client.send_start(0);
    EXPECT_EQ(client.next_with_flag("KTVF").whole.size(), 76U);
}

TEST(CameraFaults, HeaderAndBodyComeApart)
{
    const bytes answer = from_hex(key_answer);
    zucam::faults wrong;
    wrong.header_apart = true;
    wrong.header_gap = std::chrono::hours(1); // so the header is alone whenever it is looked at
    const zucam::camera camera(numbered(wrong));
    camera_client client(camera.port());
    client.send(from_hex(key_request));
    EXPECT_EQ(client.next_piece(), bytes(answer.begin(), answer.begin() + 12));
}

TEST(CameraFaults, TheBodyFollowsAfterTheGap)
{
    zucam::faults wrong;
    wrong.header_apart = true;
    wrong.header_gap = gap;
    const zucam::camera camera(numbered(wrong));
    camera_client client(camera.port());
    const auto began = std::chrono::steady_clock::now();
    client.send(from_hex(key_request));
    EXPECT_EQ(client.next().whole, from_hex(key_answer));
    EXPECT_GE(std::chrono::steady_clock::now() - began, gap);
}

TEST(CameraFaults, AnswersComeLateAndInOrder)
{
    zucam::faults wrong;
    wrong.answer_delay = std::chrono::milliseconds(250);
    const zucam::camera camera(numbered(wrong));
    camera_client client(camera.port());
    const auto began = std::chrono::steady_clock::now();
    client.send_start(0);
    client.send(from_hex(key_request));
    EXPECT_EQ(client.next().type(), 0x1002U);
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(250));
    EXPECT_EQ(client.next().flag(), "FSYS");
    EXPECT_TRUE(client.next_of_type(0x1052));
}

TEST(CameraFaults, ARequestTypeMayNeverBeAnswered)
{
    zucam::faults wrong;
    wrong.never_answer = {0x1001, 0x1021};
    const zucam::camera camera(numbered(wrong));
    camera_client client(camera.port());
    client.send_start(0);
    client.send(from_hex("21100000 00000000 00000000"));
    client.send(from_hex(key_request));
    EXPECT_EQ(client.next().whole, from_hex(key_answer));
    EXPECT_TRUE(client.is_quiet(std::chrono::milliseconds(100)));
    EXPECT_EQ(camera.received(0), 3U);
}

TEST(CameraFaults, AnswersMayCarryAWrongWaitPort)
{
    zucam::faults wrong;
    wrong.wrong_wait_port = 0x01020304;
    const zucam::camera camera(numbered(wrong));
    camera_client client(camera.port());
    client.send(from_hex(key_request));
    EXPECT_EQ(client.next().whole, from_hex("52100000 04000000 04030201 00000000"));
    EXPECT_EQ(camera.journal().front().wait_port, 0x3039U) << "the journal has what came";
}

TEST(CameraFaults, UnknownMessagesComeBetweenKnownOnes)
{
    zucam::faults wrong;
    wrong.unknown_every = 2;
    const zucam::camera camera(numbered(wrong));
    camera_client client(camera.port());
    const bytes request = from_hex(key_request);
    client.send(tools::joined({request, request, request}));
    EXPECT_EQ(client.next().whole, from_hex(key_answer));
    EXPECT_EQ(client.next().whole, from_hex("017a0000 08000000 00000000 01020304 05060708"));
    EXPECT_EQ(client.next().whole, from_hex(key_answer));
    EXPECT_EQ(client.next().whole, from_hex(key_answer));
}

TEST(CameraFaults, AMessageTooLongComesOnceWithItsBody)
{
    zucam::faults wrong;
    wrong.odd_length = 2000000;
    wrong.odd_length_after = 1;
    const zucam::camera camera(numbered(wrong));
    camera_client client(camera.port());
    client.send(from_hex(key_request));
    EXPECT_EQ(client.next().whole, from_hex(key_answer));
    EXPECT_EQ(client.next().whole.size(), 2000012U);
    client.send(from_hex(key_request));
    EXPECT_EQ(client.next().whole, from_hex(key_answer));
}

TEST(CameraFaults, ANegativeOrHugeLengthComesAsABareHeader)
{
    zucam::faults wrong;
    wrong.odd_length = -12;
    wrong.odd_length_type = 0x1032;
    zucam::camera camera(numbered(wrong));
    camera_client client(camera.port());
    EXPECT_EQ(client.next_piece(), from_hex("32100000 f4ffffff 00000000"));
    wrong.odd_length = 0x7fffffff;
    camera.set_faults(wrong);
    EXPECT_EQ(client.next_piece(), from_hex("32100000 ffffff7f 00000000"));
}

TEST(CameraFaults, AnUrgentByteComesOnce)
{
    zucam::faults wrong;
    wrong.oob_after = 1;
    const zucam::camera camera(numbered(wrong));
    camera_client client(camera.port());
    client.send(from_hex(key_request));
    EXPECT_TRUE(client.urgent_byte_comes());
}

TEST(CameraFaults, NewFaultsReachLinksThatAreIdle)
{
    zucam::camera camera(numbered({}));
    camera_client client(camera.port());
    client.send(from_hex(key_request));
    ASSERT_TRUE(client.next());
    zucam::faults wrong;
    wrong.drop_after_messages = 1;
    camera.set_faults(wrong);
    EXPECT_TRUE(client.ends());
}

} // namespace
