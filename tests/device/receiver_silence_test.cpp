// A device that says nothing: six seconds without a byte end the receiver.
//
// The waits are real, so these tests take their seconds, side by side. Where a wait is made to end
// early, each call is slowed down a little instead, lest the loop spin.
#include <cerrno>
#include <cstdio>

#include <poll.h>

#include "receiver_kit.h"

using namespace support;

namespace
{

using steady = std::chrono::steady_clock;

// The numbers of a "select timeout" line.
struct timeout_line {
    long last_time = 0;
    long now_time = 0;
    long diff = 0;
};

bool is_timeout_line(const std::string& message)
{
    return message.rfind("select timeout, ", 0) == 0;
}

// All of them, once their text and function have been checked.
std::vector<timeout_line> timeout_lines(const log_tap& log)
{
    std::vector<timeout_line> out;
    for (const log_line& line : log.lines()) {
        if (!is_timeout_line(line.message)) {
            continue;
        }
        timeout_line t;
        sscanf(line.message.c_str(), "select timeout, last_time: %ld, now_time: %ld, diff: %ld",
               &t.last_time, &t.now_time, &t.diff);
        char again[160];
        snprintf(again, sizeof(again), "select timeout, last_time: %ld, now_time: %ld, diff: %ld\n",
                 t.last_time, t.now_time, t.diff);
        EXPECT_EQ(line.message, again);
        EXPECT_EQ(t.diff, t.now_time - t.last_time);
        EXPECT_EQ(line.type, 0);
        EXPECT_EQ(line.function, receiver_name);
        out.push_back(t);
    }
    return out;
}

// The log but for those.
std::vector<log_line> other_lines(const log_tap& log)
{
    std::vector<log_line> out;
    for (const log_line& line : log.lines()) {
        if (!is_timeout_line(line.message)) {
            out.push_back(line);
        }
    }
    return out;
}

} // namespace

class ReceiverOfSilence : public at_level
{
};

TEST_P(ReceiverOfSilence, EndsAfterSixSeconds)
{
    const auto start = steady::now();
    receiver_stand stand(level);
    EXPECT_EQ(stand.user->msgrecver_started, 1);
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_EQ(stand.user->msgrecver_started, 0);
    EXPECT_GE(steady::now() - start, std::chrono::milliseconds(5900));

    story lines;
    for (const timeout_line& t : timeout_lines(stand.log)) {
        lines.push_back({log_at_trace_level, 0,
                         "select timeout, last_time: " + std::to_string(t.last_time) +
                             ", now_time: " + std::to_string(t.now_time) +
                             ", diff: " + std::to_string(t.diff) + "\n"});
        EXPECT_GE(t.diff, 6);
    }
    EXPECT_EQ(lines.size(), stand.level == 2 ? 1U : 0U);
    lines.push_back(error("no msg in 6 seconds!\n"));
    lines.push_back(error("ret: 0, tv_sec: 0\n"));
    lines.push_back(exit_line("0"));
    expect_log(stand, lines);
}

INSTANTIATE_TEST_SUITE_P(, ReceiverOfSilence, all_levels(), level_name);

TEST(ReceiverSilence, EndsTheReceiverInTheMiddleOfABodyToo)
{
    receiver_stand stand(1);
    stand.link.send(make_message(0x1100, 1000, 0, pattern(10)));
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_EQ(stand.seen.block_count(), 0U);
    expect_log(stand, {error("no msg in 6 seconds!\n"), error("ret: 0, tv_sec: 0\n")});
}

TEST(ReceiverSilence, BeginsAnewWithEveryByte)
{
    receiver_stand stand(1);
    const bytes whole = stream_data("KTVF", pattern(8)); // 24 bytes
    stand.link.send(bytes(whole.begin(), whole.begin() + 12));
    size_t sent = 12;
    auto next = steady::now();
    EXPECT_TRUE(all_along(
        [&] {
            if (steady::now() >= next && sent < whole.size() - 1) {
                stand.link.send({whole[sent++]}); // one byte of the body each second
                next += std::chrono::seconds(1);
            }
            return stand.receiver_runs();
        },
        std::chrono::milliseconds(8000)));
    stand.link.send(bytes(whole.begin() + static_cast<long>(sent), whole.end()));
    EXPECT_TRUE(stand.seen.wait_for_blocks(1));
    EXPECT_TRUE(stand.log.lines().empty());
}

// ---- waits that end early ----

TEST(ReceiverSilence, GoesOnAfterAWaitThatEndedEarly)
{
    fault early("ppoll", 0, 1, 3);
    early.on_thread(receiver_name).returning(0);
    receiver_stand stand(2);
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_EQ(early.hits(), 3);
    EXPECT_EQ(timeout_lines(stand.log).size(), 3U);
    EXPECT_EQ(other_lines(stand.log).size(), 1U); // the line on entry
}

TEST(ReceiverSilence, AsksForTheSocketsErrorFromTheThirdToTheFifthSecondOnly)
{
    const before_call slow("ppoll", dawdle);
    fault early("ppoll", 0);
    early.on_thread(receiver_name).returning(0);
    receiver_stand stand(2);
    const before_call asked("getsockopt");
    ASSERT_TRUE(stand.receiver_ended());

    int in_between = 0;
    const auto lines = timeout_lines(stand.log);
    for (const timeout_line& t : lines) {
        in_between += t.diff >= 3 && t.diff <= 5 ? 1 : 0;
    }
    EXPECT_EQ(asked.count(), in_between);
    EXPECT_GE(lines.back().diff, 6);
    EXPECT_EQ(static_cast<int>(lines.size()), early.hits());
    EXPECT_TRUE(stand.log.has(0, receiver_name, "ret: 0, tv_sec: 0\n"));
    EXPECT_EQ(other_lines(stand.log).size(), 4U); // entry, the two lines, exit
}

namespace
{

constexpr int seconds_of_doubt = 4; // three to five are

bool has_error(int socket)
{
    pollfd watch = {socket, 0, 0};
    return poll(&watch, 1, 0) == 1 && (watch.revents & POLLERR) != 0;
}

} // namespace

class ReceiverInDoubt : public at_level
{
};

TEST_P(ReceiverInDoubt, EndsWhenTheSocketHasAnError)
{
    stopped_clock clock;
    const before_call slow("ppoll", dawdle);
    fault early("ppoll", 0);
    early.on_thread(receiver_name).returning(0);
    receiver_stand stand(level);
    ASSERT_TRUE(eventually([&] { return early.hits() >= 2; })); // it has begun
    stand.link.reset();
    ASSERT_TRUE(eventually([&] { return has_error(stand.user->ext_sock); }));
    clock.advance(seconds_of_doubt);
    ASSERT_TRUE(stand.receiver_ended());

    if (stand.level == 2) {
        EXPECT_EQ(timeout_lines(stand.log).back().diff, seconds_of_doubt);
    }
    EXPECT_TRUE(is_story(other_lines(stand.log), receiver_name, stand.level,
                         {enter_line(stand),
                          error("Socket error detected: Connection reset by peer (error=104)\n"),
                          exit_line("0")}));
}

INSTANTIATE_TEST_SUITE_P(, ReceiverInDoubt, all_levels(), level_name);

TEST(ReceiverSilence, EndsTheReceiverInDoubtWhenTheSocketCannotBeAsked)
{
    stopped_clock clock;
    const before_call slow("ppoll", dawdle);
    fault early("ppoll", 0);
    early.on_thread(receiver_name).returning(0);
    fault mute("getsockopt", ENOBUFS);
    mute.on_thread(receiver_name);
    receiver_stand stand(1);
    ASSERT_TRUE(eventually([&] { return early.hits() >= 2; })); // it has begun
    clock.advance(seconds_of_doubt);
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_EQ(mute.hits(), 1);
    expect_log(stand, {error("Socket error detected: Success (error=0)\n")});
}
