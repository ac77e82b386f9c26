// What the device manager asks of the device once a link is up again: the stream that was started
// on this login, and a key frame of it.
#include "login_kit.h"

using namespace support;

namespace
{

class StreamRestart : public testing::TestWithParam<int>
{
protected:
    void lose_and_regain()
    {
        requests_before = device.received().size();
        drop(device);
        ASSERT_TRUE(login.seen.wait_for_event(ZU_NET_DEV_CONNECTED));
    }
    // The requests of the new connection, as bytes without their ports.
    std::vector<bytes> new_requests() const
    {
        std::vector<bytes> out;
        const auto all = device.received();
        for (size_t i = requests_before; i < all.size(); i++) {
            out.push_back(make_message(all[i].type, all[i].len, 0, all[i].body));
        }
        return out;
    }

    const library lib{1};
    serving_device device;
    live_login login{device.port()};
    size_t requests_before = 0;
};

// The wire bytes of both requests for one stream, ports left out.
bytes start_of(unsigned stream, unsigned type)
{
    return hex("01 10 00 00  08 00 00 00  00 00 00 00") + le32(stream) + le32(type);
}
bytes key_frame_of(unsigned stream)
{
    return hex("51 10 00 00  04 00 00 00  00 00 00 00") + le32(stream);
}

std::function<void(peer&, const message&)> refuses_starts(int32_t code)
{
    return
        [code](peer& end, const message& m) { answers_with(m.type == 0x1001 ? code : 0)(end, m); };
}

} // namespace

TEST_P(StreamRestart, AsksForTheStreamThenForItsKeyFrame)
{
    const auto stream = static_cast<ZU_U32>(GetParam());
    ASSERT_TRUE(login.watch());
    ASSERT_EQ(login.start_stream(stream, 7), 0);
    lose_and_regain();
    EXPECT_THAT(new_requests(), testing::ElementsAre(start_of(stream, 7), key_frame_of(stream)));
}

INSTANTIATE_TEST_SUITE_P(Stream, StreamRestart, testing::Values(0, 1, 2, 3));

using StreamRestartOnce = StreamRestart;
INSTANTIATE_TEST_SUITE_P(Once, StreamRestartOnce, testing::Values(0));

TEST_P(StreamRestartOnce, ComesAlsoWhenTheStreamHasBeenStopped)
{
    ASSERT_TRUE(login.watch());
    ASSERT_EQ(login.start_stream(2), 0);
    ASSERT_EQ(ZU_NET_DEV_StopStream(login.handle()), 0);
    lose_and_regain();
    EXPECT_THAT(new_requests(), testing::ElementsAre(start_of(2, 1), key_frame_of(2)));
}

TEST_P(StreamRestartOnce, ComesAlsoWhenTheDeviceHadRefusedTheStart)
{
    device.behave({[](peer&) { return true; }, refuses_starts(9)});
    ASSERT_TRUE(login.watch());
    ASSERT_EQ(login.start_stream(1), 9);
    lose_and_regain();
    EXPECT_THAT(new_requests(), testing::ElementsAre(start_of(1, 1), key_frame_of(1)));
}

TEST_P(StreamRestartOnce, ComesAlsoWhenTheStartWasNeverAnswered)
{
    device.behave({[](peer&) { return true; },
                   [](peer& end, const message& m) {
                       if (m.type != 0x1001) {
                           answers_with(0)(end, m);
                       }
                   }});
    ASSERT_TRUE(login.watch());
    ASSERT_EQ(login.start_stream(3), -1);
    device.behave({});
    lose_and_regain();
    EXPECT_THAT(new_requests(), testing::ElementsAre(start_of(3, 1), key_frame_of(3)));
}

TEST_P(StreamRestartOnce, IgnoresWhatTheDeviceAnswers)
{
    ASSERT_TRUE(login.watch());
    ASSERT_EQ(login.start_stream(0), 0);
    device.behave({[](peer&) { return true; }, answers_with(-1)});
    lose_and_regain();
    EXPECT_THAT(new_requests(), testing::ElementsAre(start_of(0, 1), key_frame_of(0)));
    EXPECT_TRUE(login.wait_until_up());
}

TEST_P(StreamRestartOnce, AsksForNothingWhenNoStreamWasEverStarted)
{
    ASSERT_TRUE(login.watch());
    ASSERT_EQ(ZU_NET_DEV_MakeKeyFrame(login.handle(), 11), 0);
    lose_and_regain();
    EXPECT_THAT(new_requests(), testing::ElementsAre());
}

TEST_P(StreamRestartOnce, AsksForNothingWhenTheArgumentsOfTheStartWereBad)
{
    ASSERT_TRUE(login.watch());
    ASSERT_EQ(login.start_stream(4), -1);
    ASSERT_EQ(login.start_stream(0, 6), -1);
    lose_and_regain();
    EXPECT_THAT(new_requests(), testing::ElementsAre());
}

TEST_P(StreamRestartOnce, OfAStreamBeyondTheKnownOnesAsksForNoKeyFrame)
{
    ASSERT_TRUE(login.watch());
    ASSERT_EQ(login.start_stream(0), 0);
    {
        const held_user user(login.handle());
        user->stream_info.u32Stream = 4;
    }
    lose_and_regain();
    EXPECT_THAT(new_requests(), testing::ElementsAre(start_of(4, 1)));
}

TEST_P(StreamRestartOnce, UsesTheLatestStartAndBringsStreamDataAgain)
{
    ASSERT_TRUE(login.watch());
    ASSERT_EQ(login.start_stream(0), 0);
    ASSERT_EQ(login.start_stream(3, 5), 0);
    lose_and_regain();
    EXPECT_THAT(new_requests(), testing::ElementsAre(start_of(3, 5), key_frame_of(3)));
    EXPECT_EQ(device.send_to_all(stream_data("KTVF", pattern(50))), 1);
    EXPECT_TRUE(login.seen.wait_for_blocks(1));
}

TEST_P(StreamRestartOnce, CallsThePublicKeyFrameRequestWithAllItsLines)
{
    ASSERT_TRUE(login.watch());
    ASSERT_EQ(login.start_stream(0), 0);
    const log_tap log(2);
    lose_and_regain();
    EXPECT_TRUE(
        told_by(log, "ZU_NET_DEV_MakeKeyFrame", 2,
                {trace("enter ZU_NET_DEV_MakeKeyFrame\n"), trace("send msg_req_makekeyframe.\n"),
                 trace("get response code:0\n"), trace("leave ZU_NET_DEV_MakeKeyFrame\n")}));
    EXPECT_TRUE(told_by(log, "in_startstream", 2,
                        {trace("enter in_startstream\n"), trace("leave in_startstream\n")}));
    const size_t told = place_of(log, manager_name, "##### sdk_user->sinked == 1\n");
    const size_t started = place_of(log, "in_startstream", "enter in_startstream\n");
    const size_t asked =
        place_of(log, "ZU_NET_DEV_MakeKeyFrame", "enter ZU_NET_DEV_MakeKeyFrame\n");
    const size_t reported = place_of(log, manager_name, "call event_callback connected\n");
    EXPECT_LT(told, started);
    EXPECT_LT(started, asked);
    EXPECT_LT(asked, reported);
}
