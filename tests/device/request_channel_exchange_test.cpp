// One exchange on the loopback request channel: what goes out, what counts as the reply, and what
// the caller finds in its buffer and its length.
//
// No worker runs here: the test's own socket stands where the sender thread listens.
#include <cerrno>
#include <sys/socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "request_channel.h"
#include "requester.h"
#include "seam.h"
#include "worker_stand.h"

using namespace support;

namespace
{

constexpr int untouched = 4711; // what the caller's length holds before the call
constexpr unsigned char unwritten = 0xEE;

struct outcome {
    int result;
    int rxlen;
    bytes buffer;
};

struct exchange : testing::Test {
    worker_stand stand{1};
    loopback_socket desk; // where requests arrive

    void SetUp() override
    {
        stand.user->int_port = desk.port();
    }
    std::future<outcome> call(const bytes& request = start_datagram())
    {
        return in_background([this, request] {
            bytes sent = request;
            outcome out = {0, untouched, bytes(request_block_size, unwritten)};
            out.result = udp_tx_rx(stand.user, sent.data(), static_cast<int>(sent.size()),
                                   out.buffer.data(), &out.rxlen);
            return out;
        });
    }
    void reply(const bytes& datagram)
    {
        ASSERT_TRUE(desk.send_to(desk.sender_port(), datagram));
    }
    // The whole exchange with one reply.
    outcome outcome_of(const bytes& datagram)
    {
        auto running = call();
        EXPECT_TRUE(desk.receive());
        reply(datagram);
        return running.get();
    }
    // The caller's buffer, when these bytes were written to its front and nothing else.
    static bytes buffer_with(bytes front)
    {
        front.resize(request_block_size, unwritten);
        return front;
    }
};

} // namespace

TEST_F(exchange, SendsTheMessageUnchangedInOneDatagram)
{
    auto running = call(start_datagram());
    EXPECT_EQ(desk.receive(), start_datagram());
    reply(text("enough"));
    running.get();
}

TEST_F(exchange, SendsAsManyBytesAsItWasTold)
{
    for (const size_t size : {0U, 1U, 12U, 3152U, 5120U}) {
        const bytes request = pattern(size);
        auto running = call(request);
        EXPECT_EQ(desk.receive(), request);
        reply(text("enough"));
        running.get();
    }
}

TEST_F(exchange, GivesTheReplyAndItsLength)
{
    const bytes response = make_message(0x1002, 0, le32(0));
    const outcome out = outcome_of(response);
    EXPECT_EQ(out.result, 16);
    EXPECT_EQ(out.rxlen, 16);
    EXPECT_EQ(out.buffer, buffer_with(response));
}

TEST_F(exchange, TakesAnEmptyReplyAsAReplyOfLength0)
{
    const outcome out = outcome_of({});
    EXPECT_EQ(out.result, 0);
    EXPECT_EQ(out.rxlen, 0);
    EXPECT_EQ(out.buffer, buffer_with({}));
}

TEST_F(exchange, LeavesTheRestOfTheBufferAfterAShortReply)
{
    const outcome out = outcome_of(hex("01 02 03 04 05"));
    EXPECT_EQ(out.result, 5);
    EXPECT_EQ(out.rxlen, 5);
    EXPECT_EQ(out.buffer, buffer_with(hex("01 02 03 04 05")));
}

TEST_F(exchange, TakesAReplyOf5120Bytes)
{
    const outcome out = outcome_of(pattern(5120));
    EXPECT_EQ(out.result, 5120);
    EXPECT_EQ(out.rxlen, 5120);
    EXPECT_EQ(out.buffer, pattern(5120));
}

TEST_F(exchange, CutsAReplyOf9000BytesTo5120)
{
    const outcome out = outcome_of(pattern(9000));
    EXPECT_EQ(out.result, 5120);
    EXPECT_EQ(out.rxlen, 5120);
    const bytes all = pattern(9000);
    EXPECT_EQ(out.buffer, bytes(all.begin(), all.begin() + 5120));
}

TEST_F(exchange, DoesNotLookAtWhatTheReplySays)
{
    const bytes nonsense = make_message(0x7777, -5, 99, text("whatever"));
    const outcome out = outcome_of(nonsense);
    EXPECT_EQ(out.result, 20);
    EXPECT_EQ(out.buffer, buffer_with(nonsense));
}

TEST_F(exchange, TakesTheFirstDatagramFromAnyoneAsTheReply)
{
    auto running = call();
    ASSERT_TRUE(desk.receive());
    loopback_socket stranger;
    ASSERT_TRUE(stranger.send_to(desk.sender_port(), text("from a stranger")));
    const outcome out = running.get();
    EXPECT_EQ(out.result, 15);
    EXPECT_EQ(out.buffer, buffer_with(text("from a stranger")));
}

TEST_F(exchange, TakesOnlyTheFirstOfTwoReplies)
{
    std::atomic<bool> both_sent{false};
    const before_call reads("recv", [&] { eventually([&] { return both_sent.load(); }); });
    auto running = call();
    ASSERT_TRUE(desk.receive());
    reply(text("first"));
    reply(text("second"));
    both_sent = true;
    EXPECT_EQ(running.get().buffer, buffer_with(text("first")));
    EXPECT_EQ(reads.count(), 1);
}

TEST_F(exchange, WritesTheReplyOverTheRequestInTheCallersOneBuffer)
{
    auto running = in_background([this] {
        bytes both = start_datagram();
        both.resize(request_block_size);
        int length = 20;
        udp_tx_rx(stand.user, both.data(), length, both.data(), &length);
        both.resize(20);
        return both;
    });
    ASSERT_TRUE(desk.receive());
    reply(hex("02 10"));
    bytes expected = start_datagram();
    expected[0] = 0x02;
    EXPECT_EQ(running.get(), expected);
}

TEST_F(exchange, UsesAFreshSocketThatIsGoneAfterwards)
{
    set_log_level(2);
    auto running = call();
    ASSERT_TRUE(desk.receive());
    int sock = -1;
    for (const auto& line : stand.log.messages_of("udp_tx_rx")) {
        sscanf(line.c_str(), "sock: %d\n", &sock);
    }
    int kind = 0;
    socklen_t length = sizeof(kind);
    ASSERT_EQ(getsockopt(sock, SOL_SOCKET, SO_TYPE, &kind, &length), 0);
    EXPECT_EQ(kind, SOCK_DGRAM);
    sockaddr_storage peer_address = {};
    length = sizeof(peer_address);
    EXPECT_EQ(getpeername(sock, reinterpret_cast<sockaddr*>(&peer_address), &length), -1);
    EXPECT_EQ(errno, ENOTCONN);
    reply({});
    running.get();
    EXPECT_EQ(getsockopt(sock, SOL_SOCKET, SO_TYPE, &kind, &length), -1);
}

TEST_F(exchange, PollsEvery30Milliseconds)
{
    const before_call polls("ppoll");
    auto running = call();
    ASSERT_TRUE(eventually([&] { return polls.count() >= 3; })); // set afresh for each
    EXPECT_EQ(last_wait().limit.tv_sec, 0);
    EXPECT_EQ(last_wait().limit.tv_usec, 30000);
    ASSERT_TRUE(desk.receive());
    reply({});
    running.get();
}

TEST_F(exchange, ReadsThePortOnceAtItsStart)
{
    loopback_socket other;
    const before_call making("socket", [&] { stand.user->int_port = other.port(); });
    auto running = call();
    EXPECT_TRUE(desk.receive());
    reply({});
    running.get();
    EXPECT_EQ(making.count(), 1);
}
