// Pan-tilt-zoom: the two entry points carry any two numbers to the device and return its code.
//
// Both follow one pattern and differ in name, message code and field names, so most tests run for
// both. The device's part is played on a thread of its own for each exchange. What they refuse is a
// matter of request_refusals_test.cpp.
#include <climits>
#include <tuple>

#include "live_login.h"
#include "settings_kit.h"

using namespace support;

namespace
{

struct ptz_entry {
    const char* name;
    const char* function;
    ZU_S32 (*call)(ZU_U32 handle, ZU_U32 command, ZU_U32 number);
    uint32_t type;
};

const ptz_entry standard = {"Standard", "ZU_NET_DEV_PTZ_Ctrl_Standard",
                            ZU_NET_DEV_PTZ_Ctrl_Standard, 0x1031};
const ptz_entry preset = {"Preset", "ZU_NET_DEV_PTZ_Ctrl_Preset", ZU_NET_DEV_PTZ_Ctrl_Preset,
                          0x1041};

void PrintTo(const ptz_entry& entry, std::ostream* out)
{
    *out << entry.name;
}

constexpr ZU_U32 any_numbers[] = {0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};

exchanged move(request_stand& stand, const ptz_entry& entry, ZU_U32 command, ZU_U32 number,
               const make_reply& reply)
{
    return exchange_with(stand, reply, [&] { return entry.call(stand.handle(), command, number); });
}

} // namespace

// ---- the request -------------------------------------------------------------------------------

TEST(PtzStandard, SendsActionAndSpeedIn20Bytes)
{
    request_stand stand;
    const auto out = move(stand, standard, 0x01020304, 0x0A0B0C0D, with_code(0));
    EXPECT_EQ(without_port(out.request), hex("31 10 00 00  08 00 00 00  00 00 00 00"
                                             "04 03 02 01  0D 0C 0B 0A"));
}

TEST(PtzPreset, SendsActionAndNumberIn20Bytes)
{
    request_stand stand;
    const auto out = move(stand, preset, 0x01020304, 0x0A0B0C0D, with_code(0));
    EXPECT_EQ(without_port(out.request), hex("41 10 00 00  08 00 00 00  00 00 00 00"
                                             "04 03 02 01  0D 0C 0B 0A"));
}

class Ptz : public testing::TestWithParam<ptz_entry>
{
};

TEST_P(Ptz, SendsAnyTwoNumbersBitForBit)
{
    request_stand stand;
    for (const ZU_U32 command : any_numbers) {
        for (const ZU_U32 number : any_numbers) {
            const auto out = move(stand, GetParam(), command, number, with_code(0));
            EXPECT_EQ(out.result, 0);
            EXPECT_EQ(without_port(out.request),
                      le32(GetParam().type) + le32(8) + le32(0) + le32(command) + le32(number));
        }
    }
    EXPECT_TRUE(stand.nothing_more_sent());
}

TEST_P(Ptz, LeavesTheWaitPortToTheSender)
{
    const bytes datagram =
        datagram_of([](ZU_U32 handle) { return GetParam().call(handle, 17, 0xFFFFFFFF); });
    EXPECT_EQ(datagram, le32(GetParam().type) + hex("08 00 00 00  00 00 00 00"
                                                    "11 00 00 00  FF FF FF FF"));
}

// ---- the answer --------------------------------------------------------------------------------

TEST_P(Ptz, ReturnsTheCodeOfTheDevice)
{
    request_stand stand;
    for (const int code : {0, 1, -1, 2, INT_MAX, INT_MIN}) {
        EXPECT_EQ(move(stand, GetParam(), 5, 6, with_code(code)).result, code);
    }
}

TEST_P(Ptz, TakesTheAnswerOfTheOtherKindToo)
{
    request_stand stand;
    const auto out = move(stand, GetParam(), 5, 6, [](const message& request) {
        return make_message(request.type == 0x1031 ? 0x1042 : 0x1032, request.wait_port, le32(9));
    });
    EXPECT_EQ(out.result, 9);
}

TEST_P(Ptz, ChangesNothingInTheRecord)
{
    worker_stand stand(1);
    const auto* record = reinterpret_cast<const unsigned char*>(stand.user);
    const bytes before(record, record + sizeof(zu_sdk_user));
    {
        const fault failing("ppoll", EINTR);
        EXPECT_EQ(GetParam().call(stand.handle(), 5, 6), -1);
    }
    EXPECT_TRUE(std::equal(before.begin(), before.end(), record));
}

TEST_P(Ptz, LetsManyCommandsBeUnderWayEachWithItsOwnAnswer)
{
    constexpr uint32_t callers = 8;
    request_stand stand;
    std::vector<std::future<ZU_S32>> calls;
    for (uint32_t i = 0; i < callers; i++) {
        calls.push_back(std::async(std::launch::async,
                                   [&stand, i] { return GetParam().call(stand.handle(), i, 0); }));
    }
    std::vector<message> requests;
    while (requests.size() < callers) {
        const auto request = stand.link.read_request();
        ASSERT_TRUE(request);
        requests.push_back(*request);
    }
    while (!requests.empty()) { // the latest first
        const auto code = static_cast<int32_t>(1000 + word_at(requests.back().body, 0));
        ASSERT_TRUE(stand.deliver(requests.back(), answer(requests.back(), code)));
        requests.pop_back();
    }
    for (uint32_t i = 0; i < callers; i++) {
        EXPECT_EQ(calls[i].get(), static_cast<ZU_S32>(1000 + i));
    }
}

// ---- the link and its workers ------------------------------------------------------------------

TEST_P(Ptz, DoesNotLookAtTheStartedFlags)
{
    request_stand stand;
    stand.user->msgsender_started = 0;
    stand.user->msgrecver_started = 0;
    EXPECT_EQ(move(stand, GetParam(), 5, 6, with_code(3)).result, 3);
}

TEST_P(Ptz, SendsNothingWhileTheLinkOfALoginIsDownAndWorksAgainAfterwards)
{
    const inventory before;
    {
        const stopped_clock still; // no request and no link runs into its limit
        serving_device device;
        const library lib(1);
        live_login login(device.port());
        ASSERT_EQ(login.result(), 0);
        ASSERT_TRUE(login.wait_until_up());
        device.refuse();
        device.drop_links();
        ASSERT_TRUE(login.wait_until_down());
        EXPECT_EQ(used_word(login.handle()), -1);
        {
            const log_tap log(1);
            const before_call sendings("sendto");
            EXPECT_EQ(GetParam().call(login.handle(), 5, 6), -1);
            EXPECT_EQ(sendings.count(), 0);
            expect_story(log, 1, GetParam().function, {not_usable()});
        }
        set_log_level(1);
        device.serve_again();
        ASSERT_TRUE(login.wait_until_up());
        EXPECT_EQ(GetParam().call(login.handle(), 5, 6), 0);
        EXPECT_EQ(device.received(GetParam().type).size(), 1U);
    }
    EXPECT_EQ(before.left_over(), "");
}

INSTANTIATE_TEST_SUITE_P(, Ptz, testing::Values(standard, preset),
                         [](const auto& with) { return std::string(with.param.name); });

// ---- the log -----------------------------------------------------------------------------------

class PtzAt : public testing::TestWithParam<std::tuple<ptz_entry, int>>
{
protected:
    const ptz_entry& entry = std::get<0>(GetParam());
    const int level = std::get<1>(GetParam());
};

TEST_P(PtzAt, LogsTheOneLabelOfBoth)
{
    request_stand stand(level);
    const auto out = move(stand, entry, 5, 6, with_code(-12));
    EXPECT_EQ(out.request.type, entry.type);
    expect_story(stand.log, level, entry.function,
                 {trace("enter " + std::string(entry.function) + "\n"),
                  trace("send msg_req_ptz.\n"), exchange_lines(), trace("get response code:-12\n"),
                  trace("leave " + std::string(entry.function) + "\n")});
}

INSTANTIATE_TEST_SUITE_P(, PtzAt, testing::Combine(testing::Values(standard, preset), all_levels()),
                         name_and_level);
