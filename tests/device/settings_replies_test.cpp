// Replies of every length and content to each kind of request: what the entry point returns and
// what it copies.
//
// The reply is received over the request, in a block as large as the largest datagram: a short one
// leaves the request's own words, a long one is cut, and nothing is looked at but the word that is
// the result and the record. Replies that are a message come over the link, through the receiver;
// the others are sent straight to the caller's port.
#include <tuple>

#include "settings_kit.h"

using namespace support;

namespace
{

constexpr size_t all_sizes[] = {0, 8, 12, 16, 20, 24, 64, 3151, 3152, 3153, 5120, 9000};
constexpr uint32_t first_word = 0x80000001;
constexpr uint32_t second_word = 0x80000002;

// The first `size` bytes of a long answer: header, two words, and bytes without an end.
bytes reply_of(const message& request, size_t size)
{
    const auto length = static_cast<int32_t>(size < 12 ? 0 : size - 12);
    bytes reply = make_message(request.type + 1, length, request.wait_port,
                               le32(first_word) + le32(second_word) + pattern(9000, 3));
    reply.resize(size);
    return reply;
}

// What follows the two words in a reply of this size, as far as it reaches.
bytes tail_of(size_t size)
{
    bytes tail = pattern(9000, 3);
    tail.resize(size < 20 ? 0 : size - 20);
    return tail;
}

make_reply of_size(size_t size)
{
    return [size](const message& request) { return reply_of(request, size); };
}

std::string size_name(const testing::TestParamInfo<size_t>& with)
{
    return std::to_string(with.param) + "Bytes";
}

} // namespace

// ---- reading -----------------------------------------------------------------------------------

class ReplyToGetConfig : public testing::TestWithParam<size_t>
{
};

TEST_P(ReplyToGetConfig, GivesTheSecondWordAndTheWholeRecordOrTheRequestsOwnWords)
{
    const size_t size = GetParam();
    request_stand stand;
    for (const setting& s : settings) {
        guarded_record record(before_of(s));
        const auto out = exchange_with(stand, of_size(size), [&] {
            return ZU_NET_DEV_GetConfig(stand.handle(), s.command, record.data(), 44);
        });
        // The request's own record: zeros but for the selector.
        const bytes request = request_of(s);
        bytes expected(request.begin() + 20, request.begin() + 20 + static_cast<long>(s.size));
        const bytes tail = tail_of(size);
        std::copy_n(tail.begin(), std::min(tail.size(), s.size), expected.begin());

        EXPECT_EQ(static_cast<uint32_t>(out.result), size < 20 ? 0 : second_word);
        EXPECT_EQ(record.content(), expected) << std::hex << s.command;
        EXPECT_TRUE(record.guards_hold()) << std::hex << s.command;
    }
}

TEST_P(ReplyToGetConfig, GivesTheSecondWordOrZeroForAnotherCommandAndCopiesNothing)
{
    const size_t size = GetParam();
    request_stand stand;
    const forbidden_page page;
    const auto out = exchange_with(stand, of_size(size), [&] {
        return ZU_NET_DEV_GetConfig(stand.handle(), 0x2002, page.data(), 3140);
    });
    EXPECT_EQ(static_cast<uint32_t>(out.result), size < 20 ? 0 : second_word);
}

TEST_P(ReplyToGetConfig, IsNotCopiedWithoutABuffer)
{
    const size_t size = GetParam();
    request_stand stand;
    for (const ZU_U32 command : {0x1051U, 0x3018U}) {
        const auto out = exchange_with(stand, of_size(size), [&] {
            return ZU_NET_DEV_GetConfig(stand.handle(), command, nullptr, 0);
        });
        EXPECT_EQ(static_cast<uint32_t>(out.result), size < 20 ? 0 : second_word);
    }
}

INSTANTIATE_TEST_SUITE_P(, ReplyToGetConfig, testing::ValuesIn(all_sizes), size_name);

TEST(OddReplyToGetConfig, Of18BytesMixesTheHalfWordThatCameWithTheRequests)
{
    request_stand stand;
    const auto out = exchange_with(stand, of_size(18), [&] {
        return ZU_NET_DEV_GetConfig(stand.handle(), 0x2002, nullptr, 0);
    });
    EXPECT_EQ(out.result, 2); // of 0x80000002 the two bytes that came
}

TEST(OddReplyToGetConfig, EndingBeforeTheSelectorLeavesTheCallersSelector)
{
    request_stand stand;
    ZU_S_Video_Ext video = {};
    video.u32Stream = 3;
    video.u32Width = 1920;
    exchange_with(
        stand, [](const message& request) { return config_answer(request, 0x1047, 0, {}); },
        [&] { return ZU_NET_DEV_GetConfig(stand.handle(), 0x1047, &video, 44); });
    EXPECT_EQ(video.u32Stream, 0U); // a whole answer overwrites it
    video.u32Stream = 3;
    exchange_with(stand, of_size(24),
                  [&] { return ZU_NET_DEV_GetConfig(stand.handle(), 0x1047, &video, 44); });
    EXPECT_EQ(video.u32Channel, word_at(pattern(4, 3), 0));
    EXPECT_EQ(video.u32Stream, 3U);
    EXPECT_EQ(video.u32Width, 0U);
}

// ---- the other kinds, whose result is the first word -------------------------------------------

namespace
{

struct plain_request {
    const char* name;
    ZU_S32 (*call)(const request_stand& stand);
    uint32_t type;
    uint32_t own_word; // the first of its own payload
};

bytes some_record = pattern(44);
ZU_S_STREAM_INFO_EXT third_stream = {0, 3, 0, 7};

const plain_request plain_requests[] = {
    {"SetConfig",
     [](const request_stand& stand) {
         return ZU_NET_DEV_SetConfig(stand.handle(), 0x1047, some_record.data(), 44);
     },
     0x1061, 0x1047},
    {"PtzStandard",
     [](const request_stand& stand) {
         return ZU_NET_DEV_PTZ_Ctrl_Standard(stand.handle(), 0xFFFFFFF0, 6);
     },
     0x1031, 0xFFFFFFF0},
    {"PtzPreset",
     [](const request_stand& stand) {
         return ZU_NET_DEV_PTZ_Ctrl_Preset(stand.handle(), 0x80000000, 6);
     },
     0x1041, 0x80000000},
    {"StartStream",
     [](const request_stand& stand) {
         return ZU_NET_DEV_StartStreamExt(stand.handle(), &third_stream);
     },
     0x1001, 3},
    {"StopStream",
     [](const request_stand& stand) {
         stand.user->stream_info.u32Stream = 2;
         return ZU_NET_DEV_StopStream(stand.handle());
     },
     0x1011, 2},
    {"MakeKeyFrame",
     [](const request_stand& stand) { return ZU_NET_DEV_MakeKeyFrame(stand.handle(), 12); }, 0x1051,
     1},
};

void PrintTo(const plain_request& request, std::ostream* out)
{
    *out << request.name;
}

exchanged run(request_stand& stand, const plain_request& request, const make_reply& reply)
{
    return exchange_with(stand, reply, [&] { return request.call(stand); });
}

} // namespace

class Reply : public testing::TestWithParam<std::tuple<plain_request, size_t>>
{
};

TEST_P(Reply, GivesTheFirstWordOrTheRequestsOwn)
{
    const auto& [request, size] = GetParam();
    request_stand stand;
    const auto out = run(stand, request, of_size(size));
    EXPECT_EQ(out.request.type, request.type);
    EXPECT_EQ(static_cast<uint32_t>(out.result), size < 16 ? request.own_word : first_word);
}

INSTANTIATE_TEST_SUITE_P(, Reply,
                         testing::Combine(testing::ValuesIn(plain_requests),
                                          testing::ValuesIn(all_sizes)),
                         [](const auto& with) {
                             return std::string(std::get<0>(with.param).name) +
                                    std::to_string(std::get<1>(with.param)) + "Bytes";
                         });

class ReplyToAny : public testing::TestWithParam<plain_request>
{
};

TEST_P(ReplyToAny, CountsWhateverItsHeaderSays)
{
    request_stand stand;
    for (const uint32_t type : {0U, 0x1002U, 0x1022U, 0x1100U, 0x7777U}) {
        for (const int32_t length : {-1, 0, 5, 3140, 0x7FFFFFFF}) {
            const auto out = run(stand, GetParam(), [=](const message& request) {
                return make_message(type, length, ~request.wait_port, le32(first_word));
            });
            EXPECT_EQ(static_cast<uint32_t>(out.result), first_word);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, ReplyToAny, testing::ValuesIn(plain_requests),
                         [](const auto& with) { return std::string(with.param.name); });

TEST(OddReplyToGetConfig, CountsWhateverItsHeaderSays)
{
    request_stand stand;
    for (const uint32_t type : {0U, 0x1062U, 0x7777U}) {
        for (const int32_t length : {-1, 0, 4, 0x7FFFFFFF}) {
            guarded_record record(bytes(44, 0));
            const auto out = exchange_with(
                stand,
                [=](const message& request) {
                    bytes reply = config_answer(request, 0x1047, 5, pattern(44));
                    const bytes head = make_message(type, length, ~request.wait_port, {});
                    std::copy(head.begin(), head.end(), reply.begin());
                    return reply;
                },
                [&] { return ZU_NET_DEV_GetConfig(stand.handle(), 0x1047, record.data(), 44); });
            EXPECT_EQ(out.result, 5);
            EXPECT_EQ(record.content(), pattern(44));
            EXPECT_TRUE(record.guards_hold());
        }
    }
}

// ---- many at once ------------------------------------------------------------------------------

TEST(Replies, ReachTheirOwnCallersWhenAllKindsAreUnderWayAtOnce)
{
    request_stand stand;
    std::vector<std::future<ZU_S32>> calls;
    for (const plain_request& request : plain_requests) {
        calls.push_back(std::async(std::launch::async, [&] { return request.call(stand); }));
    }
    guarded_record record(bytes(44, 0));
    calls.push_back(std::async(std::launch::async, [&] {
        return ZU_NET_DEV_GetConfig(stand.handle(), 0x1047, record.data(), 44);
    }));

    std::vector<message> requests;
    while (requests.size() < calls.size()) {
        const auto request = stand.link.read_request();
        ASSERT_TRUE(request);
        requests.push_back(*request);
    }
    for (; !requests.empty(); requests.pop_back()) { // the latest first; the code tells the kind
        const auto code = static_cast<int32_t>(requests.back().type);
        ASSERT_TRUE(stand.deliver(requests.back(),
                                  requests.back().type == 0x1071
                                      ? config_answer(requests.back(), 0x1047, code, pattern(44))
                                      : answer(requests.back(), code)));
    }
    for (size_t i = 0; i + 1 < calls.size(); i++) {
        EXPECT_EQ(calls[i].get(), static_cast<ZU_S32>(plain_requests[i].type));
    }
    EXPECT_EQ(calls.back().get(), 0x1071);
    EXPECT_EQ(record.content(), pattern(44));
    EXPECT_TRUE(record.guards_hold());
}
