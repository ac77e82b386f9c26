// A random life. See random_life.h.
#include "random_life.h"

#include <cerrno>
#include <cstring>
#include <deque>

#include "call_sites.h"
#include "good_device.h"
#include "sdk_user.h"
#include "temper.h"
#include "zu_net_dev_api.h"

using namespace sim;

namespace torture
{

namespace
{

constexpr micros whole_run = 3000 * seconds;
constexpr unsigned short first_port = 9000;

class life;
life* the_life; // the log callback has no user pointer

// One login and what its callbacks have seen.
struct login {
    life* in = nullptr;
    unsigned short port = 0;
    ZU_U32 handle = 0;
    bool over = false; // a Logout has succeeded
    int logouts = 0;   // that have succeeded
    int in_event = 0;  // event callbacks that run now
    uint32_t last_frame = 0;
};

class life
{
public:
    explicit life(unsigned seed);
    life_story live();

    void breach(const std::string& what)
    {
        story.breaches.push_back(what);
    }
    void on_frame(login& of, ZU_U32 type, const support::bytes& body);
    void on_event(login& of);
    void on_line(int type, const char* line);

private:
    verdict judge(const call& made);
    void pause_a_while(unsigned chances, micros most);
    void be_moody(good_device& device, unsigned short port);
    void use(login& of);
    void act_once(login& of);

    // Calls an entry point. -1 comes with an error line of the calling thread.
    template <class Call>
    long checked(const char* name, Call call)
    {
        const unsigned thread = here.threads.thread_number();
        const int errors_before = error_lines[thread];
        const long result = call();
        story.counts[result == 0 ? "calls that succeed" : "calls that fail"]++;
        if (result != 0 && result != -1) {
            breach(std::string(name) + " returns " + std::to_string(result));
        }
        if (result == -1 && error_lines[thread] == errors_before) {
            breach(std::string(name) + " fails without a line");
        }
        return result;
    }

    void log_out(login& of, bool in_event = false);
    void lead(login& of);

    dice d;
    const temper is;
    machine here;
    std::deque<good_device> devices;
    std::deque<login> logins;
    std::map<unsigned, int> error_lines; // by thread
    life_story story;
    unsigned tried = 0; // logins
    bool calm = true;   // nothing fails or comes late
};

ZU_S32 stream_callback(ZU_U32, ZU_U32 type, ZU_U8* data, ZU_U32 length, ZU_VOID* self)
{
    auto* of = static_cast<login*>(self);
    of->in->on_frame(*of, type, {data, data + length});
    return 0;
}

ZU_S32 event_callback(ZU_U32, ZU_U32, ZU_VOID* self)
{
    auto* of = static_cast<login*>(self);
    of->in->on_event(*of);
    return 0;
}

void log_callback(int type, const char* line)
{
    the_life->on_line(type, line);
}

life::life(unsigned seed) : d(seed), is(draw(d)), here(seed)
{
    the_life = this;
    here.threads.set_limit(whole_run);
    here.threads.set_restlessness(is.restless);
    here.threads.set_start_delay([this](unsigned) {
        return !calm && d.one_in(is.late_threads)
                   ? d.up_to(d.any_of({1 * milliseconds, 600 * milliseconds, 7 * seconds}))
                   : 0;
    });
    here.before_call = [this](const call& made) { return judge(made); };
}

void life::pause_a_while(unsigned chances, micros most)
{
    if (!calm && d.one_in(chances)) {
        story.counts["delays"]++;
        here.let_pass(d.up_to(most));
    }
}

// The mutex is left alone: its holder would be late for everybody.
verdict life::judge(const call& made)
{
    const std::string function = made.function;
    if (function.find("mutex") == std::string::npos && function != "mmap") {
        pause_a_while(is.late, d.any_of({2 * milliseconds, 100 * milliseconds, 2 * seconds}));
    }
    verdict how;
    const std::vector<int>& errors = errors_of(function);
    if (!calm && !errors.empty() && function != "pthread_mutex_init" && d.one_in(is.failing)) {
        how.error = errors[d.below(static_cast<unsigned>(errors.size()))];
        story.counts["failures of the system"]++;
    }
    return how;
}

// ---- what the library tells --------------------------------------------------------------------

void life::on_line(int type, const char*)
{
    if (type == ZU_LOG_TYPE_ERROR) {
        error_lines[here.threads.thread_number()]++;
    }
    pause_a_while(is.slow_lines, d.any_of({1 * milliseconds, 300 * milliseconds}));
}

void life::on_frame(login& of, ZU_U32 type, const support::bytes& body)
{
    uint32_t number = 0;
    if (of.over) {
        breach("a frame begins after Logout");
    } else if (type != ZU_NET_DEV_AV_DATA || !is_numbered_frame(body, &number)) {
        breach("a frame that no device has sent");
    } else if (number <= of.last_frame) {
        breach("a frame out of order");
    }
    of.last_frame = number;
    story.counts["frames"]++;
    pause_a_while(is.slow_callbacks, 500 * milliseconds);
}

void life::on_event(login& of)
{
    if (of.over) {
        breach("an event begins after Logout");
    }
    story.counts["events"]++;
    of.in_event++;
    pause_a_while(is.slow_callbacks, d.any_of({10 * milliseconds, 8 * seconds}));
    if (!calm && d.one_in(is.calls_in_events)) {
        if (d.one_in(3)) {
            log_out(of, true);
        } else {
            act_once(of);
        }
    }
    of.in_event--;
}

// ---- devices -----------------------------------------------------------------------------------

// Changes its ways at random moments, and comes to its senses in the end.
void life::be_moody(good_device& device, unsigned short port)
{
    for (unsigned i = 0; i < is.moody_devices; i++) {
        here.at(here.now() + d.up_to(30 * seconds), [this, &device, port] {
            switch (d.below(9)) {
            case 0:
                here.answer(port, answer_to_connect::refuse);
                break;
            case 1:
                here.answer(port, answer_to_connect::silence);
                break;
            case 2:
                device.stall(true);
                break;
            case 3:
                device.reset_links();
                return;
            case 4:
                device.send_to_all(std::string("\x00\x11\x00", 3)); // a quarter of a header
                return;
            case 5:
                device.greet_with(std::string("\x00\x11\x00", 3));
                break;
            case 6:
                device.set_silent(true);
                break;
            case 7:
                device.send_urgent_to_all();
                return;
            default:
                device.drop_links();
                return;
            }
            here.at(here.now() + d.up_to(10 * seconds), [this, &device, port] {
                here.answer(port, answer_to_connect::accept);
                device.stall(false);
                device.set_silent(false);
                device.greet_with("");
            });
        });
    }
}

// ---- the application ---------------------------------------------------------------------------

#define CHECKED(expression) checked(#expression, [&] { return expression; })

void life::act_once(login& of)
{
    ZU_S_STREAM_INFO_EXT stream = {0, d.below(4), 0, 1};
    ZU_S_Video_Ext video = {};
    ZU_S_Video_IDR_QP quantiser = {0, 30};
    const ZU_U32 handle = of.handle;
    switch (d.below(9)) {
    case 0:
        CHECKED(ZU_NET_DEV_StartStreamExt(handle, &stream));
        break;
    case 1:
        CHECKED(ZU_NET_DEV_StopStream(handle));
        break;
    case 2:
        CHECKED(ZU_NET_DEV_MakeKeyFrame(handle, 11));
        break;
    case 3:
        CHECKED(
            ZU_NET_DEV_GetConfig(handle, ZU_NET_DEV_CMD_VIDEO_PARAM_EXT, &video, sizeof(video)));
        break;
    case 4:
        CHECKED(ZU_NET_DEV_SetConfig(handle, ZU_NET_DEV_CMD_VIDEO_H264_H265_IDR_QP, &quantiser,
                                     sizeof(quantiser)));
        break;
    case 5:
        CHECKED(ZU_NET_DEV_PTZ_Ctrl_Standard(handle, 1, 5));
        break;
    case 6:
        CHECKED(ZU_NET_DEV_PTZ_Ctrl_Preset(handle, 2, 7));
        break;
    case 7:
        CHECKED(ZU_NET_DEV_SetStreamCallBack(handle, stream_callback, &of));
        break;
    default:
        CHECKED(ZU_NET_DEV_SetEventCallBack(handle, event_callback, &of));
        break;
    }
}

// A Logout waits for event callbacks that run, five seconds at most and not in one of them.
void life::log_out(login& of, bool in_event)
{
    const micros begun = here.now();
    const long result = CHECKED(ZU_NET_DEV_Logout(of.handle));
    if (result == 0) {
        if (!in_event && of.in_event != 0 && here.now() < begun + 5 * seconds) {
            breach("Logout leaves an event callback running");
        }
        of.over = true;
        of.logouts++;
        story.counts["logouts"]++;
    }
}

// Goes on for a few calls after a Logout: they must fail, and touch nothing.
void life::use(login& of)
{
    const micros until = here.now() + d.up_to(40 * seconds);
    for (int after_the_end = 0; here.now() < until && after_the_end < 5;) {
        here.let_pass(d.up_to(d.any_of({10 * milliseconds, 1 * seconds, 6 * seconds})));
        act_once(of);
        if (d.one_in(60)) {
            log_out(of);
        }
        after_the_end += of.over ? 1 : 0;
    }
}

// The thread that logs in, starts the others and logs out; a failed Logout means that another has
// succeeded or is at it.
void life::lead(login& of)
{
    here.let_pass(d.up_to(2 * seconds));
    const long result =
        CHECKED(ZU_NET_DEV_Login(&of.handle, "user", "secret", "192.0.2.1", of.port));
    // Nobody logs out before everybody has logged in: no handle comes to mean another login.
    tried++;
    here.wait([this] { return tried == is.logins; }, never);
    if (result != 0) {
        return;
    }
    CHECKED(ZU_NET_DEV_SetStreamCallBack(of.handle, stream_callback, &of));
    CHECKED(ZU_NET_DEV_SetEventCallBack(of.handle, event_callback, &of));
    std::vector<pthread_t> users;
    for (unsigned i = 0; i < is.threads; i++) {
        users.push_back(here.start([this, &of] { use(of); }));
    }
    use(of);
    log_out(of);
    for (const pthread_t user : users) {
        here.join(user);
    }
    if (!here.wait([&] { return of.logouts > 0; }, 200 * seconds) || of.logouts != 1) {
        breach(std::to_string(of.logouts) + " Logouts succeed");
    }
}

life_story life::live()
{
    ZU_NET_DEV_SetLogLevel(static_cast<ZU_U32>(is.log_level));
    ZU_NET_DEV_SetLogCallback(log_callback);
    ZU_NET_DEV_Init();
    calm = false;
    std::vector<pthread_t> leaders;
    for (unsigned i = 0; i < is.logins; i++) {
        const auto port = static_cast<unsigned short>(first_port + i);
        be_moody(devices.emplace_back(here, port), port);
        login& fresh = logins.emplace_back();
        fresh.in = this;
        fresh.port = port;
        leaders.push_back(here.start([this, &fresh] { lead(fresh); }));
    }
    for (const pthread_t leader : leaders) {
        here.join(leader);
    }
    calm = true;
    ZU_NET_DEV_DeInit();
    const std::string left = here.left_over();
    if (!left.empty()) {
        breach("left over: " + left);
    }
    for (const zu_sdk_user* user : sdk_users) {
        if (user != nullptr) {
            breach("a slot is still taken");
        }
    }
    story.counts["virtual seconds"] = here.now() / seconds;
    for (const good_device& device : devices) {
        story.counts["connections"] += device.links_made();
    }
    return story;
}

} // namespace

life_story live_randomly(unsigned seed)
{
    return life(seed).live();
}

} // namespace torture
