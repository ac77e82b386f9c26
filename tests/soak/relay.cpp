// Between the library and the cameras. See relay.h.
#include "relay.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "virtual_camera/stamp.h"

namespace soak
{

namespace
{

constexpr std::uint32_t start_request = 0x1001;
constexpr std::uint32_t stop_answer = 0x1012;
constexpr std::uint32_t read_answer = 0x1072;
constexpr std::uint32_t stream_data = 0x1100;
constexpr std::size_t most_waiting = 256U << 10U; // for one peer; then nothing more is read for it
constexpr int connections_at_once = 300;
constexpr std::uint32_t not_yet = UINT32_MAX; // watched

std::int64_t now()
{
    return static_cast<std::int64_t>(zucam::clock_us());
}

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

[[noreturn]] void give_up(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

void send_at_once(int socket)
{
    const int yes = 1;
    (void)setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

int connect_to(std::uint16_t port)
{
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (made < 0 ||
        connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        give_up("a camera can't be reached");
    }
    send_at_once(made);
    return made;
}

} // namespace

relay::relay(const relay_options& options, const std::vector<std::uint16_t>& camera_ports)
    : options_(options), random_(options.seed), ledger_(camera_ports.size()),
      pulse_([this](std::int64_t from, std::int64_t to) { ledger_.stalled(from, to); }),
      poll_(epoll_create1(EPOLL_CLOEXEC)), control_{watched::control, 0, nullptr, options.control,
                                                    not_yet}
{
    watch(control_, EPOLLIN);
    for (std::size_t camera = 0; camera < camera_ports.size(); camera++) {
        open_door(camera, camera_ports[camera]);
    }
}

relay::~relay()
{
    for (const auto& each : links_) {
        (void)close(each.first->library.descriptor);
        (void)close(each.first->camera.descriptor);
    }
    for (const auto& each : doors_) {
        (void)close(each->watch.descriptor);
    }
    (void)close(poll_);
}

void relay::open_door(std::size_t camera, std::uint16_t camera_port)
{
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    if (made < 0 || bind(made, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        listen(made, connections_at_once) != 0 ||
        getsockname(made, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        give_up("no port to listen on");
    }
    doors_.push_back(std::make_unique<door>(door{
        {watched::door, camera, nullptr, made, not_yet}, ntohs(address.sin_port), camera_port}));
    watch(doors_.back()->watch, EPOLLIN);
}

std::vector<std::uint16_t> relay::ports() const
{
    std::vector<std::uint16_t> out;
    for (const auto& each : doors_) {
        out.push_back(each->port);
    }
    return out;
}

void relay::watch(watched& what, std::uint32_t events)
{
    if (what.events == events) {
        return;
    }
    epoll_event wanted = {};
    wanted.events = events;
    wanted.data.ptr = &what;
    const int how = what.events == not_yet ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    if (epoll_ctl(poll_, how, what.descriptor, &wanted) != 0) {
        give_up("a descriptor can't be watched");
    }
    what.events = events;
}

// ---- the loop ----------------------------------------------------------------------------------

void relay::run()
{
    std::array<epoll_event, 64> events;
    while (!ended_) {
        const int count = epoll_wait(poll_, events.data(), events.size(), pulse::period / 1000);
        pulse_.beat(now());
        for (int i = 0; i < count; i++) {
            handle(*static_cast<watched*>(events[i].data.ptr), events[i].events);
        }
        drop_due_links();
        clear_away();
    }
}

void relay::handle(watched& what, std::uint32_t events)
{
    switch (what.kind) {
    case watched::control:
        return read_notes();
    case watched::door:
        return welcome(*doors_[what.camera], what.camera);
    case watched::library_end:
    case watched::camera_end:
        return serve(*what.of, what, events);
    }
}

void relay::welcome(const door& at, std::size_t camera)
{
    const int accepted =
        accept4(at.watch.descriptor, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (accepted < 0) {
        return;
    }
    send_at_once(accepted);
    auto made = std::make_unique<link>();
    const std::int64_t since = now();
    made->number = ledger_.link_made(camera, since);
    made->library = {watched::library_end, camera, made.get(), accepted, not_yet};
    made->camera = {watched::camera_end, camera, made.get(), connect_to(at.camera_port), not_yet};
    schedule_drop(*made, since);
    watch(made->library, EPOLLIN);
    watch(made->camera, EPOLLIN);
    link* key = made.get();
    links_.emplace(key, std::move(made));
}

// ---- what passes -------------------------------------------------------------------------------

void relay::serve(link& of, const watched& end, std::uint32_t events)
{
    if (of.over) {
        return; // ended by an event of the same batch
    }
    if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) != 0) {
        const bool goes_on =
            end.kind == watched::library_end ? pass_to_camera(of) : pass_to_library(of);
        if (!goes_on || of.over) {
            return;
        }
    }
    flush(of);
}

bool relay::pass_to_camera(link& of)
{
    const flow read = of.to_camera.read_from(of.library.descriptor);
    while (const auto what = of.to_camera.next()) {
        if (what->type == start_request) {
            ledger_.link_up(of.number, now());
        }
        ledger_.request_passed(of.number, now());
        of.to_camera.put(what->whole, what->size);
    }
    if (read == flow::makes_no_sense) {
        ledger_.complain("the library sent a request to camera " +
                         std::to_string(of.library.camera) + " whose length is out of range");
    }
    if (read != flow::goes_on) {
        library_has_ended(of);
    }
    return read == flow::goes_on;
}

bool relay::pass_to_library(link& of)
{
    const flow read = of.to_library.read_from(of.camera.descriptor);
    while (const auto what = of.to_library.next()) {
        note_message(of, *what);
        if (drops_ && of.drop == drop_kind::within_frame && what->is_frame() &&
            now() >= of.drop_at) {
            of.to_library.put(what->whole, what->size / 2);
            drop(of);
            return false;
        }
        of.to_library.put(what->whole, what->size);
    }
    if (read != flow::goes_on) {
        ledger_.complain("camera " + std::to_string(of.camera.camera) +
                         " itself ended a link: it was sent nonsense, or read from for 20 s");
        drop(of);
    }
    return read == flow::goes_on;
}

// Before the first byte goes out: what is received has been noted.
void relay::note_message(link& of, const message& what)
{
    if (what.is_frame()) {
        ledger_.frame_sent(of.number, what.word(1), now());
    } else if (what.is_stream_header()) {
        ledger_.stream_begins(of.number);
    } else if (what.type == read_answer) {
        ledger_.barrier_answered(of.number, what.word(0), now());
    } else if (what.type == stop_answer) {
        ledger_.stream_ends(of.number);
    }
    if (what.type != stream_data) {
        ledger_.answer_passed(of.number, now());
    }
}

void relay::flush(link& of)
{
    if (!of.to_library.write_to(of.library.descriptor)) {
        return library_has_ended(of);
    }
    (void)of.to_camera.write_to(of.camera.descriptor); // its end is read
    const auto events = [](const passage& in, const passage& out) {
        std::uint32_t wanted = in.waiting() < most_waiting ? std::uint32_t{EPOLLIN} : 0;
        wanted |= out.waiting() > 0 ? std::uint32_t{EPOLLOUT} : 0;
        return wanted;
    };
    watch(of.library, events(of.to_camera, of.to_library));
    watch(of.camera, events(of.to_library, of.to_camera));
}

// ---- the end of links --------------------------------------------------------------------------

void relay::schedule_drop(link& of, std::int64_t since)
{
    const double life = std::exponential_distribution<double>(1 / options_.link_life)(random_);
    of.drop_at = since + static_cast<std::int64_t>(life * 1e6);
    of.drop = static_cast<drop_kind>(std::uniform_int_distribution<int>(0, 2)(random_));
}

void relay::drop_due_links()
{
    if (!drops_) {
        return;
    }
    const std::int64_t time = now();
    for (const auto& each : links_) {
        link& of = *each.second;
        if (!of.over && of.drop != drop_kind::within_frame && time >= of.drop_at) {
            drop(of);
        }
    }
}

// What waits to be sent is tried once more; the rest is lost with the link.
void relay::drop(link& of)
{
    (void)of.to_library.write_to(of.library.descriptor);
    ledger_.link_dropped(of.number, now());
    close_link(of, of.drop == drop_kind::reset);
}

void relay::library_has_ended(link& of)
{
    ledger_.link_ended_by_library(of.number, now());
    close_link(of, false);
}

void relay::close_link(link& of, bool with_reset)
{
    of.over = true;
    over_.push_back(&of);
    if (with_reset) {
        const linger at_once = {1, 0};
        (void)setsockopt(of.library.descriptor, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }
    (void)close(of.library.descriptor);
    (void)close(of.camera.descriptor);
}

void relay::clear_away()
{
    for (link* each : over_) {
        links_.erase(each);
    }
    over_.clear();
}

// ---- what the library's side tells -------------------------------------------------------------

void relay::read_notes()
{
    note told;
    for (int i = 0; i < 100; i++) { // then links get their turn
        const ssize_t count = recv(control_.descriptor, &told, sizeof told, MSG_DONTWAIT);
        if (count == sizeof told) {
            obey(told);
            continue;
        }
        ended_ = ended_ || !(count < 0 && (errno == EAGAIN || errno == EINTR));
        return;
    }
}

void relay::obey(const note& told)
{
    switch (told.kind) {
    case note_kind::drops:
        drops_ = told.a != 0;
        for (const auto& each : links_) {
            schedule_drop(*each.second, now());
        }
        return;
    case note_kind::give_counts:
        return give_counts();
    case note_kind::end:
        ended_ = true;
        return;
    default:
        return ledger_.judge(told);
    }
}

void relay::give_counts()
{
    counts out = ledger_.so_far();
    out.latest_wake = pulse_.worst();
    if (send(control_.descriptor, &out, sizeof out, MSG_NOSIGNAL) != sizeof out) {
        ended_ = true;
    }
}

} // namespace soak
