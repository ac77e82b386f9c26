// The receiver's relay: every response goes, header included, as one datagram to the loopback port
// that it names, and to nobody else.
//
// The test thread plays the device and the waiting callers.
#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <optional>
#include <sys/socket.h>

#include "receiver_kit.h"

using namespace support;

namespace
{

constexpr std::chrono::milliseconds at_once{0};

struct relayed_type {
    uint32_t type;
    const char* name;
};

void PrintTo(const relayed_type& relayed, std::ostream* out)
{
    *out << relayed.name;
}

class ReceiverRelaysResponse : public testing::TestWithParam<relayed_type>
{
};

std::string response_name(const testing::TestParamInfo<relayed_type>& info)
{
    return std::string(info.param.name).substr(15); // behind ZU_SDK_MSG_RES_
}

} // namespace

TEST_P(ReceiverRelaysResponse, WithItsTwoTraceLines)
{
    for (const int level : log_levels) {
        loopback_socket caller;
        receiver_stand stand(level);
        const bytes response =
            make_message(GetParam().type, caller.wait_port(), hex("07 00 00 00 aa bb cc dd"));
        stand.link.send(response);
        EXPECT_EQ(caller.receive(), response);
        expect_log_until_shut_down(stand,
                                   {trace(std::string("recv msg ") + GetParam().name + ":8\n"),
                                    sendto_line(caller.wait_port(), 20)});
    }
}

INSTANTIATE_TEST_SUITE_P(, ReceiverRelaysResponse,
                         testing::Values(relayed_type{0x1002, "ZU_SDK_MSG_RES_STARTSTREAM"},
                                         relayed_type{0x1012, "ZU_SDK_MSG_RES_STOPSTREAM"},
                                         relayed_type{0x1032, "ZU_SDK_MSG_RES_PTZ"},
                                         relayed_type{0x1042, "ZU_SDK_MSG_RES_PRESET"},
                                         relayed_type{0x1052, "ZU_SDK_MSG_RES_MAKEKEYFRAME"},
                                         relayed_type{0x1062, "ZU_SDK_MSG_RES_SETCONFIG"},
                                         relayed_type{0x1072, "ZU_SDK_MSG_RES_GETCONFIG"}),
                         response_name);

TEST(ReceiverRelay, UsesThePortFieldAsItIsStored)
{
    // 12345 is 0x3039: the bytes 30 39 of the socket address. Another program may hold the port for
    // a while; no other test sends to it.
    std::optional<loopback_socket> caller;
    ASSERT_TRUE(eventually([&] { return caller.emplace(12345).taken(); }));
    receiver_stand stand(2);
    const bytes response = hex("32 10 00 00  08 00 00 00  30 39 00 00  00 00 00 00  01 02 03 04");
    stand.link.send(response);
    EXPECT_EQ(caller->receive(), response);
    EXPECT_TRUE(stand.log.has(7, receiver_name, "sendto native port:14640 len:20\n"));
}

TEST(ReceiverRelay, SendsFromItsLoopbackSocket)
{
    receiver_stand stand;
    const int caller = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(own);
    ASSERT_EQ(bind(caller, reinterpret_cast<sockaddr*>(&own), length), 0);
    ASSERT_EQ(getsockname(caller, reinterpret_cast<sockaddr*>(&own), &length), 0);
    stand.link.send(make_message(0x1042, own.sin_port, le32(0)));

    char answer[100];
    sockaddr_in from = {};
    length = sizeof(from);
    EXPECT_EQ(
        recvfrom(caller, answer, sizeof(answer), 0, reinterpret_cast<sockaddr*>(&from), &length),
        16);
    EXPECT_EQ(ntohs(from.sin_port), stand.int_port());
    EXPECT_EQ(ntohl(from.sin_addr.s_addr), INADDR_LOOPBACK);
    close(caller);
}

TEST(ReceiverRelay, LooksAtTheLowSixteenBitsOfThePortOnly)
{
    loopback_socket caller;
    receiver_stand stand;
    const bytes response = make_message(0x1002, 0xABCD0000 | caller.wait_port(), le32(5));
    stand.link.send(response);
    EXPECT_EQ(caller.receive(), response); // the field itself travels on unchanged
}

TEST(ReceiverRelay, LogsTheNumberOneForAResponseWithoutABody)
{
    for (const int level : log_levels) {
        loopback_socket caller;
        receiver_stand stand(level);
        const bytes response = make_message(0x1012, caller.wait_port(), {});
        stand.link.send(response);
        EXPECT_EQ(caller.receive(), response);
        expect_log_until_shut_down(stand, {trace("msglen: 0, msgtype: 0x1012\n"),
                                           trace("recv msg ZU_SDK_MSG_RES_STOPSTREAM:1\n"),
                                           sendto_line(caller.wait_port(), 12)});
    }
}

TEST(ReceiverRelay, LogsTheResultOfTheLastReadOfTheBody)
{
    loopback_socket caller;
    const watched_steps steps;
    receiver_stand stand(2);
    const bytes response = make_message(0x1062, caller.wait_port(), pattern(11));
    stand.link.send(bytes(response.begin(), response.begin() + 20));
    ASSERT_TRUE(steps.show("wrw")); // it has looked for more of the body, and waits
    stand.link.send(bytes(response.begin() + 20, response.end()));
    EXPECT_EQ(caller.receive(), response);
    EXPECT_TRUE(stand.log.has(7, receiver_name, "recv msg ZU_SDK_MSG_RES_SETCONFIG:3\n"));
    EXPECT_TRUE(stand.log.has(7, receiver_name, sendto_line(caller.wait_port(), 23).message));
}

TEST(ReceiverRelay, LogsTheNumberOneAgainAfterAResponseWithABody)
{
    loopback_socket caller;
    receiver_stand stand(2);
    stand.link.send(make_message(0x1032, caller.wait_port(), pattern(40)) +
                    make_message(0x1042, caller.wait_port(), {}));
    EXPECT_TRUE(caller.receive());
    EXPECT_TRUE(caller.receive());
    EXPECT_TRUE(stand.log.has("recv msg ZU_SDK_MSG_RES_PTZ:40\n"));
    EXPECT_TRUE(stand.log.has("recv msg ZU_SDK_MSG_RES_PRESET:1\n"));
}

TEST(ReceiverRelay, RelaysAWholeSettingsAnswer)
{
    loopback_socket caller;
    receiver_stand stand;
    const bytes response = make_message(0x1072, caller.wait_port(), pattern(3140));
    stand.link.send(response);
    const auto got = caller.receive();
    ASSERT_TRUE(got);
    EXPECT_EQ(got->size(), 3152U);
    EXPECT_EQ(*got, response);
}

TEST(ReceiverRelay, GivesTwoCallersEachTheirOwn)
{
    loopback_socket first;
    loopback_socket second;
    receiver_stand stand;
    const bytes for_first = make_message(0x1032, first.wait_port(), le32(1));
    const bytes for_second = make_message(0x1032, second.wait_port(), le32(2));
    stand.link.send(for_second + for_first);
    EXPECT_EQ(first.receive(), for_first);
    EXPECT_EQ(second.receive(), for_second);
    EXPECT_FALSE(first.receive(at_once));
    EXPECT_FALSE(second.receive(at_once));
}

TEST(ReceiverRelay, SendsALateResponseIntoTheVoidAndGoesOn)
{
    loopback_socket caller;
    receiver_stand stand(1);
    // The port of the discard service: nobody's, and no later caller's either.
    const bytes late = make_message(0x1002, htons(9), le32(0));
    const bytes wanted = make_message(0x1002, caller.wait_port(), le32(0));
    stand.link.send(late + late + wanted);
    EXPECT_EQ(caller.receive(), wanted);
    EXPECT_TRUE(stand.log.lines().empty());
}

TEST(ReceiverRelay, ForwardsNeitherHeartbeatAnswersNorStreamDataNorUnknownTypes)
{
    loopback_socket caller;
    receiver_stand stand;
    const uint32_t port = caller.wait_port();
    const bytes response = make_message(0x1052, port, le32(0));
    stand.link.send(make_message(0x1022, port, le32(0)) + make_message(0x1100, port, text("KTVF")) +
                    make_message(0x1021, port, le32(0)) + make_message(0x1082, port, le32(0)) +
                    response);
    EXPECT_EQ(caller.receive(), response);
    EXPECT_FALSE(caller.receive(at_once));
}

TEST(ReceiverRelay, DropsAnUnknownTypeBetweenTwoResponses)
{
    loopback_socket caller;
    receiver_stand stand;
    const bytes first = make_message(0x1032, caller.wait_port(), le32(1));
    const bytes second = make_message(0x1042, caller.wait_port(), le32(2));
    stand.link.send(first + make_message(0x7777, caller.wait_port(), pattern(333)) + second);
    EXPECT_EQ(caller.receive(), first);
    EXPECT_EQ(caller.receive(), second);
}

TEST(ReceiverRelay, CallsNoCallback)
{
    loopback_socket caller;
    receiver_stand stand;
    stand.link.send(make_message(0x1002, caller.wait_port(), text("FSYS") + pattern(24)));
    ASSERT_TRUE(caller.receive());
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_EQ(stand.seen.block_count(), 1U);
    EXPECT_TRUE(stand.seen.events().empty());
}

TEST(ReceiverRelay, WorksWhateverTheStateOfTheUser)
{
    loopback_socket caller;
    receiver_stand stand;
    stand.user->used = -1;
    const bytes response = make_message(0x1002, caller.wait_port(), le32(0));
    stand.link.send(response);
    EXPECT_EQ(caller.receive(), response);
}

TEST(ReceiverRelay, SendsTheLargestDatagramThereIs)
{
    loopback_socket caller;
    receiver_stand stand;
    const bytes response = make_message(0x1072, caller.wait_port(), pattern(65507 - 12));
    stand.link.send(response);
    EXPECT_EQ(caller.receive(), response);
}

TEST(ReceiverRelay, EndsWhenAResponseIsLargerThanADatagram)
{
    loopback_socket caller;
    receiver_stand stand(1);
    stand.link.send(make_message(0x1072, caller.wait_port(), pattern(65508 - 12)));
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {error("sendto faill!\n")});
    EXPECT_FALSE(caller.receive(at_once));
}

TEST(ReceiverRelay, EndsWhenTheResponseNamesPortZero)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.link.send(make_message(0x1012, 0, le32(0)));
        ASSERT_TRUE(stand.receiver_ended());
        expect_log(stand, {trace("recv msg ZU_SDK_MSG_RES_STOPSTREAM:4\n"),
                           trace("sendto native port:0 len:16\n"), error("sendto faill!\n"),
                           exit_line("-1")});
    }
}

TEST(ReceiverRelay, EndsWhenTheSystemRefusesADatagram)
{
    for (const int level : log_levels) {
        loopback_socket caller;
        fault refused("sendto", ENOBUFS);
        receiver_stand stand(level);
        stand.link.send(make_message(0x1002, caller.wait_port(), le32(0)));
        ASSERT_TRUE(stand.receiver_ended());
        EXPECT_EQ(refused.hits(), 1);
        EXPECT_FALSE(caller.receive(at_once));
        expect_log(stand, {trace("recv msg ZU_SDK_MSG_RES_STARTSTREAM:4\n"),
                           sendto_line(caller.wait_port(), 16), error("sendto faill!\n"),
                           exit_line("-1")});
    }
}
