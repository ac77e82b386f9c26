// Fuzz target: sequences of entry points, with what the device does between them and calls of the
// system that fail, as the input says.
//
// Every call must return, -1 must come with an error line, and nothing may be left after a Logout
// and DeInit.
#include <deque>

#include "good_device.h"
#include "input.h"
#include "sdk_user.h"
#include "stream_control.h"
#include "zu_net_dev_api.h"

using namespace sim;

namespace
{

constexpr unsigned short port = 9000;
constexpr micros whole_run = 40000 * seconds;
constexpr int most_steps = 60;
constexpr int errors[] = {4, 11, 12, 24, 32, 104, 105, 110}; // EINTR to ETIMEDOUT

int error_lines;

void on_log(int type, const char*)
{
    if (type == ZU_LOG_TYPE_ERROR && machine::current().threads.thread_number() == 0) {
        error_lines++;
    }
}

ZU_S32 on_stream(ZU_U32, ZU_U32, ZU_U8* data, ZU_U32 length, ZU_VOID*)
{
    uint32_t number = 0;
    if (!is_numbered_frame({data, data + length}, &number)) {
        give_up("a frame that the device has not sent");
    }
    return 0;
}

ZU_S32 on_event(ZU_U32, ZU_U32, ZU_VOID*)
{
    return 0;
}

class player
{
public:
    explicit player(fuzz::input& bytes) : in(bytes), device(here, port)
    {
        abort_when_giving_up();
        here.threads.set_limit(whole_run);
        here.fruitless_time = 20 * milliseconds; // a busy loop is soon through
        here.network_time = 5 * milliseconds;    // and so is a device that refuses without end
        here.before_call = [this](const call&) { return judge(); };
        ZU_NET_DEV_SetLogLevel(ZU_LOG_LEVEL_ERROR);
        ZU_NET_DEV_SetLogCallback(on_log);
        ZU_NET_DEV_SetLogLevel(in.byte() % 2 == 0 ? ZU_LOG_LEVEL_ERROR : ZU_LOG_LEVEL_TRACE);
        ZU_NET_DEV_Init();
    }

    void play()
    {
        for (int step = 0; step < most_steps && !in.empty(); step++) {
            take_step();
        }
        here.before_call = nullptr;
        for (int slot = 0; slot < sdk_user_max; slot++) {
            if (sdk_users[slot] != nullptr && ZU_NET_DEV_Logout(static_cast<ZU_U32>(slot)) != 0) {
                give_up("a login can't be ended");
            }
        }
        ZU_NET_DEV_DeInit();
        const std::string left = here.left_over();
        if (!left.empty()) {
            give_up(left);
        }
    }

private:
    verdict judge()
    {
        verdict how;
        if (calls_to_failure > 0 && --calls_to_failure == 0) {
            how.error = next_error;
        }
        return how;
    }

    ZU_U32 some_handle()
    {
        const unsigned which = in.byte();
        if (which < 200 && !handles.empty()) {
            return handles[which % handles.size()];
        }
        return which < 220 ? in.word() : 0x43210000;
    }

    template <class Call>
    void checked(Call entry_point)
    {
        const int before = error_lines;
        if (entry_point() == -1 && error_lines == before) {
            give_up("a call fails without a line");
        }
    }

    void log_in()
    {
        ZU_U32 handle = 0;
        checked([&] {
            const ZU_S32 result = ZU_NET_DEV_Login(&handle, "user", "secret", "192.0.2.1", port);
            if (result == 0) {
                handles.push_back(handle);
            }
            return result;
        });
    }

    void set_something(ZU_U32 handle)
    {
        char record[3200] = {};
        const std::string text = in.text(in.byte());
        text.copy(record, sizeof(record));
        const ZU_U32 length = in.word() % 3145;
        checked([&] { return ZU_NET_DEV_SetConfig(handle, in.word(), record, length); });
    }

    void get_something(ZU_U32 handle)
    {
        static const ZU_U32 commands[] = {0x1047, 0x1048, 0x1051, 0x1052, 0x3018, 0x2002};
        char record[3200] = {};
        const ZU_U32 command = commands[in.byte() % std::size(commands)];
        void* into = in.byte() % 4 == 0 ? nullptr : record;
        checked([&] { return ZU_NET_DEV_GetConfig(handle, command, into, in.byte() * 13); });
    }

    void take_step();
    void call_device();

    fuzz::input& in;
    machine here;
    good_device device;
    std::vector<ZU_U32> handles;
    int calls_to_failure = 0;
    int next_error = 0;
};

void player::call_device()
{
    switch (in.byte() % 8) {
    case 0:
        device.drop_links();
        break;
    case 1:
        device.reset_links();
        break;
    case 2:
        device.stall(in.byte() % 2 == 0);
        break;
    case 3:
        device.set_silent(in.byte() % 2 == 0);
        break;
    case 4:
        here.answer(port, static_cast<answer_to_connect>(in.byte() % 3));
        break;
    case 5:
        device.greet_with(in.text(in.byte() % 32));
        break;
    case 6:
        device.answer_after = in.byte() * 20 * milliseconds;
        break;
    default:
        device.frame_every = (in.byte() + 1) * 2 * milliseconds;
        break;
    }
}

void player::take_step()
{
    const unsigned step = in.byte();
    if (step >= 200) {
        here.let_pass((step - 199) * 20 * milliseconds);
        return;
    }
    switch (step % 20) {
    case 0:
        log_in();
        break;
    case 1:
        checked([&] { return ZU_NET_DEV_Logout(some_handle()); });
        break;
    case 2:
        checked([&] { return ZU_NET_DEV_SetStreamCallBack(some_handle(), on_stream, nullptr); });
        break;
    case 3:
        checked([&] { return ZU_NET_DEV_SetEventCallBack(some_handle(), on_event, nullptr); });
        break;
    case 4:
    case 5: {
        ZU_S_STREAM_INFO_EXT stream = {0, in.byte() % 5, 0, static_cast<ZU_U8>(in.byte() % 9)};
        checked([&] { return ZU_NET_DEV_StartStreamExt(some_handle(), &stream); });
        break;
    }
    case 6:
        checked([&] { return ZU_NET_DEV_StopStream(some_handle()); });
        break;
    case 7:
        checked([&] { return ZU_NET_DEV_MakeKeyFrame(some_handle(), 10 + in.byte() % 6); });
        break;
    case 8:
        get_something(some_handle());
        break;
    case 9:
        set_something(some_handle());
        break;
    case 10:
        checked([&] { return ZU_NET_DEV_PTZ_Ctrl_Standard(some_handle(), in.word(), in.byte()); });
        break;
    case 11:
        checked([&] { return ZU_NET_DEV_PTZ_Ctrl_Preset(some_handle(), in.byte(), in.byte()); });
        break;
    case 12:
        checked([&] { return ZU_NET_DEV_SetReconnect(some_handle(), in.byte()); });
        break;
    case 13:
        in_startstream(some_handle());
        break;
    case 14:
        here.clock_step += (static_cast<int>(in.byte()) - 128) * seconds;
        break;
    case 15:
    case 16:
        calls_to_failure = static_cast<int>(in.byte() * 4 + 1);
        next_error = errors[in.byte() % std::size(errors)];
        break;
    default:
        call_device();
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::input in(data, size);
    player(in).play();
    return 0;
}
