// The device in the tests. See scripted_device.h.
#include "scripted_device.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace support
{

namespace
{

constexpr std::chrono::milliseconds accept_poll{20};

int bind_to_loopback(unsigned short port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        throw std::runtime_error("the device can't have port " + std::to_string(port));
    }
    return fd;
}

int listen_on_loopback(unsigned short port)
{
    const int fd = bind_to_loopback(port);
    if (listen(fd, 512) != 0) {
        throw std::runtime_error("the device can't listen on port " + std::to_string(port));
    }
    return fd;
}

unsigned short port_of(int fd)
{
    sockaddr_in address = {};
    socklen_t length = sizeof(address);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

} // namespace

scripted_device::scripted_device()
    : reserved(bind_to_loopback(0)), listening_port(port_of(reserved)),
      listener(listen_on_loopback(listening_port))
{
}

scripted_device::~scripted_device()
{
    close();
}

peer scripted_device::accept(std::chrono::milliseconds deadline)
{
    pollfd waiting = {listener, POLLIN, 0};
    if (listener == -1 || poll(&waiting, 1, static_cast<int>(deadline.count())) <= 0) {
        return {};
    }
    return peer(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
}

void scripted_device::refuse()
{
    if (listener != -1) {
        ::close(listener);
        listener = -1;
    }
}

void scripted_device::listen_again()
{
    listener = listen_on_loopback(listening_port);
}

void scripted_device::close()
{
    refuse();
    if (reserved != -1) {
        ::close(reserved);
        reserved = -1;
    }
}

std::function<void(peer&, const message&)> answers_with(int32_t retcode)
{
    return [retcode](peer& end, const message& m) {
        if (m.type == 0x1021) {
            end.send(make_message(0x1022, 0, {}));
        } else {
            end.send(answer(m, retcode));
        }
    };
}

serving_device::serving_device(behaviour how)
{
    behave(std::move(how));
    acceptor = std::thread([this] { accept_loop(); });
}

serving_device::~serving_device()
{
    stopping = true;
    if (acceptor.joinable()) { // not after refuse
        acceptor.join();
    }
    drop_links();
    for (auto& c : connections) {
        c->reader.join();
    }
}

void serving_device::behave(behaviour how)
{
    if (!how.on_message) {
        how.on_message = answers_with(0);
    }
    const std::lock_guard<std::mutex> lock(guard);
    conduct = std::move(how);
}

void serving_device::refuse()
{
    {
        const std::lock_guard<std::mutex> lock(guard);
        refusing = true;
    }
    stopping = true;
    acceptor.join();
    device.refuse();
}

void serving_device::serve_again()
{
    device.listen_again();
    {
        const std::lock_guard<std::mutex> lock(guard);
        refusing = false;
    }
    stopping = false;
    acceptor = std::thread([this] { accept_loop(); });
}

void serving_device::accept_loop()
{
    while (!stopping) {
        peer end = device.accept(accept_poll);
        if (!end.open()) {
            continue;
        }
        auto c = std::make_shared<connection>();
        c->end = std::move(end);
        const std::lock_guard<std::mutex> lock(guard);
        made++;
        clear_ended();
        connections.push_back(c);
        c->reader = std::thread([this, raw = c.get()] {
            serve(*raw);
            raw->ended = true;
        });
    }
}

// Joins the readers of connections that are over, so that long tests do not gather threads.
void serving_device::clear_ended()
{
    connections.remove_if([](const std::shared_ptr<connection>& c) {
        if (!c->ended) {
            return false;
        }
        c->reader.join();
        return true;
    });
}

void serving_device::serve(connection& c)
{
    behaviour now;
    {
        const std::lock_guard<std::mutex> lock(guard);
        now = conduct;
    }
    if (!now.on_connect(c.end)) {
        end(c);
        return;
    }
    while (auto m = c.end.read_message(std::chrono::hours(1))) {
        {
            const std::lock_guard<std::mutex> lock(guard);
            journal.push_back(*m);
            now = conduct;
        }
        const std::lock_guard<std::mutex> lock(c.writing);
        now.on_message(c.end, *m);
    }
    end(c);
}

// Closed before it counts as over: who finds no link open finds no descriptor of one either.
void serving_device::end(connection& c)
{
    const std::lock_guard<std::mutex> lock(c.writing);
    c.end.close();
    c.over = true;
}

void serving_device::drop_links()
{
    const std::lock_guard<std::mutex> lock(guard);
    for (auto& c : connections) {
        c->end.hang_up();
    }
}

void serving_device::reset_links()
{
    const std::lock_guard<std::mutex> lock(guard);
    for (auto& c : connections) {
        const linger at_once = {1, 0};
        setsockopt(c->end.socket(), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
        // Its reader wakes and closes the descriptor, which sends the reset.
        shutdown(c->end.socket(), SHUT_RD);
    }
}

int serving_device::send_to_all(const bytes& data)
{
    std::list<std::shared_ptr<connection>> targets;
    {
        const std::lock_guard<std::mutex> lock(guard);
        targets = connections;
    }
    int taken = 0;
    for (auto& c : targets) {
        const std::lock_guard<std::mutex> lock(c->writing);
        if (!c->over && c->end.send(data)) {
            taken++;
        }
    }
    return taken;
}

int serving_device::connections_made() const
{
    const std::lock_guard<std::mutex> lock(guard);
    return made;
}

int serving_device::links_open() const
{
    const std::lock_guard<std::mutex> lock(guard);
    int open = 0;
    for (const auto& c : connections) {
        open += c->over ? 0 : 1;
    }
    return open;
}

std::vector<message> serving_device::received(uint32_t type) const
{
    const std::lock_guard<std::mutex> lock(guard);
    std::vector<message> out;
    for (const auto& m : journal) {
        if (m.type == type) {
            out.push_back(m);
        }
    }
    return out;
}

std::vector<message> serving_device::received() const
{
    const std::lock_guard<std::mutex> lock(guard);
    std::vector<message> out;
    for (const auto& m : journal) {
        if (m.type != 0x1021) {
            out.push_back(m);
        }
    }
    return out;
}

} // namespace support
