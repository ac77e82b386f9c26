// The failures of an exchange on the loopback request channel, its time limit, and where it has
// none: result, length, lines at every log level, and that its socket is gone.
//
// No worker runs here: the test's own socket stands where the sender thread listens. That the
// request's socket is gone is what worker_stand proves at the end of each test.
#include <ctime>
#include <ostream>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log_story.h"
#include "request_channel.h"
#include "requester.h"
#include "seam.h"
#include "worker_stand.h"

using namespace support;
using testing::ElementsAre;

namespace
{

constexpr int untouched = 4711;

struct outcome {
    int result;
    int rxlen;
};

// One caller and the desk where its requests arrive.
struct counter {
    worker_stand stand;
    loopback_socket desk;

    explicit counter(int level) : stand(level)
    {
        stand.user->int_port = desk.port();
    }
    std::future<outcome> call()
    {
        return in_background([this] {
            request_block block = make_request(0x1001, 8);
            outcome out = {0, untouched};
            out.result = udp_tx_rx(stand.user, &block, 20, &block, &out.rxlen);
            return out;
        });
    }
    void reply(const bytes& datagram)
    {
        ASSERT_TRUE(desk.send_to(desk.sender_port(), datagram));
    }
};

struct situation {
    const char* name;
    outcome (*provoke)(counter&);
    outcome wanted;
    story lines;
};

void PrintTo(const situation& what, std::ostream* out)
{
    *out << what.name;
}

outcome answered(counter& at)
{
    auto running = at.call();
    EXPECT_TRUE(at.desk.receive());
    at.reply(pattern(16));
    return running.get();
}

outcome unanswered(counter& at)
{
    return at.call().get();
}

outcome without_a_socket(counter& at)
{
    const fault failing("socket", EMFILE);
    return unanswered(at);
}

outcome unsendable(counter& at)
{
    const fault failing("sendto", ENOBUFS);
    return unanswered(at);
}

outcome unreadable(counter& at)
{
    const fault failing("recv", EIO);
    return answered(at);
}

outcome unwaitable(counter& at)
{
    const fault failing("ppoll", EINTR);
    return unanswered(at);
}

const told entered = trace("enter udp_tx_rx\n");
const told has_socket = trace("sock: N\n");
const told sends = trace("sendto port:N len:20\n");
const told left = {log_at_error_levels, 7, "leave udp_tx_rx\n"};

const situation at_every_level[] = {
    {"Answered", answered, {16, 16}, {entered, has_socket, sends, trace("recv len:16\n"), left}},
    {"WithoutASocket", without_a_socket, {-1, untouched}, {entered, error("socket fail!\n")}},
    {"Unsendable",
     unsendable,
     {-1, untouched},
     {entered, has_socket, sends, error("socket fail!, sock: N\n"), left}},
    {"Unreadable",
     unreadable,
     {-1, 0},
     {entered, has_socket, sends, error("recv fail!, sock: N\n"), left}},
};

const situation at_error_levels[] = {
    {"Unwaitable",
     unwaitable,
     {-1, untouched},
     {entered, has_socket, sends, error("select faill!\n"), left}},
    {"Unanswered",
     unanswered,
     {-1, untouched},
     {entered, has_socket, sends, error("select wait for 3 seconds timeout!\n"), left}},
};

struct exchange_log : testing::TestWithParam<std::tuple<situation, int>> {
};

} // namespace

TEST_P(exchange_log, HasItsResultAndTheLinesOfTheLevelAndNoOthers)
{
    const auto& [what, level] = GetParam();
    counter at(level);
    const outcome out = what.provoke(at);
    EXPECT_EQ(out.result, what.wanted.result);
    EXPECT_EQ(out.rxlen, what.wanted.rxlen);

    auto found = at.stand.log.lines();
    for (log_line& line : found) {
        line.message = without_number(without_number(line.message, "sock: "), "port:");
    }
    EXPECT_TRUE(is_story(found, "udp_tx_rx", level, what.lines));
}

INSTANTIATE_TEST_SUITE_P(, exchange_log,
                         testing::Combine(testing::ValuesIn(at_every_level), all_levels()),
                         name_and_level);
INSTANTIATE_TEST_SUITE_P(With, exchange_log,
                         testing::Combine(testing::ValuesIn(at_error_levels),
                                          testing::Values(1, 2)),
                         name_and_level);

TEST(exchange_lines, NameThePortOfTheSenderAndOneDescriptor)
{
    counter at(2);
    unreadable(at);
    const auto lines = at.stand.log.messages_of("udp_tx_rx");
    ASSERT_EQ(lines.size(), 5U);
    int sock = -1;
    ASSERT_EQ(sscanf(lines[1].c_str(), "sock: %d\n", &sock), 1);
    EXPECT_GT(sock, 2);
    EXPECT_EQ(lines[2], "sendto port:" + std::to_string(at.desk.port()) + " len:20\n");
    EXPECT_EQ(lines[3], "recv fail!, sock: " + std::to_string(sock) + "\n");
}

TEST(exchange_lines, NameTheDescriptorOfAFailedSend)
{
    counter at(2);
    unsendable(at);
    const auto lines = at.stand.log.messages_of("udp_tx_rx");
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[3], "socket fail!, " + lines[1]);
}

TEST(exchange_lines, AFailedReceiveIsExplainedOnStandardErrorAtLevels1And2)
{
    for (const int level : log_levels) {
        counter at(level);
        testing::internal::CaptureStderr();
        unreadable(at);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  level >= 1 ? "recv fail for:: Input/output error\n" : "")
            << level;
    }
}

// ---- the time limit ----------------------------------------------------------------------------

namespace
{

struct exchange_limit : at_level {
    counter at{level};
};

using exchange_without_limit = exchange_limit;

} // namespace

TEST_P(exchange_limit, EndsAfterMoreThanThreeWholeSeconds)
{
    const time_t begun = time(nullptr);
    const outcome out = at.call().get();
    EXPECT_GE(time(nullptr) - begun, 4);
    EXPECT_EQ(out.result, -1);
    EXPECT_EQ(out.rxlen, untouched);
    EXPECT_EQ(at.stand.log.count("select wait for 3 seconds timeout!\n"), 1);
}

INSTANTIATE_TEST_SUITE_P(, exchange_limit, testing::Values(1, 2), level_name);

TEST_P(exchange_without_limit, WaitsOnAfterSixSecondsUntilADatagramComes)
{
    auto running = at.call();
    ASSERT_TRUE(at.desk.receive());
    EXPECT_TRUE(all_along([&] { return still_waiting(running); }, std::chrono::milliseconds(6000)));
    at.reply(pattern(16));
    EXPECT_EQ(running.get().result, 16);
    EXPECT_TRUE(at.stand.log.lines().empty());
}

TEST_P(exchange_without_limit, SpinsWhileTheWaitKeepsFailingAndTakesTheReplyAfterwards)
{
    std::future<outcome> running;
    {
        fault failing("ppoll", EBADF);
        failing.on_thread(caller_thread);
        running = at.call();
        ASSERT_TRUE(at.desk.receive());
        at.reply(pattern(16));
        EXPECT_TRUE(eventually([&] { return failing.hits() > 1000; }));
        EXPECT_TRUE(still_waiting(running));
    }
    EXPECT_EQ(running.get().result, 16);
    EXPECT_TRUE(at.stand.log.lines().empty());
}

TEST_P(exchange_without_limit, EndsOnceTheLevelIsRaisedAfterTheLimit)
{
    const time_t begun = time(nullptr);
    auto running = at.call();
    ASSERT_TRUE(at.desk.receive());
    EXPECT_TRUE(eventually([&] { return time(nullptr) - begun >= 6; }));
    ASSERT_TRUE(still_waiting(running));
    set_log_level(1);
    EXPECT_EQ(running.get().result, -1);
    EXPECT_THAT(at.stand.log.messages_of("udp_tx_rx"),
                ElementsAre("select wait for 3 seconds timeout!\n", "leave udp_tx_rx\n"));
}

INSTANTIATE_TEST_SUITE_P(, exchange_without_limit, testing::Values(-1, 0), level_name);
