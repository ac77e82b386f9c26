// A device that lies, and the login that it lies to. See hostile_device.h.
#include "hostile_device.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "sdk_user.h"

using namespace support;

namespace hostile
{

namespace
{

constexpr milliseconds accept_poll{20};

void never_block_for_ever(const peer& end)
{
    const timeval limit = {30, 0};
    setsockopt(end.socket(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
}

// The data type by the flag that opens a body; a body without a known flag keeps the one before.
ZU_U32 type_of(const bytes& body, ZU_U32 before)
{
    if (body.size() < 4) {
        return before;
    }
    const std::string flag(body.begin(), body.begin() + 4);
    if (flag == "FSYS") {
        return ZU_NET_DEV_SYS_DATA;
    }
    if (flag == "EXVC") {
        return ZU_NET_DEV_KEY_DATA;
    }
    return flag == "KTVF" || flag == "KTAF" || flag == "VUYV" ? ZU_NET_DEV_AV_DATA : before;
}

} // namespace

lying_device::lying_device(unsigned seed) : draw(seed)
{
}

lying_device::~lying_device()
{
    if (held_port != -1) {
        close(held_port);
    }
}

void lying_device::expect(bool holds, const std::string& what)
{
    if (!holds) {
        wrong.push_back(telling + ": " + what);
    }
}

// ---- connections -------------------------------------------------------------------------------

void lying_device::accept_after(int closed_first, const std::atomic<bool>& give_up)
{
    while (!link.open() && !give_up) {
        peer end = listening.accept(accept_poll);
        if (!end.open()) {
            continue;
        }
        if (closed_first-- > 0) {
            end.close();
        } else {
            link = std::move(end);
        }
        accepted++;
    }
}

bool lying_device::log_in(int closed_first)
{
    std::atomic<bool> give_up{false};
    std::thread device([&] { accept_after(closed_first, give_up); });
    login.emplace(listening.port());
    give_up = !logged_in();
    const bool up = logged_in() && eventually([this] { return link.open(); }) &&
                    eventually([this] { return login->watch(); });
    give_up = true;
    device.join();
    expect(up || (closed_first > 0 && !logged_in()), "the login does not come up");
    connections = closed_first + 1;
    if (up) {
        never_block_for_ever(link);
    }
    return up;
}

bool lying_device::accept_again(int closed_first)
{
    std::atomic<bool> give_up{false};
    link.close();
    // A connection that ends at once may cost the login's pause of three seconds, each of them.
    const int wanted = accepted + closed_first + 1;
    std::thread device([&] { accept_after(closed_first, give_up); });
    const bool up = grows_to([this] { return accepted.load(); }, wanted) && login->wait_until_up();
    give_up = true;
    device.join();
    expect(up, "the login does not connect again");
    compare_what_was_handed_over();
    promised.resize(std::min(promised.size(), seen().block_count()));
    data_type = 0;
    connections += closed_first + 1;
    if (up) {
        never_block_for_ever(link);
    }
    return up;
}

// The port stays bound all the while. Otherwise the system could give it to a good device, in this
// process or another, which would find a stranger at its door.
void lying_device::refuse()
{
    listening.refuse();
    held_port = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(held_port, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(listening.port());
    expect(bind(held_port, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0,
           "the port can't be kept");
}

void lying_device::listen_again()
{
    listening.listen_again();
}

void lying_device::log_out()
{
    const auto begun = std::chrono::steady_clock::now();
    const ZU_S32 result = login->log_out();
    const auto took = std::chrono::steady_clock::now() - begun;
    expect(result == ZU_SUCCESS, "Logout returns " + std::to_string(result));
    expect(took < long_enough, "Logout takes too long");
    compare_what_was_handed_over();
    link.close();
}

uint16_t lying_device::int_port() const
{
    const held_user user(handle());
    return static_cast<uint16_t>(user->int_port);
}

int lying_device::ext_sock() const
{
    const held_user user(handle());
    return user->ext_sock;
}

int lying_device::int_sock() const
{
    const held_user user(handle());
    return user->int_sock;
}

bool lying_device::link_up() const
{
    return used_word(handle()) == ZU_SDK_USER_USED;
}

bool lying_device::link_lost()
{
    const bool down = login->wait_until_down();
    expect(down, "the link is not lost");
    return down;
}

// ---- messages ----------------------------------------------------------------------------------

bytes lying_device::promise(const bytes& body)
{
    data_type = type_of(body, data_type);
    promised.push_back({data_type, body});
    return make_message(stream_message, 0, body);
}

bytes lying_device::promise(const std::string& flag, size_t size)
{
    return promise(text(flag) + pattern(size, draw.word()));
}

void lying_device::send(const bytes& data)
{
    link.send(data);
}

void lying_device::send_heartbeats(int count, int32_t len, const bytes& body)
{
    heartbeats += count;
    bytes all;
    for (int i = 0; i < count; i++) {
        all = std::move(all) + make_message(heartbeat_answer, len, 0, body);
    }
    send(all);
}

// ---- what must hold ----------------------------------------------------------------------------

// Frames that were on the way when a link was lost may be lost with it, so this looks at what has
// come: nothing but what was promised, in its order.
void lying_device::compare_what_was_handed_over()
{
    const auto blocks = seen().blocks();
    expect(blocks.size() <= promised.size(), "more blocks are handed over than were sent");
    for (size_t i = 0; i < std::min(blocks.size(), promised.size()); i++) {
        if (blocks[i].handle != handle() || blocks[i].data_type != promised[i].data_type ||
            blocks[i].body != promised[i].body) {
            expect(false, "block " + std::to_string(i) + " is not what was sent");
            return;
        }
    }
}

// Events are counted on the first connection: a connected or disconnected event at the same moment
// may take a heartbeat's place, or give up its own.
bool lying_device::in_step()
{
    send(promise(text("KTVF last") + le32(static_cast<uint32_t>(++frames))));
    const size_t wanted = promised.size();
    const bool whole = seen().wait_for_blocks(wanted) && seen().block_count() == wanted;
    expect(whole, std::to_string(seen().block_count()) + " of " + std::to_string(wanted) +
                      " blocks are handed over");
    compare_what_was_handed_over();
    const bool told = connections > 1 || (seen().wait_for_event(ZU_NET_DEV_HEARTBEAT, heartbeats) &&
                                          seen().count(ZU_NET_DEV_HEARTBEAT) == heartbeats);
    expect(told, std::to_string(seen().count(ZU_NET_DEV_HEARTBEAT)) + " events for " +
                     std::to_string(heartbeats) + " heartbeat answers");
    return whole && told;
}

void pause(milliseconds how_long)
{
    std::this_thread::sleep_for(how_long); // sleep: the device is slow on purpose
}

} // namespace hostile
