// What the virtual camera answers and sends, byte by byte, seen
// by a client that knows the wire and nothing else. Golden bytes
// are written by hand. Numbered frames stand in for pictures,
// which have their tests elsewhere.
#include "camera_client.h"
#include "eventually.h"
#include "virtual_camera/camera.h"
#include "virtual_camera/numbered.h"

#include <gtest/gtest.h>

namespace
{

using tools::bytes;
using tools::camera_client;
using tools::from_hex;
using tools::received;

zucam::camera_options numbered(unsigned fps = 200)
{
    zucam::camera_options options;
    options.numbered_size = 100;
    options.fps = fps;
    options.seed = 7;
    return options;
}

bytes config_message(const std::string& header, const std::string& start_of_payload)
{
    bytes message = tools::joined({from_hex(header), from_hex(start_of_payload)});
    message.resize(3152);
    return message;
}

TEST(CameraWire, AStartIsAnsweredThenTheSystemHeaderComesThenFrames)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    client.send(from_hex("01100000 08000000 39300000 01000000 01000000"));

    EXPECT_EQ(client.next().whole, from_hex("02100000 04000000 39300000 00000000"));
    EXPECT_EQ(client.next().whole, from_hex("00110000 1c000000 00000000 46535953 80020000 68010000"
                                            "00000000 01000000 c8000000 00040000"));
    EXPECT_EQ(client.next().flag(), "KTVF");
}

TEST(CameraWire, AnswersEchoTheWholeWaitPort)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    client.send(from_hex("51100000 04000000 efbeadde 00000000"));
    EXPECT_EQ(client.next().whole, from_hex("52100000 04000000 efbeadde 00000000"));
}

TEST(CameraWire, AStopIsAnsweredAndNothingFollowsIt)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    client.send_start(0);
    ASSERT_TRUE(client.next_with_flag("KTVF"));
    client.send(from_hex("11100000 08000000 01020000 00000000 01000000"));

    EXPECT_EQ(client.next_of_type(0x1012).whole, from_hex("12100000 04000000 01020000 00000000"));
    EXPECT_TRUE(client.is_quiet(std::chrono::milliseconds(200)));
}

TEST(CameraWire, AHeartbeatIsAnsweredByABareHeader)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    client.send(from_hex("21100000 00000000 39300000"));
    EXPECT_EQ(client.next().whole, from_hex("22100000 00000000 39300000"));
}

TEST(CameraWire, MovementAndPresetsAreAccepted)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    client.send(from_hex("31100000 08000000 39300000 02000000 05000000"));
    client.send(from_hex("41100000 08000000 3a300000 01000000 09000000"));
    EXPECT_EQ(client.next().whole, from_hex("32100000 04000000 39300000 00000000"));
    EXPECT_EQ(client.next().whole, from_hex("42100000 04000000 3a300000 00000000"));
}

TEST(CameraWire, ASettingIsWrittenWithAOneWordAnswer)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    client.send(config_message("61100000 440c0000 39300000", "51100000"));
    EXPECT_EQ(client.next().whole, from_hex("62100000 04000000 39300000 00000000"));
}

TEST(CameraWire, ASettingIsReadAs3152BytesWithItsCommand)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    client.send(config_message("71100000 440c0000 39300000", "18300000"));
    EXPECT_EQ(client.next().whole,
              config_message("72100000 440c0000 39300000", "18300000 00000000"));
}

TEST(CameraWire, AStreamThatIsNotThereIsRefused)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    client.send_start(4);
    EXPECT_EQ(client.next().whole, from_hex("02100000 04000000 39300000 02000000"));
    client.send(from_hex("51100000 04000000 39300000 ffffffff"));
    EXPECT_EQ(client.next().whole, from_hex("52100000 04000000 39300000 02000000"));
    EXPECT_TRUE(client.is_quiet(std::chrono::milliseconds(100)));
}

TEST(CameraWire, AnUnknownRequestIsJournalledAndLeftUnanswered)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    client.send(from_hex("01200000 02000000 00000000 aabb"));
    client.send(from_hex("21100000 00000000 00000000"));
    EXPECT_EQ(client.next().type(), 0x1022U);
    EXPECT_EQ(camera.journal().front().payload, from_hex("aabb"));
}

TEST(CameraWire, RequestsInPiecesAndInOnePieceAreUnderstood)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    const bytes request = from_hex("51100000 04000000 01000000 00000000");
    for (const std::uint8_t byte : request) {
        client.send({byte});
    }
    client.send(tools::joined({request, request}));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(client.next().whole, from_hex("52100000 04000000 01000000 00000000"));
    }
}

TEST(CameraWire, ARequestWithANegativeLengthEndsTheLink)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    client.send(from_hex("01100000 ffffffff 00000000"));
    EXPECT_TRUE(client.ends());
}

TEST(CameraWire, NumberedFramesFollowEachOtherAndFollowFromTheSeed)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    client.send_start(2);
    for (std::uint32_t number = 0; number < 20; ++number) {
        const auto message = client.next_with_flag("KTVF");
        ASSERT_TRUE(message);
        const bytes body = message.payload();
        EXPECT_EQ(body.size(), 100U);
        EXPECT_EQ(zucam::check_numbered_body(7, body.data(), body.size()), number);
        EXPECT_EQ(zucam::check_numbered_body(8, body.data(), body.size()), std::nullopt);
    }
}

TEST(CameraWire, ADamagedNumberedFrameIsNoticed)
{
    bytes body = zucam::numbered_body(1, 5, 30);
    EXPECT_EQ(zucam::check_numbered_body(1, body.data(), body.size()), 5U);
    body.back() ^= 1U;
    EXPECT_EQ(zucam::check_numbered_body(1, body.data(), body.size()), std::nullopt);
    EXPECT_EQ(zucam::check_numbered_body(1, body.data(), 7), std::nullopt);
}

TEST(CameraWire, TheJournalTellsTypeWaitPortPayloadAndTime)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    client.send(from_hex("21100000 00000000 00000000"));
    client.send(from_hex("31100000 08000000 39300000 02000000 05000000"));
    ASSERT_TRUE(client.next_of_type(0x1032));

    const auto journal = camera.journal();
    ASSERT_EQ(journal.size(), 2U);
    EXPECT_EQ(journal[0].type, 0x1021U);
    EXPECT_EQ(journal[1].type, 0x1031U);
    EXPECT_EQ(journal[1].wait_port, 0x3039U);
    EXPECT_EQ(journal[1].payload, from_hex("02000000 05000000"));
    EXPECT_EQ(journal[1].link, 1U);
    EXPECT_GE(journal[1].time_us, journal[0].time_us);
    EXPECT_EQ(camera.received(0x1021), 1U);
    EXPECT_EQ(camera.received(0), 2U);
}

TEST(CameraWire, AJournalEntryIsOneJsonObject)
{
    zucam::journal_entry entry{zucam::journal_event::request, 123, 4, 5, 0x1031, 6, {0x0a, 0xff}};
    EXPECT_EQ(zucam::to_json(entry),
              R"({"time_us":123,"camera":4,"link":5,"event":"request","type":"0x1031",)"
              R"("name":"ptz","wait_port":6,"payload":"0aff"})");
    entry = {zucam::journal_event::disconnected, 9, 0, 1, 0, 0, {}};
    EXPECT_EQ(zucam::to_json(entry), R"({"time_us":9,"camera":0,"link":1,"event":"disconnected"})");
}

} // namespace
