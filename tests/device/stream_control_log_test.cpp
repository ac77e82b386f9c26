// The lines of stream control at every log level: which of them appear, with which type, function
// name and text, in which order.
//
// No worker runs here: the test's own socket stands where the sender thread listens and answers.
#include <ostream>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log_story.h"
#include "requester.h"
#include "seam.h"
#include "stream_control.h"
#include "worker_stand.h"

using namespace support;
using testing::ElementsAre;

namespace
{

struct counter {
    still_stand stand;
    loopback_socket desk;

    explicit counter(int level) : stand(level)
    {
        stand.user->int_port = desk.port();
        stand.user->msgsender_started = 1;
        stand.user->msgrecver_started = 1;
        stand.user->stream_info.u32Stream = 2;
        stand.user->stream_info.u8Type = 5;
    }
    ~counter()
    {
        zu_sdk_inited = 1; // for DeInit
        stand.user->msgsender_started = 0;
        stand.user->msgrecver_started = 0;
    }
    counter(const counter&) = delete;
    counter& operator=(const counter&) = delete;
};

using operation = ZU_S32 (*)(counter&);

ZU_S32 start(counter& at)
{
    ZU_S_STREAM_INFO_EXT info = {0, 2, 0, 5};
    return ZU_NET_DEV_StartStreamExt(at.stand.handle(), &info);
}

ZU_S32 start_of_stream_9(counter& at)
{
    ZU_S_STREAM_INFO_EXT info = {0, 9, 0, 5};
    return ZU_NET_DEV_StartStreamExt(at.stand.handle(), &info);
}

ZU_S32 start_of_type_6(counter& at)
{
    ZU_S_STREAM_INFO_EXT info = {0, 2, 0, 6};
    return ZU_NET_DEV_StartStreamExt(at.stand.handle(), &info);
}

ZU_S32 stop(counter& at)
{
    return ZU_NET_DEV_StopStream(at.stand.handle());
}

ZU_S32 key_frame(counter& at)
{
    return ZU_NET_DEV_MakeKeyFrame(at.stand.handle(), 13);
}

ZU_S32 key_frame_15(counter& at)
{
    return ZU_NET_DEV_MakeKeyFrame(at.stand.handle(), 15);
}

ZU_S32 repeated_start(counter& at)
{
    return in_startstream(at.stand.handle());
}

enum circumstance { answered_with_minus_3, without_init, link_down, sender_down, send_fails };

struct situation {
    const char* name;
    const char* function;
    operation call;
    circumstance when;
    story lines;
};

void PrintTo(const situation& what, std::ostream* out)
{
    *out << what.name;
}

ZU_S32 call_when(circumstance when, operation call, counter& at)
{
    if (when == answered_with_minus_3) {
        auto running = in_background([&] { return call(at); });
        EXPECT_TRUE(at.desk.receive());
        at.desk.send_to(at.desk.sender_port(), make_message(0, 0, le32(0xFFFFFFFDU)));
        return running.get();
    }
    fault unsendable("sendto", ENOBUFS);
    fault unpaused("usleep", 0);
    unpaused.returning(0);
    zu_sdk_inited = when == without_init ? 0 : 1;
    if (when == link_down) {
        at.stand.user->used = 0;
    }
    if (when == sender_down) {
        at.stand.user->msgsender_started = 0;
    }
    return call(at);
}

constexpr char start_name[] = "ZU_NET_DEV_StartStreamExt";
constexpr char stop_name[] = "ZU_NET_DEV_StopStream";
constexpr char key_frame_name[] = "ZU_NET_DEV_MakeKeyFrame";
constexpr char repeated_name[] = "in_startstream";

const told start_entered = trace("enter ZU_NET_DEV_StartStreamExt, u32Handle: HANDLE\n");
const told start_sends = trace("send msg_req_startstream. stream:2 type:5\n");
const told stop_entered = trace("enter ZU_NET_DEV_StopStream\n");
const told stop_sends = trace("send msg_req_startstream.\n");
const told key_frame_entered = trace("enter ZU_NET_DEV_MakeKeyFrame\n");
const told key_frame_sends = trace("send msg_req_makekeyframe.\n");
const told repeated_entered = trace("enter in_startstream\n");
const told responded = trace("get response code:-3\n");
const told unwritten = error("write faill!\n");
const told no_init = error("zu_sdk_inited == 0\n");
constexpr char no_user[] = "sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n";

const situation situations[] = {
    {"StartAnswered",
     start_name,
     start,
     answered_with_minus_3,
     {start_entered, start_sends, responded, trace("leave ZU_NET_DEV_StartStreamExt\n")}},
    {"StartUnsent", start_name, start, send_fails, {start_entered, start_sends, unwritten}},
    {"StartWithoutInit",
     start_name,
     start,
     without_init,
     {start_entered, error("zu_sdk_inited == 0 || pstruStreamInfo == 0\n")}},
    {"StartOfStream9",
     start_name,
     start_of_stream_9,
     send_fails,
     {start_entered, error("pstruStreamInfo->u32Stream invalid: 9\n")}},
    {"StartOfType6",
     start_name,
     start_of_type_6,
     send_fails,
     {start_entered, error("pstruStreamInfo->u8Type invalid: 6\n")}},
    {"StartWithLinkDown",
     start_name,
     start,
     link_down,
     {start_entered, error("sdk_user invalid\n")}},
    {"StopAnswered",
     stop_name,
     stop,
     answered_with_minus_3,
     {stop_entered, stop_sends, responded, trace("leave ZU_NET_DEV_StopStream\n")}},
    {"StopUnsent", stop_name, stop, send_fails, {stop_entered, stop_sends, unwritten}},
    {"StopWithoutInit", stop_name, stop, without_init, {stop_entered, no_init}},
    {"StopWithLinkDown", stop_name, stop, link_down, {stop_entered, error(no_user)}},
    {"StopWithSenderDown",
     stop_name,
     stop,
     sender_down,
     {stop_entered,
      error("sdk_user->msgsender_started == 0 || sdk_user->msgrecver_started == 0\n")}},
    {"KeyFrameAnswered",
     key_frame_name,
     key_frame,
     answered_with_minus_3,
     {key_frame_entered, key_frame_sends, responded, trace("leave ZU_NET_DEV_MakeKeyFrame\n")}},
    {"KeyFrameUnsent",
     key_frame_name,
     key_frame,
     send_fails,
     {key_frame_entered, key_frame_sends, unwritten}},
    {"KeyFrameWithoutInit", key_frame_name, key_frame, without_init, {key_frame_entered, no_init}},
    {"KeyFrameOfStream15",
     key_frame_name,
     key_frame_15,
     send_fails,
     {key_frame_entered, error("u32Stream < 11 && u32Stream > 14\n")}},
    {"KeyFrameWithLinkDown",
     key_frame_name,
     key_frame,
     link_down,
     {key_frame_entered, error(no_user)}},
    {"RepeatedStartAnswered",
     repeated_name,
     repeated_start,
     answered_with_minus_3,
     {repeated_entered, trace("leave in_startstream\n")}},
    {"RepeatedStartUnsent", repeated_name, repeated_start, send_fails, {repeated_entered}},
    {"RepeatedStartWithLinkDown",
     repeated_name,
     repeated_start,
     link_down,
     {repeated_entered, trace(no_user)}},
};

// The lines with the handle in its place.
story with_handle(story lines, ZU_U32 handle)
{
    for (told& line : lines) {
        const size_t at = line.message.find("HANDLE");
        if (at != std::string::npos) {
            line.message.replace(at, 6, std::to_string(static_cast<int>(handle)));
        }
    }
    return lines;
}

struct stream_control_log : testing::TestWithParam<std::tuple<situation, int>> {
};

} // namespace

TEST_P(stream_control_log, HasTheLinesOfTheLevelAndNoOthers)
{
    const auto& [what, level] = GetParam();
    counter at(level);
    const ZU_S32 result = call_when(what.when, what.call, at);
    EXPECT_EQ(result, what.when == answered_with_minus_3 ? -3 : -1);

    EXPECT_TRUE(
        told_by(at.stand.log, what.function, level, with_handle(what.lines, at.stand.handle())));
}

INSTANTIATE_TEST_SUITE_P(, stream_control_log,
                         testing::Combine(testing::ValuesIn(situations), all_levels()),
                         name_and_level);

namespace
{

// The functions of the lines, in order.
std::vector<std::string> speakers(const log_tap& log)
{
    std::vector<std::string> out;
    for (const auto& line : log.lines()) {
        out.push_back(line.function);
    }
    return out;
}

} // namespace

TEST(stream_control_lines, StandAroundThoseOfTheExchange)
{
    counter at(2);
    call_when(answered_with_minus_3, key_frame, at);
    EXPECT_THAT(speakers(at.stand.log),
                ElementsAre(key_frame_name, key_frame_name, "udp_tx_rx", "udp_tx_rx", "udp_tx_rx",
                            "udp_tx_rx", "udp_tx_rx", key_frame_name, key_frame_name));
}

TEST(stream_control_lines, OnlyTheExchangesLeaveLineShowsAtLevel1)
{
    for (const operation call : {start, stop, key_frame, repeated_start}) {
        counter at(1);
        call_when(answered_with_minus_3, call, at);
        const auto lines = at.stand.log.lines();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].type, 7);
        EXPECT_EQ(lines[0].function, "udp_tx_rx");
        EXPECT_EQ(lines[0].message, "leave udp_tx_rx\n");
    }
}
