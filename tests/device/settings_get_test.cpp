// Reading settings: what ZU_NET_DEV_GetConfig sends, what it brings back and what it logs.
//
// The device's part is played on a thread of its own for each exchange. Replies of odd lengths are
// a matter of settings_replies_test.cpp, what it refuses of request_refusals_test.cpp.
#include <climits>

#include "settings_kit.h"

using namespace support;

namespace
{

constexpr char entry[] = "ZU_NET_DEV_GetConfig";
exchanged get(request_stand& stand, ZU_U32 command, void* buffer, ZU_U32 length,
              const make_reply& reply)
{
    return exchange_with(stand, reply, [&] {
        return ZU_NET_DEV_GetConfig(stand.handle(), command, buffer, length);
    });
}

} // namespace

// ---- the request -------------------------------------------------------------------------------

TEST(GetConfig, AsksForVideoParametersOfTheStreamInTheSecondWord)
{
    request_stand stand;
    ZU_S_Video_Ext video;
    memset(&video, 0xFF, sizeof(video));
    video.u32Stream = 0x04030201;
    const auto out = get(stand, 0x1047, &video, sizeof(video), with_record(0x1047, 0, {}));
    EXPECT_EQ(without_port(out.request), hex("71 10 00 00  44 0C 00 00  00 00 00 00"
                                             "47 10 00 00  00 00 00 00"
                                             "00 00 00 00  01 02 03 04") +
                                             zeros(3124));
}

TEST(GetConfig, AsksForAudioParametersOfTheStreamInTheSecondWord)
{
    request_stand stand;
    ZU_S_Audio_Ext audio;
    memset(&audio, 0xFF, sizeof(audio));
    audio.u32Stream = 3;
    const auto out = get(stand, 0x1048, &audio, sizeof(audio), with_record(0x1048, 0, {}));
    EXPECT_EQ(without_port(out.request), hex("71 10 00 00  44 0C 00 00  00 00 00 00"
                                             "48 10 00 00  00 00 00 00"
                                             "00 00 00 00  03 00 00 00") +
                                             zeros(3124));
}

TEST(GetConfig, AsksForTheQuantiserOfTheStreamInTheFirstWord)
{
    request_stand stand;
    ZU_S_Video_IDR_QP qp = {2, 0xFFFFFFFF};
    const auto out = get(stand, 0x1052, &qp, sizeof(qp), with_record(0x1052, 0, {}));
    EXPECT_EQ(without_port(out.request), hex("71 10 00 00  44 0C 00 00  00 00 00 00"
                                             "52 10 00 00  00 00 00 00"
                                             "02 00 00 00") +
                                             zeros(3128));
}

TEST(GetConfig, AsksForTheEncodeLevelWithNothingOfTheBuffer)
{
    request_stand stand;
    ZU_S_Video_Encode_Level level = {0xFFFFFFFF};
    const auto out = get(stand, 0x1051, &level, sizeof(level), with_record(0x1051, 0, {}));
    EXPECT_EQ(without_port(out.request), hex("71 10 00 00  44 0C 00 00  00 00 00 00"
                                             "51 10 00 00  00 00 00 00") +
                                             zeros(3132));
}

TEST(GetConfig, AsksForThePresetsWithNothingOfTheBuffer)
{
    request_stand stand;
    guarded_record presets(bytes(2004, 0xFF));
    const auto out = get(stand, 0x3018, presets.data(), 2004, with_record(0x3018, 0, {}));
    EXPECT_EQ(without_port(out.request), hex("71 10 00 00  44 0C 00 00  00 00 00 00"
                                             "18 30 00 00  00 00 00 00") +
                                             zeros(3132));
}

TEST(GetConfig, SendsAnyOtherCommandUnchangedAndReturnsTheCodeAlsoWithoutABuffer)
{
    request_stand stand;
    for (const ZU_U32 command : {0U, 0x1046U, 0x1049U, 0x2002U, 0x7FFFFFFFU, 0x80000000U, ~0U}) {
        const auto out = get(stand, command, nullptr, 0, with_record(command, 4, {}));
        EXPECT_EQ(without_port(out.request),
                  hex("71 10 00 00  44 0C 00 00  00 00 00 00") + le32(command) + zeros(3136));
        EXPECT_EQ(out.result, 4);
    }
}

TEST(GetConfig, LeavesTheWaitPortToTheSender)
{
    for (const setting& s : settings) {
        guarded_record record(before_of(s));
        const bytes datagram = datagram_of([&](ZU_U32 handle) {
            return ZU_NET_DEV_GetConfig(handle, s.command, record.data(), 44);
        });
        EXPECT_EQ(datagram.size(), 3152U);
        EXPECT_EQ(datagram, request_of(s));
    }
}

TEST(GetConfig, SendsOneMessageForEachCall)
{
    request_stand stand;
    for (const setting& s : settings) {
        guarded_record record(before_of(s));
        const auto out = get(stand, s.command, record.data(), 1, with_record(s.command, 0, {}));
        EXPECT_EQ(without_port(out.request), request_of(s));
    }
    EXPECT_TRUE(stand.nothing_more_sent());
}

// ---- the answer --------------------------------------------------------------------------------

class GetConfigLength : public testing::TestWithParam<ZU_U32>
{
};

TEST_P(GetConfigLength, IsAcceptedAndTheWholeRecordIsCopiedWhateverItIs)
{
    request_stand stand;
    for (const setting& s : settings) {
        guarded_record record(before_of(s));
        const auto out = get(stand, s.command, record.data(), GetParam(),
                             with_record(s.command, 7, record_of(s)));
        EXPECT_EQ(without_port(out.request), request_of(s)) << std::hex << s.command;
        EXPECT_EQ(out.result, 7);
        EXPECT_EQ(record.content(), record_of(s)) << std::hex << s.command;
        EXPECT_TRUE(record.guards_hold()) << std::hex << s.command;
    }
}

INSTANTIATE_TEST_SUITE_P(, GetConfigLength, testing::Values(0, 1, 43, 44, 3132, 3133, 3140),
                         testing::PrintToStringParamName());

TEST(GetConfig, Fills44BytesForVideoParametersAlsoWhenTheLengthIsSmaller)
{
    request_stand stand;
    guarded_record record(bytes(44, 0));
    get(stand, 0x1047, record.data(), 43, with_record(0x1047, 0, pattern(44) + pattern(3088, 1)));
    EXPECT_EQ(record.content(), pattern(44));
    EXPECT_TRUE(record.guards_hold());
}

TEST(GetConfig, CopiesIntoABufferOfAnyAlignment)
{
    request_stand stand;
    for (const setting& s : settings) {
        for (const size_t misalignment : {1, 2, 3}) {
            guarded_record record(before_of(s), misalignment);
            const auto out =
                get(stand, s.command, record.data(), 44, with_record(s.command, 0, record_of(s)));
            EXPECT_EQ(without_port(out.request), request_of(s));
            EXPECT_EQ(record.content(), record_of(s));
            EXPECT_TRUE(record.guards_hold());
        }
    }
}

TEST(GetConfig, ReturnsTheSecondWordOfThePayload)
{
    request_stand stand;
    for (const int code : {0, 1, -1, 3, INT_MAX, INT_MIN}) {
        for (const setting& s : settings) {
            guarded_record record(before_of(s));
            EXPECT_EQ(
                get(stand, s.command, record.data(), 44, with_record(0x11111111, code, {})).result,
                code);
        }
        EXPECT_EQ(get(stand, other_command, nullptr, 0, with_record(0x11111111, code, {})).result,
                  code);
    }
}

TEST(GetConfig, CopiesTheRecordWhateverTheCodeIs)
{
    request_stand stand;
    for (const int code : {1, -1, INT_MIN}) {
        guarded_record record(bytes(44, 0));
        get(stand, 0x1047, record.data(), 44, with_record(0x1047, code, pattern(44)));
        EXPECT_EQ(record.content(), pattern(44)) << code;
    }
}

TEST(GetConfig, CopiesByTheCallersCommandWhateverTheAnswerNames)
{
    request_stand stand;
    for (const setting& s : settings) {
        for (const ZU_U32 named : {0x1047U, 0x1051U, 0x3018U, other_command, 0U}) {
            guarded_record record(before_of(s));
            const auto out =
                get(stand, s.command, record.data(), 44, with_record(named, 5, record_of(s)));
            EXPECT_EQ(out.result, 5);
            EXPECT_EQ(record.content(), record_of(s));
            EXPECT_TRUE(record.guards_hold());
        }
    }
}

TEST(GetConfig, CopiesNothingForAnotherCommandAlsoWhenTheAnswerNamesOneOfTheFive)
{
    request_stand stand;
    for (const setting& named : settings) {
        guarded_record record(pattern(44));
        const auto out = get(stand, other_command, record.data(), 44,
                             with_record(named.command, 5, record_of(named)));
        EXPECT_EQ(out.result, 5);
        EXPECT_EQ(record.content(), pattern(44));
        EXPECT_TRUE(record.guards_hold());
    }
}

TEST(GetConfig, NeitherReadsNorWritesTheBufferOfAnotherCommand)
{
    request_stand stand;
    const forbidden_page page;
    for (const ZU_U32 length : {0U, 1U, 44U, 3140U}) {
        const auto out =
            get(stand, other_command, page.data(), length, with_record(other_command, 9, {}));
        EXPECT_EQ(out.result, 9);
    }
}

// ---- no buffer ---------------------------------------------------------------------------------

TEST(GetConfig, RefusesTheThreeCommandsWithASelectorWithoutABuffer)
{
    request_stand stand(1);
    for (const setting& s : settings) {
        if (s.selector != no_selector) {
            stand.log.forget();
            EXPECT_EQ(ZU_NET_DEV_GetConfig(stand.handle(), s.command, nullptr, 0), -1);
            expect_story(stand.log, 1, entry, {error("u32BufLen > 0 && pBuf == NULL\n")});
        }
    }
    EXPECT_TRUE(stand.nothing_more_sent());
}

TEST(GetConfig, SendsTheTwoCommandsWithoutASelectorAlsoWithoutABuffer)
{
    request_stand stand;
    for (const setting& s : settings) {
        if (s.selector == no_selector) {
            const auto out =
                get(stand, s.command, nullptr, 0, with_record(s.command, 6, record_of(s)));
            EXPECT_EQ(without_port(out.request), request_of(s));
            EXPECT_EQ(out.result, 6);
        }
    }
}

// ---- the log -----------------------------------------------------------------------------------

using GetConfigAt = at_level;

TEST_P(GetConfigAt, LogsTheSelectorsLineAsAnErrorAtLevel2AndTheRestAsATrace)
{
    request_stand stand(level);
    for (const setting& s : settings) {
        stand.log.forget();
        guarded_record record(before_of(s));
        get(stand, s.command, record.data(), 44, with_record(s.command, -12, {}));
        story wanted = {trace("enter ZU_NET_DEV_GetConfig\n")};
        if (s.line != nullptr) {
            wanted.push_back({log_at_trace_level, 0, s.line});
        }
        expect_story(stand.log, level, entry,
                     wanted + story{trace("send msg_req_makekeyframe.\n"), exchange_lines(),
                                    trace("get response code:-12\n"),
                                    trace("leave ZU_NET_DEV_GetConfig\n")});
    }
}

TEST_P(GetConfigAt, LogsNoLineOfASelectorForOtherCommands)
{
    request_stand stand(level);
    get(stand, other_command, nullptr, 0, with_record(0x1047, 3, {}));
    expect_story(stand.log, level, entry,
                 {trace("enter ZU_NET_DEV_GetConfig\n"), trace("send msg_req_makekeyframe.\n"),
                  exchange_lines(), trace("get response code:3\n"),
                  trace("leave ZU_NET_DEV_GetConfig\n")});
}

INSTANTIATE_TEST_SUITE_P(, GetConfigAt, all_levels(), level_name);
