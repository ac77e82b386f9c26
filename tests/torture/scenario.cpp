// One whole life of a login on a simulated machine. See scenario.h.
#include "scenario.h"

#include <algorithm>
#include <cstring>

#include "good_device.h"
#include "ping.h"
#include "sdk_user.h"
#include "zu_net_dev_api.h"

using namespace sim;

namespace torture
{

namespace
{

constexpr unsigned short port = 9000;
constexpr micros whole_run = 400 * seconds;

class player;

// Set while a run is on; the log callback has no user pointer.
outcome* taken;
const watcher* watching;
player* playing;

told parse(int type, const char* line)
{
    const std::string whole(line);
    const size_t plus = whole.find(" +");
    const size_t name = whole.find_first_not_of("0123456789 ", plus + 2);
    const size_t end = whole.find("] ", name);
    if (plus == std::string::npos || end == std::string::npos) {
        give_up("a line without its head: " + whole);
    }
    return {machine::current().threads.thread_number(), type, whole.substr(name, end - name),
            whole.substr(end + 2)};
}

void on_log(int type, const char* line)
{
    taken->lines.push_back(parse(type, line));
    if (watching->on_line) {
        watching->on_line(taken->lines.back());
    }
}

// The application's side: counts what arrives and looks whether it may.
struct application {
    outcome& out;
    uint32_t last_frame = 0;
    bool logged_out = false;

    void breach(const std::string& what) const
    {
        out.breaches.push_back(what);
    }
};

ZU_S32 on_stream(ZU_U32, ZU_U32 type, ZU_U8* data, ZU_U32 length, ZU_VOID* self)
{
    auto* app = static_cast<application*>(self);
    const support::bytes body(data, data + length);
    uint32_t number = 0;
    if (app->logged_out) {
        app->breach("a frame after Logout");
    } else if (type != ZU_NET_DEV_AV_DATA || !is_numbered_frame(body, &number)) {
        app->breach("a frame that the device never sent");
    } else if (number <= app->last_frame) {
        app->breach("frame " + std::to_string(number) + " after " +
                    std::to_string(app->last_frame));
    }
    app->last_frame = number;
    app->out.frames++;
    return 0;
}

ZU_S32 on_event(ZU_U32, ZU_U32 event, ZU_VOID* self)
{
    auto* app = static_cast<application*>(self);
    if (app->logged_out) {
        app->breach("an event after Logout");
    }
    app->out.events.push_back(event);
    return 0;
}

// An entry point's result and its lines go together: -1 comes with an error line of the calling
// thread, anything else without one of the entry point's own. ping_status alone tells of a failed
// probe in a trace line.
void check_entry(outcome& out, const entry& made)
{
    bool any_error = false;
    bool own_error = false;
    for (size_t i = made.first_line; i < made.end_line; i++) {
        const told& line = out.lines[i];
        const bool here = line.thread == 0 && line.type == ZU_LOG_TYPE_ERROR;
        any_error = any_error || here;
        own_error = own_error || (here && line.function == made.name);
    }
    if (made.result == -1 && !any_error && made.name != "ping_status") {
        out.breaches.push_back(made.name + " fails without a line");
    }
    if (made.result != -1 && own_error) {
        out.breaches.push_back(made.name + " writes an error and returns " +
                               std::to_string(made.result));
    }
}

class player
{
public:
    player(outcome& result, machine& on, good_device& with)
        : out(result), app{result}, here(on), device(with)
    {
    }

    void run();
    void log_out_beside();

private:
    // Calls one entry point; true when it has succeeded. `text` is the call as it is written.
    template <class Call>
    bool call(const std::string& text, Call entry_point)
    {
        const std::string name = text.substr(0, text.find('('));
        if (watching->on_entry) {
            watching->on_entry(name);
        }
        const size_t first = out.lines.size();
        const long result = entry_point();
        out.entries.push_back({name, result, first, out.lines.size()});
        check_entry(out, out.entries.back());
        if (watching->on_entry) {
            watching->on_entry("");
        }
        return result == 0;
    }
#define CALL(expression) call(#expression, [&] { return expression; })

    void use();
    void count_logout(long result);

    outcome& out;
    application app;
    machine& here;
    good_device& device;
    ZU_U32 handle = 0;
    int logouts = 0; // that have succeeded
    std::vector<pthread_t> beside;
    bool closing = false; // from here on a Logout would be the application's mistake
};

void player::count_logout(long result)
{
    if (result == 0) {
        logouts++;
        app.logged_out = true;
    }
}

void player::log_out_beside()
{
    if (!closing) {
        beside.push_back(here.start([this] { count_logout(ZU_NET_DEV_Logout(handle)); }));
    }
}

void player::use()
{
    ZU_S_STREAM_INFO_EXT stream = {0, 1, 0, 1};
    ZU_S_Video_Ext video = {};
    ZU_S_Video_IDR_QP quantiser = {1, 30};
    CALL(ZU_NET_DEV_SetStreamCallBack(handle, on_stream, &app));
    CALL(ZU_NET_DEV_SetEventCallBack(handle, on_event, &app));
    CALL(ZU_NET_DEV_SetReconnect(handle, 5));
    CALL(ZU_NET_DEV_StartStreamExt(handle, &stream));
    CALL(ZU_NET_DEV_MakeKeyFrame(handle, 12));
    CALL(ZU_NET_DEV_GetConfig(handle, ZU_NET_DEV_CMD_VIDEO_PARAM_EXT, &video, sizeof(video)));
    CALL(ZU_NET_DEV_SetConfig(handle, ZU_NET_DEV_CMD_VIDEO_H264_H265_IDR_QP, &quantiser,
                              sizeof(quantiser)));
    CALL(ZU_NET_DEV_PTZ_Ctrl_Standard(handle, 1, 5));
    CALL(ZU_NET_DEV_PTZ_Ctrl_Preset(handle, 2, 7));
    here.let_pass(4 * seconds); // long enough for a heartbeat
    device.drop_links();
    const size_t before = out.frames;
    here.wait([&] { return out.frames > before + 4; }, 6 * seconds);
    CALL(ZU_NET_DEV_StopStream(handle));
}

void player::run()
{
    CALL(ZU_NET_DEV_Init());
    CALL(ping_status("192.0.2.1"));
    const bool logged_in = CALL(ZU_NET_DEV_Login(&handle, "user", "secret", "192.0.2.1", port));
    if (logged_in) {
        use();
        CALL(ZU_NET_DEV_Logout(handle));
        count_logout(out.entries.back().result);
    }
    closing = true;
    for (const pthread_t other : beside) {
        here.join(other);
    }
    if (logouts > 1 || (logged_in && logouts == 0)) {
        app.breach(std::to_string(logouts) + " Logouts succeed");
    }
    CALL(ZU_NET_DEV_DeInit());
}

} // namespace

bool outcome::undisturbed() const
{
    const bool all_succeed = std::all_of(entries.begin(), entries.end(),
                                         [](const entry& made) { return made.result == 0; });
    const auto count = [&](unsigned code) {
        return std::count(events.begin(), events.end(), code);
    };
    return breaches.empty() && all_succeed && entries.size() == 15 && frames > 80 &&
           count(ZU_NET_DEV_DISCONNECTED) == 1 && count(ZU_NET_DEV_CONNECTED) == 1 &&
           count(ZU_NET_DEV_HEARTBEAT) >= 1;
}

void log_out_beside()
{
    playing->log_out_beside();
}

outcome play(const watcher& by, const std::string& greeting)
{
    outcome out;
    machine here;
    good_device device(here, port);
    device.greet_with(greeting);
    here.threads.set_limit(whole_run);
    here.before_call = by.before_call;
    taken = &out;
    watching = &by;
    ZU_NET_DEV_SetLogLevel(ZU_LOG_LEVEL_ERROR);
    ZU_NET_DEV_SetLogCallback(on_log);
    player one(out, here, device);
    playing = &one;
    one.run();

    here.before_call = nullptr;
    const std::string left = here.left_over();
    if (!left.empty()) {
        out.breaches.push_back("left over: " + left);
    }
    for (const zu_sdk_user* user : sdk_users) {
        if (user != nullptr) {
            out.breaches.push_back("a slot is still taken");
        }
    }
    out.lasted = here.now();
    return out;
}

} // namespace torture
