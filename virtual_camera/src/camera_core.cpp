// What a camera does with connections and requests. From top to bottom: starting and stopping, the
// accepting thread's loop, what links report on their own threads, and the answers. A request that
// asks the camera to be or do something (settings, movement) is passed to control; stream requests
// go to the stream's hub. See the header for threads and locks.
#include "camera_core.h"

#include "socket_end.h"

#include "virtual_camera/stamp.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace zucam
{

namespace
{

stream_configs starting_configs(const camera_options& options)
{
    const auto head = std::make_shared<camera_head>(options.move_limit);
    stream_configs made;
    for (unsigned stream = 0; stream < stream_count; ++stream) {
        made[stream] = config_of_stream(options, stream);
        made[stream].head = head;
    }
    return made;
}

// Without a descriptor left the waiting connection stays readable; asking again at once would spin.
void wait_out_shortage()
{
    if (errno == EMFILE || errno == ENFILE) {
        (void)poll(nullptr, 0, 50);
    }
}

} // namespace

camera_core::camera_core(const camera_options& options)
    : camera_core(options, starting_configs(options))
{
}

camera_core::camera_core(const camera_options& options, const stream_configs& start)
    : options_(options), journal_(options.journal_to, options.journal_limit),
      listener_(options.listen, options.port),
      control_(start,
               [this](const stream_config& config) { hubs_[config.stream]->change(config); }),
      faults_(std::make_shared<active_faults>(options.initial_faults, 1))
{
    for (const stream_config& each : start) {
        hubs_[each.stream] = std::make_unique<stream_hub>(each);
    }
    obey_refusal();
    thread_ = std::thread([this] { run(); });
}

camera_core::~camera_core()
{
    stop();
}

const journal& camera_core::received_so_far() const
{
    return journal_;
}

std::uint16_t camera_core::port() const
{
    return listener_.port();
}

camera_counters camera_core::counters() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return {accepted_, alive_, totals_.sent, totals_.dropped};
}

// Stops what makes work first: accepting, then the links, then the streams.
void camera_core::stop()
{
    const std::lock_guard<std::mutex> one_at_a_time(stop_mutex_);
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    waker_.wake();
    if (thread_.joinable()) {
        thread_.join();
    }
    std::map<std::uint64_t, std::unique_ptr<link>> last;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        last.swap(links_);
    }
    for (auto& entry : last) {
        entry.second->ask_end();
    }
    last.clear(); // joins
    for (const auto& hub : hubs_) {
        hub->stop();
    }
    listener_.shut();
    const std::lock_guard<std::mutex> lock(mutex_);
    alive_ = 0;
    obeyed_.notify_all();
}

void camera_core::drop_links()
{
    std::unique_lock<std::mutex> lock(mutex_);
    std::uint64_t newest = 0;
    for (auto& entry : links_) {
        entry.second->ask_end();
        newest = entry.first;
    }
    obeyed_.wait(lock, [this, newest] {
        return stopping_ || links_.empty() || links_.begin()->first > newest;
    });
}

void camera_core::set_faults(const faults& value)
{
    std::unique_lock<std::mutex> lock(mutex_);
    const std::uint64_t generation = faults_->generation + 1;
    faults_ = std::make_shared<active_faults>(value, generation);
    for (auto& entry : links_) {
        entry.second->wake();
    }
    waker_.wake();
    obeyed_.wait(lock,
                 [this, generation] { return stopping_ || obeyed_generation_ >= generation; });
}

void camera_core::run()
{
    while (wait_for_work()) {
        accept_all(); // whoever is connected before a refusal is a link
        try {
            obey_refusal();
        } catch (const std::exception& error) { // no socket to listen with: refuse on
            (void)std::fprintf(stderr, "zucam: %s\n", error.what());
            mark_obeyed(faults_in_force()->generation);
        }
        clear_ended_links();
    }
}

bool camera_core::wait_for_work() const
{
    std::array<pollfd, 2> wanted = {
        {{waker_.descriptor(), POLLIN, 0}, {listener_.descriptor(), POLLIN, 0}}};
    (void)poll(wanted.data(), wanted.size(), -1);
    waker_.clear();
    const std::lock_guard<std::mutex> lock(mutex_);
    return !stopping_;
}

void camera_core::obey_refusal()
{
    const auto now = faults_in_force();
    if (now->value.refuse) {
        listener_.shut();
    } else {
        listener_.open();
    }
    mark_obeyed(now->generation);
}

void camera_core::mark_obeyed(std::uint64_t generation)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    obeyed_generation_ = generation;
    obeyed_.notify_all();
}

void camera_core::accept_all()
{
    while (listener_.is_open()) {
        const int socket = listener_.accept_one();
        if (socket < 0) {
            return wait_out_shortage();
        }
        welcome(socket);
    }
}

void camera_core::welcome(int socket)
{
    const std::uint64_t number = count_connection();
    const auto now = faults_in_force();
    if (now->take_close()) {
        return now->value.drop_with_reset ? close_with_reset(socket) : close_in_order(socket);
    }
    try {
        add_link(make_link(socket, number));
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "zucam: a connection was given up: %s\n", error.what());
    }
}

std::uint64_t camera_core::count_connection()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return ++accepted_;
}

std::unique_ptr<link> camera_core::make_link(int socket, std::uint64_t number)
{
    const link_limits limits = {options_.backlog_limit, options_.stall_limit};
    try {
        return std::make_unique<link>(socket, number, limits, *this, totals_);
    } catch (...) {
        (void)close(socket);
        throw;
    }
}

void camera_core::add_link(std::unique_ptr<link> made)
{
    const std::uint64_t number = made->number();
    note(journal_event::connected, number);
    try {
        begin_link(std::move(made));
    } catch (...) {
        note_end(number);
        throw;
    }
}

// The link is in the table before its thread runs: whatever a peer has seen of a link, drop_links
// and set_faults find it.
void camera_core::begin_link(std::unique_ptr<link> made)
{
    const std::uint64_t number = made->number();
    const std::lock_guard<std::mutex> lock(mutex_);
    link& added = *links_.emplace(number, std::move(made)).first->second;
    try {
        added.begin();
        ++alive_;
    } catch (...) {
        links_.erase(number); // closes the socket
        throw;
    }
}

// Moves entries from map to map, which needs no memory: nothing here can throw.
void camera_core::clear_ended_links()
{
    std::map<std::uint64_t, std::unique_ptr<link>> gone;
    std::unique_lock<std::mutex> lock(mutex_);
    for (auto at = links_.begin(); at != links_.end();) {
        const auto looked_at = at++;
        if (looked_at->second->has_ended()) {
            (void)gone.insert(links_.extract(looked_at));
        }
    }
    lock.unlock();
    const std::uint64_t count = gone.size();
    gone.clear(); // joins
    lock.lock();
    alive_ -= count;
    obeyed_.notify_all();
}

std::shared_ptr<const active_faults> camera_core::current_faults()
{
    return faults_in_force();
}

std::shared_ptr<const active_faults> camera_core::faults_in_force() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return faults_;
}

void camera_core::note(journal_event event, std::uint64_t link_number)
{
    journal_.add({event, clock_us(), options_.index, link_number, 0, 0, {}});
}

// For where a link is over, and the lack of memory may cost nothing but the line.
void camera_core::note_end(std::uint64_t link_number)
{
    try {
        note(journal_event::disconnected, link_number);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "zucam: the journal lacks a line: %s\n", error.what());
    }
}

void camera_core::received(link& from, const wire::request& what)
{
    journal_.add({journal_event::request, clock_us(), options_.index, from.number(), what.type,
                  what.wait_port, what.payload});
}

void camera_core::malformed(link& from, const wire::header& what)
{
    journal_.add({journal_event::malformed,
                  clock_us(),
                  options_.index,
                  from.number(),
                  what.type,
                  what.wait_port,
                  {}});
}

void camera_core::ended(link& from)
{
    for (const auto& hub : hubs_) {
        hub->remove(from);
    }
    note_end(from.number());
    waker_.wake();
}

void camera_core::handle(link& from, const wire::request& what)
{
    const auto now = faults_in_force();
    const auto& ignored = now->value.never_answer;
    if (now->value.silent ||
        std::find(ignored.begin(), ignored.end(), what.type) != ignored.end()) {
        return;
    }
    wire::request routed = what;
    routed.wait_port = now->value.wrong_wait_port.value_or(what.wait_port);
    answer(from, routed);
}

void camera_core::answer(link& from, const wire::request& what)
{
    switch (what.type) {
    case wire::start_stream:
        return start_stream(from, what);
    case wire::stop_stream:
        return stop_stream(from, what);
    case wire::key_frame:
        return make_key_frame(from, what);
    case wire::heartbeat:
        return from.send_answer(wire::message(wire::answer_to(what.type), what.wait_port, {}));
    default:
        break;
    }
    if (auto reply = control_.answer(what)) {
        from.send_answer(std::move(reply->message));
        if (reply->changes_streams) {
            control_.put_in_force();
        }
    }
}

void camera_core::start_stream(link& from, const wire::request& what)
{
    if (what.payload.size() < 8 || what.word(0) >= stream_count) {
        return from.send_answer(wire::answer(what, code_out_of_range));
    }
    from.send_answer(wire::answer(what, code_done));
    hubs_[what.word(0)]->add(from);
}

// What is still queued goes away before the answer is queued, so nothing follows it.
void camera_core::stop_stream(link& from, const wire::request& what)
{
    if (what.payload.size() < 8 || what.word(0) >= stream_count) {
        return from.send_answer(wire::answer(what, code_out_of_range));
    }
    hubs_[what.word(0)]->remove(from);
    from.discard_stream(what.word(0));
    from.send_answer(wire::answer(what, code_done));
}

void camera_core::make_key_frame(link& from, const wire::request& what)
{
    if (what.payload.size() < 4 || what.word(0) >= stream_count) {
        return from.send_answer(wire::answer(what, code_out_of_range));
    }
    hubs_[what.word(0)]->request_key_frame(
        [&] { from.send_answer(wire::answer(what, code_done)); });
}

} // namespace zucam
