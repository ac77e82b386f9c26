// A machine of its own for the library. See machine.h.
#include "machine.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>

namespace sim
{

namespace
{

constexpr micros connect_limit = 127 * seconds;

machine* the_machine;

} // namespace

machine::machine(unsigned seed) : threads(seed)
{
    if (the_machine != nullptr) {
        give_up("there is a machine already");
    }
    the_machine = this;
}

machine::~machine()
{
    the_machine = nullptr;
}

machine& machine::current()
{
    if (the_machine == nullptr) {
        give_up("a call without a machine");
    }
    return *the_machine;
}

void machine::listen(unsigned short port, device* here)
{
    devices[port] = here;
    answers[port] = answer_to_connect::accept;
}

void machine::answer(unsigned short port, answer_to_connect how)
{
    answers[port] = how;
}

void machine::let_pass(micros time)
{
    threads.wait(
        "sleep", [] { return false; }, now() + time);
}

bool machine::wait(const std::function<bool()>& ready, micros at_most)
{
    return threads.wait("a test's wait", ready, at_most == never ? never : now() + at_most);
}

pthread_t machine::start(std::function<void()> what)
{
    pthread_t thread;
    const auto run = [](void* argument) -> void* {
        const std::unique_ptr<std::function<void()>> mine(
            static_cast<std::function<void()>*>(argument));
        (*mine)();
        return nullptr;
    };
    threads.create(&thread, run, new std::function<void()>(std::move(what)));
    return thread;
}

std::string machine::left_over()
{
    wait([&] { return threads.running() == 0; }, 20 * seconds);
    std::string text;
    if (threads.running() != 0) {
        text += "threads: " + threads.where_they_wait() + "; ";
    }
    if (descriptors.count() != 0) {
        text += "descriptors: " + descriptors.names() + "; ";
    }
    if (!mappings.empty()) {
        text += "records: " + std::to_string(mappings.size()) + "; ";
    }
    if (!mutexes.empty()) {
        text += "a mutex; ";
    }
    for (const std::string& complaint : descriptors.complaints) {
        text += complaint + "; ";
    }
    return text;
}

bool machine::wait_on(const char* call, const descriptor_ref& on,
                      const std::function<bool()>& ready, micros until)
{
    on->waiting++;
    const bool came = threads.wait(call, ready, until);
    on->waiting--;
    return came;
}

// ---- TCP ---------------------------------------------------------------------------------------

void machine::established(const descriptor_ref& socket, unsigned short port)
{
    if (socket->state != tcp_state::connecting) {
        return; // closed or shut down meanwhile
    }
    const auto how = answers.find(port);
    if (how == answers.end() || how->second == answer_to_connect::refuse) {
        socket->state = tcp_state::refused;
        socket->pending_error = ECONNREFUSED;
        return;
    }
    socket->state = tcp_state::established;
    socket->to = std::make_shared<connection>();
    socket->to->port = port;
    socket->to->number = ++connections;
    socket->to->socket = socket;
    devices[port]->connected(socket->to);
}

void machine::begin_connect(const descriptor_ref& socket, unsigned short port)
{
    socket->state = tcp_state::connecting;
    const auto how = answers.find(port);
    if (how != answers.end() && how->second == answer_to_connect::silence) {
        return;
    }
    threads.at(now() + 2 * network_time, [this, weak = std::weak_ptr<descriptor>(socket), port] {
        if (const descriptor_ref still = weak.lock()) {
            established(still, port);
        }
    });
}

int machine::connect(const descriptor_ref& socket, unsigned short port)
{
    if (socket->state == tcp_state::fresh) {
        begin_connect(socket, port);
        if ((socket->status_flags & O_NONBLOCK) != 0) {
            errno = EINPROGRESS;
            return -1;
        }
        // A blocking connect keeps to the limit for sending, and gives up after two minutes.
        const micros limit = std::min(socket->send_limit, connect_limit);
        if (!wait_on(
                "connect", socket, [&] { return socket->state != tcp_state::connecting; },
                now() + limit)) {
            errno = limit < connect_limit ? EINPROGRESS : ETIMEDOUT;
            return -1;
        }
    }
    switch (socket->state) {
    case tcp_state::connecting:
        errno = EALREADY;
        return -1;
    case tcp_state::established:
        if (socket->announced) {
            errno = EISCONN;
            return -1;
        }
        socket->announced = true;
        return 0;
    default:
        errno = socket->pending_error != 0 ? socket->pending_error : ECONNABORTED;
        socket->pending_error = 0;
        return -1;
    }
}

void machine::shut(const descriptor_ref& socket, bool reading, bool writing)
{
    socket->shut_for_reading = socket->shut_for_reading || reading;
    if (!writing || socket->shut_for_writing) {
        return;
    }
    socket->shut_for_writing = true;
    if (socket->to == nullptr) {
        return;
    }
    socket->state =
        socket->state == tcp_state::established ? tcp_state::fin_wait : tcp_state::closed;
    threads.at(now() + network_time, [this, to = socket->to] {
        const auto at = devices.find(to->port);
        if (at != devices.end()) {
            at->second->ended(to);
        }
    });
}

void machine::send_to_device(const descriptor_ref& socket, const std::string& bytes)
{
    threads.at(now() + network_time, [this, to = socket->to, bytes] {
        to->request_bytes += bytes;
        const auto at = devices.find(to->port);
        if (at != devices.end()) {
            at->second->received(to);
        }
    });
}

} // namespace sim
