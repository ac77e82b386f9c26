// Many requests on one login at once: each caller gets the response that carries its own port, in
// whatever order the device answers, and a response that nobody waits for harms nobody.
#include <algorithm>
#include <random>
#include <thread>

#include <poll.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "live_login.h"
#include "request_channel.h"
#include "requester.h"
#include "seam.h"
#include "worker_stand.h"

using namespace support;

namespace
{

// A request with two words of its own, and the response that it is to get.
int response_code(int first, int second)
{
    return first * 1000 + second;
}

bytes exchange_words(zu_sdk_user* user, int first, int second)
{
    request_block block = make_request(0x1001, 8);
    block.msg.payload.startstream.stream = first;
    block.msg.payload.startstream.type = second;
    int length = 20;
    const int result = udp_tx_rx(user, &block, length, &block, &length);
    return bytes(block.bytes, block.bytes + std::max(result, 0));
}

// At level 0: a machine that stands still for three seconds must not cost a request.
struct routing : testing::Test {
    worker_stand stand{0};

    void SetUp() override
    {
        stand.start_receiver();
        stand.start_sender();
    }
    std::future<bytes> call(int first, int second)
    {
        return in_background([=] { return exchange_words(stand.user, first, second); });
    }
};

bytes response_to(const message& request)
{
    return answer(request, response_code(static_cast<int>(word_at(request.body, 0)),
                                         static_cast<int>(word_at(request.body, 4))));
}

} // namespace

TEST_F(routing, GivesTheCallerTheWholeResponseAsTheDeviceSentIt)
{
    auto running = call(1, 2);
    const auto request = stand.link.read_request();
    ASSERT_TRUE(request);
    const bytes response = answer(*request, -7, pattern(1000));
    ASSERT_TRUE(stand.link.send(response));
    EXPECT_EQ(running.get(), response);
}

TEST_F(routing, TwoCallersAnsweredInReverseGetTheirOwn)
{
    auto one = call(1, 1);
    const auto first = stand.link.read_request();
    auto two = call(2, 2);
    const auto second = stand.link.read_request();
    ASSERT_TRUE(first && second);
    EXPECT_NE(first->wait_port, second->wait_port);
    ASSERT_TRUE(stand.link.send(response_to(*second) + response_to(*first)));
    EXPECT_EQ(word_at(one.get(), 12), 1001U);
    EXPECT_EQ(word_at(two.get(), 12), 2002U);
}

TEST_F(routing, AWrongWaitPortCostsOnlyItsCallerTheAnswer)
{
    stopped_clock clock;
    set_log_level(1); // for the limit
    auto unlucky = call(1, 1);
    auto misdirected = stand.link.read_request();
    ASSERT_TRUE(misdirected);
    loopback_socket elsewhere;
    misdirected->wait_port = elsewhere.wait_port();
    ASSERT_TRUE(stand.link.send(response_to(*misdirected)));
    EXPECT_EQ(elsewhere.receive(), response_to(*misdirected));

    auto lucky = call(2, 2);
    const auto request = stand.link.read_request();
    ASSERT_TRUE(request);
    ASSERT_TRUE(stand.link.send(response_to(*request)));
    EXPECT_EQ(word_at(lucky.get(), 12), 2002U);
    EXPECT_TRUE(clock.advance_until([&] { return !still_waiting(unlucky); }));
    EXPECT_EQ(unlucky.get(), bytes());
    EXPECT_EQ(stand.log.count("select wait for 3 seconds timeout!\n"), 1);
}

TEST_F(routing, AnAnswerThatComesTooLateIsLostAndHarmsNobody)
{
    stopped_clock clock;
    set_log_level(1); // for the limit
    auto given_up = call(1, 1);
    const auto late = stand.link.read_request();
    ASSERT_TRUE(late);
    EXPECT_TRUE(clock.advance_until([&] { return !still_waiting(given_up); }));
    EXPECT_EQ(given_up.get(), bytes());
    set_log_level(0);

    auto next = call(2, 2);
    const auto request = stand.link.read_request();
    ASSERT_TRUE(request);
    ASSERT_TRUE(stand.link.send(response_to(*late) + response_to(*request)));
    EXPECT_EQ(word_at(next.get(), 12), 2002U);
    EXPECT_TRUE(stand.receiver_runs());
    EXPECT_TRUE(stand.sender_runs());
}

TEST_F(routing, AMessageOfUnknownTypeBetweenTwoResponsesIsDropped)
{
    auto one = call(1, 1);
    const auto first = stand.link.read_request();
    auto two = call(2, 2);
    const auto second = stand.link.read_request();
    ASSERT_TRUE(first && second);
    const bytes unknown = make_message(0x1092, first->wait_port, pattern(100));
    ASSERT_TRUE(stand.link.send(response_to(*second) + unknown + response_to(*first)));
    EXPECT_EQ(word_at(one.get(), 12), 1001U);
    EXPECT_EQ(word_at(two.get(), 12), 2002U);
}

TEST_F(routing, AnAnswerSentTwiceIsTakenOnce)
{
    auto one = call(1, 1);
    const auto request = stand.link.read_request();
    ASSERT_TRUE(request);
    ASSERT_TRUE(stand.link.send(response_to(*request) + response_to(*request)));
    EXPECT_EQ(word_at(one.get(), 12), 1001U);
    auto two = call(2, 2);
    const auto next = stand.link.read_request();
    ASSERT_TRUE(next);
    ASSERT_TRUE(stand.link.send(response_to(*next)));
    EXPECT_EQ(word_at(two.get(), 12), 2002U);
}

TEST_F(routing, ARequestWhileTheSenderIsDownIsLostAndRunsIntoTheLimit)
{
    set_log_level(1);
    stand.user->msgsender_run = 0;
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(call(1, 1).get(), bytes());
    EXPECT_TRUE(stand.log.has("select wait for 3 seconds timeout!\n"));
}

// ---- a crowd -----------------------------------------------------------------------------------

namespace
{

constexpr int callers = 32;
constexpr int requests_each = 200;

bool readable_within(int fd, int limit_ms)
{
    pollfd waiting = {fd, POLLIN, 0};
    return poll(&waiting, 1, limit_ms) == 1;
}

// The device: collects requests while more are coming, then answers them in a random order.
int answer_out_of_order(peer& link, int total)
{
    std::mt19937 random(7);
    std::vector<message> pending;
    int answered = 0;
    while (answered < total) {
        if (pending.size() < callers &&
            readable_within(link.socket(), pending.empty() ? 30000 : 1)) {
            const auto next = link.read_message();
            if (!next) {
                break;
            }
            if (next->type == 0x1021) {
                link.send(make_message(0x1022, 0, {}));
            } else {
                pending.push_back(*next);
            }
        } else if (pending.empty()) {
            break;
        } else {
            std::shuffle(pending.begin(), pending.end(), random);
            for (const auto& request : pending) {
                link.send(response_to(request));
                answered++;
            }
            pending.clear();
        }
    }
    return answered;
}

// One caller's requests; how many got another response than their own.
int strays_of(zu_sdk_user* user, int caller)
{
    int strays = 0;
    for (int i = 0; i < requests_each; i++) {
        const bytes response = exchange_words(user, caller, i);
        const auto wanted = static_cast<uint32_t>(response_code(caller, i));
        if (response.size() != 16 || word_at(response, 12) != wanted) {
            strays++;
        }
    }
    return strays;
}

} // namespace

// Level 0 for the same reason.
TEST(routing_crowd, ThirtyTwoThreadsOfOneLoginGetTheirOwnResponses)
{
    const inventory before;
    {
        const library library_at_level_0(0);
        scripted_device device;
        live_login login(device.port());
        ASSERT_EQ(login.result(), 0);
        peer link = device.accept();
        const held_user user(login.handle());

        std::vector<std::thread> threads;
        std::vector<int> strays(callers, -1);
        for (int caller = 0; caller < callers; caller++) {
            threads.emplace_back([&, caller] {
                strays[static_cast<size_t>(caller)] = strays_of(user.get(), caller);
            });
        }
        EXPECT_EQ(answer_out_of_order(link, callers * requests_each), callers * requests_each);
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_THAT(strays, testing::Each(0));
        EXPECT_EQ(login.log_out(), 0);
    }
    EXPECT_EQ(before.left_over(), "");
}
