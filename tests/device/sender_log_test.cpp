// The sender thread's lines at every log level: which of them appear, with which type, function
// name and text, in which order.
//
// Each situation is provoked at each level; the lines of the thread are then exactly those that the
// level lets through. The lines at its two ends are looked at apart from the others.
#include <optional>
#include <ostream>
#include <tuple>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log_story.h"
#include "requester.h"
#include "seam.h"
#include "worker_stand.h"

using namespace support;

namespace
{

struct situation {
    const char* name;
    void (*provoke)(still_stand&); // returns when the thread has said what it has to say
    story lines;
};

void PrintTo(const situation& what, std::ostream* out)
{
    *out << what.name;
}

bool is_first_or_last(const log_line& line)
{
    return line.message.compare(0, 24, "enter sdk_msgsender_main") == 0 ||
           line.message.compare(0, 32, "############ exit from msgsender") == 0;
}

void request(const still_stand& stand, const bytes& datagram)
{
    loopback_socket requester;
    ASSERT_TRUE(requester.send_to(stand.int_port(), datagram));
}

// ---- the situations ----------------------------------------------------------------------------

void wait_fails(still_stand& stand)
{
    fault failing("ppoll", EBADF);
    failing.on_thread(sender_thread);
    ASSERT_TRUE(stand.sender_ended());
}

void told_to_end(still_stand& stand)
{
    ASSERT_EQ(write(stand.user->shutdown_pipe_sender[1], "x", 1), 1);
    ASSERT_TRUE(stand.sender_ended());
}

void urgent_byte(still_stand& stand)
{
    stand.user->link->urgent_data = true; // as the receiver notes it
    ASSERT_TRUE(stand.sender_ended());
}

void reset_by_device(still_stand& stand)
{
    stand.link.reset();
    ASSERT_TRUE(stand.sender_ended());
}

void read_fails(still_stand& stand)
{
    const before_call reads("recvfrom", [&] { stand.user->msgsender_run = 0; });
    const fault failing("recvfrom", ENOMEM);
    request(stand, start_datagram());
    ASSERT_TRUE(stand.sender_ended());
}

void empty_datagram(still_stand& stand)
{
    request(stand, {});
    ASSERT_TRUE(stand.sender_ended());
}

void short_datagram(still_stand& stand)
{
    const before_call reads("recvfrom", [&] { stand.user->msgsender_run = 0; });
    request(stand, pattern(11));
    ASSERT_TRUE(stand.sender_ended());
}

void request_forwarded(still_stand& stand)
{
    const before_call reads("recvfrom", [&] { stand.user->msgsender_run = 0; });
    request(stand, start_datagram());
    ASSERT_TRUE(stand.sender_ended());
}

void forward_fails(still_stand& stand)
{
    fault failing("send", ECONNRESET);
    failing.on_thread(sender_thread);
    request(stand, start_datagram());
    ASSERT_TRUE(stand.sender_ended());
}

void heartbeat_tries_used_up(still_stand& stand)
{
    fault full("send", EAGAIN);
    full.on_thread(sender_thread);
    stand.let_pass(3);
    ASSERT_TRUE(stand.sender_ended());
}

void heartbeat_hard_error(still_stand& stand)
{
    fault broken("send", EPIPE);
    broken.on_thread(sender_thread);
    stand.let_pass(3);
    ASSERT_TRUE(stand.sender_ended());
}

void heartbeat_socket_error(still_stand& stand)
{
    std::optional<fault> reset;
    const before_call tries("send", [&] {
        reset.emplace("getsockopt", ECONNRESET);
        reset->on_thread(sender_thread).returning(0);
    });
    fault failing("send", EAGAIN);
    failing.on_thread(sender_thread);
    stand.let_pass(3);
    ASSERT_TRUE(stand.sender_ended());
}

const situation situations[] = {
    {"WaitFails", wait_fails, {error("msgsender select faill!\n")}},
    {"ToldToEnd",
     told_to_end,
     {{log_at_every_level, 7, "Sender thread received shutdown signal. Exiting.\n"}}},
    {"UrgentByte", urgent_byte, {error("ext_sock exception happened!\n")}},
    {"ResetByDevice",
     reset_by_device,
     {error("Socket error detected during timeout: Connection reset by peer\n")}},
    {"ReadFails", read_fails, {error("recv data msg fail!\n")}},
    {"EmptyDatagram", empty_datagram, {{log_at_every_level, 0, "recvfrom ret: 0, break\n"}}},
    {"ShortDatagram", short_datagram, {error("msg too short:11\n")}},
    {"RequestForwarded",
     request_forwarded,
     {trace("recv msg(20 bytes) from port:N, then send out.\n")}},
    {"ForwardFails",
     forward_fails,
     {trace("recv msg(20 bytes) from port:N, then send out.\n"), error("send faill!\n")}},
    {"HeartbeatTriesUsedUp",
     heartbeat_tries_used_up,
     {error("Heart beat send failed after 2 retries: Resource temporarily unavailable\n")}},
    {"HeartbeatHardError",
     heartbeat_hard_error,
     {error("Heart beat send error: Broken pipe\n"),
      error("Heart beat send failed after 2 retries: Broken pipe\n")}},
    {"HeartbeatSocketError",
     heartbeat_socket_error,
     {error("Socket error detected: Connection reset by peer\n")}},
};

struct sender_log : testing::TestWithParam<std::tuple<situation, int>> {
};

} // namespace

TEST_P(sender_log, HasTheLinesOfTheLevelAndNoOthers)
{
    const auto& [what, level] = GetParam();
    still_stand stand(level);
    stand.start_sender();
    what.provoke(stand);

    std::vector<log_line> found;
    for (const log_line& line : stand.log.lines()) {
        if (!is_first_or_last(line)) {
            found.push_back({line.type, line.function, without_number(line.message, "port:")});
        }
    }
    EXPECT_TRUE(is_story(found, sender_thread, level, what.lines));
}

INSTANTIATE_TEST_SUITE_P(, sender_log,
                         testing::Combine(testing::ValuesIn(situations), all_levels()),
                         name_and_level);

// ---- the ends of the thread, and the numbers in its lines --------------------------------------

namespace
{

std::string exit_line_after(void (*provoke)(still_stand&))
{
    still_stand stand(2);
    stand.start_sender();
    provoke(stand);
    const auto lines = stand.log.lines_of(sender_thread);
    EXPECT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().type, 7);
    return lines.back().message;
}

} // namespace

TEST(sender_log_ends, OpensWithItsThreadAndClosesWithItsResultAtLevel2)
{
    still_stand stand(2);
    stand.start_sender();
    empty_datagram(stand);
    char opening[64];
    snprintf(opening, sizeof(opening), "enter sdk_msgsender_main pid: 0x%llx\n",
             static_cast<unsigned long long>(stand.user->msgsender));
    EXPECT_THAT(stand.log.messages_of(sender_thread),
                testing::ElementsAre(opening, "recvfrom ret: 0, break\n",
                                     "############ exit from msgsender, ret:0\n"));
    EXPECT_TRUE(stand.log.has(7, sender_thread, opening));
}

TEST(sender_log_ends, ShowsNeitherEndOfTheThreadBelowLevel2)
{
    for (const int level : {-1, 0, 1}) {
        still_stand stand(level);
        stand.start_sender();
        stand.end_workers();
        EXPECT_FALSE(stand.log.has_beginning("enter sdk_msgsender_main")) << level;
        EXPECT_FALSE(stand.log.has_beginning("############ exit")) << level;
    }
}

TEST(sender_log_ends, NamesTheStoredPortOfTheRequester)
{
    still_stand stand(2);
    stand.start_sender();
    loopback_socket requester;
    requester.send_to(stand.int_port(), start_datagram());
    EXPECT_TRUE(stand.log.wait_for("recv msg(20 bytes) from port:" +
                                   std::to_string(requester.wait_port()) + ", then send out.\n"));
}

TEST(sender_log_ends, ClosesWithMinus1AfterAFailedWait)
{
    EXPECT_EQ(exit_line_after(wait_fails), "############ exit from msgsender, ret:-1\n");
}

TEST(sender_log_ends, ClosesWithMinus1AfterAFailedForward)
{
    EXPECT_EQ(exit_line_after(forward_fails), "############ exit from msgsender, ret:-1\n");
}

TEST(sender_log_ends, ClosesWith0AfterAForwardThatSentNothing)
{
    const auto nothing_sent = [](still_stand& stand) {
        fault nothing("send", 0);
        nothing.on_thread(sender_thread).returning(0);
        request(stand, start_datagram());
        ASSERT_TRUE(stand.sender_ended());
    };
    EXPECT_EQ(exit_line_after(nothing_sent), "############ exit from msgsender, ret:0\n");
}

TEST(sender_log_ends, ClosesWithMinus1AfterAShutLink)
{
    const auto shut = [](still_stand& stand) {
        link_shut_int(stand.user->worker_link);
        ASSERT_TRUE(stand.sender_ended());
    };
    EXPECT_EQ(exit_line_after(shut), "############ exit from msgsender, ret:-1\n");
}
