// The witness. See hostile_witness.h.
#include "hostile_witness.h"

#include <optional>

#include "live_login.h"
#include "scripted_device.h"

using namespace support;

namespace hostile
{

namespace
{

constexpr std::chrono::milliseconds pace{2};
constexpr std::chrono::milliseconds request_limit{2900}; // three seconds by time(), which lags
constexpr uint32_t heartbeat_answer = 0x1022;
constexpr uint32_t heartbeat_request = 0x1021;

bytes numbered_frame(uint32_t number)
{
    return text("KTVF") + le32(number) + pattern(number * 37 % 3000, number);
}

int32_t code_for(uint32_t action, uint32_t speed)
{
    return static_cast<int32_t>((action * 31 + speed) & 0x7fffffff);
}

void answer_well(peer& end, const message& m)
{
    if (m.type == heartbeat_request) {
        end.send(make_message(heartbeat_answer, 0, {}));
    } else if (m.body.size() == 8) {
        end.send(answer(m, code_for(word_at(m.body, 0), word_at(m.body, 4))));
    } // nothing else is ever asked
}

} // namespace

struct witness::life {
    life();

    static ZU_S32 on_stream(ZU_U32 of, ZU_U32 type, ZU_U8* data, ZU_U32 length, ZU_VOID* self)
    {
        static_cast<life*>(self)->take(of, type, bytes(data, data + length));
        return 0;
    }
    static ZU_S32 on_event(ZU_U32 /*of*/, ZU_U32 event, ZU_VOID* self)
    {
        auto* w = static_cast<life*>(self);
        // A Logout may still tell of the connection that it ends.
        if (event != ZU_NET_DEV_HEARTBEAT && !w->leaving) {
            w->complain("the good login has event " + std::to_string(event));
        }
        return 0;
    }

    void complain(const std::string& what);
    void take(ZU_U32 of, ZU_U32 type, const bytes& body);
    void send_frames();
    bool make_request(uint32_t action);
    void make_requests();
    void finish();

    std::mutex guard;
    std::vector<std::string> complaints;
    std::atomic<uint32_t> sent{0};
    std::atomic<uint32_t> received{0};
    std::atomic<long> answered{0};
    std::atomic<bool> over{false};
    std::atomic<bool> leaving{false};
    serving_device device;
    std::thread frames;
    std::thread requests;
    live_login login; // its callbacks use all of the above
};

witness::life::life() : device({[](peer&) { return true; }, answer_well}), login(device.port())
{
    // A login may be up before the device has taken its connection out of the queue.
    if (login.result() != ZU_SUCCESS || !eventually([this] { return device.links_open() == 1; }) ||
        ZU_NET_DEV_SetStreamCallBack(login.handle(), on_stream, this) != ZU_SUCCESS ||
        ZU_NET_DEV_SetEventCallBack(login.handle(), on_event, this) != ZU_SUCCESS) {
        complain("the good login can't begin");
    }
}

// The first few say all that there is to say.
void witness::life::complain(const std::string& what)
{
    const std::lock_guard<std::mutex> lock(guard);
    if (complaints.size() < 5) {
        complaints.push_back(what);
    }
}

void witness::life::take(ZU_U32 of, ZU_U32 type, const bytes& body)
{
    const uint32_t number = received + 1;
    if (of != login.handle() || type != ZU_NET_DEV_AV_DATA || body != numbered_frame(number)) {
        complain("the good login is handed something else than frame " + std::to_string(number));
    }
    received = number;
}

void witness::life::send_frames()
{
    while (!over) {
        const uint32_t number = sent + 1;
        const bytes body = numbered_frame(number);
        if (device.send_to_all(make_message(0x1100, 0, body)) != 1) {
            complain("the good device has no connection for frame " + std::to_string(number));
            return;
        }
        sent = number;
        std::this_thread::sleep_for(pace); // sleep: the pace of the good device
    }
}

// A request gets its own answer. On a machine that is too busy for that it gets none, and then not
// before its limit has passed.
bool witness::life::make_request(uint32_t action)
{
    const uint32_t speed = action % 97;
    const auto begun = std::chrono::steady_clock::now();
    const ZU_S32 code = ZU_NET_DEV_PTZ_Ctrl_Standard(login.handle(), action, speed);
    const auto took = std::chrono::steady_clock::now() - begun;
    if (code == code_for(action, speed)) {
        answered++;
        return true;
    }
    if (code == ZU_FAILURE && took >= request_limit) {
        return true;
    }
    complain("request " + std::to_string(action) + " of the good login returns " +
             std::to_string(code));
    return false;
}

void witness::life::make_requests()
{
    for (uint32_t action = 1; !over && make_request(action); action++) {
        std::this_thread::sleep_for(pace); // sleep: leaves the machine to the others
    }
}

void witness::life::finish()
{
    over = true;
    for (std::thread* one : {&frames, &requests}) {
        if (one->joinable()) {
            one->join();
        }
    }
}

witness::witness() : own(std::make_unique<life>())
{
}

witness::~witness()
{
    own->finish();
}

void witness::begin()
{
    own->frames = std::thread([this] { own->send_frames(); });
    own->requests = std::thread([this] { own->make_requests(); });
}

std::vector<std::string> witness::end()
{
    // Whatever the lie was, this login goes on.
    const uint32_t frame = own->received + 1;
    const long request = own->answered + 1;
    if (!eventually([&] { return own->received >= frame && own->answered >= request; })) {
        own->complain("the good login has no more frames, or no more answers");
    }
    own->finish();
    if (!grows_to([this] { return own->received.load(); }, own->sent.load())) {
        own->complain(std::to_string(own->received) + " of " + std::to_string(own->sent) +
                      " frames have reached the good login");
    }
    if (own->device.connections_made() != 1) {
        own->complain("the good login has connected again");
    }
    own->leaving = true;
    if (own->login.log_out() != ZU_SUCCESS) {
        own->complain("the good login's Logout fails");
    }
    const std::lock_guard<std::mutex> lock(own->guard);
    return own->complaints;
}

long witness::frames() const
{
    return own->received;
}

long witness::requests() const
{
    return own->answered;
}

unsigned witness::handle() const
{
    return own->login.handle();
}

} // namespace hostile
