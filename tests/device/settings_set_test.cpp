// Writing settings: what ZU_NET_DEV_SetConfig sends, what it returns and what it logs.
//
// The device's part is played on a thread of its own for each exchange. Replies of odd lengths are
// a matter of settings_replies_test.cpp, what it refuses of request_refusals_test.cpp.
#include <climits>
#include <sys/mman.h>

#include "settings_kit.h"

using namespace support;

namespace
{

constexpr char entry[] = "ZU_NET_DEV_SetConfig";

exchanged set(request_stand& stand, ZU_U32 command, void* buffer, ZU_U32 length,
              const make_reply& reply)
{
    return exchange_with(stand, reply, [&] {
        return ZU_NET_DEV_SetConfig(stand.handle(), command, buffer, length);
    });
}

// The whole request: the record at the union, what it does not fill is zero, what does not fit is
// not there.
bytes write_of(ZU_U32 command, bytes record)
{
    record.resize(3132);
    return hex("61 10 00 00  44 0C 00 00  00 00 00 00") + le32(command) + le32(0) + record;
}

} // namespace

// ---- the request -------------------------------------------------------------------------------

TEST(SetConfig, SendsTheRecordBehindCommandAndCode)
{
    request_stand stand;
    ZU_S_Video_IDR_QP qp = {1, 0x0A0B0C0D};
    const auto out = set(stand, 0x1052, &qp, sizeof(qp), with_code(0));
    EXPECT_EQ(without_port(out.request), hex("61 10 00 00  44 0C 00 00  00 00 00 00"
                                             "52 10 00 00  00 00 00 00"
                                             "01 00 00 00  0D 0C 0B 0A") +
                                             zeros(3124));
}

TEST(SetConfig, SendsAllFieldsOfARecord)
{
    request_stand stand;
    ZU_S_Video_Ext video = {1, 2, 3, 4, 5, 6, 7, 8, 9, 1920, 1080};
    const auto out = set(stand, 0x1047, &video, sizeof(video), with_code(0));
    EXPECT_EQ(without_port(out.request), hex("61 10 00 00  44 0C 00 00  00 00 00 00"
                                             "47 10 00 00  00 00 00 00"
                                             "01 00 00 00  02 00 00 00  03 00 00 00"
                                             "04 00 00 00  05 00 00 00  06 00 00 00"
                                             "07 00 00 00  08 00 00 00  09 00 00 00"
                                             "80 07 00 00  38 04 00 00") +
                                             zeros(3088));
}

TEST(SetConfig, SendsAnyCommandUnchanged)
{
    request_stand stand;
    bytes record = pattern(100);
    for (const ZU_U32 command : {0U, 1U, 0x1051U, 0x3018U, 0x7FFFFFFFU, 0x80000000U, ~0U}) {
        const auto out = set(stand, command, record.data(), 100, with_code(0));
        EXPECT_EQ(without_port(out.request), write_of(command, record));
    }
}

class SetConfigLength : public testing::TestWithParam<ZU_U32>
{
};

TEST_P(SetConfigLength, SendsAsMuchOfTheRecordIn3152Bytes)
{
    request_stand stand;
    for (const ZU_U32 command : {0x1047U, 0x1048U, 0x1051U, 0x1052U, 0x3018U, 0x2002U}) {
        guarded_record record(pattern(GetParam()));
        const auto out = set(stand, command, record.data(), GetParam(), with_code(0));
        EXPECT_EQ(out.result, 0);
        EXPECT_EQ(out.request.raw().size(), 3152U);
        EXPECT_EQ(without_port(out.request), write_of(command, pattern(GetParam())));
        EXPECT_EQ(record.content(), pattern(GetParam()));
        EXPECT_TRUE(record.guards_hold());
    }
    EXPECT_TRUE(stand.nothing_more_sent());
}

INSTANTIATE_TEST_SUITE_P(, SetConfigLength,
                         testing::Values(0, 1, 43, 44, 2004, 3131, 3132, 3133, 3139, 3140),
                         testing::PrintToStringParamName());

TEST(SetConfig, SendsAnAllZeroRecordWithoutABuffer)
{
    request_stand stand;
    const auto out = set(stand, 0x1047, nullptr, 0, with_code(8));
    EXPECT_EQ(out.result, 8);
    EXPECT_EQ(without_port(out.request), hex("61 10 00 00  44 0C 00 00  00 00 00 00"
                                             "47 10 00 00") +
                                             zeros(3136));
}

TEST(SetConfig, DoesNotReadABufferOfLength0)
{
    request_stand stand;
    const forbidden_page page;
    const auto out = set(stand, 0x1047, page.data(), 0, with_code(0));
    EXPECT_EQ(without_port(out.request), write_of(0x1047, {}));
}

TEST(SetConfig, ReadsABufferOfAnyAlignment)
{
    request_stand stand;
    for (const size_t misalignment : {1, 2, 3}) {
        guarded_record record(pattern(44), misalignment);
        const auto out = set(stand, 0x1047, record.data(), 44, with_code(0));
        EXPECT_EQ(without_port(out.request), write_of(0x1047, pattern(44)));
    }
}

TEST(SetConfig, ReadsNotOneByteBeyondTheLength)
{
    // Copies that end where memory ends: a page that may be read before one that may not.
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    auto* memory = static_cast<unsigned char*>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_EQ(mprotect(memory + page, page, PROT_NONE), 0);
    request_stand stand;
    for (const ZU_U32 length : {1U, 43U, 44U, 3132U, 3140U}) {
        const bytes record = pattern(length);
        unsigned char* at = memory + page - length;
        std::copy(record.begin(), record.end(), at);
        const auto out = set(stand, 0x1047, at, length, with_code(0));
        EXPECT_EQ(without_port(out.request), write_of(0x1047, record));
    }
    munmap(memory, 2 * page);
}

TEST(SetConfig, LeavesTheWaitPortToTheSender)
{
    bytes record = pattern(3140);
    for (const ZU_U32 length : {0U, 44U, 3132U, 3140U}) {
        const bytes datagram = datagram_of([&](ZU_U32 handle) {
            return ZU_NET_DEV_SetConfig(handle, 0x1047, record.data(), length);
        });
        EXPECT_EQ(datagram, write_of(0x1047, bytes(record.begin(), record.begin() + length)));
    }
}

// ---- the answer --------------------------------------------------------------------------------

TEST(SetConfig, ReturnsTheFirstWordOfThePayload)
{
    request_stand stand;
    bytes record = pattern(44);
    for (const int code : {0, 1, -1, 3, INT_MAX, INT_MIN}) {
        EXPECT_EQ(set(stand, 0x1047, record.data(), 44, with_code(code)).result, code);
    }
}

TEST(SetConfig, DoesNotLookAtTheSecondWordOfThePayload)
{
    request_stand stand;
    const auto out = set(stand, 0x1047, nullptr, 0, with_record(2, 3, pattern(44)));
    EXPECT_EQ(out.result, 2);
}

TEST(SetConfig, CopiesNothingBackForAnyCommand)
{
    request_stand stand;
    for (const ZU_U32 command : {0x1047U, 0x1048U, 0x1051U, 0x1052U, 0x3018U, 0x2002U}) {
        guarded_record record(pattern(2004));
        set(stand, command, record.data(), 2004, with_record(command, 0, pattern(3132, 5)));
        EXPECT_EQ(record.content(), pattern(2004));
        EXPECT_TRUE(record.guards_hold());
    }
}

// ---- the log -----------------------------------------------------------------------------------

using SetConfigAt = at_level;

TEST_P(SetConfigAt, LogsTheBorrowedLabelAndNoLineOfASelector)
{
    request_stand stand(level);
    bytes record = pattern(44);
    for (const ZU_U32 command : {0x1047U, 0x1048U, 0x1052U, 0x2002U}) {
        stand.log.forget();
        set(stand, command, record.data(), 44, with_code(-12));
        expect_story(stand.log, level, entry,
                     {trace("enter ZU_NET_DEV_SetConfig\n"), trace("send msg_req_makekeyframe.\n"),
                      exchange_lines(), trace("get response code:-12\n"),
                      trace("leave ZU_NET_DEV_SetConfig\n")});
    }
}

INSTANTIATE_TEST_SUITE_P(, SetConfigAt, all_levels(), level_name);
