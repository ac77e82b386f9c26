// The nine entry points without device support: each takes anything, does nothing but log that it
// was entered and left, and succeeds.
//
// Pointers that may not be followed point into a page without access: following one ends the
// process.
#include <atomic>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "forbidden_page.h"
#include "live_login.h"
#include "log_story.h"
#include "worker_stand.h"

using namespace support;

namespace
{

// What an application may pass: a handle, a number, a pointer and a callback, any of them bad.
struct arguments {
    ZU_U32 handle;
    ZU_U32 number;
    ZU_U64 pts;
    void* pointer;
    ZU_ON_DATA_CALLBACK callback;
};

struct entry_point {
    const char* name;
    ZU_S32 (*call)(const arguments& with);
};

const entry_point all_nine[] = {
    {"ZU_NET_DEV_SetDataCallBack",
     [](const arguments& a) {
         return ZU_NET_DEV_SetDataCallBack(a.handle, a.callback, a.pointer);
     }},
    {"ZU_NET_DEV_PTZ_Ctrl_StandardEx",
     [](const arguments& a) { return ZU_NET_DEV_PTZ_Ctrl_StandardEx(a.handle, a.number); }},
    {"ZU_NET_DEV_PTZ_Fully_Trans",
     [](const arguments& a) {
         return ZU_NET_DEV_PTZ_Fully_Trans(a.handle, static_cast<const ZU_CHAR*>(a.pointer),
                                           a.number);
     }},
    {"ZU_NET_DEV_StartVoice",
     [](const arguments& a) { return ZU_NET_DEV_StartVoice(a.handle, a.number); }},
    {"ZU_NET_DEV_StopVoice", [](const arguments& a) { return ZU_NET_DEV_StopVoice(a.handle); }},
    {"ZU_NET_DEV_SendVoiceData",
     [](const arguments& a) {
         return ZU_NET_DEV_SendVoiceData(a.handle, static_cast<ZU_CHAR*>(a.pointer), a.number,
                                         a.pts);
     }},
    {"ZU_NET_DEV_StartRecord",
     [](const arguments& a) {
         return ZU_NET_DEV_StartRecord(a.handle, static_cast<ZU_CHAR*>(a.pointer), a.number,
                                       a.number);
     }},
    {"ZU_NET_DEV_StopRecord", [](const arguments& a) { return ZU_NET_DEV_StopRecord(a.handle); }},
    {"ZU_NET_DEV_GetRecordState",
     [](const arguments& a) { return ZU_NET_DEV_GetRecordState(a.handle); }},
};

void PrintTo(const entry_point& entry, std::ostream* out)
{
    *out << entry.name;
}

std::string short_name(const testing::TestParamInfo<entry_point>& with)
{
    return std::string(with.param.name).substr(sizeof("ZU_NET_DEV_") - 1);
}

std::atomic<int> data_calls{0};

ZU_S32 on_data(ZU_U32 /*handle*/, ZU_U32 /*type*/, ZU_U8* /*data*/, ZU_U32 /*length*/,
               ZU_VOID* /*self*/)
{
    data_calls++;
    return 0;
}

// Sets of arguments: nothing at all, everything wrong, everything in good order.
class argument_sets
{
public:
    std::vector<arguments> for_handle(ZU_U32 handle) const
    {
        const auto no_code = reinterpret_cast<ZU_ON_DATA_CALLBACK>(page.data());
        return {{handle, 0, 0, nullptr, nullptr},
                {handle, 1, 40, page.data(), on_data},
                {handle, 0xFFFFFFFF, ~ZU_U64(0), page.data(), no_code}};
    }
    std::vector<arguments> for_all_handles() const
    {
        std::vector<arguments> all;
        for (const ZU_U32 handle : {0U, 0x4321004DU, 0x43210100U, 0x4321FFFFU, 0xFFFFFFFFU}) {
            const auto some = for_handle(handle);
            all.insert(all.end(), some.begin(), some.end());
        }
        return all;
    }

private:
    const forbidden_page page;
};

class Unsupported : public testing::TestWithParam<entry_point>
{
protected:
    const argument_sets sets;
};

} // namespace

TEST_P(Unsupported, SucceedsBeforeInitWhateverItIsGiven)
{
    const log_tap log(2);
    for (const arguments& with : sets.for_all_handles()) {
        EXPECT_EQ(GetParam().call(with), 0);
    }
}

TEST_P(Unsupported, SucceedsBetweenInitAndDeInitAndAfterwards)
{
    const library lib(1);
    for (const arguments& with : sets.for_all_handles()) {
        EXPECT_EQ(GetParam().call(with), 0);
    }
    ZU_NET_DEV_DeInit();
    for (const arguments& with : sets.for_all_handles()) {
        EXPECT_EQ(GetParam().call(with), 0);
    }
}

TEST_P(Unsupported, LogsItsOwnNameTwiceAtLevel2AndNothingAtTheOthers)
{
    const std::string name = GetParam().name;
    for (const arguments& with : sets.for_all_handles()) {
        for (const int level : log_levels) {
            const log_tap log(level);
            EXPECT_EQ(GetParam().call(with), 0);
            EXPECT_TRUE(all_told(log, name, level,
                                 {trace("enter " + name + "\n"), trace("leave " + name + "\n")}));
        }
    }
}

TEST_P(Unsupported, SucceedsWithoutLookingWhetherTheLinkIsUp)
{
    worker_stand stand(1);
    for (const int used : {ZU_SDK_USER_USED, -1, 0}) {
        stand.user->used = used;
        for (const arguments& with : sets.for_handle(stand.handle())) {
            EXPECT_EQ(GetParam().call(with), 0);
        }
    }
}

TEST_P(Unsupported, ChangesNothingInTheRecordOfALogin)
{
    worker_stand stand(1);
    const auto* record = reinterpret_cast<const unsigned char*>(stand.user);
    const bytes before(record, record + sizeof(zu_sdk_user));
    for (const arguments& with : sets.for_handle(stand.handle())) {
        GetParam().call(with);
    }
    EXPECT_TRUE(std::equal(before.begin(), before.end(), record));
}

TEST_P(Unsupported, SendsNothing)
{
    worker_stand stand(1);
    stand.start_sender();
    stand.start_receiver();
    for (const arguments& with : sets.for_handle(stand.handle())) {
        GetParam().call(with);
    }
    // Whatever they had sent would reach the device before this.
    const bytes marker = make_message(0x7777, 0, {});
    ASSERT_TRUE(loopback_socket().send_to(stand.int_port(), marker));
    const auto first = stand.link.read_request();
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(first->type, 0x7777U);
    stand.end_workers();
    EXPECT_FALSE(stand.link.read_request().has_value());
}

INSTANTIATE_TEST_SUITE_P(, Unsupported, testing::ValuesIn(all_nine), short_name);

// ---- the data callback -------------------------------------------------------------------------

TEST(SetDataCallBack, NeverMakesTheCallbackBeCalledWhateverTheDeviceSends)
{
    watcher seen;
    {
        still_stand stand(1);
        stand.user->stream_userdata = &seen;
        stand.user->stream_callback = watcher::on_stream;
        stand.user->event_userdata = &seen;
        stand.user->event_callback = watcher::on_event;
        EXPECT_EQ(ZU_NET_DEV_SetDataCallBack(stand.handle(), on_data, nullptr), 0);
        stand.start_receiver();
        EXPECT_EQ(ZU_NET_DEV_SetDataCallBack(stand.handle(), on_data, nullptr), 0);
        size_t blocks = 0;
        for (const char* flag : {"KTVF", "KTAF", "VUYV", "FSYS", "EXVC", "????"}) {
            ASSERT_TRUE(stand.link.send(stream_data(flag, pattern(40))));
            EXPECT_TRUE(seen.wait_for_blocks(++blocks));
        }
        ASSERT_TRUE(stand.link.send(make_message(0x1022, 0, {})));
        EXPECT_TRUE(seen.wait_for_event(ZU_NET_DEV_HEARTBEAT));
        ASSERT_TRUE(stand.link.send(make_message(0x7777, 0, pattern(40))));
        ASSERT_TRUE(stand.link.send(stream_data("KTVF", pattern(40))));
        EXPECT_TRUE(seen.wait_for_blocks(++blocks));
    }
    EXPECT_EQ(data_calls, 0);
}

TEST(SetDataCallBack, TakesNothingFromTheStreamCallback)
{
    worker_stand stand(1);
    watcher seen;
    ASSERT_EQ(ZU_NET_DEV_SetStreamCallBack(stand.handle(), watcher::on_stream, &seen), 0);
    ASSERT_EQ(ZU_NET_DEV_SetDataCallBack(stand.handle(), on_data, nullptr), 0);
    EXPECT_EQ(stand.user->stream_callback.load(), &watcher::on_stream);
    EXPECT_EQ(stand.user->stream_userdata.load(), &seen);
    EXPECT_EQ(stand.user->record_callback, nullptr);
    EXPECT_EQ(stand.user->record_stream_callback, nullptr);
    EXPECT_EQ(stand.user->vmd_callback, nullptr);
}
