// What the entry points of settings and pan-tilt-zoom refuse, and how they fail: alike, but for
// their names and their arguments. Each refusal with its lines at every log level.
//
// A refused call never touches the caller's buffer: it lies in a page that may not be touched.
#include <tuple>

#include "live_login.h"
#include "requester.h"
#include "settings_kit.h"

using namespace support;

namespace
{

constexpr ZU_U32 nobody = 0x4321004D; // slot 77, without a record

struct entry_point {
    const char* name;
    const char* function;
    uint32_t type;
    // Good arguments but for these, of which pan-tilt-zoom knows the handle only.
    ZU_S32 (*call)(ZU_U32 handle, void* record, ZU_U32 length);
    story sending; // what it says before the exchange
};

void PrintTo(const entry_point& entry, std::ostream* out)
{
    *out << entry.function;
}

ZU_S32 get_video(ZU_U32 handle, void* record, ZU_U32 length)
{
    return ZU_NET_DEV_GetConfig(handle, 0x1047, record, length);
}

ZU_S32 set_video(ZU_U32 handle, void* record, ZU_U32 length)
{
    return ZU_NET_DEV_SetConfig(handle, 0x1047, record, length);
}

ZU_S32 move(ZU_U32 handle, void* /*record*/, ZU_U32 /*length*/)
{
    return ZU_NET_DEV_PTZ_Ctrl_Standard(handle, 5, 6);
}

ZU_S32 go_to_preset(ZU_U32 handle, void* /*record*/, ZU_U32 /*length*/)
{
    return ZU_NET_DEV_PTZ_Ctrl_Preset(handle, 5, 6);
}

const entry_point entry_points[] = {
    {"GetConfig",
     "ZU_NET_DEV_GetConfig",
     0x1071,
     get_video,
     {{log_at_trace_level, 0, "ZU_NET_DEV_CMD_VIDEO_PARAM_EXT\n"},
      trace("send msg_req_makekeyframe.\n")}},
    {"SetConfig",
     "ZU_NET_DEV_SetConfig",
     0x1061,
     set_video,
     {trace("send msg_req_makekeyframe.\n")}},
    {"PtzStandard", "ZU_NET_DEV_PTZ_Ctrl_Standard", 0x1031, move, {trace("send msg_req_ptz.\n")}},
    {"PtzPreset",
     "ZU_NET_DEV_PTZ_Ctrl_Preset",
     0x1041,
     go_to_preset,
     {trace("send msg_req_ptz.\n")}},
};

class RequestAt : public testing::TestWithParam<std::tuple<entry_point, int>>
{
protected:
    // The lines of a call: the one on entry, then these.
    story entered(const story& lines) const
    {
        return story{trace("enter " + std::string(entry.function) + "\n")} + lines;
    }

    const entry_point& entry = std::get<0>(GetParam());
    const int level = std::get<1>(GetParam());
    const forbidden_page page;
};

} // namespace

TEST_P(RequestAt, FailsBeforeInit)
{
    const log_tap log(level);
    // Everything else is wrong too: the first check decides.
    EXPECT_EQ(entry.call(77, page.data(), 3141), -1);
    EXPECT_EQ(entry.call(77, nullptr, 3141), -1);
    const story once = entered({error("zu_sdk_inited == 0\n")});
    expect_story(log, level, entry.function, once + once);
}

TEST_P(RequestAt, FailsForAnUnknownHandle)
{
    request_stand stand(level);
    EXPECT_EQ(entry.call(nobody, page.data(), 44), -1);
    expect_story(stand.log, level, entry.function, entered({no_such_record(77), not_usable()}));
}

TEST_P(RequestAt, FailsForAHandleBeyondTheTable)
{
    request_stand stand(level);
    EXPECT_EQ(entry.call(0x43210100, page.data(), 44), -1);
    expect_story(stand.log, level, entry.function,
                 entered({{log_at_error_levels, 0, " index invalid! index: 256\n", "get_sdkuser"},
                          not_usable()}));
}

TEST_P(RequestAt, FailsWhileTheLinkIsDown)
{
    for (const int used : {-1, 0, 1}) {
        request_stand stand(level);
        stand.user->used = used;
        EXPECT_EQ(entry.call(stand.handle(), page.data(), 44), -1);
        expect_story(stand.log, level, entry.function, entered({not_usable()}));
        EXPECT_TRUE(stand.nothing_more_sent());
    }
}

TEST_P(RequestAt, FailsWithoutTouchingTheBufferWhenTheExchangeFails)
{
    worker_stand stand(level);
    const fault failing("sendto", ENOBUFS);
    guarded_record record(pattern(44));
    EXPECT_EQ(entry.call(stand.handle(), record.data(), 44), -1);
    EXPECT_EQ(record.content(), pattern(44));
    EXPECT_TRUE(record.guards_hold());
    expect_story(stand.log, level, entry.function,
                 entered(entry.sending + story{exchange_lines(), error("write faill!\n")}));
}

INSTANTIATE_TEST_SUITE_P(, RequestAt,
                         testing::Combine(testing::ValuesIn(entry_points), all_levels()),
                         name_and_level);

// ---- the device and the login ------------------------------------------------------------------

class Request : public testing::TestWithParam<entry_point>
{
protected:
    const entry_point& entry = GetParam();
};

TEST_P(Request, FailsWhenTheDeviceDoesNotAnswer)
{
    request_stand stand(1);
    guarded_record record(pattern(44));
    auto running = in_background([&] { return entry.call(stand.handle(), record.data(), 44); });
    EXPECT_TRUE(stand.link.read_request());
    EXPECT_TRUE(stand.clock.advance_until([&] { return !still_waiting(running); }));
    EXPECT_EQ(running.get(), -1);
    EXPECT_EQ(record.content(), pattern(44));
    EXPECT_EQ(stand.log.messages_of(entry.function), std::vector<std::string>{"write faill!\n"});
}

TEST_P(Request, FailsAfterLogout)
{
    const inventory before;
    {
        serving_device device;
        const stopped_clock still; // no request and no link runs into its limit
        const library lib(1);
        live_login login(device.port());
        ASSERT_EQ(login.result(), 0);
        ASSERT_TRUE(login.wait_until_up());
        guarded_record record(pattern(44));
        EXPECT_EQ(entry.call(login.handle(), record.data(), 44), 0);
        ASSERT_EQ(login.log_out(), 0);
        const log_tap log(1);
        const forbidden_page page;
        EXPECT_EQ(entry.call(login.handle(), page.data(), 44), -1);
        expect_story(log, 1, entry.function,
                     {no_such_record(login.handle() & 0xffff), not_usable()});
        EXPECT_EQ(device.received(entry.type).size(), 1U);
    }
    EXPECT_EQ(before.left_over(), "");
}

INSTANTIATE_TEST_SUITE_P(, Request, testing::ValuesIn(entry_points),
                         [](const auto& with) { return std::string(with.param.name); });

// ---- lengths -----------------------------------------------------------------------------------

namespace
{

struct config_entry {
    const char* name;
    const char* function;
    ZU_S32 (*call)(ZU_U32 handle, ZU_U32 command, ZU_VOID* buffer, ZU_U32 length);
};

void PrintTo(const config_entry& entry, std::ostream* out)
{
    *out << entry.function;
}

const config_entry config_entries[] = {
    {"GetConfig", "ZU_NET_DEV_GetConfig", ZU_NET_DEV_GetConfig},
    {"SetConfig", "ZU_NET_DEV_SetConfig", ZU_NET_DEV_SetConfig},
};

class ConfigLengthAt : public testing::TestWithParam<std::tuple<config_entry, int>>
{
protected:
    // For handles good and bad and all commands: the length is looked at before either.
    void expect_refused(void* buffer, std::initializer_list<ZU_U32> lengths,
                        const std::string& line)
    {
        const auto& [entry, level] = GetParam();
        request_stand stand(level);
        for (const ZU_U32 handle : {stand.handle(), 77U}) {
            for (const ZU_U32 command :
                 {0x1047U, 0x1048U, 0x1051U, 0x1052U, 0x3018U, other_command}) {
                for (const ZU_U32 length : lengths) {
                    stand.log.forget();
                    EXPECT_EQ(entry.call(handle, command, buffer, length), -1);
                    expect_story(
                        stand.log, level, entry.function,
                        {trace("enter " + std::string(entry.function) + "\n"), error(line)});
                }
            }
        }
        EXPECT_TRUE(stand.nothing_more_sent());
    }
};

} // namespace

TEST_P(ConfigLengthAt, IsRefusedWithoutABuffer)
{
    expect_refused(nullptr, {1U, 3140U, 3141U, ~0U}, "u32BufLen > 0 && pBuf == NULL\n");
}

TEST_P(ConfigLengthAt, IsRefusedAbove3140WithALineWithoutAnEnd)
{
    const forbidden_page page;
    expect_refused(page.data(), {3141U, 0x80000000U, ~0U},
                   "u32BufLen > sizeof( struct zu_sdk_msg_config )");
}

INSTANTIATE_TEST_SUITE_P(, ConfigLengthAt,
                         testing::Combine(testing::ValuesIn(config_entries), all_levels()),
                         name_and_level);
