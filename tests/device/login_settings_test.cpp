// SetReconnect, SetStreamCallBack and SetEventCallBack: what they store, refuse and log.
#include "login_kit.h"

using namespace support;

namespace
{

constexpr char interval_line[] = "zu_sdk_inited == 0 || u32Interval == 0\n";
constexpr char callback_line[] = "zu_sdk_inited == 0 || cbStreamCallBack == 0\n";
constexpr char reconnect_name[] = "ZU_NET_DEV_SetReconnect";
constexpr char stream_name[] = "ZU_NET_DEV_SetStreamCallBack";
constexpr char event_name[] = "ZU_NET_DEV_SetEventCallBack";

ZU_S32 set_reconnect(ZU_U32 handle)
{
    return ZU_NET_DEV_SetReconnect(handle, 20);
}

ZU_S32 set_stream(ZU_U32 handle)
{
    return ZU_NET_DEV_SetStreamCallBack(handle, watcher::on_stream, nullptr);
}

ZU_S32 set_event(ZU_U32 handle)
{
    return ZU_NET_DEV_SetEventCallBack(handle, watcher::on_event, nullptr);
}

struct setter {
    const char* name;
    const char* argument_line;
    const char* stored_line; // "*" for what a test does not look at
    ZU_S32 (*call)(ZU_U32 handle);
};

const setter setters[] = {
    {reconnect_name, interval_line, "reconnect_interval:20\n", set_reconnect},
    {stream_name, callback_line, "stream_callback:0x* stream_userdata:(nil)\n", set_stream},
    {event_name, callback_line, "stream_callback:0x* event_userdata:(nil)\n", set_event},
};

class Setter : public testing::TestWithParam<setter>
{
protected:
    std::string enter() const
    {
        return std::string("enter ") + GetParam().name + "\n";
    }
    std::string leave() const
    {
        return std::string("leave ") + GetParam().name + "\n";
    }
};

std::string name_of_case(const testing::TestParamInfo<setter>& info)
{
    return info.param.name;
}

// A record in the table that looks as if its link were up, without one.
class bare_user
{
public:
    bare_user() : slot(alloc_sdkuser())
    {
        sdk_users[slot]->used = ZU_SDK_USER_USED;
    }
    ~bare_user()
    {
        free_sdkuser(handle());
    }
    bare_user(const bare_user&) = delete;
    bare_user& operator=(const bare_user&) = delete;

    ZU_U32 handle() const
    {
        return sdk_user_handle_base + static_cast<ZU_U32>(slot);
    }
    zu_sdk_user* operator->() const
    {
        return sdk_users[slot];
    }

private:
    const int slot;
};

} // namespace

TEST_P(Setter, SucceedsWhileTheLinkIsUpAndLogsWhatItStored)
{
    const library lib(0);
    const bare_user user;
    for (const int level : log_levels) {
        const log_tap log(level);
        EXPECT_EQ(GetParam().call(user.handle()), 0);
        EXPECT_TRUE(all_told(log, GetParam().name, level,
                             {trace(enter()), trace(GetParam().stored_line), trace(leave())}));
    }
}

TEST_P(Setter, IsRefusedBeforeInitWithItsArgumentLine)
{
    for (const int level : log_levels) {
        const log_tap log(level);
        EXPECT_EQ(GetParam().call(0x43210000), -1);
        EXPECT_TRUE(all_told(log, GetParam().name, level,
                             {trace(enter()), error(GetParam().argument_line)}));
    }
}

TEST_P(Setter, IsRefusedWithoutARecord)
{
    const library lib(0);
    for (const int level : log_levels) {
        const log_tap log(level);
        EXPECT_EQ(GetParam().call(0x43210007), -1);
        EXPECT_TRUE(told_by(log, GetParam().name, level, {trace(enter()), error(no_user_line)}));
    }
}

TEST_P(Setter, IsRefusedWhileTheLinkIsDown)
{
    const library lib(0);
    const bare_user user;
    user->used = -1;
    for (const int level : log_levels) {
        const log_tap log(level);
        EXPECT_EQ(GetParam().call(user.handle()), -1);
        EXPECT_TRUE(all_told(log, GetParam().name, level, {trace(enter()), error(no_user_line)}));
    }
    EXPECT_EQ(user->reconnect_interval, 0);
    EXPECT_EQ(user->stream_callback, nullptr);
    EXPECT_EQ(user->event_callback, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Each, Setter, testing::ValuesIn(setters), name_of_case);

TEST(SetReconnect, RefusesIntervalZero)
{
    const library lib(0);
    const bare_user user;
    user->reconnect_interval = 9;
    for (const int level : log_levels) {
        const log_tap log(level);
        EXPECT_EQ(ZU_NET_DEV_SetReconnect(user.handle(), 0), -1);
        EXPECT_TRUE(told_by(log, reconnect_name, level,
                            {trace("enter ZU_NET_DEV_SetReconnect\n"), error(interval_line)}));
    }
    EXPECT_EQ(user->reconnect_interval, 9);
}

TEST(SetReconnect, StoresTheIntervalAndPrintsItAsASignedNumber)
{
    const library lib(0);
    const bare_user user;
    const log_tap log(2);
    EXPECT_EQ(ZU_NET_DEV_SetReconnect(user.handle(), 0xFFFFFFFF), 0);
    EXPECT_EQ(user->reconnect_interval, -1);
    EXPECT_TRUE(log.has(7, reconnect_name, "reconnect_interval:-1\n"));
}

namespace
{

// Both refuse with the line of the stream and keep what they have.
template <class Set, class Field>
void expect_null_callback_refused(Set set, const char* function, Field userdata)
{
    const library lib(0);
    const bare_user user;
    const log_tap log(1);
    int mine = 0;
    EXPECT_EQ(set(user.handle(), nullptr, &mine), -1);
    EXPECT_TRUE(log.has(0, function, callback_line));
    EXPECT_EQ(user.operator->()->*userdata, nullptr);
}

// Both print the callback as a stream callback.
template <class Set, class Callback>
void expect_both_pointers_printed(Set set, Callback callback, const char* function,
                                  const char* userdata_name)
{
    const library lib(0);
    const bare_user user;
    const log_tap log(2);
    char expected[200];
    snprintf(expected, sizeof(expected), "stream_callback:%p %s:%p\n",
             reinterpret_cast<void*>(callback), userdata_name, static_cast<void*>(expected));
    EXPECT_EQ(set(user.handle(), callback, expected), 0);
    EXPECT_TRUE(log.has(7, function, expected));
}

} // namespace

TEST(SetStreamCallBack, RefusesANullCallback)
{
    expect_null_callback_refused(ZU_NET_DEV_SetStreamCallBack, stream_name,
                                 &zu_sdk_user::stream_userdata);
}

TEST(SetEventCallBack, RefusesANullCallbackWithTheLineOfTheStream)
{
    expect_null_callback_refused(ZU_NET_DEV_SetEventCallBack, event_name,
                                 &zu_sdk_user::event_userdata);
}

TEST(SetStreamCallBack, PrintsBothPointers)
{
    expect_both_pointers_printed(ZU_NET_DEV_SetStreamCallBack, watcher::on_stream, stream_name,
                                 "stream_userdata");
}

TEST(SetEventCallBack, PrintsTheEventCallbackAsAStreamCallback)
{
    expect_both_pointers_printed(ZU_NET_DEV_SetEventCallBack, watcher::on_event, event_name,
                                 "event_userdata");
}

TEST(SetEventCallBack, StoresTheHandleAsItWasPassed)
{
    const library lib(0);
    const bare_user user;
    EXPECT_EQ(ZU_NET_DEV_SetEventCallBack(user.handle() & 0xffff, watcher::on_event, nullptr), 0);
    EXPECT_EQ(user->handle, user.handle() & 0xffff);
}

TEST(SetStreamCallBack, WithTheBareSlotNumberMakesCallbacksReportThat)
{
    const inventory before;
    {
        const library lib(0);
        // The slots are given out from both ends in turn: six others, then number 3.
        std::vector<int> others;
        for (int i = 0; i < 6; i++) {
            others.push_back(alloc_sdkuser());
        }
        serving_device device;
        live_login login(device.port());
        ASSERT_EQ(login.handle(), 0x43210003U);
        ASSERT_EQ(ZU_NET_DEV_SetStreamCallBack(0x00000003, watcher::on_stream, &login.seen), 0);
        ASSERT_EQ(login.start_stream(), 0);
        device.send_to_all(stream_data("KTVF", pattern(10)));
        ASSERT_TRUE(login.seen.wait_for_blocks(1));
        EXPECT_EQ(login.seen.blocks()[0].handle, 0x00000003U);
        login.log_out();
        for (const int slot : others) {
            free_sdkuser(static_cast<ZU_U32>(slot));
        }
    }
    EXPECT_EQ(before.left_over(), "");
}

TEST(SetReconnect, LeavesThePauseBeforeAReconnectionAtThreeSeconds)
{
    const library lib;
    serving_device device;
    const log_tap log(1);
    live_login login(device.port());
    ASSERT_EQ(login.result(), 0);
    ASSERT_EQ(ZU_NET_DEV_SetReconnect(login.handle(), 1), 0);
    const auto start = std::chrono::steady_clock::now();
    drop(device);
    ASSERT_TRUE(eventually([&] { return device.connections_made() == 2; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_TRUE(log.has(7, manager_name, pause_line));
}

TEST(SetReconnect, OfADayDoesNotLengthenThePause)
{
    const library lib;
    serving_device device;
    live_login login(device.port());
    ASSERT_EQ(ZU_NET_DEV_SetReconnect(login.handle(), 86400), 0);
    drop(device);
    EXPECT_TRUE(eventually([&] { return device.connections_made() == 2; }));
}
