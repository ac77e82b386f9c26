// The sender thread as a forwarder: each request datagram from the loopback socket becomes the same
// bytes on the TCP connection, with the requester's port in wait_port.
//
// Only the sender runs here; the test is the requester and the device.
#include <algorithm>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "requester.h"
#include "seam.h"
#include "worker_stand.h"

using namespace support;

namespace
{

struct sender_forward : testing::Test {
    still_stand stand{1};
    loopback_socket requester;

    void SetUp() override
    {
        stand.start_sender();
    }
    void request(const bytes& datagram)
    {
        ASSERT_TRUE(requester.send_to(stand.int_port(), datagram));
    }
    // Proves that nothing else is on the way: the next bytes the device reads are these.
    void expect_next_request_intact()
    {
        request(start_datagram());
        EXPECT_EQ(stand.link.read_bytes(20), stamped(start_datagram(), requester.port()));
        EXPECT_TRUE(stand.sender_runs());
    }
};

} // namespace

TEST_F(sender_forward, StampsPort40000AsTheBytes9C40)
{
    std::optional<loopback_socket> on_40000; // another program may hold the port for a while
    ASSERT_TRUE(eventually([&] { return on_40000.emplace(40000).taken(); }));
    on_40000->send_to(stand.int_port(), start_datagram());
    EXPECT_EQ(stand.link.read_bytes(20),
              hex("01 10 00 00  08 00 00 00  9C 40 00 00  02 00 00 00  05 00 00 00"));
}

TEST_F(sender_forward, StampsWhateverPortTheRequesterHas)
{
    for (int i = 0; i < 8; i++) {
        loopback_socket one;
        one.send_to(stand.int_port(), start_datagram());
        EXPECT_EQ(stand.link.read_bytes(20), stamped(start_datagram(), one.port()));
    }
}

TEST_F(sender_forward, OverwritesAWaitPortThatTheRequesterHasSet)
{
    bytes datagram = start_datagram();
    std::fill_n(datagram.begin() + 8, 4, static_cast<unsigned char>(0xff));
    request(datagram);
    EXPECT_EQ(stand.link.read_bytes(20), stamped(datagram, requester.port()));
}

TEST_F(sender_forward, ForwardsABareHeaderOf12Bytes)
{
    request(hex("51 10 00 00  00 00 00 00  00 00 00 00"));
    EXPECT_EQ(stand.link.read_bytes(12),
              stamped(hex("51 10 00 00  00 00 00 00  00 00 00 00"), requester.port()));
}

TEST_F(sender_forward, ForwardsBytesThatAreNoKnownMessage)
{
    const bytes datagram = pattern(777);
    request(datagram);
    EXPECT_EQ(stand.link.read_bytes(777), stamped(datagram, requester.port()));
}

TEST_F(sender_forward, DoesNotCompareTheLengthWithTheSizeOfTheDatagram)
{
    const bytes datagram = make_message(0x1001, 4000, 0, pattern(8));
    request(datagram);
    EXPECT_EQ(stand.link.read_bytes(20), stamped(datagram, requester.port()));
    expect_next_request_intact();
}

TEST_F(sender_forward, ForwardsADatagramOf5120BytesWhole)
{
    const bytes datagram = pattern(5120);
    request(datagram);
    EXPECT_EQ(stand.link.read_bytes(5120), stamped(datagram, requester.port()));
    expect_next_request_intact();
}

TEST_F(sender_forward, CutsADatagramOf6000BytesTo5120)
{
    const bytes datagram = pattern(6000);
    request(datagram);
    const bytes cut(datagram.begin(), datagram.begin() + 5120);
    EXPECT_EQ(stand.link.read_bytes(5120), stamped(cut, requester.port()));
    expect_next_request_intact();
}

TEST_F(sender_forward, DropsADatagramOf11BytesWithALineAndGoesOn)
{
    request(pattern(11));
    expect_next_request_intact();
    EXPECT_TRUE(eventually([&] { return stand.log.has(0, sender_thread, "msg too short:11\n"); }));
}

TEST_F(sender_forward, DropsADatagramOfOneByteWithALineAndGoesOn)
{
    request(pattern(1));
    expect_next_request_intact();
    EXPECT_TRUE(eventually([&] { return stand.log.has(0, sender_thread, "msg too short:1\n"); }));
}

TEST_F(sender_forward, GoesOnAfterAFailedReadOfADatagram)
{
    const fault failing_read("recvfrom", ENOMEM, 1, 1);
    request(start_datagram()); // stays in the socket, the next pass reads it
    EXPECT_EQ(stand.link.read_bytes(20), stamped(start_datagram(), requester.port()));
    EXPECT_EQ(stand.log.count("recv data msg fail!\n"), 1);
    EXPECT_EQ(failing_read.hits(), 1);
    EXPECT_TRUE(stand.sender_runs());
}

TEST_F(sender_forward, DoesNotCompleteAPartialWrite)
{
    fault partial("send", 0, 1, 1);
    partial.on_thread(sender_thread).returning(5); // claimed to be sent, and nothing after it
    request(pattern(100));
    ASSERT_TRUE(eventually([&] { return partial.hits() == 1; }));
    expect_next_request_intact();
    EXPECT_TRUE(stand.log.lines().empty());
}

TEST_F(sender_forward, SendsEachRequestInOneCall)
{
    const before_call sends("send");
    request(pattern(5120));
    EXPECT_EQ(stand.link.read_bytes(5120).size(), 5120U);
    expect_next_request_intact();
    EXPECT_EQ(sends.count(), 2);
}

TEST_F(sender_forward, ForwardsRequestsInTheOrderOfTheirArrival)
{
    for (unsigned i = 0; i < 100; i++) {
        request(make_message(0x1051, 0, le32(i)));
    }
    for (unsigned i = 0; i < 100; i++) {
        EXPECT_EQ(stand.link.read_bytes(16),
                  stamped(make_message(0x1051, 0, le32(i)), requester.port()));
    }
}

TEST_F(sender_forward, KeepsTheRequestsOfManyRequestersWhole)
{
    constexpr int requesters = 8;
    constexpr int each = 10;
    const auto datagram_of = [](int who) {
        return make_message(0x1001, 0, pattern(600, static_cast<unsigned>(who)));
    };
    std::vector<loopback_socket> sockets(requesters);
    std::vector<std::thread> threads;
    for (int who = 0; who < requesters; who++) {
        threads.emplace_back([&, who] {
            for (int i = 0; i < each; i++) {
                sockets[static_cast<size_t>(who)].send_to(stand.int_port(), datagram_of(who));
            }
        });
    }
    std::vector<bytes> wanted;
    std::vector<bytes> read;
    for (int i = 0; i < requesters * each; i++) {
        const auto port = sockets[static_cast<size_t>(i / each)].port();
        wanted.push_back(stamped(datagram_of(i / each), port));
        read.push_back(stand.link.read_bytes(612));
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(read, testing::UnorderedElementsAreArray(wanted));
}

TEST_F(sender_forward, WaitsHalfASecondAfreshInEachPass)
{
    const before_call waits("ppoll");
    ASSERT_TRUE(eventually([&] { return waits.count() >= 2; }));
    EXPECT_EQ(last_wait().limit.tv_sec, 0);
    EXPECT_EQ(last_wait().limit.tv_usec, 500000);
    EXPECT_THAT(last_wait().descriptors, testing::ElementsAre(stand.user->int_sock.load(),
                                                              stand.user->shutdown_pipe_sender[0]));
}

TEST_F(sender_forward, RunsOnAThreadOfItsName)
{
    EXPECT_EQ(threads_named(sender_thread), 1);
    EXPECT_EQ(stand.user->msgsender_started, 1);
}
