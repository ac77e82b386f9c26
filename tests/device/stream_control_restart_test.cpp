// in_startstream: how often it tries, when it pauses, what each attempt sends, and what counts as
// success. And the restart of a stream that was started and stopped, after a reconnection.
//
// The attempts and pauses of a call are written down as letters: a for an attempt's sendto, p for a
// pause of one second. Where a test needs no real pause, the pause returns at once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "live_login.h"
#include "requester.h"
#include "seam.h"
#include "stream_control.h"
#include "worker_stand.h"

using namespace support;
using testing::ElementsAre;

namespace
{

struct restart : testing::Test {
    worker_stand stand{0};
    loopback_socket desk;
    int own_port = 0; // of the stand's own loopback socket, which the sender reads

    void SetUp() override
    {
        own_port = stand.user->int_port.exchange(desk.port());
        stand.user->stream_info.u32Stream = 2;
        stand.user->stream_info.u8Type = 5;
    }
    std::future<int> call()
    {
        return in_background([this] { return in_startstream(stand.handle()); });
    }
    void reply(const bytes& datagram)
    {
        ASSERT_TRUE(desk.send_to(desk.sender_port(), datagram));
    }
};

// Writes down attempts and pauses of one thread.
struct steps {
    std::string taken;
    const before_call attempts{"sendto", [this] { taken += 'a'; }};
    const before_call pauses{"usleep", [this] { taken += 'p'; }};
};

// Pauses of exactly one second are over at once.
struct no_pause : fault {
    no_pause() : fault("usleep", 0)
    {
        on_descriptor(1000000).returning(0);
    }
};

const bytes response_42 = make_message(0x1002, 0, le32(42));

} // namespace

TEST_F(restart, FourFailedAttemptsWithAPauseAfterEachButTheFirst)
{
    const fault failing("sendto", ENOBUFS);
    const no_pause pause;
    const steps seen;
    EXPECT_EQ(in_startstream(stand.handle()), -1);
    EXPECT_EQ(seen.taken, "aapapap");
    EXPECT_EQ(pause.hits(), 3);
}

TEST_F(restart, ThePausesLastThreeSecondsInAll)
{
    const fault failing("sendto", ENOBUFS);
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(in_startstream(stand.handle()), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::seconds(3));
    EXPECT_EQ(failing.hits(), 4);
}

TEST_F(restart, ASuccessEndsTheAttemptsAtOnce)
{
    const char* sequences[] = {"a", "aa", "aapa", "aapapa"};
    for (int failures = 0; failures <= 3; failures++) {
        const fault failing("sendto", ENOBUFS, 1, failures);
        const no_pause pause;
        const steps seen;
        auto running = call();
        EXPECT_EQ(desk.receive(), start_datagram());
        reply(response_42);
        EXPECT_EQ(running.get(), 42);
        EXPECT_EQ(seen.taken, sequences[failures]);
    }
}

TEST_F(restart, WithoutARecordOrWithTheLinkDownNothingIsTried)
{
    const steps seen;
    EXPECT_EQ(in_startstream(0x43210000 + 77), -1);
    stand.user->used = 0;
    EXPECT_EQ(in_startstream(stand.handle()), -1);
    EXPECT_EQ(seen.taken, "");
}

TEST_F(restart, AnEmptyReplyIsASuccessWithTheRequestsOwnWord)
{
    const steps seen;
    auto running = call();
    EXPECT_EQ(desk.receive(), start_datagram());
    reply({});
    EXPECT_EQ(running.get(), 2);
    EXPECT_EQ(seen.taken, "a");
}

TEST_F(restart, TheDevicesMinus1IsASuccess)
{
    const steps seen;
    auto running = call();
    EXPECT_EQ(desk.receive(), start_datagram());
    reply(make_message(0x1002, 0, le32(0xFFFFFFFFU)));
    EXPECT_EQ(running.get(), -1);
    EXPECT_EQ(seen.taken, "a");
}

TEST_F(restart, AFailedReceiveMakesTheNextAttemptAnEmptyDatagram)
{
    fault unreadable("recv", EIO, 1, 1);
    unreadable.on_thread(caller_thread);
    auto running = call();
    EXPECT_EQ(desk.receive(), start_datagram());
    reply(text("this is never read"));
    EXPECT_EQ(desk.receive(), bytes());
    reply(response_42);
    EXPECT_EQ(running.get(), 42);
}

TEST_F(restart, TheLengthStays0WhileLaterAttemptsCannotBeSent)
{
    fault unreadable("recv", EIO, 1, 1);
    unreadable.on_thread(caller_thread);
    const fault unsendable("sendto", ENOBUFS, 2, 2);
    const no_pause pause;
    auto running = call();
    EXPECT_EQ(desk.receive(), start_datagram());
    reply(text("this is never read"));
    EXPECT_EQ(desk.receive(), bytes());
    reply(response_42);
    EXPECT_EQ(running.get(), 42);
    EXPECT_EQ(unsendable.hits(), 2);
}

TEST_F(restart, TheLengthStays20WhileNoReplyWasReceived)
{
    const fault unsendable("sendto", ENOBUFS, 1, 1);
    const fault no_socket("socket", EMFILE, 2, 1);
    const no_pause pause;
    auto running = call();
    EXPECT_EQ(desk.receive(), start_datagram()); // the third attempt
    reply(response_42);
    EXPECT_EQ(running.get(), 42);
    EXPECT_EQ(unsendable.hits() + no_socket.hits(), 2);
}

TEST_F(restart, AnyNegativeResultIsAFailureHereAndOnlyMinus1IsElsewhere)
{
    {
        fault odd("recv", 0, 1, 1);
        odd.on_thread(caller_thread).returning(-2);
        auto running =
            in_background([this] { return ZU_NET_DEV_MakeKeyFrame(stand.handle(), 14); });
        EXPECT_TRUE(desk.receive());
        reply(response_42);
        EXPECT_EQ(running.get(), 3); // the request's own word
    }
    fault odd("recv", 0, 1, 1);
    odd.on_thread(caller_thread).returning(-2);
    const fault unsendable("sendto", ENOBUFS, 2);
    const no_pause pause;
    auto running = call();
    EXPECT_TRUE(desk.receive());
    reply(response_42);
    EXPECT_EQ(running.get(), -1);
    EXPECT_EQ(unsendable.hits(), 3);
}

TEST_F(restart, TheEmptyDatagramEndsTheSender)
{
    stopped_clock clock;
    set_log_level(1); // so that the attempt that meets no sender ends by the limit
    stand.user->int_port = own_port;
    stand.start_receiver();
    stand.start_sender();
    fault unreadable("recv", EIO, 1, 1);
    unreadable.on_thread(caller_thread);
    auto running = call();
    const auto request = stand.link.read_request();
    ASSERT_TRUE(request);
    ASSERT_TRUE(stand.link.send(answer(*request, 0)));
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_TRUE(stand.log.has(0, sender_thread, "recvfrom ret: 0, break\n"));
    const before_call polls("ppoll"); // the caller's, and some of the receiver's
    ASSERT_TRUE(eventually([&] { return polls.count() >= 5; }));
    clock.advance(4);

    stand.user->int_port = desk.port(); // the third attempt is answered at the desk
    EXPECT_EQ(desk.receive(), bytes());
    reply(response_42);
    EXPECT_EQ(running.get(), 42);
}

// ---- a device that does not answer -------------------------------------------------------------

TEST_F(restart, ASilentDeviceCostsFourLimitsAndThreePauses)
{
    set_log_level(1);
    const auto begun = std::chrono::steady_clock::now();
    auto running = call();
    for (int i = 0; i < 4; i++) {
        EXPECT_EQ(desk.receive(), start_datagram());
    }
    EXPECT_EQ(running.get(), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(14900));
    EXPECT_THAT(stand.log.messages_of("udp_tx_rx"),
                ElementsAre("select wait for 3 seconds timeout!\n", "leave udp_tx_rx\n",
                            "select wait for 3 seconds timeout!\n", "leave udp_tx_rx\n",
                            "select wait for 3 seconds timeout!\n", "leave udp_tx_rx\n",
                            "select wait for 3 seconds timeout!\n", "leave udp_tx_rx\n"));
    EXPECT_EQ(stand.log.lines().size(), 8U);
}

namespace
{

void expect_first_attempt_waits_on(restart& test, int level)
{
    set_log_level(level);
    const steps seen;
    auto running = test.call();
    EXPECT_EQ(test.desk.receive(), start_datagram());
    EXPECT_TRUE(all_along([&] { return still_waiting(running); }, std::chrono::milliseconds(6000)));
    test.reply(response_42);
    EXPECT_EQ(running.get(), 42);
    EXPECT_EQ(seen.taken, "a");
}

} // namespace

TEST_F(restart, AtLevel0TheFirstAttemptWaitsOnAfterSixSeconds)
{
    expect_first_attempt_waits_on(*this, 0);
}

TEST_F(restart, AtLevelMinus1TheFirstAttemptWaitsOnAfterSixSeconds)
{
    expect_first_attempt_waits_on(*this, -1);
}

// ---- after a reconnection ----------------------------------------------------------------------

TEST(restart_after_reconnection, AStoppedStreamIsStartedAgainAndAskedForAKeyFrame)
{
    const inventory before;
    {
        const stopped_clock still; // no request and no link runs into its limit
        const library in_use(1);
        serving_device device;
        live_login login(device.port());
        ASSERT_EQ(login.result(), 0);
        ASSERT_TRUE(login.watch());
        EXPECT_EQ(login.start_stream(2, 5), 0);
        EXPECT_EQ(ZU_NET_DEV_StopStream(login.handle()), 0);
        device.drop_links();
        ASSERT_TRUE(login.seen.wait_for_event(ZU_NET_DEV_CONNECTED)); // told after the restart

        std::vector<uint32_t> types;
        for (const auto& request : device.received()) {
            types.push_back(request.type);
        }
        EXPECT_THAT(types, ElementsAre(0x1001, 0x1011, 0x1001, 0x1051));
        EXPECT_EQ(device.received(0x1001).back().body, hex("02 00 00 00  05 00 00 00"));
        EXPECT_EQ(device.received(0x1051).back().body, hex("02 00 00 00"));
    }
    EXPECT_EQ(before.left_over(), "");
}
