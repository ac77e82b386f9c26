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

enum gate { error_levels, trace_level };

struct expected_line {
    gate at;
    int type;
    const char* message;
};

struct situation {
    const char* name;
    outcome (*provoke)(counter&);
    outcome wanted;
    std::vector<expected_line> lines;
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

outcome without_a_socket(counter& at)
{
    const fault failing("socket", EMFILE);
    return at.call().get();
}

outcome unsendable(counter& at)
{
    const fault failing("sendto", ENOBUFS);
    return at.call().get();
}

outcome unreadable(counter& at)
{
    const fault failing("recv", EIO);
    auto running = at.call();
    EXPECT_TRUE(at.desk.receive());
    at.reply(pattern(16));
    return running.get();
}

outcome unwaitable(counter& at)
{
    const fault failing("select", EINTR);
    return at.call().get();
}

outcome unanswered(counter& at)
{
    return at.call().get();
}

const expected_line entered = {trace_level, 7, "enter udp_tx_rx\n"};
const expected_line has_socket = {trace_level, 7, "sock: *\n"};
const expected_line sends = {trace_level, 7, "sendto port:* len:20\n"};
const expected_line left = {error_levels, 7, "leave udp_tx_rx\n"};

const situation at_every_level[] = {
    {"Answered",
     answered,
     {16, 16},
     {entered, has_socket, sends, {trace_level, 7, "recv len:16\n"}, left}},
    {"WithoutASocket",
     without_a_socket,
     {-1, untouched},
     {entered, {error_levels, 0, "socket fail!\n"}}},
    {"Unsendable",
     unsendable,
     {-1, untouched},
     {entered, has_socket, sends, {error_levels, 0, "socket fail!, sock: *\n"}, left}},
    {"Unreadable",
     unreadable,
     {-1, 0},
     {entered, has_socket, sends, {error_levels, 0, "recv fail!, sock: *\n"}, left}},
};

const situation at_error_levels[] = {
    {"Unwaitable",
     unwaitable,
     {-1, untouched},
     {entered, has_socket, sends, {error_levels, 0, "select faill!\n"}, left}},
    {"Unanswered",
     unanswered,
     {-1, untouched},
     {entered, has_socket, sends, {error_levels, 0, "select wait for 3 seconds timeout!\n"}, left}},
};

// The message with the number after `word` left out.
std::string without_number(std::string message, const std::string& word)
{
    const size_t from = message.find(word);
    if (from == std::string::npos) {
        return message;
    }
    const size_t start = from + word.size();
    const size_t end = message.find_first_not_of("0123456789", start);
    return message.replace(start, end - start, "*");
}

struct exchange_log : testing::TestWithParam<std::tuple<situation, int>> {
};

std::string name_of(const testing::TestParamInfo<std::tuple<situation, int>>& info)
{
    const int level = std::get<1>(info.param);
    return std::string(std::get<0>(info.param).name) + "AtLevel" +
           (level < 0 ? "Minus1" : std::to_string(level));
}

} // namespace

TEST_P(exchange_log, HasItsResultAndTheLinesOfTheLevelAndNoOthers)
{
    const auto& [what, level] = GetParam();
    counter at(level);
    const outcome out = what.provoke(at);
    EXPECT_EQ(out.result, what.wanted.result);
    EXPECT_EQ(out.rxlen, what.wanted.rxlen);

    std::vector<std::string> wanted;
    for (const auto& line : what.lines) {
        if (level == 2 || (level == 1 && line.at == error_levels)) {
            wanted.push_back(std::to_string(line.type) + " udp_tx_rx " + line.message);
        }
    }
    std::vector<std::string> found;
    for (const auto& line : at.stand.log.lines()) {
        found.push_back(std::to_string(line.type) + " " + line.function + " " +
                        without_number(without_number(line.message, "sock: "), "port:"));
    }
    EXPECT_EQ(found, wanted);
}

INSTANTIATE_TEST_SUITE_P(, exchange_log,
                         testing::Combine(testing::ValuesIn(at_every_level),
                                          testing::Values(-1, 0, 1, 2)),
                         name_of);
INSTANTIATE_TEST_SUITE_P(With, exchange_log,
                         testing::Combine(testing::ValuesIn(at_error_levels),
                                          testing::Values(1, 2)),
                         name_of);

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
    for (const int level : {-1, 0, 1, 2}) {
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

struct exchange_limit : testing::TestWithParam<int> {
    counter at{GetParam()};
};

std::string level_name(const testing::TestParamInfo<int>& info)
{
    return "AtLevel" + (info.param < 0 ? std::string("Minus1") : std::to_string(info.param));
}

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
        fault failing("select", EBADF);
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
